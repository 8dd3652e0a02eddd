// DCT and Walsh transforms against their direct sums in double, round trips,
// and the coefficient pictures.
#include <cmath>

#include "frequency/support.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

std::vector<double> DirectDct(const std::vector<float>& x) {
    const size_t n = x.size();
    std::vector<double> out(n);
    for (size_t k = 0; k < n; ++k) {
        double s = 0;
        for (size_t m = 0; m < n; ++m) s += x[m] * std::cos(kPi * double((2 * m + 1) * k) / double(2 * n));
        out[k] = s * (k == 0 ? std::sqrt(1.0 / n) : std::sqrt(2.0 / n));
    }
    return out;
}

double Norm(const std::vector<float>& x) {
    double s = 0;
    for (float f : x) s += std::abs(f);
    return s;
}

TEST(DCT1D, ForwardMatchesTheDirectSumAndInverseRestores) {
    for (int n : {1, 2, 4, 8, 16, 64, 512}) {
        std::vector<float> x = ftest::RandomFloats(n, 0, 255);
        const std::vector<float> x0 = x;
        const std::vector<double> expected = DirectDct(x);
        velomar::DCT1D(x.data(), n, 0);
        for (int k = 0; k < n; ++k) ASSERT_NEAR(x[k], expected[k], 1e-5 * Norm(x0)) << "n " << n << " k " << k;
        velomar::DCT1D(x.data(), n, 1);
        for (int k = 0; k < n; ++k) ASSERT_NEAR(x[k], x0[k], 1e-2) << "round trip, n " << n << " k " << k;
    }
    float x[2] = {7.0f, -3.5f};
    velomar::DCT1D(x, 1, 1);  // length one: sqrt(2) / sqrt(2), and only its element
    EXPECT_TRUE(x[0] == 7.0f && x[1] == -3.5f);
}

// The Walsh-Hadamard transform in dyadic order: coefficient k pairs with the
// bit-reversed Hadamard row, sign (-1)^popcount(m & rev(k)).
TEST(WalshTransform1D, MatchesTheDirectSum) {
    for (int n : {1, 2, 4, 16, 128}) {
        std::vector<float> x = ftest::RandomFloats(n, -255, 255);
        const std::vector<float> x0 = x;
        velomar::WalshTransform1D(n, x.data());
        const int bits = int(std::log2(n));
        for (int k = 0; k < n; ++k) {
            int rev = 0;
            for (int b = 0; b < bits; ++b) rev |= ((k >> b) & 1) << (bits - 1 - b);
            double s = 0;
            for (int m = 0; m < n; ++m) s += (__builtin_popcount(unsigned(m & rev)) % 2 ? -x0[m] : x0[m]);
            ASSERT_NEAR(x[k], s / n, 1e-6 * Norm(x0)) << "n " << n << " k " << k;
        }
    }
}

TEST(Transforms2D, RoundTripsRestoreThePlane) {
    const int w = 16, h = 8;
    std::vector<float> p = ftest::RandomFloats(w * h, 0, 255);
    const std::vector<float> p0 = p;
    velomar::DCT2D(w, h, p.data(), 0);
    velomar::DCT2D(w, h, p.data(), 1);
    for (int i = 0; i < w * h; ++i) ASSERT_NEAR(p[i], p0[i], 1e-3) << i;
    // The Walsh transform is its own inverse up to 1 / (W H).
    velomar::WalshTransform2D(w, h, p.data());
    velomar::WalshTransform2D(w, h, p.data());
    for (int i = 0; i < w * h; ++i) ASSERT_NEAR(p[i] * (w * h), p0[i], 1e-3) << i;
}

// Uniform images: only the first coefficient is non-zero, at the top-left.
TEST(CoefficientPictures, UniformImage) {
    struct Case { int w, h, g; bool walsh; int corner; };
    const Case cases[] = {
        {4, 4, 5, false, 200},   // trunc(10 x 5 x sqrt(16))
        {16, 4, 3, false, 240},  // 10 x 3 x 8
        {16, 16, 2, false, 255}, // 320, clamped
        {8, 8, 0, true, 0},
        {8, 4, 1, true, 255},    // 2000 x g, clamped
    };
    for (const Case& t : cases) {
        vtest::Image src(t.w, t.h, 1, 0, uint8_t(t.g)), dst(t.w, t.h, 1, 0, 77);
        if (t.walsh)
            ShowWALSH(src.data(), dst.data(), t.w, t.h, t.w);
        else
            ShowDCT(src.data(), dst.data(), t.w, t.h, t.w, 0);
        for (int y = 0; y < t.h; ++y)
            for (int x = 0; x < t.w; ++x)
                ASSERT_EQ(dst.at(x, y), (x == 0 && y == 0) ? t.corner : 0) << x << "," << y << " g " << t.g;
    }
}

// A three-byte (or four-byte) image gives, channel by channel, the pictures
// of its channels as grey images; nothing else is written, in place or not.
TEST(CoefficientPictures, EachChannelIsAGreyPicture) {
    auto show = [](int kind, const uint8_t* s, uint8_t* d, int w, int h, int stride) {
        kind == 2 ? ShowWALSH(s, d, w, h, stride) : ShowDCT(s, d, w, h, stride, kind);
    };
    for (auto [w, h, bytes] : {std::tuple{5, 3, 3}, std::tuple{7, 6, 4}})
        for (int kind = 0; kind < 3; ++kind) {
            const vtest::Image src = vtest::RandomImage(w, h, bytes, 2);
            const vtest::Image dst = vtest::RandomImage(w, h, bytes, 2, 0x3C);
            EXPECT_TRUE(vtest::MatchesBothWays(
                src, dst, [&](const uint8_t* s, uint8_t* d) { show(kind, s, d, w, h, src.stride); },
                [&](std::vector<uint8_t> d) {
                    for (int c = 0; c < 3; ++c) {
                        vtest::Image out(w, h, 1);
                        show(kind, vtest::PlaneOf(src, 3, c).data(), out.data(), w, h, w);
                        vtest::PutPlane(d, src, 3, c, out);
                    }
                    return d;
                }))
                << w << "x" << h << " bytes " << bytes << " kind " << kind;
        }
}

}  // namespace
