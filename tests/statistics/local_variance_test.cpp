// Local mean/variance engine and the standard-deviation filter against the
// direct formula over the bordered neighbourhood.
#include <cmath>

#include "common/test_util.h"
#include "statistics/statistics.h"
#include "velomar.h"

namespace {

using vtest::Image;

// Border rule written out as stated: replicate clamps; reflect negates below 0
// then subtracts n while >= n, and past the end takes 2n - p - 2 then adds n
// while negative.
int Edge(int p, int n, int mode) {
    if (p >= 0 && p < n) return p;
    if (mode == 0) return p < 0 ? 0 : n - 1;
    if (p < 0) {
        int r = -p;
        while (r >= n) r -= n;
        return r;
    }
    int r = 2 * n - p - 2;
    while (r < 0) r += n;
    return r;
}

struct Direct {
    std::vector<uint32_t> variance;
    std::vector<uint8_t> mean;
};

// m = S / N and sum (p - m)^2 / N, per pixel and channel (64-bit sums: the
// same as 32-bit ones up to radius 90, and defined beyond).
Direct DirectMeanVariance(const Image& src, int r, int mode, int walk) {
    Direct d{std::vector<uint32_t>(src.bytes.size(), 0), src.bytes};
    const int n = (2 * r + 1) * (2 * r + 1);
    std::vector<int> vals(static_cast<size_t>(n));
    for (int y = 0; y < src.height; ++y)
        for (int x = 0; x < src.width; ++x)
            for (int c = 0; c < walk; ++c) {
                long long s = 0;
                int k = 0;
                for (int dy = -r; dy <= r; ++dy)
                    for (int dx = -r; dx <= r; ++dx) {
                        int sy = Edge(y + dy, src.height, mode), sx = Edge(x + dx, src.width, mode);
                        vals[size_t(k++)] = src.bytes[size_t(sy) * src.stride + size_t(sx) * walk + c];
                        s += vals[size_t(k - 1)];
                    }
                const long long m = s / n;
                long long q = 0;
                for (int v : vals) q += (v - m) * (v - m);
                const size_t i = size_t(y) * src.stride + size_t(x) * walk + c;
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
        const Direct want = DirectMeanVariance(src, r, mode, c);
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
        const Direct want = DirectMeanVariance(src, r, 1, 1);
        std::vector<uint32_t> var(src.bytes.size());
        velomar::LocalMeanVariance(src.data(), var.data(), nullptr, 5, 4, 5, r, 1);
        EXPECT_EQ(want.variance, var) << r;
    }
}

TEST(LocalMeanVariance, MeanOverSourceReadsOriginal) {
    Image src = vtest::RandomImage(17, 13, 3, 2);
    const Direct want = DirectMeanVariance(src, 2, 0, 3);
    std::vector<uint32_t> var(src.bytes.size());
    velomar::LocalMeanVariance(src.data(), var.data(), src.data(), 17, 13, src.stride, 2, 0);
    EXPECT_EQ(want.variance, var);
    EXPECT_TRUE(vtest::BytesEqual(want.mean, src.bytes));
}

TEST(StdFilter, MatchesRootOfDirectVariance) {
    for (int trial = 0; trial < 30; ++trial) {
        const int c = trial % 2 ? 3 : 1;
        const int w = vtest::RandomInt(1, 20), h = vtest::RandomInt(1, 20);
        const int r = vtest::RandomInt(0, 25), mode = trial % 3 ? 1 : 0;
        Image src = vtest::RandomImage(w, h, c, c == 1 ? (w > 1 ? 1 : 0) : 2);
        const Direct want = DirectMeanVariance(src, r, mode, c);
        std::vector<uint8_t> expected(src.bytes.size());
        for (size_t i = 0; i < expected.size(); ++i)
            expected[i] = uint8_t(int(std::sqrt(double(want.variance[i]))));
        Image dst(w, h, c, src.stride - w * c, 0x5A);
        StdFilter(src.data(), dst.data(), w, h, src.stride, r, mode);
        ASSERT_TRUE(vtest::BytesEqual(expected, dst.bytes)) << w << "x" << h << " r" << r;
        // In place gives the same bytes.
        Image inplace = src;
        StdFilter(inplace.data(), inplace.data(), w, h, src.stride, r, mode);
        ASSERT_TRUE(vtest::BytesEqual(expected, inplace.bytes));
    }
}

TEST(StdFilter, CheckerboardAndFlatCases) {
    // 0/255 checkerboard, radius 1: 126 wherever the box lies inside.
    Image board(9, 7, 1, 3);
    for (int y = 0; y < 7; ++y)
        for (int x = 0; x < 9; ++x) board.at(x, y) = (x + y) % 2 ? 255 : 0;
    Image out(9, 7, 1, 3, 0x77);
    StdFilter(board.data(), out.data(), 9, 7, board.stride, 1, 1);
    for (int y = 1; y < 6; ++y)
        for (int x = 1; x < 8; ++x) EXPECT_EQ(126, out.at(x, y)) << x << "," << y;
    for (int y = 0; y < 7; ++y)
        for (int x = 9; x < board.stride; ++x) EXPECT_EQ(0, out.bytes[size_t(y) * board.stride + x]);

    // Radius 0 and a uniform image both give zero everywhere.
    Image noise = vtest::RandomImage(11, 5, 3, 1);
    Image zero(11, 5, 3, 1, 0);
    Image res(11, 5, 3, 1, 0x33);
    StdFilter(noise.data(), res.data(), 11, 5, noise.stride, 0, 1);
    EXPECT_TRUE(vtest::BytesEqual(zero.bytes, res.bytes));
    Image flat(11, 5, 3, 1, 200);
    StdFilter(flat.data(), res.data(), 11, 5, flat.stride, 6, 0);
    EXPECT_TRUE(vtest::BytesEqual(zero.bytes, res.bytes));
}

TEST(StdFilter, RefusedLayoutsWriteNothing) {
    Image src = vtest::RandomImage(8, 4, 2);  // two bytes per pixel
    Image dst(8, 4, 2, 0, 0x11);
    const Image untouched = dst;
    StdFilter(src.data(), dst.data(), 8, 4, src.stride, 2, 1);
    StdFilter(src.data(), dst.data(), 16, 4, src.stride, -1, 1);
    EXPECT_TRUE(vtest::BytesEqual(untouched.bytes, dst.bytes));
}

}  // namespace
