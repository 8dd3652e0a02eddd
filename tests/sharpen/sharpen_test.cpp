// The sharpening filters against direct models: a Sobel with replicated
// borders, a rank count over the mirrored neighbourhood, and the unsharp and
// high-pass formulas applied to the Gaussian blur's own output.
#include <array>
#include <climits>
#include <cmath>
#include <cstdlib>

#include "blur/blur.h"
#include "common/suite.h"
#include "sharpen/sharpen.h"

namespace {

using vtest::Image;
using vtest::RandomInt;

// Grey, three and four bytes per pixel (the fourth kept); other layouts are
// left untouched.
std::vector<uint8_t> DirectEdges(const Image& src, std::vector<uint8_t> out) {
    if (src.channels == 2 || src.channels > 4) return out;
    vtest::EachSample(src, src.channels, [&](int x, int y, int k, size_t i) {
        if (k == 3) return;
        const std::vector<int> v = vtest::Neighbourhood(src, x, y, k, 1, EDGE_REPLICATE, src.channels);
        const int gx = (v[0] + 2 * v[3] + v[6]) - (v[2] + 2 * v[5] + v[8]);  // left column minus right
        const int gy = (v[0] + 2 * v[1] + v[2]) - (v[6] + 2 * v[7] + v[8]);  // top row minus bottom
        out[i] = uint8_t(int(255.0 - std::sqrt(std::min(gx * gx + gy * gy, 65025) + 0.0)));
    });
    return out;
}

// For every pixel of each plane, M is the smallest m such that at least T
// neighbourhood samples lie below m. Three bytes per pixel runs per channel;
// every other layout runs on the first Width bytes of each row as one plane.
// Radii outside 0..127 write nothing.
std::vector<uint8_t> DirectRank(const Image& src, std::vector<uint8_t> out, int radius) {
    if (radius < 0 || radius > 127) return out;
    const int step = src.channels == 3 ? 3 : 1, span = 2 * radius + 1, target = span * span / 2;
    vtest::EachSample(src, step, [&](int x, int y, int k, size_t i) {
        int count[256] = {};
        for (int v : vtest::Neighbourhood(src, x, y, k, radius, EDGE_REFLECT, step)) ++count[v];
        int m = 0, below = 0;  // below: samples with values under m
        while (below < target) below += count[m++];
        out[i] = uint8_t(std::clamp(src.bytes[i] - (m - src.bytes[i]) / 2, 0, 255));
    });
    return out;
}

// Unsharp mask treats the Width bytes of grey rows and the 3 * Width of rows
// of three-byte pixels; other layouts keep dest.
std::vector<uint8_t> ExpectedUnsharp(const Image& src, std::vector<uint8_t> out, double sigma, int amount,
                                     int threshold) {
    if (src.channels != 1 && src.channels != 3) return out;
    Image blur = src;
    velomar::GuassBlur(src.data(), blur.data(), src.width, src.height, src.stride, sigma);
    vtest::EachRowByte(src, src.channels * src.width, [&](size_t k) {
        const int s = src.bytes[k], d = s - blur.bytes[k];
        const int32_t product = int32_t(int64_t(d) * amount);  // wraps like 32-bit hardware
        out[k] = uint8_t(std::abs(d) < threshold ? s : std::clamp(s + product / 100, 0, 255));
    });
    return out;
}

// The blur is written over Dest first, then subtracted from the source
// buffer: in place every treated byte becomes 128. Grey rows treat Width
// bytes, every other layout three bytes per pixel.
std::vector<uint8_t> ExpectedHighPass(const Image& src, std::vector<uint8_t> out, double sigma) {
    if (src.channels == 2) return out;  // two bytes per pixel are left alone
    const bool inPlace = out == src.bytes;
    velomar::GuassBlur(src.data(), out.data(), src.width, src.height, src.stride, sigma);
    vtest::EachRowByte(src, (src.channels == 1 ? 1 : 3) * src.width, [&](size_t k) {
        out[k] = uint8_t(std::clamp((inPlace ? out[k] : src.bytes[k]) - out[k] + 128, 0, 255));
    });
    return out;
}

// Rank count: radius 0 has T = 0, so M = 0 and the value grows by half; on a
// constant picture (every ninth) M = v + 1 pushes by (v + 1 - v) / 2 = 0;
// radii 128 and -1 (trials 16, 17) write nothing, 127 (15, grey) fills the
// counters to 255 * 255. White noise reaches the Sobel's cap. Last sixteen
// trials: sparse spikes on black (and pits on white) under a wide blur give
// differences of +-255, the largest unsharp products for each amount.
using SharpenPaths = vtest::EveryIsa;
TEST_P(SharpenPaths, MatchTheDirectModels) {
    const int spikeAmounts[] = {12899, 12900, 12999, -12899, -12900, 130, -129, 100000};
    for (int trial = 0; trial < 166 && !HasFailure(); ++trial) {
        const int spikes = trial - 150, base = 255 * (trial % 2);
        Image src = spikes < 0 ? vtest::SweepImage(trial, {1, 3, 4, 2, 5}, 45, 16) : Image(40, 30, 1, 0, uint8_t(base));
        for (int k = 0; spikes >= 0 && k < 6; ++k) src.at(3 + 7 * k, 4 + 4 * k) = uint8_t(255 - base);
        if (spikes < 0 && trial % 9 == 4) src = vtest::Flat(src, std::array{0, 77, 255}[trial % 3]);
        EXPECT_TRUE(vtest::FilterMatches(src, ::FindEdges, [&](auto d) { return DirectEdges(src, d); }));
        const int radius = trial % 10 == 0 ? RandomInt(25, 40)
                           : trial < 15 || trial > 17 ? RandomInt(0, 6) : std::array{127, 128, -1}[trial - 15];
        EXPECT_TRUE(vtest::FilterMatches(src, [&](auto... a) { ::SharpenByHistgram(a..., radius); },
                                         [&](std::vector<uint8_t> d) { return DirectRank(src, d, radius); }))
            << " radius " << radius;
        const double sigma = spikes < 0 ? RandomInt(0, 60) / 10.0 : 30.0;
        // Random amounts: 0, around the fast path's limit, products that wrap
        // either way, and small ones (twice as often).
        const int sign = RandomInt(0, 1) ? 1 : -1;
        const int amounts[] = {0, RandomInt(12890, 12910) * sign, RandomInt(8000000, INT_MAX),
                               sign > 0 ? INT_MIN : RandomInt(INT_MIN, -8000000), RandomInt(-400, 400)};
        const int amount = spikes < 0 ? amounts[std::min(RandomInt(0, 5), 4)] : spikeAmounts[spikes / 2];
        const int threshold = spikes < 0 ? RandomInt(-5, 300) : 0;
        EXPECT_TRUE(vtest::FilterMatches(src, [&](auto... a) { ::UnsharpMask(a..., sigma, amount, threshold); },
                                         [&](std::vector<uint8_t> d) {
                                             return ExpectedUnsharp(src, d, sigma, amount, threshold);
                                         }))
            << " sigma " << sigma << " amount " << amount << " threshold " << threshold;
        EXPECT_TRUE(vtest::FilterMatches(src, [&](auto... a) { ::HighPass(a..., sigma); },
                                         [&](std::vector<uint8_t> d) { return ExpectedHighPass(src, d, sigma); }))
            << "high pass sigma " << sigma;
    }
}

VELOMAR_INSTANTIATE_EVERY_ISA(Isa, SharpenPaths);

}  // namespace
