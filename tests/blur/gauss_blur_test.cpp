// Recursive Gaussian against the line recursion written out directly.
#include <cmath>
#include <limits>

#include "blur/blur.h"
#include "common/suite.h"

namespace {

using vtest::RandomInt;

struct Coeffs {
    double B, c1, c2, c3;
};

Coeffs Make(double sigma) {
    double q = 0.11477050185203552;
    if (sigma >= 2.5)
        q = 0.98711 * sigma - 0.9633;
    else if (sigma >= 0.5)
        q = 3.97156 - 4.14554 * std::sqrt(1 - 0.26891 * sigma);
    const double q2 = q * q, q3 = q * q * q;
    const double b0 = 1.57825 + 2.44413 * q + 1.4281 * q2 + 0.422205 * q3;
    const double b1 = 2.44413 * q + 2.85619 * q2 + 1.26661 * q3;
    const double b2 = -1.4281 * q2 - 1.26661 * q3;
    const double b3 = 0.422205 * q3;
    return {1 - (b1 + b2 + b3) / b0, b1 / b0, b2 / b0, b3 / b0};
}

// One line forwards then backwards; returns the n outputs.
std::vector<double> Line(const Coeffs& k, const std::vector<double>& x) {
    const int n = int(x.size());
    std::vector<double> w(n + 6), y(n + 6);
    w[0] = w[1] = w[2] = x[0];
    for (int i = 3; i < n + 6; ++i)
        w[i] = k.B * x[std::min(i - 3, n - 1)] + k.c1 * w[i - 1] + k.c2 * w[i - 2] + k.c3 * w[i - 3];
    for (int i = n + 3; i < n + 6; ++i) y[i] = w[i];
    for (int i = n + 2; i >= 3; --i)
        y[i] = k.B * w[i] + k.c1 * y[i + 1] + k.c2 * y[i + 2] + k.c3 * y[i + 3];
    return std::vector<double>(y.begin() + 3, y.begin() + 3 + n);
}

// Rows then columns over `c` interleaved channels, each value stored through
// `store`; elements beyond c * w of a row untouched.
template <class T, class Store>
std::vector<T> Direct(std::vector<T> img, int w, int h, int stride, int c, double sigma, Store store) {
    const Coeffs k = Make(sigma);
    auto pass = [&](int n, int lines, auto index) {
        for (int l = 0; l < lines; ++l) {
            std::vector<double> line(n);
            for (int i = 0; i < n; ++i) line[i] = img[index(l, i)];
            line = Line(k, line);
            for (int i = 0; i < n; ++i) img[index(l, i)] = store(line[i]);
        }
    };
    pass(w, h * c, [&](int l, int x) { return size_t(l / c) * stride + size_t(x) * c + l % c; });
    pass(h, w * c, [&](int col, int y) { return size_t(y) * stride + col; });
    return img;
}

// Under every instruction set: the wider paths take blocks of 32 and 64 rows
// or columns and hand the rest to narrower ones, so sizes reach past 128.
using GuassBlurIsa = vtest::EveryIsa;
VELOMAR_INSTANTIATE_EVERY_ISA(Paths, GuassBlurIsa);

TEST_P(GuassBlurIsa, MatchesDirectRecursion) {
    // Four bytes per pixel are blurred as three-byte pixels over each row's
    // first 3 * Width bytes; the rest of the row is kept. The first pass
    // writes Dest from Src, so Dest's other bytes survive.
    // Each pass stores through the x86 truncating conversion, low byte kept.
    // The last two trials: bright blocks followed by long black runs make the
    // recursion decay into the subnormal range, which the blur flushes to zero
    // for speed; the bytes must not change.
    vtest::Image dark(700, 40, 1);
    for (int y = 0; y < 40; ++y)
        for (int x = 0; x < 700; ++x) dark.at(x, y) = (x < 20 || (x > 400 && x < 405)) ? 255 : 0;
    dark.at(350, 5) = 1;
    const double sigmas[] = {-1.0, 0.0, 0.3, 0.5, 1.0, 2.4999999, 2.5, 4.0, 17.0, 60.0,
                             std::numeric_limits<double>::quiet_NaN()};
    for (int iter = 0; iter < 202 && !HasFailure(); ++iter) {
        const int most = iter % 4 == 3 ? 150 : 45;
        const vtest::Image src = iter < 200 ? vtest::SweepImage(iter, {1, 3, 1, 3, 4}, most, most, 44) : dark;
        const double sigma = iter < 200 ? sigmas[iter % 11] : iter == 200 ? 0.5 : 2.0;
        const int c = std::min(src.channels, 3);
        EXPECT_TRUE(vtest::FilterMatches(src, [&](auto... a) { GuassBlur(a..., sigma); }, [&](std::vector<uint8_t> d) {
            vtest::EachRowByte(src, src.width * c, [&](size_t i) { d[i] = src.bytes[i]; });
            const auto store = [](double v) { return uint8_t(vtest::TruncI32(v)); };
            return Direct(d, src.width, src.height, src.stride, c, sigma, store);
        })) << " sigma " << sigma;
        if (src.channels > 1) continue;
        // GaussBlurDouble over the same plane (values of both signs), bit for bit, in place too.
        std::vector<double> plane(src.bytes.size(), -3.0), out = plane;
        vtest::EachSample(src, 1, [&](int, int, int, size_t i) { plane[i] = (src.bytes[i] - 100) / 3.17; });
        const auto want = Direct(plane, src.width, src.height, src.stride, 1, sigma, [](double v) { return v; });
        velomar::GaussBlurDouble(plane.data(), out.data(), src.width, src.height, src.stride, sigma);
        EXPECT_EQ(want, out) << "GaussBlurDouble, sigma " << sigma;
        velomar::GaussBlurDouble(plane.data(), plane.data(), src.width, src.height, src.stride, sigma);
        EXPECT_EQ(want, plane) << "GaussBlurDouble in place";
    }
}

}  // namespace
