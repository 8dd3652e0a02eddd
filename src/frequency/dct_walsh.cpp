// The orthonormal DCT (through one FFT of the same length) and the
// Walsh-Hadamard transform, with their coefficient pictures.
#include <algorithm>
#include <cmath>

#include "frequency/frequency.h"

namespace velomar {

namespace {

constexpr double kPi = 3.14159265358979323846;

// The factors of a DCT of length n: for every k the float angle
// a(k) = k * q with q = pi / (2n) in float, its sine and cosine rounded to
// float; g = 2 / sqrt(2n) and s = sqrt(2n), both rounded to float.
struct DctFactors {
    int32_t n = 0;
    Buffer<float> cosine, sine;
    float g = 0, s = 0;

    explicit DctFactors(int32_t length) : n(length), cosine(size_t(length)), sine(size_t(length)) {
        const float q = static_cast<float>(kPi / (2.0 * double(n)));
        for (int32_t k = 0; k < n; ++k) {
            const float a = static_cast<float>(k) * q;
            cosine[k] = static_cast<float>(std::cos(double(a)));
            sine[k] = static_cast<float>(std::sin(double(a)));
        }
        g = static_cast<float>(2.0 / std::sqrt(2.0 * double(n)));
        s = static_cast<float>(std::sqrt(2.0 * double(n)));
    }
};

// DCT1D with its factors computed ahead; R is scratch of n floats.
void DctWithFactors(float* x, const DctFactors& f, int32_t Direction, float* R) {
    const int32_t n = f.n;
    if (static_cast<uint8_t>(Direction) == 0) {
        std::copy_n(x, n, R);
        // Even elements forward, odd elements backward.
        for (int32_t i = 0; i < n / 2; ++i) x[i] = R[2 * i];
        for (int32_t j = 0; j < n - n / 2; ++j) x[n / 2 + j] = R[n - 1 - 2 * j];
        std::fill_n(R, n, 0.0f);
        FFT1D(n, x, R, 0);  // the data as the imaginary part, unscaled
        x[0] = x[0] / std::sqrt(static_cast<float>(n));
        for (int32_t k = 1; k < n; ++k) {
            const float v = f.cosine[k] * x[k] + f.sine[k] * R[k];
            x[k] = v * f.g;
        }
        return;
    }
    x[0] = static_cast<float>(double(x[0]) * double(f.s) / std::sqrt(2.0));
    R[0] = 0.0f;  // never read into x; zero keeps the scratch defined
    for (int32_t k = 1; k < n; ++k) {
        R[k] = f.sine[k] * x[k] * f.s;
        x[k] = f.cosine[k] * x[k] * f.s;
    }
    FFT1D(n, x, R, Direction);
    std::copy_n(x, n, R);
    // Back to natural order; a length of 1 writes element 0 only.
    for (int32_t i = 0; 2 * i < n; ++i) x[2 * i] = R[i];
    for (int32_t i = 0; 2 * i + 1 < n; ++i) x[2 * i + 1] = R[n - 1 - i];
}

// Walsh transform of one sequence with its stage count m, 1 / n and the
// dyadic reordering computed ahead; P and Q are scratch of n floats.
struct WalshFactors {
    int32_t n = 0, m = 0;
    float s = 0;
    Buffer<int32_t> rev;

    explicit WalshFactors(int32_t length) : n(length), rev(size_t(length)) {
        m = TruncToInt(std::log(double(n)) / std::log(2.0));
        s = static_cast<float>(1.0 / double(n));
        for (int32_t k = 0; k < n; ++k) {
            int32_t r = 0;
            for (int32_t b = 0; b < m; ++b) r |= ((k >> b) & 1) << (m - 1 - b);
            rev[k] = r;
        }
    }
};

void WalshWithFactors(float* x, const WalshFactors& f, float* P, float* Q) {
    const int32_t n = f.n;
    std::copy_n(x, n, P);
    // Widest butterflies first, ping-ponging between P and Q.
    for (int32_t t = 0; t < f.m; ++t) {
        const int32_t half = int32_t(1) << (f.m - 1 - t), groups = int32_t(1) << t;
        for (int32_t g = 0; g < groups; ++g) {
            const int32_t b = g * 2 * half;
            for (int32_t i = 0; i < half; ++i) {
                Q[b + i] = P[b + i] + P[b + half + i];
                Q[b + half + i] = P[b + i] - P[b + half + i];
            }
        }
        std::swap(P, Q);
    }
    for (int32_t k = 0; k < n; ++k) x[k] = P[f.rev[k]] * f.s;
}

// Runs `transform(column)` on every column of a Width x Height plane through
// a contiguous scratch column.
template <class Transform>
void EachColumn(float* Data, int32_t Width, int32_t Height, Transform transform) {
    Buffer<float> column{size_t(Height)};
    for (int32_t x = 0; x < Width; ++x) {
        for (int32_t y = 0; y < Height; ++y) column[y] = Data[size_t(y) * Width + x];
        transform(column.data());
        for (int32_t y = 0; y < Height; ++y) Data[size_t(y) * Width + x] = column[y];
    }
}

// The coefficient picture shared by ShowDCT and ShowWALSH: |coefficient|
// times Gain in double, truncated and clamped.
template <class Transform>
void ShowCoefficients(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                      double Gain, Transform transform) {
    SpectrumLayout layout;
    if (!MakeSpectrumLayout(Src, Dest, Width, Height, Stride, layout)) return;
    Buffer<float> planes[3];
    LoadSpectrumPlanes(layout, Src, planes);
    for (int32_t c = 0; c < layout.channels; ++c) {
        float* plane = planes[c].data();
        transform(layout.paddedWidth, layout.paddedHeight, plane);
        StoreSpectrumPlane(layout, Dest, c, [&](size_t k) {
            return TruncClampByte(double(std::fabs(plane[k])) * Gain);
        });
    }
}

}  // namespace

void DCT1D(float* Data, int32_t Length, int32_t Direction) {
    if (Length < 1) return;
    const DctFactors f(Length);
    Buffer<float> R{size_t(Length)};
    DctWithFactors(Data, f, Direction, R.data());
}

void DCT2D(int32_t Width, int32_t Height, float* Data, int32_t Direction) {
    if (Width < 1 || Height < 1) return;
    {
        const DctFactors f(Width);
        Buffer<float> R{size_t(Width)};
        for (int32_t y = 0; y < Height; ++y) DctWithFactors(Data + size_t(y) * Width, f, Direction, R.data());
    }
    const DctFactors f(Height);
    Buffer<float> R{size_t(Height)};
    EachColumn(Data, Width, Height, [&](float* column) { DctWithFactors(column, f, Direction, R.data()); });
}

void WalshTransform1D(int32_t Length, float* Data) {
    if (Length < 1) return;
    const WalshFactors f(Length);
    Buffer<float> P{size_t(Length)}, Q{size_t(Length)};
    WalshWithFactors(Data, f, P.data(), Q.data());
}

void WalshTransform2D(int32_t Width, int32_t Height, float* Data) {
    if (Width < 1 || Height < 1) return;
    {
        const WalshFactors f(Width);
        Buffer<float> P{size_t(Width)}, Q{size_t(Width)};
        for (int32_t y = 0; y < Height; ++y) WalshWithFactors(Data + size_t(y) * Width, f, P.data(), Q.data());
    }
    const WalshFactors f(Height);
    Buffer<float> P{size_t(Height)}, Q{size_t(Height)};
    EachColumn(Data, Width, Height, [&](float* column) { WalshWithFactors(column, f, P.data(), Q.data()); });
}

void ShowDCT(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
             int32_t Direction) {
    ShowCoefficients(Src, Dest, Width, Height, Stride, 10.0,
                     [Direction](int32_t w, int32_t h, float* plane) { DCT2D(w, h, plane, Direction); });
}

void ShowWALSH(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride) {
    ShowCoefficients(Src, Dest, Width, Height, Stride, 2000.0,
                     [](int32_t w, int32_t h, float* plane) { WalshTransform2D(w, h, plane); });
}

}  // namespace velomar

VL_API void VL_CALL ShowDCT(const unsigned char* Src, unsigned char* Dest, int32_t Width, int32_t Height,
                            int32_t Stride, int32_t Direction) {
    velomar::Guarded([&] { velomar::ShowDCT(Src, Dest, Width, Height, Stride, Direction); });
}

VL_API void VL_CALL ShowWALSH(const unsigned char* Src, unsigned char* Dest, int32_t Width, int32_t Height,
                              int32_t Stride) {
    velomar::Guarded([&] { velomar::ShowWALSH(Src, Dest, Width, Height, Stride); });
}
