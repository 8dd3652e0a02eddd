// Multi-scale Retinex: the logarithm of each value minus that of its
// Gaussian-blurred surround, averaged over several scales and stretched back
// to bytes by the result's mean and deviation.
#include <cmath>

#include "blur/blur.h"
#include "enhance/enhance.h"

namespace velomar {

namespace {

// The surround scales: Sigma alone, half and whole Sigma, or NScales steps of
// Sigma / NScales from 2.
Buffer<double> RetinexScales(int32_t NScales, double Sigma) {
    Buffer<double> scales{size_t(NScales)};
    if (NScales == 1) {
        scales[0] = Sigma;
    } else if (NScales == 2) {
        scales[0] = 0.5 * Sigma;
        scales[1] = Sigma;
    } else {
        for (int32_t i = 0; i < NScales; ++i) scales[i] = 2.0 + i * (Sigma / NScales);
    }
    return scales;
}

// Blurs Src at scales[0 .. count - 1] into consecutive planes of n bytes. The
// blur does not write row padding: each plane starts as a copy of the source
// there, so padding positions add nothing (they are not pixels).
void BlurScales(const uint8_t* Src, int32_t Width, int32_t Height, int32_t Stride, const double* scales,
                int32_t count, uint8_t* planes) {
    const size_t n = ImageBytes(Height, Stride);
    const size_t used = size_t(BytesPerPixel(Width, Stride) == 1 ? 1 : 3) * Width;
    for (int32_t k = 0; k < count; ++k) {
        uint8_t* plane = planes + size_t(k) * n;
        if (used < size_t(Stride))  // only the padding needs it: the blur writes every pixel
            for (int32_t y = 0; y < Height; ++y)
                std::memcpy(plane + size_t(y) * Stride + used, Src + size_t(y) * Stride + used, Stride - used);
        GuassBlur(Src, plane, Width, Height, Stride, scales[k]);
    }
}

// The Retinex terms (ln(s + 1) - ln(b + 1)) * weight of a position over up to
// kMaxScales blurred planes, added scale by scale; operator() gives the value
// of a position whose scales are all here, computed when it is asked for.
// Reading and writing only position i, it may write into Src.
class RetinexValues {
public:
    static constexpr int32_t kMaxScales = 8;
    RetinexValues(const uint8_t* Src, const uint8_t* planes, int32_t count, size_t n, double weight)
        : src_(Src), count_(count), weight_(weight) {
        for (int32_t k = 0; k < count; ++k) blur_[k] = planes + size_t(k) * n;
        for (int v = 0; v < 256; ++v) logs_[v] = std::log(v + 1.0);
    }
    double Add(double a, size_t i) const {
        const double ls = logs_[src_[i]];
        for (int32_t k = 0; k < count_; ++k) a += (ls - logs_[blur_[k][i]]) * weight_;
        return a;
    }
    // The values of positions start .. start + count - 1 into out.
    void Row(size_t start, size_t count, double* out) const {
        for (size_t i = 0; i < count; ++i) out[i] = Add(0.0, start + i);
    }

private:
    const uint8_t* src_;
    const uint8_t* blur_[kMaxScales];
    int32_t count_;
    double weight_;
    double logs_[256];
};

// StretchByDeviation over rows of values: row(y) gives the values of the
// Width * channels pixel positions of row y.
template <class Rows>
void Stretch(const Rows& row, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride, double Dynamic) {
    const int32_t channels = BytesPerPixel(Width, Stride) == 1 ? 1 : 3;
    const double count = double(Width) * double(Height);
    // The channels are walked side by side, each summing its own values in
    // pixel order.
    auto each = [&](auto&& f) {
        for (int32_t y = 0; y < Height; ++y) {
            const double* v = row(y);
            uint8_t* d = Dest + size_t(y) * Stride;
            for (int32_t x = 0; x < Width; ++x)
                for (int32_t c = 0; c < channels; ++c) f(c, v[size_t(x) * channels + c], d[size_t(x) * channels + c]);
        }
    };
    double sum[3] = {0, 0, 0}, squares[3] = {0, 0, 0}, mean[3], min[3], gain[3];
    each([&](int32_t c, double v, uint8_t&) { sum[c] += v; });
    for (int32_t c = 0; c < channels; ++c) mean[c] = sum[c] / count;
    each([&](int32_t c, double v, uint8_t&) { squares[c] += (v - mean[c]) * (v - mean[c]); });
    for (int32_t c = 0; c < channels; ++c) {
        const double deviation = std::sqrt(squares[c] / count);
        min[c] = mean[c] - Dynamic * deviation;
        const double max = mean[c] + Dynamic * deviation;
        double range = max - min[c];
        if (range == 0) range = 1.0;
        gain[c] = 255 / range;
    }
    each([&](int32_t c, double v, uint8_t& d) { d = TruncClampByte((v - min[c]) * gain[c]); });
}

// Retinex of Src stretched into Dest. Up to kMaxScales scales keep their
// blurred bytes and compute each value when it is needed (three times, but
// from a quarter of the memory a plane of doubles takes); more scales go
// through the plane of doubles.
void RetinexStretched(int32_t NScales, const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                      int32_t Stride, double Sigma, double Dynamic) {
    const size_t n = ImageBytes(Height, Stride);
    if (NScales <= RetinexValues::kMaxScales) {
        const Buffer<double> scales = RetinexScales(NScales, Sigma);
        Buffer<uint8_t> planes(n * size_t(NScales));
        BlurScales(Src, Width, Height, Stride, scales.data(), NScales, planes.data());
        const RetinexValues values(Src, planes.data(), NScales, n, 1.0 / NScales);
        const size_t used = size_t(BytesPerPixel(Width, Stride) == 1 ? 1 : 3) * Width;
        Buffer<double> rowValues(used);
        Stretch(
            [&](int32_t y) {
                values.Row(size_t(y) * Stride, used, rowValues.data());
                return rowValues.data();
            },
            Dest, Width, Height, Stride, Dynamic);
        return;
    }
    Buffer<double> acc(n);
    MultiScaleRetinex(NScales, Src, acc.data(), Width, Height, Stride, Sigma);
    StretchByDeviation(acc.data(), Dest, Width, Height, Stride, Dynamic);
}

}  // namespace

void MultiScaleRetinex(int32_t NScales, const uint8_t* Src, double* Out, int32_t Width, int32_t Height,
                       int32_t Stride, double Sigma) {
    const Buffer<double> scales = RetinexScales(NScales, Sigma);
    const size_t n = ImageBytes(Height, Stride);
    // A few scales at a time are blurred, then added in one pass, each
    // position still summing its terms scale by scale.
    constexpr int32_t kBatch = RetinexValues::kMaxScales;
    Buffer<uint8_t> planes(n * size_t(std::min(NScales, kBatch)));
    for (int32_t k0 = 0; k0 < NScales; k0 += kBatch) {
        const int32_t count = std::min(kBatch, NScales - k0);
        BlurScales(Src, Width, Height, Stride, scales.data() + k0, count, planes.data());
        const RetinexValues batch(Src, planes.data(), count, n, 1.0 / NScales);
        for (size_t i = 0; i < n; ++i) Out[i] = batch.Add(k0 == 0 ? 0.0 : Out[i], i);
    }
}

void StretchByDeviation(const double* In, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                        double Dynamic) {
    Stretch([=](int32_t y) { return In + size_t(y) * Stride; }, Dest, Width, Height, Stride, Dynamic);
}

void MSRCRGIMP(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride, double Sigma,
               int32_t NScales, double Dynamic) {
    // No scale gives no weight (it would divide by zero): nothing is written.
    if (!RawArgsValid(Src, Dest, Width, Height, Stride) || NScales <= 0) return;
    // Layouts other than grey are walked three bytes per pixel.
    if (BytesPerPixel(Width, Stride) != 1 && !ThreeBytesFit(Width, Stride)) return;
    RetinexStretched(NScales, Src, Dest, Width, Height, Stride, Sigma, Dynamic);
}

void MSRHSV(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride, double Sigma,
            int32_t NScales, double Dynamic) {
    // Pixels are three bytes; rows that cannot hold them write nothing.
    if (!RawArgsValid(Src, Dest, Width, Height, Stride) || NScales <= 0 || !ThreeBytesFit(Width, Stride)) return;
    FilterHsvValue(Src, Dest, Width, Height, Stride, [&](uint8_t* value) {
        RetinexStretched(NScales, value, value, Width, Height, Width, Sigma, Dynamic);
    });
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
