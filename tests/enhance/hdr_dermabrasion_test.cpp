// High dynamic range and skin smoothing against the composition of their
// (separately tested) building blocks, and the results chosen where the
// formulas divide by zero.
#include <cmath>

#include "adjust/adjust.h"
#include "blur/blur.h"
#include "common/suite.h"
#include "enhance/enhance.h"
#include "sharpen/sharpen.h"
#include "smooth/smooth.h"

namespace {

using vtest::Image;
using vtest::RandomInt;

TEST(Hdr, ExposureBlendingWeighsBySmoothedExposure) {
    for (int trial = 0; trial < 8; ++trial) {
        const Image src = vtest::SweepImage(trial, {1, 3}, 40, 30);
        const Image shadows = vtest::RandomImage(src.width, src.height, src.channels, src.stride - src.width * src.channels);
        const Image highlights = vtest::DestFor(src, 0x11);
        const int r = RandomInt(0, 5);
        auto direct = [&](std::vector<uint8_t> out) {
            std::vector<uint8_t> smooth(out.size());
            GuidedFilter(src.data(), src.data(), smooth.data(), src.width, src.height, src.stride, r, 0.01);
            vtest::EachRowByte(src, src.width * src.channels, [&](size_t i) {
                const double w = std::exp(-4 * std::pow(smooth[i] - 127.5, 2) / 16256.25);
                const int s = src.bytes[i], o = s > 127 ? highlights.bytes[i] : shadows.bytes[i];
                out[i] = vtest::TruncClamp(o * (1 - w) + s * w);
            });
            return out;
        };
        EXPECT_TRUE(vtest::FilterMatches(
            src,
            [&](const uint8_t* s, uint8_t* d, auto... a) {
                HdrBasedOnExposureBlending(s, shadows.data(), highlights.data(), d, a..., r);
            },
            direct));
    }
    // Black everywhere: weight exp(-4), about 98 % of the brighter exposure.
    Image black(6, 4, 3), bright(6, 4, 3, 0, 200), out(6, 4, 3);
    HdrBasedOnExposureBlending(black.data(), bright.data(), out.data(), out.data(), 6, 4, 18, 2);
    EXPECT_TRUE(vtest::AllBytes(out.bytes, 196));
}

TEST(Hdr, ToneMappingCompressesTheLogBaseLayer) {
    for (int trial = 0; trial < 6; ++trial) {
        Image src = vtest::SweepImage(trial, {3}, 40, 30);
        src.at(0, 0, 0) = src.at(0, 0, 1) = 0;  // no intensity: the pixel keeps its red
        const int r = RandomInt(1, 6), w = src.width, h = src.height;
        const size_t n = size_t(w) * h;
        std::vector<double> I(n), base(n);
        for (size_t i = 0; i < n; ++i) {
            const uint8_t* p = src.data() + (i / w) * src.stride + 3 * (i % w);
            I[i] = (p[1] * 0.00392156862745098 * 40 + p[0] * 0.00392156862745098 * 20 + p[0] * 0.00392156862745098) *
                   0.01639344262295082;
        }
        velomar::GuidedFilterCore(I.data(), I.data(), base.data(), w, h, r, 0.01);
        for (double& b : base) b = std::log10(b + 0.00001);
        const double top = *std::max_element(base.begin(), base.end()), bottom = *std::min_element(base.begin(), base.end());
        const double gamma = top > bottom ? std::log10(5.0) / (top - bottom) : 0;
        EXPECT_TRUE(vtest::FilterMatches(src, [&](auto... a) { HdrBasedOnGuiderFilter(a..., r); }, [&](std::vector<uint8_t> d) {
            vtest::EachSample(src, 3, [&](int x, int y, int, size_t at) {
                const size_t i = size_t(y) * w + x;
                const double logI = base[i] * gamma + (std::log10(I[i] + 0.00001) - base[i]) - top * gamma;
                const double ratio = I[i] == 0 ? 1 : std::pow(10.0, logI) / I[i];
                d[at] = vtest::TruncClamp(src.bytes[at] * 0.00392156862745098 * ratio * 255.0 + 0.5);
            });
            EXPECT_EQ(d[2], src.bytes[2]);
            return d;
        }));
    }
    // A uniform image has a constant base: it is lifted to full intensity.
    Image flat(9, 7, 3, 0, 90), out(9, 7, 3);
    HdrBasedOnGuiderFilter(flat.data(), out.data(), 9, 7, 27, 3);
    EXPECT_TRUE(vtest::AllBytes(out.bytes, 255));
}

// The skin smoothing composed from its building blocks.
// Dest starts as a copy of the whole source buffer, row padding included.
std::vector<uint8_t> DirectDermabrasion(const Image& src, int type, int mode, int level, int amount) {
    const int w = src.width, h = src.height, st = src.stride, c = src.channels;
    const double size = std::max(w, h), grown = int(size * 0.0025 + 0.5) * level + 5;
    std::vector<uint8_t> smooth = src.bytes, dest = src.bytes, table(256);
    if (level) {
        const uint8_t* s = src.data();
        if (type == 0) BiExponentialEPF(s, smooth.data(), w, h, st, 50.0, grown);
        if (type == 1) GuidedFilter(s, s, smooth.data(), w, h, st, int(size * 0.005 + 0.5) * (11 - level) + 5, 0.01);
        if (type == 2) BilateralFilter(s, s, smooth.data(), w, h, st, 1, 15.0, grown, 0);
        if (type == 3) RecursiveDomainTransformFilter(s, s, smooth.data(), w, h, st, grown, 50.0, 1);
        if (type == 4) LeeAdditvieNoiseFilter(s, smooth.data(), w, h, st, int(size * 0.02), 4 * level * level + 50);
    }
    for (int i = 0; i < 256; ++i) {
        const double b = amount + 2.0, x = (i - 127) / 127.0;
        table[i] = mode == 0 ? uint8_t(vtest::TruncI32(255 * std::log(1 + (b - 1) * i / 255) / std::log(b)))
                 : mode == 1 ? uint8_t(std::clamp(i - vtest::TruncI32(-0.667 * (10.0 * amount) * (1 - x * x)), 0, 255))
                             : uint8_t(i);
    }
    for (size_t i = 0; i < smooth.size(); ++i) smooth[i] = table[smooth[i]];
    std::vector<uint8_t> mask(size_t(w) * h);
    vtest::EachSample(src, 1, [&](int x, int y, int, size_t) {
        const bool skin = c == 1 ? src.at(x, y) > 40 : src.at(x, y, 0) > 20 && src.at(x, y, 1) > 40 && src.at(x, y, 2) > 50;
        mask[size_t(y) * w + x] = skin ? 255 : 32;
    });
    GuassBlur(mask.data(), mask.data(), w, h, w, 0.02 * size);
    vtest::EachRowByte(src, w * c, [&](size_t i) {
        const int m = mask[i / st * w + i % st / c];
        dest[i] = uint8_t((smooth[i] * m + src.bytes[i] * (255 - m)) / 255);
    });
    if (level) UnsharpMask(dest.data(), dest.data(), w, h, st, size * 0.02, 20, 0);
    return dest;
}

TEST(Dermabrasion, ComposesSmootherToneMaskAndSharpening) {
    for (int trial = 0; trial < 14; ++trial) {
        // Sides of 200 and more make every size-scaled radius count.
        const Image src = trial < 7 ? vtest::SweepImage(trial, {1, 3}, 48, 36)
                                    : vtest::RandomSmoothImage(RandomInt(200, 230), RandomInt(8, 20), trial % 2 ? 3 : 1, RandomInt(0, 3));
        const int type = trial % 7 == 6 ? 9 : trial % 7, mode = RandomInt(0, 2), level = RandomInt(1, 10);
        const int amount = RandomInt(-1, 8);
        EXPECT_TRUE(vtest::FilterMatches(
            src, [&](auto... a) { DermabrasionFilter(a..., type, mode, level, amount); },
            [&](const std::vector<uint8_t>&) { return DirectDermabrasion(src, type, mode, level, amount); }))
            << " type " << type << " mode " << mode << " level " << level << " amount " << amount;
    }
    // Level 0 without a tone lift returns the source; levels beyond 10 write nothing.
    const Image src = vtest::RandomImage(20, 12, 3, 2), dest = vtest::DestFor(src);
    Image out = dest;
    DermabrasionFilter(src.data(), out.data(), 20, 12, src.stride, 1, 1, 0, 0);
    EXPECT_TRUE(vtest::BytesEqual(src.bytes, out.bytes));
    EXPECT_TRUE(vtest::WritesNothing(dest, {
        [&](uint8_t* d) { DermabrasionFilter(src.data(), d, 20, 12, src.stride, 1, 0, 11, 3); },
        [&](uint8_t* d) { DermabrasionFilter(src.data(), d, 20, 12, src.stride, 1, 0, -1, 3); },
        [&](uint8_t* d) { HdrBasedOnGuiderFilter(src.data(), d, 20, 12, src.stride, -1); },
        [&](uint8_t* d) { HdrBasedOnExposureBlending(src.data(), nullptr, src.data(), d, 20, 12, src.stride, 2); },
    }));
}

}  // namespace
