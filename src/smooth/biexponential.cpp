// Bi-exponential edge-preserving smoothing: a forward and a backward
// first-order recursion along every line, whose feedback weight drops where
// the signal jumps, averaged over the two separable orders (rows first and
// columns first). All arithmetic is double precision.
#include <algorithm>
#include <cmath>

#include "smooth/smooth.h"

namespace velomar {

namespace {

struct LineFilter {
    double rho, s, k, c;  // feedback, 1 + rho, (1 - rho) / (1 + rho), -0.5 / SigmaRange^2

    LineFilter(double Rho, double SigmaRange)
        : rho(Rho), s(1 + Rho), k((1 - Rho) / (1 + Rho)), c(-0.5 / (SigmaRange * SigmaRange)) {}

    double Weight(double d) const { return rho * std::exp(d * c * d); }

    // Smooths `count` lines of `length` values, line l at line + l * length,
    // in place. Both sweeps read the untouched line; `scratch` holds 3 * length.
    void Lines(double* lines, size_t length, size_t count, double* scratch) const {
        double *x = scratch, *p = scratch + length, *q = scratch + 2 * length;
        const size_t n = length;
        for (size_t l = 0; l < count; ++l) {
            double* line = lines + l * length;
            std::copy_n(line, n, x);
            p[0] = x[0] / s;
            for (size_t i = 1; i < n; ++i) {
                const double d = x[i] - s * p[i - 1];
                const double r = Weight(d);
                p[i] = (1 - r) * x[i] / s + r * p[i - 1];
            }
            q[n - 1] = x[n - 1] / s;
            for (size_t i = n - 1; i-- > 0;) {
                const double d = x[i] - s * q[i + 1];
                const double r = Weight(d);
                q[i] = r * q[i + 1] + (1 - r) * x[i] / s;
            }
            for (size_t i = 0; i < n; ++i) line[i] = p[i] + q[i] - k * x[i];
        }
    }
};

// Out (Height x Width) = In (Width x Height) transposed, in cache-sized tiles.
void Transpose(const double* in, size_t width, size_t height, double* out) {
    constexpr size_t kTile = 32;
    for (size_t y0 = 0; y0 < height; y0 += kTile)
        for (size_t x0 = 0; x0 < width; x0 += kTile)
            for (size_t y = y0; y < std::min(height, y0 + kTile); ++y)
                for (size_t x = x0; x < std::min(width, x0 + kTile); ++x) out[x * height + y] = in[y * width + x];
}

// The two orders on one plane: rows, then columns of the result (the columns
// walked as rows of the transposed plane), or the columns first.
void SmoothPlane(double* plane, size_t width, size_t height, const LineFilter& f, bool rowsFirst) {
    Buffer<double> turned(width * height), scratch(3 * std::max(width, height));
    if (rowsFirst) f.Lines(plane, width, height, scratch.data());
    Transpose(plane, width, height, turned.data());
    f.Lines(turned.data(), height, width, scratch.data());
    Transpose(turned.data(), height, width, plane);
    if (!rowsFirst) f.Lines(plane, width, height, scratch.data());
}

}  // namespace

void SmoothRowsThenColumns(double* Plane, int32_t Width, int32_t Height, double Rho, double SigmaRange) {
    SmoothPlane(Plane, size_t(Width), size_t(Height), LineFilter(Rho, SigmaRange), true);
}

void SmoothColumnsThenRows(double* Plane, int32_t Width, int32_t Height, double Rho, double SigmaRange) {
    SmoothPlane(Plane, size_t(Width), size_t(Height), LineFilter(Rho, SigmaRange), false);
}

void BiExponentialEPF(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                      double Lambda, double SigmaRange) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride)) return;
    const int32_t bytes = BytesPerPixel(Width, Stride);
    // Four-byte (and any other) layouts are left alone.
    if (bytes != 1 && bytes != 3) return;
    const size_t n = size_t(Width) * size_t(Height);
    const size_t row = size_t(bytes) * size_t(Width);
    // Lambda 0 makes the feedback 0 / 0: the image passes through unchanged.
    if (Lambda == 0) {
        if (Src != Dest)
            for (int32_t y = 0; y < Height; ++y) std::memcpy(Dest + size_t(y) * Stride, Src + size_t(y) * Stride, row);
        return;
    }
    const double rho = 1 - (std::sqrt(2 * Lambda * Lambda + 1) - 1) / (Lambda * Lambda);
    // One pair of planes per channel, the whole source read before Dest is
    // written (Src may be Dest).
    Buffer<double> first(n * size_t(bytes)), second(n * size_t(bytes));
    for (int32_t y = 0; y < Height; ++y)
        for (int32_t x = 0; x < Width; ++x)
            for (int32_t c = 0; c < bytes; ++c)
                first[size_t(c) * n + size_t(y) * Width + x] = Src[size_t(y) * Stride + size_t(x) * bytes + c];
    std::copy_n(first.data(), n * size_t(bytes), second.data());
    for (int32_t c = 0; c < bytes; ++c) {
        SmoothRowsThenColumns(first.data() + size_t(c) * n, Width, Height, rho, SigmaRange);
        SmoothColumnsThenRows(second.data() + size_t(c) * n, Width, Height, rho, SigmaRange);
    }
    for (int32_t y = 0; y < Height; ++y)
        for (int32_t x = 0; x < Width; ++x)
            for (int32_t c = 0; c < bytes; ++c) {
                const size_t i = size_t(c) * n + size_t(y) * Width + x;
                double v = (first[i] + second[i]) * 0.5;
                v = v >= 255 ? 255 : v < 0 ? 0 : v;
                Dest[size_t(y) * Stride + size_t(x) * bytes + c] = static_cast<uint8_t>(TruncToInt(v));
            }
}

}  // namespace velomar

VL_API void VL_CALL BiExponentialEPF(const unsigned char* Src, unsigned char* Dest, int32_t Width, int32_t Height,
                                     int32_t Stride, double Lambda, double SigmaRange) {
    velomar::Guarded([&] { velomar::BiExponentialEPF(Src, Dest, Width, Height, Stride, Lambda, SigmaRange); });
}
