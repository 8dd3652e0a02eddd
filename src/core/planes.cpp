// Plane split and merge for filters that work one channel at a time.
#include "core/planes.h"

namespace velomar {

void SplitPlanes(const uint8_t* Src, int32_t Width, int32_t Height, int32_t Stride,
                 uint8_t* Plane0, uint8_t* Plane1, uint8_t* Plane2) {
    for (int32_t y = 0; y < Height; ++y) {
        const uint8_t* s = Src + size_t(y) * Stride;
        const size_t row = size_t(y) * Width;
        for (int32_t x = 0; x < Width; ++x, s += 3) {
            Plane0[row + x] = s[0];
            Plane1[row + x] = s[1];
            Plane2[row + x] = s[2];
        }
    }
}

void MergePlanes(const uint8_t* Plane0, const uint8_t* Plane1, const uint8_t* Plane2,
                 int32_t Width, int32_t Height, int32_t Stride, uint8_t* Dest) {
    for (int32_t y = 0; y < Height; ++y) {
        uint8_t* d = Dest + size_t(y) * Stride;
        const size_t row = size_t(y) * Width;
        for (int32_t x = 0; x < Width; ++x, d += 3) {
            d[0] = Plane0[row + x];
            d[1] = Plane1[row + x];
            d[2] = Plane2[row + x];
        }
    }
}

}  // namespace velomar
