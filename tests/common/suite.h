// Helpers shared by the filter suites: per-plane references and the treated
// bytes of each row.
#pragma once

#include "common/reference.h"

namespace vtest {

// plane(src plane, entry plane, k) for each of the `walk` channel planes of
// src (pixels `walk` bytes apart), its result put over that plane of `dest`.
template <class F>
std::vector<uint8_t> EachPlane(const Image& src, std::vector<uint8_t> dest, int walk, F plane) {
    Image entry = src;
    entry.bytes = dest;
    for (int k = 0; k < walk; ++k) PutPlane(dest, src, walk, k, plane(PlaneOf(src, walk, k), PlaneOf(entry, walk, k), k));
    return dest;
}

// f(i) for the first `run` bytes of every row, i their offsets.
template <class F>
void EachRowByte(const Image& img, int run, F f) {
    for (int y = 0; y < img.height; ++y)
        for (int x = 0; x < run; ++x) f(size_t(y) * img.stride + x);
}

// The curve applier's walk: grey maps every byte of the buffer, padding
// included; other layouts map Width three-byte pixels per row, bytes 0, 1 and
// 2 through tables b, g and r, rows 3 * Width plus Stride % Width bytes apart.
// Other bytes keep `out`.
inline std::vector<uint8_t> ApplyCurves(const Image& src, std::vector<uint8_t> out, const uint8_t* b,
                                        const uint8_t* g, const uint8_t* r) {
    const bool grey = src.stride / src.width == 1;
    const size_t run = grey ? src.stride : 3 * src.width, pitch = grey ? run : run + src.stride % src.width;
    const uint8_t* table[] = {b, g, r};
    for (size_t y = 0; y < size_t(src.height); ++y)
        for (size_t i = 0; i < run; ++i) out[y * pitch + i] = table[grey ? 0 : i % 3][src.bytes[y * pitch + i]];
    return out;
}

}  // namespace vtest
