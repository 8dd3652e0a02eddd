// Rank sharpening: every pixel is pushed away from a rank statistic of its
// square neighbourhood.
#include "blur/blur.h"
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
    // M is one above the first value at which the running count of the
    // neighbourhood (mirrored at the borders) reaches T = Area / 2: the
    // percentile with threshold T - 1, plus one. The plane is padded so that
    // the percentile's own border rule never comes into play.
    const int32_t span = 2 * radius + 1;
    const int32_t pitch = width + 2 * radius, rows = height + 2 * radius;
    const Buffer<uint8_t> padded = PadPlane(src, width, height, stride, radius, EDGE_REFLECT);
    Buffer<uint8_t> rank(size_t(pitch) * rows);
    PercentilePlane(padded.data(), pitch, rank.data(), pitch, pitch, rows, radius, span * span / 2 - 1);
    for (int32_t y = 0; y < height; ++y) {
        const uint8_t* s = src + size_t(y) * stride;
        const uint8_t* m = rank.data() + size_t(y + radius) * pitch + radius;
        uint8_t* d = dst + size_t(y) * stride;
        for (int32_t x = 0; x < width; ++x) d[x] = PushAway(s[x], m[x] + 1);
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
