// Unsharp mask and high pass against the per-byte formulas applied to the
// Gaussian blur's own output.
#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>

#include "blur/blur.h"
#include "common/reference.h"
#include "sharpen/sharpen.h"

namespace {

using vtest::Image;
using vtest::RandomInt;

constexpr uint8_t kMarker = 0xA5;

// The blur of src as GuassBlur writes it over a copy of `over`.
Image BlurOver(const Image& src, const Image& over, double sigma) {
    Image blur = over;
    velomar::GuassBlur(src.data(), blur.data(), src.width, src.height, src.stride, sigma);
    return blur;
}

// Treated bytes per row: grey rows are Width bytes, every other layout three
// bytes per pixel.
int TreatedBytes(const Image& img) { return img.channels == 1 ? img.width : 3 * img.width; }

// Unsharp mask treats grey and three bytes per pixel; other layouts keep dest.
Image ExpectedUnsharp(const Image& src, const Image& dest, double sigma, int amount,
                      int threshold) {
    Image blur = BlurOver(src, src, sigma), out = dest;
    if (src.channels != 1 && src.channels != 3) return out;
    for (int y = 0; y < src.height; ++y)
        for (int i = 0; i < TreatedBytes(src); ++i) {
            const size_t k = size_t(y) * src.stride + i;
            const int s = src.bytes[k], d = s - blur.bytes[k];
            if (std::abs(d) < threshold) {
                out.bytes[k] = uint8_t(s);
                continue;
            }
            const int32_t product = int32_t(int64_t(d) * amount);  // wraps like 32-bit hardware
            out.bytes[k] = uint8_t(std::clamp(s + product / 100, 0, 255));
        }
    return out;
}

Image ExpectedHighPass(const Image& src, const Image& dest, double sigma) {
    if (src.channels == 2) return dest;  // two bytes per pixel are left alone
    Image out = BlurOver(src, dest, sigma);
    for (int y = 0; y < src.height; ++y)
        for (int i = 0; i < TreatedBytes(src); ++i) {
            const size_t k = size_t(y) * src.stride + i;
            out.bytes[k] = uint8_t(std::clamp(src.bytes[k] - out.bytes[k] + 128, 0, 255));
        }
    return out;
}

int RandomAmount() {
    const int sign = RandomInt(0, 1) ? 1 : -1;
    switch (RandomInt(0, 5)) {
        case 0: return 0;
        case 1: return RandomInt(12890, 12910) * sign;  // around the fast path's limit
        case 2: return RandomInt(8000000, INT_MAX);      // products wrap
        case 3: return sign > 0 ? INT_MIN : RandomInt(INT_MIN, -8000000);
        default: return RandomInt(-400, 400);
    }
}

TEST(UnsharpMaskAndHighPass, MatchTheFormulaOnTheBlur) {
    for (int trial = 0; trial < 150 && !HasFailure(); ++trial) {
        const Image src = vtest::SweepImage(trial, {1, 3, 4, 2}, 45, 14);
        const double sigma = RandomInt(0, 60) / 10.0;
        const int amount = RandomAmount(), threshold = RandomInt(-5, 300);
        const Image dest = vtest::DestFor(src);
        EXPECT_TRUE(vtest::FilterMatches(src, [&](auto... a) { ::UnsharpMask(a..., sigma, amount, threshold); },
                                         [&](std::vector<uint8_t> d) {
                                             Image start = src;
                                             start.bytes = d;
                                             return ExpectedUnsharp(src, start, sigma, amount, threshold).bytes;
                                         }))
            << " sigma " << sigma << " amount " << amount << " threshold " << threshold;
        Image high = dest;
        ::HighPass(src.data(), high.data(), src.width, src.height, src.stride, sigma);
        EXPECT_TRUE(vtest::BytesEqual(ExpectedHighPass(src, dest, sigma).bytes, high.bytes))
            << "high pass " << src << " sigma " << sigma;
    }
}

TEST(UnsharpMask, FullScaleDifferencesAtLargeAmounts) {
    // Sparse spikes on black (and pits on white) under a wide blur give
    // differences of +-255, the largest products for each amount.
    for (int base : {0, 255}) {
        Image src(40, 30, 1, 0, uint8_t(base));
        for (int k = 0; k < 6; ++k) src.at(3 + 7 * k, 4 + 4 * k) = uint8_t(255 - base);
        for (int amount : {12899, 12900, 12999, -12899, -12900, 130, -129, 100000}) {
            Image dest(40, 30, 1);
            ::UnsharpMask(src.data(), dest.data(), 40, 30, src.stride, 30.0, amount, 0);
            EXPECT_TRUE(
                vtest::BytesEqual(ExpectedUnsharp(src, dest, 30.0, amount, 0).bytes, dest.bytes))
                << "base " << base << ", amount " << amount;
        }
    }
}

TEST(HighPass, InPlaceEveryTreatedByteBecomes128) {
    Image img = vtest::RandomSmoothImage(33, 7, 3, 3, kMarker);
    ::HighPass(img.data(), img.data(), 33, 7, img.stride, 2.5);
    for (int y = 0; y < 7; ++y)
        for (int i = 0; i < 99; ++i) ASSERT_EQ(img.bytes[size_t(y) * img.stride + i], 128);
    EXPECT_TRUE(vtest::PaddingIntact(img, kMarker));
}

}  // namespace
