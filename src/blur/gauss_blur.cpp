// Recursive Gaussian: a third-order filter run forwards then backwards along
// every row, then along every column; the cost per sample does not depend on
// Sigma.
#include <immintrin.h>

#include <algorithm>
#include <cmath>

#include "blur/blur.h"
#include "core/cpu.h"

namespace velomar {

namespace {

struct GaussCoefficients {
    double B, c1, c2, c3;
};

GaussCoefficients MakeCoefficients(double Sigma) {
    double q;
    if (Sigma >= 2.5) {
        q = 0.98711 * Sigma - 0.9633;
    } else if (Sigma >= 0.5) {
        q = 3.97156 - 4.14554 * std::sqrt(1 - 0.26891 * Sigma);
    } else {
        // Smaller values and NaN: the square-root form at 0.5, as a float.
        q = 0.11477050185203552;
    }
    const double q2 = q * q, q3 = q2 * q;
    const double b0 = 1.57825 + 2.44413 * q + 1.4281 * q2 + 0.422205 * q3;
    const double b1 = 2.44413 * q + 2.85619 * q2 + 1.26661 * q3;
    const double b2 = -1.4281 * q2 - 1.26661 * q3;
    const double b3 = 0.422205 * q3;
    GaussCoefficients g;
    g.B = 1 - (b1 + b2 + b3) / b0;
    g.c1 = b1 / b0;
    g.c2 = b2 / b0;
    g.c3 = b3 / b0;
    return g;
}

// Filters one line of n samples, `step` elements apart, forwards into w and
// backwards into y (both n + 6 long); Load(i) gives sample i as a double and
// Store(i, v) writes output i.
template <class Load, class Store>
void FilterLine(const GaussCoefficients& g, int32_t n, double* w, double* y, Load load, Store store) {
    const double x0 = load(0);
    w[0] = w[1] = w[2] = x0;
    for (int32_t i = 3; i < n + 3; ++i)
        w[i] = g.B * load(i - 3) + g.c1 * w[i - 1] + g.c2 * w[i - 2] + g.c3 * w[i - 3];
    const double xl = load(n - 1);
    for (int32_t i = n + 3; i < n + 6; ++i)
        w[i] = g.B * xl + g.c1 * w[i - 1] + g.c2 * w[i - 2] + g.c3 * w[i - 3];
    y[n + 3] = w[n + 3];
    y[n + 4] = w[n + 4];
    y[n + 5] = w[n + 5];
    for (int32_t i = n + 2; i >= 3; --i) {
        y[i] = g.B * w[i] + g.c1 * y[i + 1] + g.c2 * y[i + 2] + g.c3 * y[i + 3];
    }
    for (int32_t i = 0; i < n; ++i) store(i, y[i + 3]);
}

inline uint8_t LowByte(double v) { return static_cast<uint8_t>(TruncToInt(v)); }

// 16 x 16 byte transpose.
void Transpose16(const __m128i in[16], __m128i out[16]) {
    __m128i a[16], b[16], c[16];
    for (int k = 0; k < 8; ++k) {
        a[k] = _mm_unpacklo_epi8(in[2 * k], in[2 * k + 1]);      // row pair k, columns 0-7
        a[k + 8] = _mm_unpackhi_epi8(in[2 * k], in[2 * k + 1]);  // columns 8-15
    }
    for (int k = 0; k < 4; ++k) {  // row quad k, column group g at b[k + 4 g]
        b[k] = _mm_unpacklo_epi16(a[2 * k], a[2 * k + 1]);
        b[k + 4] = _mm_unpackhi_epi16(a[2 * k], a[2 * k + 1]);
        b[k + 8] = _mm_unpacklo_epi16(a[2 * k + 8], a[2 * k + 9]);
        b[k + 12] = _mm_unpackhi_epi16(a[2 * k + 8], a[2 * k + 9]);
    }
    for (int g = 0; g < 4; ++g)
        for (int h = 0; h < 2; ++h) {  // row octet h, columns 4g, 4g+1 then 4g+2, 4g+3
            c[4 * g + 2 * h] = _mm_unpacklo_epi32(b[4 * g + 2 * h], b[4 * g + 2 * h + 1]);
            c[4 * g + 2 * h + 1] = _mm_unpackhi_epi32(b[4 * g + 2 * h], b[4 * g + 2 * h + 1]);
        }
    for (int g = 0; g < 4; ++g)
        for (int q = 0; q < 2; ++q) {
            out[4 * g + 2 * q] = _mm_unpacklo_epi64(c[4 * g + q], c[4 * g + 2 + q]);
            out[4 * g + 2 * q + 1] = _mm_unpackhi_epi64(c[4 * g + q], c[4 * g + 2 + q]);
        }
}

// Bytes 0 .. n-1 of sixteen rows into t (sample j of row r at t[j * Pitch + r]),
// and back.
inline void RowsToLanes(const uint8_t* const rows[16], int32_t n, int32_t Pitch, uint8_t* t) {
    int32_t j = 0;
    for (; j + 16 <= n; j += 16) {
        __m128i in[16], out[16];
        for (int r = 0; r < 16; ++r) in[r] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[r] + j));
        Transpose16(in, out);
        for (int k = 0; k < 16; ++k) _mm_storeu_si128(reinterpret_cast<__m128i*>(t + size_t(j + k) * Pitch), out[k]);
    }
    for (; j < n; ++j)
        for (int r = 0; r < 16; ++r) t[size_t(j) * Pitch + r] = rows[r][j];
}

inline void LanesToRows(const uint8_t* t, int32_t n, int32_t Pitch, uint8_t* const rows[16]) {
    int32_t j = 0;
    for (; j + 16 <= n; j += 16) {
        __m128i in[16], out[16];
        for (int k = 0; k < 16; ++k)
            in[k] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(t + size_t(j + k) * Pitch));
        Transpose16(in, out);
        for (int r = 0; r < 16; ++r) _mm_storeu_si128(reinterpret_cast<__m128i*>(rows[r] + j), out[r]);
    }
    for (; j < n; ++j)
        for (int r = 0; r < 16; ++r) rows[r][j] = t[size_t(j) * Pitch + r];
}

// ---- many lines at once, per instruction set --------------------------------------

namespace sse2 {

struct Lanes {
    using D = __m128d;
    static constexpr int32_t kPer = 2;
    static D Set1(double v) { return _mm_set1_pd(v); }
    static D Add(D a, D b) { return _mm_add_pd(a, b); }
    static D Mul(D a, D b) { return _mm_mul_pd(a, b); }
    static D Load(const double* p) { return _mm_loadu_pd(p); }
    static void Store(double* p, D v) { _mm_storeu_pd(p, v); }
    static void FromBytes(const uint8_t* p, D x[8]) {
        const __m128i zero = _mm_setzero_si128();
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        const __m128i lo = _mm_unpacklo_epi8(v, zero), hi = _mm_unpackhi_epi8(v, zero);
        const __m128i q[4] = {_mm_unpacklo_epi16(lo, zero), _mm_unpackhi_epi16(lo, zero),
                              _mm_unpacklo_epi16(hi, zero), _mm_unpackhi_epi16(hi, zero)};
        for (int j = 0; j < 4; ++j) {
            x[2 * j] = _mm_cvtepi32_pd(q[j]);
            x[2 * j + 1] = _mm_cvtepi32_pd(_mm_shuffle_epi32(q[j], _MM_SHUFFLE(3, 2, 3, 2)));
        }
    }
    static void ToBytes(const D y[8], uint8_t* p) {
        const __m128i mask = _mm_set1_epi32(0xFF);
        __m128i q[4];
        for (int j = 0; j < 4; ++j)
            q[j] = _mm_and_si128(_mm_unpacklo_epi64(_mm_cvttpd_epi32(y[2 * j]), _mm_cvttpd_epi32(y[2 * j + 1])), mask);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(p),
                         _mm_packus_epi16(_mm_packs_epi32(q[0], q[1]), _mm_packs_epi32(q[2], q[3])));
    }
};

#include "blur/gauss_lanes.inc"

// Lines of doubles running down kLanes adjacent columns.
struct DoubleColumns {
    double* base;
    ptrdiff_t step;
    void Load(int32_t i, __m128d x[kVectors]) const {
        for (int j = 0; j < kVectors; ++j) x[j] = _mm_loadu_pd(base + i * step + 2 * j);
    }
    void Store(int32_t i, const __m128d y[kVectors]) const {
        for (int j = 0; j < kVectors; ++j) _mm_storeu_pd(base + i * step + 2 * j, y[j]);
    }
};

// Lines of doubles along kLanes rows.
struct DoubleRows {
    const double* in[kLanes];
    double* out[kLanes];
    void Load(int32_t i, __m128d x[kVectors]) const {
        for (int j = 0; j < kVectors; ++j) x[j] = _mm_loadh_pd(_mm_load_sd(in[2 * j] + i), in[2 * j + 1] + i);
    }
    void Store(int32_t i, const __m128d y[kVectors]) const {
        for (int j = 0; j < kVectors; ++j) {
            _mm_store_sd(out[2 * j] + i, y[j]);
            _mm_storeh_pd(out[2 * j + 1] + i, y[j]);
        }
    }
};

}  // namespace sse2

#if VELOMAR_WIDE_PATHS

VELOMAR_TARGET_BEGIN("avx2")
namespace avx2 {

struct Lanes {
    using D = __m256d;
    static constexpr int32_t kPer = 4;
    static D Set1(double v) { return _mm256_set1_pd(v); }
    static D Add(D a, D b) { return _mm256_add_pd(a, b); }
    static D Mul(D a, D b) { return _mm256_mul_pd(a, b); }
    static D Load(const double* p) { return _mm256_loadu_pd(p); }
    static void Store(double* p, D v) { _mm256_storeu_pd(p, v); }
    static void FromBytes(const uint8_t* p, D x[8]) {
        for (int h = 0; h < 2; ++h) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16 * h));
            x[4 * h] = _mm256_cvtepi32_pd(_mm_cvtepu8_epi32(v));
            x[4 * h + 1] = _mm256_cvtepi32_pd(_mm_cvtepu8_epi32(_mm_srli_si128(v, 4)));
            x[4 * h + 2] = _mm256_cvtepi32_pd(_mm_cvtepu8_epi32(_mm_srli_si128(v, 8)));
            x[4 * h + 3] = _mm256_cvtepi32_pd(_mm_cvtepu8_epi32(_mm_srli_si128(v, 12)));
        }
    }
    static void ToBytes(const D y[8], uint8_t* p) {
        const __m128i mask = _mm_set1_epi32(0xFF);
        for (int h = 0; h < 2; ++h) {
            __m128i q[4];
            for (int j = 0; j < 4; ++j) q[j] = _mm_and_si128(_mm256_cvttpd_epi32(y[4 * h + j]), mask);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(p + 16 * h),
                             _mm_packus_epi16(_mm_packs_epi32(q[0], q[1]), _mm_packs_epi32(q[2], q[3])));
        }
    }
};

#include "blur/gauss_lanes.inc"

}  // namespace avx2
VELOMAR_TARGET_END

VELOMAR_TARGET_BEGIN("avx512f")
// GCC 12's AVX-512 conversion intrinsics start from an undefined vector that
// it then reports as uninitialised; nothing here reads it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuninitialized"
#ifndef __clang__
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
namespace avx512 {

struct Lanes {
    using D = __m512d;
    static constexpr int32_t kPer = 8;
    static D Set1(double v) { return _mm512_set1_pd(v); }
    static D Add(D a, D b) { return _mm512_add_pd(a, b); }
    static D Mul(D a, D b) { return _mm512_mul_pd(a, b); }
    static D Load(const double* p) { return _mm512_loadu_pd(p); }
    static void Store(double* p, D v) { _mm512_storeu_pd(p, v); }
    static void FromBytes(const uint8_t* p, D x[8]) {
        for (int j = 0; j < 8; ++j)
            x[j] = _mm512_cvtepi32_pd(_mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p + 8 * j))));
    }
    // The truncating narrow keeps the low byte of each truncated value.
    static void ToBytes(const D y[8], uint8_t* p) {
        for (int j = 0; j < 4; ++j) {
            const __m512i q = _mm512_inserti64x4(_mm512_castsi256_si512(_mm512_cvttpd_epi32(y[2 * j])),
                                                 _mm512_cvttpd_epi32(y[2 * j + 1]), 1);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(p + 16 * j), _mm512_cvtepi32_epi8(q));
        }
    }
};

#include "blur/gauss_lanes.inc"

}  // namespace avx512
#pragma GCC diagnostic pop
VELOMAR_TARGET_END

#endif

// The row and column passes of the 8-bit blur in blocks of lines, each block
// through the widest path the dispatcher allows whose lane count it fills
// (the last rows or columns through narrower ones); every path gives the
// same bytes.
struct LanePath {
    int32_t lanes;
    void (*rows)(const GaussCoefficients&, const uint8_t* const*, uint8_t* const*, int32_t, int32_t, double*,
                 uint8_t*);
    void (*columns)(const GaussCoefficients&, uint8_t*, int32_t, int32_t, double*);
};

int32_t AllowedPaths(LanePath paths[3]) {
    int32_t count = 0;
#if VELOMAR_WIDE_PATHS
    const Isa isa = ActiveIsa();
    if (isa >= Isa::Avx512) paths[count++] = {avx512::kLanes, avx512::FilterByteRows, avx512::FilterByteColumns};
    if (isa >= Isa::Avx2) paths[count++] = {avx2::kLanes, avx2::FilterByteRows, avx2::FilterByteColumns};
#endif
    paths[count++] = {sse2::kLanes, sse2::FilterByteRows, sse2::FilterByteColumns};
    return count;
}

// The widest allowed path whose lanes fit in `remaining` lines, else the
// narrowest.
const LanePath& PathFor(const LanePath* paths, int32_t count, int32_t remaining) {
    for (int32_t k = 0; k < count; ++k)
        if (paths[k].lanes <= remaining) return paths[k];
    return paths[count - 1];
}

}  // namespace

void GuassBlur(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
               double Sigma) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride)) return;
    // Subnormals are flushed while the 8-bit blur runs: behind a bright edge a
    // long dark run lets the recursion decay into them. The bytes cannot
    // change: every value starts from whole numbers, so subnormals only arise
    // from that decay; they are far below half an ulp of any value that
    // truncates to a non-zero integer, so they vanish when added to one, and a
    // value that stays that small truncates to 0 either way.
    const FlushSubnormals flush;
    const int32_t C = BytesPerPixel(Width, Stride) == 1 ? 1 : 3;
    // Two bytes per pixel would walk past the row: nothing is written.
    if (C == 3 && !ThreeBytesFit(Width, Stride)) return;
    const GaussCoefficients g = MakeCoefficients(Sigma);
    const int32_t n = Width * C;
    LanePath paths[3];
    const int32_t count = AllowedPaths(paths);
    const int32_t maxLanes = paths[0].lanes;
    {
        // Rows, a block at a time through a transposed copy (rows past the
        // last are read as zeros and written to a scratch row).
        Buffer<double> w((size_t(Width) + 6) * maxLanes);
        Buffer<uint8_t> t(size_t(n) * maxLanes);
        Buffer<uint8_t> spare(size_t(n), true), sink{size_t(n)};
        const uint8_t* in[64];
        uint8_t* out[64];
        for (int32_t r0 = 0; r0 < Height;) {
            const LanePath& path = PathFor(paths, count, Height - r0);
            for (int32_t k = 0; k < path.lanes; ++k) {
                const bool real = r0 + k < Height;
                in[k] = real ? Src + size_t(r0 + k) * Stride : spare.data();
                out[k] = real ? Dest + size_t(r0 + k) * Stride : sink.data();
            }
            path.rows(g, in, out, Width, C, w.data(), t.data());
            r0 += path.lanes;
        }
    }
    // Columns, a block of adjacent bytes of each row at a time, read back
    // from Dest; the last few one by one.
    Buffer<double> w((size_t(Height) + 6) * maxLanes);
    int32_t x = 0;
    while (n - x >= sse2::kLanes) {
        const LanePath& path = PathFor(paths, count, n - x);
        path.columns(g, Dest + x, Height, Stride, w.data());
        x += path.lanes;
    }
    Buffer<double> y(size_t(Height) + 6);
    for (; x < n; ++x) {
        uint8_t* d = Dest + x;
        FilterLine(
            g, Height, w.data(), y.data(), [&](int32_t i) { return double(d[size_t(i) * Stride]); },
            [&](int32_t i, double v) { d[size_t(i) * Stride] = LowByte(v); });
    }
}

void GaussBlurDouble(const double* Src, double* Dest, int32_t Width, int32_t Height,
                     int32_t Stride, double Sigma) {
    if (!Src || !Dest || Width <= 0 || Height <= 0 || Stride < Width) return;
    const GaussCoefficients g = MakeCoefficients(Sigma);
    {
        using sse2::kLanes;
        Buffer<double> w((size_t(Width) + 6) * kLanes);
        Buffer<double> spare(size_t(Width), true), sink{size_t(Width)};
        for (int32_t r0 = 0; r0 < Height; r0 += kLanes) {
            sse2::DoubleRows rows;
            for (int k = 0; k < kLanes; ++k) {
                const bool real = r0 + k < Height;
                rows.in[k] = real ? Src + size_t(r0 + k) * Stride : spare.data();
                rows.out[k] = real ? Dest + size_t(r0 + k) * Stride : sink.data();
            }
            sse2::FilterLanes(g, Width, w.data(), rows);
        }
    }
    using sse2::kLanes;
    Buffer<double> w((size_t(Height) + 6) * kLanes);
    int32_t x = 0;
    for (; x + kLanes <= Width; x += kLanes)
        sse2::FilterLanes(g, Height, w.data(), sse2::DoubleColumns{Dest + x, Stride});
    Buffer<double> y(size_t(Height) + 6);
    for (; x < Width; ++x) {
        double* d = Dest + x;
        FilterLine(
            g, Height, w.data(), y.data(), [&](int32_t i) { return d[size_t(i) * Stride]; },
            [&](int32_t i, double v) { d[size_t(i) * Stride] = v; });
    }
}

}  // namespace velomar

VL_API void VL_CALL GuassBlur(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                              int32_t Height, int32_t Stride, double Sigma) {
    velomar::Guarded([&] { velomar::GuassBlur(Src, Dest, Width, Height, Stride, Sigma); });
}
