// Box blur: the truncated mean of the (2 Radius + 1)^2 neighbourhood, with one
// running sum per column and one along the row, so the cost per pixel does not
// depend on the radius.
#include <algorithm>
#include <cmath>

#include "blur/blur.h"
#include "blur/box_mean.h"

namespace velomar {

namespace {

// Adds to counts[i] the number of integers t in [lo, hi] with t mod n == i.
void AddResidues(int64_t lo, int64_t hi, int32_t n, uint32_t* counts) {
    if (hi < lo) return;
    const int64_t len = hi - lo + 1;
    const uint32_t whole = static_cast<uint32_t>(len / n);  // counts are kept modulo 2^32
    if (whole)
        for (int32_t i = 0; i < n; ++i) counts[i] += whole;
    int64_t rem = len % n;
    int64_t r = ((lo % n) + n) % n;
    for (; rem > 0; --rem) {
        ++counts[r];
        if (++r == n) r = 0;
    }
}

// How many times each source index stands in the window -Radius .. Radius of
// an axis of n samples, modulo 2^32 (the integer sums wrap the same way, so a
// weighted sum with these counts equals the sum taken position by position).
void WindowCounts(int32_t n, int64_t radius, int32_t EdgeMode, uint32_t* counts) {
    std::fill(counts, counts + n, 0u);
    // Inside positions.
    for (int64_t p = 0; p < n && p <= radius; ++p) ++counts[p];
    // Positions -radius .. -1.
    if (EdgeMode == EDGE_REPLICATE) {
        counts[0] += static_cast<uint32_t>(radius);
    } else {
        AddResidues(1, radius, n, counts);  // -p reduced by whole sizes
    }
    // Positions n .. radius.
    if (radius >= n) {
        if (EdgeMode == EDGE_REPLICATE) {
            counts[n - 1] += static_cast<uint32_t>(radius - n + 1);
        } else {
            // 2n - p - 2 for p = n .. radius; the negative ones are lifted by
            // whole sizes, which is their residue.
            AddResidues(2 * int64_t(n) - 2 - radius, int64_t(n) - 2, n, counts);
        }
    }
}

// Exact replacements of the truncating division sum / area for every sum in
// 0 .. 255 * area (the byte sums cannot exceed that while they do not wrap).
//
// Both are non-decreasing functions of the sum: int -> float conversion and
// float multiplication round to nearest, truncation and the 64-bit
// multiply-shift are monotonic. A non-decreasing function that agrees with the
// quotient at q * area - 1 and q * area for every q in 1 .. 255 agrees with it
// everywhere in between, so checking those 510 points proves it for all sums.
struct Divider {
    enum Kind { kFloat, kMultiplyShift, kDivide } kind = kDivide;
    float reciprocal = 0;   // kFloat: trunc(float(sum) * reciprocal)
    uint32_t multiplier = 0;  // kMultiplyShift: (sum * multiplier) >> shift
    int shift = 0;
};

bool FloatDivides(uint32_t area, float f) {
    for (uint32_t q = 1; q <= 255; ++q) {
        const int32_t lo = static_cast<int32_t>(q * area - 1), hi = static_cast<int32_t>(q * area);
        if (TruncToInt(static_cast<float>(lo) * f) != int32_t(q - 1)) return false;
        if (TruncToInt(static_cast<float>(hi) * f) != int32_t(q)) return false;
    }
    return true;
}

bool MultiplyShiftDivides(uint32_t area, uint64_t m, int k) {
    for (uint64_t q = 1; q <= 255; ++q) {
        if (((q * area - 1) * m) >> k != q - 1) return false;
        if (((q * area) * m) >> k != q) return false;
    }
    return true;
}

Divider MakeDivider(uint32_t side) {
    Divider div;
    const uint64_t area = uint64_t(side) * side;
    // Beyond this the sums may wrap and take any 32-bit value (and float
    // conversion of sums past 2^31 would need unsigned handling): plain division.
    if (area * 255 >= (uint64_t(1) << 31)) return div;
    float f = static_cast<float>(1.0 / double(area));
    for (int tries = 0; tries < 8; ++tries, f = std::nextafter(f, 2.0f)) {
        if (FloatDivides(uint32_t(area), f)) {
            div.kind = Divider::kFloat;
            div.reciprocal = f;
            return div;
        }
    }
    // m = ceil(2^k / area) below 2^32, so that a 32 x 32 -> 64 bit product serves.
    for (int k = 32; k < 64; ++k) {
        const uint64_t p = uint64_t(1) << k;
        const uint64_t m = (p + area - 1) / area;
        if (m >> 32) break;
        if (MultiplyShiftDivides(uint32_t(area), m, k)) {
            div.kind = Divider::kMultiplyShift;
            div.multiplier = uint32_t(m);
            div.shift = k;
            return div;
        }
    }
    return div;
}

// Four sums divided by the area, as four 32-bit quotients.
inline __m128i DivideFloat(__m128i sums, __m128 f) {
    return _mm_cvttps_epi32(_mm_mul_ps(_mm_cvtepi32_ps(sums), f));
}
inline __m128i DivideMultiplyShift(__m128i sums, __m128i m, __m128i shift) {
    const __m128i even = _mm_srl_epi64(_mm_mul_epu32(sums, m), shift);
    const __m128i odd = _mm_srl_epi64(_mm_mul_epu32(_mm_srli_epi64(sums, 32), m), shift);
    return _mm_or_si128(even, _mm_slli_epi64(odd, 32));
}

// Writes n bytes of quotients (each below 256 whenever the divider is not a
// plain division).
void DivideRow(const uint32_t* box, uint8_t* d, int32_t n, uint32_t area, const Divider& div) {
    int32_t i = 0;
    if (div.kind == Divider::kFloat) {
        const __m128 f = _mm_set1_ps(div.reciprocal);
        for (; i + 16 <= n; i += 16) {
            const __m128i* b = reinterpret_cast<const __m128i*>(box + i);
            const __m128i q0 = DivideFloat(_mm_loadu_si128(b), f);
            const __m128i q1 = DivideFloat(_mm_loadu_si128(b + 1), f);
            const __m128i q2 = DivideFloat(_mm_loadu_si128(b + 2), f);
            const __m128i q3 = DivideFloat(_mm_loadu_si128(b + 3), f);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(d + i),
                             _mm_packus_epi16(_mm_packs_epi32(q0, q1), _mm_packs_epi32(q2, q3)));
        }
        for (; i < n; ++i) d[i] = static_cast<uint8_t>(TruncToInt(static_cast<float>(int32_t(box[i])) * div.reciprocal));
    } else if (div.kind == Divider::kMultiplyShift) {
        const __m128i m = _mm_set1_epi32(int32_t(div.multiplier));
        const __m128i shift = _mm_cvtsi32_si128(div.shift);
        for (; i + 16 <= n; i += 16) {
            const __m128i* b = reinterpret_cast<const __m128i*>(box + i);
            const __m128i q0 = DivideMultiplyShift(_mm_loadu_si128(b), m, shift);
            const __m128i q1 = DivideMultiplyShift(_mm_loadu_si128(b + 1), m, shift);
            const __m128i q2 = DivideMultiplyShift(_mm_loadu_si128(b + 2), m, shift);
            const __m128i q3 = DivideMultiplyShift(_mm_loadu_si128(b + 3), m, shift);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(d + i),
                             _mm_packus_epi16(_mm_packs_epi32(q0, q1), _mm_packs_epi32(q2, q3)));
        }
        for (; i < n; ++i) d[i] = static_cast<uint8_t>((uint64_t(box[i]) * div.multiplier) >> div.shift);
    }
    for (; i < n; ++i) d[i] = static_cast<uint8_t>(box[i] / area);
}

struct Tables {
    Buffer<int32_t> add, sub;  // index entering / leaving the window at each position
    Buffer<uint32_t> counts;   // multiplicity of each index in the first window
};

void BuildTables(int32_t n, int32_t radius, int32_t EdgeMode, Tables& t) {
    t.add.Reset(size_t(n));
    t.sub.Reset(size_t(n));
    t.counts.Reset(size_t(n));
    for (int32_t i = 0; i < n; ++i) {
        t.add[i] = MapEdgeIndex(int64_t(i) + radius, n, EdgeMode);
        t.sub[i] = MapEdgeIndex(int64_t(i) - radius - 1, n, EdgeMode);
    }
    WindowCounts(n, radius, EdgeMode, t.counts.data());
}

// colsum[i] += k * s[i] for n sums (modulo 2^32).
void AccumulateRow(uint32_t* colsum, const uint8_t* s, int32_t n, uint32_t k) {
    int32_t i = 0;
    if (k == 1) {
        const __m128i zero = _mm_setzero_si128();
        for (; i + 16 <= n; i += 16) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i));
            const __m128i lo = _mm_unpacklo_epi8(v, zero), hi = _mm_unpackhi_epi8(v, zero);
            __m128i* c = reinterpret_cast<__m128i*>(colsum + i);
            _mm_storeu_si128(c, _mm_add_epi32(_mm_loadu_si128(c), _mm_unpacklo_epi16(lo, zero)));
            _mm_storeu_si128(c + 1, _mm_add_epi32(_mm_loadu_si128(c + 1), _mm_unpackhi_epi16(lo, zero)));
            _mm_storeu_si128(c + 2, _mm_add_epi32(_mm_loadu_si128(c + 2), _mm_unpacklo_epi16(hi, zero)));
            _mm_storeu_si128(c + 3, _mm_add_epi32(_mm_loadu_si128(c + 3), _mm_unpackhi_epi16(hi, zero)));
        }
    }
    for (; i < n; ++i) colsum[i] += k * s[i];
}

// colsum[i] += add[i] - sub[i] for n sums: the column sums move down one row.
void SlideColumns(uint32_t* colsum, const uint8_t* add, const uint8_t* sub, int32_t n) {
    int32_t i = 0;
    const __m128i zero = _mm_setzero_si128();
    for (; i + 16 <= n; i += 16) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(add + i));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(sub + i));
        // Differences -255 .. 255 in 16 bits, sign-extended to 32.
        const __m128i dlo = _mm_sub_epi16(_mm_unpacklo_epi8(a, zero), _mm_unpacklo_epi8(b, zero));
        const __m128i dhi = _mm_sub_epi16(_mm_unpackhi_epi8(a, zero), _mm_unpackhi_epi8(b, zero));
        const __m128i slo = _mm_srai_epi16(dlo, 15), shi = _mm_srai_epi16(dhi, 15);
        __m128i* c = reinterpret_cast<__m128i*>(colsum + i);
        _mm_storeu_si128(c, _mm_add_epi32(_mm_loadu_si128(c), _mm_unpacklo_epi16(dlo, slo)));
        _mm_storeu_si128(c + 1, _mm_add_epi32(_mm_loadu_si128(c + 1), _mm_unpackhi_epi16(dlo, slo)));
        _mm_storeu_si128(c + 2, _mm_add_epi32(_mm_loadu_si128(c + 2), _mm_unpacklo_epi16(dhi, shi)));
        _mm_storeu_si128(c + 3, _mm_add_epi32(_mm_loadu_si128(c + 3), _mm_unpackhi_epi16(dhi, shi)));
    }
    for (; i < n; ++i) colsum[i] += uint32_t(add[i]) - uint32_t(sub[i]);
}

// Box sums of one row from the column sums, C interleaved channels.
void HorizontalSums(const uint32_t* colsum, uint32_t* box, const Tables& cols, int32_t Width, int32_t C) {
    if (C == 3) {
        // The three channels of a pixel share one vector (the fourth lane is
        // scratch; both buffers hold one element more than the row).
        __m128i s = _mm_setzero_si128();
        for (int32_t x = 0; x < Width; ++x) {
            const uint32_t k = cols.counts[x];
            if (!k) continue;
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(colsum + 3 * x));
            if (k == 1) {
                s = _mm_add_epi32(s, v);
            } else {
                const __m128i m = _mm_set1_epi32(int32_t(k));
                const __m128i even = _mm_mul_epu32(v, m);
                const __m128i odd = _mm_mul_epu32(_mm_srli_epi64(v, 32), m);
                s = _mm_add_epi32(s, _mm_unpacklo_epi32(_mm_shuffle_epi32(even, _MM_SHUFFLE(0, 0, 2, 0)),
                                                        _mm_shuffle_epi32(odd, _MM_SHUFFLE(0, 0, 2, 0))));
            }
        }
        _mm_storeu_si128(reinterpret_cast<__m128i*>(box), s);
        const int32_t* add = cols.add.data();
        const int32_t* sub = cols.sub.data();
        for (int32_t x = 1; x < Width; ++x) {
            const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(colsum + 3 * add[x]));
            const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(colsum + 3 * sub[x]));
            s = _mm_add_epi32(s, _mm_sub_epi32(a, b));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(box + 3 * x), s);
        }
        return;
    }
    for (int32_t c = 0; c < C; ++c) {
        uint32_t s = 0;
        for (int32_t x = 0; x < Width; ++x) s += cols.counts[x] * colsum[x * C + c];
        box[c] = s;
        for (int32_t x = 1; x < Width; ++x) {
            s += colsum[cols.add[x] * C + c] - colsum[cols.sub[x] * C + c];
            box[x * C + c] = s;
        }
    }
}

void BoxBlurBytes(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                  int32_t Stride, int32_t Radius, int32_t EdgeMode, int32_t C) {
    Tables cols, rows;
    BuildTables(Width, Radius, EdgeMode, cols);
    BuildTables(Height, Radius, EdgeMode, rows);
    const uint32_t side = 2 * static_cast<uint32_t>(Radius) + 1;
    const uint32_t area = side * side;  // wraps for very large radii, as the sums do
    const int32_t n = Width * C;
    const Divider div = MakeDivider(side);
    Buffer<uint32_t> colsum(size_t(n) + 1, true);
    Buffer<uint32_t> box(size_t(n) + 1, true);

    for (int32_t y = 0; y < Height; ++y) {
        if (y == 0) {
            for (int32_t r = 0; r < Height; ++r) {
                const uint32_t k = rows.counts[r];
                if (!k) continue;
                const uint8_t* s = Src + size_t(r) * Stride;
                if (C == 4) {
                    for (int32_t x = 0; x < Width; ++x)
                        for (int32_t c = 0; c < 4; ++c)
                            colsum[4 * x + c] +=
                                k * (c == 3 ? s[4 * x + 3] : uint32_t(s[4 * x + c]) * s[4 * x + 3]);
                } else {
                    AccumulateRow(colsum.data(), s, n, k);
                }
            }
        } else {
            const uint8_t* sa = Src + size_t(rows.add[y]) * Stride;
            const uint8_t* ss = Src + size_t(rows.sub[y]) * Stride;
            if (C == 4) {
                for (int32_t x = 0; x < Width; ++x) {
                    const uint32_t aa = sa[4 * x + 3], as = ss[4 * x + 3];
                    for (int32_t c = 0; c < 3; ++c)
                        colsum[4 * x + c] += sa[4 * x + c] * aa - ss[4 * x + c] * as;
                    colsum[4 * x + 3] += aa - as;
                }
            } else {
                SlideColumns(colsum.data(), sa, ss, n);
            }
        }
        HorizontalSums(colsum.data(), box.data(), cols, Width, C);
        uint8_t* d = Dest + size_t(y) * Stride;
        if (C == 4) {
            for (int32_t x = 0; x < Width; ++x) {
                const uint32_t alpha = box[4 * x + 3];
                if (alpha == 0) continue;  // a fully transparent box leaves the pixel as it was
                for (int32_t c = 0; c < 3; ++c) d[4 * x + c] = static_cast<uint8_t>(box[4 * x + c] / alpha);
                d[4 * x + 3] = static_cast<uint8_t>(static_cast<int32_t>(alpha) / static_cast<int32_t>(area));
            }
        } else {
            DivideRow(box.data(), d, n, area, div);
        }
    }
}

// ---- fast path: 1 or 3 bytes per pixel, radius up to 127 ----------------------
//
// The column sums stay below 255 * 255 < 2^16, so they are kept in 16 bits
// (exact, the arithmetic being modulo 2^16). Each row's sums sit in an
// extended row ext of Width + 2 Radius + 1 pixels, ext[k] being the column sum
// of column k - Radius - 1 through the border rule; the box sum of pixel x is
// then box[x - 1] + ext[x + 2 Radius + 1] - ext[x], a running (prefix) sum that
// is taken four or twelve lanes at a time. All sums are modulo 2^32 as in the
// plain running form, so the results are identical.

constexpr int32_t kFastRadius = 127;

struct FloatQuotient {
    __m128 f;
    explicit FloatQuotient(const Divider& d) : f(_mm_set1_ps(d.reciprocal)) {}
    __m128i operator()(__m128i v) const { return DivideFloat(v, f); }
};
struct MultiplyShiftQuotient {
    __m128i m, shift;
    explicit MultiplyShiftQuotient(const Divider& d)
        : m(_mm_set1_epi32(int32_t(d.multiplier))), shift(_mm_cvtsi32_si128(d.shift)) {}
    __m128i operator()(__m128i v) const { return DivideMultiplyShift(v, m, shift); }
};

inline uint32_t ScalarQuotient(uint32_t sum, const Divider& d) {
    if (d.kind == Divider::kFloat) return uint32_t(TruncToInt(static_cast<float>(int32_t(sum)) * d.reciprocal));
    return uint32_t((uint64_t(sum) * d.multiplier) >> d.shift);
}

// Entering minus leaving column sums of 8 consecutive elements, as two
// vectors of signed 32-bit differences.
inline void Differences(const uint16_t* enter, const uint16_t* leave, __m128i& lo, __m128i& hi) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(enter));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(leave));
    lo = _mm_sub_epi32(_mm_unpacklo_epi16(a, zero), _mm_unpacklo_epi16(b, zero));
    hi = _mm_sub_epi32(_mm_unpackhi_epi16(a, zero), _mm_unpackhi_epi16(b, zero));
}

inline __m128i Pack16(__m128i q0, __m128i q1, __m128i q2, __m128i q3) {
    return _mm_packus_epi16(_mm_packs_epi32(q0, q1), _mm_packs_epi32(q2, q3));
}

// One grey row: 16 pixels per step, a four-lane prefix sum each.
template <class Quotient>
void GreyRow(const uint16_t* ext, uint8_t* d, int32_t Width, int32_t Radius, uint32_t carry0,
             const Divider& div, Quotient quotient) {
    const int32_t lag = 2 * Radius + 1;
    __m128i carry = _mm_set1_epi32(int32_t(carry0));
    int32_t x = 0;
    for (; x + 16 <= Width; x += 16) {
        __m128i v[4];
        Differences(ext + x + lag, ext + x, v[0], v[1]);
        Differences(ext + x + lag + 8, ext + x + 8, v[2], v[3]);
        for (int j = 0; j < 4; ++j) {
            v[j] = _mm_add_epi32(v[j], _mm_slli_si128(v[j], 4));
            v[j] = _mm_add_epi32(v[j], _mm_slli_si128(v[j], 8));
            v[j] = _mm_add_epi32(v[j], carry);
            carry = _mm_shuffle_epi32(v[j], _MM_SHUFFLE(3, 3, 3, 3));
            v[j] = quotient(v[j]);
        }
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d + x), Pack16(v[0], v[1], v[2], v[3]));
    }
    uint32_t s = uint32_t(_mm_cvtsi128_si32(carry));
    for (; x < Width; ++x) {
        s += uint32_t(ext[x + lag]) - uint32_t(ext[x]);
        d[x] = static_cast<uint8_t>(ScalarQuotient(s, div));
    }
}

// One three-channel row: 16 pixels (48 sums) per step, in blocks of four
// pixels held by three vectors; the prefix runs over pixels, so lanes are
// shifted by three and six elements across the block.
template <class Quotient>
void ColourRow(const uint16_t* ext, uint8_t* d, int32_t Width, int32_t Radius, const uint32_t carry0[3],
               const Divider& div, Quotient quotient) {
    const int32_t lag = 3 * (2 * Radius + 1);
    __m128i k0 = _mm_setr_epi32(int32_t(carry0[0]), int32_t(carry0[1]), int32_t(carry0[2]), int32_t(carry0[0]));
    __m128i k1 = _mm_shuffle_epi32(k0, _MM_SHUFFLE(1, 0, 2, 1));
    __m128i k2 = _mm_shuffle_epi32(k0, _MM_SHUFFLE(2, 1, 0, 2));
    int32_t x = 0;
    for (; x + 16 <= Width; x += 16) {
        const uint16_t* e = ext + 3 * x;
        __m128i q[12];
        for (int b = 0; b < 4; b += 2) {
            // Two blocks of four pixels: 24 differences.
            __m128i v[6];
            Differences(e + lag + 12 * b, e + 12 * b, v[0], v[1]);
            Differences(e + lag + 12 * b + 8, e + 12 * b + 8, v[2], v[3]);
            Differences(e + lag + 12 * b + 16, e + 12 * b + 16, v[4], v[5]);
            for (int h = 0; h < 6; h += 3) {
                __m128i v0 = v[h], v1 = v[h + 1], v2 = v[h + 2];
                // + the pixel before.
                const __m128i s0 = _mm_slli_si128(v0, 12);
                const __m128i s1 = _mm_or_si128(_mm_srli_si128(v0, 4), _mm_slli_si128(v1, 12));
                const __m128i s2 = _mm_or_si128(_mm_srli_si128(v1, 4), _mm_slli_si128(v2, 12));
                v0 = _mm_add_epi32(v0, s0);
                v1 = _mm_add_epi32(v1, s1);
                v2 = _mm_add_epi32(v2, s2);
                // + the pair two pixels before.
                const __m128i t1 = _mm_slli_si128(v0, 8);
                const __m128i t2 = _mm_or_si128(_mm_srli_si128(v0, 8), _mm_slli_si128(v1, 8));
                v1 = _mm_add_epi32(v1, t1);
                v2 = _mm_add_epi32(v2, t2);
                v0 = _mm_add_epi32(v0, k0);
                v1 = _mm_add_epi32(v1, k1);
                v2 = _mm_add_epi32(v2, k2);
                k0 = _mm_shuffle_epi32(v2, _MM_SHUFFLE(1, 3, 2, 1));
                k1 = _mm_shuffle_epi32(v2, _MM_SHUFFLE(2, 1, 3, 2));
                k2 = _mm_shuffle_epi32(v2, _MM_SHUFFLE(3, 2, 1, 3));
                const int o = 3 * (b + h / 3);
                q[o] = quotient(v0);
                q[o + 1] = quotient(v1);
                q[o + 2] = quotient(v2);
            }
        }
        __m128i* out = reinterpret_cast<__m128i*>(d + 3 * x);
        _mm_storeu_si128(out, Pack16(q[0], q[1], q[2], q[3]));
        _mm_storeu_si128(out + 1, Pack16(q[4], q[5], q[6], q[7]));
        _mm_storeu_si128(out + 2, Pack16(q[8], q[9], q[10], q[11]));
    }
    uint32_t s[3] = {uint32_t(_mm_cvtsi128_si32(k0)), uint32_t(_mm_cvtsi128_si32(k1)),
                     uint32_t(_mm_cvtsi128_si32(k2))};
    for (; x < Width; ++x)
        for (int c = 0; c < 3; ++c) {
            s[c] += uint32_t(ext[3 * x + lag + c]) - uint32_t(ext[3 * x + c]);
            d[3 * x + c] = static_cast<uint8_t>(ScalarQuotient(s[c], div));
        }
}

// Sum of n 16-bit column sums.
uint32_t SumOfSums(const uint16_t* e, int32_t n) {
    const __m128i zero = _mm_setzero_si128();
    __m128i acc = zero;
    int32_t i = 0;
    for (; i + 8 <= n; i += 8) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(e + i));
        acc = _mm_add_epi32(acc, _mm_add_epi32(_mm_unpacklo_epi16(v, zero), _mm_unpackhi_epi16(v, zero)));
    }
    acc = _mm_add_epi32(acc, _mm_srli_si128(acc, 8));
    acc = _mm_add_epi32(acc, _mm_srli_si128(acc, 4));
    uint32_t s = uint32_t(_mm_cvtsi128_si32(acc));
    for (; i < n; ++i) s += e[i];
    return s;
}

// Per-channel sums of n three-channel pixels of column sums (twelve lanes,
// four pixels, per step).
void SumOfColourSums(const uint16_t* e, int32_t n, uint32_t out[3]) {
    const __m128i zero = _mm_setzero_si128();
    __m128i a0 = zero, a1 = zero, a2 = zero;
    int32_t x = 0;
    for (; x + 4 <= n; x += 4) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(e + 3 * x));
        const __m128i w = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(e + 3 * x + 8));
        a0 = _mm_add_epi32(a0, _mm_unpacklo_epi16(v, zero));
        a1 = _mm_add_epi32(a1, _mm_unpackhi_epi16(v, zero));
        a2 = _mm_add_epi32(a2, _mm_unpacklo_epi16(w, zero));
    }
    alignas(16) uint32_t l[12];
    _mm_store_si128(reinterpret_cast<__m128i*>(l), a0);
    _mm_store_si128(reinterpret_cast<__m128i*>(l + 4), a1);
    _mm_store_si128(reinterpret_cast<__m128i*>(l + 8), a2);
    for (int c = 0; c < 3; ++c) out[c] = l[c] + l[c + 3] + l[c + 6] + l[c + 9];
    for (; x < n; ++x)
        for (int c = 0; c < 3; ++c) out[c] += e[3 * x + c];
}

// col[i] += k * s[i] (modulo 2^16).
void AccumulateRow16(uint16_t* col, const uint8_t* s, int32_t n, uint32_t k) {
    int32_t i = 0;
    if (k == 1) {
        const __m128i zero = _mm_setzero_si128();
        for (; i + 16 <= n; i += 16) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i));
            __m128i* c = reinterpret_cast<__m128i*>(col + i);
            _mm_storeu_si128(c, _mm_add_epi16(_mm_loadu_si128(c), _mm_unpacklo_epi8(v, zero)));
            _mm_storeu_si128(c + 1, _mm_add_epi16(_mm_loadu_si128(c + 1), _mm_unpackhi_epi8(v, zero)));
        }
    }
    for (; i < n; ++i) col[i] = static_cast<uint16_t>(col[i] + k * s[i]);
}

// col[i] += add[i] - sub[i] (modulo 2^16): the column sums move down one row.
void SlideColumns16(uint16_t* col, const uint8_t* add, const uint8_t* sub, int32_t n) {
    int32_t i = 0;
    const __m128i zero = _mm_setzero_si128();
    for (; i + 16 <= n; i += 16) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(add + i));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(sub + i));
        __m128i* c = reinterpret_cast<__m128i*>(col + i);
        const __m128i lo = _mm_sub_epi16(_mm_unpacklo_epi8(a, zero), _mm_unpacklo_epi8(b, zero));
        const __m128i hi = _mm_sub_epi16(_mm_unpackhi_epi8(a, zero), _mm_unpackhi_epi8(b, zero));
        _mm_storeu_si128(c, _mm_add_epi16(_mm_loadu_si128(c), lo));
        _mm_storeu_si128(c + 1, _mm_add_epi16(_mm_loadu_si128(c + 1), hi));
    }
    for (; i < n; ++i) col[i] = static_cast<uint16_t>(col[i] + add[i] - sub[i]);
}

template <class Quotient>
void BoxBlurFast(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                 int32_t Radius, int32_t EdgeMode, int32_t C, const Divider& div) {
    Tables rows;
    BuildTables(Height, Radius, EdgeMode, rows);
    const int32_t extent = Width + 2 * Radius + 1;
    // Source column of each border pixel of the extended row (k <= Radius on
    // the left, k > Width + Radius on the right).
    // Entry j stands for ext pixel j (j <= Radius) or Width + j (j > Radius).
    Buffer<int32_t> border(size_t(2 * Radius + 1));
    for (int32_t j = 0; j <= 2 * Radius; ++j) {
        const int64_t k = j <= Radius ? j : int64_t(Width) + j;
        border[j] = MapEdgeIndex(k - Radius - 1, Width, EdgeMode);
    }
    Buffer<uint16_t> ext(size_t(extent) * C, true);
    uint16_t* col = ext.data() + size_t(Radius + 1) * C;
    const int32_t n = Width * C;
    const Quotient quotient(div);
    for (int32_t y = 0; y < Height; ++y) {
        if (y == 0) {
            for (int32_t r = 0; r < Height; ++r)
                if (rows.counts[r]) AccumulateRow16(col, Src + size_t(r) * Stride, n, rows.counts[r]);
        } else {
            SlideColumns16(col, Src + size_t(rows.add[y]) * Stride, Src + size_t(rows.sub[y]) * Stride, n);
        }
        // Border pixels of the extended row, then the box sum "before" pixel
        // 0 (ext pixels 0 .. 2 Radius).
        uint32_t carry[3] = {0, 0, 0};
        if (C == 1) {
            for (int32_t j = 0; j <= Radius; ++j) ext[j] = col[border[j]];
            for (int32_t j = Radius + 1; j <= 2 * Radius; ++j) ext[Width + j] = col[border[j]];
            carry[0] = SumOfSums(ext.data(), 2 * Radius + 1);
        } else {
            for (int32_t j = 0; j <= Radius; ++j) {
                const uint16_t* from = col + 3 * size_t(border[j]);
                ext[3 * j] = from[0];
                ext[3 * j + 1] = from[1];
                ext[3 * j + 2] = from[2];
            }
            for (int32_t j = Radius + 1; j <= 2 * Radius; ++j) {
                const uint16_t* from = col + 3 * size_t(border[j]);
                uint16_t* to = ext.data() + 3 * (size_t(Width) + j);
                to[0] = from[0];
                to[1] = from[1];
                to[2] = from[2];
            }
            SumOfColourSums(ext.data(), 2 * Radius + 1, carry);
        }
        uint8_t* d = Dest + size_t(y) * Stride;
        if (C == 1)
            GreyRow(ext.data(), d, Width, Radius, carry[0], div, quotient);
        else
            ColourRow(ext.data(), d, Width, Radius, carry, div, quotient);
    }
}

}  // namespace

void BoxBlur(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
             int32_t Radius, int32_t EdgeMode) {
    // Null buffers, an empty image or a negative radius are answered by
    // returning without writing.
    if (!RawArgsValid(Src, Dest, Width, Height, Stride) || Radius < 0) return;
    const int32_t C = BytesPerPixel(Width, Stride);
    if (C != 1 && C != 3 && C != 4) return;  // other layouts are not written
    InPlaceCopy src(Src, Dest, ImageBytes(Height, Stride));
    if (C != 4 && Radius <= kFastRadius) {
        const Divider div = MakeDivider(2 * uint32_t(Radius) + 1);
        if (div.kind == Divider::kFloat)
            return BoxBlurFast<FloatQuotient>(src.get(), Dest, Width, Height, Stride, Radius, EdgeMode, C, div);
        if (div.kind == Divider::kMultiplyShift)
            return BoxBlurFast<MultiplyShiftQuotient>(src.get(), Dest, Width, Height, Stride, Radius, EdgeMode,
                                                      C, div);
    }
    BoxBlurBytes(src.get(), Dest, Width, Height, Stride, Radius, EdgeMode, C);
}

void BoxBlurDouble(const double* Src, double* Dest, int32_t Width, int32_t Height,
                   int32_t Stride, int32_t Radius, int32_t EdgeMode) {
    if (!Src || !Dest || Width <= 0 || Height <= 0 || Stride < Width || Radius < 0) return;
    // Later rows still read rows that earlier output rows overwrite in place.
    Buffer<double> copy;
    if (Src == Dest) {
        copy.Reset(ImageBytes(Height, Stride));
        std::memcpy(copy.data(), Src, ImageBytes(Height, Stride) * sizeof(double));
        Src = copy.data();
    }
    BoxMeanRows<1> means(Width, Height, Radius, EdgeMode);
    const PlaneRows rows{Src, size_t(Stride)};
    for (int32_t y = 0; y < Height; ++y) {
        double* out[1] = {Dest + size_t(y) * Stride};
        means.Next(rows, out);
    }
}

}  // namespace velomar

VL_API void VL_CALL BoxBlur(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                            int32_t Height, int32_t Stride, int32_t Radius, int32_t EdgeMode) {
    velomar::Guarded([&] { velomar::BoxBlur(Src, Dest, Width, Height, Stride, Radius, EdgeMode); });
}
