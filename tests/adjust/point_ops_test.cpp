// Point operations: curves against their direct formulas, both calling forms,
// the grey flat run (padding mapped) and the three-byte row skip.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>

#include "adjust/adjust.h"
#include "common/reference.h"

namespace {

using vtest::Image;

// Applies a table the way the raw applier walks: grey maps every byte of the
// buffer; otherwise Width three-byte pixels per row, rows 3 * Width plus
// Stride % Width bytes apart.
Image ApplyDirect(const Image& src, const uint8_t* table) {
    Image out = src;
    const bool grey = src.stride / src.width == 1;
    const size_t run = grey ? src.stride : 3 * src.width, pitch = grey ? run : run + src.stride % src.width;
    for (size_t y = 0; y < size_t(src.height); ++y)
        for (size_t i = 0; i < run; ++i) out.bytes[y * pitch + i] = table[src.bytes[y * pitch + i]];
    return out;
}

TEST(GammaCorrection, MatchesDirectCurveInEveryLayout) {
    for (double gamma : {0.3, 1.0, 2.2, -0.5}) {
        uint8_t table[256];  // out of range (including +infinity) converts like x86: to 0
        for (int i = 0; i < 256; ++i) table[i] = vtest::TruncClamp(std::pow(i / 255.0, gamma) * 255.0);
        // Grey with padding (mapped too), three bytes, four bytes, and a
        // padding of at least Width bytes (skip = Stride % Width).
        for (auto [w, c, pad] : {std::tuple{13, 1, 3}, {7, 3, 1}, {6, 4, 0}, {4, 3, 5}, {1, 3, 0}}) {
            const Image src = vtest::RandomImage(w, 5, c, pad);
            EXPECT_TRUE(vtest::MatchesBothWays(
                src, src, [&](const uint8_t* s, uint8_t* d) { GammaCorrection(s, d, w, 5, src.stride, gamma); },
                [&](const std::vector<uint8_t>&) { return ApplyDirect(src, table).bytes; }))
                << "gamma " << gamma << " layout " << w << "x" << c << "+" << pad;
        }
    }
    // Gamma 0 leaves Dest untouched.
    Image src = vtest::RandomImage(8, 4, 3), dst(8, 4, 3, 0, 77);
    GammaCorrection(src.data(), dst.data(), 8, 4, src.stride, 0.0);
    EXPECT_TRUE(vtest::AllBytes(dst.bytes, 77));
}

TEST(GammaCorrection1, MapsChannelsOneAndThreeAndAlwaysReturnsZero) {
    for (int c = 1; c <= 4; ++c) {
        Matrix *src = nullptr, *dst = nullptr;
        ASSERT_EQ(VL_CreateMatrix(5, 3, DEPTH_8U, c, &src), STATUS_OK);
        ASSERT_EQ(VL_CreateMatrix(5, 3, DEPTH_8U, c, &dst), STATUS_OK);
        for (int i = 0; i < src->WidthStep * 3; ++i) src->Data[i] = uint8_t(i * 7), dst->Data[i] = 1;
        EXPECT_EQ(GammaCorrection1(src, dst, 1.0), STATUS_OK);
        for (int i = 0; i < src->WidthStep * 3; ++i) {
            const bool mapped = c == 1 || (c == 3 && i % src->WidthStep < 15);
            ASSERT_EQ(dst->Data[i], mapped ? src->Data[i] : 1) << "channel " << c << " byte " << i;
        }
        dst->Depth = src->Depth = DEPTH_16S;
        EXPECT_EQ(GammaCorrection1(src, dst, 2.0), STATUS_OK);  // rejected, still 0
        VL_FreeMatrix(&src);
        VL_FreeMatrix(&dst);
    }
}

TEST(Level, ClampsParametersIntoTheirRanges) {
    Image src = vtest::RandomImage(16, 16, 1);
    auto level = [&](int il, double g, int ih, int ol, int oh) {
        Image out = src;
        Level(src.data(), out.data(), 16, 16, 16, il, g, ih, ol, oh);
        return out.bytes;
    };
    EXPECT_EQ(level(300, 1.0, 255, 0, 255), level(253, 1.0, 255, 0, 255));
    EXPECT_EQ(level(10, 1.0, 1, 0, 255), level(10, 1.0, 2, 0, 255));
    EXPECT_EQ(level(10, 0.0, 200, 0, 255), level(10, 0.01, 200, 0, 255));
    EXPECT_EQ(level(10, 50.0, 200, -9, 900), level(10, 9.99, 200, 0, 255));
    // A zero-width input range is defined: a step from OutputLow to OutputHigh.
    auto step = level(100, 1.0, 100, 20, 220);
    for (size_t i = 0; i < step.size(); ++i) EXPECT_EQ(step[i], src.bytes[i] > 100 ? 220 : 20);
}

TEST(Level, MatchesDirectCurve) {
    Image src = vtest::RandomImage(31, 7, 3, 2), out = src;
    Level(src.data(), out.data(), 31, 7, src.stride, 30, 1.7, 220, 10, 240);
    uint8_t table[256];
    for (int i = 0; i < 256; ++i)
        table[i] = uint8_t(int(std::clamp(i < 30 ? 10 : i > 220 ? 240 : std::pow((i - 30) / 190.0, 1 / 1.7) * 230 + 10, 0.0, 255.0)));
    EXPECT_TRUE(vtest::BytesEqual(ApplyDirect(src, table).bytes, out.bytes));
}

TEST(Posterize, TwoLevelsSplitAtHalfAndBadLevelsAreRejected) {
    Matrix *src = nullptr, *dst = nullptr;
    ASSERT_EQ(VL_CreateMatrix(16, 16, DEPTH_8U, 1, &src), STATUS_OK);
    ASSERT_EQ(VL_CreateMatrix(16, 16, DEPTH_8U, 1, &dst), STATUS_OK);
    for (int i = 0; i < 256; ++i) src->Data[i] = uint8_t(i);
    EXPECT_EQ(Posterize(src, dst, 2 + 256), STATUS_OK);  // only the low byte counts
    for (int i = 0; i < 256; ++i) ASSERT_EQ(dst->Data[i], i < 128 ? 0 : 255);
    EXPECT_EQ(Posterize(src, dst, 5), STATUS_OK);  // step 51, scale 63
    for (int i = 0; i < 256; ++i) ASSERT_EQ(dst->Data[i], std::min(255, (i / 51) * 63));
    std::fill(dst->Data, dst->Data + 256, 9);
    EXPECT_EQ(Posterize(src, dst, 1), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(Posterize(src, dst, 256), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(Posterize(src, nullptr, 1), STATUS_NULL_REFERENCE);  // nulls are checked first
    EXPECT_TRUE(vtest::AllBytes(std::vector<uint8_t>(dst->Data, dst->Data + 256), 9));
    VL_FreeMatrix(&src);
    VL_FreeMatrix(&dst);
}

TEST(Threshold, StrictlyGreaterInBothLayouts) {
    for (int t : {-1, 0, 128, 200, 255, 400}) {
        Image grey = vtest::RandomImage(37, 9, 1, 3), out = grey;  // vector body plus tail
        grey.bytes[0] = 128, grey.bytes[1] = 129;
        Threshold(grey.data(), out.data(), 37, 9, grey.stride, t);
        for (size_t i = 0; i < grey.bytes.size(); ++i)
            ASSERT_EQ(out.bytes[i], grey.bytes[i] > t ? 255 : 0) << "t=" << t << " i=" << i;

        Image bgr = vtest::RandomImage(11, 4, 3, 2), cout = bgr;
        Threshold(bgr.data(), cout.data(), 11, 4, bgr.stride, t);
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 11; ++x) {
                int s = bgr.at(x, y, 0) + bgr.at(x, y, 1) + bgr.at(x, y, 2);
                for (int k = 0; k < 3; ++k) ASSERT_EQ(cout.at(x, y, k), s > 3 * t ? 255 : 0);
            }
        EXPECT_TRUE(vtest::PaddingIntact(cout, 0xA5));
    }
}

TEST(Invert, ComplementsEveryByteInPlaceToo) {
    Matrix* m = nullptr;
    ASSERT_EQ(VL_CreateMatrix(7, 5, DEPTH_8U, 3, &m), STATUS_OK);
    const int n = m->WidthStep * 5;
    for (int i = 0; i < n; ++i) m->Data[i] = uint8_t(i * 13);
    EXPECT_EQ(Invert(m, m), STATUS_OK);
    for (int i = 0; i < n; ++i) ASSERT_EQ(m->Data[i], uint8_t(255 - uint8_t(i * 13)));
    VL_FreeMatrix(&m);
}

TEST(Desaturate, WritesMidRangeGreyKeepsAlphaAndReturnsLastLevel) {
    Matrix *src = nullptr, *dst = nullptr;
    ASSERT_EQ(VL_CreateMatrix(3, 2, DEPTH_8U, 4, &src), STATUS_OK);
    ASSERT_EQ(VL_CreateMatrix(3, 2, DEPTH_8U, 4, &dst), STATUS_OK);
    for (int i = 0; i < 24; ++i) src->Data[i] = uint8_t(vtest::RandomInt(0, 255)), dst->Data[i] = 42;
    int32_t last = Desaturate(src, dst);
    for (int p = 0; p < 6; ++p) {
        const uint8_t* s = src->Data + 4 * p;
        int grey = (std::max({s[0], s[1], s[2]}) + std::min({s[0], s[1], s[2]})) / 2;
        for (int k = 0; k < 3; ++k) EXPECT_EQ(dst->Data[4 * p + k], grey);
        EXPECT_EQ(dst->Data[4 * p + 3], 42);
        if (p == 5) {
            EXPECT_EQ(last, grey);
        }
    }
    src->Channel = dst->Channel = 1;
    EXPECT_EQ(Desaturate(src, dst), STATUS_INVALID_PARAMETER);
    VL_FreeMatrix(&src);
    VL_FreeMatrix(&dst);
}

// The mean level comes from the top row alone (padding removed for all rows).
int TopRowMean(const Image& img) {
    int used = (img.stride / img.width) * img.width, sum = 0;
    for (int k = 0; k < img.stride; ++k) sum += img.bytes[k];
    for (int y = 0; y < img.height; ++y)
        for (int k = used; k < img.stride; ++k) sum -= img.bytes[y * img.stride + k];
    return sum / (used * img.height);
}

// Extreme offsets and contrasts (once signed overflows) clamp like any other.
TEST(AdjustBrightnessAndContrast, MatchesDirectCurveAboutTheTopRowMean) {
    for (auto [b, c] : {std::pair{0, 0}, {20, 50}, {-30, 100}, {10, -40}, {0, 150}, {-5, 99}, {0, INT_MIN},
                        {INT_MAX, 0}, {INT_MAX, 50}, {INT_MIN, -50}, {INT_MAX, -1}, {7, INT_MAX}}) {
        Image src = vtest::RandomImage(9, 6, 3, 2);
        int m = TopRowMean(src);
        EXPECT_LT(m, 60);  // only one of six rows contributes
        uint8_t table[256];
        for (int i = 0; i < 256; ++i) {
            const int64_t v = std::clamp<int64_t>(int64_t(i) + b, 0, 255);
            if (c == 100) {
                table[i] = m < v ? 255 : 0;
            } else if (c >= 0) {
                double r = double(v) + (10000 / (100 - c) - 100) * (v - m) / 100.0;
                table[i] = uint8_t(int(std::clamp(r, 0.0, 255.0)));
            } else {
                const int64_t t = std::clamp<int64_t>(i + (i - m) * int64_t(c) / 100, 0, 255);
                table[i] = uint8_t(std::clamp<int64_t>(t + b, 0, 255));
            }
        }
        Image out = src;
        AdjustBrightnessAndContrast(src.data(), out.data(), 9, 6, src.stride, b, c);
        EXPECT_TRUE(vtest::BytesEqual(ApplyDirect(src, table).bytes, out.bytes)) << b << "," << c;
    }
}

TEST(RawForm, InvalidArgumentsTouchNothing) {
    Image img = vtest::RandomImage(4, 4, 1);
    auto before = img.bytes;
    GammaCorrection(img.data(), nullptr, 4, 4, 4, 2.0);
    GammaCorrection(img.data(), img.data(), 0, 4, 4, 2.0);
    Level(img.data(), img.data(), 4, -1, 4, 0, 1.0, 255, 0, 255);
    Threshold(nullptr, img.data(), 4, 4, 4, 9);
    AdjustBrightnessAndContrast(img.data(), img.data(), 4, 4, 3, 10, 10);  // Stride < Width
    Threshold(img.data(), img.data(), 2, 4, 4, 9);  // two bytes per pixel: nothing to walk
    EXPECT_EQ(before, img.bytes);
}

}  // namespace
