// Blurs: the internal building blocks other subsystems call, and the internal
// forms of the exports.
#pragma once

#include <type_traits>
#include <vector>

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

// ---- line kernels -------------------------------------------------------------

// One pixel of a line kernel: its offset from the centre and its weight.
struct LineTap {
    int32_t dx, dy, weight;
};
// Line-kernel weights sum to exactly this; the blurs round (sum + half) / total.
constexpr int32_t kLineKernelTotal = 65536;
// Longest line the kernels take, in pixels.
constexpr int32_t kMaxLineDistance = 1000;

// The sub-pixel line kernel of the motion blur (Trailing false: a segment of
// Distance pixels centred on the pixel) or of the linear blur (Trailing true:
// the segment from the pixel back Distance pixels against the direction).
// Angle is in degrees, counter-clockwise as seen on screen (0 points right,
// 90 up). Samples a quarter pixel apart spread bilinearly over the pixels
// around them; the weights are integers summing to kLineKernelTotal. Taps
// come in row order, zero weights left out; Radius is the largest |dx| or
// |dy|. Returns false (Taps empty) for Distance outside 0..kMaxLineDistance
// or a non-finite Angle. Distance 0 is the identity.
bool BuildLineKernel(int32_t Distance, double Angle, bool Trailing, std::vector<LineTap>& Taps,
                     int32_t& Radius);

int32_t GetMotionArray(int32_t* Kernel, int32_t Distance, double Angle);
void MotionBlur(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                int32_t Distance, double Angle, int32_t EdgeMode);
void LinearBlur(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                int32_t Distance, double Angle, int32_t EdgeMode);

// The percentile filter of one plane by a sorting network (median_network.cpp),
// for Radius 1 .. kMaxNetworkRadius: the same bytes as the histogram walk,
// faster for these radii. T is the rank threshold (-1 .. Area - 1); rows
// are SrcStride and DestStride bytes apart and only Width bytes of each Dest
// row are written; Src and Dest must not overlap.
constexpr int32_t kMaxNetworkRadius = 3;
void MedianNetworkPlane(const uint8_t* Src, int32_t SrcStride, uint8_t* Dest, int32_t DestStride, int32_t Width,
                        int32_t Height, int32_t Radius, int32_t T);

// The percentile filter of one plane, borders replicated: each Dest pixel
// becomes the smallest v with more than T samples <= v in its neighbourhood
// (sorting network for small radii, sliding histograms beyond). Radius is
// 1 .. kMaxHistogramRadius, T -1 .. Area - 1; rows are SrcStride and
// DestStride bytes apart, only Width bytes of each Dest row are written, and
// Src and Dest must not overlap.
void PercentilePlane(const uint8_t* Src, int32_t SrcStride, uint8_t* Dest, int32_t DestStride, int32_t Width,
                     int32_t Height, int32_t Radius, int32_t T);

// Each pixel's rank in its neighbourhood: for rows and columns Inset ..
// Height - 1 - Inset and Inset .. Width - 1 - Inset, Sink receives the row
// (counted from 0 at Inset) and, for each of its pixels (counts[0] being
// column Inset), the number of neighbourhood samples at most the pixel's own
// value; neighbourhoods reaching past the plane replicate its borders.
// Radius is 1 .. kMaxHistogramRadius. Up to kMaxDirectCountRadius, with
// Inset >= Radius, the samples are compared directly (rank_count.cpp);
// otherwise the median's sliding histograms count them (median_blur.cpp).
struct CountRowSink {
    void* context = nullptr;
    void (*take)(void* context, int32_t row, const uint16_t* counts) = nullptr;
};
constexpr int32_t kMaxDirectCountRadius = 7;  // counts up to 225 fit a byte
void RankCountPlane(const uint8_t* Src, int32_t SrcStride, int32_t Width, int32_t Height, int32_t Radius,
                    int32_t Inset, CountRowSink Sink);
void HistogramRankCountPlane(const uint8_t* Src, int32_t SrcStride, int32_t Width, int32_t Height,
                             int32_t Radius, int32_t Inset, CountRowSink Sink);
template <class Take>  // take(row, counts)
void RankCountPlane(const uint8_t* Src, int32_t SrcStride, int32_t Width, int32_t Height, int32_t Radius,
                    int32_t Inset, Take&& take) {
    RankCountPlane(Src, SrcStride, Width, Height, Radius, Inset,
                   CountRowSink{&take, [](void* c, int32_t row, const uint16_t* counts) {
                                    (*static_cast<std::remove_reference_t<Take>*>(c))(row, counts);
                                }});
}

// The median row walk in 256-bit form (median_blur_avx2.cpp), same arguments
// and results as the SSE2 walk; called where ActiveIsa() allows AVX2.
template <bool kCount>
void MedianRowAvx2(const uint16_t* cc, const uint16_t* cf, int32_t Width, int32_t Radius,
                   int32_t T, uint16_t* coarse, uint16_t* fine, int32_t* lastColumn,
                   const uint8_t* Centre, uint8_t* Dest, uint16_t* Counts);

}  // namespace velomar
