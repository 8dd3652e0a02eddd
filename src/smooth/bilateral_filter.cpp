// Joint bilateral filter of constant cost per pixel: the guide's value range is
// cut into a few levels; for each level a range-weighted copy of the source and
// the weights themselves are smoothed spatially (recursive Gaussian or box
// mean) and divided, and every pixel is interpolated between the two levels
// that bracket its guide value. The levels may run at a reduced resolution and
// be read back bilinearly.
#include <algorithm>
#include <cmath>

#include "blur/blur.h"
#include "core/planes.h"
#include "smooth/smooth.h"

namespace velomar {

namespace {

// Levels of one plane: N values from G_min to G_max, Step apart.
struct LevelSet {
    int32_t gmin = 255, gmax = 0;
    int32_t count = 2;
    double step = 0.0;

    double Value(int32_t k) const {
        if (k == 0) return gmin;
        if (k == count - 1) return gmax;
        return k * step + gmin;
    }
};

LevelSet MakeLevels(int32_t gmin, int32_t gmax, double SigmaRange) {
    LevelSet l;
    l.gmin = gmin;
    l.gmax = gmax;
    // A NaN or out-of-range count truncates to INT_MIN and is raised to 2 like
    // any other small count.
    l.count = TruncToInt(double(gmax - gmin) / (2 * SigmaRange) + 0.5);
    if (l.count < 2) l.count = 2;
    l.step = double(gmax - gmin) / (l.count - 1);
    return l;
}

// exp(-i^2 / (2 SigmaRange^2)) for the 256 possible distances.
void BuildRangeTable(double SigmaRange, double* table) {
    const double twoSigma2 = 2 * (SigmaRange * SigmaRange);
    for (int32_t i = 0; i < 256; ++i) table[i] = std::exp(-double(i * i) / twoSigma2);
}

// Range weight of every guide value against level value L.
void BuildLevelWeights(const double* rangeTable, double L, double* weights) {
    for (int32_t g = 0; g < 256; ++g) {
        int32_t d = TruncToInt(std::fabs(L - g) + 0.5);
        // Level values lie in 0..255, so d does too; the clamp only guards
        // the table.
        weights[g] = rangeTable[std::clamp(d, 0, 255)];
    }
}

// Where each guide value is written: t = (g - G_min) scaled by 1 / Step, i its
// integer part. i in 0..N-2 is blended at level i + 1 from levels i and i + 1
// with weights (i + 1 - t) and 1 - (i + 1 - t); i = N - 1 is copied from the
// last level; anything else (including the NaN of a zero Step) is never
// written. The scale is a multiplication by 1 / Step at full resolution and a
// division by Step at reduced resolution.
struct Brackets {
    int32_t level[256];
    bool blend[256];
    double lower[256], upper[256];

    Brackets(const LevelSet& l, bool multiplyByInverse) {
        const double inverse = 1 / l.step;
        for (int32_t g = 0; g < 256; ++g) {
            const double t = multiplyByInverse ? (g - l.gmin) * inverse : (g - l.gmin) / l.step;
            const int32_t i = TruncToInt(t);
            level[g] = -1;
            blend[g] = false;
            lower[g] = upper[g] = 0;
            if (i >= 0 && i <= l.count - 2) {
                level[g] = i + 1;
                blend[g] = true;
                lower[g] = (i + 1) - t;
                upper[g] = 1 - ((i + 1) - t);
            } else if (i == l.count - 1) {
                level[g] = i;
            }
        }
    }
};

// The spatial filter: recursive Gaussian of sigma S, or a box mean of radius
// trunc(S + 0.5) with mirrored edges.
struct SpatialFilter {
    bool gaussian;
    double sigma;
    int32_t radius;

    SpatialFilter(bool useGaussian, double S) : gaussian(useGaussian), sigma(S) {
        // A negative or NaN extent (outside the contract) gives the one-pixel
        // box, which leaves the planes as they are.
        radius = std::max(TruncToInt(S + 0.5), 0);
    }
};

// Scratch planes of one filter run, kept across the three colour planes.
struct Planes {
    Buffer<double> prev, cur, weight, temp;
    size_t size = 0;

    void Ensure(size_t n, bool box) {
        if (size != n) {
            prev.Reset(n);
            cur.Reset(n);
            weight.Reset(n);
            temp.Reset(0);
            size = n;
        }
        if (box && temp.size() != n) temp.Reset(n);
    }
};

// Fills J (source times range weight) and W (the weight) over count
// consecutive values, smooths both on a plane of Width x Height values with
// rows Stride apart, and leaves the normalised J / W in planes.cur. The box
// mean runs out of place from planes.temp, which is the same as running it in
// place on the filled plane.
void BuildLevel(const uint8_t* src, const uint8_t* guide, size_t count, const double* weights,
                int32_t Width, int32_t Height, int32_t Stride, const SpatialFilter& filter,
                Planes& planes) {
    double* j = filter.gaussian ? planes.cur.data() : planes.temp.data();
    double* w = planes.weight.data();
    for (size_t i = 0; i < count; ++i) {
        const double wt = weights[guide[i]];
        j[i] = src[i] * wt;
        w[i] = wt;
    }
    double* norm = planes.cur.data();
    if (filter.gaussian) {
        GaussBlurDouble(j, j, Width, Height, Stride, filter.sigma);
        GaussBlurDouble(w, w, Width, Height, Stride, filter.sigma);
    } else {
        BoxBlurDouble(j, norm, Width, Height, Stride, filter.radius, EDGE_REFLECT);
        BoxBlurDouble(w, planes.temp.data(), Width, Height, Stride, filter.radius, EDGE_REFLECT);
        w = planes.temp.data();
    }
    for (int32_t y = 0; y < Height; ++y) {
        double* n = norm + size_t(y) * size_t(Stride);
        const double* d = w + size_t(y) * size_t(Stride);
        size_t x = 0;
        for (; x + 2 <= size_t(Width); x += 2)
            _mm_storeu_pd(n + x, _mm_div_pd(_mm_loadu_pd(n + x), _mm_loadu_pd(d + x)));
        for (; x < size_t(Width); ++x) n[x] = n[x] / d[x];
    }
}

// Full-resolution filter of one plane. The level planes are filled over
// Width * Height consecutive values while the filters and the interpolation
// walk rows Stride apart: the two agree only when Stride equals Width, which
// callers ensure for single-channel buffers. The planes hold Height * Stride
// values so that neither walk leaves them.
void FilterFull(const uint8_t* Src, const uint8_t* Guide, uint8_t* Dest, int32_t Width,
                int32_t Height, int32_t Stride, double SigmaSpatial, double SigmaRange,
                bool useGaussian, Planes& planes) {
    int32_t gmin = 255, gmax = 0;
    for (int32_t y = 0; y < Height; ++y) {
        const uint8_t* g = Guide + size_t(y) * size_t(Stride);
        for (int32_t x = 0; x < Width; ++x) {
            gmin = std::min<int32_t>(gmin, g[x]);
            gmax = std::max<int32_t>(gmax, g[x]);
        }
    }
    double rangeTable[256], weights[256];
    BuildRangeTable(SigmaRange, rangeTable);
    const LevelSet levels = MakeLevels(gmin, gmax, SigmaRange);
    const Brackets brackets(levels, true);
    const SpatialFilter filter(useGaussian, SigmaSpatial * std::min(Width, Height) / 255);

    const size_t filled = size_t(Width) * size_t(Height);
    const size_t total = size_t(Height) * size_t(Stride);
    const bool fresh = planes.size != total;
    planes.Ensure(total, !filter.gaussian);
    if (fresh && total > filled) {
        // Values past the filled part are read by the row walk when Stride
        // exceeds Width; start them at zero.
        for (Buffer<double>* b : {&planes.prev, &planes.cur, &planes.weight, &planes.temp})
            if (b->size() == total)
                std::fill(b->data() + filled, b->data() + total, 0.0);
    }

    for (int32_t k = 0; k < levels.count; ++k) {
        BuildLevelWeights(rangeTable, levels.Value(k), weights);
        BuildLevel(Src, Guide, filled, weights, Width, Height, Stride, filter, planes);
        if (k > 0) {
            const double* jPrev = planes.prev.data();
            const double* jCur = planes.cur.data();
            for (int32_t y = 0; y < Height; ++y) {
                const size_t row = size_t(y) * size_t(Stride);
                const uint8_t* g = Guide + row;
                uint8_t* d = Dest + row;
                for (int32_t x = 0; x < Width; ++x) {
                    const uint8_t gv = g[x];
                    if (brackets.level[gv] != k) continue;
                    double v = brackets.blend[gv]
                                   ? brackets.lower[gv] * jPrev[row + x] + brackets.upper[gv] * jCur[row + x]
                                   : jCur[row + x];
                    v = v + 0.5;
                    if (v > 255) v = 255;
                    if (v < 0) v = 0;
                    d[x] = static_cast<uint8_t>(TruncToInt(v));  // NaN stores 0
                }
            }
        }
        std::swap(planes.prev, planes.cur);
    }
}

// Bilinear read position of one axis: p / 2^s clamped to the last small
// index, its integer part, the next index (clamped) and the fraction.
struct AxisSample {
    int32_t i0, i1;
    double f;
};

Buffer<AxisSample> AxisSamples(int32_t full, int32_t small, int32_t s) {
    Buffer<AxisSample> out{size_t(full)};
    const double scale = double(int64_t(1) << s);
    for (int32_t p = 0; p < full; ++p) {
        double pos = p / scale;
        if (pos > small - 1) pos = small - 1;
        const int32_t i0 = TruncToInt(pos);
        out[size_t(p)] = {i0, std::min(i0 + 1, small - 1), pos - i0};
    }
    return out;
}

// Bilinear value of a small plane at (x, y): the four neighbours weighted by
// (1 - fx)(1 - fy), fx(1 - fy), (1 - fx) fy and fx fy, summed in that order.
inline double Bilinear(const double* plane, int32_t w, const AxisSample& ax, const AxisSample& ay) {
    const double* r0 = plane + size_t(ay.i0) * size_t(w);
    const double* r1 = plane + size_t(ay.i1) * size_t(w);
    const double w00 = (1 - ax.f) * (1 - ay.f);
    const double w01 = ax.f * (1 - ay.f);
    const double w10 = (1 - ax.f) * ay.f;
    const double w11 = ax.f * ay.f;
    return r0[ax.i0] * w00 + r0[ax.i1] * w01 + r1[ax.i0] * w10 + r1[ax.i1] * w11;
}

// Filter with the levels at 1 / 2^s resolution. A negative Downsample is
// outside the contract; it makes no halving and runs this filter at full size.
void FilterDownsampled(const uint8_t* Src, const uint8_t* Guide, uint8_t* Dest, int32_t Width,
                       int32_t Height, int32_t Stride, int32_t Downsample, double SigmaSpatial,
                       double SigmaRange, bool useGaussian, Planes& planes) {
    int32_t s = 0, w = Width, h = Height;
    while (s < Downsample && w / 2 >= 1 && h / 2 >= 1) {
        w /= 2;
        h /= 2;
        ++s;
    }
    // Subsampling reads the full image as rows of Width bytes.
    const size_t count = size_t(w) * size_t(h);
    Buffer<uint8_t> smallSrc(count), smallGuide(count);
    int32_t gmin = 255, gmax = 0;
    for (int32_t r = 0; r < h; ++r)
        for (int32_t c = 0; c < w; ++c) {
            const size_t at = (size_t(r) << s) * size_t(Width) + (size_t(c) << s);
            const uint8_t g = Guide[at];
            smallSrc[size_t(r) * w + c] = Src[at];
            smallGuide[size_t(r) * w + c] = g;
            gmin = std::min<int32_t>(gmin, g);
            gmax = std::max<int32_t>(gmax, g);
        }
    double rangeTable[256], weights[256];
    BuildRangeTable(SigmaRange, rangeTable);
    const LevelSet levels = MakeLevels(gmin, gmax, SigmaRange);
    const Brackets brackets(levels, false);
    const SpatialFilter filter(useGaussian, SigmaSpatial * std::min(w, h) / 255);
    planes.Ensure(count, !filter.gaussian);
    const Buffer<AxisSample> xs = AxisSamples(Width, w, s), ys = AxisSamples(Height, h, s);

    for (int32_t k = 0; k < levels.count; ++k) {
        BuildLevelWeights(rangeTable, levels.Value(k), weights);
        BuildLevel(smallSrc.data(), smallGuide.data(), count, weights, w, h, w, filter, planes);
        if (k > 0) {
            const double* jPrev = planes.prev.data();
            const double* jCur = planes.cur.data();
            for (int32_t y = 0; y < Height; ++y) {
                const size_t row = size_t(y) * size_t(Stride);
                const uint8_t* g = Guide + row;
                uint8_t* d = Dest + row;
                const AxisSample& ay = ys[size_t(y)];
                for (int32_t x = 0; x < Width; ++x) {
                    const uint8_t gv = g[x];
                    if (brackets.level[gv] != k) continue;
                    const AxisSample& ax = xs[size_t(x)];
                    const double cur = Bilinear(jCur, w, ax, ay);
                    const double v = brackets.blend[gv]
                                         ? brackets.lower[gv] * Bilinear(jPrev, w, ax, ay) + brackets.upper[gv] * cur
                                         : cur;
                    // Truncated, low 8 bits kept: no rounding and no clamp here.
                    d[x] = static_cast<uint8_t>(TruncToInt(v));
                }
            }
        }
        std::swap(planes.prev, planes.cur);
    }
}

void FilterPlane(const uint8_t* Src, const uint8_t* Guide, uint8_t* Dest, int32_t Width,
                 int32_t Height, int32_t Stride, int32_t Downsample, double SigmaSpatial,
                 double SigmaRange, bool useGaussian, Planes& planes) {
    if (Downsample == 0)
        FilterFull(Src, Guide, Dest, Width, Height, Stride, SigmaSpatial, SigmaRange, useGaussian,
                   planes);
    else
        FilterDownsampled(Src, Guide, Dest, Width, Height, Stride, Downsample, SigmaSpatial,
                          SigmaRange, useGaussian, planes);
}

}  // namespace

void BilateralFilter(const uint8_t* Src, const uint8_t* Guide, uint8_t* Dest, int32_t Width,
                     int32_t Height, int32_t Stride, int32_t Downsample, double SigmaSpatial,
                     double SigmaRange, int32_t UseGaussian) {
    // Null buffers or an empty image return without writing.
    if (!RawArgsValid(Src, Dest, Width, Height, Stride) || !Guide) return;
    const bool useGaussian = (UseGaussian & 0xFF) == 1;
    Planes planes;
    if (BytesPerPixel(Width, Stride) == 1) {
        // Source and guide are read again at every level after Dest has been
        // partly written, so whichever of them is Dest is copied first (the
        // source only at full resolution: the reduced filter reads it once).
        const size_t bytes = ImageBytes(Height, Stride);
        InPlaceCopy guide(Guide, Dest, bytes);
        InPlaceCopy src(Src, Downsample == 0 && Src != Guide ? Dest : nullptr, bytes);
        FilterPlane(Src == Guide ? guide.get() : src.get(), guide.get(), Dest, Width, Height,
                    Stride, Downsample, SigmaSpatial, SigmaRange, useGaussian, planes);
        return;
    }
    // Colour: three-byte pixels; a two-byte layout would leave the row, so
    // nothing is written.
    if (!ThreeBytesFit(Width, Stride)) return;
    // Pixels the filter does not write (a constant guide plane writes none)
    // keep what Dest held.
    const size_t n = size_t(Width) * size_t(Height);
    const bool sameGuide = Src == Guide;
    Buffer<uint8_t> guide(sameGuide ? 1 : 3 * n);
    if (!sameGuide)
        SplitPlanes(Guide, Width, Height, Stride, guide.data(), guide.data() + n,
                    guide.data() + 2 * n);
    FilterColourPlanes(Src, Dest, Width, Height, Stride, [&](int32_t c, const uint8_t* in, uint8_t* out) {
        FilterPlane(in, sameGuide ? in : guide.data() + c * n, out, Width, Height, Width, Downsample,
                    SigmaSpatial, SigmaRange, useGaussian, planes);
    });
}

}  // namespace velomar

VL_API void VL_CALL BilateralFilter(const unsigned char* Src, const unsigned char* Guide,
                                    unsigned char* Dest, int32_t Width, int32_t Height,
                                    int32_t Stride, int32_t Downsample, double SigmaSpatial,
                                    double SigmaRange, int32_t UseGaussian) {
    velomar::Guarded([&] {
        velomar::BilateralFilter(Src, Guide, Dest, Width, Height, Stride, Downsample, SigmaSpatial,
                                 SigmaRange, UseGaussian);
    });
}
