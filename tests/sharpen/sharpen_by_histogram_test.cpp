// Rank sharpening against a direct count over the mirrored neighbourhood.
#include <array>

#include "common/reference.h"
#include "sharpen/sharpen.h"

namespace {

using vtest::Image;
using vtest::RandomInt;

// For every pixel of each plane, M is the smallest m such that at least T
// neighbourhood samples lie below m. Three bytes per pixel runs per channel;
// every other layout runs on the first Width bytes of each row as one plane.
std::vector<uint8_t> Direct(const Image& src, std::vector<uint8_t> out, int radius) {
    const int step = src.channels == 3 ? 3 : 1, span = 2 * radius + 1, target = span * span / 2;
    vtest::EachSample(src, step, [&](int x, int y, int k, size_t i) {
        int count[256] = {};
        for (int v : vtest::Neighbourhood(src, x, y, k, radius, EDGE_REFLECT, step)) ++count[v];
        int m = 0, below = 0;  // below: samples with values under m
        while (below < target) below += count[m++];
        out[i] = uint8_t(std::clamp(src.bytes[i] - (m - src.bytes[i]) / 2, 0, 255));
    });
    return out;
}

// Radius 0 has T = 0, so M = 0 and the value grows by half; on a constant
// picture (every ninth) M = v + 1 pushes by (v + 1 - v) / 2 = 0.
using SharpenPaths = vtest::EveryIsa;
TEST_P(SharpenPaths, MatchesADirectRankCount) {
    for (int trial = 0; trial < 150 && !HasFailure(); ++trial) {
        const Image noise = vtest::SweepImage(trial, {1, 3, 4, 2}, 24, 16, 4);
        const Image src = trial % 9 == 4 ? vtest::Flat(noise, std::array{0, 77, 255}[trial % 3]) : noise;
        const int radius = trial % 10 == 0 ? RandomInt(25, 40) : RandomInt(0, 6);  // some wider than the image
        EXPECT_TRUE(vtest::FilterMatches(src, [&](auto... a) { ::SharpenByHistgram(a..., radius); },
                                         [&](std::vector<uint8_t> d) { return Direct(src, d, radius); }))
            << " radius " << radius;
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

VELOMAR_INSTANTIATE_EVERY_ISA(Isa, SharpenPaths);

}  // namespace
