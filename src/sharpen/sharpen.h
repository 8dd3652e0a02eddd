// Sharpening and edges: the sliding-histogram building blocks shared with the
// local statistics and noise reduction, and the internal forms of the exports.
#pragma once

#include "core/core.h"

namespace velomar {

// A 256-bin histogram of 16-bit counters, 16-byte aligned.
constexpr int kHistogramBins = 256;

// Accumulator[i] += Histogram[i] (HistogramAdd) or -= (HistogramSub) for all
// 256 counters, modulo 65536. Both arrays must be 16-byte aligned.
void HistogramAdd(uint16_t* Accumulator, const uint16_t* Histogram);
void HistogramSub(uint16_t* Accumulator, const uint16_t* Histogram);

// Border tables for a neighbourhood of the given Radius. ColumnIndex has
// Width + 2 * Radius entries and RowOffset Height + 2 * Radius; entry k stands
// for position k - Radius. ColumnIndex holds source column numbers, RowOffset
// source row * Stride (a byte offset), both mapped by EdgeMode.
void BuildBorderTables(int32_t Radius, int32_t Width, int32_t Height, int32_t Stride,
                       int32_t EdgeMode, int32_t* ColumnIndex, int32_t* RowOffset);

// Internal forms of the exports (same arguments, same results).
void UnsharpMask(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                 int32_t Stride, double Sigma, int32_t Amount, int32_t Threshold);
void HighPass(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
              double Sigma);
void SharpenByHistgram(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                       int32_t Stride, int32_t Radius);
void FindEdges(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
               int32_t Stride);

}  // namespace velomar
