// Local mean/variance engine and the standard-deviation filter against the
// direct formula over the bordered neighbourhood.
#include <cmath>

#include "common/reference.h"
#include "statistics/statistics.h"
#include "velomar.h"

namespace {

using vtest::Image;

struct Direct {
    std::vector<uint32_t> variance;
    std::vector<uint8_t> mean;
};

// m = S / N and sum (p - m)^2 / N, per pixel and channel (64-bit sums: the
// same as 32-bit ones up to radius 90, and defined beyond).
Direct DirectMeanVariance(const Image& src, int r, int mode) {
    Direct d{std::vector<uint32_t>(src.bytes.size(), 0), src.bytes};
    const int n = (2 * r + 1) * (2 * r + 1), walk = src.channels;
    for (int y = 0; y < src.height; ++y)
        for (int x = 0; x < src.width; ++x)
            for (int c = 0; c < walk; ++c) {
                const std::vector<int> vals = vtest::Neighbourhood(src, x, y, c, r, mode, walk);
                long long s = 0, q = 0;
                for (int v : vals) s += v;
                const long long m = s / n;
                for (int v : vals) q += (v - m) * (v - m);
                const size_t i = vtest::Offset(src, x, y, walk, c);
                d.variance[i] = uint32_t(q / n);
                if (walk == 3) d.mean[i] = uint8_t(m);
            }
    return d;
}

TEST(LocalMeanVariance, MatchesDirectFormula) {
    for (int trial = 0; trial < 60; ++trial) {
        const int c = trial % 2 ? 3 : 1;
        const int w = vtest::RandomInt(1, 23), h = vtest::RandomInt(1, 19);
        const int r = trial < 6 ? trial : vtest::RandomInt(0, 30);
        const int mode = vtest::RandomInt(0, 1);
        Image src = trial % 3 ? vtest::RandomImage(w, h, c, vtest::RandomInt(0, 5))
                              : vtest::RandomSmoothImage(w, h, c, 3);
        // A padding of at least one pixel's bytes would change the layout.
        if (src.stride / w != c) src = vtest::RandomImage(w, h, c, 0);
        const Direct want = DirectMeanVariance(src, r, mode);
        std::vector<uint32_t> var(src.bytes.size(), 0xDEADBEEF);
        Image mean = src;
        const Image before = src;
        velomar::LocalMeanVariance(src.data(), var.data(), mean.data(), w, h, src.stride, r, mode);
        ASSERT_EQ(want.variance, var) << w << "x" << h << " c" << c << " r" << r << " mode " << mode;
        ASSERT_TRUE(vtest::BytesEqual(want.mean, mean.bytes));
        ASSERT_TRUE(vtest::BytesEqual(before.bytes, src.bytes));
    }
}

// Large radius on a small image of extreme values: the sums reach the upper
// end of the 32-bit range and, past radius 127, the wide path.
TEST(LocalMeanVariance, LargeRadiusExtremes) {
    Image src(5, 4, 1);
    for (auto& b : src.bytes) b = vtest::RandomInt(0, 1) ? 255 : 0;
    for (int r : {64, 90, 128, 131}) {
        const Direct want = DirectMeanVariance(src, r, 1);
        std::vector<uint32_t> var(src.bytes.size());
        velomar::LocalMeanVariance(src.data(), var.data(), nullptr, 5, 4, 5, r, 1);
        EXPECT_EQ(want.variance, var) << r;
    }
}

TEST(LocalMeanVariance, MeanOverSourceReadsOriginal) {
    Image src = vtest::RandomImage(17, 13, 3, 2);
    const Direct want = DirectMeanVariance(src, 2, 0);
    std::vector<uint32_t> var(src.bytes.size());
    velomar::LocalMeanVariance(src.data(), var.data(), src.data(), 17, 13, src.stride, 2, 0);
    EXPECT_EQ(want.variance, var);
    EXPECT_TRUE(vtest::BytesEqual(want.mean, src.bytes));
}

TEST(StdFilter, MatchesRootOfDirectVariance) {
    for (int trial = 0; trial < 30 && !HasFailure(); ++trial) {
        const int c = trial % 2 ? 3 : 1;
        const int w = vtest::RandomInt(1, 20), h = vtest::RandomInt(1, 20);
        const int r = vtest::RandomInt(0, 25), mode = trial % 3 ? 1 : 0;
        const Image src = vtest::RandomImage(w, h, c, c == 1 ? (w > 1 ? 1 : 0) : 2);
        const Direct want = DirectMeanVariance(src, r, mode);
        // Every byte of the buffer is written, padding as 0.
        EXPECT_TRUE(vtest::MatchesBothWays(
            src, Image(w, h, c, src.stride - w * c, 0x5A),
            [&](const uint8_t* s, uint8_t* d) { StdFilter(s, d, w, h, src.stride, r, mode); },
            [&](std::vector<uint8_t> d) {
                for (size_t i = 0; i < d.size(); ++i) d[i] = uint8_t(int(std::sqrt(double(want.variance[i]))));
                return d;
            }))
            << w << "x" << h << " r" << r;
    }
}

TEST(StdFilter, CheckerboardFlatAndRefusals) {
    // 0/255 checkerboard, radius 1: 126 wherever the box lies inside.
    Image board(9, 7, 1, 3), out(9, 7, 1, 3, 0x77);
    for (int y = 0; y < 7; ++y)
        for (int x = 0; x < 9; ++x) board.at(x, y) = (x + y) % 2 ? 255 : 0;
    StdFilter(board.data(), out.data(), 9, 7, board.stride, 1, 1);
    for (int y = 1; y < 6; ++y)
        for (int x = 1; x < 8; ++x) EXPECT_EQ(126, out.at(x, y)) << x << "," << y;
    // Radius 0 and a uniform image both give zero everywhere.
    Image noise = vtest::RandomImage(11, 5, 3, 1), flat(11, 5, 3, 1, 200), res(11, 5, 3, 1, 0x33);
    StdFilter(noise.data(), res.data(), 11, 5, noise.stride, 0, 1);
    EXPECT_TRUE(vtest::AllBytes(res.bytes, 0));
    res = Image(11, 5, 3, 1, 0x33);
    StdFilter(flat.data(), res.data(), 11, 5, flat.stride, 6, 0);
    EXPECT_TRUE(vtest::AllBytes(res.bytes, 0));
    // Two bytes per pixel and a negative radius write nothing.
    Image two = vtest::RandomImage(8, 4, 2), dst(8, 4, 2, 0, 0x11);
    StdFilter(two.data(), dst.data(), 8, 4, two.stride, 2, 1);
    StdFilter(two.data(), dst.data(), 16, 4, two.stride, -1, 1);
    EXPECT_TRUE(vtest::AllBytes(dst.bytes, 0x11));
}

}  // namespace
