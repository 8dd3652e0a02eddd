// Double-precision box means: the one implementation behind BoxBlurDouble and
// the fused means of the guided filter.
//
// Column sums are built at the first row and then moved down by the
// difference of the leaving and the entering row; along a row the box sum
// starts at column 0 and moves the same way; each mean is the box sum times
// 1.0 / Area. Running sums are never re-summed within a call: their rounding
// drift is part of the result.
#pragma once

#include "core/core.h"

namespace velomar {

// Adds v[i * step] to s for `count` indices i = start, start - 1, ..., wrapping
// from 0 to n - 1, one double addition at a time, in that order. This is the
// shape of every border run of a window (a reflected run cycles downwards
// through the axis; a replicated run is the same index again, n = 1). Whole
// cycles are skipped where the result provably repeats itself, so the time
// does not grow with `count`: within one binade every cycle adds the same
// amount once two cycles agree. A run of one repeated value always settles,
// and so does a cycle of values of one sign; should a cycle of values of both
// signs cancel so well that the sum has not settled after hundreds of cycles,
// the remaining cycles are added as one product with the cycle's sum (no
// filter of the library feeds such a cycle: its reflected planes are weights,
// levels and squares).
double AddDescendingCycle(double s, const double* v, ptrdiff_t step, int32_t n, int32_t start,
                          int64_t count);

// The sum of v[index(p) * step] for p = -Radius .. Radius in that order, where
// index is the border rule of EdgeMode on an axis of n samples: the first
// window of a running sum, exactly as a position-by-position loop gives it.
double WindowSum(const double* v, ptrdiff_t step, int32_t n, int64_t Radius, int32_t EdgeMode);

// Box means of K planes of Width x Height values, one row after another. The
// planes need not exist: a source hands over the K rows of values at a given
// row index (Source::Rows(row, scratch, rows) points rows[k] at plane k's
// values in that row, filling scratch[k], Width values, if it has to).
template <int K>
class BoxMeanRows {
public:
    BoxMeanRows(int32_t width, int32_t height, int32_t radius, int32_t edgeMode)
        : width_(width), height_(height), radius_(radius), edgeMode_(edgeMode),
          colsum_(size_t(K) * width, true), entering_(size_t(K) * width),
          leaving_(size_t(K) * width), add_(size_t(width)), sub_(size_t(width)) {
        // The area is a 32-bit integer, wrapping as such for huge radii.
        const uint32_t side = 2 * static_cast<uint32_t>(radius) + 1;
        inverseArea_ = 1.0 / static_cast<int32_t>(side * side);
        for (int32_t x = 0; x < width; ++x) {
            add_[x] = MapEdgeIndex(int64_t(x) + radius, width, edgeMode);
            sub_[x] = MapEdgeIndex(int64_t(x) - radius - 1, width, edgeMode);
        }
    }

    // Means of the next row into means[k][0 .. Width).
    template <class Source>
    void Next(Source& source, double* const* means) {
        double* col[K];
        double* entering[K];
        double* leaving[K];
        for (int k = 0; k < K; ++k) {
            col[k] = colsum_.data() + size_t(k) * width_;
            entering[k] = entering_.data() + size_t(k) * width_;
            leaving[k] = leaving_.data() + size_t(k) * width_;
        }
        if (y_ == 0) {
            FirstColumnSums(source, col, entering);
        } else {
            const double* in[K];
            const double* out[K];
            source.Rows(MapEdgeIndex(int64_t(y_) + radius_, height_, edgeMode_), entering, in);
            source.Rows(MapEdgeIndex(int64_t(y_) - radius_ - 1, height_, edgeMode_), leaving, out);
            for (int k = 0; k < K; ++k) {
                double* c = col[k];
                const double* a = in[k];
                const double* s = out[k];
                int32_t x = 0;
                for (; x + 2 <= width_; x += 2)
                    _mm_storeu_pd(c + x, _mm_sub_pd(_mm_loadu_pd(c + x),
                                                    _mm_sub_pd(_mm_loadu_pd(s + x), _mm_loadu_pd(a + x))));
                for (; x < width_; ++x) c[x] = c[x] - (s[x] - a[x]);
            }
        }
        double sum[K];
        for (int k = 0; k < K; ++k) {
            sum[k] = WindowSum(col[k], 1, width_, radius_, edgeMode_);
            means[k][0] = sum[k] * inverseArea_;
        }
        const int32_t* add = add_.data();
        const int32_t* sub = sub_.data();
        for (int32_t x = 1; x < width_; ++x) {
            const int32_t a = add[x], s = sub[x];
            for (int k = 0; k < K; ++k) {
                sum[k] = sum[k] - (col[k][s] - col[k][a]);
                means[k][x] = sum[k] * inverseArea_;
            }
        }
        ++y_;
    }

private:
    // Column sums of the first window, rows -Radius .. Radius. A window within
    // a few heights of the image is added row by row; a larger one gathers
    // the planes once and sums each column with WindowSum.
    template <class Source>
    void FirstColumnSums(Source& source, double* const* col, double* const* scratch) {
        const double* in[K];
        if (int64_t(radius_) <= 2 * int64_t(height_)) {
            for (int64_t p = -int64_t(radius_); p <= radius_; ++p) {
                source.Rows(MapEdgeIndex(p, height_, edgeMode_), scratch, in);
                for (int k = 0; k < K; ++k) {
                    double* c = col[k];
                    int32_t x = 0;
                    for (; x + 2 <= width_; x += 2)
                        _mm_storeu_pd(c + x, _mm_add_pd(_mm_loadu_pd(c + x), _mm_loadu_pd(in[k] + x)));
                    for (; x < width_; ++x) c[x] += in[k][x];
                }
            }
            return;
        }
        const size_t plane = size_t(width_) * size_t(height_);
        Buffer<double> planes{size_t(K) * plane};
        for (int32_t y = 0; y < height_; ++y) {
            source.Rows(y, scratch, in);
            for (int k = 0; k < K; ++k)
                std::memcpy(planes.data() + k * plane + size_t(y) * width_, in[k], size_t(width_) * sizeof(double));
        }
        for (int k = 0; k < K; ++k)
            for (int32_t x = 0; x < width_; ++x)
                col[k][x] = WindowSum(planes.data() + k * plane + x, width_, height_, radius_, edgeMode_);
    }

    int32_t width_, height_, radius_, edgeMode_;
    int32_t y_ = 0;
    double inverseArea_;
    Buffer<double> colsum_, entering_, leaving_;
    Buffer<int32_t> add_, sub_;
};

// A plane of doubles as a row source for BoxMeanRows<1>.
struct PlaneRows {
    const double* plane;
    size_t pitch;
    void Rows(int32_t y, double* const*, const double** rows) const { rows[0] = plane + size_t(y) * pitch; }
};

}  // namespace velomar
