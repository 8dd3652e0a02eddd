// Local mean and variance over a square box: the integer engine shared by the
// standard-deviation filter, the Lee filter and local contrast enhancement.
#include <cmath>

#include "core/neighbourhood.h"
#include "statistics/statistics.h"

namespace velomar {

namespace {

// Beyond this radius the neighbourhood dwarfs any image; such calls return
// without writing (the column sums of squares are kept in 32 bits and the
// border tables would grow without bound).
constexpr int32_t kMaxVarianceRadius = 32767;

// trunc(a / n) for 0 <= a < 2^52 and n >= 1: an estimate from the reciprocal,
// then at most one step of correction either way, so the quotient is exact.
inline int64_t DivideExact(int64_t a, int64_t n, double inv_n) {
    int64_t q = static_cast<int64_t>(static_cast<double>(a) * inv_n);
    if (q * n > a) --q;
    else if ((q + 1) * n <= a) ++q;
    return q;
}

// Below this radius N * 255^2 < 2^32: window sums of values and squares,
// and the sum of squared deviations, fit in 32 unsigned bits.
constexpr int32_t kNarrowRadius = 127;

// trunc(a / n) for a < 2^32 and n <= 65025 from the reciprocal: a + 0.5 keeps
// the product at least 0.5 / n away from an integer, far more than the
// product's rounding error (below 2^-20), so the truncation is exact.
inline uint32_t DivideNarrow(uint32_t a, double inv_n) {
    return static_cast<uint32_t>((static_cast<double>(a) + 0.5) * inv_n);
}

// One layout (Channels 1 or 3). Column sums of values and of squares follow
// the band of 2 Radius + 1 rows; per row and channel, prefix sums over the
// bordered columns give every window's sum S and sum of squares P. The sum
// of squared deviations from the integer mean m is P - 2 m S + N m^2, exact
// in integers, so every output equals the direct formula.
template <int Channels, class Sum>
void MeanVarianceRows(const uint8_t* Src, uint32_t* Variance, uint8_t* Mean, int32_t Width,
                      int32_t Height, int32_t Stride, int32_t Radius, const int32_t* ColumnIndex,
                      const int32_t* RowOffset) {
    const size_t lanes = static_cast<size_t>(Width) * Channels;
    const int32_t span = 2 * Radius + 1;
    const size_t padded = static_cast<size_t>(Width) + 2 * static_cast<size_t>(Radius);
    Buffer<uint32_t> col_sum(lanes, true), col_sq(lanes, true);
    Buffer<Sum> prefix_sum(padded + 1), prefix_sq(padded + 1);
    uint32_t* cs = col_sum.data();
    uint32_t* cq = col_sq.data();
    Sum* ps = prefix_sum.data();
    Sum* pq = prefix_sq.data();
    const int64_t n = static_cast<int64_t>(span) * span;
    const double inv_n = 1.0 / static_cast<double>(n);

    for (int32_t k = 0; k < span; ++k) {
        const uint8_t* row = Src + RowOffset[k];
        for (size_t j = 0; j < lanes; ++j) {
            const uint32_t v = row[j];
            cs[j] += v;
            cq[j] += v * v;
        }
    }

    for (int32_t y = 0; y < Height; ++y) {
        if (y > 0) {
            // Position y + Radius enters, y - Radius - 1 leaves.
            const uint8_t* in = Src + RowOffset[y + 2 * Radius];
            const uint8_t* out = Src + RowOffset[y - 1];
            for (size_t j = 0; j < lanes; ++j) {
                const uint32_t e = in[j], l = out[j];
                cs[j] += e - l;
                cq[j] += e * e - l * l;
            }
        }
        uint32_t* var_row = Variance + static_cast<size_t>(y) * Stride;
        uint8_t* mean_row = Mean + static_cast<size_t>(y) * Stride;
        for (int c = 0; c < Channels; ++c) {
            ps[0] = 0;
            pq[0] = 0;
            for (size_t p = 0; p < padded; ++p) {
                const size_t j = static_cast<size_t>(ColumnIndex[p]) * Channels + c;
                ps[p + 1] = ps[p] + cs[j];
                pq[p + 1] = pq[p] + cq[j];
            }
            for (int32_t x = 0; x < Width; ++x) {
                // Differences of prefix sums: exact even where the prefixes wrap.
                const Sum s = ps[x + span] - ps[x];
                const Sum p = pq[x + span] - pq[x];
                uint32_t m, v;
                if constexpr (sizeof(Sum) == 4) {
                    m = DivideNarrow(s, inv_n);
                    v = DivideNarrow(p - 2 * m * s + static_cast<uint32_t>(n) * m * m, inv_n);
                } else {
                    const int64_t s64 = static_cast<int64_t>(s);
                    m = static_cast<uint32_t>(DivideExact(s64, n, inv_n));
                    const int64_t q = static_cast<int64_t>(p) - 2 * int64_t(m) * s64 + n * int64_t(m) * m;
                    v = static_cast<uint32_t>(DivideExact(q, n, inv_n));
                }
                var_row[x * Channels + c] = v;
                if (Channels == 3) mean_row[x * 3 + c] = static_cast<uint8_t>(m);
            }
        }
    }
}

template <int Channels>
void MeanVarianceLayout(const uint8_t* Src, uint32_t* Variance, uint8_t* Mean, int32_t Width,
                        int32_t Height, int32_t Stride, int32_t Radius,
                        const int32_t* ColumnIndex, const int32_t* RowOffset) {
    if (Radius <= kNarrowRadius)
        MeanVarianceRows<Channels, uint32_t>(Src, Variance, Mean, Width, Height, Stride, Radius,
                                             ColumnIndex, RowOffset);
    else
        MeanVarianceRows<Channels, uint64_t>(Src, Variance, Mean, Width, Height, Stride, Radius,
                                             ColumnIndex, RowOffset);
}

}  // namespace

bool LocalMeanVariance(const uint8_t* Src, uint32_t* Variance, uint8_t* Mean, int32_t Width,
                       int32_t Height, int32_t Stride, int32_t Radius, int32_t EdgeMode) {
    if (!RawArgsValid(Src, Variance, Width, Height, Stride)) return false;
    // A negative radius has no neighbourhood, and one past the limit above
    // dwarfs any image: nothing is written.
    if (Radius < 0 || Radius > kMaxVarianceRadius) return false;
    const bool grey = BytesPerPixel(Width, Stride) == 1;
    // The three-channel walk needs three bytes per pixel in every row.
    if (!grey && (!ThreeBytesFit(Width, Stride) || !Mean)) return false;

    std::memset(Variance, 0, ImageBytes(Height, Stride) * sizeof(uint32_t));
    Buffer<int32_t> column_index(static_cast<size_t>(Width) + 2 * size_t(Radius));
    Buffer<int32_t> row_offset(static_cast<size_t>(Height) + 2 * size_t(Radius));
    BuildBorderTables(Radius, Width, Height, Stride, EdgeMode, column_index.data(),
                      row_offset.data());
    if (grey) {
        MeanVarianceLayout<1>(Src, Variance, Mean, Width, Height, Stride, Radius,
                              column_index.data(), row_offset.data());
    } else {
        // Means written over the source would feed later rows: read from a copy.
        InPlaceCopy source(Src, Mean, ImageBytes(Height, Stride));
        MeanVarianceLayout<3>(source.get(), Variance, Mean, Width, Height, Stride, Radius,
                              column_index.data(), row_offset.data());
    }
    return true;
}

void StdFilter(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
               int32_t Radius, int32_t EdgeMode) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride)) return;
    const size_t bytes = ImageBytes(Height, Stride);
    Buffer<uint32_t> variance(bytes);
    // Where the engine declines, so does the filter: Dest is never filled from
    // an unset array.
    if (!LocalMeanVariance(Src, variance.data(), Dest, Width, Height, Stride, Radius, EdgeMode)) return;
    Buffer<uint8_t> root(65536);
    for (int32_t i = 0; i < 65536; ++i)
        root[i] = static_cast<uint8_t>(TruncToInt(std::sqrt(i + 0.0)));
    // A variance of bytes never exceeds 127.5^2, well inside the table; the
    // mask only keeps the index provably in range.
    for (size_t i = 0; i < bytes; ++i) Dest[i] = root[variance[i] & 0xFFFF];
}

}  // namespace velomar

VL_API void VL_CALL StdFilter(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                              int32_t Height, int32_t Stride, int32_t Radius, int32_t EdgeMode) {
    velomar::Guarded(
        [&] { velomar::StdFilter(Src, Dest, Width, Height, Stride, Radius, EdgeMode); });
}
