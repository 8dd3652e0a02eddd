// Box blur against the plain neighbourhood mean, and the refused calls of every blur export.
#include <array>
#include <cmath>
#include <tuple>

#include "blur/blur.h"
#include "common/reference.h"

namespace {

using vtest::MapEdge;
using vtest::RandomInt;

// The plain (2r+1)^2 box of every pixel, unsigned 32-bit sums (alpha-weighted
// for four bytes per pixel), written into a copy of `dest`.
std::vector<uint8_t> NaiveBox(const vtest::Image& src, std::vector<uint8_t> dest, int r, int edge) {
    const int w = src.width, h = src.height, c = src.stride / w;
    const uint32_t area = uint32_t(2 * r + 1) * uint32_t(2 * r + 1);
    std::vector<int> rows, cols;  // mapped index of positions -r .. n + r - 1
    for (int64_t p = -r; p < h + r; ++p) rows.push_back(MapEdge(p, h, edge));
    for (int64_t p = -r; p < w + r; ++p) cols.push_back(MapEdge(p, w, edge));
    vtest::EachSample(src, 1, [&](int x, int y, int, size_t) {  // every pixel
        uint32_t sum[4] = {0, 0, 0, 0};
        for (int dy = 0; dy <= 2 * r; ++dy)
            for (int dx = 0; dx <= 2 * r; ++dx) {
                const uint8_t* p = &src.bytes[vtest::Offset(src, cols[x + dx], rows[y + dy], c, 0)];
                for (int k = 0; k < c; ++k) sum[k] += c == 4 && k < 3 ? uint32_t(p[k]) * p[3] : p[k];
            }
        uint8_t* d = &dest[vtest::Offset(src, x, y, c, 0)];
        if (c != 4) {
            for (int k = 0; k < c; ++k) d[k] = uint8_t(sum[k] / area);
        } else if (sum[3] != 0) {
            for (int k = 0; k < 3; ++k) d[k] = uint8_t(sum[k] / sum[3]);
            d[3] = uint8_t(int32_t(sum[3]) / int32_t(area));
        }
    });
    return dest;
}

void CheckAgainstNaive(const vtest::Image& src, int r, int edge) {
    EXPECT_TRUE(vtest::FilterMatches(src, [&](auto... a) { BoxBlur(a..., r, edge); },
                                     [&](std::vector<uint8_t> d) { return NaiveBox(src, d, r, edge); }))
        << " r " << r << " edge " << edge;
}

TEST(BoxBlur, MatchesNaiveMean) {
    // Fixed cases first. Wide rows. Radii whose sums pass 2^32 (255 * Area
    // for the byte sums, 255 * 255 * Area for the alpha-weighted ones): the
    // modular sums are the defined result. Radii past 127 over rows of several
    // vectors: 128 divides by a float reciprocal, 129 by a multiply and shift.
    vtest::Image grey = vtest::RandomImage(3, 2, 1), bgra = vtest::RandomImage(2, 3, 4);
    for (auto& b : grey.bytes) b = uint8_t(200 + RandomInt(0, 55));
    for (auto& b : bgra.bytes) b = uint8_t(240 + RandomInt(0, 15));
    const std::tuple<vtest::Image, int, int> fixed[] = {
        {vtest::RandomSmoothImage(157, 23, 1, 7), 9, 1}, {vtest::RandomSmoothImage(157, 23, 3, 7), 9, 1},
        {grey, 2500, 1}, {bgra, 140, 0},
        {vtest::RandomImage(64, 3, 3, 5), 70, 1}, {vtest::RandomImage(40, 4, 1), 129, 0},
        {vtest::RandomImage(40, 4, 1), 128, 1}};
    for (const auto& [src, r, edge] : fixed) CheckAgainstNaive(src, r, edge);
    // Width 1 comes first in every layout (four bytes per pixel then includes
    // Stride 4 over one pixel, what would be grey padding acting as alpha).
    for (int iter = 0; iter < 300 && !HasFailure(); ++iter) {
        vtest::Image src = vtest::SweepImage(iter, {1, 3, 4}, 30, 30, 29);
        vtest::EachSample(src, src.channels, [&](int, int, int k, size_t i) {
            if (k == 3 && RandomInt(0, 9) < 8) src.bytes[i] = 0;  // many transparent pixels, whole boxes too
        });
        const int most = std::max(src.width, src.height);
        CheckAgainstNaive(src, RandomInt(0, 3) == 0 ? RandomInt(most, 2 * most + 3) : RandomInt(0, 6), RandomInt(0, 2));
    }
}

TEST(BoxBlur, MeanTruncatesAtEveryQuotientBoundary) {
    // A box of k + 1 in (Area - 1) places and k once sums to Area * k + Area - 1
    // and must give k; the full box of k + 1 gives k + 1.
    for (int r : {0, 1, 2, 3, 7, 25, 113, 129})
        for (int k = 0; k < 255; k += (r > 7 ? 17 : 1)) {
            const int side = 2 * r + 1;
            vtest::Image img(side, side, 1, 0, uint8_t(k + 1));
            std::vector<uint8_t> out(img.bytes.size());
            for (int corner : {k, k + 1}) {
                img.at(0, 0) = uint8_t(corner);
                BoxBlur(img.data(), out.data(), side, side, side, r, 0);
                ASSERT_EQ(out[size_t(r) * side + r], corner) << "r " << r << " k " << k;
            }
        }
}

// The running sums as defined (first window added from -r to r, then the sum
// minus the difference of leaving and entering values).
std::vector<double> RunningBox(const std::vector<double>& src, int w, int h, int stride, int r, int edge) {
    std::vector<double> out(src.size(), -7.0), col(size_t(w), 0.0);
    const double inv = 1.0 / int32_t(uint32_t(2 * r + 1) * uint32_t(2 * r + 1));  // 32-bit area
    auto at = [&](int64_t y, int x) { return src[size_t(MapEdge(y, h, edge)) * stride + x]; };
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x)
            if (y == 0)
                for (int64_t p = -r; p <= r; ++p) col[x] += at(p, x);
            else
                col[x] = col[x] - (at(y - r - 1, x) - at(y + r, x));
        double s = 0;
        for (int64_t p = -r; p <= r; ++p) s += col[MapEdge(p, w, edge)];
        out[size_t(y) * stride] = s * inv;
        for (int x = 1; x < w; ++x) {
            s = s - (col[MapEdge(x - r - 1, w, edge)] - col[MapEdge(x + r, w, edge)]);
            out[size_t(y) * stride + x] = s * inv;
        }
    }
    return out;
}

// Random planes and radii, then (the last nine) windows far wider than the
// plane, whose border runs are summed in time that does not depend on their
// length and must still give the bits of the addition-by-addition sum:
// non-negative values under both rules, values of both signs where the run
// repeats one value (replicated edges), and subnormal multiples. In place
// too, padding untouched.
TEST(BoxBlurDouble, KeepsTheRunningSumsAsDefined) {
    for (int iter = 0; iter < 159; ++iter) {
        const int huge = iter - 150, kind = huge >= 0 ? huge % 3 : iter % 2;
        const int w = RandomInt(1, huge >= 0 ? 6 : 25), h = RandomInt(1, huge >= 0 ? 6 : 25);
        const int stride = w + RandomInt(0, 3), edge = huge >= 0 && kind == 1 ? 0 : RandomInt(0, 1);
        const int r = huge >= 0 ? std::array{40, 3001, 1 << 20}[huge / 3]
                                : RandomInt(0, 4) == 0 ? RandomInt(25, 60) : RandomInt(0, 6);
        std::vector<double> src(size_t(h) * stride, -7.0), dst(src.size(), -7.0);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                src[size_t(y) * stride + x] = kind == 1   ? std::ldexp(RandomInt(0, 1 << 30), -22) - 100.0
                                              : kind == 2 ? RandomInt(0, 3) * 1e-300
                                                          : RandomInt(0, 255) / (huge >= 0 ? 255.0 : 1.0);
        velomar::BoxBlurDouble(src.data(), dst.data(), w, h, stride, r, edge);
        ASSERT_EQ(RunningBox(src, w, h, stride, r, edge), dst) << "r " << r << " kind " << kind << " " << w << "x" << h;
        // Whole numbers sum exactly in any order: the plain window sum over the area.
        for (int y = 0; huge < 0 && kind == 0 && y < h; ++y)
            for (int x = 0; x < w; ++x) {
                double sum = 0;
                for (int dy = -r; dy <= r; ++dy)
                    for (int dx = -r; dx <= r; ++dx)
                        sum += src[size_t(MapEdge(y + dy, h, edge)) * stride + MapEdge(x + dx, w, edge)];
                ASSERT_EQ(sum * (1.0 / ((2 * r + 1) * (2 * r + 1))), dst[size_t(y) * stride + x]) << x << "," << y;
            }
        velomar::BoxBlurDouble(src.data(), src.data(), w, h, stride, r, edge);
        ASSERT_EQ(dst, src) << "in place differs (or padding written)";
    }
}

// Every blur export's refused calls over one padded three-byte picture (Width 14 over its 29-byte rows is two
// bytes per pixel, which would leave the rows): one entry per rule of each export (the line blurs' refused lengths
// and angles are LineBlurs.MatchTheKernelAppliedDirectly's last trials). SurfaceBlur writes nothing.
TEST(Blurs, RefusedCallsWriteNothing) {
    const vtest::Image src = vtest::RandomImage(9, 7, 3, 2);
    const uint8_t* s = src.data();
    EXPECT_TRUE(vtest::WritesNothing(vtest::DestFor(src), {
        [&](uint8_t* d) { BoxBlur(s, d, 14, 7, 29, 1, 0); },
        [&](uint8_t* d) { BoxBlur(s, d, 9, 7, 29, -1, 0); },
        [&](uint8_t* d) { BoxBlur(s, d, 0, 7, 29, 1, 0); },
        [&](uint8_t* d) { BoxBlur(nullptr, d, 9, 7, 29, 1, 0); },
        [&](uint8_t* d) { GuassBlur(s, d, 14, 7, 29, 2.0); },
        [&](uint8_t* d) { GuassBlur(nullptr, d, 9, 7, 29, 2.0); },
        [&](uint8_t* d) { GuassBlur(s, d, 0, 7, 29, 2.0); },
        [&](uint8_t* d) { MedianBlur(s, d, 9, 7, 29, 0, 50); },
        [&](uint8_t* d) { MedianBlur(s, d, 9, 7, 29, 128, 50); },
        [&](uint8_t* d) { MedianBlur(s, d, 14, 7, 29, 2, 50); },
        [&](uint8_t* d) { MedianBlur(nullptr, d, 9, 7, 29, 2, 50); },
        [&](uint8_t* d) { MedianBlur(s, d, 0, 7, 29, 2, 50); },
        [&](uint8_t* d) { LinearBlur(s, d, 14, 7, 29, 3, 10, 1); },
        [&](uint8_t* d) { MotionBlur(s, d, 0, 7, 29, 3, 10, 1); },
        [&](uint8_t* d) { SurfaceBlur(s, d, 9, 7, 29, 3, 10); },
    }));
    std::vector<double> plane(63, 1.5), out(63, -2.0);
    velomar::BoxBlurDouble(plane.data(), out.data(), 9, 7, 9, -3, 1);
    velomar::BoxBlurDouble(plane.data(), out.data(), 9, 7, 8, 1, 1);
    EXPECT_EQ(std::vector<double>(63, -2.0), out);
}

}  // namespace

