// Sharpening and edges: the internal forms of the exports.
#pragma once

#include "core/core.h"

namespace velomar {

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
