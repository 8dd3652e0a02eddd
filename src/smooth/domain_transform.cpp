// Recursive domain-transform filter: first-order recursions along rows and
// columns whose feedback a^d shrinks where the guide has edges (d grows with
// the guide's local differences), iterated with a shrinking spatial scale.
// Working values are single precision, one plane per channel.
#include <emmintrin.h>

#include <cmath>

#include "smooth/smooth.h"

namespace velomar {

namespace {

constexpr float kToUnit = 0.003921569f;  // the single-precision 1/255
constexpr int32_t kPowBias = 1072632447;  // the fast power's bias

// 2^k by repeated squaring (exact, or +infinity when too large).
double PowerBySquaring(double base, int32_t k) {
    double result = 1.0;
    for (; k > 0; k >>= 1) {
        if (k & 1) result *= base;
        base *= base;
    }
    return result;
}

// a^d by the fast power on the high word of a double: the high word of the
// result is trunc(d * (hi(a) - bias) + bias) in single precision (d is a
// float), the low word is zero. Truncation follows the x86 conversion.
struct FastPower {
    float factor;  // hi(a) - bias, as the float the product takes
    explicit FastPower(float a) {
        const double ad = a;
        uint64_t bits;
        std::memcpy(&bits, &ad, 8);
        factor = static_cast<float>(static_cast<int32_t>(bits >> 32) - kPowBias);
    }
    float operator()(float d) const {
        const int32_t hi = TruncToInt(d * factor + static_cast<float>(kPowBias));
        const uint64_t bits = uint64_t(uint32_t(hi)) << 32;
        double w;
        std::memcpy(&w, &bits, 8);
        return static_cast<float>(w);
    }
    // Four weights at once, the same operations lane by lane.
    __m128 Four(__m128 d) const {
        const __m128i hi = _mm_cvttps_epi32(_mm_add_ps(_mm_mul_ps(d, _mm_set1_ps(factor)),
                                                       _mm_set1_ps(static_cast<float>(kPowBias))));
        // (hi << 32) as two doubles per half, then rounded to float.
        const __m128i lo2 = _mm_unpacklo_epi32(_mm_setzero_si128(), hi);
        const __m128i hi2 = _mm_unpackhi_epi32(_mm_setzero_si128(), hi);
        return _mm_movelh_ps(_mm_cvtpd_ps(_mm_castsi128_pd(lo2)), _mm_cvtpd_ps(_mm_castsi128_pd(hi2)));
    }
};

// The weights of a whole plane of derivatives.
void Weights(const float* d, size_t n, const FastPower& power, float* w) {
    size_t i = 0;
    for (; i + 4 <= n; i += 4) _mm_storeu_ps(w + i, power.Four(_mm_loadu_ps(d + i)));
    for (; i < n; ++i) w[i] = power(d[i]);
}

// Causal then anti-causal sweep of one row of C channel planes.
template <int C>
void Sweep(float* const* p, const float* w, int32_t width) {
    for (int32_t x = 1; x < width; ++x)
        for (int c = 0; c < C; ++c) p[c][x] = p[c][x] + w[x] * (p[c][x - 1] - p[c][x]);
    for (int32_t x = width - 2; x >= 0; --x)
        for (int c = 0; c < C; ++c) p[c][x] = p[c][x] + w[x + 1] * (p[c][x + 1] - p[c][x]);
}

struct Planes {
    int32_t width, height, channels;
    size_t n;                 // values per plane
    Buffer<float> j;          // channels planes of width * height
    Buffer<float> dx, dy, w;  // derivatives and the weights of a pass

    Planes(int32_t Width, int32_t Height, int32_t Channels)
        : width(Width), height(Height), channels(Channels), n(size_t(Width) * size_t(Height)),
          j(n * size_t(Channels)), dx(n), dy(n), w(n) {}

    void Load(const uint8_t* Src, int32_t Stride) {
        for (int32_t y = 0; y < height; ++y)
            for (int32_t x = 0; x < width; ++x)
                for (int32_t c = 0; c < channels; ++c)
                    j[size_t(c) * n + size_t(y) * width + x] =
                        static_cast<float>(Src[size_t(y) * Stride + size_t(x) * channels + c]) * kToUnit;
    }

    // 1 + r * (sum over channels of |difference with the previous value|),
    // the first column (or row) having difference 0.
    void Derivatives(float r) {
        for (int32_t y = 0; y < height; ++y)
            for (int32_t x = 0; x < width; ++x) {
                const size_t i = size_t(y) * width + x;
                float sx = 0.0f, sy = 0.0f;
                for (int32_t c = 0; c < channels; ++c) {
                    const float* p = j.data() + size_t(c) * n;
                    sx = c == 0 ? (x > 0 ? std::fabs(p[i] - p[i - 1]) : 0.0f)
                                : sx + (x > 0 ? std::fabs(p[i] - p[i - 1]) : 0.0f);
                    sy = c == 0 ? (y > 0 ? std::fabs(p[i] - p[i - width]) : 0.0f)
                                : sy + (y > 0 ? std::fabs(p[i] - p[i - width]) : 0.0f);
                }
                dx[i] = 1.0f + r * sx;
                dy[i] = 1.0f + r * sy;
            }
    }

    // Causal then anti-causal sweep along every row, the channels side by side.
    void Horizontal(const FastPower& power) {
        Weights(dx.data(), n, power, w.data());
        // The channels' recursions are independent: running them side by
        // side overlaps their latencies.
        for (int32_t y = 0; y < height; ++y) {
            const float* wr = w.data() + size_t(y) * width;
            float* p[3];
            for (int32_t c = 0; c < channels; ++c) p[c] = j.data() + size_t(c) * n + size_t(y) * width;
            if (channels == 1) {
                Sweep<1>(p, wr, width);
            } else {
                Sweep<3>(p, wr, width);
            }
        }
    }

    // The same along every column, four columns per vector.
    void Vertical(const FastPower& power) {
        Weights(dy.data(), n, power, w.data());
        for (int32_t c = 0; c < channels; ++c) {
            float* p = j.data() + size_t(c) * n;
            auto step = [&](int32_t y, int32_t from, const float* wy) {
                float* row = p + size_t(y) * width;
                const float* prev = p + size_t(from) * width;
                int32_t x = 0;
                for (; x + 4 <= width; x += 4) {
                    const __m128 v = _mm_loadu_ps(row + x);
                    const __m128 t = _mm_mul_ps(_mm_loadu_ps(wy + x), _mm_sub_ps(_mm_loadu_ps(prev + x), v));
                    _mm_storeu_ps(row + x, _mm_add_ps(v, t));
                }
                for (; x < width; ++x) row[x] = row[x] + wy[x] * (prev[x] - row[x]);
            };
            for (int32_t y = 1; y < height; ++y) step(y, y - 1, w.data() + size_t(y) * width);
            for (int32_t y = height - 2; y >= 0; --y) step(y, y + 1, w.data() + size_t(y + 1) * width);
        }
    }

    void Store(uint8_t* Dest, int32_t Stride) const {
        for (int32_t y = 0; y < height; ++y)
            for (int32_t x = 0; x < width; ++x)
                for (int32_t c = 0; c < channels; ++c)
                    Dest[size_t(y) * Stride + size_t(x) * channels + c] =
                        TruncClampByte(double(j[size_t(c) * n + size_t(y) * width + x]) * 255.0);
    }
};

}  // namespace

void RecursiveDomainTransformFilter(const uint8_t* Src, const uint8_t* Guide, uint8_t* Dest, int32_t Width,
                                    int32_t Height, int32_t Stride, double SigmaS, double SigmaR,
                                    int32_t Iterations) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride) || !Guide) return;
    // Grey, or three bytes per pixel for every other layout.
    const int32_t channels = BytesPerPixel(Width, Stride) == 1 ? 1 : 3;
    if (channels == 3 && !ThreeBytesFit(Width, Stride)) return;
    Planes planes(Width, Height, channels);
    const float r = static_cast<float>(SigmaS / (SigmaR / 255.0));
    planes.Load(Guide, Stride);
    planes.Derivatives(r);
    if (Src != Guide) planes.Load(Src, Stride);
    const double norm = std::sqrt(PowerBySquaring(4.0, Iterations) - 1);
    for (int32_t i = 0; i < Iterations; ++i) {
        const double sigma = SigmaS * std::sqrt(3.0) * PowerBySquaring(2.0, Iterations - i - 1) / norm;
        const FastPower power(static_cast<float>(std::exp(-std::sqrt(2.0) / sigma)));
        planes.Horizontal(power);
        planes.Vertical(power);
    }
    planes.Store(Dest, Stride);
}

}  // namespace velomar

VL_API void VL_CALL RecursiveDomainTransformFilter(const unsigned char* Src, const unsigned char* Guide,
                                                   unsigned char* Dest, int32_t Width, int32_t Height,
                                                   int32_t Stride, double SigmaS, double SigmaR,
                                                   int32_t Iterations) {
    velomar::Guarded([&] {
        velomar::RecursiveDomainTransformFilter(Src, Guide, Dest, Width, Height, Stride, SigmaS, SigmaR, Iterations);
    });
}
