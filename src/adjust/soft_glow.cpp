// Soft glow (screen blend of a blurred, tone-adjusted copy) and exposal
// (solarisation).
#include "adjust/adjust.h"
#include "blur/blur.h"

namespace velomar {

namespace {

// Screen blend a + g - a * g / 255 (integer division) of sixteen byte pairs.
// a * g / 255 is computed exactly as (x + 1 + (x >> 8)) >> 8, which equals
// x / 255 for every product x of two bytes.
inline __m128i Screen16(__m128i a, __m128i g) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i one = _mm_set1_epi16(1);
    __m128i alo = _mm_unpacklo_epi8(a, zero), ahi = _mm_unpackhi_epi8(a, zero);
    __m128i glo = _mm_unpacklo_epi8(g, zero), ghi = _mm_unpackhi_epi8(g, zero);
    __m128i xlo = _mm_mullo_epi16(alo, glo), xhi = _mm_mullo_epi16(ahi, ghi);
    __m128i qlo = _mm_srli_epi16(_mm_add_epi16(_mm_add_epi16(xlo, one), _mm_srli_epi16(xlo, 8)), 8);
    __m128i qhi = _mm_srli_epi16(_mm_add_epi16(_mm_add_epi16(xhi, one), _mm_srli_epi16(xhi, 8)), 8);
    __m128i rlo = _mm_sub_epi16(_mm_add_epi16(alo, glo), qlo);
    __m128i rhi = _mm_sub_epi16(_mm_add_epi16(ahi, ghi), qhi);
    return _mm_packus_epi16(rlo, rhi);
}

inline uint8_t Screen(int32_t a, int32_t g) { return static_cast<uint8_t>(a + g - (a * g) / 255); }

void ScreenRun(const uint8_t* src, const uint8_t* glow, uint8_t* dst, size_t n) {
    size_t i = 0;
    for (; i + 16 <= n; i += 16) {
        __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
        __m128i g = _mm_loadu_si128(reinterpret_cast<const __m128i*>(glow + i));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), Screen16(a, g));
    }
    for (; i < n; ++i) dst[i] = Screen(src[i], glow[i]);
}

// Bytes above 127 become their complement; the others are not written (the
// vector path rewrites them with the value they already hold).
void ExposeRun(const uint8_t* src, uint8_t* dst, size_t n) {
    const __m128i ones = _mm_set1_epi8(-1);
    size_t i = 0;
    for (; i + 16 <= n; i += 16) {
        __m128i s = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
        __m128i d = _mm_loadu_si128(reinterpret_cast<const __m128i*>(dst + i));
        __m128i bright = _mm_cmplt_epi8(s, _mm_setzero_si128());  // s > 127 as unsigned
        __m128i r = _mm_or_si128(_mm_and_si128(bright, _mm_xor_si128(s, ones)),
                                 _mm_andnot_si128(bright, d));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), r);
    }
    for (; i < n; ++i)
        if (src[i] > 127) dst[i] = static_cast<uint8_t>(~src[i]);
}

}  // namespace

void SoftGlow(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
              int32_t Sigma, int32_t Brightness, int32_t Contrast) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride)) return;
    // The blend always walks three bytes per pixel; a layout whose rows are
    // shorter than that (grey, two bytes) is left untouched.
    if (!ThreeBytesFit(Width, Stride)) return;
    // The glow layer starts zeroed: the blur leaves its row padding alone, and
    // the brightness/contrast mean reads that padding, so it must be defined.
    const size_t bytes = ImageBytes(Height, Stride);
    Buffer<uint8_t> glow(bytes, true);
    GuassBlur(Src, glow.data(), Width, Height, Stride, double(Sigma));
    AdjustBrightnessAndContrast(glow.data(), glow.data(), Width, Height, Stride, Brightness,
                                Contrast);
    const size_t run = size_t(3) * Width;
    for (int32_t y = 0; y < Height; ++y) {
        const size_t row = size_t(y) * Stride;
        ScreenRun(Src + row, glow.data() + row, Dest + row, run);
    }
}

void Exposal(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride)) return;
    size_t run;
    if (BytesPerPixel(Width, Stride) == 1) {
        run = size_t(Width);
    } else {
        // Three bytes of each pixel; a two-byte layout cannot hold them and
        // is left untouched.
        if (!ThreeBytesFit(Width, Stride)) return;
        run = size_t(3) * Width;
    }
    for (int32_t y = 0; y < Height; ++y) {
        const size_t row = size_t(y) * Stride;
        ExposeRun(Src + row, Dest + row, run);
    }
}

}  // namespace velomar

using namespace velomar;

VL_API void VL_CALL SoftGlow(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                             int32_t Height, int32_t Stride, int32_t Sigma, int32_t Brightness,
                             int32_t Contrast) {
    Guarded([&] {
        velomar::SoftGlow(Src, Dest, Width, Height, Stride, Sigma, Brightness, Contrast);
    });
}

VL_API void VL_CALL Exposal(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                            int32_t Height, int32_t Stride) {
    Guarded([&] { velomar::Exposal(Src, Dest, Width, Height, Stride); });
}
