// Enhancement: the building blocks other enhancement filters call, and the
// internal forms of the exports.
#pragma once

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

}  // namespace velomar
