// Retinex against a direct model built on the (separately tested) Gaussian
// blur: log differences per scale, the stretch by mean and deviation, and the
// HSV rows against their own formulas and round trips.
#include <cmath>

#include "blur/blur.h"
#include "common/reference.h"
#include "enhance/enhance.h"

namespace {

using vtest::Image;
using vtest::RandomInt;

// Mean over the given scales of ln(v + 1) - ln(blur + 1), every byte position.
std::vector<double> DirectRetinex(const uint8_t* src, int w, int h, int stride, const std::vector<double>& scales) {
    const size_t n = size_t(h) * stride;
    std::vector<double> acc(n, 0.0);
    for (double sigma : scales) {
        std::vector<uint8_t> blur(src, src + n);
        GuassBlur(src, blur.data(), w, h, stride, sigma);
        for (size_t i = 0; i < n; ++i) acc[i] += (std::log(src[i] + 1.0) - std::log(blur[i] + 1.0)) * (1.0 / scales.size());
    }
    return acc;
}

// Channel by channel over `layout` (grey, or three bytes a pixel).
std::vector<uint8_t> DirectStretch(const std::vector<double>& acc, std::vector<uint8_t> d, const Image& layout,
                                   double dynamic) {
    const int c = layout.stride / layout.width == 1 ? 1 : 3;
    const double n = double(layout.width) * layout.height;
    double sum[3] = {}, sq[3] = {};
    vtest::EachSample(layout, c, [&](int, int, int k, size_t i) { sum[k] += acc[i]; });
    vtest::EachSample(layout, c, [&](int, int, int k, size_t i) { sq[k] += std::pow(acc[i] - sum[k] / n, 2); });
    vtest::EachSample(layout, c, [&](int, int, int k, size_t i) {
        const double sd = std::sqrt(sq[k] / n), lo = sum[k] / n - dynamic * sd, range = (sum[k] / n + dynamic * sd) - lo;
        d[i] = vtest::TruncClamp((acc[i] - lo) * (255 / (range == 0 ? 1.0 : range)));
    });
    return d;
}

std::vector<double> Scales(double sigma, int n) {
    if (n == 1) return {sigma};
    if (n == 2) return {0.5 * sigma, sigma};
    std::vector<double> s;
    for (int i = 0; i < n; ++i) s.push_back(2.0 + i * (sigma / n));
    return s;
}

TEST(Retinex, MultiScaleMatchesDirectLogDifferences) {
    const Image src = vtest::RandomSmoothImage(23, 17, 3, 2);
    for (int n : {1, 2, 3, 5, 9}) {  // 9: more scales than are kept as bytes
        std::vector<double> acc(src.bytes.size());
        velomar::MultiScaleRetinex(n, src.data(), acc.data(), 23, 17, src.stride, 30.0);
        EXPECT_EQ(acc, DirectRetinex(src.data(), 23, 17, src.stride, Scales(30.0, n))) << n << " scales";
    }
    EXPECT_EQ(Scales(90, 3), (std::vector<double>{2, 32, 62}));  // the worked example's spacing
}

// A constant picture (every fifth) has no spread, and Dynamic 0 (every
// sixth) no range: the stretch then divides by 1.
TEST(Retinex, MSRCRGIMPAndMSRHSVMatchDirectModel) {
    for (int trial = 0; trial < 24 && !HasFailure(); ++trial) {
        const Image noise = vtest::SweepImage(trial, {1, 3, 4}, 30, 20, 3);
        const Image src = trial % 5 == 4 ? vtest::Flat(noise, 140) : noise;
        const int w = src.width, h = src.height, n = trial % 8 == 7 ? 10 : RandomInt(1, 4);
        const double sigma = RandomInt(1, 60), dynamic = trial % 6 == 5 ? 0.0 : RandomInt(1, 30) / 10.0;
        EXPECT_TRUE(vtest::FilterMatches(
            src, [&](auto... a) { MSRCRGIMP(a..., sigma, n, dynamic); },
            [&](std::vector<uint8_t> d) {
                return DirectStretch(DirectRetinex(src.data(), w, h, src.stride, Scales(sigma, n)), d, src, dynamic);
            }))
            << " scales " << n << " sigma " << sigma;
        if (src.channels == 1) continue;
        EXPECT_TRUE(vtest::FilterMatches(
            src, [&](auto... a) { MSRHSV(a..., sigma, n, dynamic); },
            [&](std::vector<uint8_t> d) {
                std::vector<double> hsv(size_t(w) * 3);
                std::vector<uint8_t> v(size_t(w) * h);
                for (int y = 0; y < h; ++y) {
                    velomar::RowBgrToHsv(w, &src.bytes[size_t(y) * src.stride], hsv.data());
                    for (int x = 0; x < w; ++x) v[size_t(y) * w + x] = uint8_t(hsv[3 * x + 2]);
                }
                v = DirectStretch(DirectRetinex(v.data(), w, h, w, Scales(sigma, n)), v, Image(w, h, 1), dynamic);
                for (int y = 0; y < h; ++y) {
                    velomar::RowBgrToHsv(w, &src.bytes[size_t(y) * src.stride], hsv.data());
                    for (int x = 0; x < w; ++x) hsv[3 * x + 2] = v[size_t(y) * w + x];
                    velomar::RowHsvToBgr(w, hsv.data(), &d[size_t(y) * src.stride]);
                }
                return d;
            }))
            << "HSV";
    }
    const Image flat(20, 9, 3, 1, 140);
    EXPECT_TRUE(vtest::WritesNothing(vtest::DestFor(flat), {
        [&](uint8_t* d) { MSRCRGIMP(flat.data(), d, 20, 9, flat.stride, 40, 0, 2); },  // no scale
        [&](uint8_t* d) { MSRHSV(flat.data(), d, 20, 9, flat.stride, 40, -1, 2); },
        [&](uint8_t* d) { MSRHSV(flat.data(), d, 20, 9, 41, 40, 3, 2); },  // two bytes per pixel
    }));
}

TEST(Retinex, HsvRowsFollowTheirFormulasAndRoundTrip) {
    const Image src = vtest::RandomImage(300, 1, 3);
    std::vector<double> hsv(900);
    velomar::RowBgrToHsv(300, src.data(), hsv.data());
    std::vector<uint8_t> back(900);
    velomar::RowHsvToBgr(300, hsv.data(), back.data());
    for (int x = 0; x < 300; ++x) {
        const double b = src.at(x, 0, 0), g = src.at(x, 0, 1), r = src.at(x, 0, 2);
        const double mx = std::max({b, g, r}), mn = std::min({b, g, r});
        double hue = mx == mn ? 0 : mx == r ? (g - b) / (mx - mn) : mx == g ? (b - r) / (mx - mn) + 2 : (r - g) / (mx - mn) + 4;
        if (hue < 0) hue += 6;
        EXPECT_DOUBLE_EQ(hsv[3 * x], hue);
        EXPECT_DOUBLE_EQ(hsv[3 * x + 1], mx ? (mx - mn) / mx : 0);
        EXPECT_EQ(hsv[3 * x + 2], mx);
        for (int k = 0; k < 3; ++k) EXPECT_NEAR(back[3 * x + k], src.at(x, 0, k), 1) << x;  // truncation loses at most 1
    }
    // Grey pixels: the value comes back in all three bytes.
    Image grey = vtest::RandomSmoothImage(31, 11, 3, 1);
    vtest::EachSample(grey, 1, [&](int x, int y, int, size_t) { grey.at(x, y, 1) = grey.at(x, y, 2) = grey.at(x, y, 0); });
    Image out = grey;
    MSRHSV(grey.data(), out.data(), 31, 11, grey.stride, 20, 2, 1.5);
    vtest::EachSample(out, 1, [&](int x, int y, int, size_t) { ASSERT_TRUE(out.at(x, y, 0) == out.at(x, y, 1) && out.at(x, y, 1) == out.at(x, y, 2)); });
}

}  // namespace
