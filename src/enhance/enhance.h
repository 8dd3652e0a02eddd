// Enhancement: the building blocks other enhancement filters call, and the
// internal forms of the exports.
#pragma once

#include "adjust/colour_space.h"  // the HSV rows (RowBgrToHsv, RowHsvToBgr) live there
#include "core/core.h"

namespace velomar {

// ---- colour planes ----------------------------------------------------------------

// Runs filter(value) on the HSV value of Width x Height three-byte pixels, an
// unpadded byte plane (rows Width apart) filtered in place, then writes each
// pixel back from its hue, saturation and filtered value. All of Src is read
// before Dest is written: Src may equal Dest.
template <class Filter>
void FilterHsvValue(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                    Filter&& filter) {
    const size_t plane = size_t(Width) * size_t(Height);
    Buffer<uint8_t> value(plane);
    Buffer<double> hsv(3 * plane);
    for (int32_t y = 0; y < Height; ++y) {
        double* h = hsv.data() + 3 * size_t(y) * Width;
        RowBgrToHsv(Width, Src + size_t(y) * Stride, h);
        // V is the largest byte: a whole number.
        for (int32_t x = 0; x < Width; ++x) value[size_t(y) * Width + x] = static_cast<uint8_t>(TruncToInt(h[3 * x + 2]));
    }
    filter(value.data());
    for (int32_t y = 0; y < Height; ++y) {
        double* h = hsv.data() + 3 * size_t(y) * Width;
        for (int32_t x = 0; x < Width; ++x) h[3 * x + 2] = value[size_t(y) * Width + x];
        RowHsvToBgr(Width, h, Dest + size_t(y) * Stride);
    }
}

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

// ---- haze removal --------------------------------------------------------------

// Pixels are read as three bytes (blue, green, red); rows that cannot hold
// them are left alone. Transmission and mask maps hold one byte per pixel,
// rows Width apart.

// Resamples grey or three-byte pixels (bytes per pixel SrcStride / SrcWidth):
// Mode 0 nearest neighbour in 16.16 steps (a row that maps to the source row
// of the row before is copied from it), Mode 1 bilinear with 8-bit weights,
// centre-aligned, over a replicated one-pixel border. Other modes and layouts
// write nothing.
void Resize(int32_t Mode, const uint8_t* Src, int32_t SrcWidth, int32_t SrcHeight, int32_t SrcStride,
            uint8_t* Dest, int32_t DestWidth, int32_t DestHeight, int32_t DestStride);
// Three tables of 256 x 256 bytes, one per channel k: value v with
// transmission byte t recovers to clamp((v - A_k) 255 / max(t, 25) + A_k),
// truncating; the floor of 25 keeps thin transmissions from blowing up.
void BuildRecoveryTables(const int32_t A[3], uint8_t* Tables);
// Segmentation of the image into four brightness levels: the luminance
// histogram is clustered (levels start at its quantiles and move to the
// rounded means of the values nearest to them, in integers, until none
// moves) and every pixel gets the value of its level. Bright uniform regions
// come out large and flat. No randomness: the same image gives the same map
// on every platform.
void SegmentBrightRegions(const uint8_t* Src, uint8_t* Map, int32_t Width, int32_t Height, int32_t Stride);
// 255 where the segmentation map is flat (no edge above 19 after inversion)
// and the pixel is not dominated by green (B + G + R > 2.5 G), else 0.
void DetectSkyMask(const uint8_t* Src, uint8_t* Mask, int32_t Width, int32_t Height, int32_t Stride);
// Transmission map T (bytes, t x 255) and atmospheric light from the
// minimum-filtered dark channel, sky pixels taken as dark value 96, refined
// by the guided filter with the pixel sums as guide.
void EstimateTransmission(const uint8_t* Src, int32_t Width, int32_t Height, int32_t Stride, int32_t Radius,
                          int32_t GuidedRadius, uint8_t* T, int32_t& AB, int32_t& AG, int32_t& AR, double Omega,
                          double Eps);
void HazeRemovalBasedOnDarkChannelPrior(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                                        int32_t Stride, double Scale);
void HazeRemovalBasedOnBoxBlur(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                               int32_t Radius, double Strength);
void HazeRemovalBasedonContrastEnhancement(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                                           int32_t Stride, int32_t BlockSize, double LossWeight, int32_t Radius);

// ---- high dynamic range ----------------------------------------------------------

// Tone mapping of Width x Height three-channel double pixels (0..1, rows
// 3 Width apart): the log base layer of a self-guided filter of the intensity
// (40 G + 21 B) / 61 is compressed to a 5:1 contrast with its top at full
// intensity, the detail layer kept. A constant base layer is not compressed
// (the detail alone remains); a pixel of intensity 0 keeps its values. Out
// may be In.
void ToneMapByGuidedFilter(const double* In, double* Out, int32_t Width, int32_t Height, int32_t Radius);
void HdrBasedOnExposureBlending(const uint8_t* Src, const uint8_t* ForShadows, const uint8_t* ForHighlights,
                                uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride, int32_t Radius);
void HdrBasedOnGuiderFilter(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                            int32_t Radius);

// ---- contrast enhancement ----------------------------------------------------------

void LeeContrastEnhancement(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                            int32_t Radius, int32_t Amount, int32_t InputLow, int32_t InputHigh);
void DetailEnhanceByEdgePreseveingFilter(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                                         int32_t Stride, int32_t Radius, int32_t Amount);
void LSDContrastEnhancement(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                            int32_t Radius, int32_t Amount, int32_t MaxGain);
void AdaptiveGammaCorrection(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                             double Alpha, uint8_t UseHsv);

// ---- skin smoothing ----------------------------------------------------------------

// The tone lift: ToneMode 0 logarithmic, 1 parabolic in the mid-tones, any
// other mode the identity.
void DermabrasionToneTable(int32_t ToneMode, int32_t ToneAmount, uint8_t* Table);
void DermabrasionFilter(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                        int32_t FilterType, int32_t ToneMode, int32_t Level, int32_t ToneAmount);

}  // namespace velomar
