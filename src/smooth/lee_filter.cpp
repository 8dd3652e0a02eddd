// Lee's local-statistics filter for additive noise: every value is pulled
// towards its neighbourhood mean by how little the local variance exceeds the
// noise variance.
#include <emmintrin.h>

#include "smooth/smooth.h"
#include "statistics/statistics.h"

namespace velomar {

namespace {

// M + ((S - M) * V) / (N + V) in 32-bit integers, the division truncated
// toward zero, clamped to a byte; N + V wraps as a 32-bit addition does. The
// quotient is taken in double precision: both operands are whole numbers below
// 2^53, so the truncated double quotient is the integer quotient. A zero
// divisor (a flat neighbourhood with a zero noise estimate, or V equal to -N)
// would divide by zero: the value then passes through as S, the limit of the
// formula for N = 0.
inline uint8_t LeeValue(int32_t S, int32_t M, int32_t V, int32_t N) {
    const int32_t den = static_cast<int32_t>(static_cast<uint32_t>(N) + static_cast<uint32_t>(V));
    if (den == 0) return static_cast<uint8_t>(S);
    const int32_t q = TruncToInt(double(S - M) * double(V) / double(den));
    return ClampByte(static_cast<int32_t>(static_cast<uint32_t>(M) + static_cast<uint32_t>(q)));
}

// LeeValue for four values at once.
inline void LeeFour(const uint8_t* s, uint8_t* d, const uint32_t* v, __m128i n) {
    const __m128i zero = _mm_setzero_si128();
    uint32_t sw, dw;
    std::memcpy(&sw, s, 4);
    std::memcpy(&dw, d, 4);
    const __m128i S = _mm_unpacklo_epi16(_mm_unpacklo_epi8(_mm_cvtsi32_si128(int32_t(sw)), zero), zero);
    const __m128i M = _mm_unpacklo_epi16(_mm_unpacklo_epi8(_mm_cvtsi32_si128(int32_t(dw)), zero), zero);
    const __m128i V = _mm_loadu_si128(reinterpret_cast<const __m128i*>(v));
    const __m128i den = _mm_add_epi32(n, V);
    const __m128i diff = _mm_sub_epi32(S, M);
    const __m128d lo = _mm_div_pd(_mm_mul_pd(_mm_cvtepi32_pd(diff), _mm_cvtepi32_pd(V)), _mm_cvtepi32_pd(den));
    const __m128d hi = _mm_div_pd(_mm_mul_pd(_mm_cvtepi32_pd(_mm_srli_si128(diff, 8)),
                                             _mm_cvtepi32_pd(_mm_srli_si128(V, 8))),
                                  _mm_cvtepi32_pd(_mm_srli_si128(den, 8)));
    const __m128i q = _mm_unpacklo_epi64(_mm_cvttpd_epi32(lo), _mm_cvttpd_epi32(hi));
    __m128i out = _mm_add_epi32(M, q);
    // Zero divisors let S through.
    const __m128i flat = _mm_cmpeq_epi32(den, zero);
    out = _mm_or_si128(_mm_and_si128(flat, S), _mm_andnot_si128(flat, out));
    out = _mm_packus_epi16(_mm_packs_epi32(out, out), zero);
    const uint32_t bytes = uint32_t(_mm_cvtsi128_si32(out));
    std::memcpy(d, &bytes, 4);
}

void LeeCore(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
             int32_t Radius, int32_t NoiseVariance, int32_t values) {
    Buffer<uint32_t> variance(ImageBytes(Height, Stride));
    if (!LocalMeanVariance(Src, variance.data(), Dest, Width, Height, Stride, Radius, EDGE_REFLECT))
        return;  // declined (a radius past the engine's limit): nothing is written

    int32_t N = NoiseVariance;
    if (N == 0) {
        // Mean local variance over the treated values. The sum is kept in 64
        // bits: a 32-bit sum would wrap on large noisy images.
        int64_t sum = 0;
        for (int32_t y = 0; y < Height; ++y) {
            const uint32_t* v = variance.data() + size_t(y) * Stride;
            for (int32_t i = 0; i < values; ++i) sum += int32_t(v[i]);
        }
        N = static_cast<int32_t>(sum / (int64_t(values) * Height));
    }

    for (int32_t y = 0; y < Height; ++y) {
        const size_t row = size_t(y) * Stride;
        const uint8_t* s = Src + row;
        const uint32_t* v = variance.data() + row;
        uint8_t* d = Dest + row;
        int32_t i = 0;
        for (; i + 4 <= values; i += 4) LeeFour(s + i, d + i, v + i, _mm_set1_epi32(N));
        for (; i < values; ++i) d[i] = LeeValue(s[i], d[i], int32_t(v[i]), N);
    }
}

}  // namespace

void LeeAdditvieNoiseFilter(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                            int32_t Stride, int32_t Radius, int32_t NoiseVariance) {
    // Null buffers, empty images and a negative radius return without writing.
    if (!RawArgsValid(Src, Dest, Width, Height, Stride) || Radius < 0) return;
    // One byte per pixel is grey; any other layout is walked three bytes per
    // pixel, which a two-byte layout cannot hold: it returns without writing.
    const int32_t channels = BytesPerPixel(Width, Stride) == 1 ? 1 : 3;
    if (channels == 3 && !ThreeBytesFit(Width, Stride)) return;
    // In place the filter runs from a copy; the grey path's M, read from Dest,
    // is then the source value itself.
    InPlaceCopy source(Src, Dest, ImageBytes(Height, Stride));
    LeeCore(source.get(), Dest, Width, Height, Stride, Radius, NoiseVariance, channels * Width);
}

}  // namespace velomar

VL_API void VL_CALL LeeAdditvieNoiseFilter(const unsigned char* Src, unsigned char* Dest,
                                           int32_t Width, int32_t Height, int32_t Stride,
                                           int32_t Radius, int32_t NoiseVariance) {
    velomar::Guarded([&] {
        velomar::LeeAdditvieNoiseFilter(Src, Dest, Width, Height, Stride, Radius, NoiseVariance);
    });
}
