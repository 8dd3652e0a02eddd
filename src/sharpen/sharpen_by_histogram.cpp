// Rank sharpening: every pixel is pushed away from a rank statistic of its
// square neighbourhood, read from a sliding 256-bin histogram.
#include "core/neighbourhood.h"
#include "core/planes.h"
#include "sharpen/sharpen.h"

namespace velomar {

namespace {

// Coarse bins of 16 fine bins each, kept beside the fine histograms so the rank
// scan walks at most 16 + 16 bins instead of 256.
constexpr int kCoarseBins = 16;

// Among 16 consecutive bins h[0..15], with `before` samples in the bins ahead
// of them, finds the first bin whose running total reaches target (there must
// be one); returns its index and leaves the total ahead of it in `before`.
// Totals never exceed the 65025 samples of a neighbourhood, so 16-bit lanes
// hold them; they are compared as signed values offset by 32768.
inline int32_t FirstReaching(const uint16_t* h, uint32_t target, uint32_t& before) {
    const __m128i base = _mm_set1_epi16(static_cast<int16_t>(before));
    const __m128i lo =
        _mm_add_epi16(RunningTotals8(_mm_load_si128(reinterpret_cast<const __m128i*>(h))), base);
    __m128i hi = RunningTotals8(_mm_load_si128(reinterpret_cast<const __m128i*>(h + 8)));
    hi = _mm_add_epi16(
        hi, _mm_unpackhi_epi64(_mm_shufflehi_epi16(lo, 0xFF), _mm_shufflehi_epi16(lo, 0xFF)));
    const __m128i flip = _mm_set1_epi16(static_cast<int16_t>(0x8000));
    const __m128i limit = _mm_set1_epi16(static_cast<int16_t>(target ^ 0x8000u));
    const __m128i below_lo = _mm_cmplt_epi16(_mm_xor_si128(lo, flip), limit);
    const __m128i below_hi = _mm_cmplt_epi16(_mm_xor_si128(hi, flip), limit);
    // Totals rise with the bin, so the lanes below target are the first ones.
    const uint32_t mask =
        static_cast<uint32_t>(_mm_movemask_epi8(_mm_packs_epi16(below_lo, below_hi)));
    const int32_t index = __builtin_ctz(~mask);
    if (index > 0) {
        alignas(16) uint16_t totals[16];
        _mm_store_si128(reinterpret_cast<__m128i*>(totals), lo);
        _mm_store_si128(reinterpret_cast<__m128i*>(totals + 8), hi);
        before = totals[index - 1];
    }
    return index;
}

// S pushed away from the rank value M: S - (M - S) / 2, clamped.
inline uint8_t PushAway(int32_t s, int32_t m) { return ClampByte(s - (m - s) / 2); }

// The single-plane procedure on the first Width bytes of every row; src and
// dst must not overlap.
void SharpenPlane(const uint8_t* src, uint8_t* dst, int32_t width, int32_t height, int32_t stride,
                  int32_t radius) {
    if (radius == 0) {
        // A neighbourhood of one sample ranks at T = 0, so M is 0 everywhere.
        for (int32_t y = 0; y < height; ++y) {
            const uint8_t* s = src + size_t(y) * stride;
            uint8_t* d = dst + size_t(y) * stride;
            for (int32_t x = 0; x < width; ++x) d[x] = PushAway(s[x], 0);
        }
        return;
    }
    const int32_t span = 2 * radius + 1;
    const uint32_t target = static_cast<uint32_t>(span * span / 2);

    Buffer<int32_t> column_index(size_t(width) + 2 * radius);
    Buffer<int32_t> row_offset(size_t(height) + 2 * radius);
    BuildBorderTables(radius, width, height, stride, EDGE_REFLECT, column_index.data(),
                      row_offset.data());

    // Column histograms over the current vertical span. A padded column
    // mirrors a source column, so it shares that column's histogram: only the
    // Width source columns are kept, and padded columns reach them through the
    // column table.
    Buffer<uint16_t> fine(size_t(width) * kHistogramBins, true);
    Buffer<uint16_t> coarse(size_t(width) * kCoarseBins, true);
    Buffer<uint16_t> hist(kHistogramBins);
    Buffer<uint16_t> hist_coarse(kCoarseBins);

    auto update_row = [&](int32_t offset, uint16_t delta) {
        const uint8_t* r = src + offset;
        uint16_t* f = fine.data();
        uint16_t* c = coarse.data();
        for (int32_t x = 0; x < width; ++x) {
            const uint8_t v = r[x];
            f[size_t(x) * kHistogramBins + v] += delta;
            c[size_t(x) * kCoarseBins + (v >> 4)] += delta;
        }
    };
    const uint16_t plus = 1, minus = 0xFFFF;  // counters wrap modulo 65536

    for (int32_t y = 0; y < height; ++y) {
        // Vertical span: rows y - radius .. y + radius.
        if (y == 0) {
            for (int32_t k = 0; k < span; ++k) update_row(row_offset[k], plus);
        } else {
            update_row(row_offset[y - 1], minus);          // row y - radius - 1
            update_row(row_offset[y + 2 * radius], plus);  // row y + radius
        }

        std::memset(hist.data(), 0, kHistogramBins * sizeof(uint16_t));
        std::memset(hist_coarse.data(), 0, kCoarseBins * sizeof(uint16_t));
        const uint8_t* s = src + size_t(y) * stride;
        uint8_t* d = dst + size_t(y) * stride;
        for (int32_t x = 0; x < width; ++x) {
            if (x == 0) {
                for (int32_t k = 0; k < span; ++k) {
                    const size_t col = size_t(column_index[k]);
                    HistogramAdd(hist.data(), fine.data() + col * kHistogramBins);
                    Add16(hist_coarse.data(), coarse.data() + col * kCoarseBins);
                }
            } else {
                const size_t in = size_t(column_index[x + 2 * radius]);  // column x + radius
                const size_t out = size_t(column_index[x - 1]);          // column x - radius - 1
                HistogramAdd(hist.data(), fine.data() + in * kHistogramBins);
                HistogramSub(hist.data(), fine.data() + out * kHistogramBins);
                Add16(hist_coarse.data(), coarse.data() + in * kCoarseBins);
                Sub16(hist_coarse.data(), coarse.data() + out * kCoarseBins);
            }

            // M: the smallest m whose bins 0 .. m - 1 hold at least T samples,
            // one above the value where the running count reaches T. The span
            // holds more than T samples, so the scan always stops.
            uint32_t before = 0;
            const int32_t block = FirstReaching(hist_coarse.data(), target, before);
            const int32_t bin =
                block * 16 + FirstReaching(hist.data() + block * 16, target, before);
            d[x] = PushAway(s[x], bin + 1);
        }
    }
}

}  // namespace

void SharpenByHistgram(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                       int32_t Stride, int32_t Radius) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride)) return;
    // A Radius outside 0..127 would overflow the 16-bit counters (or name no
    // neighbourhood at all): Dest is left untouched.
    if (Radius < 0 || Radius > kMaxHistogramRadius) return;
    if (BytesPerPixel(Width, Stride) == 3) {
        FilterColourPlanes(Src, Dest, Width, Height, Stride, [&](int32_t, const uint8_t* in, uint8_t* out) {
            SharpenPlane(in, out, Width, Height, Width, Radius);
        });
        return;
    }
    // Every other layout is one plane: the first Width bytes of every row.
    InPlaceCopy source(Src, Dest, ImageBytes(Height, Stride));
    SharpenPlane(source.get(), Dest, Width, Height, Stride, Radius);
}

}  // namespace velomar

VL_API void VL_CALL SharpenByHistgram(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                      int32_t Height, int32_t Stride, int32_t Radius) {
    velomar::Guarded([&] { velomar::SharpenByHistgram(Src, Dest, Width, Height, Stride, Radius); });
}
