// Blurs: the internal building blocks other subsystems call, and the internal
// forms of the exports.
#pragma once

#include "core/core.h"

namespace velomar {

// Box mean over a single-channel plane of doubles; Stride counts doubles. The
// bilateral and Wiener filters call it; the guided filter runs the same box
// means (box_mean.h) fused into two streams of rows.
// Running sums are never re-summed within a call (their rounding drift is part
// of the result); each output is the box sum times 1.0 / Area. Src may equal
// Dest.
void BoxBlurDouble(const double* Src, double* Dest, int32_t Width, int32_t Height,
                   int32_t Stride, int32_t Radius, int32_t EdgeMode);

// Recursive Gaussian over a single-channel plane of doubles, no rounding;
// Stride counts doubles. Src may equal Dest.
void GaussBlurDouble(const double* Src, double* Dest, int32_t Width, int32_t Height,
                     int32_t Stride, double Sigma);

// Internal forms of the exports (same arguments, same results).
void BoxBlur(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
             int32_t Radius, int32_t EdgeMode);
void GuassBlur(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
               int32_t Stride, double Sigma);
void MedianBlur(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                int32_t Stride, int32_t Radius, int32_t Percent);

// The median row walk in 256-bit form (median_blur_avx2.cpp), same arguments
// and results as the SSE2 walk; called where ActiveIsa() allows AVX2.
void MedianRowAvx2(const uint16_t* cc, const uint16_t* cf, int32_t Width, int32_t Radius,
                   int32_t T, uint16_t* coarse, uint16_t* fine, int32_t* lastColumn,
                   uint8_t* Dest);

}  // namespace velomar
