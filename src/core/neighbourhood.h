// Square-neighbourhood building blocks: border tables and the 16-bit counter
// arithmetic of sliding histograms, shared by the median, rank, noise and
// entropy filters.
#pragma once

#include "core/core.h"

namespace velomar {

// Border tables for a neighbourhood of the given Radius. ColumnIndex has
// Width + 2 * Radius entries and RowOffset Height + 2 * Radius; entry k stands
// for position k - Radius. ColumnIndex holds source column numbers, RowOffset
// source row * Stride (a byte offset), both mapped by EdgeMode.
void BuildBorderTables(int32_t Radius, int32_t Width, int32_t Height, int32_t Stride,
                       int32_t EdgeMode, int32_t* ColumnIndex, int32_t* RowOffset);

// A copy of one plane (Width bytes of each row, rows Stride apart) with
// Radius more pixels on every side, placed by EdgeMode through the border
// tables; rows Width + 2 * Radius bytes apart.
Buffer<uint8_t> PadPlane(const uint8_t* Src, int32_t Width, int32_t Height, int32_t Stride, int32_t Radius,
                         int32_t EdgeMode);

// ---- sliding histograms ----------------------------------------------------------

// Histograms count in 16 bits: (2 * 127 + 1)^2 = 65025 samples is the largest
// neighbourhood they hold, so every sliding-histogram filter takes radii up to
// this one.
constexpr int32_t kMaxHistogramRadius = 127;

// A 256-bin histogram of 16-bit counters, 16-byte aligned.
constexpr int kHistogramBins = 256;

// 16 counters (a coarse histogram of high nibbles, or one fine segment of
// it), eight lanes at a time, modulo 65536; 16-byte aligned.
inline __m128i Load16(const uint16_t* p, int half) {
    return _mm_load_si128(reinterpret_cast<const __m128i*>(p) + half);
}
inline void Store16(uint16_t* p, int half, __m128i v) {
    _mm_store_si128(reinterpret_cast<__m128i*>(p) + half, v);
}
inline void Add16(uint16_t* acc, const uint16_t* h) {
    Store16(acc, 0, _mm_add_epi16(Load16(acc, 0), Load16(h, 0)));
    Store16(acc, 1, _mm_add_epi16(Load16(acc, 1), Load16(h, 1)));
}

// Inclusive running totals of eight 16-bit lanes.
inline __m128i RunningTotals8(__m128i v) {
    v = _mm_add_epi16(v, _mm_slli_si128(v, 2));
    v = _mm_add_epi16(v, _mm_slli_si128(v, 4));
    return _mm_add_epi16(v, _mm_slli_si128(v, 8));
}

// The rank search of a sliding histogram: the first of 16 counters (h0: 0..7,
// h1: 8..15) at which the running total, started at `start` (in every lane),
// reaches `target` (in every lane); the running totals are left in
// running[0..15] (16-byte aligned). Totals never exceed 65025 and are
// compared unsigned; the last one must reach the target, so the result is
// 0..15.
// Inclusive running totals of 16 counters (h0: 0..7, h1: 8..15), started at
// `start` (in every lane), into h0 and h1 and running[0..15] (16-byte aligned).
inline void RunningTotals16(__m128i& h0, __m128i& h1, __m128i start, uint16_t* running) {
    h0 = _mm_add_epi16(RunningTotals8(h0), start);
    // Lane 7 of the lower half carries into every lane of the upper half.
    const __m128i carry = _mm_shufflehi_epi16(h0, 0xFF);
    h1 = _mm_add_epi16(RunningTotals8(h1), _mm_unpackhi_epi64(carry, carry));
    Store16(running, 0, h0);
    Store16(running, 1, h1);
}

inline int32_t FirstReaching16(__m128i h0, __m128i h1, __m128i start, __m128i target, uint16_t* running) {
    RunningTotals16(h0, h1, start, running);
    // target - total saturates to 0 exactly where total >= target.
    const __m128i zero = _mm_setzero_si128();
    const uint32_t reached =
        uint32_t(_mm_movemask_epi8(_mm_cmpeq_epi16(_mm_subs_epu16(target, h0), zero))) |
        (uint32_t(_mm_movemask_epi8(_mm_cmpeq_epi16(_mm_subs_epu16(target, h1), zero))) << 16);
    return __builtin_ctz(reached) >> 1;
}

// The column histograms behind a neighbourhood histogram that slides over one
// plane, row after row: one 256-counter histogram per source column follows
// the band of rows y - Radius .. y + Radius. Along a row the window's
// histogram then adds the column entering on the right and subtracts the one
// leaving on the left; border columns share their source column's histogram
// through the column table. Pixels of the plane lie Step bytes apart from
// byte Channel of each row; RowOffset is BuildBorderTables' for this Radius
// (at most kMaxHistogramRadius).
class SlidingHistogram {
public:
    SlidingHistogram(const uint8_t* src, int32_t width, int32_t radius, int32_t step, int32_t channel,
                     const int32_t* rowOffset)
        : src_(src + channel), width_(width), radius_(radius), step_(step), rowOffset_(rowOffset),
          fine_(size_t(width) * kHistogramBins, true) {}

    // Moves the column histograms to the band of row y. Rows must come in
    // order from 0.
    void Advance(int32_t y) {
        if (y == 0) {
            for (int32_t k = 0; k <= 2 * radius_; ++k) Columns(k, 1);
        } else {
            Columns(y - 1, 0xFFFF);           // position y - Radius - 1 leaves (counters wrap)
            Columns(y + 2 * radius_, 1);      // position y + Radius enters
        }
    }

    // The histogram of source column x over the current band (16-byte
    // aligned, 256 counters).
    const uint16_t* Column(int32_t x) const { return fine_.data() + size_t(x) * kHistogramBins; }

private:
    // Adds delta (modulo 65536) for every pixel of the row at table entry k.
    void Columns(int32_t k, uint16_t delta) {
        const uint8_t* row = src_ + rowOffset_[k];
        uint16_t* f = fine_.data();
        for (int32_t x = 0; x < width_; ++x) f[size_t(x) * kHistogramBins + row[size_t(x) * step_]] += delta;
    }

    const uint8_t* src_;
    int32_t width_, radius_, step_;
    const int32_t* rowOffset_;
    Buffer<uint16_t> fine_;
};

}  // namespace velomar
