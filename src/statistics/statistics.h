// Local statistics: the integer mean/variance engine and the internal forms of
// the exports, shared with smoothing and enhancement.
#pragma once

#include "core/core.h"

namespace velomar {

// Per pixel and channel over the (2 Radius + 1)^2 box (borders by EdgeMode):
// m = trunc(S / N) and Variance = trunc(sum (p - m)^2 / N), exact signed 32-bit
// integer arithmetic. Variance has Height * Stride entries indexed like the
// image bytes (padding positions 0). In the three-channel layout each m is
// also written to Mean at the pixel's byte; in the grey layout Mean is not
// written. Returns false, having written nothing, for arguments it declines
// (null buffers, an empty image, a short Stride or two-byte layout, Radius
// outside 0 .. 32767); a caller must then decline too.
bool LocalMeanVariance(const uint8_t* Src, uint32_t* Variance, uint8_t* Mean, int32_t Width,
                       int32_t Height, int32_t Stride, int32_t Radius, int32_t EdgeMode);

// Internal forms of the exports (same arguments, same results).
void MinValue(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
              int32_t Radius);
void MaxValue(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
              int32_t Radius);
void RangeFilter(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                 int32_t Stride, int32_t Radius);
void StdFilter(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
               int32_t Radius, int32_t EdgeMode);
void EntropyFilter(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                   int32_t Stride, int32_t Radius, int32_t EdgeMode);
void Fragment(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
              int32_t Count, int32_t Distance, double Angle);

}  // namespace velomar
