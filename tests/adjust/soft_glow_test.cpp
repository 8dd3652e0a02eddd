// Soft glow against a direct screen blend over the blurred, adjusted layer;
// exposal against the per-byte rule.
#include <gtest/gtest.h>

#include <climits>
#include <algorithm>

#include "adjust/adjust.h"
#include "blur/blur.h"
#include "common/reference.h"

namespace {

// Bytes above 127 become 255 - value, the others are left as Dest holds them.
std::vector<uint8_t> DirectExposal(const vtest::Image& src, std::vector<uint8_t> dst) {
    const int run = src.stride / src.width == 1 ? src.width : 3 * src.width;
    for (int y = 0; y < src.height; ++y)
        for (int k = 0; k < run; ++k) {
            const uint8_t v = src.bytes[size_t(y) * src.stride + k];
            if (v > 127) dst[size_t(y) * src.stride + k] = uint8_t(255 - v);
        }
    return dst;
}

TEST(Exposal, MatchesDirectRuleOnRandomLayouts) {
    for (int trial = 0; trial < 40; ++trial) {
        const vtest::Image src = vtest::SweepImage(trial, {1, 3, 4}, 50, 9, 49);
        EXPECT_TRUE(vtest::MatchesBothWays(
            src, vtest::DestFor(src),
            [&](const uint8_t* s, uint8_t* d) { Exposal(s, d, src.width, src.height, src.stride); },
            [&](std::vector<uint8_t> d) { return DirectExposal(src, d); }))
            << src;
    }
    // Two bytes per pixel are not written.
    vtest::Image two(9, 3, 2, 0, 200), dst(9, 3, 2, 0, 1);
    Exposal(two.data(), dst.data(), 9, 3, 18);
    EXPECT_TRUE(vtest::AllBytes(dst.bytes, 1));
}

// The blurred layer starts zeroed, is adjusted in place, then screen-blended
// over the source, three bytes per pixel.
std::vector<uint8_t> DirectSoftGlow(const vtest::Image& src, std::vector<uint8_t> dst, int sigma,
                                    int brightness, int contrast) {
    std::vector<uint8_t> glow(src.bytes.size(), 0);
    velomar::GuassBlur(src.data(), glow.data(), src.width, src.height, src.stride, sigma);
    velomar::AdjustBrightnessAndContrast(glow.data(), glow.data(), src.width, src.height, src.stride,
                                         brightness, contrast);
    for (int y = 0; y < src.height; ++y)
        for (int k = 0; k < 3 * src.width; ++k) {
            const size_t i = size_t(y) * src.stride + k;
            const int a = src.bytes[i], g = glow[i];
            dst[i] = uint8_t(a + g - a * g / 255);
        }
    return dst;
}

TEST(SoftGlow, MatchesDirectScreenBlend) {
    for (int trial = 0; trial < 30; ++trial) {
        const vtest::Image src = vtest::SweepImage(trial, {3, 3, 3, 3, 4}, 60, 25, 7);
        const int sigma = vtest::RandomInt(0, 12), bright = vtest::RandomInt(-60, 60);
        const int contrast = vtest::RandomInt(-80, 100);
        EXPECT_TRUE(vtest::MatchesBothWays(
            src, vtest::DestFor(src),
            [&](const uint8_t* s, uint8_t* d) {
                SoftGlow(s, d, src.width, src.height, src.stride, sigma, bright, contrast);
            },
            [&](std::vector<uint8_t> d) { return DirectSoftGlow(src, d, sigma, bright, contrast); }))
            << src << " sigma " << sigma << " b " << bright << " c " << contrast;
    }
}

TEST(SoftGlow, BlackGlowKeepsSourceWhiteGlowSaturatesGreyIsNotWritten) {
    auto src = vtest::RandomSmoothImage(23, 14, 3, 2);
    // Contrast 100 thresholds at the mean: the lowest brightness makes every
    // glow byte 0, the highest makes every one 255 (without overflowing).
    auto dark = vtest::RandomImage(23, 14, 3, 2), light = dark;
    SoftGlow(src.data(), dark.data(), 23, 14, src.stride, 4, INT_MIN, 100);
    SoftGlow(src.data(), light.data(), 23, 14, src.stride, 4, INT_MAX, 100);
    EXPECT_TRUE(vtest::BytesEqual(src.bytes, dark.bytes));
    for (int y = 0; y < 14; ++y)
        for (int x = 0; x < 23; ++x)
            for (int k = 0; k < 3; ++k) ASSERT_EQ(light.at(x, y, k), 255) << x << "," << y;
    EXPECT_TRUE(vtest::PaddingIntact(light, 0xA5));
    auto grey = vtest::RandomImage(31, 6, 1, 5);
    vtest::Image dst(31, 6, 1, 5, 42);
    SoftGlow(grey.data(), dst.data(), 31, 6, grey.stride, 3, 10, 10);
    EXPECT_TRUE(vtest::AllBytes(dst.bytes, 42));
}

}  // namespace
