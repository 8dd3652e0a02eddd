// Fragment: the average of several copies of the image displaced by the same
// distance in directions spread evenly around a circle, borders mirrored.
#include <algorithm>
#include <cmath>

#include "statistics/statistics.h"

namespace velomar {

namespace {

// Sums are signed 32-bit and wrap like the machine's adds (only reachable
// with millions of copies); the quotient of the most negative value by -1 is
// taken as its wrapped negation instead of trapping.
inline int32_t WrapToInt(uint32_t v) { return static_cast<int32_t>(v); }
inline int32_t Divide(int32_t a, int32_t b) {
    if (b == -1) return static_cast<int32_t>(0u - static_cast<uint32_t>(a));
    return a / b;
}

// Adds one displaced copy of a source row into the per-byte sums. Lanes is 1
// (grey), 3 (three channels) or 4 (b·a, g·a, r·a, a of a four-byte pixel).
template <int Lanes>
void AccumulateRow(const uint8_t* Row, int32_t Width, int32_t Channels, int64_t Dx,
                   uint32_t* Sums) {
    auto add = [&](int32_t x, int32_t sx) {
        const uint8_t* p = Row + static_cast<size_t>(sx) * Channels;
        uint32_t* s = Sums + static_cast<size_t>(x) * Lanes;
        if constexpr (Lanes == 4) {
            const uint32_t a = p[3];
            s[0] += p[0] * a;
            s[1] += p[1] * a;
            s[2] += p[2] * a;
            s[3] += a;
        } else {
            for (int k = 0; k < Lanes; ++k) s[k] += p[k];
        }
    };
    // Columns whose displaced column lies inside the row: x0 .. x1 - 1.
    const int64_t x0 = std::min<int64_t>(Width, std::max<int64_t>(0, -Dx));
    const int64_t x1 = std::max<int64_t>(x0, std::min<int64_t>(Width, Width - Dx));
    for (int32_t x = 0; x < x0; ++x) add(x, MapEdgeIndex(x + Dx, Width, EDGE_REFLECT));
    for (int32_t x = static_cast<int32_t>(x0); x < x1; ++x) add(x, static_cast<int32_t>(x + Dx));
    for (int32_t x = static_cast<int32_t>(x1); x < Width; ++x)
        add(x, MapEdgeIndex(x + Dx, Width, EDGE_REFLECT));
}

template <int Lanes>
void FragmentRows(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                  int32_t Stride, int32_t Channels, int32_t Count, const int64_t* Dx,
                  const int64_t* Dy) {
    const size_t lanes = static_cast<size_t>(Width) * Lanes;
    Buffer<uint32_t> sums(lanes);
    for (int32_t y = 0; y < Height; ++y) {
        std::memset(sums.data(), 0, lanes * sizeof(uint32_t));
        for (int32_t i = 0; i < Count; ++i) {
            const int32_t sy = MapEdgeIndex(y + Dy[i], Height, EDGE_REFLECT);
            AccumulateRow<Lanes>(Src + static_cast<size_t>(sy) * Stride, Width, Channels, Dx[i],
                                 sums.data());
        }
        uint8_t* out = Dest + static_cast<size_t>(y) * Stride;
        for (int32_t x = 0; x < Width; ++x) {
            const uint32_t* s = sums.data() + static_cast<size_t>(x) * Lanes;
            uint8_t* d = out + static_cast<size_t>(x) * Channels;
            if constexpr (Lanes == 4) {
                const int32_t alpha = WrapToInt(s[3]);
                // No weight at all: the pixel keeps whatever Dest held.
                if (alpha == 0) continue;
                for (int k = 0; k < 3; ++k)
                    d[k] = static_cast<uint8_t>(Divide(WrapToInt(s[k]), alpha));
                d[3] = static_cast<uint8_t>(Divide(alpha, Count));
            } else {
                for (int k = 0; k < Lanes; ++k)
                    d[k] = static_cast<uint8_t>(Divide(WrapToInt(s[k]), Count));
            }
        }
    }
}

}  // namespace

void Fragment(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
              int32_t Count, int32_t Distance, double Angle) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride)) return;
    // A Count below 1 would divide by zero: nothing is written.
    if (Count < 1) return;
    const int32_t channels = BytesPerPixel(Width, Stride);
    // Layouts other than 1, 3 and 4 bytes per pixel leave Dest unwritten.
    if (channels != 1 && channels != 3 && channels != 4) return;

    Buffer<int64_t> dx(static_cast<size_t>(Count)), dy(static_cast<size_t>(Count));
    const double negative = -static_cast<double>(Distance);
    for (int32_t i = 0; i < Count; ++i) {
        const double theta = i * (6.2831852 / Count) + (Angle - 90.0) * 3.1415926 / 180.0;
        // Offsets held in 64 bits so that negating the most negative
        // truncation (a failed conversion) stays defined.
        dx[i] = -static_cast<int64_t>(TruncToInt(std::sin(theta) * negative));
        dy[i] = -static_cast<int64_t>(TruncToInt(std::cos(theta) * negative));
    }

    InPlaceCopy source(Src, Dest, ImageBytes(Height, Stride));
    switch (channels) {
        case 1:
            FragmentRows<1>(source.get(), Dest, Width, Height, Stride, 1, Count, dx.data(), dy.data());
            break;
        case 3:
            FragmentRows<3>(source.get(), Dest, Width, Height, Stride, 3, Count, dx.data(), dy.data());
            break;
        default:
            FragmentRows<4>(source.get(), Dest, Width, Height, Stride, 4, Count, dx.data(), dy.data());
            break;
    }
}

}  // namespace velomar

VL_API void VL_CALL Fragment(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                             int32_t Height, int32_t Stride, int32_t Count, int32_t Distance,
                             double Angle) {
    velomar::Guarded(
        [&] { velomar::Fragment(Src, Dest, Width, Height, Stride, Count, Distance, Angle); });
}
