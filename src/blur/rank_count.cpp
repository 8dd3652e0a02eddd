// Each pixel's rank in its neighbourhood, the count of samples at most its own
// value. Small neighbourhoods compare every sample with the pixel, many
// pixels per vector; larger ones, or those that would reach past the plane,
// go to the median's sliding histograms.
#include <algorithm>

#include "blur/blur.h"
#include "core/byte_lanes.h"

namespace velomar {

namespace {

#define VELOMAR_BYTE_KERNEL "blur/rank_count_lanes.inc"
#include "core/byte_lanes_each_isa.inc"

using CountRowFn = void (*)(const uint8_t*, ptrdiff_t, int32_t, int32_t, int32_t, uint8_t*);

}  // namespace

void RankCountPlane(const uint8_t* Src, int32_t SrcStride, int32_t Width, int32_t Height, int32_t Radius,
                    int32_t Inset, CountRowSink Sink) {
    if (Radius > kMaxDirectCountRadius || Inset < Radius) {
        HistogramRankCountPlane(Src, SrcStride, Width, Height, Radius, Inset, Sink);
        return;
    }
    const int32_t begin = Inset, end = Width - Inset;
    if (end <= begin) return;
    // The widest allowed vector the row's pixels fill; rows narrower than
    // every vector are counted one pixel at a time.
    CountRowFn row = end - begin >= sse2::Lanes::kWidth ? sse2::CountRow : nullptr;
#if VELOMAR_WIDE_PATHS
    if (ActiveIsa() >= Isa::Avx512 && end - begin >= avx512::Lanes::kWidth) row = avx512::CountRow;
    else if (ActiveIsa() >= Isa::Avx2 && end - begin >= avx2::Lanes::kWidth) row = avx2::CountRow;
#endif
    Buffer<uint8_t> bytes{size_t(Width)};
    Buffer<uint16_t> counts{size_t(end - begin)};
    for (int32_t y = Inset; y < Height - Inset; ++y) {
        const uint8_t* s = Src + size_t(y) * SrcStride;
        if (row) {
            row(s, SrcStride, begin, end, Radius, bytes.data());
        } else {
            for (int32_t x = begin; x < end; ++x) {
                int32_t n = 0;
                for (int32_t dy = -Radius; dy <= Radius; ++dy)
                    for (int32_t dx = -Radius; dx <= Radius; ++dx)
                        n += s[ptrdiff_t(dy) * SrcStride + x + dx] <= s[x];
                bytes[x] = uint8_t(n);
            }
        }
        std::copy(bytes.data() + begin, bytes.data() + end, counts.data());
        Sink.take(Sink.context, y - Inset, counts.data());
    }
}

}  // namespace velomar
