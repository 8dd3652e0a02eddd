// Median and percentile blur: a sliding two-level histogram (16 coarse bins of
// the high nibble, 16 fine bins of the low nibble per coarse bin), constant
// time per pixel whatever the radius.
#include <algorithm>

#include "blur/blur.h"
#include "core/cpu.h"
#include "core/neighbourhood.h"
#include "core/planes.h"

namespace velomar {

namespace {

constexpr int32_t kBins = 16;

using MedianRowFn = void (*)(const uint16_t*, const uint16_t*, int32_t, int32_t, int32_t,
                             uint16_t*, uint16_t*, int32_t*, const uint8_t*, uint8_t*, uint16_t*);

// ---- 16-counter histogram arithmetic, eight 16-bit lanes at a time ------------

// acc += add - sub in one pass: the sliding step of a fine segment.
inline void SubAdd16(uint16_t* acc, const uint16_t* sub, const uint16_t* add) {
    Store16(acc, 0, _mm_add_epi16(_mm_sub_epi16(Load16(acc, 0), Load16(sub, 0)), Load16(add, 0)));
    Store16(acc, 1, _mm_add_epi16(_mm_sub_epi16(Load16(acc, 1), Load16(sub, 1)), Load16(add, 1)));
}

// acc += h * factor, modulo 65536 per counter.
inline void MulAdd16(uint16_t* acc, const uint16_t* h, int32_t factor) {
    const __m128i f = _mm_set1_epi16(static_cast<int16_t>(factor));
    Store16(acc, 0, _mm_add_epi16(Load16(acc, 0), _mm_mullo_epi16(Load16(h, 0), f)));
    Store16(acc, 1, _mm_add_epi16(Load16(acc, 1), _mm_mullo_epi16(Load16(h, 1), f)));
}

inline void Clear16(uint16_t* acc) {
    Store16(acc, 0, _mm_setzero_si128());
    Store16(acc, 1, _mm_setzero_si128());
}

// Rank threshold: the output is the smallest v with more than T samples <= v.
// Percent 100 takes Area - 1 so that the maximum is reachable. Percents
// outside 0..100 are outside the contract: the product is formed in 64 bits
// (no overflow), anything above 100 behaves as 100 (the searches never run
// past their 16 bins), and a negative T behaves as -1 (every output is 0).
int32_t RankThreshold(int32_t Radius, int32_t Percent) {
    const int64_t area = int64_t(2 * Radius + 1) * (2 * Radius + 1);
    int64_t t = Percent == 100 ? area - 1 : area * Percent / 100;
    return static_cast<int32_t>(std::clamp<int64_t>(t, -1, area - 1));
}

// One output row: slides the neighbourhood, whose coarse counters, fine
// segments and last-updated columns are set up for column 0, along the row.
// Percentiles go to Dest; with kCount, the number of samples <= Centre[j]
// goes to Counts[j] instead.
template <bool kCount>
void MedianRowSse2(const uint16_t* cc, const uint16_t* cf, int32_t Width, int32_t Radius,
                   int32_t T, uint16_t* coarse, uint16_t* fine, int32_t* lastColumn,
                   const uint8_t* Centre, uint8_t* Dest, uint16_t* Counts) {
    const size_t fineBinStride = size_t(Width) * kBins;
    const int32_t diameter = 2 * Radius + 1;
    // Running totals are compared as "at least T + 1" (0 .. Area, unsigned).
    const __m128i above = _mm_set1_epi16(static_cast<int16_t>(T + 1));
    // Running totals of a search land in running[8..23]; running[7] stays 0,
    // so running[7 + k] is the total of the bins below k.
    alignas(16) uint16_t running[kBins + 8] = {};
    __m128i c0 = Load16(coarse, 0), c1 = Load16(coarse, 1);
    for (int32_t j = 0; j < Width; ++j) {
        const uint16_t* in = cc + size_t(std::min(j + Radius, Width - 1)) * kBins;
        c0 = _mm_add_epi16(c0, Load16(in, 0));
        c1 = _mm_add_epi16(c1, Load16(in, 1));

        // Coarse search: k is the first bin whose running total exceeds T
        // (or the centre's bin), below the total of the bins before it.
        int32_t k;
        if constexpr (kCount) {
            k = Centre[j] >> 4;
            __m128i t0 = c0, t1 = c1;
            RunningTotals16(t0, t1, _mm_setzero_si128(), running + 8);
        } else {
            k = FirstReaching16(c0, c1, _mm_setzero_si128(), above, running + 8);
        }
        const int32_t below = running[7 + k];

        // Bring fine segment k up to the window j - Radius .. j + Radius.
        uint16_t* seg = fine + k * kBins;
        const uint16_t* base = cf + k * fineBinStride;
        int32_t e = lastColumn[k];
        if (e == j + Radius) {
            // Current up to the previous pixel: one step (the usual case).
            SubAdd16(seg, base + size_t(std::max(e - diameter, 0)) * kBins,
                     base + size_t(std::min(e, Width - 1)) * kBins);
            ++e;
        } else if (e > j - Radius) {
            for (; e < j + Radius + 1; ++e)
                SubAdd16(seg, base + size_t(std::max(e - diameter, 0)) * kBins,
                         base + size_t(std::min(e, Width - 1)) * kBins);
        } else {
            // The segment is too stale to slide: rebuild it (j - Radius is
            // at least e, hence at least 0, here).
            Clear16(seg);
            const int32_t end = std::min(j + Radius + 1, Width);
            for (int32_t x = j - Radius; x < end; ++x) Add16(seg, base + size_t(x) * kBins);
            if (end < j + Radius + 1)
                MulAdd16(seg, base + size_t(Width - 1) * kBins, j + Radius + 1 - Width);
            e = j + Radius + 1;
        }
        lastColumn[k] = e;

        const uint16_t* out = cc + size_t(std::max(j - Radius, 0)) * kBins;
        c0 = _mm_sub_epi16(c0, Load16(out, 0));
        c1 = _mm_sub_epi16(c1, Load16(out, 1));

        // Fine search, continuing the running total from the bins below k.
        const __m128i start = _mm_set1_epi16(static_cast<int16_t>(below));
        if constexpr (kCount) {
            __m128i f0 = Load16(seg, 0), f1 = Load16(seg, 1);
            RunningTotals16(f0, f1, start, running + 8);
            Counts[j] = running[8 + (Centre[j] & 15)];
        } else {
            const int32_t b = FirstReaching16(Load16(seg, 0), Load16(seg, 1), start, above, running + 8);
            Dest[j] = static_cast<uint8_t>(16 * k + b);
        }
    }
}

// Percentile filter of one plane. Src and Dest rows are SrcStride and
// DestStride bytes apart; only the first Width bytes of a row are touched.
// Radius is 1..127 and T is in -1..Area-1, so every count fits 16 bits and
// both searches end inside their 16 bins. With kCount, Sink receives each
// row's counts of samples at most the pixel's own value instead, for rows
// Inset .. Height - 1 - Inset only and from column Inset on, and Dest and T
// are not used.
template <bool kCount>
void HistogramPlane(const uint8_t* Src, int32_t SrcStride, uint8_t* Dest, int32_t DestStride,
                    CountRowSink Sink, int32_t Inset, int32_t Width, int32_t Height, int32_t Radius,
                    int32_t T) {
    const bool UseAvx2 = ActiveIsa() >= Isa::Avx2;
    const size_t w = static_cast<size_t>(Width);
    // Per column: 16 coarse counters; 256 fine counters laid out coarse bin
    // first, so counter (k, x, b) sits at (k * Width + x) * 16 + b.
    Buffer<uint16_t> columnCoarse(w * kBins, true);
    Buffer<uint16_t> columnFine(w * kBins * kBins, true);
    // The neighbourhood: coarse counters, fine segments, and for each coarse
    // bin the column (exclusive) up to which its fine segment is current.
    alignas(32) uint16_t coarse[kBins];
    alignas(32) uint16_t fine[kBins * kBins];
    int32_t lastColumn[kBins];

    uint16_t* const cc = columnCoarse.data();
    uint16_t* const cf = columnFine.data();
    const size_t fineBinStride = w * kBins;  // distance between coarse bins in cf

    // Offset of value v's fine counter from its column's first fine counter.
    size_t fineOffset[256];
    for (int32_t v = 0; v < 256; ++v)
        fineOffset[v] = size_t(v >> 4) * fineBinStride + size_t(v & 15);

    // First span: row 0 weighted Radius + 1, then rows 0 .. Radius - 1 (rows
    // past the bottom replicate the last one). Row 0 thus starts one count
    // heavy; the first row's update below removes that count again.
    for (int32_t r = -1; r < Radius; ++r) {
        const uint8_t* row = Src + size_t(std::clamp(r, 0, Height - 1)) * SrcStride;
        const uint16_t weight = static_cast<uint16_t>(r < 0 ? Radius + 1 : 1);
        for (int32_t x = 0; x < Width; ++x) {
            const int32_t v = row[x];
            cc[size_t(x) * kBins + (v >> 4)] += weight;
            cf[size_t(x) * kBins + fineOffset[v]] += weight;
        }
    }

    Buffer<uint16_t> counts(kCount ? w : 0);
    const int32_t diameter = 2 * Radius + 1;
    const MedianRowFn Row = UseAvx2 ? MedianRowAvx2<kCount> : MedianRowSse2<kCount>;
    for (int32_t i = 0; i < Height; ++i) {
        // Slide every column down one row; rows above and below replicate.
        const uint8_t* out = Src + size_t(std::max(i - Radius - 1, 0)) * SrcStride;
        const uint8_t* in = Src + size_t(std::min(i + Radius, Height - 1)) * SrcStride;
        uint16_t* ccx = cc;
        uint16_t* cfx = cf;
        for (int32_t x = 0; x < Width; ++x, ccx += kBins, cfx += kBins) {
            const int32_t vo = out[x], vi = in[x];
            --ccx[vo >> 4];
            --cfx[fineOffset[vo]];
            ++ccx[vi >> 4];
            ++cfx[fineOffset[vi]];
        }

        if (i < Inset || i >= Height - Inset) continue;

        // Neighbourhood of column 0: columns left of the image replicate
        // column 0, columns right of it the last column.
        Clear16(coarse);
        MulAdd16(coarse, cc, Radius);
        for (int32_t x = 0; x < Radius; ++x)
            Add16(coarse, cc + size_t(std::min(x, Width - 1)) * kBins);
        for (int32_t k = 0; k < kBins; ++k) {
            Clear16(fine + k * kBins);
            MulAdd16(fine + k * kBins, cf + k * fineBinStride, diameter);
            lastColumn[k] = 0;
        }

        if (kCount) {
            Row(cc, cf, Width, Radius, T, coarse, fine, lastColumn, Src + size_t(i) * SrcStride, nullptr,
                counts.data());
            Sink.take(Sink.context, i - Inset, counts.data() + Inset);
        } else {
            Row(cc, cf, Width, Radius, T, coarse, fine, lastColumn, nullptr, Dest + size_t(i) * DestStride,
                nullptr);
        }
    }
}

}  // namespace

void PercentilePlane(const uint8_t* Src, int32_t SrcStride, uint8_t* Dest, int32_t DestStride, int32_t Width,
                     int32_t Height, int32_t Radius, int32_t T) {
    // Small neighbourhoods go through the sorting network, larger ones
    // through the constant-time histograms; both give the same bytes. With
    // 16-byte vectors the histograms already win at radius 3.
    const int32_t networkRadius = ActiveIsa() >= Isa::Avx2 ? kMaxNetworkRadius : 2;
    if (Radius <= networkRadius)
        MedianNetworkPlane(Src, SrcStride, Dest, DestStride, Width, Height, Radius, T);
    else
        HistogramPlane<false>(Src, SrcStride, Dest, DestStride, {}, 0, Width, Height, Radius, T);
}

void HistogramRankCountPlane(const uint8_t* Src, int32_t SrcStride, int32_t Width, int32_t Height,
                             int32_t Radius, int32_t Inset, CountRowSink Sink) {
    HistogramPlane<true>(Src, SrcStride, nullptr, 0, Sink, Inset, Width, Height, Radius, 0);
}

void MedianBlur(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                int32_t Stride, int32_t Radius, int32_t Percent) {
    // Radius 0 or past the 16-bit counters' limit leaves Dest untouched.
    if (Radius < 1 || Radius > kMaxHistogramRadius) return;
    // Null buffers, an empty image or a Stride shorter than Width: return
    // without touching memory.
    if (!RawArgsValid(Src, Dest, Width, Height, Stride)) return;
    const int32_t channels = BytesPerPixel(Width, Stride);
    // Two bytes per pixel would walk three-byte pixels past the end of a row:
    // return without writing.
    if (channels != 1 && !ThreeBytesFit(Width, Stride)) return;
    const int32_t T = RankThreshold(Radius, Percent);
    if (channels == 1) {
        InPlaceCopy source(Src, Dest, ImageBytes(Height, Stride));
        PercentilePlane(source.get(), Stride, Dest, Stride, Width, Height, Radius, T);
        return;
    }
    // Colour (and four-byte) pixels: bytes 0, 1, 2 filtered as separate planes.
    FilterColourPlanes(Src, Dest, Width, Height, Stride, [&](int32_t, const uint8_t* in, uint8_t* out) {
        PercentilePlane(in, Width, out, Width, Width, Height, Radius, T);
    });
}

}  // namespace velomar

VL_API void VL_CALL MedianBlur(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                               int32_t Height, int32_t Stride, int32_t Radius, int32_t Percent) {
    velomar::Guarded([&] {
        velomar::MedianBlur(Src, Dest, Width, Height, Stride, Radius, Percent);
    });
}
