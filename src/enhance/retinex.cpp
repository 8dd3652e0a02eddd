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
    const size_t n = ImageBytes(Height, Stride);
    std::memset(Out, 0, n * sizeof(double));
    // The blur does not write row padding: the scratch starts as a copy of the
    // source there, so padding positions add nothing (they are not pixels).
    Buffer<uint8_t> blur(n);
    std::memcpy(blur.data(), Src, n);
    for (int32_t k = 0; k < NScales; ++k) {
        GuassBlur(Src, blur.data(), Width, Height, Stride, scales[k]);
        for (size_t i = 0; i < n; ++i) Out[i] += (logs[Src[i]] - logs[blur[i]]) * weight;
    }
}

void StretchByDeviation(const double* In, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                        double Dynamic) {
    const int32_t channels = BytesPerPixel(Width, Stride) == 1 ? 1 : 3;
    const double count = double(Width) * double(Height);
    for (int32_t c = 0; c < channels; ++c) {
        auto each = [&](auto&& f) {
            for (int32_t y = 0; y < Height; ++y) {
                const size_t row = size_t(y) * Stride + c;
                for (int32_t x = 0; x < Width; ++x) f(row + size_t(x) * channels);
            }
        };
        double sum = 0;
        each([&](size_t i) { sum += In[i]; });
        const double mean = sum / count;
        double squares = 0;
        each([&](size_t i) { squares += (In[i] - mean) * (In[i] - mean); });
        const double deviation = std::sqrt(squares / count);
        const double min = mean - Dynamic * deviation, max = mean + Dynamic * deviation;
        double range = max - min;
        if (range == 0) range = 1.0;
        const double gain = 255 / range;
        each([&](size_t i) { Dest[i] = TruncClampByte((In[i] - min) * gain); });
    }
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
