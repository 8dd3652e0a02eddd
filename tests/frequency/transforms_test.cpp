// The transforms against direct sums in double, and the coefficient and
// spectrum pictures against their one-sequence forms applied line by line.
#include <array>
#include <cmath>
#include <complex>

#include "common/suite.h"
#include "frequency/support.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

using velomar::FFT1D;

// X[k] = sum x[m] e^(-+2 pi i mk/n), scaled by 1/n for a forward Direction.
std::vector<std::complex<double>> DirectDft(const std::vector<float>& re, const std::vector<float>& im, int dir) {
    const size_t n = re.size();
    const bool forward = uint8_t(dir) == 1;
    std::vector<std::complex<double>> out(n);
    for (size_t k = 0; k < n; ++k) {
        std::complex<double> s = 0;
        for (size_t m = 0; m < n; ++m)
            s += std::complex<double>(re[m], im[m]) *
                 std::polar(1.0, (forward ? -2.0 : 2.0) * kPi * double(m * k % n) / double(n));
        out[k] = forward ? s / double(n) : s;
    }
    return out;
}

// The DCT with orthonormal scaling, the Walsh-Hadamard transform in dyadic
// order (coefficient k pairs with the bit-reversed Hadamard row, sign
// (-1)^popcount(m & rev(k)), divided by n) and the FFT against the direct DFT,
// within float rounding. A sentinel past the sequence stays.
TEST(Transforms1D, MatchTheDirectSumsAndTheDctRoundTrips) {
    for (int n : {1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1024}) {
        for (int dir : {0, 1, 2, 257}) {
            std::vector<float> re = ftest::RandomFloats(n, -255, 255), im = ftest::RandomFloats(n, -255, 255);
            const auto expected = DirectDft(re, im, dir);
            double tolerance = 0;
            for (int m = 0; m < n; ++m) tolerance += std::abs(re[m]) + std::abs(im[m]);
            // The half-angle recurrence loses precision as the angles shrink
            // (1 - c1 cancels), so long transforms drift further.
            tolerance *= (n >= 1024 ? 5e-5 : 2e-6) / (uint8_t(dir) == 1 ? n : 1);
            FFT1D(n, im.data(), re.data(), dir);
            for (int k = 0; k < n; ++k) {
                ASSERT_NEAR(re[k], expected[k].real(), tolerance) << "FFT n " << n << " dir " << dir << " k " << k;
                ASSERT_NEAR(im[k], expected[k].imag(), tolerance) << "FFT n " << n << " dir " << dir << " k " << k;
            }
        }
        if (n > 512) continue;  // the DCT round trip drifts beyond 1e-2 there
        std::vector<float> x = ftest::RandomFloats(n + 1, -255, 255), dct = x, walsh = x;
        double norm = 0;
        for (int m = 0; m < n; ++m) norm += std::abs(x[m]);
        velomar::DCT1D(dct.data(), n, 256);  // the low byte, 0: forward
        velomar::WalshTransform1D(n, walsh.data());
        const int bits = int(std::log2(n));
        for (int k = 0; k < n; ++k) {
            int rev = 0;
            for (int b = 0; b < bits; ++b) rev |= ((k >> b) & 1) << (bits - 1 - b);
            double c = 0, s = 0;
            for (int m = 0; m < n; ++m) c += x[m] * std::cos(kPi * double((2 * m + 1) * k) / double(2 * n));
            for (int m = 0; m < n; ++m) s += __builtin_popcount(unsigned(m & rev)) % 2 ? -x[m] : x[m];
            ASSERT_NEAR(dct[k], c * std::sqrt((k ? 2.0 : 1.0) / n), 1e-5 * norm) << "DCT n " << n << " k " << k;
            ASSERT_NEAR(walsh[k], s / n, 1e-6 * norm) << "Walsh n " << n << " k " << k;
        }
        velomar::DCT1D(dct.data(), n, 1);
        // Exact at length one (sqrt(2) / sqrt(2)) and past the end.
        for (int k = 0; k <= n; ++k) ASSERT_NEAR(dct[k], x[k], k < n && n > 1 ? 1e-2 : 0) << "round trip, n " << n << " k " << k;
        ASSERT_EQ(walsh[n], x[n]);
    }
}

// Uniform images: only the first coefficient is non-zero, at the top-left:
// DCT trunc(10 g sqrt(W H)), Walsh 2000 g, clamped; nothing else is written.
TEST(CoefficientPictures, UniformImagesShowTheirFirstCoefficient) {
    for (auto [w, h, g, walsh, corner] : {std::array{4, 4, 5, 0, 200}, {16, 4, 3, 0, 240}, {16, 16, 2, 0, 255},
                                          {8, 8, 0, 1, 0}, {8, 4, 1, 1, 255}}) {
        vtest::Image src(w, h, 1, 0, uint8_t(g)), dst(w, h, 1, 0, 77), expected(w, h, 1);
        walsh ? ShowWALSH(src.data(), dst.data(), w, h, w) : ShowDCT(src.data(), dst.data(), w, h, w, 0);
        expected.bytes[0] = uint8_t(corner);
        EXPECT_TRUE(vtest::BytesEqual(expected.bytes, dst.bytes)) << w << "x" << h << " g " << g;
    }
}

// The spectrum (kind 0) and coefficient (1 DCT, 2 Walsh) pictures built step
// by step: each channel in a plane padded with zeros, transformed a line at a
// time with the one-sequence transforms (the plane transforms take many lines
// at once, and the FFT skips blocks of zero rows, but must agree to the bit),
// output read from the centred area, the spectrum's plane shifted.
std::vector<uint8_t> PictureOf(const vtest::Image& src, std::vector<uint8_t> dest, int kind, uint8_t copy, int dir) {
    const int w = src.width, h = src.height, pw = int(velomar::PaddedLength(w)), ph = int(velomar::PaddedLength(h));
    const float gain = uint8_t(dir) == 0 ? 0.003921569f : 255.0f;
    const bool moves = kind == 0 && pw > 1 && ph > 1;  // a plane one element wide or high does not move at all
    return vtest::EachPlane(src, dest, src.stride / w == 1 ? 1 : 3, [&](const vtest::Image& p, vtest::Image out, int) {
        std::vector<float> im(size_t(pw) * ph, 0.0f), re(im.size(), 0.0f);
        vtest::EachSample(p, 1, [&](int x, int y, int, size_t i) { im[size_t(y) * pw + x] = p.bytes[i]; });
        if (copy == 1) re = im;
        // The transform of (imaginary line, real line, length) on every row of
        // the two planes, then on every column.
        auto transform = [&](float* i, float* r, int n) {
            kind == 0 ? FFT1D(n, i, r, dir) : kind == 1 ? velomar::DCT1D(i, n, dir) : velomar::WalshTransform1D(n, i);
        };
        for (int y = 0; y < ph; ++y) transform(im.data() + size_t(y) * pw, re.data() + size_t(y) * pw, pw);
        std::vector<float> ci(ph), cr(ph);
        for (int x = 0; x < pw; ++x) {
            for (int y = 0; y < ph; ++y) ci[y] = im[size_t(y) * pw + x], cr[y] = re[size_t(y) * pw + x];
            transform(ci.data(), cr.data(), ph);
            for (int y = 0; y < ph; ++y) im[size_t(y) * pw + x] = ci[y], re[size_t(y) * pw + x] = cr[y];
        }
        // Output (x, y) reads position (ox + x, oy + y) of the (shifted) plane.
        vtest::EachSample(out, 1, [&](int x, int y, int, size_t i) {
            const int sy = ((ph - h) / 2 + y + (moves ? ph / 2 : 0)) % ph, sx = ((pw - w) / 2 + x + (moves ? pw / 2 : 0)) % pw;
            const size_t k = size_t(sy) * pw + sx;
            out.bytes[i] = kind == 0 ? vtest::TruncClamp((std::fabs(im[k]) + std::fabs(re[k])) * gain)
                                     : vtest::TruncClamp(double(std::fabs(im[k])) * (kind == 1 ? 10.0 : 2000.0));
        });
        return out;
    });
}

// Only the low byte of Direction counts: 256 is the FFT's inverse, unscaled,
// and the DCT's forward transform.
TEST(SpectrumPictures, MatchTheStepByStepPictures) {
    struct Case { int w, h, bytes, padding; };
    const Case cases[] = {{1, 1, 1, 0}, {1, 7, 1, 3}, {9, 1, 3, 0}, {16, 8, 1, 0}, {13, 11, 3, 2},
                          {6, 5, 4, 1}, {33, 17, 1, 5}, {20, 40, 3, 0}};
    for (const Case& t : cases)
        for (int kind = 0; kind < 3; ++kind)
            for (int dir : {256, 1, 2})
                for (uint8_t copy : {0, 1, 2}) {
                    if ((kind && copy) || (kind == 2 && dir != 1)) continue;  // copies: the FFT's; Walsh: no direction
                    vtest::Image src = vtest::RandomImage(t.w, t.h, t.bytes, t.padding);
                    for (int y = 0; y < t.h; ++y)  // black rows, some starting a block the FFT skips
                        if (vtest::RandomInt(0, 3) == 0) std::fill_n(&src.at(0, y), t.w * t.bytes, uint8_t(0));
                    auto show = [&](const uint8_t* s, uint8_t* d, int w, int h, int stride) {
                        kind == 0 ? ShowFFT(s, d, w, h, stride, copy, dir)
                        : kind == 1 ? ShowDCT(s, d, w, h, stride, dir) : ShowWALSH(s, d, w, h, stride);
                    };
                    auto model = [&](auto d) { return PictureOf(src, d, kind, copy, dir); };
                    EXPECT_TRUE(vtest::FilterMatches(src, show, model))
                        << " kind " << kind << " dir " << dir << " copy " << int(copy);
                }
}

// A null image, no pixels, a short stride and two bytes per pixel.
TEST(SpectrumPictures, CallsOutsideTheContractWriteNothing) {
    const vtest::Image src = vtest::RandomImage(8, 6, 3, 0);
    const uint8_t *in = src.data(), *no = nullptr;
    for (auto [s, w, stride] : {std::tuple{no, 8, 24}, {in, 0, 24}, {in, 8, 7}, {in, 8, 16}})
        EXPECT_TRUE(vtest::WritesNothing(vtest::DestFor(src), {[&](uint8_t* d) { ShowFFT(s, d, w, 6, stride, 1, 1); },
                                                               [&](uint8_t* d) { ShowDCT(s, d, w, 6, stride, 0); },
                                                               [&](uint8_t* d) { ShowWALSH(s, d, w, 6, stride); }}));
}

}  // namespace
