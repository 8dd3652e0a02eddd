// Colour pixels as three planes, for filters that work one channel at a time.
#pragma once

#include "core/core.h"

namespace velomar {

// Copies bytes 0, 1, 2 of each three-byte pixel into three unpadded planes of
// Width * Height bytes, and back. Bytes of a row beyond 3 * Width are neither
// read nor written.
void SplitPlanes(const uint8_t* Src, int32_t Width, int32_t Height, int32_t Stride,
                 uint8_t* Plane0, uint8_t* Plane1, uint8_t* Plane2);
void MergePlanes(const uint8_t* Plane0, const uint8_t* Plane1, const uint8_t* Plane2,
                 int32_t Width, int32_t Height, int32_t Stride, uint8_t* Dest);

// Runs filter(channel, plane, result) for bytes 0, 1 and 2 of every
// three-byte pixel, each as an unpadded plane (rows Width bytes apart), and
// writes the three results into Dest's pixels. A result plane starts as Dest's
// own bytes, so pixels a filter leaves alone keep them. Src is read in full
// before Dest is written: Src may equal Dest. The row must hold 3 * Width
// bytes.
template <class Filter>
void FilterColourPlanes(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                        int32_t Stride, Filter&& filter) {
    const size_t n = size_t(Width) * size_t(Height);
    Buffer<uint8_t> in(3 * n), out(3 * n);
    SplitPlanes(Src, Width, Height, Stride, in.data(), in.data() + n, in.data() + 2 * n);
    SplitPlanes(Dest, Width, Height, Stride, out.data(), out.data() + n, out.data() + 2 * n);
    for (int32_t c = 0; c < 3; ++c) filter(c, in.data() + c * n, out.data() + c * n);
    MergePlanes(out.data(), out.data() + n, out.data() + 2 * n, Width, Height, Stride, Dest);
}

// The same for filters that work on a plane in place, filter(channel, plane),
// and write every pixel: one set of planes instead of two.
template <class Filter>
void FilterColourPlanesInPlace(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                               int32_t Stride, Filter&& filter) {
    const size_t n = size_t(Width) * size_t(Height);
    Buffer<uint8_t> planes(3 * n);
    SplitPlanes(Src, Width, Height, Stride, planes.data(), planes.data() + n, planes.data() + 2 * n);
    for (int32_t c = 0; c < 3; ++c) filter(c, planes.data() + c * n);
    MergePlanes(planes.data(), planes.data() + n, planes.data() + 2 * n, Width, Height, Stride, Dest);
}

}  // namespace velomar
