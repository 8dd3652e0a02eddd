// Enhancement: the building blocks other enhancement filters call, and the
// internal forms of the exports.
#pragma once

#include "adjust/colour_space.h"  // the HSV rows (RowBgrToHsv, RowHsvToBgr) live there
#include "core/core.h"

namespace velomar {

// ---- tiled tone mapping ----------------------------------------------------------

// What AdaptiveTileMapping computes for each tile.
enum class TileMode : int32_t { Equalize = 0, AutoLevel = 1, AutoContrast = 2 };

// Contrast limiting of a 256-bin histogram: counts above ClipLimit are cut to
// it and the excess is spread over the bins still below it.
void ClipHistogram(int32_t* Table, int32_t ClipLimit);
// Overwrites the counts with the equalising curve trunc(cumulative * 255 / total).
void EqualizeTable(int32_t* Table);
// Overwrites the counts with the stretch that maps the CutOff-trimmed range
// onto the occupied range widened by Expand.
void LevelTable(int32_t* Table, double CutOff, double Expand);

// Tone curves computed per tile of a TilesX x TilesY grid and blended
// bilinearly between neighbouring tiles. Grey or three bytes per pixel (other
// layouts, tile counts below 1, null buffers, or a grid so much larger than
// the image that its mirrored border would leave the image: nothing is
// written). Src may equal Dest.
void AdaptiveTileMapping(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                         int32_t Stride, int32_t TilesX, int32_t TilesY, int32_t Separate,
                         TileMode Mode, double D1, double D2);

// Internal forms of the exports (same arguments, same results).
void AdaptEqualize(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                   int32_t TilesX, int32_t TilesY, double CutLimit, int32_t Separate);
void AdaptAutoLevel(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                    int32_t TilesX, int32_t TilesY, double CutOff, double Expand);
void AdaptAutoContrast(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                       int32_t Stride, int32_t TilesX, int32_t TilesY, double CutOff, double Expand);

// ---- white balance -------------------------------------------------------------

// Three bytes per pixel (grey world: only where Stride / Width is 3). Where no
// pixel qualifies as the reference white, the image passes through unchanged.
void AutoWhiteBalanceUseDynamicThreshold(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                                         int32_t Stride, int32_t BlockSize, uint8_t Global, uint8_t Squared);
void AutoWhiteBalanceUseReflectorTheory(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                                        int32_t Stride, int32_t Ratio);
void AutoWhiteBalanceUseStandardGrayWorldModel(const uint8_t* Src, uint8_t* Dest, int32_t Width,
                                               int32_t Height, int32_t Stride);

// ---- Retinex -------------------------------------------------------------------

// Out (Height * Stride doubles, row padding positions included) receives the
// mean over NScales (at least 1) Gaussian scales of ln(v + 1) - ln(blur + 1).
// One scale is Sigma; two are Sigma / 2 and Sigma; more are spread evenly from
// 2 by Sigma / NScales.
void MultiScaleRetinex(int32_t NScales, const uint8_t* Src, double* Out, int32_t Width, int32_t Height,
                       int32_t Stride, double Sigma);
// Doubles to bytes per channel (grey, or three per pixel): the range of
// Dynamic deviations about the mean is stretched over 0..255, truncated and
// clamped. Only pixel bytes are written.
void StretchByDeviation(const double* In, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                        double Dynamic);
void MSRCRGIMP(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride, double Sigma,
               int32_t NScales, double Dynamic);
void MSRHSV(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride, double Sigma,
            int32_t NScales, double Dynamic);

}  // namespace velomar
