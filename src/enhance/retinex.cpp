// Multi-scale Retinex: the logarithm of each value minus that of its
// Gaussian-blurred surround, averaged over several scales and stretched back
// to bytes by the result's mean and deviation.
#include <cmath>

#include "blur/blur.h"
#include "enhance/enhance.h"

namespace velomar {

void MultiScaleRetinex(int32_t NScales, const uint8_t* Src, double* Out, int32_t Width, int32_t Height,
                       int32_t Stride, double Sigma) {
    const double weight = 1.0 / NScales;
    Buffer<double> scales{size_t(NScales)};
    if (NScales == 1) {
        scales[0] = Sigma;
    } else if (NScales == 2) {
        scales[0] = 0.5 * Sigma;
        scales[1] = Sigma;
    } else {
        for (int32_t i = 0; i < NScales; ++i) scales[i] = 2.0 + i * (Sigma / NScales);
    }
    double logs[256];
    for (int v = 0; v < 256; ++v) logs[v] = std::log(v + 1.0);
    // Every term (ln(s + 1) - ln(b + 1)) * weight, precomputed for each pair
    // of bytes: the same expression, looked up instead of recomputed.
    Buffer<double> term(size_t(256) * 256);
    for (int a = 0; a < 256; ++a)
        for (int b = 0; b < 256; ++b) term[size_t(a) * 256 + b] = (logs[a] - logs[b]) * weight;
    const size_t n = ImageBytes(Height, Stride);
    // The blur does not write row padding: each scratch plane starts as a
    // copy of the source there, so padding positions add nothing (they are
    // not pixels). A few scales are blurred, then added in one pass, each
    // position still summing its terms scale by scale.
    constexpr int32_t kBatch = 4;
    Buffer<uint8_t> blur(n * size_t(std::min(NScales, kBatch)));
    for (int32_t k0 = 0; k0 < NScales; k0 += kBatch) {
        const int32_t count = std::min(kBatch, NScales - k0);
        const uint8_t* b[kBatch];
        for (int32_t k = 0; k < count; ++k) {
            uint8_t* plane = blur.data() + size_t(k) * n;
            const size_t used = size_t(BytesPerPixel(Width, Stride) == 1 ? 1 : 3) * Width;
            if (used < size_t(Stride))  // only the padding needs it: the blur writes every pixel
                for (int32_t y = 0; y < Height; ++y)
                    std::memcpy(plane + size_t(y) * Stride + used, Src + size_t(y) * Stride + used, Stride - used);
            GuassBlur(Src, plane, Width, Height, Stride, scales[k0 + k]);
            b[k] = plane;
        }
        for (size_t i = 0; i < n; ++i) {
            const double* row = term.data() + size_t(Src[i]) * 256;
            double a = k0 == 0 ? 0.0 : Out[i];
            for (int32_t k = 0; k < count; ++k) a += row[b[k][i]];
            Out[i] = a;
        }
    }
}

void StretchByDeviation(const double* In, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                        double Dynamic) {
    const int32_t channels = BytesPerPixel(Width, Stride) == 1 ? 1 : 3;
    const double count = double(Width) * double(Height);
    // The channels are walked side by side, each summing its own values in
    // pixel order.
    auto each = [&](auto&& f) {
        for (int32_t y = 0; y < Height; ++y) {
            const size_t row = size_t(y) * Stride;
            for (int32_t x = 0; x < Width; ++x)
                for (int32_t c = 0; c < channels; ++c) f(c, row + size_t(x) * channels + c);
        }
    };
    double sum[3] = {0, 0, 0}, squares[3] = {0, 0, 0}, mean[3], min[3], gain[3];
    each([&](int32_t c, size_t i) { sum[c] += In[i]; });
    for (int32_t c = 0; c < channels; ++c) mean[c] = sum[c] / count;
    each([&](int32_t c, size_t i) { squares[c] += (In[i] - mean[c]) * (In[i] - mean[c]); });
    for (int32_t c = 0; c < channels; ++c) {
        const double deviation = std::sqrt(squares[c] / count);
        min[c] = mean[c] - Dynamic * deviation;
        const double max = mean[c] + Dynamic * deviation;
        double range = max - min[c];
        if (range == 0) range = 1.0;
        gain[c] = 255 / range;
    }
    each([&](int32_t c, size_t i) { Dest[i] = TruncClampByte((In[i] - min[c]) * gain[c]); });
}

void MSRCRGIMP(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride, double Sigma,
               int32_t NScales, double Dynamic) {
    // No scale gives no weight (it would divide by zero): nothing is written.
    if (!RawArgsValid(Src, Dest, Width, Height, Stride) || NScales <= 0) return;
    // Layouts other than grey are walked three bytes per pixel.
    if (BytesPerPixel(Width, Stride) != 1 && !ThreeBytesFit(Width, Stride)) return;
    Buffer<double> acc(ImageBytes(Height, Stride));
    MultiScaleRetinex(NScales, Src, acc.data(), Width, Height, Stride, Sigma);
    StretchByDeviation(acc.data(), Dest, Width, Height, Stride, Dynamic);
}

void MSRHSV(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride, double Sigma,
            int32_t NScales, double Dynamic) {
    // Pixels are three bytes; rows that cannot hold them write nothing.
    if (!RawArgsValid(Src, Dest, Width, Height, Stride) || NScales <= 0 || !ThreeBytesFit(Width, Stride)) return;
    const size_t plane = size_t(Width) * Height;
    Buffer<uint8_t> value(plane);
    Buffer<double> hsv(ImageBytes(Height, Stride)), acc(plane);
    for (int32_t y = 0; y < Height; ++y) {
        double* h = hsv.data() + size_t(y) * Stride;
        RowBgrToHsv(Width, Src + size_t(y) * Stride, h);
        for (int32_t x = 0; x < Width; ++x) value[size_t(y) * Width + x] = static_cast<uint8_t>(TruncToInt(h[3 * x + 2]));
    }
    MultiScaleRetinex(NScales, value.data(), acc.data(), Width, Height, Width, Sigma);
    StretchByDeviation(acc.data(), value.data(), Width, Height, Width, Dynamic);
    for (int32_t y = 0; y < Height; ++y) {
        double* h = hsv.data() + size_t(y) * Stride;
        for (int32_t x = 0; x < Width; ++x) h[3 * x + 2] = value[size_t(y) * Width + x];
        RowHsvToBgr(Width, h, Dest + size_t(y) * Stride);
    }
}

}  // namespace velomar

VL_API void VL_CALL MSRCRGIMP(const unsigned char* Src, unsigned char* Dest, int32_t Width, int32_t Height,
                              int32_t Stride, double Sigma, int32_t NScales, double Dynamic) {
    velomar::Guarded([&] { velomar::MSRCRGIMP(Src, Dest, Width, Height, Stride, Sigma, NScales, Dynamic); });
}

VL_API void VL_CALL MSRHSV(const unsigned char* Src, unsigned char* Dest, int32_t Width, int32_t Height,
                           int32_t Stride, double Sigma, int32_t NScales, double Dynamic) {
    velomar::Guarded([&] { velomar::MSRHSV(Src, Dest, Width, Height, Stride, Sigma, NScales, Dynamic); });
}
