// Noise reduction against local histogram equalisation: the rank of each pixel
// in its neighbourhood gives the value local equalisation would produce, and
// the pixel steps the other way, less for bright pixels.
#include <emmintrin.h>

#include "core/neighbourhood.h"
#include "core/planes.h"
#include "smooth/smooth.h"

namespace velomar {

namespace {

inline int32_t HorizontalSum(__m128i acc) {
    acc = _mm_add_epi16(acc, _mm_srli_si128(acc, 8));
    acc = _mm_add_epi16(acc, _mm_srli_si128(acc, 4));
    acc = _mm_add_epi16(acc, _mm_srli_si128(acc, 2));
    return _mm_cvtsi128_si32(acc) & 0xFFFF;
}

// Q, the sum of the counters 0 ... v of a histogram that holds N values in
// all. The shorter side is summed: from below for dark values, N minus the
// counters above v for bright ones. Every partial sum is at most N < 65536,
// so 16-bit lanes hold it exactly.
inline int32_t CountUpTo(const uint16_t* hist, int32_t v, int32_t N) {
    const __m128i* h = reinterpret_cast<const __m128i*>(hist);
    const __m128i lanes = _mm_set_epi16(7, 6, 5, 4, 3, 2, 1, 0);
    if (v < 128) {
        const int32_t full = v >> 3;
        // Lanes 0 ... v & 7 of the last vector.
        const __m128i keep = _mm_cmpgt_epi16(_mm_set1_epi16(int16_t((v & 7) + 1)), lanes);
        __m128i acc = _mm_and_si128(keep, _mm_load_si128(h + full));
        for (int32_t i = 0; i < full; ++i) acc = _mm_add_epi16(acc, _mm_load_si128(h + i));
        return HorizontalSum(acc);
    }
    if (v == 255) return N;
    const int32_t first = (v + 1) >> 3;
    // Lanes (v + 1) & 7 ... 7 of the first vector.
    const __m128i keep = _mm_cmpgt_epi16(lanes, _mm_set1_epi16(int16_t(((v + 1) & 7) - 1)));
    __m128i acc = _mm_and_si128(keep, _mm_load_si128(h + first));
    for (int32_t i = first + 1; i < kHistogramBins / 8; ++i) acc = _mm_add_epi16(acc, _mm_load_si128(h + i));
    return N - HorizontalSum(acc);
}

// One byte per pixel, Src and Dest distinct, 0 <= Radius <= kMaxRadius.
void ReducePlane(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                 int32_t Stride, int32_t Radius, int32_t Amount) {
    Buffer<int32_t> columnIndex(size_t(Width) + 2 * size_t(Radius));
    Buffer<int32_t> rowOffset(size_t(Height) + 2 * size_t(Radius));
    BuildBorderTables(Radius, Width, Height, Stride, EDGE_REFLECT, columnIndex.data(),
                      rowOffset.data());
    SlidingHistogram<false> window(Src, Width, Radius, 1, 0, columnIndex.data(), rowOffset.data());

    const int32_t N = (2 * Radius + 1) * (2 * Radius + 1);
    const double K = Amount * (-0.2) / 100.0;
    // (Q * 255) / N for every possible rank Q, and the brightness damping
    // 1 - 0.75 * v / 255.0 for every value.
    Buffer<int32_t> equalised(size_t(N) + 1);
    for (int32_t q = 0; q <= N; ++q) equalised[q] = (q * 255) / N;
    double damping[256];
    for (int32_t v = 0; v < 256; ++v) damping[v] = 1 - 0.75 * v / 255.0;

    for (int32_t y = 0; y < Height; ++y) {
        const uint8_t* s = Src + size_t(y) * Stride;
        uint8_t* d = Dest + size_t(y) * Stride;
        window.Row(y, [&](int32_t x, const uint16_t* hist, const uint16_t*) {
            const int32_t v = s[x];
            const int32_t e = equalised[CountUpTo(hist, v, N)] - v;
            d[x] = ClampByte(TruncToInt(v + e * damping[v] * K));
        });
    }
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
