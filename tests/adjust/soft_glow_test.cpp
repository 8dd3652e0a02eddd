// Soft glow against a direct screen blend over the blurred, adjusted layer;
// exposal against the per-byte rule.
#include "adjust/adjust.h"
#include "blur/blur.h"
#include "common/suite.h"

namespace {

// Bytes above 127 become 255 - value, the others are left as Dest holds them.
std::vector<uint8_t> DirectExposal(const vtest::Image& src, std::vector<uint8_t> dst) {
    vtest::EachRowByte(src, src.stride / src.width == 1 ? src.width : 3 * src.width, [&](size_t i) {
        if (src.bytes[i] > 127) dst[i] = uint8_t(255 - src.bytes[i]);
    });
    return dst;
}

TEST(Exposal, MatchesDirectRuleOnRandomLayouts) {
    for (int trial = 0; trial < 40; ++trial) {
        const vtest::Image src = vtest::SweepImage(trial, {1, 3, 4}, 50, 9, 49);
        EXPECT_TRUE(vtest::FilterMatches(src, Exposal, [&](std::vector<uint8_t> d) { return DirectExposal(src, d); }));
    }
    // Two bytes per pixel are not written.
    const vtest::Image two = vtest::RandomImage(9, 3, 2);
    EXPECT_TRUE(vtest::WritesNothing(vtest::DestFor(two), {[&](uint8_t* d) { Exposal(two.data(), d, 9, 3, 18); }}));
}

// The blurred layer starts zeroed, is adjusted in place, then screen-blended
// over the source, three bytes per pixel; rows shorter than that (grey, two
// bytes) are not written.
std::vector<uint8_t> DirectSoftGlow(const vtest::Image& src, std::vector<uint8_t> dst, int sigma,
                                    int brightness, int contrast) {
    if (src.stride < 3 * src.width) return dst;
    std::vector<uint8_t> glow(src.bytes.size(), 0);
    velomar::GuassBlur(src.data(), glow.data(), src.width, src.height, src.stride, sigma);
    velomar::AdjustBrightnessAndContrast(glow.data(), glow.data(), src.width, src.height, src.stride,
                                         brightness, contrast);
    vtest::EachRowByte(src, 3 * src.width, [&](size_t i) { dst[i] = uint8_t(src.bytes[i] + glow[i] - src.bytes[i] * glow[i] / 255); });
    return dst;
}

// Contrast 100 thresholds at the mean: the lowest brightness makes every glow
// byte 0 (the source comes through), the highest every one 255 (without
// overflowing).
TEST(SoftGlow, MatchesDirectScreenBlend) {
    for (int trial = 0; trial < 36; ++trial) {
        const vtest::Image src = vtest::SweepImage(trial, {3, 3, 3, 4, 1, 2}, 60, 25, 7);
        const int sigma = vtest::RandomInt(0, 12), extreme = trial % 5 == 3;
        const int bright = extreme ? (trial % 2 ? INT_MAX : INT_MIN) : vtest::RandomInt(-60, 60);
        const int contrast = extreme ? 100 : vtest::RandomInt(-80, 100);
        EXPECT_TRUE(vtest::FilterMatches(
            src, [&](auto... a) { SoftGlow(a..., sigma, bright, contrast); },
            [&](std::vector<uint8_t> d) { return DirectSoftGlow(src, d, sigma, bright, contrast); }))
            << " sigma " << sigma << " b " << bright << " c " << contrast;
    }
}

}  // namespace
