// Local entropy against a direct histogram of the bordered neighbourhood.
#include <cmath>

#include "common/reference.h"
#include "statistics/statistics.h"

namespace {

using vtest::Image;

// Entropy over all 256 bins in order, then the per-channel stretch.
std::vector<uint8_t> DirectEntropy(const Image& src, int r, int mode, std::vector<uint8_t> out) {
    const int n = (2 * r + 1) * (2 * r + 1), walk = src.channels;
    const double inv_n = 1.0 / n;
    std::vector<double> table(size_t(n) + 1, 0.0), e(src.bytes.size());
    for (int k = 1; k <= n; ++k) table[size_t(k)] = (-k * inv_n) * (std::log(k * inv_n) / std::log(2.0));
    std::vector<double> lo(walk, 1.7976931348623157e308), hi(walk, -1.7976931348623157e308);
    vtest::EachSample(src, walk, [&](int x, int y, int c, size_t i) {
        int hist[256] = {};
        for (int v : vtest::Neighbourhood(src, x, y, c, r, mode, walk)) ++hist[v];
        for (int b = 0; b < 256; ++b) e[i] += table[size_t(hist[b])];
        lo[c] = std::min(lo[c], e[i]), hi[c] = std::max(hi[c], e[i]);
    });
    vtest::EachSample(src, walk, [&](int, int, int c, size_t i) {
        out[i] = uint8_t(int((e[i] - lo[c]) * (hi[c] == lo[c] ? 0.0 : 255.0 / (hi[c] - lo[c]))));
    });
    return out;
}

// Few distinct values (every fourth picture) make ties in the stretch and
// empty bins common; a constant picture (every ninth) is zero everywhere.
// Trial 2 takes radius 127, the largest the counters hold; 128 and -1 write nothing.
using EntropyPaths = vtest::EveryIsa;
TEST_P(EntropyPaths, MatchesDirectHistogram) {
    for (int trial = 0; trial < 50 && !HasFailure(); ++trial) {
        Image src = vtest::SweepImage(trial, {1, 3}, 30, 20, 3);
        const int r = trial == 2 ? 127 : trial < 10 ? trial / 2 : vtest::RandomInt(0, 24), mode = vtest::RandomInt(0, 1);
        if (trial % 4 == 1)
            for (auto& b : src.bytes) b = uint8_t(b & 0xC0);
        if (trial % 9 == 5) src = vtest::Flat(src, 77);
        EXPECT_TRUE(vtest::FilterMatches(src, [&](auto... a) { EntropyFilter(a..., r, mode); },
                                         [&](std::vector<uint8_t> d) { return DirectEntropy(src, r, mode, d); }))
            << " r" << r << " mode " << mode;
    }
    const Image src = vtest::RandomImage(3, 2, 1);
    EXPECT_TRUE(vtest::WritesNothing(vtest::DestFor(src), {
        [&](uint8_t* d) { EntropyFilter(src.data(), d, 3, 2, 3, 128, 1); },
        [&](uint8_t* d) { EntropyFilter(src.data(), d, 3, 2, 3, -1, 1); },
        [&](uint8_t* d) { EntropyFilter(src.data(), d, 2, 2, 4, 1, 1); },  // two bytes per pixel
    }));
}

VELOMAR_INSTANTIATE_EVERY_ISA(Isa, EntropyPaths);

}  // namespace
