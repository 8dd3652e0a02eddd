// Median blur against a direct count of each neighbourhood with replicated borders.
#include <array>

#include "blur/blur.h"
#include "common/reference.h"

namespace {

using vtest::Image;

// Direct rank: gather the (2R+1)^2 clamped samples of plane c around every
// pixel and pick the smallest v with more than T samples <= v. Any layout
// wider than one byte is walked as three-byte pixels over the first 3 * Width
// bytes of a row (a fourth byte is not skipped); all other bytes keep `dest`.
// Percents above 100 behave as 100 (T = Area - 1); a T below zero makes
// every pixel 0.
std::vector<uint8_t> Reference(const Image& src, std::vector<uint8_t> out, int radius, int percent) {
    const int64_t area = (2 * radius + 1) * (2 * radius + 1);
    const int64_t t = percent >= 100 ? area - 1 : area * percent / 100;
    const int planes = src.channels == 1 ? 1 : 3;
    vtest::EachSample(src, planes, [&](int x, int y, int c, size_t i) {
        int count[256] = {};
        for (int v : vtest::Neighbourhood(src, x, y, c, radius, EDGE_REPLICATE, planes)) ++count[v];
        int v = 0, atOrBelow = count[0];
        while (atOrBelow <= t) atOrBelow += count[++v];
        out[i] = uint8_t(v);
    });
    return out;
}

// Every row walk the dispatcher can choose on this machine.
using MedianBlurPaths = vtest::EveryIsa;
VELOMAR_INSTANTIATE_EVERY_ISA(MedianBlur, MedianBlurPaths);

// Separate Dest (its padding and the fourth bytes kept), in place, and Src
// unchanged, on the path the fixture allows.
void Check(const Image& src, int radius, int percent) {
    EXPECT_TRUE(vtest::FilterMatches(src, [&](auto... a) { MedianBlur(a..., radius, percent); },
                                     [&](std::vector<uint8_t> d) { return Reference(src, d, radius, percent); }))
        << " radius " << radius << " percent " << percent;
}

TEST_P(MedianBlurPaths, MatchesDirectRankOnRandomImages) {
    for (int iter = 0; iter < 300 && !HasFailure(); ++iter) {
        // Every fifth case has a radius beyond a small image, so both borders
        // replicate at once. The six fixed percents come up in each layout.
        const bool wide = iter % 5 == 0;
        const Image src = vtest::SweepImage(iter, {1, 3, 4}, wide ? 20 : 40, wide ? 20 : 40);
        Check(src, wide ? vtest::RandomInt(1, 40) : vtest::RandomInt(1, 8),
              iter % 100 < 6 ? std::array{0, 50, 100, 1000000, -50, INT32_MIN}[iter % 100] : vtest::RandomInt(0, 100));
    }
    // Radii near the 16-bit bound and rows long enough for the fine segments
    // to slide, go stale and be rebuilt many times; small radii (the
    // selection network) over rows of several vectors and a partial one.
    for (auto [radius, percent] : {std::pair{20, 0}, {20, 100}, {127, 37}, {127, 50}, {1, 50}, {2, 13}, {3, 100}})
        Check(vtest::RandomImage(vtest::RandomInt(150, 260), vtest::RandomInt(2, 4), 1, 3), radius, percent);
}

}  // namespace
