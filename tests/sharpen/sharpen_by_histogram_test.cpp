// Rank sharpening against a direct count over the mirrored neighbourhood.
#include <algorithm>
#include <array>

#include "common/test_util.h"
#include "sharpen/sharpen.h"

namespace {

using vtest::Image;
using vtest::RandomInt;

constexpr uint8_t kMarker = 0xA5;

// Mirrors about the edge without repeating it, folding by whole sizes.
int Reflect(int p, int n) {
    if (p < 0) {
        int r = -p;
        while (r >= n) r -= n;
        return r;
    }
    if (p < n) return p;
    int r = 2 * n - p - 2;
    while (r < 0) r += n;
    return r;
}

// One plane: byte `channel` of pixels `step` bytes apart. For every pixel, M is
// the smallest m such that at least T neighbourhood samples lie below m.
void DirectPlane(const Image& src, Image& out, int width, int step, int channel, int radius) {
    const int span = 2 * radius + 1, target = span * span / 2;
    for (int y = 0; y < src.height; ++y)
        for (int x = 0; x < width; ++x) {
            int count[256] = {};
            for (int dy = -radius; dy <= radius; ++dy)
                for (int dx = -radius; dx <= radius; ++dx)
                    ++count[src.bytes[size_t(Reflect(y + dy, src.height)) * src.stride +
                                      size_t(Reflect(x + dx, width)) * step + channel]];
            int m = 0, below = 0;  // below: samples with values under m
            while (below < target) below += count[m++];
            const size_t k = size_t(y) * src.stride + size_t(x) * step + channel;
            const int s = src.bytes[k];
            out.bytes[k] = uint8_t(std::clamp(s - (m - s) / 2, 0, 255));
        }
}

// Three bytes per pixel runs per channel; every other layout runs on the first
// Width bytes of each row as one plane.
Image Direct(const Image& src, const Image& dest, int radius) {
    Image out = dest;
    if (src.channels == 3)
        for (int k = 0; k < 3; ++k) DirectPlane(src, out, src.width, 3, k, radius);
    else
        DirectPlane(src, out, src.width, 1, 0, radius);
    return out;
}

TEST(SharpenByHistgram, MatchesADirectRankCount) {
    for (int trial = 0; trial < 150; ++trial) {
        const int c = std::array{1, 3, 4, 2}[RandomInt(0, 3)];
        const int w = trial < 8 ? 1 + trial % 2 : RandomInt(1, 24), h = RandomInt(1, 16);
        const int pad = RandomInt(0, std::min(4, w - 1));  // keeps Stride / Width == c
        const int radius =
            trial % 10 == 0 ? RandomInt(25, 40) : RandomInt(0, 6);  // some wider than the image
        const Image src = RandomInt(0, 1) ? vtest::RandomImage(w, h, c, pad, kMarker)
                                          : vtest::RandomSmoothImage(w, h, c, pad, kMarker);
        Image dest = vtest::RandomImage(w, h, c, pad, kMarker);
        const Image expect = Direct(src, dest, radius);
        const Image before = src;
        ::SharpenByHistgram(src.data(), dest.data(), w, h, src.stride, radius);
        SCOPED_TRACE(::testing::Message()
                     << w << "x" << h << "x" << c << " pad " << pad << " radius " << radius);
        ASSERT_TRUE(vtest::BytesEqual(expect.bytes, dest.bytes));
        ASSERT_TRUE(vtest::BytesEqual(before.bytes, src.bytes));
        Image in_place = src;
        ::SharpenByHistgram(in_place.data(), in_place.data(), w, h, src.stride, radius);
        ASSERT_TRUE(vtest::BytesEqual(Direct(src, src, radius).bytes, in_place.bytes));
    }
}

TEST(SharpenByHistgram, RadiusZeroBrightensAndConstantImagesStay) {
    Image img = vtest::RandomImage(31, 5, 1, 3, kMarker);
    const Image src = img;
    ::SharpenByHistgram(img.data(), img.data(), 31, 5, img.stride, 0);  // T = 0, so M = 0
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 31; ++x) ASSERT_EQ(img.at(x, y), std::min(255, src.at(x, y) * 3 / 2));
    EXPECT_TRUE(vtest::PaddingIntact(img, kMarker));
    for (int v : {0, 77, 255}) {  // M = v + 1 pushes by (v + 1 - v) / 2 = 0
        Image flat(19, 7, 3, 0, uint8_t(v));
        ::SharpenByHistgram(flat.data(), flat.data(), 19, 7, flat.stride, 4);
        EXPECT_EQ(std::count(flat.bytes.begin(), flat.bytes.end(), v), 19 * 7 * 3) << v;
    }
}

TEST(SharpenByHistgram, RadiusOutsideTheCounterRangeLeavesDestUntouched) {
    const Image src = vtest::RandomImage(12, 5, 1, 0, kMarker);
    for (int radius : {-1, 128, 1000}) {
        Image dest = vtest::RandomImage(12, 5, 1, 0, kMarker);
        const Image before = dest;
        ::SharpenByHistgram(src.data(), dest.data(), 12, 5, src.stride, radius);
        EXPECT_TRUE(vtest::BytesEqual(before.bytes, dest.bytes)) << radius;
    }
    // The largest radius fills the counters to 255 * 255 samples.
    Image dest = vtest::RandomImage(12, 5, 1, 0, kMarker);
    const Image expect = Direct(src, dest, 127);
    ::SharpenByHistgram(src.data(), dest.data(), 12, 5, src.stride, 127);
    EXPECT_TRUE(vtest::BytesEqual(expect.bytes, dest.bytes));
}

}  // namespace
