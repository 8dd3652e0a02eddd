// Contrast enhancement against its building blocks (box mean, guided filter,
// local statistics) with the curves and gains written out directly.
#include <cmath>

#include "blur/blur.h"
#include "common/suite.h"
#include "enhance/enhance.h"
#include "smooth/smooth.h"

namespace {

using vtest::Image;
using vtest::RandomInt;

// base(b) + (s - b) * amount / 100 per byte, clamped; b is local[i].
template <class Base>
std::vector<uint8_t> Amplified(const Image& src, const std::vector<uint8_t>& local, int amount, Base base) {
    std::vector<uint8_t> out(local.size());
    for (size_t i = 0; i < out.size(); ++i)
        out[i] = uint8_t(std::clamp(base(local[i]) + (src.bytes[i] - local[i]) * amount / 100, 0, 255));
    return out;
}

TEST(ContrastEnhancement, LeeStretchesTheBoxMeanAndIgnoresTheRangeInPlace) {
    for (int trial = 0; trial < 12; ++trial) {
        const Image src = vtest::SweepImage(trial, {1, 3, 4}, 40, 30);
        const int r = RandomInt(0, 6), amount = RandomInt(-50, 300);
        const int lo = RandomInt(-20, 150), hi = trial % 4 == 3 ? lo - RandomInt(0, 5) : RandomInt(lo + 1, 280);
        // In place the range is ignored: the box mean is stretched over 0..255.
        EXPECT_TRUE(vtest::FilterMatches(
            src, [&](auto... a) { LeeContrastEnhancement(a..., r, amount, lo, hi); },
            [&](std::vector<uint8_t> box) {
                const int low = box == src.bytes ? 0 : lo, high = box == src.bytes ? 255 : hi;
                BoxBlur(src.data(), box.data(), src.width, src.height, src.stride, r, 0);
                return Amplified(src, box, amount, [&](int m) {
                    return high <= low ? 127 : m < low ? 0 : m > high ? 255 : (m - low) * 255 / (high - low);
                });
            }))
            << " range " << lo << ".." << hi;
    }
}

// Amount 100 (the first trial) adds the whole difference back: the source.
TEST(ContrastEnhancement, DetailAmplifiesTheGuidedFilterDetail) {
    for (int trial = 0; trial < 9; ++trial) {
        const Image src = vtest::SweepImage(trial, {1, 3}, 40, 30);
        const int r = RandomInt(0, 5), amount = trial == 0 ? 100 : RandomInt(-100, 400);
        EXPECT_TRUE(vtest::FilterMatches(
            src, [&](auto... a) { DetailEnhanceByEdgePreseveingFilter(a..., r, amount); },
            [&](std::vector<uint8_t> base) {
                GuidedFilter(src.data(), src.data(), base.data(), src.width, src.height, src.stride, r, double(0.01f));
                return Amplified(src, base, amount, [](int b) { return b; });
            }))
            << " amount " << amount;
    }
}

TEST(ContrastEnhancement, LsdGainFollowsTheLocalDeviation) {
    for (int trial = 0; trial < 8; ++trial) {
        const Image src = vtest::SweepImage(trial, {1, 3}, 36, 28);
        const int c = src.channels, r = RandomInt(0, 4), amount = RandomInt(0, 300), maxGain = RandomInt(1, 6);
        const vtest::LocalStats stats = vtest::DirectLocalStats(src, r, 1, c);
        double alpha[3] = {};
        for (int k = 0; k < c; ++k) {
            // The grey histogram counts whole rows, padding included, when
            // Width is a multiple of 4.
            std::vector<uint32_t> count(256);
            if (c == 1 && src.width % 4 == 0)
                for (uint8_t v : src.bytes) ++count[v];
            else
                for (int y = 0; y < src.height; ++y)
                    for (int x = 0; x < src.width; ++x) ++count[src.at(x, y, k)];
            const double n = double(src.width) * src.height;
            double sum = 0, squares = 0;
            for (int i = 0; i < 256; ++i) sum += double(count[i]) * i;
            for (int i = 0; i < 256; ++i) squares += count[i] * ((i - sum / n) * (i - sum / n));
            alpha[k] = std::sqrt(squares / n) * amount / 100;
        }
        // Grey pixels take the bytes Dest held as their means.
        auto direct = [&](std::vector<uint8_t> out) {
            const std::vector<uint8_t> entry = out;
            vtest::EachRowByte(src, src.width * c, [&](size_t i) {
                const int m = c == 1 ? entry[i] : int(stats.mean[i]);
                const double gain = std::min(alpha[i % src.stride % c] / std::sqrt(stats.variance[i] + 1.0), double(maxGain));
                out[i] = vtest::TruncClamp((src.bytes[i] - m) * gain + m);
            });
            return out;
        };
        EXPECT_TRUE(vtest::FilterMatches(src, [&](auto... a) { LSDContrastEnhancement(a..., r, amount, maxGain); }, direct));
    }
}

// The curve of the one-byte path: 255 (i / 255)^(1 - weighted cdf).
std::vector<uint8_t> GammaCurve(const std::vector<uint8_t>& values, double alpha) {
    std::vector<double> pdf(256);
    for (uint8_t v : values) pdf[v] += 1;
    for (double& p : pdf) p /= double(values.size());
    const double lo = *std::min_element(pdf.begin(), pdf.end()), hi = *std::max_element(pdf.begin(), pdf.end());
    std::vector<uint8_t> curve(256, values[0]);
    if (lo == hi) return curve;
    std::vector<double> w(256);
    double sum = 0, cdf = 0;
    for (int i = 0; i < 256; ++i) sum += w[i] = hi * std::pow((pdf[i] - lo) / (hi - lo), alpha);
    for (int i = 0; i < 256; ++i) curve[i] = vtest::TruncClamp(255 * std::pow(i / 255.0, 1 - (cdf += w[i]) / sum));
    return curve;
}

TEST(ContrastEnhancement, AdaptiveGammaPerPlaneAndOnTheValue) {
    for (int trial = 0; trial < 6; ++trial) {
        const Image src = vtest::SweepImage(trial, {3}, 40, 30);
        const double alpha = 0.2 + 0.3 * trial;
        for (uint8_t hsv : {0, 1}) {
            // Grey-valued pixels have no hue: the value path is the grey path.
            Image grey = src;
            vtest::EachSample(src, 1, [&](int x, int y, int, size_t) { grey.at(x, y, 1) = grey.at(x, y, 2) = grey.at(x, y, 0); });
            const Image& in = hsv ? grey : src;
            EXPECT_TRUE(vtest::FilterMatches(
                in, [&](auto... a) { AdaptiveGammaCorrection(a..., alpha, hsv); },
                [&](std::vector<uint8_t> d) {
                    std::vector<uint8_t> curves[3];
                    for (int k = 0; k < 3; ++k) curves[k] = GammaCurve(vtest::PlaneOf(in, 3, hsv ? 0 : k).bytes, alpha);
                    vtest::EachSample(in, 3, [&](int, int, int k, size_t i) { d[i] = curves[k][in.bytes[i]]; });
                    return d;
                }))
                << " hsv " << int(hsv);
        }
    }
    // Every value once: a flat histogram maps the image to its first byte.
    Image ramp(16, 16, 1);
    for (int i = 0; i < 256; ++i) ramp.bytes[i] = uint8_t((i * 7 + 3) % 256);
    Image out = ramp;
    AdaptiveGammaCorrection(ramp.data(), out.data(), 16, 16, 16, 1.0, 0);
    EXPECT_TRUE(vtest::AllBytes(out.bytes, ramp.bytes[0]));
}

TEST(ContrastEnhancement, RejectedCallsWriteNothing) {
    const Image src = vtest::RandomImage(8, 6, 2), dest = vtest::DestFor(src);
    EXPECT_TRUE(vtest::WritesNothing(dest, {
        [&](uint8_t* d) { LeeContrastEnhancement(nullptr, d, 8, 6, 16, 1, 100, 0, 255); },
        [&](uint8_t* d) { LeeContrastEnhancement(src.data(), d, 8, 6, 16, -1, 100, 0, 255); },
        [&](uint8_t* d) { DetailEnhanceByEdgePreseveingFilter(src.data(), d, 8, 0, 16, 1, 100); },
        [&](uint8_t* d) { LSDContrastEnhancement(src.data(), d, 8, 6, 16, 1, 100, 3); },  // two bytes a pixel
        [&](uint8_t* d) { AdaptiveGammaCorrection(src.data(), d, 8, 6, 16, 1.0, 1); },
    }));
}

}  // namespace
