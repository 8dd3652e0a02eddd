// Contrast enhancement: each value pushed away from a local estimate of its
// surroundings (box mean, guided-filter base, or a gain set by the local
// deviation), and a gamma curve built per image from its weighted histogram.
#include <algorithm>
#include <cmath>

#include "adjust/adjust.h"
#include "blur/blur.h"
#include "core/planes.h"
#include "enhance/enhance.h"
#include "smooth/smooth.h"
#include "statistics/statistics.h"

namespace velomar {

namespace {

// Every byte of the buffer, row padding included: base(b) + (s - b) * Amount
// / 100 (signed, truncating), clamped, with b the byte Dest holds and s the
// source byte. The product is taken in 64 bits so that no Amount overflows.
template <class Base>
void AmplifyDifference(const uint8_t* Src, uint8_t* Dest, size_t Bytes, int32_t Amount, Base base) {
    for (size_t i = 0; i < Bytes; ++i) {
        const int32_t b = Dest[i];
        const int64_t d = int64_t(Src[i] - b) * Amount / 100;
        const int64_t v = base(b) + d;
        Dest[i] = static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
    }
}

// The one-byte path of the adaptive gamma: a curve from the weighted
// distribution of the plane's values, applied to every byte.
void AdaptiveGammaPlane(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                        double Alpha) {
    uint32_t hist[256];
    ComputeChannelHistograms(Src, Width, Height, Stride, hist, nullptr, nullptr);
    const double total = double(Width) * Height;
    double pdf[256], pdfMin = 0, pdfMax = 0;
    for (int i = 0; i < 256; ++i) {
        pdf[i] = hist[i] / total;
        if (i == 0 || pdf[i] < pdfMin) pdfMin = pdf[i];
        if (i == 0 || pdf[i] > pdfMax) pdfMax = pdf[i];
    }
    uint8_t table[256];
    if (pdfMin == pdfMax) {
        // A flat distribution maps every value to the first byte of the image.
        std::fill_n(table, 256, Src[0]);
    } else {
        double pdfw[256], sumW = 0;
        for (int i = 0; i < 256; ++i) {
            pdfw[i] = pdfMax * std::pow((pdf[i] - pdfMin) / (pdfMax - pdfMin), Alpha);
            sumW += pdfw[i];
        }
        double running = 0;
        for (int i = 0; i < 256; ++i) {
            running += pdfw[i];
            const double cdfw = running / sumW;
            table[i] = TruncClampByte(255 * std::pow(i / 255.0, 1 - cdfw));
        }
    }
    ApplyCurveTables(Src, Dest, Width, Height, Stride, table, table, table);
}

}  // namespace

void LeeContrastEnhancement(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                            int32_t Radius, int32_t Amount, int32_t InputLow, int32_t InputHigh) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride) || Radius < 0) return;
    const size_t bytes = ImageBytes(Height, Stride);
    if (Src == Dest) {
        // The in-place call runs on a copy with the full input range: the
        // caller's range is not used then.
        InPlaceCopy copy(Src, Dest, bytes);
        LeeContrastEnhancement(copy.get(), Dest, Width, Height, Stride, Radius, Amount, 0, 255);
        return;
    }
    uint8_t table[256];
    for (int32_t i = 0; i < 256; ++i) {
        if (InputHigh <= InputLow)
            table[i] = 127;
        else if (i < InputLow)
            table[i] = 0;
        else if (i > InputHigh)
            table[i] = 255;
        else
            // In 64 bits: any 32-bit range gives the exact quotient.
            table[i] = static_cast<uint8_t>((int64_t(i) - InputLow) * 255 / (int64_t(InputHigh) - InputLow));
    }
    BoxBlur(Src, Dest, Width, Height, Stride, Radius, EDGE_REPLICATE);
    AmplifyDifference(Src, Dest, bytes, Amount, [&](int32_t m) { return table[m]; });
}

void DetailEnhanceByEdgePreseveingFilter(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                                         int32_t Stride, int32_t Radius, int32_t Amount) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride) || Radius < 0) return;
    const size_t bytes = ImageBytes(Height, Stride);
    InPlaceCopy source(Src, Dest, bytes);
    GuidedFilter(source.get(), source.get(), Dest, Width, Height, Stride, Radius, double(0.01f));
    AmplifyDifference(source.get(), Dest, bytes, Amount, [](int32_t b) { return b; });
}

void LSDContrastEnhancement(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                            int32_t Radius, int32_t Amount, int32_t MaxGain) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride)) return;
    // Grey or exactly three bytes per pixel: the global statistics are taken
    // per colour channel, which other layouts do not have.
    const int32_t channels = BytesPerPixel(Width, Stride);
    if (channels != 1 && channels != 3) return;
    const size_t bytes = ImageBytes(Height, Stride);
    InPlaceCopy source(Src, Dest, bytes);
    Src = source.get();
    // With grey pixels the local mean is not written: Dest keeps what it held
    // and that is the mean used (the source itself for an in-place call).
    Buffer<uint32_t> variance(bytes);
    if (!LocalMeanVariance(Src, variance.data(), Dest, Width, Height, Stride, Radius, EDGE_REFLECT)) return;

    uint32_t hist[3][256];
    ComputeChannelHistograms(Src, Width, Height, Stride, hist[0], hist[1], hist[2]);
    const double total = double(Width) * Height;
    Buffer<double> gain(3 * 65536);
    for (int32_t c = 0; c < 3; ++c) {
        double sum = 0, squares = 0;
        for (int32_t i = 0; i < 256; ++i) sum += double(hist[c][i]) * i;
        const double mean = sum / total;
        for (int32_t i = 0; i < 256; ++i) squares += hist[c][i] * ((i - mean) * (i - mean));
        const double alpha = std::sqrt(squares / total) * Amount / 100;
        double* g = gain.data() + c * 65536;
        for (int32_t v = 0; v < 65536; ++v) {
            g[v] = alpha / std::sqrt(v + 1.0);
            if (g[v] > MaxGain) g[v] = MaxGain;
        }
    }
    for (int32_t y = 0; y < Height; ++y) {
        const size_t row = size_t(y) * Stride;
        for (int32_t i = 0; i < Width * channels; ++i) {
            const size_t p = row + i;
            const int32_t m = Dest[p];
            const double g = gain[(i % channels) * 65536 + std::min<uint32_t>(variance[p], 65535)];
            Dest[p] = TruncClampByte((Src[p] - m) * g + m);
        }
    }
}

void AdaptiveGammaCorrection(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                             double Alpha, uint8_t UseHsv) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride)) return;
    if (BytesPerPixel(Width, Stride) == 1) {
        AdaptiveGammaPlane(Src, Dest, Width, Height, Stride, Alpha);
        return;
    }
    // Colour layouts are walked three bytes per pixel.
    if (!ThreeBytesFit(Width, Stride)) return;
    if (UseHsv == 0) {
        FilterColourPlanes(Src, Dest, Width, Height, Stride, [&](int32_t, const uint8_t* in, uint8_t* out) {
            AdaptiveGammaPlane(in, out, Width, Height, Width, Alpha);
        });
        return;
    }
    FilterHsvValue(Src, Dest, Width, Height, Stride,
                   [&](uint8_t* value) { AdaptiveGammaPlane(value, value, Width, Height, Width, Alpha); });
}

}  // namespace velomar

VL_API void VL_CALL LeeContrastEnhancement(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                           int32_t Height, int32_t Stride, int32_t Radius, int32_t Amount,
                                           int32_t InputLow, int32_t InputHigh) {
    velomar::Guarded([&] {
        velomar::LeeContrastEnhancement(Src, Dest, Width, Height, Stride, Radius, Amount, InputLow, InputHigh);
    });
}

VL_API void VL_CALL DetailEnhanceByEdgePreseveingFilter(const unsigned char* Src, unsigned char* Dest,
                                                        int32_t Width, int32_t Height, int32_t Stride,
                                                        int32_t Radius, int32_t Amount) {
    velomar::Guarded(
        [&] { velomar::DetailEnhanceByEdgePreseveingFilter(Src, Dest, Width, Height, Stride, Radius, Amount); });
}

VL_API void VL_CALL LSDContrastEnhancement(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                           int32_t Height, int32_t Stride, int32_t Radius, int32_t Amount,
                                           int32_t MaxGain) {
    velomar::Guarded(
        [&] { velomar::LSDContrastEnhancement(Src, Dest, Width, Height, Stride, Radius, Amount, MaxGain); });
}

VL_API void VL_CALL AdaptiveGammaCorrection(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                            int32_t Height, int32_t Stride, double Alpha, unsigned char UseHsv) {
    velomar::Guarded([&] { velomar::AdaptiveGammaCorrection(Src, Dest, Width, Height, Stride, Alpha, UseHsv); });
}
