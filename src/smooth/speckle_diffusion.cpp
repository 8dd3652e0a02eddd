// Speckle-reducing anisotropic diffusion: iterated diffusion of exp(v / 255)
// whose conduction falls where the local coefficient of variation exceeds the
// speckle scale of the image's most homogeneous 64 x 64 block. Double
// precision throughout.
#include <cfloat>
#include <algorithm>
#include <cmath>

#include "core/planes.h"
#include "smooth/smooth.h"

namespace velomar {

HomogeneousBlock FindHomogeneousBlock(const uint8_t* Src, int32_t Width, int32_t Height, int32_t Stride) {
    const int32_t nx = static_cast<int32_t>(std::floor(Width * 0.015625));
    const int32_t ny = static_cast<int32_t>(std::floor(Height * 0.015625));
    // Without a whole block the whole image serves as the block.
    if (nx <= 0 || ny <= 0) return {0, Width, 0, Height};
    double best = DBL_MAX;
    int32_t bestX = 0, bestY = 0;
    for (int32_t by = 0; by < ny; ++by)
        for (int32_t bx = 0; bx < nx; ++bx) {
            const uint8_t* block = Src + size_t(by) * 64 * Stride + size_t(bx) * 64;
            int32_t sum = 0;
            for (int32_t y = 0; y < 64; ++y)
                for (int32_t x = 0; x < 64; ++x) sum += block[size_t(y) * Stride + x];
            const double mean = sum * 0.000244140625;
            double squares = 0;
            for (int32_t y = 0; y < 64; ++y)
                for (int32_t x = 0; x < 64; ++x) {
                    const double d = block[size_t(y) * Stride + x] - mean;
                    squares += d * d;
                }
            const double sd = std::sqrt(squares * 0.000244140625);
            if (sd < best) {  // ties keep the first block in row-major order
                best = sd;
                bestX = bx;
                bestY = by;
            }
        }
    return {64 * bestX, 64 * bestX + 64, 64 * bestY, 64 * bestY + 64};
}

void DiffuseSpeckle(double* j, int32_t Width, int32_t Height, const HomogeneousBlock& b, int32_t Iterations,
                    double Lambda) {
    const size_t w = size_t(Width), h = size_t(Height), n = w * h, pw = w + 2;
    Buffer<double> padded(pw * (h + 2)), dn(n), ds(n), dw(n), de(n), k((w + 1) * (h + 1));
    const double count = double(b.X1 - b.X0) * double(b.Y1 - b.Y0);
    const double step = 0.25 * Lambda;
    const size_t kw = w + 1;  // k has one extra column and row replicating the edge
    for (int32_t it = 0; it < Iterations; ++it) {
        double sum = 0, squares = 0;
        for (int32_t y = b.Y0; y < b.Y1; ++y)
            for (int32_t x = b.X0; x < b.X1; ++x) {
                const double v = j[size_t(y) * w + x];
                sum += v;
                squares += v * v;
            }
        const double m = sum / count;
        const double q0 = (squares / count - m * m) / (m * m);
        for (size_t y = 0; y < h; ++y) {
            double* row = padded.data() + (y + 1) * pw;
            std::copy_n(j + y * w, w, row + 1);
            row[0] = row[1];
            row[w + 1] = row[w];
        }
        std::copy_n(padded.data() + pw, pw, padded.data());
        std::copy_n(padded.data() + h * pw, pw, padded.data() + (h + 1) * pw);
        for (size_t y = 0; y < h; ++y)
            for (size_t x = 0; x < w; ++x) {
                const size_t i = y * w + x;
                const double* c = padded.data() + (y + 1) * pw + x + 1;
                const double v = *c;
                const double north = c[-ptrdiff_t(pw)] - v, south = c[pw] - v, west = c[-1] - v, east = c[1] - v;
                dn[i] = north, ds[i] = south, dw[i] = west, de[i] = east;
                const double L = (north + south + west + east) / v;
                const double G = (north * north + south * south + west * west + east * east) / (v * v);
                const double t = 1 + 0.25 * L;
                const double q = (0.5 * G - 0.0625 * (L * L)) / (t * t);
                double kv = 1 / (1 + (q - q0) / (q0 * (1 + q0)));
                // A NaN (0 / 0: a pixel level with its neighbours over a
                // uniform block) clamps to 0; it only ever meets zero
                // differences.
                kv = kv > 0 ? (kv > 1 ? 1 : kv) : 0;
                k[y * kw + x] = kv;
            }
        for (size_t y = 0; y < h; ++y) k[y * kw + w] = k[y * kw + w - 1];
        std::copy_n(k.data() + (h - 1) * kw, kw, k.data() + h * kw);
        for (size_t y = 0; y < h; ++y)
            for (size_t x = 0; x < w; ++x) {
                const size_t i = y * w + x;
                const double* kr = k.data() + y * kw + x;
                const double d = kr[0] * (dn[i] + dw[i]) + kr[kw] * ds[i] + kr[1] * de[i];
                j[i] = j[i] + step * d;
            }
    }
}

namespace {

// One plane (the first Width bytes of each row of Src) diffused into Dest;
// Src is read in full first, so it may be Dest.
void DiffusePlane(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                  int32_t Iterations, double Lambda) {
    const size_t w = size_t(Width), h = size_t(Height);
    double table[256];
    for (int i = 0; i < 256; ++i) table[i] = std::exp(i / 255.0);
    Buffer<double> j(w * h);
    for (size_t y = 0; y < h; ++y)
        for (size_t x = 0; x < w; ++x) j[y * w + x] = table[Src[y * size_t(Stride) + x]];
    DiffuseSpeckle(j.data(), Width, Height, FindHomogeneousBlock(Src, Width, Height, Stride), Iterations, Lambda);
    for (size_t y = 0; y < h; ++y)
        for (size_t x = 0; x < w; ++x)
            Dest[y * size_t(Stride) + x] = TruncClampByte(std::log(j[y * w + x]) * 255.0 + 0.5);
}

}  // namespace

void SpeckleReducingAnisotropicDiffusion(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                                         int32_t Stride, int32_t Iterations, double Lambda) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride)) return;
    if (BytesPerPixel(Width, Stride) == 3) {
        FilterColourPlanesInPlace(Src, Dest, Width, Height, Stride, [&](int32_t, uint8_t* plane) {
            DiffusePlane(plane, plane, Width, Height, Width, Iterations, Lambda);
        });
        return;
    }
    // Every other layout is one plane: the first Width bytes of each row. The
    // planes are built before Dest is written, so Src may be Dest.
    DiffusePlane(Src, Dest, Width, Height, Stride, Iterations, Lambda);
}

}  // namespace velomar

VL_API void VL_CALL SpeckleReducingAnisotropicDiffusion(const unsigned char* Src, unsigned char* Dest,
                                                        int32_t Width, int32_t Height, int32_t Stride,
                                                        int32_t Iterations, double Lambda) {
    velomar::Guarded([&] {
        velomar::SpeckleReducingAnisotropicDiffusion(Src, Dest, Width, Height, Stride, Iterations, Lambda);
    });
}
