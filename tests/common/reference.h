// Shared pieces of the direct reference formulations: the border rule, the
// neighbourhood of a pixel, the x86 truncating conversion, and a harness that
// runs a filter out of place and in place against a direct result.
#pragma once

#include <algorithm>
#include <climits>
#include <cstdint>
#include <vector>

#include "common/test_util.h"
#include "velomar.h"

namespace vtest {

// The border rule, the tests' one copy: replicate (mode 0) clamps; any other
// mode mirrors without repeating the edge pixel, folding by whole sizes (taken
// as the remainder, so radii of a million cost no more than small ones).
inline int MapEdge(int64_t p, int64_t n, int mode) {
    if (p >= 0 && p < n) return int(p);
    if (mode == 0) return p < 0 ? 0 : int(n - 1);
    return p < 0 ? int(-p % n) : int(((2 * n - p - 2) % n + n) % n);
}

// Byte offset of channel `c` of pixel (x, y) when pixels lie `walk` bytes apart.
inline size_t Offset(const Image& img, int x, int y, int walk, int c) {
    return size_t(y) * img.stride + size_t(x) * walk + c;
}

// Calls f(x, y, k, offset) for channel k = 0 .. walk - 1 of every pixel,
// pixels `walk` bytes apart: the whole first channel, then the next.
template <class F>
void EachSample(const Image& img, int walk, F f) {
    for (int k = 0; k < walk; ++k)
        for (int y = 0; y < img.height; ++y)
            for (int x = 0; x < img.width; ++x) f(x, y, k, Offset(img, x, y, walk, k));
}

// Channel k (pixels `walk` bytes apart) as an unpadded grey image, and back.
inline Image PlaneOf(const Image& img, int walk, int k) {
    Image plane(img.width, img.height, 1);
    EachSample(img, 1, [&](int x, int y, int, size_t) { plane.at(x, y) = img.bytes[Offset(img, x, y, walk, k)]; });
    return plane;
}
inline void PutPlane(std::vector<uint8_t>& bytes, const Image& layout, int walk, int k, const Image& plane) {
    EachSample(plane, 1, [&](int x, int y, int, size_t i) { bytes[Offset(layout, x, y, walk, k)] = plane.bytes[i]; });
}

// The (2r+1)^2 samples of channel `c` around (x, y), row by row, borders
// mapped by `mode`, pixels `walk` bytes apart.
inline std::vector<int> Neighbourhood(const Image& src, int x, int y, int c, int r, int mode,
                                      int walk) {
    std::vector<int> v;
    v.reserve(size_t(2 * r + 1) * size_t(2 * r + 1));
    for (int dy = -r; dy <= r; ++dy)
        for (int dx = -r; dx <= r; ++dx)
            v.push_back(src.bytes[Offset(src, MapEdge(x + dx, src.width, mode),
                                         MapEdge(y + dy, src.height, mode), walk, c)]);
    return v;
}

// For channel c of every pixel (pixels `walk` bytes apart), at the byte's
// offset: the integer mean S / N of its (2r+1)^2 neighbourhood and the integer
// variance sum (p - mean)^2 / N, in 64 bits; other entries stay 0.
struct LocalStats {
    std::vector<int64_t> mean, variance;
};
inline LocalStats DirectLocalStats(const Image& src, int r, int mode, int walk) {
    LocalStats st{std::vector<int64_t>(src.bytes.size()), std::vector<int64_t>(src.bytes.size())};
    const int64_t n = int64_t(2 * r + 1) * (2 * r + 1);
    EachSample(src, walk, [&](int x, int y, int c, size_t i) {
        const std::vector<int> vals = Neighbourhood(src, x, y, c, r, mode, walk);
        int64_t s = 0, q = 0;
        for (int v : vals) s += v;
        for (int v : vals) q += (v - s / n) * (v - s / n);
        st.mean[i] = s / n, st.variance[i] = q / n;
    });
    return st;
}

// An 8-bit Matrix record over an Image's bytes.
inline Matrix MatrixOf(Image& img) {
    return Matrix{img.width, img.height, img.stride, img.channels, DEPTH_8U, img.data(), 0};
}

// The x86 truncating conversion to 32 bits: NaN and values out of range give
// the most negative integer.
inline int32_t TruncI32(double v) {
    if (!(v > -2147483649.0 && v < 2147483648.0)) return INT32_MIN;
    return int32_t(v);
}
inline uint8_t TruncClamp(double v) { return uint8_t(std::clamp(TruncI32(v), 0, 255)); }

// Runs every call over its own copy of `dest`: none may change a byte.
inline ::testing::AssertionResult WritesNothing(const Image& dest,
                                                std::initializer_list<std::function<void(uint8_t*)>> calls) {
    int index = 0;
    for (const auto& call : calls) {
        Image out = dest;
        call(out.data());
        if (auto r = BytesEqual(dest.bytes, out.bytes); !r) return r << " (call " << index << ")";
        ++index;
    }
    return ::testing::AssertionSuccess();
}

// Calls filter(Src, Dest, Width, Height, Stride) over a Dest from
// DestFor(src) and then in place over a copy of `src`; `judge(bytes Dest held
// on entry, result)` decides each result, and Src must stay as it was. A
// failure names the layout.
template <class Filter, class Judge>
::testing::AssertionResult FilterJudged(const Image& src, Filter filter, Judge judge) {
    const Image dest = DestFor(src);
    Image in = src, out = dest;
    filter(in.data(), out.data(), src.width, src.height, src.stride);
    if (auto r = judge(dest.bytes, out.bytes); !r) return r << " (separate Dest) on " << src;
    if (in.bytes != src.bytes) return ::testing::AssertionFailure() << "source modified on " << src;
    filter(in.data(), in.data(), src.width, src.height, src.stride);
    if (auto r = judge(src.bytes, in.bytes); !r) return r << " (in place) on " << src;
    return ::testing::AssertionSuccess();
}

// FilterJudged against the bytes `direct(bytes Dest held on entry)` returns.
template <class Filter, class Direct>
::testing::AssertionResult FilterMatches(const Image& src, Filter filter, Direct direct) {
    return FilterJudged(src, filter, [&](const std::vector<uint8_t>& entry, const std::vector<uint8_t>& got) {
        return BytesEqual(direct(entry), got);
    });
}

// The same layout with every pixel byte set to `value`, padding kept.
inline Image Flat(Image img, uint8_t value) {
    for (int y = 0; y < img.height; ++y) std::fill_n(&img.at(0, y), img.width * img.channels, value);
    return img;
}

}  // namespace vtest
