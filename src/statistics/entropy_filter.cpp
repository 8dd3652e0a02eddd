// Local entropy over a square neighbourhood, stretched per channel to 0..255.
#include <immintrin.h>

#include <bit>
#include <cmath>

#include "core/cpu.h"
#include "core/neighbourhood.h"
#include "statistics/statistics.h"

namespace velomar {

namespace {

// Neighbourhoods whose sums run side by side; each keeps its own sum in bin
// order, the group only shares the walk over bins.
constexpr int kGroup = 8;

struct alignas(16) Histogram {
    uint16_t count[kHistogramBins];
};

// Bins with a non-zero counter, as four 64-bit words.
struct BinMask {
    uint64_t word[4];
};

// E = sum of Table[count] in bin order from 0, for the first Filled
// histograms of the group. Bins empty in every histogram are skipped:
// Table[0] is 0 and adding it leaves a non-negative sum unchanged.
inline void GroupEntropy(const Histogram* Slots, const BinMask& Union, const double* Table, double* Out,
                         int32_t Filled) {
    double s[kGroup] = {};
    for (int w = 0; w < 4; ++w) {
        uint64_t bits = Union.word[w];
        while (bits) {
            const int b = 64 * w + std::countr_zero(bits);
            bits &= bits - 1;
            for (int p = 0; p < kGroup; ++p) s[p] += Table[Slots[p].count[b]];
        }
    }
    for (int p = 0; p < Filled; ++p) Out[p] = s[p];
}

namespace sse2 {
struct Words {
    using V = __m128i;
    static constexpr int32_t kLanes = 8;
    static V Load(const uint16_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
    static void Store(uint16_t* p, V v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }
    static V Add(V a, V b) { return _mm_add_epi16(a, b); }
    static V Sub(V a, V b) { return _mm_sub_epi16(a, b); }
    static V Zero() { return _mm_setzero_si128(); }
    static uint32_t NonZero16(V a, V b) {
        const V z = Zero();
        return ~uint32_t(_mm_movemask_epi8(_mm_packs_epi16(_mm_cmpeq_epi16(a, z), _mm_cmpeq_epi16(b, z)))) & 0xFFFFu;
    }
    static uint32_t NonZero32(const V* w, int32_t i) {
        return NonZero16(w[4 * i], w[4 * i + 1]) | NonZero16(w[4 * i + 2], w[4 * i + 3]) << 16;
    }
};
#include "statistics/entropy_lanes.inc"
}  // namespace sse2

#if VELOMAR_WIDE_PATHS
VELOMAR_TARGET_BEGIN("avx2")
namespace avx2 {
struct Words {
    using V = __m256i;
    static constexpr int32_t kLanes = 16;
    static V Load(const uint16_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
    static void Store(uint16_t* p, V v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }
    static V Add(V a, V b) { return _mm256_add_epi16(a, b); }
    static V Sub(V a, V b) { return _mm256_sub_epi16(a, b); }
    static V Zero() { return _mm256_setzero_si256(); }
    static uint32_t NonZero32(const V* w, int32_t i) {
        // The pack interleaves 128-bit halves; the permutation puts the
        // counters back in order.
        const V z = Zero();
        const V empty = _mm256_packs_epi16(_mm256_cmpeq_epi16(w[2 * i], z), _mm256_cmpeq_epi16(w[2 * i + 1], z));
        return ~uint32_t(_mm256_movemask_epi8(_mm256_permute4x64_epi64(empty, 0xD8)));
    }
};
#include "statistics/entropy_lanes.inc"
}  // namespace avx2
VELOMAR_TARGET_END

VELOMAR_TARGET_BEGIN("avx512f,avx512bw")
namespace avx512 {
struct Words {
    using V = __m512i;
    static constexpr int32_t kLanes = 32;
    static V Load(const uint16_t* p) { return _mm512_loadu_si512(p); }
    static void Store(uint16_t* p, V v) { _mm512_storeu_si512(p, v); }
    static V Add(V a, V b) { return _mm512_add_epi16(a, b); }
    static V Sub(V a, V b) { return _mm512_sub_epi16(a, b); }
    static V Zero() { return _mm512_setzero_si512(); }
    static uint32_t NonZero32(const V* w, int32_t i) { return _mm512_test_epi16_mask(w[i], w[i]); }
};
#include "statistics/entropy_lanes.inc"
}  // namespace avx512
VELOMAR_TARGET_END
#endif

using EntropyRowFn = void (*)(const SlidingHistogram&, const int32_t*, int32_t, int32_t, const double*,
                              Histogram*, double*);

// Entropy map of one channel (byte Channel of pixels Step bytes apart),
// written to Map, rows Width apart.
void EntropyPlane(const uint8_t* Src, double* Map, int32_t Width, int32_t Height, int32_t Step, int32_t Channel,
                  int32_t Radius, const int32_t* ColumnIndex, const int32_t* RowOffset, const double* Table) {
    EntropyRowFn row = sse2::EntropyRow;
#if VELOMAR_WIDE_PATHS
    if (ActiveIsa() >= Isa::Avx512) row = avx512::EntropyRow;
    else if (ActiveIsa() >= Isa::Avx2) row = avx2::EntropyRow;
#endif
    SlidingHistogram columns(Src, Width, Radius, Step, Channel, RowOffset);
    Buffer<Histogram> slots(kGroup, true);
    for (int32_t y = 0; y < Height; ++y) {
        columns.Advance(y);
        row(columns, ColumnIndex, Width, Radius, Table, slots.data(), Map + static_cast<size_t>(y) * Width);
    }
}

}  // namespace

void EntropyFilter(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                   int32_t Stride, int32_t Radius, int32_t EdgeMode) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride)) return;
    // A negative radius has no neighbourhood, and past 127 the 16-bit counters
    // would wrap: such calls write nothing.
    if (Radius < 0 || Radius > kMaxHistogramRadius) return;
    const bool grey = BytesPerPixel(Width, Stride) == 1;
    // The three-channel walk needs three bytes per pixel in every row.
    if (!grey && !ThreeBytesFit(Width, Stride)) return;
    const int32_t channels = grey ? 1 : 3;

    const int32_t n = (2 * Radius + 1) * (2 * Radius + 1);
    Buffer<double> table(static_cast<size_t>(n) + 1);
    const double inv_n = 1.0 / n;
    table[0] = 0;
    for (int32_t k = 1; k <= n; ++k) table[k] = (-k * inv_n) * (std::log(k * inv_n) / std::log(2.0));

    Buffer<int32_t> column_index(static_cast<size_t>(Width) + 2 * size_t(Radius));
    Buffer<int32_t> row_offset(static_cast<size_t>(Height) + 2 * size_t(Radius));
    BuildBorderTables(Radius, Width, Height, Stride, EdgeMode, column_index.data(),
                      row_offset.data());

    // One channel's map at a time: the stretch takes each channel's own
    // range. Only the walked bytes are written (the row padding of Dest is
    // left alone), and a channel's bytes of Src are read in full before they
    // are written, so Dest may be Src.
    Buffer<double> map(static_cast<size_t>(Width) * Height);
    for (int32_t c = 0; c < channels; ++c) {
        EntropyPlane(Src, map.data(), Width, Height, channels, c, Radius, column_index.data(),
                     row_offset.data(), table.data());
        double lo = 1.7976931348623157e308, hi = -1.7976931348623157e308;
        for (size_t i = 0; i < map.size(); ++i) {
            if (map[i] < lo) lo = map[i];
            if (map[i] > hi) hi = map[i];
        }
        const double gain = hi == lo ? 0.0 : 255.0 / (hi - lo);
        for (int32_t y = 0; y < Height; ++y) {
            const double* e = map.data() + static_cast<size_t>(y) * Width;
            uint8_t* d = Dest + static_cast<size_t>(y) * Stride + c;
            for (int32_t x = 0; x < Width; ++x)
                d[static_cast<size_t>(x) * channels] = static_cast<uint8_t>(TruncToInt((e[x] - lo) * gain));
        }
    }
}

}  // namespace velomar

VL_API void VL_CALL EntropyFilter(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                  int32_t Height, int32_t Stride, int32_t Radius,
                                  int32_t EdgeMode) {
    velomar::Guarded(
        [&] { velomar::EntropyFilter(Src, Dest, Width, Height, Stride, Radius, EdgeMode); });
}
