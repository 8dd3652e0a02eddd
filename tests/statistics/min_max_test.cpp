// Local minimum, maximum and range against a direct scan of the neighbourhood
// clipped to the image.
#include <algorithm>

#include "common/test_util.h"
#include "statistics/statistics.h"
#include "velomar.h"

namespace {

using vtest::Image;

// Extreme over the clipped box; `walk` bytes per pixel; only walked bytes set.
std::vector<uint8_t> DirectExtreme(const Image& src, int r, bool take_max, int walk,
                                   std::vector<uint8_t> out) {
    for (int y = 0; y < src.height; ++y)
        for (int x = 0; x < src.width; ++x)
            for (int c = 0; c < walk; ++c) {
                int v = take_max ? 0 : 255;
                for (int sy = std::max(0, y - r); sy <= std::min(src.height - 1, y + r); ++sy)
                    for (int sx = std::max(0, x - r); sx <= std::min(src.width - 1, x + r); ++sx) {
                        int p = src.bytes[size_t(sy) * src.stride + size_t(sx) * walk + c];
                        v = take_max ? std::max(v, p) : std::min(v, p);
                    }
                out[size_t(y) * src.stride + size_t(x) * walk + c] = uint8_t(v);
            }
    return out;
}

// Random image with runs of equal values and extremes, so the leaving value
// often equals the current extreme.
Image BlockyImage(int w, int h, int c, int padding) {
    Image img = vtest::RandomImage(w, h, c, padding);
    const int levels[] = {0, 17, 128, 200, 255};
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w * c; ++x)
            if (vtest::RandomInt(0, 3))
                img.bytes[size_t(y) * img.stride + x] = uint8_t(levels[((x / 5) + (y / 3) + vtest::RandomInt(0, 1)) % 5]);
    return img;
}

TEST(MinMaxValue, MatchDirectScan) {
    for (int trial = 0; trial < 160; ++trial) {
        const int c = trial % 2 ? 3 : 1;
        const int w = trial < 8 ? 1 + trial % 2 : vtest::RandomInt(1, 70);
        const int h = vtest::RandomInt(1, 40);
        const int r = trial < 20 ? trial / 4 : vtest::RandomInt(0, trial % 5 ? 12 : 80);
        int padding = vtest::RandomInt(0, 4);
        if ((w * c + padding) / w != c) padding = 0;
        Image src = trial % 3 ? BlockyImage(w, h, c, padding) : vtest::RandomImage(w, h, c, padding);
        const Image before = src;
        for (bool take_max : {false, true}) {
            Image dst(w, h, c, padding, 0x5C);
            const std::vector<uint8_t> want = DirectExtreme(src, r, take_max, c, dst.bytes);
            (take_max ? MaxValue : MinValue)(src.data(), dst.data(), w, h, src.stride, r);
            if (!take_max) {
                ASSERT_TRUE(vtest::BytesEqual(want, dst.bytes)) << w << "x" << h << " c" << c << " r" << r;
            } else {
                // Padding bytes come out as the source's (complemented twice).
                std::vector<uint8_t> expect = DirectExtreme(src, r, true, c, src.bytes);
                ASSERT_TRUE(vtest::BytesEqual(expect, dst.bytes)) << w << "x" << h << " c" << c << " r" << r;
            }
            Image inplace = src;
            (take_max ? MaxValue : MinValue)(inplace.data(), inplace.data(), w, h, src.stride, r);
            ASSERT_TRUE(vtest::BytesEqual(DirectExtreme(src, r, take_max, c, src.bytes), inplace.bytes));
        }
        ASSERT_TRUE(vtest::BytesEqual(before.bytes, src.bytes));
    }
}

// Four bytes per pixel are walked three bytes apart, like other three-channel
// filters; bytes past 3 * Width are left alone.
TEST(MinMaxValue, FourByteRowsWalkThreeBytesPerPixel) {
    Image src = vtest::RandomImage(12, 9, 4);
    Image as3(12, 9, 3, 12);
    as3.bytes = src.bytes;
    Image dst(12, 9, 4, 0, 0x42);
    MinValue(src.data(), dst.data(), 12, 9, src.stride, 2);
    EXPECT_TRUE(vtest::BytesEqual(DirectExtreme(as3, 2, false, 3, dst.bytes), dst.bytes));
    for (int y = 0; y < 9; ++y)
        for (int k = 36; k < 48; ++k) EXPECT_EQ(0x42, dst.bytes[size_t(y) * 48 + k]);
}

TEST(RangeFilter, MaxMinusMinIncludingPadding) {
    for (int trial = 0; trial < 40; ++trial) {
        const int c = trial % 2 ? 3 : 1;
        const int w = vtest::RandomInt(1, 40), h = vtest::RandomInt(1, 30);
        const int r = vtest::RandomInt(0, 15);
        int padding = vtest::RandomInt(1, 3);
        if ((w * c + padding) / w != c) padding = 0;
        Image src = BlockyImage(w, h, c, padding);
        const std::vector<uint8_t> hi = DirectExtreme(src, r, true, c, src.bytes);
        const std::vector<uint8_t> lo = DirectExtreme(src, r, false, c, std::vector<uint8_t>(src.bytes.size(), 0));
        std::vector<uint8_t> want(hi.size());
        for (size_t i = 0; i < want.size(); ++i) want[i] = uint8_t(hi[i] - lo[i]);
        Image dst(w, h, c, padding, 0x99);
        RangeFilter(src.data(), dst.data(), w, h, src.stride, r);
        ASSERT_TRUE(vtest::BytesEqual(want, dst.bytes)) << w << "x" << h << " r" << r;
        RangeFilter(src.data(), src.data(), w, h, src.stride, r);
        ASSERT_TRUE(vtest::BytesEqual(want, src.bytes));
    }
}

TEST(MinMaxValue, RadiusZeroCopiesAndRefusals) {
    Image src = vtest::RandomImage(13, 6, 3, 2);
    Image dst(13, 6, 3, 2, 0x11);
    MinValue(src.data(), dst.data(), 13, 6, src.stride, 0);
    for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 39; ++x) EXPECT_EQ(src.at(0, y, x), dst.at(0, y, x));
    Image range(13, 6, 3, 2, 0x11);
    RangeFilter(src.data(), range.data(), 13, 6, src.stride, 0);
    for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 39; ++x) EXPECT_EQ(0, range.at(0, y, x));
    // A negative radius and a two-byte layout write nothing.
    Image two = vtest::RandomImage(8, 3, 2);
    Image out(8, 3, 2, 0, 0x11);
    const Image untouched = out;
    MinValue(src.data(), out.data(), 8, 3, 16, -1);
    MaxValue(two.data(), out.data(), 8, 3, 16, 1);
    RangeFilter(two.data(), out.data(), 8, 3, 16, 1);
    EXPECT_TRUE(vtest::BytesEqual(untouched.bytes, out.bytes));
}

}  // namespace
