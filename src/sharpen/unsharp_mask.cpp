// Unsharp mask and high pass: each byte against its Gaussian blur.
#include "blur/blur.h"
#include "sharpen/sharpen.h"

namespace velomar {

namespace {

// One byte of the unsharp mask. The product wraps as 32-bit arithmetic does
// when Amount is huge; the division truncates toward zero.
inline uint8_t UnsharpByte(int32_t s, int32_t g, int32_t amount, int32_t threshold) {
    const int32_t d = s - g;
    if ((d < 0 ? -d : d) < threshold) return static_cast<uint8_t>(s);
    const int32_t p =
        static_cast<int32_t>(static_cast<uint32_t>(d) * static_cast<uint32_t>(amount));
    return ClampByte(s + p / 100);
}

// Signed 16-bit division by 100, truncated toward zero, exact for |x| <= 32767:
// floor(x * 5243 / 2^19) is floor(x / 100) there, and negative quotients are
// lifted by one to truncate (the product sits just below every multiple).
inline __m128i DivideBy100(__m128i x) {
    const __m128i q = _mm_srai_epi16(_mm_mulhi_epi16(x, _mm_set1_epi16(5243)), 3);
    return _mm_sub_epi16(q, _mm_srai_epi16(x, 15));
}

// Amounts whose products stay within 16-bit lanes once split as
// Amount = 100 * a + b (|a| <= 128, |b| <= 99). Since a and b share the sign of
// Amount, (d * Amount) / 100 == d * a + (d * b) / 100 exactly.
constexpr int32_t kVectorAmountLimit = 12899;

// Eight bytes (as 16-bit lanes) of the unsharp mask.
inline __m128i UnsharpLanes(__m128i s, __m128i g, __m128i a, __m128i b, __m128i below) {
    const __m128i d = _mm_sub_epi16(s, g);
    const __m128i magnitude = _mm_max_epi16(d, _mm_sub_epi16(_mm_setzero_si128(), d));
    // d * a and (d * b) / 100 share a sign, so saturating at +-32767 on the way
    // still clamps to the right end.
    __m128i r = _mm_adds_epi16(s, _mm_mullo_epi16(d, a));
    r = _mm_adds_epi16(r, DivideBy100(_mm_mullo_epi16(d, b)));
    const __m128i sharpen = _mm_cmpgt_epi16(magnitude, below);
    return _mm_or_si128(_mm_and_si128(sharpen, r), _mm_andnot_si128(sharpen, s));
}

void UnsharpRow(const uint8_t* src, const uint8_t* blur, uint8_t* dst, int32_t n, int32_t amount,
                int32_t threshold) {
    int32_t i = 0;
    if (amount >= -kVectorAmountLimit && amount <= kVectorAmountLimit) {
        const __m128i a = _mm_set1_epi16(static_cast<int16_t>(amount / 100));
        const __m128i b = _mm_set1_epi16(static_cast<int16_t>(amount % 100));
        // |d| >= threshold  <=>  |d| > threshold - 1, with threshold held to
        // 0..256 (|d| never exceeds 255).
        const int32_t t = threshold < 0 ? 0 : (threshold > 256 ? 256 : threshold);
        const __m128i below = _mm_set1_epi16(static_cast<int16_t>(t - 1));
        const __m128i zero = _mm_setzero_si128();
        for (; i + 16 <= n; i += 16) {
            const __m128i s = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
            const __m128i g = _mm_loadu_si128(reinterpret_cast<const __m128i*>(blur + i));
            const __m128i lo =
                UnsharpLanes(_mm_unpacklo_epi8(s, zero), _mm_unpacklo_epi8(g, zero), a, b, below);
            const __m128i hi =
                UnsharpLanes(_mm_unpackhi_epi8(s, zero), _mm_unpackhi_epi8(g, zero), a, b, below);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), _mm_packus_epi16(lo, hi));
        }
    }
    for (; i < n; ++i) dst[i] = UnsharpByte(src[i], blur[i], amount, threshold);
}

// clamp(S - G + 128) for n bytes; blur and dst may be the same row.
void HighPassRow(const uint8_t* src, const uint8_t* blur, uint8_t* dst, int32_t n) {
    int32_t i = 0;
    const __m128i zero = _mm_setzero_si128();
    const __m128i mid = _mm_set1_epi16(128);
    for (; i + 16 <= n; i += 16) {
        const __m128i s = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
        const __m128i g = _mm_loadu_si128(reinterpret_cast<const __m128i*>(blur + i));
        const __m128i lo = _mm_add_epi16(
            _mm_sub_epi16(_mm_unpacklo_epi8(s, zero), _mm_unpacklo_epi8(g, zero)), mid);
        const __m128i hi = _mm_add_epi16(
            _mm_sub_epi16(_mm_unpackhi_epi8(s, zero), _mm_unpackhi_epi8(g, zero)), mid);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), _mm_packus_epi16(lo, hi));
    }
    for (; i < n; ++i) dst[i] = ClampByte(int32_t(src[i]) - int32_t(blur[i]) + 128);
}

}  // namespace

void UnsharpMask(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                 double Sigma, int32_t Amount, int32_t Threshold) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride)) return;
    const int32_t channels = BytesPerPixel(Width, Stride);
    // Only grey and three bytes per pixel are sharpened; any other layout is
    // left untouched (its blur would be discarded, so it is not computed).
    if (channels != 1 && channels != 3) return;
    Buffer<uint8_t> blur(ImageBytes(Height, Stride));
    GuassBlur(Src, blur.data(), Width, Height, Stride, Sigma);
    // The blur sits in its own buffer, so Src may be Dest.
    const int32_t n = channels * Width;
    for (int32_t y = 0; y < Height; ++y) {
        const size_t row = size_t(y) * size_t(Stride);
        UnsharpRow(Src + row, blur.data() + row, Dest + row, n, Amount, Threshold);
    }
}

void HighPass(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
              double Sigma) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride)) return;
    const int32_t channels = BytesPerPixel(Width, Stride);
    // Every layout but grey is walked three bytes per pixel; a two-byte layout
    // would leave the buffer and is returned from without writing.
    if (channels != 1 && !ThreeBytesFit(Width, Stride)) return;
    // The blur goes straight into Dest; when Src is Dest it overwrites the
    // source first and every treated byte becomes 128.
    GuassBlur(Src, Dest, Width, Height, Stride, Sigma);
    const int32_t n = channels == 1 ? Width : 3 * Width;
    for (int32_t y = 0; y < Height; ++y) {
        const size_t row = size_t(y) * size_t(Stride);
        HighPassRow(Src + row, Dest + row, Dest + row, n);
    }
}

}  // namespace velomar

VL_API void VL_CALL UnsharpMask(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                int32_t Height, int32_t Stride, double Sigma, int32_t Amount,
                                int32_t Threshold) {
    velomar::Guarded(
        [&] { velomar::UnsharpMask(Src, Dest, Width, Height, Stride, Sigma, Amount, Threshold); });
}

VL_API void VL_CALL HighPass(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                             int32_t Height, int32_t Stride, double Sigma) {
    velomar::Guarded([&] { velomar::HighPass(Src, Dest, Width, Height, Stride, Sigma); });
}
