// Rank sharpening: every pixel is pushed away from a rank statistic of its
// square neighbourhood, read from a sliding 256-bin histogram.
#include "core/neighbourhood.h"
#include "core/planes.h"
#include "sharpen/sharpen.h"

namespace velomar {

namespace {

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
    const __m128i target = _mm_set1_epi16(static_cast<int16_t>(span * span / 2));

    Buffer<int32_t> column_index(size_t(width) + 2 * radius);
    Buffer<int32_t> row_offset(size_t(height) + 2 * radius);
    BuildBorderTables(radius, width, height, stride, EDGE_REFLECT, column_index.data(),
                      row_offset.data());
    // Coarse counters of 16 bins each run beside the fine ones, so the rank
    // scan walks at most 16 + 16 bins instead of 256.
    SlidingHistogram<true> window(src, width, radius, 1, 0, column_index.data(), row_offset.data());
    alignas(16) uint16_t running[16];
    for (int32_t y = 0; y < height; ++y) {
        const uint8_t* s = src + size_t(y) * stride;
        uint8_t* d = dst + size_t(y) * stride;
        window.Row(y, [&](int32_t x, const uint16_t* fine, const uint16_t* coarse) {
            // M: the smallest m whose bins 0 .. m - 1 hold at least T samples,
            // one above the value where the running count reaches T. The span
            // holds more than T samples, so the scan always stops.
            const int32_t block = FirstReaching16(Load16(coarse, 0), Load16(coarse, 1), _mm_setzero_si128(),
                                                  target, running);
            const uint16_t before = block > 0 ? running[block - 1] : 0;
            const uint16_t* seg = fine + block * 16;
            const int32_t bin = block * 16 + FirstReaching16(Load16(seg, 0), Load16(seg, 1),
                                                             _mm_set1_epi16(int16_t(before)), target, running);
            d[x] = PushAway(s[x], bin + 1);
        });
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
