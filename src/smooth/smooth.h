// Edge-preserving smoothing and denoising: the guided core other subsystems
// call directly, and the internal forms of the exports.
#pragma once

#include "core/core.h"

namespace velomar {

// Guided filter on double planes with row pitch Width; every box mean is
// BoxBlurDouble with EDGE_REPLICATE. Output may be the same plane as Input.
void GuidedFilterCore(const double* Input, const double* Guide, double* Output, int32_t Width,
                      int32_t Height, int32_t Radius, double Epsilon);

// Internal forms of the exports (same arguments, same results).
void BilateralFilter(const uint8_t* Src, const uint8_t* Guide, uint8_t* Dest, int32_t Width,
                     int32_t Height, int32_t Stride, int32_t Downsample, double SigmaSpatial,
                     double SigmaRange, int32_t UseGaussian);
void GuidedFilter(const uint8_t* Src, const uint8_t* Guide, uint8_t* Dest, int32_t Width,
                  int32_t Height, int32_t Stride, int32_t Radius, double Epsilon);
void LeeAdditvieNoiseFilter(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                            int32_t Stride, int32_t Radius, int32_t NoiseVariance);
void Wiener2(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
             int32_t Radius, int32_t Noise, int32_t EdgeMode);
void ReduceNoise(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                 int32_t Stride, int32_t Radius, int32_t Amount);

}  // namespace velomar
