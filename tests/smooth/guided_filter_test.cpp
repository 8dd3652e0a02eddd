// Guided filter: the core against the linear model written out with naive
// window means, and the 8-bit export against the core on every layout.
#include <array>
#include <cmath>

#include "blur/blur.h"
#include "common/reference.h"
#include "smooth/smooth.h"

namespace {

using Plane = std::vector<double>;

Plane RandomPlane(int w, int h) {
    Plane p(size_t(w) * h);
    for (double& v : p) v = vtest::RandomInt(0, 255) / 255.0;
    return p;
}

// Window mean with replicated edges, summed directly.
Plane NaiveBox(const Plane& s, int w, int h, int r) {
    Plane d(s.size());
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            double sum = 0;
            for (int dy = -r; dy <= r; ++dy)
                for (int dx = -r; dx <= r; ++dx)
                    sum += s[size_t(vtest::MapEdge(y + dy, h, 0)) * w + vtest::MapEdge(x + dx, w, 0)];
            d[size_t(y) * w + x] = sum / ((2.0 * r + 1) * (2.0 * r + 1));
        }
    return d;
}

Plane LibraryBox(const Plane& s, int w, int h, int r) {
    Plane d(s.size());
    velomar::BoxBlurDouble(s.data(), d.data(), w, h, w, r, EDGE_REPLICATE);
    return d;
}

// q = box(a) I + box(b), a = cov(I, p) / (var(I) + eps), b = mean_p - a mean_I.
template <class Box>
Plane LinearModel(const Plane& p, const Plane& I, int w, int h, int r, double eps, Box box) {
    const size_t n = p.size();
    Plane II(n), Ip(n), a(n), b(n);
    for (size_t i = 0; i < n; ++i) II[i] = I[i] * I[i], Ip[i] = I[i] * p[i];
    Plane mp = box(p, w, h, r), mII = box(II, w, h, r), mI = box(I, w, h, r), mIp = box(Ip, w, h, r);
    for (size_t i = 0; i < n; ++i)
        a[i] = (mIp[i] - mI[i] * mp[i]) / (mII[i] - mI[i] * mI[i] + eps), b[i] = mp[i] - a[i] * mI[i];
    Plane ma = box(a, w, h, r), mb = box(b, w, h, r), q(n);
    for (size_t i = 0; i < n; ++i) q[i] = ma[i] * I[i] + mb[i];
    return q;
}

TEST(GuidedFilterCore, FitsTheLocalLinearModel) {
    for (int iter = 0; iter < 60; ++iter) {
        const int w = vtest::RandomInt(1, 13), h = vtest::RandomInt(1, 11), r = vtest::RandomInt(0, 16);
        const double eps = std::pow(10.0, -vtest::RandomInt(1, 3));
        // Every third guide the input itself, every tenth a constant.
        const Plane p = RandomPlane(w, h), I = iter % 3 == 0 ? p : iter % 10 == 1 ? Plane(p.size(), 0.4) : RandomPlane(w, h);
        SCOPED_TRACE(testing::Message() << w << "x" << h << " r" << r << " eps " << eps);
        Plane out(p.size(), -1.0), inPlace = p, overGuide = I;
        velomar::GuidedFilterCore(p.data(), I.data(), out.data(), w, h, r, eps);
        // Same box means as the core: identical arithmetic, identical bits.
        EXPECT_EQ(out, LinearModel(p, I, w, h, r, eps, LibraryBox));
        // Direct window sums round differently from running sums (a few ulps
        // of values <= 1), amplified at most by 1 / eps through a.
        const Plane naive = LinearModel(p, I, w, h, r, eps, NaiveBox);
        for (size_t i = 0; i < p.size(); ++i) ASSERT_NEAR(out[i], naive[i], 1e-9) << "at " << i;

        // Output over the input plane or the guide gives the same values.
        velomar::GuidedFilterCore(inPlace.data(), iter % 3 == 0 ? inPlace.data() : I.data(), inPlace.data(), w, h, r, eps);
        EXPECT_EQ(inPlace, out);
        velomar::GuidedFilterCore(p.data(), overGuide.data(), overGuide.data(), w, h, r, eps);
        EXPECT_EQ(overGuide, out);
    }
}

// The export: bytes to v / 255, the core per channel (three-byte pixels on any
// layout but grey), back with trunc(q * 255 + 0.5) clamped.
std::vector<uint8_t> ReferenceGuided(const vtest::Image& src, const vtest::Image& guide,
                                     std::vector<uint8_t> dest, int r, double eps) {
    const int w = src.width, h = src.height, step = src.channels == 1 ? 1 : 3;
    for (int ch = 0; ch < step; ++ch) {
        Plane p(size_t(w) * h), I(p.size());
        auto at = [&](size_t i) { return vtest::Offset(src, int(i % w), int(i / w), step, ch); };
        for (size_t i = 0; i < p.size(); ++i)
            p[i] = src.bytes[at(i)] * 0.00392156862745098, I[i] = guide.bytes[at(i)] * 0.00392156862745098;
        const Plane q = LinearModel(p, I, w, h, r, eps, LibraryBox);
        for (size_t i = 0; i < p.size(); ++i)
            dest[at(i)] = uint8_t(std::clamp(velomar::TruncToInt(q[i] * 255 + 0.5), 0, 255));
    }
    return dest;
}

// Two bytes per pixel, a null guide, an empty image and a negative radius
// write nothing.
TEST(GuidedFilter, MatchesCoreOnEveryLayout) {
    for (int iter = 0; iter < 48 && !HasFailure(); ++iter) {
        const vtest::Image noise = vtest::SweepImage(iter, {1, 3, 4}, 17, 12);
        // Every eighth picture constant, black or white among them.
        const vtest::Image src = iter % 8 == 5 ? vtest::Flat(noise, std::array{0, 1, 127, 254, 255}[iter % 5]) : noise;
        const int r = iter % 8 == 5 ? std::array{0, 3, 40}[iter % 3] : vtest::RandomInt(0, 9);
        const double eps = std::array{0.0001, 0.01, 0.5}[iter % 3];
        const bool joint = iter % 2 == 0;
        const vtest::Image guide = joint ? vtest::DestFor(src, 0x5A) : src;
        SCOPED_TRACE(testing::Message() << " r" << r << " eps " << eps << (joint ? " joint" : ""));
        // Padding and alpha compared too; in place, bytes the filter skips keep
        // the buffer's own values.
        EXPECT_TRUE(vtest::FilterMatches(
            src, [&](const uint8_t* s, auto... a) { GuidedFilter(s, joint ? guide.data() : s, a..., r, eps); },
            [&](std::vector<uint8_t> d) { return ReferenceGuided(src, guide, d, r, eps); }));
        if (joint) {  // the guide as destination
            vtest::Image g = guide;
            velomar::GuidedFilter(src.data(), g.data(), g.data(), src.width, src.height, src.stride, r, eps);
            EXPECT_TRUE(vtest::BytesEqual(ReferenceGuided(src, guide, guide.bytes, r, eps), g.bytes)) << src;
        }
    }
    const vtest::Image src = vtest::RandomImage(6, 4, 2);  // two bytes per pixel
    EXPECT_TRUE(vtest::WritesNothing(vtest::DestFor(src), {
        [&](uint8_t* d) { GuidedFilter(src.data(), src.data(), d, 6, 4, src.stride, 2, 0.01); },
        [&](uint8_t* d) { GuidedFilter(src.data(), nullptr, d, 6, 4, src.stride, 2, 0.01); },
        [&](uint8_t* d) { GuidedFilter(src.data(), src.data(), d, 0, 4, src.stride, 2, 0.01); },
        [&](uint8_t* d) { GuidedFilter(src.data(), src.data(), d, 6, 4, src.stride, -1, 0.01); },
    }));
}

// Radii far beyond the image once made the first window of every box mean
// walk the whole radius (seconds to minutes on 16 x 16). They now cost the
// image's size; the results must still repeat exactly, in place too.
TEST(GuidedFilter, HugeRadiiCostTheImageNotTheRadius) {
    const vtest::Image src = vtest::RandomImage(16, 16, 1);
    auto twice = [&](auto filter) {
        vtest::Image a = src, b = src, in = src;
        filter(src.data(), a.data());
        filter(src.data(), b.data());
        filter(in.data(), in.data());
        EXPECT_EQ(a.bytes, b.bytes);
        EXPECT_EQ(a.bytes, in.bytes);
    };
    for (int r : {1 << 24, INT32_MAX}) {
        twice([&](const uint8_t* s, uint8_t* d) { GuidedFilter(s, s, d, 16, 16, 16, r, 0.01); });
        for (int edge : {0, 1}) twice([&](const uint8_t* s, uint8_t* d) { Wiener2(s, d, 16, 16, 16, r, 0, edge); });
    }
    twice([&](const uint8_t* s, uint8_t* d) { BilateralFilter(s, s, d, 16, 16, 16, 0, 1e9, 30, 0); });
}

}  // namespace
