// Median blur row walk with each 16-counter histogram in one 256-bit register.
// Compiled for AVX2 through a target region only, and called only where the
// dispatcher allows AVX2; results equal the SSE2 walk in median_blur.cpp.
#include <immintrin.h>

#include <algorithm>

#include "blur/blur.h"
#include "core/cpu.h"

VELOMAR_TARGET_BEGIN("avx2")

namespace velomar {

namespace {

constexpr int32_t kBins = 16;

inline __m256i Load16(const uint16_t* p) {
    return _mm256_load_si256(reinterpret_cast<const __m256i*>(p));
}
inline void Store16(uint16_t* p, __m256i v) {
    _mm256_store_si256(reinterpret_cast<__m256i*>(p), v);
}

// Inclusive running totals of the 16 counters, started at `start`, into
// running[0..15].
inline __m256i RunningTotals(__m256i h, __m256i start, uint16_t* running) {
    h = _mm256_add_epi16(h, _mm256_slli_si256(h, 2));
    h = _mm256_add_epi16(h, _mm256_slli_si256(h, 4));
    h = _mm256_add_epi16(h, _mm256_slli_si256(h, 8));
    // The total of counters 0..7 carries into every lane of the upper half.
    __m256i carry = _mm256_shufflehi_epi16(h, 0xFF);
    carry = _mm256_unpackhi_epi64(carry, carry);
    carry = _mm256_permute2x128_si256(carry, carry, 0x08);
    h = _mm256_add_epi16(_mm256_add_epi16(h, carry), start);
    Store16(running, h);
    return h;
}

// First of the 16 counters at which the running total, started at `start`,
// reaches `above`; the running totals are left in running[0..15]. Totals
// never exceed 65025 and are compared unsigned; the last one is known to
// reach `above`, so the result is 0..15.
inline int32_t FirstAbove(__m256i h, __m256i start, __m256i above,
                                       uint16_t* running) {
    h = RunningTotals(h, start, running);
    // above - total saturates to 0 exactly where total >= above.
    const __m256i reached = _mm256_cmpeq_epi16(_mm256_subs_epu16(above, h), _mm256_setzero_si256());
    return __builtin_ctz(static_cast<uint32_t>(_mm256_movemask_epi8(reached))) >> 1;
}

}  // namespace

template <bool kCount>
void MedianRowAvx2(const uint16_t* cc, const uint16_t* cf, int32_t Width,
                                int32_t Radius, int32_t T, uint16_t* coarse, uint16_t* fine,
                                int32_t* lastColumn, const uint8_t* Centre, uint8_t* Dest,
                                uint16_t* Counts) {
    const size_t fineBinStride = size_t(Width) * kBins;
    const int32_t diameter = 2 * Radius + 1;
    const __m256i above = _mm256_set1_epi16(static_cast<int16_t>(T + 1));
    // running[16..31] receives a search's totals; running[15] stays 0, so
    // running[15 + k] is the total of the bins below k.
    alignas(32) uint16_t running[2 * kBins] = {};
    __m256i c = Load16(coarse);
    for (int32_t j = 0; j < Width; ++j) {
        c = _mm256_add_epi16(c, Load16(cc + size_t(std::min(j + Radius, Width - 1)) * kBins));

        int32_t k;
        if constexpr (kCount) {
            k = Centre[j] >> 4;
            RunningTotals(c, _mm256_setzero_si256(), running + kBins);
        } else {
            k = FirstAbove(c, _mm256_setzero_si256(), above, running + kBins);
        }
        const int32_t below = running[kBins - 1 + k];

        // Bring fine segment k up to the window j - Radius .. j + Radius.
        uint16_t* seg = fine + k * kBins;
        const uint16_t* base = cf + k * fineBinStride;
        int32_t e = lastColumn[k];
        __m256i s = Load16(seg);
        if (e > j - Radius) {
            for (; e < j + Radius + 1; ++e)
                s = _mm256_add_epi16(
                    _mm256_sub_epi16(s, Load16(base + size_t(std::max(e - diameter, 0)) * kBins)),
                    Load16(base + size_t(std::min(e, Width - 1)) * kBins));
        } else {
            // Too stale to slide: rebuild (j - Radius >= e >= 0 here).
            s = _mm256_setzero_si256();
            const int32_t end = std::min(j + Radius + 1, Width);
            for (int32_t x = j - Radius; x < end; ++x)
                s = _mm256_add_epi16(s, Load16(base + size_t(x) * kBins));
            if (end < j + Radius + 1) {
                const __m256i factor =
                    _mm256_set1_epi16(static_cast<int16_t>(j + Radius + 1 - Width));
                s = _mm256_add_epi16(
                    s, _mm256_mullo_epi16(Load16(base + size_t(Width - 1) * kBins), factor));
            }
            e = j + Radius + 1;
        }
        Store16(seg, s);
        lastColumn[k] = e;

        c = _mm256_sub_epi16(c, Load16(cc + size_t(std::max(j - Radius, 0)) * kBins));

        if constexpr (kCount) {
            RunningTotals(s, _mm256_set1_epi16(static_cast<int16_t>(below)), running + kBins);
            Counts[j] = running[kBins + (Centre[j] & 15)];
        } else {
            const int32_t b = FirstAbove(s, _mm256_set1_epi16(static_cast<int16_t>(below)), above,
                                         running + kBins);
            Dest[j] = static_cast<uint8_t>(16 * k + b);
        }
    }
    Store16(coarse, c);
}

template void MedianRowAvx2<false>(const uint16_t*, const uint16_t*, int32_t, int32_t, int32_t, uint16_t*,
                                   uint16_t*, int32_t*, const uint8_t*, uint8_t*, uint16_t*);
template void MedianRowAvx2<true>(const uint16_t*, const uint16_t*, int32_t, int32_t, int32_t, uint16_t*,
                                  uint16_t*, int32_t*, const uint8_t*, uint8_t*, uint16_t*);

}  // namespace velomar

VELOMAR_TARGET_END
