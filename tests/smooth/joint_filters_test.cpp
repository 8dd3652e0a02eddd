// Guided and bilateral filters. Guided: the core and the 8-bit export against
// the linear model written out plane by plane. Bilateral: every level plane
// computed and kept, then each pixel interpolated between the levels that
// bracket its guide value.
#include <array>
#include <cmath>

#include "blur/blur.h"
#include "common/suite.h"
#include "smooth/smooth.h"

namespace {

using Plane = std::vector<double>;

// An unpadded plane as doubles v / 255.
Plane Unit(const vtest::Image& plane) {
    Plane u(plane.bytes.begin(), plane.bytes.end());
    for (double& v : u) v *= 0.00392156862745098;
    return u;
}

// Window means with replicated edges: the library's double box mean, itself
// checked against direct window sums in the blur suite.
Plane Box(const Plane& s, int w, int h, int r) {
    Plane d(s.size());
    velomar::BoxBlurDouble(s.data(), d.data(), w, h, w, r, EDGE_REPLICATE);
    return d;
}

// q = Box(a) I + Box(b), a = cov(I, p) / (var(I) + eps), b = mean_p - a mean_I.
Plane LinearModel(const Plane& p, const Plane& I, int w, int h, int r, double eps) {
    const size_t n = p.size();
    Plane II(n), Ip(n), a(n), b(n);
    for (size_t i = 0; i < n; ++i) II[i] = I[i] * I[i], Ip[i] = I[i] * p[i];
    Plane mp = Box(p, w, h, r), mII = Box(II, w, h, r), mI = Box(I, w, h, r), mIp = Box(Ip, w, h, r);
    for (size_t i = 0; i < n; ++i)
        a[i] = (mIp[i] - mI[i] * mp[i]) / (mII[i] - mI[i] * mI[i] + eps), b[i] = mp[i] - a[i] * mI[i];
    Plane ma = Box(a, w, h, r), mb = Box(b, w, h, r), q(n);
    for (size_t i = 0; i < n; ++i) q[i] = ma[i] * I[i] + mb[i];
    return q;
}

// Both filters run model(source plane, guide plane, Dest's bytes) per channel:
// bytes 0..2 of each pixel on any layout but grey.
template <class Model>
std::vector<uint8_t> PerPlane(const vtest::Image& src, const vtest::Image& guide, std::vector<uint8_t> dest,
                              Model model) {
    const int step = src.channels == 1 ? 1 : 3;
    return vtest::EachPlane(src, dest, step, [&](const vtest::Image& s, vtest::Image d, int c) {
        model(s, vtest::PlaneOf(guide, step, c), d.bytes);
        return d;
    });
}

// The guided export: bytes to v / 255, the linear model, back with trunc(q * 255 + 0.5) clamped.
void GuidedPlane(const vtest::Image& s, const vtest::Image& g, std::vector<uint8_t>& d, int r, double eps) {
    const Plane q = LinearModel(Unit(s), Unit(g), s.width, s.height, r, eps);
    for (size_t i = 0; i < q.size(); ++i) d[i] = uint8_t(std::clamp(velomar::TruncToInt(q[i] * 255 + 0.5), 0, 255));
}

// Radii far beyond the image once made the first window of every box mean
// walk the whole radius (seconds to minutes on 16 x 16). They now cost the
// image's size; the results must still repeat exactly, in place too.
TEST(GuidedFilter, HugeRadiiCostTheImageNotTheRadius) {
    const vtest::Image src = vtest::RandomImage(16, 16, 1);
    auto twice = [&](auto filter) {
        vtest::Image a = src, b = src, in = src;
        filter(src.data(), a.data()), filter(src.data(), b.data()), filter(in.data(), in.data());
        EXPECT_EQ(a.bytes, b.bytes);
        EXPECT_EQ(a.bytes, in.bytes);
    };
    for (int r : {1 << 24, INT32_MAX}) {
        twice([&](const uint8_t* s, uint8_t* d) { GuidedFilter(s, s, d, 16, 16, 16, r, 0.01); });
        for (int edge : {0, 1}) twice([&](const uint8_t* s, uint8_t* d) { Wiener2(s, d, 16, 16, 16, r, 0, edge); });
    }
    twice([&](const uint8_t* s, uint8_t* d) { BilateralFilter(s, s, d, 16, 16, 16, 0, 1e9, 30, 0); });
}

struct Params {
    int downsample;
    double sigmaSpatial, sigmaRange;
    int flag;  // only its low byte selects the Gaussian
};

// One unpadded plane (Stride == Width) filtered into dest; pixels outside
// every bracket keep their value.
void ReferencePlane(const vtest::Image& srcPlane, const vtest::Image& guidePlane, std::vector<uint8_t>& dest,
                    const Params& p) {
    const int W = srcPlane.width, H = srcPlane.height;
    const uint8_t *src = srcPlane.data(), *guide = guidePlane.data();
    int s = 0;
    while (s + 1 <= p.downsample && (W >> (s + 1)) >= 1 && (H >> (s + 1)) >= 1) ++s;
    const int w = W >> s, h = H >> s;
    std::vector<double> sg(size_t(w) * h), ss(sg.size());
    vtest::EachSample(vtest::Image(w, h, 1), 1, [&](int c, int r, int, size_t i) {
        sg[i] = guide[size_t(r << s) * W + (c << s)], ss[i] = src[size_t(r << s) * W + (c << s)];
    });
    const double gmin = *std::min_element(sg.begin(), sg.end()), gmax = *std::max_element(sg.begin(), sg.end());
    const int n = std::max(velomar::TruncToInt((gmax - gmin) / (2 * p.sigmaRange) + 0.5), 2);
    const double step = (gmax - gmin) / (n - 1);
    const double S = p.sigmaSpatial * std::min(w, h) / 255;

    std::vector<std::vector<double>> J(n);
    for (int k = 0; k < n; ++k) {
        const double L = k == 0 ? gmin : k == n - 1 ? gmax : k * step + gmin;
        std::vector<double> num(sg.size()), den(sg.size());
        for (size_t i = 0; i < sg.size(); ++i) {
            const int d = velomar::TruncToInt(std::fabs(L - sg[i]) + 0.5);
            den[i] = std::exp(-double(d * d) / (2 * (p.sigmaRange * p.sigmaRange)));
            num[i] = ss[i] * den[i];
        }
        for (auto* plane : {&num, &den})
            uint8_t(p.flag) == 1 ? velomar::GaussBlurDouble(plane->data(), plane->data(), w, h, w, S)
                                 : velomar::BoxBlurDouble(plane->data(), plane->data(), w, h, w, velomar::TruncToInt(S + 0.5), EDGE_REFLECT);
        J[size_t(k)].resize(sg.size());
        for (size_t i = 0; i < sg.size(); ++i) J[size_t(k)][i] = num[i] / den[i];
    }
    vtest::EachSample(srcPlane, 1, [&](int x, int y, int, size_t o) {
        // J of level k at the pixel: direct at full size, bilinear from the
        // four small neighbours otherwise.
        auto at = [&](int k) {
            const auto& P = J[size_t(k)];
            if (p.downsample == 0) return P[o];
            const double fx = std::min(x / double(1 << s), double(w - 1));
            const double fy = std::min(y / double(1 << s), double(h - 1));
            const int x0 = int(fx), y0 = int(fy), x1 = std::min(x0 + 1, w - 1), y1 = std::min(y0 + 1, h - 1);
            const double ax = fx - x0, ay = fy - y0;
            return P[size_t(y0) * w + x0] * ((1 - ax) * (1 - ay)) + P[size_t(y0) * w + x1] * (ax * (1 - ay)) +
                   P[size_t(y1) * w + x0] * ((1 - ax) * ay) + P[size_t(y1) * w + x1] * (ax * ay);
        };
        const double t = p.downsample == 0 ? (guide[o] - gmin) * (1 / step) : (guide[o] - gmin) / step;
        const int i = velomar::TruncToInt(t);
        if (i < 0 || i > n - 1) return;
        const double v = i == n - 1 ? at(i) : ((i + 1) - t) * at(i) + (1 - ((i + 1) - t)) * at(i + 1);
        // Full size rounds and clamps; downsampled output truncates and wraps.
        dest[o] = uint8_t(velomar::TruncToInt(p.downsample == 0 ? std::clamp(v + 0.5, 0.0, 255.0) : v));
    });
}

// Both filters on the same pictures and guides: over a separate Dest, in place
// and, with a guide of their own, over the guide; padding and alpha compared
// too, and in place the bytes a filter skips keep what that buffer held. Every
// eighth picture is constant, black or white among them; one guide in seven
// of their own is flat, which leaves no pixel between two bilateral levels:
// nothing is written. The guided core takes the first plane as doubles, and
// gives the same bits written over its input or its guide.
TEST(JointFilters, MatchTheirModels) {
    for (int iter = 0; iter < 96 && !HasFailure(); ++iter) {
        const vtest::Image noise = vtest::SweepImage(iter, {1, 3, 4}, 24, 20, iter % 6 ? 5 : 0);
        const vtest::Image src = iter % 8 == 5 ? vtest::Flat(noise, std::array{0, 1, 127, 254, 255}[iter % 5]) : noise;
        const bool joint = iter % 7 < 3;
        const vtest::Image other = vtest::DestFor(src, 0x5A);
        const vtest::Image guide = !joint ? src : iter % 7 ? other : vtest::Flat(other, 77);
        const int w = src.width, h = src.height;
        const int r = iter % 8 == 5 ? std::array{0, 3, 40}[iter % 3] : vtest::RandomInt(0, 9);
        const double eps = std::array{0.0001, 0.01, 0.5}[iter % 3];
        const Params p{std::array{0, 1, 2, 6, -1}[iter % 5], vtest::RandomInt(0, 2000) / 10.0,
                       std::array{8.0, 20.0, 64.0, 300.0}[(iter / 5) % 4], std::array{1, 0, 0x301, 0x100}[(iter / 2) % 4]};
        SCOPED_TRACE(testing::Message() << src << " r" << r << " eps " << eps << " ds " << p.downsample << " sS "
                                        << p.sigmaSpatial << " sR " << p.sigmaRange << " flag " << p.flag
                                        << (joint ? " joint" : ""));
        auto check = [&](auto filter, auto model) {
            auto run = [&](const uint8_t* s, uint8_t* d, auto...) { filter(s, joint ? guide.data() : s, d); };
            EXPECT_TRUE(vtest::FilterMatches(src, run, model));
            if (joint) {  // the guide as destination
                vtest::Image g = guide;
                filter(src.data(), g.data(), g.data());
                EXPECT_TRUE(vtest::BytesEqual(model(guide.bytes), g.bytes));
            }
        };
        check([&](const uint8_t* s, const uint8_t* g, uint8_t* d) { GuidedFilter(s, g, d, w, h, src.stride, r, eps); },
              [&](auto d) { return PerPlane(src, guide, d, [&](auto&&... a) { GuidedPlane(a..., r, eps); }); });
        const Plane in = Unit(vtest::PlaneOf(src, src.channels, 0)), I = Unit(vtest::PlaneOf(guide, src.channels, 0));
        Plane out(in.size(), -1.0), inPlace = in, overGuide = I;
        velomar::GuidedFilterCore(in.data(), I.data(), out.data(), w, h, r, eps);
        EXPECT_EQ(out, LinearModel(in, I, w, h, r, eps));  // the same box means: identical bits
        velomar::GuidedFilterCore(inPlace.data(), joint ? I.data() : inPlace.data(), inPlace.data(), w, h, r, eps);
        EXPECT_EQ(inPlace, out);
        velomar::GuidedFilterCore(in.data(), overGuide.data(), overGuide.data(), w, h, r, eps);
        EXPECT_EQ(overGuide, out);
        auto bilateral = [&](const uint8_t* s, const uint8_t* g, uint8_t* d) {
            BilateralFilter(s, g, d, w, h, src.stride, p.downsample, p.sigmaSpatial, p.sigmaRange, p.flag);
        };
        if (src.channels == 1 && src.stride > w) {
            // Padded grey rows mix rows in the bilateral filter (callers avoid
            // it), but the padding is never written and nothing outside the
            // buffer is touched.
            vtest::Image d = vtest::DestFor(src);
            const vtest::Image before = d;
            bilateral(src.data(), guide.data(), d.data());
            EXPECT_TRUE(vtest::BytesEqual(vtest::Flat(before, 0).bytes, vtest::Flat(d, 0).bytes));  // the padding
            continue;
        }
        check(bilateral, [&](auto d) { return PerPlane(src, guide, d, [&](auto&&... a) { ReferencePlane(a..., p); }); });
    }
    // Two bytes per pixel write nothing; neither do a null guide, an empty
    // image and a negative radius on grey rows (Stride 6).
    const vtest::Image two = vtest::RandomImage(6, 4, 2);
    const uint8_t* s = two.data();
    EXPECT_TRUE(vtest::WritesNothing(vtest::DestFor(two), {[&](uint8_t* d) {
        GuidedFilter(s, s, d, 6, 4, 12, 2, 0.01), GuidedFilter(s, nullptr, d, 6, 4, 6, 2, 0.01);
        GuidedFilter(s, s, d, 0, 4, 6, 2, 0.01), GuidedFilter(s, s, d, 6, 4, 6, -1, 0.01);
        BilateralFilter(s, s, d, 6, 4, 12, 0, 10, 10, 1), BilateralFilter(s, nullptr, d, 6, 4, 6, 0, 10, 10, 1);
        BilateralFilter(s, s, d, 0, 4, 6, 0, 10, 10, 1);
    }}));
}

}  // namespace
