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

}  // namespace vtest
