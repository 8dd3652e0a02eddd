// Colour transfer against the formulas evaluated pixel by pixel.
#include <array>
#include <cmath>

#include "adjust/adjust.h"
#include "common/suite.h"

namespace {

using Lab = std::array<double, 3>;

Lab ToLab(const uint8_t* p) {
    const double b = (p[0] + 1) / 256.0, g = (p[1] + 1) / 256.0, r = (p[2] + 1) / 256.0;
    const double L = std::log(0.3811 * r + 0.5783 * g + 0.0402 * b);
    const double M = std::log(0.1967 * r + 0.7244 * g + 0.0782 * b);
    const double S = std::log(0.0241 * r + 0.1288 * g + 0.8444 * b);
    return {0.5774 * (L + M + S), 0.4082 * (L + M) - 0.8164 * S, 0.7071 * (L - M)};
}

// The picture's pixels in Lab, with each channel's mean and spread.
std::vector<Lab> Pixels(const vtest::Image& img, Lab& mean, Lab& sigma) {
    std::vector<Lab> v;
    for (int y = 0; y < img.height; ++y)
        for (int x = 0; x < img.width; ++x) v.push_back(ToLab(&img.bytes[size_t(y) * img.stride + 3 * x]));
    for (int k = 0; k < 3; ++k) {
        double s = 0, q = 0;
        for (const Lab& p : v) s += p[k];
        mean[k] = s / double(v.size());
        for (const Lab& p : v) q += (p[k] - mean[k]) * (p[k] - mean[k]);
        sigma[k] = std::sqrt(q / double(v.size()));
    }
    return v;
}

std::vector<uint8_t> DirectTransfer(const vtest::Image& ref, const vtest::Image& tgt,
                                    std::vector<uint8_t> dst) {
    Lab rm, rs, tm, ts;
    Pixels(ref, rm, rs);
    const auto px = Pixels(tgt, tm, ts);
    vtest::EachSample(tgt, 1, [&](int x, int y, int, size_t) {
        Lab a;
        for (int k = 0; k < 3; ++k)  // a flat target channel goes to the reference mean
            a[k] = ts[k] == 0 ? rm[k] : (px[size_t(y) * tgt.width + x][k] - tm[k]) * (rs[k] / ts[k]) + rm[k];
        const double L = std::exp(0.5774 * a[0] + 0.4082 * a[1] + 0.7071 * a[2]);
        const double M = std::exp(0.5774 * a[0] + 0.4082 * a[1] - 0.7071 * a[2]);
        const double S = std::exp(0.5774 * a[0] - 0.8164 * a[1]);
        uint8_t* d = &dst[vtest::Offset(tgt, x, y, 3, 0)];
        d[0] = vtest::TruncClamp((0.0497 * L - 0.2439 * M + 1.2045 * S) * 255.0 - 0.5);
        d[1] = vtest::TruncClamp((-1.2186 * L + 2.3809 * M - 0.1624 * S) * 255.0 - 0.5);
        d[2] = vtest::TruncClamp((4.4679 * L - 3.5873 * M + 0.1193 * S) * 255.0 - 0.5);
    });
    return dst;
}

// White noise, smooth, or posterised (few distinct colours, so that the
// colour caches see many repeats).
vtest::Image Sample(int kind, int w, int h, int pad) {
    if (kind == 0) return vtest::RandomImage(w, h, 3, pad);
    auto img = vtest::RandomSmoothImage(w, h, 3, pad);
    if (kind == 2) vtest::EachRowByte(img, 3 * w, [&](size_t i) { img.bytes[i] &= 0xE0; });
    return img;
}

// Trial 0 transfers a picture's colours to itself; trial 1 has a flat target
// (its spread exactly zero), which takes the reference mean.
TEST(ColorTransfer, MatchesPixelByPixelFormulas) {
    for (int trial = 0; trial < 30; ++trial) {
        const int w = trial < 4 ? 1 + trial % 2 : vtest::RandomInt(1, 70), h = trial == 1 ? 2 : vtest::RandomInt(1, 40);
        auto tgt = Sample((trial / 3) % 3, w, h, vtest::RandomInt(0, 9));
        if (trial == 1) tgt = vtest::Flat(tgt, 90);
        auto ref = trial == 0 ? tgt : Sample(trial % 3, vtest::RandomInt(1, 50), vtest::RandomInt(1, 30), vtest::RandomInt(0, 5));
        const auto refBytes = ref.bytes;
        // Padding included; in place means Dest equal to Target.
        EXPECT_TRUE(vtest::FilterMatches(
            tgt,
            [&](const uint8_t* t, uint8_t* d, int w, int h, int stride) {
                ColorTransfer(ref.data(), t, d, ref.width, ref.height, ref.stride, w, h, stride);
            },
            [&](std::vector<uint8_t> d) { return DirectTransfer(ref, tgt, d); }))
            << "reference " << ref;
        EXPECT_EQ(ref.bytes, refBytes);
    }
    auto img = vtest::RandomImage(8, 4, 3);
    vtest::Image dst(8, 4, 3, 0, 33);
    const int s = img.stride;
    ColorTransfer(nullptr, img.data(), dst.data(), 8, 4, s, 8, 4, s);
    ColorTransfer(img.data(), img.data(), nullptr, 8, 4, s, 8, 4, s);
    ColorTransfer(img.data(), img.data(), dst.data(), 0, 4, s, 8, 4, s);
    ColorTransfer(img.data(), img.data(), dst.data(), 8, 4, s, 8, 0, s);
    ColorTransfer(img.data(), img.data(), dst.data(), 8, 4, 23, 8, 4, s);  // reference rows too short
    ColorTransfer(img.data(), img.data(), dst.data(), 8, 4, s, 8, 4, 16);  // grey-like target
    EXPECT_TRUE(vtest::BytesEqual(vtest::Image(8, 4, 3, 0, 33).bytes, dst.bytes));
}

}  // namespace
