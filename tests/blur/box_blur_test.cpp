// Box blur against the plain neighbourhood mean.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "blur/blur.h"
#include "common/test_util.h"

namespace {

using vtest::RandomInt;

// Border rule written out: replicate clamps; reflect mirrors without repeating
// the edge and wraps by whole sizes.
int64_t Mapped(int64_t p, int64_t n, int edge) {
    if (p >= 0 && p < n) return p;
    if (edge == 0) return p < 0 ? 0 : n - 1;
    if (p < 0) {
        int64_t v = -p;
        while (v >= n) v -= n;
        return v;
    }
    int64_t v = 2 * n - p - 2;
    while (v < 0) v += n;
    return v;
}

// The plain (2r+1)^2 box of every pixel, unsigned 32-bit sums, written into a
// copy of `dest`.
std::vector<uint8_t> NaiveBox(const std::vector<uint8_t>& src, std::vector<uint8_t> dest, int w,
                              int h, int stride, int r, int edge) {
    const int c = stride / w;
    if (c != 1 && c != 3 && c != 4) return dest;
    const uint32_t area = uint32_t(2 * r + 1) * uint32_t(2 * r + 1);
    std::vector<int64_t> rows, cols;  // mapped index of positions -r .. n + r - 1
    for (int64_t p = -r; p < h + r; ++p) rows.push_back(Mapped(p, h, edge));
    for (int64_t p = -r; p < w + r; ++p) cols.push_back(Mapped(p, w, edge));
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            uint32_t sum[4] = {0, 0, 0, 0};
            for (int64_t dy = -r; dy <= r; ++dy)
                for (int64_t dx = -r; dx <= r; ++dx) {
                    const uint8_t* p = &src[rows[y + dy + r] * stride + cols[x + dx + r] * c];
                    for (int k = 0; k < c; ++k) sum[k] += c == 4 && k < 3 ? uint32_t(p[k]) * p[3] : p[k];
                }
            uint8_t* d = &dest[size_t(y) * stride + size_t(x) * c];
            if (c != 4) {
                for (int k = 0; k < c; ++k) d[k] = uint8_t(sum[k] / area);
            } else if (sum[3] != 0) {
                for (int k = 0; k < 3; ++k) d[k] = uint8_t(sum[k] / sum[3]);
                d[3] = uint8_t(int32_t(sum[3]) / int32_t(area));
            }
        }
    return dest;
}

void CheckAgainstNaive(const vtest::Image& src, int r, int edge) {
    vtest::Image dst = vtest::RandomImage(src.width, src.height, 1, src.stride - src.width);
    const std::vector<uint8_t> expected =
        NaiveBox(src.bytes, dst.bytes, src.width, src.height, src.stride, r, edge);
    const std::vector<uint8_t> before = src.bytes;
    BoxBlur(src.data(), dst.data(), src.width, src.height, src.stride, r, edge);
    ASSERT_TRUE(vtest::BytesEqual(expected, dst.bytes))
        << src.width << "x" << src.height << " stride " << src.stride << " r " << r << " edge " << edge;
    ASSERT_EQ(before, src.bytes) << "source modified";
    // In place gives the same bytes.
    vtest::Image same = src;
    BoxBlur(same.data(), same.data(), src.width, src.height, src.stride, r, edge);
    vtest::Image expected_in_place = src;
    expected_in_place.bytes = NaiveBox(src.bytes, src.bytes, src.width, src.height, src.stride, r, edge);
    ASSERT_TRUE(vtest::BytesEqual(expected_in_place.bytes, same.bytes));
}

TEST(BoxBlur, MatchesNaiveMeanOnRandomImages) {
    for (int iter = 0; iter < 300; ++iter) {
        const int c = std::vector<int>{1, 3, 4}[RandomInt(0, 2)];
        const int w = RandomInt(1, 30), h = RandomInt(1, 30);
        const int padding = RandomInt(0, w - 1);  // keeps Stride / Width == c
        vtest::Image src = vtest::RandomImage(w, h, c, padding);
        if (c == 4)  // many transparent pixels, so that whole boxes are transparent
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x)
                    if (RandomInt(0, 9) < 8) src.at(x, y, 3) = 0;
        const int r = RandomInt(0, 3) == 0 ? RandomInt(std::max(w, h), 2 * std::max(w, h) + 3)
                                           : RandomInt(0, 6);
        CheckAgainstNaive(src, r, RandomInt(0, 2));
    }
}

TEST(BoxBlur, DerivedLayouts) {
    // Width 1 with Stride 4: four bytes per pixel, the padding acting as alpha.
    vtest::Image one = vtest::RandomImage(1, 9, 1, 3);
    for (int y = 0; y < 9; y += 3) one.bytes[size_t(y) * 4 + 3] = 0;
    CheckAgainstNaive(one, 2, 1);
    // Width 2 with Stride 4 (two bytes per pixel) and Stride 5 with Width 1
    // (five) are left unwritten.
    for (auto [w, stride] : {std::pair{2, 4}, std::pair{1, 5}, std::pair{3, 6}}) {
        vtest::Image src = vtest::RandomImage(w, 6, 1, stride - w);
        vtest::Image dst = vtest::RandomImage(w, 6, 1, stride - w);
        const std::vector<uint8_t> before = dst.bytes;
        BoxBlur(src.data(), dst.data(), w, 6, stride, 1, 0);
        EXPECT_EQ(before, dst.bytes);
    }
}

TEST(BoxBlur, CallsOutsideTheContractWriteNothing) {
    vtest::Image src = vtest::RandomImage(9, 7, 3), dst = vtest::RandomImage(9, 7, 3);
    const std::vector<uint8_t> before = dst.bytes;
    BoxBlur(src.data(), dst.data(), 9, 7, src.stride, -1, 0);
    BoxBlur(src.data(), dst.data(), 0, 7, src.stride, 1, 0);
    BoxBlur(src.data(), dst.data(), 9, 0, src.stride, 1, 0);
    BoxBlur(nullptr, dst.data(), 9, 7, src.stride, 1, 0);
    BoxBlur(src.data(), nullptr, 9, 7, src.stride, 1, 0);
    EXPECT_EQ(before, dst.bytes);
    std::vector<double> plane(63, 1.5), out(63, -2.0);
    velomar::BoxBlurDouble(plane.data(), out.data(), 9, 7, 9, -3, 1);
    velomar::BoxBlurDouble(plane.data(), out.data(), 9, 7, 8, 1, 1);
    EXPECT_EQ(std::vector<double>(63, -2.0), out);
}

TEST(BoxBlur, LargeRadiiWrapTheSums) {
    // 255 * Area passes 2^32 for the byte sums, 255 * 255 * Area for the
    // alpha-weighted ones; the modular sums are the defined result.
    vtest::Image grey = vtest::RandomImage(3, 2, 1);
    for (auto& b : grey.bytes) b = uint8_t(200 + RandomInt(0, 55));
    CheckAgainstNaive(grey, 2500, 1);
    vtest::Image bgra = vtest::RandomImage(2, 3, 4);
    for (auto& b : bgra.bytes) b = uint8_t(240 + RandomInt(0, 15));
    CheckAgainstNaive(bgra, 140, 0);
    CheckAgainstNaive(vtest::RandomImage(64, 3, 3, 5), 70, 1);
    CheckAgainstNaive(vtest::RandomImage(40, 4, 1), 129, 0);
    CheckAgainstNaive(vtest::RandomImage(37, 3, 3), 113, 1);
}

TEST(BoxBlur, MeanTruncatesAtEveryQuotientBoundary) {
    // A box of k + 1 in (Area - 1) places and k once sums to Area * k + Area - 1
    // and must give k; the full box of k + 1 gives k + 1.
    for (int r : {0, 1, 2, 3, 7, 25, 100, 113, 129}) {
        const int side = 2 * r + 1;
        for (int k = 0; k < 255; k += (r > 7 ? 17 : 1)) {
            vtest::Image img(side, side, 1, 0, uint8_t(k + 1));
            img.at(0, 0) = uint8_t(k);
            std::vector<uint8_t> out(img.bytes.size());
            BoxBlur(img.data(), out.data(), side, side, side, r, 0);
            ASSERT_EQ(out[size_t(r) * side + r], k) << "r " << r << " k " << k;
            img.at(0, 0) = uint8_t(k + 1);
            BoxBlur(img.data(), out.data(), side, side, side, r, 0);
            ASSERT_EQ(out[size_t(r) * side + r], k + 1);
        }
    }
}

TEST(BoxBlur, WideImagesAndPaddingUntouched) {
    for (int c : {1, 3}) {
        vtest::Image src = vtest::RandomSmoothImage(157, 23, c, 7, 0x3C);
        vtest::Image dst = vtest::RandomImage(157, 23, c, 7, 0x3C);
        const std::vector<uint8_t> expected = NaiveBox(src.bytes, dst.bytes, 157, 23, src.stride, 9, 1);
        BoxBlur(src.data(), dst.data(), 157, 23, src.stride, 9, 1);
        EXPECT_TRUE(vtest::BytesEqual(expected, dst.bytes));
        EXPECT_TRUE(vtest::PaddingIntact(dst, 0x3C));
    }
}

// ---- double plane ----

// The running sums as defined (first window added from -r to r, then the sum
// minus the difference of leaving and entering values).
std::vector<double> RunningBox(const std::vector<double>& src, int w, int h, int stride, int r, int edge) {
    std::vector<double> out(src.size(), -7.0), col(size_t(w), 0.0);
    const double inv = 1.0 / ((2 * r + 1) * (2 * r + 1));
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            if (y == 0) {
                for (int p = -r; p <= r; ++p) col[x] += src[Mapped(p, h, edge) * stride + x];
            } else {
                col[x] = col[x] - (src[Mapped(y - r - 1, h, edge) * stride + x] -
                                   src[Mapped(y + r, h, edge) * stride + x]);
            }
        }
        double s = 0;
        for (int p = -r; p <= r; ++p) s += col[Mapped(p, w, edge)];
        out[size_t(y) * stride] = s * inv;
        for (int x = 1; x < w; ++x) {
            s = s - (col[Mapped(x - r - 1, w, edge)] - col[Mapped(x + r, w, edge)]);
            out[size_t(y) * stride + x] = s * inv;
        }
    }
    return out;
}

TEST(BoxBlurDouble, MeanOfTheBoxWithDefinedDrift) {
    for (int iter = 0; iter < 150; ++iter) {
        const int w = RandomInt(1, 25), h = RandomInt(1, 25), stride = w + RandomInt(0, 3);
        const int r = RandomInt(0, 4) == 0 ? RandomInt(25, 60) : RandomInt(0, 6);
        const int edge = RandomInt(0, 1);
        const bool integral = iter % 2 == 0;
        std::vector<double> src(size_t(h) * stride, -7.0);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                src[size_t(y) * stride + x] =
                    integral ? RandomInt(0, 255) : std::ldexp(RandomInt(0, 1 << 30), -22) - 100.0;
        std::vector<double> dst(src.size(), -7.0);
        velomar::BoxBlurDouble(src.data(), dst.data(), w, h, stride, r, edge);
        ASSERT_EQ(RunningBox(src, w, h, stride, r, edge), dst);
        const double inv = 1.0 / ((2 * r + 1) * (2 * r + 1));
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                long double sum = 0;
                for (int dy = -r; dy <= r; ++dy)
                    for (int dx = -r; dx <= r; ++dx)
                        sum += src[Mapped(y + dy, h, edge) * stride + Mapped(x + dx, w, edge)];
                const double got = dst[size_t(y) * stride + x];
                if (integral)  // every partial sum is an exact integer
                    ASSERT_EQ(double(sum) * inv, got) << x << "," << y;
                else
                    ASSERT_NEAR(double(sum / ((2 * r + 1) * (2 * r + 1))), got, 1e-9);
            }
        std::vector<double> same = src;
        velomar::BoxBlurDouble(same.data(), same.data(), w, h, stride, r, edge);
        ASSERT_EQ(dst, same) << "in place differs (or padding written)";
    }
}

}  // namespace
