// High dynamic range: exposure blending weighted by how well exposed the
// smoothed image is, and tone mapping that compresses the log base layer of a
// self-guided filter while keeping the detail layer.
#include <cmath>

#include "enhance/enhance.h"
#include "smooth/smooth.h"

namespace velomar {

void HdrBasedOnExposureBlending(const uint8_t* Src, const uint8_t* ForShadows, const uint8_t* ForHighlights,
                                uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride, int32_t Radius) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride) || !ForShadows || !ForHighlights || Radius < 0) return;
    // Grey pixels blend their one byte; every other layout three bytes a pixel.
    const int32_t channels = BytesPerPixel(Width, Stride) == 1 ? 1 : 3;
    if (channels == 3 && !ThreeBytesFit(Width, Stride)) return;
    Buffer<uint8_t> smooth(ImageBytes(Height, Stride));
    GuidedFilter(Src, Src, smooth.data(), Width, Height, Stride, Radius, 0.01);
    double weight[256];
    for (int32_t v = 0; v < 256; ++v) weight[v] = std::exp(-4 * (v - 127.5) * (v - 127.5) / 16256.25);
    for (int32_t y = 0; y < Height; ++y) {
        const size_t row = size_t(y) * Stride;
        for (int32_t i = 0; i < Width * channels; ++i) {
            const size_t p = row + i;
            const int32_t s = Src[p];
            const double w = weight[smooth[p]];
            const int32_t o = s > 127 ? ForHighlights[p] : ForShadows[p];
            Dest[p] = TruncClampByte(o * (1 - w) + s * w);
        }
    }
}

void ToneMapByGuidedFilter(const double* In, double* Out, int32_t Width, int32_t Height, int32_t Radius) {
    if (!In || !Out || Width <= 0 || Height <= 0 || Radius < 0) return;
    const size_t n = size_t(Width) * Height;
    Buffer<double> intensity(n), base(n);
    for (size_t i = 0; i < n; ++i) {
        const double B = In[3 * i], G = In[3 * i + 1];
        intensity[i] = (G * 40 + B * 20 + B) * 0.01639344262295082;
    }
    GuidedFilterCore(intensity.data(), intensity.data(), base.data(), Width, Height, Radius, 0.01);
    // base becomes the log base, intensity the detail (log I - log base).
    double maxLog = -HUGE_VAL, minLog = HUGE_VAL;
    for (size_t i = 0; i < n; ++i) {
        base[i] = std::log10(base[i] + 0.00001);
        if (base[i] > maxLog) maxLog = base[i];
        if (base[i] < minLog) minLog = base[i];
    }
    // A constant base layer has no contrast to compress: gamma 0 leaves the
    // detail alone, the base lifted to full intensity like the top of any
    // other base layer.
    const double gamma = maxLog > minLog ? std::log10(5.0) / (maxLog - minLog) : 0.0;
    for (size_t i = 0; i < n; ++i) {
        const double I = intensity[i];
        const double detail = std::log10(I + 0.00001) - base[i];
        const double newLog = base[i] * gamma + detail - maxLog * gamma;
        // A pixel without blue or green has no intensity to scale: it keeps
        // its values.
        const double ratio = I == 0 ? 1.0 : std::pow(10.0, newLog) / I;
        for (int32_t k = 0; k < 3; ++k) Out[3 * i + k] = In[3 * i + k] * ratio;
    }
}

void HdrBasedOnGuiderFilter(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                            int32_t Radius) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride) || Radius < 0) return;
    // Three bytes per pixel: the intensity is made of blue and green.
    if (BytesPerPixel(Width, Stride) < 3) return;
    const size_t rowValues = 3 * size_t(Width);
    Buffer<double> image(rowValues * Height);
    for (int32_t y = 0; y < Height; ++y)
        for (size_t i = 0; i < rowValues; ++i)
            image[y * rowValues + i] = Src[size_t(y) * Stride + i] * 0.00392156862745098;
    ToneMapByGuidedFilter(image.data(), image.data(), Width, Height, Radius);
    for (int32_t y = 0; y < Height; ++y)
        for (size_t i = 0; i < rowValues; ++i)
            Dest[size_t(y) * Stride + i] = TruncClampByte(image[y * rowValues + i] * 255.0 + 0.5);
}

}  // namespace velomar

VL_API void VL_CALL HdrBasedOnExposureBlending(const unsigned char* Src, const unsigned char* ForShadows,
                                               const unsigned char* ForHighlights, unsigned char* Dest,
                                               int32_t Width, int32_t Height, int32_t Stride, int32_t Radius) {
    velomar::Guarded([&] {
        velomar::HdrBasedOnExposureBlending(Src, ForShadows, ForHighlights, Dest, Width, Height, Stride, Radius);
    });
}

VL_API void VL_CALL HdrBasedOnGuiderFilter(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                           int32_t Height, int32_t Stride, int32_t Radius) {
    velomar::Guarded([&] { velomar::HdrBasedOnGuiderFilter(Src, Dest, Width, Height, Stride, Radius); });
}
