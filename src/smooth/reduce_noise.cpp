// Noise reduction against local histogram equalisation: the rank of each pixel
// in its neighbourhood gives the value local equalisation would produce, and
// the pixel steps the other way, less for bright pixels.
#include "blur/blur.h"
#include "core/neighbourhood.h"
#include "core/planes.h"
#include "smooth/smooth.h"

namespace velomar {

namespace {

// One byte per pixel, Src and Dest distinct, 0 <= Radius <= kMaxRadius.
void ReducePlane(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                 int32_t Stride, int32_t Radius, int32_t Amount) {
    const int32_t N = (2 * Radius + 1) * (2 * Radius + 1);
    const double K = Amount * (-0.2) / 100.0;
    // (Q * 255) / N for every possible rank Q; then, for every equalised
    // value and every pixel value v, the result of stepping away from it with
    // the brightness damping 1 - 0.75 * v / 255.0.
    Buffer<uint8_t> equalised(size_t(N) + 1);
    for (int32_t q = 0; q <= N; ++q) equalised[q] = uint8_t((q * 255) / N);
    Buffer<uint8_t> result(256 * 256);
    for (int32_t v = 0; v < 256; ++v) {
        const double damping = 1 - 0.75 * v / 255.0;
        for (int32_t eq = 0; eq < 256; ++eq) {
            const int32_t e = eq - v;
            result[size_t(eq) * 256 + v] = ClampByte(TruncToInt(v + e * damping * K));
        }
    }

    if (Radius == 0) {  // a lone sample ranks 1
        for (int32_t y = 0; y < Height; ++y) {
            const uint8_t* s = Src + size_t(y) * Stride;
            uint8_t* d = Dest + size_t(y) * Stride;
            for (int32_t x = 0; x < Width; ++x) d[x] = result[size_t(equalised[1]) * 256 + s[x]];
        }
        return;
    }
    // Q, each pixel's count of neighbourhood samples (mirrored at the
    // borders) at most its own value. The plane is padded so that the
    // count's own border rule never comes into play.
    const int32_t pitch = Width + 2 * Radius;
    const Buffer<uint8_t> padded = PadPlane(Src, Width, Height, Stride, Radius, EDGE_REFLECT);
    RankCountPlane(padded.data(), pitch, pitch, Height + 2 * Radius, Radius, Radius,
                   [&](int32_t y, const uint16_t* counts) {
                       const uint8_t* s = Src + size_t(y) * Stride;
                       const uint16_t* q = counts;
                       uint8_t* d = Dest + size_t(y) * Stride;
                       for (int32_t x = 0; x < Width; ++x) d[x] = result[size_t(equalised[q[x]]) * 256 + s[x]];
                   });
}

// Runs the plane filter on the first Width bytes of each row.
void ReduceGrey(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                int32_t Stride, int32_t Radius, int32_t Amount) {
    if (BytesPerPixel(Width, Stride) == 1) {
        InPlaceCopy source(Src, Dest, ImageBytes(Height, Stride));
        ReducePlane(source.get(), Dest, Width, Height, Stride, Radius, Amount);
        return;
    }
    // Other layouts (2, or 4 and more bytes per pixel): the first Width bytes
    // of each row as an unpadded plane, written back; the rest of every row is
    // left alone.
    const size_t count = size_t(Width) * size_t(Height);
    Buffer<uint8_t> in(count), out(count);
    for (int32_t y = 0; y < Height; ++y)
        std::memcpy(in.data() + size_t(y) * Width, Src + size_t(y) * Stride, size_t(Width));
    ReducePlane(in.data(), out.data(), Width, Height, Width, Radius, Amount);
    for (int32_t y = 0; y < Height; ++y)
        std::memcpy(Dest + size_t(y) * Stride, out.data() + size_t(y) * Width, size_t(Width));
}

}  // namespace

void ReduceNoise(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                 int32_t Stride, int32_t Radius, int32_t Amount) {
    // Null buffers and empty images return without writing; so does a radius
    // outside 0 ... 127, whose neighbourhood the 16-bit counters cannot hold.
    if (!RawArgsValid(Src, Dest, Width, Height, Stride) || Radius < 0 || Radius > kMaxHistogramRadius)
        return;
    if (BytesPerPixel(Width, Stride) != 3) {
        ReduceGrey(Src, Dest, Width, Height, Stride, Radius, Amount);
        return;
    }
    // Three bytes per pixel: each channel as its own plane.
    FilterColourPlanes(Src, Dest, Width, Height, Stride, [&](int32_t, const uint8_t* in, uint8_t* out) {
        ReducePlane(in, out, Width, Height, Width, Radius, Amount);
    });
}

}  // namespace velomar

VL_API void VL_CALL ReduceNoise(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                int32_t Height, int32_t Stride, int32_t Radius, int32_t Amount) {
    velomar::Guarded(
        [&] { velomar::ReduceNoise(Src, Dest, Width, Height, Stride, Radius, Amount); });
}
