// Local entropy over a square neighbourhood, stretched per channel to 0..255.
#include <bit>
#include <cmath>

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

// Copies Accumulator into Snapshot and returns the mask of its non-zero bins.
inline BinMask SnapshotBins(const uint16_t* Accumulator, Histogram& Snapshot) {
    const auto* a = reinterpret_cast<const __m128i*>(Accumulator);
    auto* s = reinterpret_cast<__m128i*>(Snapshot.count);
    const __m128i zero = _mm_setzero_si128();
    BinMask mask{};
    for (int i = 0; i < kHistogramBins / 16; ++i) {
        const __m128i lo = _mm_load_si128(a + 2 * i), hi = _mm_load_si128(a + 2 * i + 1);
        _mm_store_si128(s + 2 * i, lo);
        _mm_store_si128(s + 2 * i + 1, hi);
        const __m128i empty = _mm_packs_epi16(_mm_cmpeq_epi16(lo, zero), _mm_cmpeq_epi16(hi, zero));
        const uint64_t bits = static_cast<uint32_t>(~_mm_movemask_epi8(empty)) & 0xFFFFu;
        mask.word[i / 4] |= bits << (16 * (i % 4));
    }
    return mask;
}

// E = sum of Table[count] in bin order from 0, for each histogram of the
// group. Bins empty in every histogram are skipped: Table[0] is 0 and adding
// it leaves a non-negative sum unchanged.
inline void GroupEntropy(const Histogram* Slots, const BinMask& Union, const double* Table,
                         double* Out) {
    double s[kGroup] = {};
    for (int w = 0; w < 4; ++w) {
        uint64_t bits = Union.word[w];
        while (bits) {
            const int b = 64 * w + std::countr_zero(bits);
            bits &= bits - 1;
            for (int p = 0; p < kGroup; ++p) s[p] += Table[Slots[p].count[b]];
        }
    }
    for (int p = 0; p < kGroup; ++p) Out[p] = s[p];
}

// Entropy map of one channel (byte Channel of pixels Step bytes apart),
// written to Map at the pixel's byte index.
void EntropyPlane(const uint8_t* Src, double* Map, int32_t Width, int32_t Height, int32_t Stride,
                  int32_t Step, int32_t Channel, int32_t Radius, const int32_t* ColumnIndex,
                  const int32_t* RowOffset, const double* Table) {
    SlidingHistogram<false> window(Src, Width, Radius, Step, Channel, ColumnIndex, RowOffset);
    Buffer<Histogram> slots(kGroup, true);
    double entropy[kGroup];
    for (int32_t y = 0; y < Height; ++y) {
        double* map_row = Map + static_cast<size_t>(y) * Stride + Channel;
        BinMask group_bins{};
        int filled = 0;
        window.Row(y, [&](int32_t x, const uint16_t* hist, const uint16_t*) {
            const BinMask bins = SnapshotBins(hist, slots[filled]);
            for (int w = 0; w < 4; ++w) group_bins.word[w] |= bins.word[w];
            ++filled;
            if (filled == kGroup || x == Width - 1) {
                // Unused slots of a last, short group hold empty histograms.
                for (int p = filled; p < kGroup; ++p)
                    std::memset(slots[p].count, 0, sizeof slots[p].count);
                GroupEntropy(slots.data(), group_bins, Table, entropy);
                const int32_t first = x + 1 - filled;
                for (int p = 0; p < filled; ++p)
                    map_row[static_cast<size_t>(first + p) * Step] = entropy[p];
                group_bins = BinMask{};
                filled = 0;
            }
        });
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

    Buffer<double> map(ImageBytes(Height, Stride));
    for (int32_t c = 0; c < channels; ++c)
        EntropyPlane(Src, map.data(), Width, Height, Stride, channels, c, Radius,
                     column_index.data(), row_offset.data(), table.data());

    // Stretch each channel by its own range; only the walked bytes are
    // written (the row padding of Dest is left alone). Src has been read in
    // full, so Dest may be Src.
    for (int32_t c = 0; c < channels; ++c) {
        double lo = 1.7976931348623157e308, hi = -1.7976931348623157e308;
        for (int32_t y = 0; y < Height; ++y) {
            const double* e = map.data() + static_cast<size_t>(y) * Stride + c;
            for (int32_t x = 0; x < Width; ++x) {
                const double v = e[static_cast<size_t>(x) * channels];
                if (v < lo) lo = v;
                if (v > hi) hi = v;
            }
        }
        const double gain = hi == lo ? 0.0 : 255.0 / (hi - lo);
        for (int32_t y = 0; y < Height; ++y) {
            const size_t row = static_cast<size_t>(y) * Stride + c;
            for (int32_t x = 0; x < Width; ++x) {
                const size_t i = row + static_cast<size_t>(x) * channels;
                Dest[i] = static_cast<uint8_t>(TruncToInt((map[i] - lo) * gain));
            }
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
