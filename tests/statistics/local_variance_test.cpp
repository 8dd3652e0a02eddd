// Local mean/variance engine, the standard-deviation filter and local entropy
// against direct formulas and histograms over the bordered neighbourhood.
#include <array>
#include <cmath>

#include "common/suite.h"
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

// The three on the same pictures. StdFilter: the root of the engine's
// variance, every byte of the buffer written, padding as 0. Entropy: few
// distinct values (every fourth picture) make ties in the stretch and empty
// bins common; a constant picture (every seventh) is zero everywhere; radius
// 127 is the largest its counters hold, 128 and beyond write nothing.
using LocalStatistics = vtest::EveryIsa;
TEST_P(LocalStatistics, MatchDirectFormulas) {
    // The first cases: large radii over a small image of extreme values, so
    // the sums reach the upper end of the 32-bit range and, past radius 127,
    // the wide path (without a mean plane). The next ones start with one and
    // two pixels wide.
    Image extremes(5, 4, 1);
    for (auto& b : extremes.bytes) b = vtest::RandomInt(0, 1) ? 255 : 0;
    for (int trial = 0; trial < 64 && !HasFailure(); ++trial) {
        const bool large = trial < 5;
        Image src = large ? extremes : vtest::SweepImage(trial - 5, {1, 3}, 30, 20);
        if (!large && trial % 4 == 1)
            for (auto& b : src.bytes) b = uint8_t(b & 0xC0);
        if (trial % 7 == 5) src = vtest::Flat(src, 200);
        const int r = large ? std::array{64, 90, 127, 128, 131}[trial] : trial < 11 ? trial - 5 : vtest::RandomInt(0, 24);
        const int mode = vtest::RandomInt(0, 1), w = src.width, h = src.height;
        // The variance as the engine stores it (64-bit sums: the same as 32-bit
        // ones up to radius 90, and defined beyond), and the mean bytes: written
        // for three channels only, the source's elsewhere.
        const vtest::LocalStats st = vtest::DirectLocalStats(src, r, mode, src.channels);
        const std::vector<uint32_t> variance(st.variance.begin(), st.variance.end());
        std::vector<uint8_t> means = src.bytes;
        vtest::EachRowByte(src, src.channels == 3 ? 3 * w : 0, [&](size_t i) { means[i] = uint8_t(st.mean[i]); });
        // With the mean written over the source, which must still be read as
        // it was (the large radii without a mean plane).
        std::vector<uint32_t> var(src.bytes.size(), 0xDEADBEEF);
        Image alias = src;
        velomar::LocalMeanVariance(alias.data(), var.data(), large ? nullptr : alias.data(), w, h, src.stride, r, mode);
        ASSERT_EQ(variance, var) << src << " r" << r << " mode " << mode;
        ASSERT_TRUE(vtest::BytesEqual(means, alias.bytes)) << "mean over the source";
        EXPECT_TRUE(vtest::FilterMatches(src, [&](auto... a) { StdFilter(a..., r, mode); }, [&](std::vector<uint8_t> d) {
            for (size_t i = 0; i < d.size(); ++i) d[i] = uint8_t(int(std::sqrt(double(variance[i]))));
            return d;
        })) << " r" << r;
        EXPECT_TRUE(vtest::FilterMatches(src, [&](auto... a) { EntropyFilter(a..., r, mode); },
                                         [&](auto d) { return r > 127 ? d : DirectEntropy(src, r, mode, d); }))
            << "entropy r" << r << " mode " << mode;
    }
    // 0/255 checkerboard, radius 1: 126 wherever the box lies inside.
    Image board(9, 7, 1, 3), out(9, 7, 1, 3, 0x77);
    vtest::EachSample(board, 1, [&](int x, int y, int, size_t i) { board.bytes[i] = (x + y) % 2 ? 255 : 0; });
    StdFilter(board.data(), out.data(), 9, 7, board.stride, 1, 1);
    for (int y = 1; y < 6; ++y)
        for (int x = 1; x < 8; ++x) EXPECT_EQ(126, out.at(x, y)) << x << "," << y;
    // Two bytes per pixel and a negative radius write nothing.
    const Image two = vtest::RandomImage(8, 4, 2);
    EXPECT_TRUE(vtest::WritesNothing(vtest::DestFor(two), {
        [&](uint8_t* d) { StdFilter(two.data(), d, 8, 4, two.stride, 2, 1); },
        [&](uint8_t* d) { StdFilter(two.data(), d, 16, 4, two.stride, -1, 1); },
        [&](uint8_t* d) { EntropyFilter(two.data(), d, 8, 4, two.stride, 1, 1); },
        [&](uint8_t* d) { EntropyFilter(two.data(), d, 16, 4, two.stride, -1, 1); },
    }));
}

VELOMAR_INSTANTIATE_EVERY_ISA(Isa, LocalStatistics);

}  // namespace
