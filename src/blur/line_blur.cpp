// Line-kernel blurs: the motion blur (a streak centred on each pixel, along an
// angle), the linear blur (a trail behind each pixel, along a direction), and
// the builder of their sub-pixel line kernels.
#include <algorithm>
#include <cmath>
#include <vector>

#include "blur/blur.h"
#include "core/neighbourhood.h"

namespace velomar {

namespace {

// Sine and cosine of an angle in degrees from fmod (exact), additions,
// multiplications and divisions only, so every platform and C library gets
// the same bits (the kernels are integers derived from them).
void SinCosDegrees(double Degrees, double& Sin, double& Cos) {
    double a = std::fmod(Degrees, 360.0);
    if (a < 0) a += 360.0;
    const int32_t quadrant = TruncToInt((a + 45.0) / 90.0);  // nearest multiple of 90 degrees
    const double r = (a - 90.0 * quadrant) * (3.14159265358979323846 / 180.0);  // |r| <= pi / 4
    const double r2 = r * r;
    // Taylor series in Horner form up to r^17 and r^18: the remainder is far
    // below one unit in the last place for |r| <= pi / 4.
    double s = 1.0, c = 1.0;
    for (int32_t k = 16; k >= 2; k -= 2) {
        s = 1.0 - r2 / double(k * (k + 1)) * s;
        c = 1.0 - r2 / double((k - 1) * k) * c;
    }
    s *= r;
    switch (quadrant & 3) {
        case 0: Sin = s, Cos = c; break;
        case 1: Sin = c, Cos = -s; break;
        case 2: Sin = -s, Cos = -c; break;
        default: Sin = -c, Cos = s; break;
    }
}

// Fixed-point scales of the kernel builder: direction components in 1/4096,
// sample positions in 1/8 pixel, so positions come out in 1/32768 pixel.
constexpr int32_t kDirectionOne = 4096;
constexpr int32_t kPositionShift = 15;
constexpr int32_t kPositionOne = 1 << kPositionShift;

struct Splat {
    int32_t dx, dy;
    int64_t weight;
};

// Applies Taps (sorted by dy, then dx) to every pixel: Channels interleaved
// bytes per pixel, borders through the tables for Radius.
void ApplyLineKernel(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                     int32_t Stride, int32_t Channels, int32_t EdgeMode, int32_t Radius,
                     const std::vector<LineTap>& Taps) {
    Buffer<int32_t> columnIndex(size_t(Width) + 2 * size_t(Radius)), rowOffset(size_t(Height) + 2 * size_t(Radius));
    BuildBorderTables(Radius, Width, Height, Stride, EdgeMode, columnIndex.data(), rowOffset.data());
    const size_t rowBytes = size_t(Width) * Channels;
    Buffer<uint32_t> sums(rowBytes);
    for (int32_t y = 0; y < Height; ++y) {
        uint32_t* acc = sums.data();
        std::fill(acc, acc + rowBytes, uint32_t(kLineKernelTotal / 2));  // rounds to nearest
        for (const LineTap& tap : Taps) {
            const uint8_t* row = Src + rowOffset[size_t(y + tap.dy + Radius)];
            const uint32_t w = uint32_t(tap.weight);
            // Columns whose sample x + dx lies inside the row read straight
            // across; the others go through the column table.
            const int32_t inLo = std::clamp(-tap.dx, 0, Width), inHi = std::clamp(Width - tap.dx, inLo, Width);
            auto border = [&](int32_t from, int32_t to) {
                for (int32_t x = from; x < to; ++x) {
                    const uint8_t* p = row + size_t(columnIndex[size_t(x + tap.dx + Radius)]) * Channels;
                    for (int32_t k = 0; k < Channels; ++k) acc[size_t(x) * Channels + k] += w * p[k];
                }
            };
            border(0, inLo);
            const uint8_t* shifted = row + (ptrdiff_t(inLo) + tap.dx) * Channels;
            uint32_t* out = acc + size_t(inLo) * Channels;
            const size_t count = size_t(inHi - inLo) * Channels;
            for (size_t i = 0; i < count; ++i) out[i] += w * shifted[i];
            border(inHi, Width);
        }
        uint8_t* d = Dest + size_t(y) * Stride;
        for (size_t i = 0; i < rowBytes; ++i) d[i] = uint8_t(acc[i] >> 16);
    }
}

void LineBlur(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
              int32_t Distance, double Angle, int32_t EdgeMode, bool Trailing) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride)) return;
    const int32_t bpp = BytesPerPixel(Width, Stride);
    // Two bytes per pixel would walk three-byte pixels past the end of a row:
    // return without writing.
    if (bpp != 1 && !ThreeBytesFit(Width, Stride)) return;
    const int32_t channels = bpp == 1 ? 1 : (bpp == 4 ? 4 : 3);
    std::vector<LineTap> taps;
    int32_t radius = 0;
    if (!BuildLineKernel(Distance, Angle, Trailing, taps, radius)) return;
    InPlaceCopy source(Src, Dest, ImageBytes(Height, Stride));
    ApplyLineKernel(source.get(), Dest, Width, Height, Stride, channels, EdgeMode, radius, taps);
}

}  // namespace

bool BuildLineKernel(int32_t Distance, double Angle, bool Trailing, std::vector<LineTap>& Taps,
                     int32_t& Radius) {
    Taps.clear();
    if (Distance < 0 || Distance > kMaxLineDistance || !std::isfinite(Angle)) return false;
    if (Distance == 0) {
        Radius = 0;
        Taps.push_back({0, 0, kLineKernelTotal});
        return true;
    }
    double sine, cosine;
    SinCosDegrees(Angle, sine, cosine);
    // Image rows run downward, so a positive angle points up the picture.
    const int32_t ux = TruncToInt(std::floor(cosine * kDirectionOne + 0.5));
    const int32_t uy = TruncToInt(std::floor(-sine * kDirectionOne + 0.5));

    // Samples a quarter pixel apart, each at the middle of its quarter:
    // t = (2k + 1 - N) / 8 pixels for the centred streak, (2k + 1 - 2N) / 8
    // for the trail, N = 4 * Distance. Each sample spreads its unit weight
    // (2^30) over the four pixels around it, bilinearly.
    const int32_t n = 4 * Distance;
    std::vector<Splat> splats;
    splats.reserve(size_t(n) * 4);
    for (int32_t k = 0; k < n; ++k) {
        const int32_t t = 2 * k + 1 - (Trailing ? 2 * n : n);
        const int32_t px = t * ux, py = t * uy;  // 1/32768 pixel
        const int32_t ix = px >> kPositionShift, iy = py >> kPositionShift;
        const int64_t fx = px & (kPositionOne - 1), fy = py & (kPositionOne - 1);
        const int64_t wx[2] = {kPositionOne - fx, fx}, wy[2] = {kPositionOne - fy, fy};
        for (int32_t j = 0; j < 2; ++j)
            for (int32_t i = 0; i < 2; ++i)
                if (wx[i] * wy[j] != 0) splats.push_back({ix + i, iy + j, wx[i] * wy[j]});
    }
    // One tap per pixel, in row order.
    std::sort(splats.begin(), splats.end(),
              [](const Splat& a, const Splat& b) { return a.dy != b.dy ? a.dy < b.dy : a.dx < b.dx; });
    std::vector<Splat> cells;
    for (const Splat& s : splats) {
        if (!cells.empty() && cells.back().dx == s.dx && cells.back().dy == s.dy) cells.back().weight += s.weight;
        else cells.push_back(s);
    }

    // Weights out of kLineKernelTotal: each cell's share rounded down, then
    // the units still missing go to the largest remainders (ties to the
    // earlier cell in row order), so the weights sum to the total exactly.
    const int64_t unit = int64_t(n) << 14;  // the whole (N * 2^30) / kLineKernelTotal
    std::vector<size_t> order(cells.size());
    int32_t missing = kLineKernelTotal;
    Radius = 0;
    for (size_t i = 0; i < cells.size(); ++i) {
        order[i] = i;
        Taps.push_back({cells[i].dx, cells[i].dy, int32_t(cells[i].weight / unit)});
        missing -= Taps.back().weight;
        Radius = std::max({Radius, std::abs(cells[i].dx), std::abs(cells[i].dy)});
    }
    std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) {
        return cells[a].weight % unit > cells[b].weight % unit;
    });
    for (int32_t i = 0; i < missing; ++i) ++Taps[order[size_t(i)]].weight;
    // Cells whose share rounded to nothing do not need visiting.
    Taps.erase(std::remove_if(Taps.begin(), Taps.end(), [](const LineTap& t) { return t.weight == 0; }),
               Taps.end());
    return true;
}

int32_t GetMotionArray(int32_t* Kernel, int32_t Distance, double Angle) {
    std::vector<LineTap> taps;
    int32_t radius = 0;
    if (!BuildLineKernel(Distance, Angle, false, taps, radius)) return 0;
    // The square is sized by the streak's reach, not by the taps that kept a
    // weight, so it depends on Distance alone.
    radius = (Distance + 1) / 2;
    const int32_t side = 2 * radius + 1;
    if (Kernel) {
        std::fill(Kernel, Kernel + size_t(side) * side, 0);
        for (const LineTap& t : taps) Kernel[size_t(t.dy + radius) * side + size_t(t.dx + radius)] = t.weight;
    }
    return side;
}

void MotionBlur(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                int32_t Distance, double Angle, int32_t EdgeMode) {
    LineBlur(Src, Dest, Width, Height, Stride, Distance, Angle, EdgeMode, false);
}

void LinearBlur(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                int32_t Distance, double Angle, int32_t EdgeMode) {
    LineBlur(Src, Dest, Width, Height, Stride, Distance, Angle, EdgeMode, true);
}

}  // namespace velomar

VL_API int32_t VL_CALL GetMotionArray(int32_t* Kernel, int32_t Distance, double Angle) {
    int32_t side = 0;
    velomar::Guarded([&] { side = velomar::GetMotionArray(Kernel, Distance, Angle); });
    return side;
}

VL_API void VL_CALL MotionBlur(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                               int32_t Height, int32_t Stride, int32_t Distance, double Angle,
                               int32_t EdgeMode) {
    velomar::Guarded([&] { velomar::MotionBlur(Src, Dest, Width, Height, Stride, Distance, Angle, EdgeMode); });
}

VL_API void VL_CALL LinearBlur(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                               int32_t Height, int32_t Stride, int32_t Distance, double Angle,
                               int32_t EdgeMode) {
    velomar::Guarded([&] { velomar::LinearBlur(Src, Dest, Width, Height, Stride, Distance, Angle, EdgeMode); });
}
