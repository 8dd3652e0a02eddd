// Vectors of unsigned bytes for each instruction set, for kernels written once
// and compiled once per set: core/byte_lanes_each_isa.inc includes a kernel
// body inside namespaces sse2, avx2 and avx512 (the wider two in target
// regions), each naming the matching traits `Lanes`. Every set offers V
// (kWidth bytes), unaligned Load and Store, Min and Max (unsigned), Zero(),
// Ones() (every byte 255), Xor, and CountAtMost(count, a, b): count + 1 in the
// lanes where a <= b (unsigned), wrapping at 256.
#pragma once

#include <immintrin.h>

#include <cstdint>

#include "core/cpu.h"

namespace velomar {

struct Sse2Bytes {
    using V = __m128i;
    static constexpr int32_t kWidth = 16;
    static V Load(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
    static void Store(uint8_t* p, V v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }
    static V Min(V a, V b) { return _mm_min_epu8(a, b); }
    static V Max(V a, V b) { return _mm_max_epu8(a, b); }
    static V Zero() { return _mm_setzero_si128(); }
    static V Ones() { return _mm_set1_epi8(-1); }
    static V Xor(V a, V b) { return _mm_xor_si128(a, b); }
    static V CountAtMost(V count, V a, V b) { return _mm_sub_epi8(count, _mm_cmpeq_epi8(_mm_min_epu8(a, b), a)); }
};

#if VELOMAR_WIDE_PATHS
VELOMAR_TARGET_BEGIN("avx2")
struct Avx2Bytes {
    using V = __m256i;
    static constexpr int32_t kWidth = 32;
    static V Load(const uint8_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
    static void Store(uint8_t* p, V v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }
    static V Min(V a, V b) { return _mm256_min_epu8(a, b); }
    static V Max(V a, V b) { return _mm256_max_epu8(a, b); }
    static V Zero() { return _mm256_setzero_si256(); }
    static V Ones() { return _mm256_set1_epi8(-1); }
    static V Xor(V a, V b) { return _mm256_xor_si256(a, b); }
    static V CountAtMost(V count, V a, V b) {
        return _mm256_sub_epi8(count, _mm256_cmpeq_epi8(_mm256_min_epu8(a, b), a));
    }
};
VELOMAR_TARGET_END

VELOMAR_TARGET_BEGIN("avx512f,avx512bw")
struct Avx512Bytes {
    using V = __m512i;
    static constexpr int32_t kWidth = 64;
    static V Load(const uint8_t* p) { return _mm512_loadu_si512(p); }
    static void Store(uint8_t* p, V v) { _mm512_storeu_si512(p, v); }
    static V Min(V a, V b) { return _mm512_min_epu8(a, b); }
    static V Max(V a, V b) { return _mm512_max_epu8(a, b); }
    static V Zero() { return _mm512_setzero_si512(); }
    static V Ones() { return _mm512_set1_epi8(-1); }
    static V Xor(V a, V b) { return _mm512_xor_si512(a, b); }
    static V CountAtMost(V count, V a, V b) {
        return _mm512_mask_add_epi8(count, _mm512_cmple_epu8_mask(a, b), count, _mm512_set1_epi8(1));
    }
};
VELOMAR_TARGET_END
#endif

// The compiled copy of a byte kernel (core/byte_lanes_each_isa.inc) for the
// widest instruction set the dispatcher allows.
#if VELOMAR_WIDE_PATHS
#define VELOMAR_WIDEST_KERNEL(name) \
    (ActiveIsa() >= Isa::Avx512 ? avx512::name : ActiveIsa() >= Isa::Avx2 ? avx2::name : sse2::name)
#else
#define VELOMAR_WIDEST_KERNEL(name) (sse2::name)
#endif

}  // namespace velomar
