// Rank sharpening against a direct count over the mirrored neighbourhood.
#include <algorithm>
#include <array>

#include "common/reference.h"
#include "sharpen/sharpen.h"

namespace {

using vtest::Image;
using vtest::RandomInt;

constexpr uint8_t kMarker = 0xA5;

// For every pixel of each plane, M is the smallest m such that at least T
// neighbourhood samples lie below m. Three bytes per pixel runs per channel;
// every other layout runs on the first Width bytes of each row as one plane.
std::vector<uint8_t> Direct(const Image& src, std::vector<uint8_t> out, int radius) {
    const int step = src.channels == 3 ? 3 : 1, span = 2 * radius + 1, target = span * span / 2;
    for (int k = 0; k < step; ++k)
        for (int y = 0; y < src.height; ++y)
            for (int x = 0; x < src.width; ++x) {
                int count[256] = {};
                for (int v : vtest::Neighbourhood(src, x, y, k, radius, EDGE_REFLECT, step)) ++count[v];
                int m = 0, below = 0;  // below: samples with values under m
                while (below < target) below += count[m++];
                const size_t i = vtest::Offset(src, x, y, step, k);
                const int s = src.bytes[i];
                out[i] = uint8_t(std::clamp(s - (m - s) / 2, 0, 255));
            }
    return out;
}

TEST(SharpenByHistgram, MatchesADirectRankCount) {
    for (int trial = 0; trial < 150 && !HasFailure(); ++trial) {
        const int c = std::array{1, 3, 4, 2}[RandomInt(0, 3)];
        const int w = trial < 8 ? 1 + trial % 2 : RandomInt(1, 24), h = RandomInt(1, 16);
        const int pad = RandomInt(0, std::min(4, w - 1));  // keeps Stride / Width == c
        const int radius = trial % 10 == 0 ? RandomInt(25, 40) : RandomInt(0, 6);  // some wider than the image
        const Image src = RandomInt(0, 1) ? vtest::RandomImage(w, h, c, pad) : vtest::RandomSmoothImage(w, h, c, pad);
        EXPECT_TRUE(vtest::MatchesBothWays(
            src, vtest::RandomImage(w, h, c, pad, 0x3C),
            [&](const uint8_t* s, uint8_t* d) { ::SharpenByHistgram(s, d, w, h, src.stride, radius); },
            [&](std::vector<uint8_t> d) { return Direct(src, d, radius); }))
            << w << "x" << h << "x" << c << " pad " << pad << " radius " << radius;
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
    const Image src = vtest::RandomImage(12, 5, 1);
    Image dest(12, 5, 1, 0, 0x3C);
    for (int radius : {-1, 128, 1000}) ::SharpenByHistgram(src.data(), dest.data(), 12, 5, src.stride, radius);
    EXPECT_TRUE(vtest::AllBytes(dest.bytes, 0x3C));
    // The largest radius fills the counters to 255 * 255 samples.
    ::SharpenByHistgram(src.data(), dest.data(), 12, 5, src.stride, 127);
    EXPECT_TRUE(vtest::BytesEqual(Direct(src, dest.bytes, 127), dest.bytes));
}

}  // namespace
