// Percentile filter for small radii by a sorting network: the values of
// each neighbourhood are put in order by Batcher's odd-even merge sort, one
// pixel per vector lane. Ordering the values and taking position T gives exactly the
// histogram search's answer (the smallest v with more than T values <= v),
// so both methods give the same bytes; this one is faster while the
// neighbourhood holds few values.
#include <algorithm>
#include <array>
#include <bit>
#include <utility>

#include "blur/blur.h"
#include "core/byte_lanes.h"

namespace velomar {

namespace {

// After a step wire lo holds the smaller value, wire hi the larger.
struct NetworkStep {
    int32_t lo, hi;
};

// Batcher's odd-even merge sort over Count values on the next power of two of
// wires, the extra wires holding 255: a step whose upper wire still holds
// that padding changes nothing and is left out (one whose lower wire holds it
// moves it up).
template <int32_t Count>
struct SortNetwork {
    static constexpr int32_t kWires = int32_t(std::bit_ceil(uint32_t(Count)));
    struct Steps {
        std::array<NetworkStep, 512> step{};
        int32_t count = 0;
    };
    static constexpr Steps Make() {
        Steps out;
        std::array<bool, kWires> padding{};
        for (int32_t i = Count; i < kWires; ++i) padding[size_t(i)] = true;
        for (int32_t p = 1; p < kWires; p *= 2)
            for (int32_t k = p; k >= 1; k /= 2)
                for (int32_t j = k % p; j + k < kWires; j += 2 * k)
                    for (int32_t i = 0; i < k && i + j + k < kWires; ++i) {
                        const int32_t lo = i + j, hi = i + j + k;
                        if (lo / (2 * p) != hi / (2 * p) || padding[size_t(hi)]) continue;
                        if (padding[size_t(lo)]) {
                            padding[size_t(lo)] = false;
                            padding[size_t(hi)] = true;
                        }
                        out.step[size_t(out.count++)] = {lo, hi};
                    }
        return out;
    }
    static constexpr Steps kSteps = Make();
};

#define VELOMAR_BYTE_KERNEL "blur/median_network_lanes.inc"
#include "core/byte_lanes_each_isa.inc"

using RowFn = void (*)(int32_t, const uint8_t* const*, int32_t, int32_t, uint8_t*);

}  // namespace

void MedianNetworkPlane(const uint8_t* Src, int32_t SrcStride, uint8_t* Dest, int32_t DestStride, int32_t Width,
                        int32_t Height, int32_t Radius, int32_t T) {
    if (T < 0) {  // no value is below the threshold: every output is 0
        for (int32_t y = 0; y < Height; ++y) std::memset(Dest + size_t(y) * DestStride, 0, size_t(Width));
        return;
    }
    const int32_t side = 2 * Radius + 1;
    const RowFn row = VELOMAR_WIDEST_KERNEL(NetworkRowFor);
    // Every row padded by replicating its end pixels, far enough right that
    // whole vectors can be read past the last pixel.
    constexpr int32_t kMaxLanes = 64;
    const int32_t rounded = (Width + kMaxLanes - 1) / kMaxLanes * kMaxLanes;
    const size_t pitch = size_t(rounded) + 2 * size_t(Radius);
    Buffer<uint8_t> padded(pitch * size_t(Height)), out{size_t(rounded)};
    for (int32_t y = 0; y < Height; ++y) {
        const uint8_t* s = Src + size_t(y) * SrcStride;
        uint8_t* p = padded.data() + size_t(y) * pitch;
        std::memset(p, s[0], size_t(Radius));
        std::memcpy(p + Radius, s, size_t(Width));
        std::memset(p + Radius + Width, s[Width - 1], pitch - size_t(Radius) - size_t(Width));
    }
    const uint8_t* rows[2 * kMaxNetworkRadius + 1];
    for (int32_t y = 0; y < Height; ++y) {
        // Rows above and below the image replicate the first and last.
        for (int32_t dy = 0; dy < side; ++dy)
            rows[dy] = padded.data() + size_t(std::clamp(y + dy - Radius, 0, Height - 1)) * pitch;
        row(Radius, rows, Width, T, out.data());
        std::memcpy(Dest + size_t(y) * DestStride, out.data(), size_t(Width));
    }
}

}  // namespace velomar
