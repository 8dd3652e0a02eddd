// Local mean/variance engine and the standard-deviation filter against the
// direct formula over the bordered neighbourhood.
#include <array>
#include <cmath>

#include "common/suite.h"
#include "statistics/statistics.h"

namespace {

using vtest::Image;

// StdFilter on the same pictures: the root of the engine's variance, every
// byte of the buffer written, padding as 0.
TEST(LocalMeanVariance, MatchesDirectFormulaAndStdFilterTakesItsRoot) {
    // The first cases: large radii over a small image of extreme values, so
    // the sums reach the upper end of the 32-bit range and, past radius 127,
    // the wide path (without a mean plane). Some pictures are constant.
    Image extremes(5, 4, 1);
    for (auto& b : extremes.bytes) b = vtest::RandomInt(0, 1) ? 255 : 0;
    for (int trial = 0; trial < 64 && !HasFailure(); ++trial) {
        const bool large = trial < 4;
        const Image noise = large ? extremes : vtest::SweepImage(trial, {1, 3}, 23, 19);
        const Image src = trial % 7 == 5 ? vtest::Flat(noise, 200) : noise;
        const int r = large ? std::array{64, 90, 128, 131}[trial] : trial < 10 ? trial - 4 : vtest::RandomInt(0, 30);
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
    }));
}

}  // namespace
