// Conv2's lane kernel (conv2_lanes.inc) compiled for SSE2, AVX2 and AVX-512.
// The wider forms are compiled through target regions only and called only
// where the dispatcher allows them; every form gives the same bytes.
#include <immintrin.h>

#include "core/cpu.h"
#include "frequency/frequency.h"

namespace velomar {

namespace sse2 {

struct Lanes {
    using F = __m128;
    static constexpr int32_t kWidth = 4;
    static F Zero() { return _mm_setzero_ps(); }
    static F Weight(const float* w) { return _mm_load_ps(w); }
    static F Load(const float* p) { return _mm_loadu_ps(p); }
    static F Add(F a, F b) { return _mm_add_ps(a, b); }
    static F Mul(F a, F b) { return _mm_mul_ps(a, b); }
    // trunc(d * scale + 0.5) in double for four sums, as 32-bit integers.
    static __m128i Round(F d, __m128d scale) {
        const __m128d half = _mm_set1_pd(0.5);
        const __m128d lo = _mm_add_pd(_mm_mul_pd(_mm_cvtps_pd(d), scale), half);
        const __m128d hi = _mm_add_pd(_mm_mul_pd(_mm_cvtps_pd(_mm_movehl_ps(d, d)), scale), half);
        return _mm_unpacklo_epi64(_mm_cvttpd_epi32(lo), _mm_cvttpd_epi32(hi));
    }
    static void Store(const F* t, double scale, uint8_t* out) {
        const __m128d s = _mm_set1_pd(scale);
        const __m128i a = _mm_packs_epi32(Round(t[0], s), Round(t[1], s));
        const __m128i b = _mm_packs_epi32(Round(t[2], s), Round(t[3], s));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(a, b));
    }
};

#include "frequency/conv2_lanes.inc"

}  // namespace sse2

int32_t Conv2RunSse2(const ConvPlan& Plan, const float* Row, int32_t Count, double Scale, uint8_t* Out) {
    return sse2::ConvolveRun(Plan, Row, Count, Scale, Out);
}

#if VELOMAR_WIDE_PATHS

VELOMAR_TARGET_BEGIN("avx2")
namespace avx2 {

struct Lanes {
    using F = __m256;
    static constexpr int32_t kWidth = 8;
    static F Zero() { return _mm256_setzero_ps(); }
    static F Weight(const float* w) { return _mm256_broadcast_ss(w); }
    static F Load(const float* p) { return _mm256_loadu_ps(p); }
    static F Add(F a, F b) { return _mm256_add_ps(a, b); }
    static F Mul(F a, F b) { return _mm256_mul_ps(a, b); }
    static __m128i Round(__m128 d, __m256d scale) {
        return _mm256_cvttpd_epi32(_mm256_add_pd(_mm256_mul_pd(_mm256_cvtps_pd(d), scale), _mm256_set1_pd(0.5)));
    }
    static void Store(const F* t, double scale, uint8_t* out) {
        const __m256d s = _mm256_set1_pd(scale);
        for (int v = 0; v < 4; v += 2) {
            const __m128i a = _mm_packs_epi32(Round(_mm256_castps256_ps128(t[v]), s),
                                              Round(_mm256_extractf128_ps(t[v], 1), s));
            const __m128i b = _mm_packs_epi32(Round(_mm256_castps256_ps128(t[v + 1]), s),
                                              Round(_mm256_extractf128_ps(t[v + 1], 1), s));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8 * v), _mm_packus_epi16(a, b));
        }
    }
};

#include "frequency/conv2_lanes.inc"

}  // namespace avx2
VELOMAR_TARGET_END

VELOMAR_TARGET_BEGIN("avx512f,avx512bw")
// GCC 12's AVX-512 headers start some conversions from an undefined vector,
// which its flow analysis reports as uninitialised.
#pragma GCC diagnostic push
#ifndef __clang__
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
namespace avx512 {

struct Lanes {
    using F = __m512;
    static constexpr int32_t kWidth = 16;
    static F Zero() { return _mm512_setzero_ps(); }
    static F Weight(const float* w) { return _mm512_set1_ps(*w); }
    static F Load(const float* p) { return _mm512_loadu_ps(p); }
    static F Add(F a, F b) { return _mm512_add_ps(a, b); }
    static F Mul(F a, F b) { return _mm512_mul_ps(a, b); }
    static __m256i Round(__m256 d, __m512d scale) {
        return _mm512_cvttpd_epi32(_mm512_add_pd(_mm512_mul_pd(_mm512_cvtps_pd(d), scale), _mm512_set1_pd(0.5)));
    }
    // Out-of-range sums convert to INT32_MIN, as in the other forms, and so
    // clamp to 0.
    static void Store(const F* t, double scale, uint8_t* out) {
        const __m512d s = _mm512_set1_pd(scale);
        for (int v = 0; v < 4; ++v) {
            const __m256i lo = Round(_mm512_castps512_ps256(t[v]), s);
            const __m256i hi = Round(_mm256_castpd_ps(_mm512_extractf64x4_pd(_mm512_castps_pd(t[v]), 1)), s);
            const __m512i q = _mm512_max_epi32(_mm512_inserti64x4(_mm512_castsi256_si512(lo), hi, 1),
                                               _mm512_setzero_si512());
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 16 * v), _mm512_cvtusepi32_epi8(q));
        }
    }
};

#include "frequency/conv2_lanes.inc"

}  // namespace avx512
#pragma GCC diagnostic pop
VELOMAR_TARGET_END

int32_t Conv2RunAvx2(const ConvPlan& Plan, const float* Row, int32_t Count, double Scale, uint8_t* Out) {
    return avx2::ConvolveRun(Plan, Row, Count, Scale, Out);
}
int32_t Conv2RunAvx512(const ConvPlan& Plan, const float* Row, int32_t Count, double Scale, uint8_t* Out) {
    return avx512::ConvolveRun(Plan, Row, Count, Scale, Out);
}

#else

int32_t Conv2RunAvx2(const ConvPlan&, const float*, int32_t, double, uint8_t*) { return 0; }
int32_t Conv2RunAvx512(const ConvPlan&, const float*, int32_t, double, uint8_t*) { return 0; }

#endif

}  // namespace velomar
