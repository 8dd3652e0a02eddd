// Local minimum, maximum and range against a direct scan of the neighbourhood
// clipped to the image.
#include <algorithm>

#include "common/reference.h"
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
    for (int trial = 0; trial < 160 && !HasFailure(); ++trial) {
        const int c = trial % 2 ? 3 : 1;
        const int w = trial < 8 ? 1 + trial % 2 : vtest::RandomInt(1, 70), h = vtest::RandomInt(1, 40);
        const int r = trial < 20 ? trial / 4 : vtest::RandomInt(0, trial % 5 ? 12 : 80);
        int padding = vtest::RandomInt(0, 4);
        if ((w * c + padding) / w != c) padding = 0;
        const Image src = trial % 3 ? BlockyImage(w, h, c, padding) : vtest::RandomImage(w, h, c, padding);
        for (bool take_max : {false, true})
            // The maximum's padding bytes come out as the source's (complemented twice).
            EXPECT_TRUE(vtest::MatchesBothWays(
                src, Image(w, h, c, padding, 0x5C),
                [&](const uint8_t* s, uint8_t* d) { (take_max ? MaxValue : MinValue)(s, d, w, h, src.stride, r); },
                [&](std::vector<uint8_t> d) { return DirectExtreme(src, r, take_max, c, take_max ? src.bytes : d); }))
                << w << "x" << h << " c" << c << " r" << r << (take_max ? " max" : " min");
    }
}

// Four bytes per pixel are walked three bytes apart, like other three-channel
// filters; bytes past 3 * Width are left alone.
TEST(MinMaxValue, FourByteRowsWalkThreeBytesPerPixel) {
    Image src = vtest::RandomImage(12, 9, 4), as3(12, 9, 3, 12), dst(12, 9, 4, 0, 0x42);
    as3.bytes = src.bytes;
    MinValue(src.data(), dst.data(), 12, 9, src.stride, 2);
    EXPECT_TRUE(vtest::BytesEqual(DirectExtreme(as3, 2, false, 3, Image(12, 9, 4, 0, 0x42).bytes), dst.bytes));
}

TEST(RangeFilter, MaxMinusMinIncludingPadding) {
    for (int trial = 0; trial < 40 && !HasFailure(); ++trial) {
        const int c = trial % 2 ? 3 : 1;
        const int w = vtest::RandomInt(1, 40), h = vtest::RandomInt(1, 30), r = vtest::RandomInt(0, 15);
        int padding = vtest::RandomInt(1, 3);
        if ((w * c + padding) / w != c) padding = 0;
        const Image src = BlockyImage(w, h, c, padding);
        const std::vector<uint8_t> hi = DirectExtreme(src, r, true, c, src.bytes);
        std::vector<uint8_t> want = DirectExtreme(src, r, false, c, std::vector<uint8_t>(hi.size(), 0));
        for (size_t i = 0; i < want.size(); ++i) want[i] = uint8_t(hi[i] - want[i]);
        EXPECT_TRUE(vtest::MatchesBothWays(
            src, Image(w, h, c, padding, 0x99),
            [&](const uint8_t* s, uint8_t* d) { RangeFilter(s, d, w, h, src.stride, r); },
            [&](const std::vector<uint8_t>&) { return want; }))
            << w << "x" << h << " r" << r;
    }
}

TEST(MinMaxValue, RadiusZeroCopiesAndRefusals) {
    Image src = vtest::RandomImage(13, 6, 3, 2), dst(13, 6, 3, 2, 0x11), range = dst;
    MinValue(src.data(), dst.data(), 13, 6, src.stride, 0);
    RangeFilter(src.data(), range.data(), 13, 6, src.stride, 0);
    for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 39; ++x) {
            EXPECT_EQ(src.at(0, y, x), dst.at(0, y, x));
            EXPECT_EQ(0, range.at(0, y, x));
        }
    // A negative radius and a two-byte layout write nothing.
    Image two = vtest::RandomImage(8, 3, 2), out(8, 3, 2, 0, 0x11);
    MinValue(src.data(), out.data(), 8, 3, 16, -1);
    MaxValue(two.data(), out.data(), 8, 3, 16, 1);
    RangeFilter(two.data(), out.data(), 8, 3, 16, 1);
    EXPECT_TRUE(vtest::AllBytes(out.bytes, 0x11));
}

}  // namespace
