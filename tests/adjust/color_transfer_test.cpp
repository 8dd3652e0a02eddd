// Colour transfer against the formulas evaluated pixel by pixel.
#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "adjust/adjust.h"
#include "common/reference.h"

namespace {

using Lab = std::array<double, 3>;

Lab ToLab(const uint8_t* p) {
    const double b = (p[0] + 1) / 256.0, g = (p[1] + 1) / 256.0, r = (p[2] + 1) / 256.0;
    const double L = std::log(0.3811 * r + 0.5783 * g + 0.0402 * b);
    const double M = std::log(0.1967 * r + 0.7244 * g + 0.0782 * b);
    const double S = std::log(0.0241 * r + 0.1288 * g + 0.8444 * b);
    return {0.5774 * (L + M + S), 0.4082 * (L + M) - 0.8164 * S, 0.7071 * (L - M)};
}

std::vector<Lab> Pixels(const vtest::Image& img) {
    std::vector<Lab> v;
    for (int y = 0; y < img.height; ++y)
        for (int x = 0; x < img.width; ++x) v.push_back(ToLab(&img.bytes[size_t(y) * img.stride + 3 * x]));
    return v;
}

void Stats(const std::vector<Lab>& v, Lab& mean, Lab& sigma) {
    for (int k = 0; k < 3; ++k) {
        double s = 0, q = 0;
        for (const Lab& p : v) s += p[k];
        mean[k] = s / double(v.size());
        for (const Lab& p : v) q += (p[k] - mean[k]) * (p[k] - mean[k]);
        sigma[k] = std::sqrt(q / double(v.size()));
    }
}

std::vector<uint8_t> DirectTransfer(const vtest::Image& ref, const vtest::Image& tgt,
                                    std::vector<uint8_t> dst) {
    Lab rm, rs, tm, ts;
    Stats(Pixels(ref), rm, rs);
    auto px = Pixels(tgt);
    Stats(px, tm, ts);
    for (int y = 0, i = 0; y < tgt.height; ++y)
        for (int x = 0; x < tgt.width; ++x, ++i) {
            Lab a;
            for (int k = 0; k < 3; ++k)  // a flat target channel goes to the reference mean
                a[k] = ts[k] == 0 ? rm[k] : (px[i][k] - tm[k]) * (rs[k] / ts[k]) + rm[k];
            const double L = std::exp(0.5774 * a[0] + 0.4082 * a[1] + 0.7071 * a[2]);
            const double M = std::exp(0.5774 * a[0] + 0.4082 * a[1] - 0.7071 * a[2]);
            const double S = std::exp(0.5774 * a[0] - 0.8164 * a[1]);
            uint8_t* d = &dst[size_t(y) * tgt.stride + 3 * x];
            d[0] = vtest::TruncClamp((0.0497 * L - 0.2439 * M + 1.2045 * S) * 255.0 - 0.5);
            d[1] = vtest::TruncClamp((-1.2186 * L + 2.3809 * M - 0.1624 * S) * 255.0 - 0.5);
            d[2] = vtest::TruncClamp((4.4679 * L - 3.5873 * M + 0.1193 * S) * 255.0 - 0.5);
        }
    return dst;
}

// White noise, smooth, or posterised (few distinct colours, so that the
// colour caches see many repeats).
vtest::Image Sample(int kind, int w, int h, int pad) {
    if (kind == 0) return vtest::RandomImage(w, h, 3, pad);
    auto img = vtest::RandomSmoothImage(w, h, 3, pad);
    for (int y = 0; kind == 2 && y < h; ++y)
        for (int k = 0; k < 3 * w; ++k) img.bytes[size_t(y) * img.stride + k] &= 0xE0;
    return img;
}

TEST(ColorTransfer, MatchesPixelByPixelFormulas) {
    for (int trial = 0; trial < 30; ++trial) {
        const int w = trial < 4 ? 1 + trial % 2 : vtest::RandomInt(1, 70);
        const int h = vtest::RandomInt(1, 40), pad = vtest::RandomInt(0, 9);
        const int rw = vtest::RandomInt(1, 50), rh = vtest::RandomInt(1, 30);
        auto ref = Sample(trial % 3, rw, rh, vtest::RandomInt(0, 5));
        auto tgt = Sample((trial / 3) % 3, w, h, pad);
        const auto refBytes = ref.bytes;
        // Padding included; in place means Dest equal to Target.
        EXPECT_TRUE(vtest::MatchesBothWays(
            tgt, vtest::RandomImage(w, h, 3, pad, 0x3C),
            [&](const uint8_t* t, uint8_t* d) { ColorTransfer(ref.data(), t, d, rw, rh, ref.stride, w, h, tgt.stride); },
            [&](std::vector<uint8_t> d) { return DirectTransfer(ref, tgt, d); }))
            << "target " << w << "x" << h << " pad " << pad << ", reference " << rw << "x" << rh;
        EXPECT_EQ(ref.bytes, refBytes);
    }
}

TEST(ColorTransfer, SelfTransferOnlyLosesTheScaleMismatch) {
    auto img = vtest::RandomSmoothImage(40, 30, 3, 3);
    auto out = img;
    ColorTransfer(img.data(), img.data(), out.data(), 40, 30, img.stride, 40, 30, img.stride);
    EXPECT_TRUE(vtest::BytesEqual(DirectTransfer(img, img, img.bytes), out.bytes));
    // Statistics match themselves: every byte comes back within three levels.
    for (size_t i = 0; i < img.bytes.size(); ++i) EXPECT_LE(std::abs(img.bytes[i] - out.bytes[i]), 3) << i;
}

TEST(ColorTransfer, FlatTargetTakesTheReferenceMean) {
    // Four equal pixels: the mean is exact, the spread exactly zero.
    auto ref = vtest::RandomSmoothImage(19, 13, 3, 1);
    vtest::Image tgt(2, 2, 3, 0, 90), dst(2, 2, 3, 0, 0);
    ColorTransfer(ref.data(), tgt.data(), dst.data(), 19, 13, ref.stride, 2, 2, 6);
    const auto expected = DirectTransfer(ref, tgt, dst.bytes);
    EXPECT_TRUE(vtest::BytesEqual(expected, dst.bytes));
    for (int i = 3; i < 12; ++i) EXPECT_EQ(dst.bytes[i], dst.bytes[i % 3]);
}

TEST(ColorTransfer, UnusableArgumentsWriteNothing) {
    auto img = vtest::RandomImage(8, 4, 3);
    vtest::Image dst(8, 4, 3, 0, 33);
    const int s = img.stride;
    ColorTransfer(nullptr, img.data(), dst.data(), 8, 4, s, 8, 4, s);
    ColorTransfer(img.data(), nullptr, dst.data(), 8, 4, s, 8, 4, s);
    ColorTransfer(img.data(), img.data(), nullptr, 8, 4, s, 8, 4, s);
    ColorTransfer(img.data(), img.data(), dst.data(), 0, 4, s, 8, 4, s);
    ColorTransfer(img.data(), img.data(), dst.data(), 8, -1, s, 8, 4, s);
    ColorTransfer(img.data(), img.data(), dst.data(), 8, 4, s, 8, 0, s);
    ColorTransfer(img.data(), img.data(), dst.data(), 8, 4, 23, 8, 4, s);  // reference rows too short
    ColorTransfer(img.data(), img.data(), dst.data(), 8, 4, s, 8, 4, 16);  // grey-like target
    EXPECT_TRUE(vtest::AllBytes(dst.bytes, 33));
}

}  // namespace
