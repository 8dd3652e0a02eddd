// Edge-preserving smoothing and denoising: the guided core other subsystems
// call directly, and the internal forms of the exports.
#pragma once

#include "core/core.h"

namespace velomar {

// Guided filter on double planes with row pitch Width; every box mean is
// BoxBlurDouble with EDGE_REPLICATE. Output may be the same plane as Input.
void GuidedFilterCore(const double* Input, const double* Guide, double* Output, int32_t Width,
                      int32_t Height, int32_t Radius, double Epsilon);

// The two orders of the bi-exponential smoothing on one plane of doubles
// (rows Width values apart), in place: every row then every column of the
// result, or every column then every row. Each line runs a forward and a
// backward recursion with feedback Rho, weighted down by the range Gaussian
// of SigmaRange, from the same untouched line.
void SmoothRowsThenColumns(double* Plane, int32_t Width, int32_t Height, double Rho, double SigmaRange);
void SmoothColumnsThenRows(double* Plane, int32_t Width, int32_t Height, double Rho, double SigmaRange);

// The 64 x 64 block of smallest standard deviation among the whole blocks of
// the first Width bytes of each row (the first in row-major order on ties):
// columns X0 .. X1 - 1, rows Y0 .. Y1 - 1. An image narrower or shorter than
// 64 pixels has no whole block; the whole image is the block then.
struct HomogeneousBlock {
    int32_t X0, X1, Y0, Y1;
};
HomogeneousBlock FindHomogeneousBlock(const uint8_t* Src, int32_t Width, int32_t Height, int32_t Stride);
// Iterations diffusion steps of the plane J (Width x Height doubles, rows
// Width apart), the speckle scale measured on Block.
void DiffuseSpeckle(double* J, int32_t Width, int32_t Height, const HomogeneousBlock& Block, int32_t Iterations,
                    double Lambda);

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
void BiExponentialEPF(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                      double Lambda, double SigmaRange);
void RecursiveDomainTransformFilter(const uint8_t* Src, const uint8_t* Guide, uint8_t* Dest, int32_t Width,
                                    int32_t Height, int32_t Stride, double SigmaS, double SigmaR,
                                    int32_t Iterations);
void SpeckleReducingAnisotropicDiffusion(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                                         int32_t Stride, int32_t Iterations, double Lambda);
void ReduceNoise(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                 int32_t Stride, int32_t Radius, int32_t Amount);

}  // namespace velomar
