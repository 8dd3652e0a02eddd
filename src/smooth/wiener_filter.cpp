// Adaptive Wiener filter: each pixel moves toward its box mean by how the local
// variance compares with the noise variance.
#include <emmintrin.h>

#include "blur/blur.h"
#include "core/planes.h"
#include "smooth/smooth.h"

namespace velomar {

namespace {

// Scratch of the plane filter: squares and their box means, Width * Height
// doubles each (unpadded: the box mean of an element does not depend on the
// pitch). Shared by the three planes of a colour image.
struct WienerScratch {
    explicit WienerScratch(size_t count) : squares(count), moments(count) {}
    Buffer<double> squares, moments;
};

// One byte per pixel, Src and Dest distinct, Stride bytes per row of which the
// first Width are treated.
void WienerPlane(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                 int32_t Stride, int32_t Radius, int32_t Noise, int32_t EdgeMode,
                 WienerScratch& scratch) {
    // Local means m straight into Dest.
    BoxBlur(Src, Dest, Width, Height, Stride, Radius, EdgeMode);

    const size_t count = size_t(Width) * size_t(Height);
    Buffer<double>& squares = scratch.squares;
    Buffer<double>& moments = scratch.moments;
    for (int32_t y = 0; y < Height; ++y) {
        const uint8_t* s = Src + size_t(y) * Stride;
        double* q = squares.data() + size_t(y) * Width;
        for (int32_t x = 0; x < Width; ++x) q[x] = double(int32_t(s[x]) * s[x]);
    }
    BoxBlurDouble(squares.data(), moments.data(), Width, Height, Width, Radius, EdgeMode);

    // V = boxmean(x^2) - m^2, in place over the moments; the noise estimate
    // sums V in pixel order into one running double.
    double sum = 0.0;
    for (int32_t y = 0; y < Height; ++y) {
        const uint8_t* m = Dest + size_t(y) * Stride;
        double* v = moments.data() + size_t(y) * Width;
        if (Noise == 0) {
            for (int32_t x = 0; x < Width; ++x) {
                v[x] -= double(int32_t(m[x]) * m[x]);
                sum += v[x];
            }
        } else {
            for (int32_t x = 0; x < Width; ++x) v[x] -= double(int32_t(m[x]) * m[x]);
        }
    }
    const int32_t N = Noise != 0 ? Noise : TruncToInt(sum / double(count));

    // out = m + D * (s - m) / Q with D = max(V - N, 0), Q = max(V, N). A pixel
    // with V = N = 0 evaluates 0 / 0; the NaN converts to the most negative
    // integer and clamps to 0.
    const double n = N;
    const __m128d vn = _mm_set1_pd(n), zero = _mm_setzero_pd();
    for (int32_t y = 0; y < Height; ++y) {
        const uint8_t* s = Src + size_t(y) * Stride;
        uint8_t* d = Dest + size_t(y) * Stride;
        const double* v = moments.data() + size_t(y) * Width;
        int32_t x = 0;
        for (; x + 2 <= Width; x += 2) {
            const __m128d V = _mm_loadu_pd(v + x);
            const __m128d m = _mm_set_pd(d[x + 1], d[x]);
            const __m128d sm = _mm_set_pd(int32_t(s[x + 1]) - d[x + 1], int32_t(s[x]) - d[x]);
            const __m128d diff = _mm_sub_pd(V, vn);
            // max(V - N, 0): V - N where it is greater than 0, else 0.
            const __m128d D = _mm_and_pd(_mm_cmpgt_pd(diff, zero), diff);
            // V where N < V, else N.
            const __m128d lt = _mm_cmplt_pd(vn, V);
            const __m128d Q = _mm_or_pd(_mm_and_pd(lt, V), _mm_andnot_pd(lt, vn));
            const __m128d out = _mm_add_pd(m, _mm_div_pd(_mm_mul_pd(D, sm), Q));
            const __m128i t = _mm_cvttpd_epi32(out);
            d[x] = ClampByte(_mm_cvtsi128_si32(t));
            d[x + 1] = ClampByte(_mm_cvtsi128_si32(_mm_srli_si128(t, 4)));
        }
        for (; x < Width; ++x) {
            const double V = v[x];
            const int32_t m = d[x];
            const double D = V - n > 0 ? V - n : 0.0;
            const double Q = n < V ? V : n;
            d[x] = ClampByte(TruncToInt(m + D * (int32_t(s[x]) - m) / Q));
        }
    }
}

// One byte per pixel over the first Width bytes of each row.
void WienerGrey(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                int32_t Radius, int32_t Noise, int32_t EdgeMode) {
    if (BytesPerPixel(Width, Stride) == 1) {
        InPlaceCopy source(Src, Dest, ImageBytes(Height, Stride));
        WienerScratch scratch(size_t(Width) * size_t(Height));
        WienerPlane(source.get(), Dest, Width, Height, Stride, Radius, Noise, EdgeMode, scratch);
        return;
    }
    // Another layout (2, or 4 and more bytes per pixel) would make the box blur
    // derive a different channel count from the stride; the first Width bytes
    // of each row are filtered as an unpadded plane instead and written back,
    // leaving the rest of every row alone.
    const size_t count = size_t(Width) * size_t(Height);
    Buffer<uint8_t> in(count), out(count);
    WienerScratch scratch(count);
    for (int32_t y = 0; y < Height; ++y)
        std::memcpy(in.data() + size_t(y) * Width, Src + size_t(y) * Stride, size_t(Width));
    WienerPlane(in.data(), out.data(), Width, Height, Width, Radius, Noise, EdgeMode, scratch);
    for (int32_t y = 0; y < Height; ++y)
        std::memcpy(Dest + size_t(y) * Stride, out.data() + size_t(y) * Width, size_t(Width));
}

}  // namespace

void Wiener2(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
             int32_t Radius, int32_t Noise, int32_t EdgeMode) {
    // Null buffers, empty images and a negative radius return without writing.
    if (!RawArgsValid(Src, Dest, Width, Height, Stride) || Radius < 0) return;
    if (BytesPerPixel(Width, Stride) != 3) {
        WienerGrey(Src, Dest, Width, Height, Stride, Radius, Noise, EdgeMode);
        return;
    }
    // Three bytes per pixel: each channel on its own, with its own noise
    // estimate.
    WienerScratch scratch(size_t(Width) * size_t(Height));
    FilterColourPlanes(Src, Dest, Width, Height, Stride, [&](int32_t, const uint8_t* in, uint8_t* out) {
        WienerPlane(in, out, Width, Height, Width, Radius, Noise, EdgeMode, scratch);
    });
}

}  // namespace velomar

VL_API void VL_CALL Wiener2(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                            int32_t Height, int32_t Stride, int32_t Radius, int32_t Noise,
                            int32_t EdgeMode) {
    velomar::Guarded(
        [&] { velomar::Wiener2(Src, Dest, Width, Height, Stride, Radius, Noise, EdgeMode); });
}
