// Tone and colour adjustments: internal building blocks shared with other
// subsystems (curve appliers, histogram builders) and the internal forms of
// the exports.
#pragma once

#include "core/core.h"

namespace velomar {

// Maps pixels through 256-entry curves: grey buffers (Stride / Width == 1) as
// one flat run of Height * Stride bytes through TableBlue; anything else as
// three bytes per pixel (blue, green, red tables), each row followed by a skip
// of Stride % Width bytes (not the true padding: kept as the applier's rule).
void ApplyCurveTables(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                      int32_t Stride, const uint8_t* TableBlue, const uint8_t* TableGreen,
                      const uint8_t* TableRed);

// Matrix form: Channel 1 maps all WidthStep * Height bytes, Channel 3 maps
// per pixel skipping the row padding, Channel 2 and 4 are left untouched.
Status ApplyCurveTablesMatrix(const Matrix* Src, Matrix* Dest, const uint8_t* TableBlue,
                              const uint8_t* TableGreen, const uint8_t* TableRed);

// Histogram builders (256 counters each). Grey input (Stride / Width == 1)
// counts the grey bytes; other layouts are read three bytes per pixel.
void ComputeChannelHistograms(const uint8_t* Src, int32_t Width, int32_t Height, int32_t Stride,
                              uint32_t* HistBlue, uint32_t* HistGreen, uint32_t* HistRed);
void ComputeCombinedHistogram(const uint8_t* Src, int32_t Width, int32_t Height, int32_t Stride,
                              uint32_t* Hist);
void ComputeLuminanceHistogram(const uint8_t* Src, int32_t Width, int32_t Height, int32_t Stride,
                               uint32_t* Hist);

// Internal forms of the raw-form exports (same arguments, same results).
void GammaCorrection(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                     int32_t Stride, double Gamma);
void Level(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
           int32_t InputLow, double Gamma, int32_t InputHigh, int32_t OutputLow,
           int32_t OutputHigh);
void Threshold(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
               int32_t Threshold);
void AdjustBrightnessAndContrast(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                                 int32_t Stride, int32_t Brightness, int32_t Contrast);
void AutoLevel(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
               double ClipFraction, bool AutoGamma);
void AutoContrast(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                  int32_t Stride, double ClipFraction, bool AutoGamma);
void AutoColor(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
               double ClipFraction, bool AutoGamma);
void HistEqualize(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                  int32_t Stride);
void SoftGlow(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
              int32_t Sigma, int32_t Brightness, int32_t Contrast);
void Exposal(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride);
void ColorTransfer(const uint8_t* Reference, const uint8_t* Target, uint8_t* Dest,
                   int32_t ReferenceWidth, int32_t ReferenceHeight, int32_t ReferenceStride,
                   int32_t Width, int32_t Height, int32_t Stride);

}  // namespace velomar
