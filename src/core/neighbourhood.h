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

// ---- sliding histograms ----------------------------------------------------------

// Histograms count in 16 bits: (2 * 127 + 1)^2 = 65025 samples is the largest
// neighbourhood they hold, so every sliding-histogram filter takes radii up to
// this one.
constexpr int32_t kMaxHistogramRadius = 127;

// A 256-bin histogram of 16-bit counters, 16-byte aligned.
constexpr int kHistogramBins = 256;

// Accumulator[i] += Histogram[i] (HistogramAdd) or -= (HistogramSub) for all
// 256 counters, modulo 65536. Both arrays must be 16-byte aligned.
void HistogramAdd(uint16_t* Accumulator, const uint16_t* Histogram);
void HistogramSub(uint16_t* Accumulator, const uint16_t* Histogram);

// The same for 16 counters (a coarse histogram of high nibbles, or one fine
// segment of it), eight lanes at a time; 16-byte aligned.
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
inline void Sub16(uint16_t* acc, const uint16_t* h) {
    Store16(acc, 0, _mm_sub_epi16(Load16(acc, 0), Load16(h, 0)));
    Store16(acc, 1, _mm_sub_epi16(Load16(acc, 1), Load16(h, 1)));
}

// Inclusive running totals of eight 16-bit lanes.
inline __m128i RunningTotals8(__m128i v) {
    v = _mm_add_epi16(v, _mm_slli_si128(v, 2));
    v = _mm_add_epi16(v, _mm_slli_si128(v, 4));
    return _mm_add_epi16(v, _mm_slli_si128(v, 8));
}

}  // namespace velomar
