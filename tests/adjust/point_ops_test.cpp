// Point operations: the curve exports against tables built from their
// formulas and applied with the raw applier's walk, threshold and exposal
// per byte, soft glow as a screen blend over the blurred, adjusted layer, the
// Matrix forms byte by byte, and rejected calls.
#include <array>
#include <cmath>

#include "adjust/adjust.h"
#include "blur/blur.h"
#include "common/suite.h"

namespace {

using vtest::Image;

// The mean level comes from the top row alone (padding removed for all rows),
// far below the whole image's mean on these six-row pictures.
int TopRowMean(const Image& img) {
    int used = (img.stride / img.width) * img.width, sum = 0;
    for (int k = 0; k < img.stride; ++k) sum += img.bytes[k];
    for (int y = 0; y < img.height; ++y)
        for (int k = used; k < img.stride; ++k) sum -= img.bytes[y * img.stride + k];
    return sum / (used * img.height);
}

uint8_t BrightnessContrastCurve(int i, int b, int c, int m) {
    const int64_t v = std::clamp<int64_t>(int64_t(i) + b, 0, 255);
    if (c == 100) return m < v ? 255 : 0;
    if (c >= 0) return uint8_t(int(std::clamp(double(v) + (10000 / (100 - c) - 100) * (v - m) / 100.0, 0.0, 255.0)));
    const int64_t t = std::clamp<int64_t>(i + (i - m) * int64_t(c) / 100, 0, 255);
    return uint8_t(std::clamp<int64_t>(t + b, 0, 255));
}

// A curve export against its table (entry i of `level(src, i)`) in every
// layout: grey with padding (mapped too), three bytes, four bytes, and a
// padding of at least Width bytes (skip = Stride % Width).
template <class Run, class Entry>
void CheckCurve(const std::string& name, Run run, Entry level) {
    for (auto [w, c, pad] : {std::tuple{13, 1, 3}, {7, 3, 1}, {6, 4, 0}, {4, 3, 5}, {1, 3, 0}, {31, 3, 2}}) {
        const Image src = vtest::RandomImage(w, 6, c, pad);
        uint8_t table[256];
        for (int i = 0; i < 256; ++i) table[i] = level(src, i);
        auto direct = [&](std::vector<uint8_t> d) { return vtest::ApplyCurves(src, d, table, table, table); };
        EXPECT_TRUE(vtest::FilterMatches(src, run, direct)) << name;
    }
}

TEST(CurveExports, MatchDirectTablesInEveryLayout) {
    for (double g : {0.3, 1.0, 2.2, -0.5})  // out of range (+infinity too) converts like x86: to 0
        CheckCurve("gamma " + std::to_string(g), [=](auto... a) { GammaCorrection(a..., g); },
                   [=](const Image&, int i) { return vtest::TruncClamp(std::pow(i / 255.0, g) * 255.0); });
    // Level clamps its parameters into their ranges (InputLow 0..253, InputHigh 2..255, Gamma 0.01..9.99,
    // outputs 0..255); a zero-width or reversed input range is a step from OutputLow to OutputHigh.
    for (auto [il, g, ih, ol, oh] : {std::tuple{30, 1.7, 220, 10, 240}, {300, 1.0, 255, 0, 255}, {10, 1.0, 1, 0, 255},
                                     {10, 0.0, 200, 0, 255}, {10, 50.0, 200, -9, 900}, {100, 1.0, 100, 20, 220}})
        CheckCurve("level", [=](auto... a) { Level(a..., il, g, ih, ol, oh); }, [=](const Image&, int i) {
            const int lo = std::clamp(il, 0, 253), hi = std::clamp(ih, 2, 255);
            const int bottom = std::clamp(ol, 0, 255), top = std::clamp(oh, 0, 255);
            const double t = std::pow(double(i - lo) / (hi - lo), 1 / std::clamp(g, 0.01, 9.99));
            const double v = i < lo ? bottom : i > hi ? top : i == lo ? bottom : t * (top - bottom) + bottom;
            return uint8_t(int(std::clamp(v, 0.0, 255.0)));
        });
    // Extreme offsets and contrasts (once signed overflows) clamp like any other.
    for (auto [b, c] : {std::pair{0, 0}, {20, 50}, {-30, 100}, {10, -40}, {0, 150}, {-5, 99}, {0, INT_MIN},
                        {INT_MAX, 0}, {INT_MAX, 50}, {INT_MIN, -50}, {INT_MAX, -1}, {7, INT_MAX}})
        CheckCurve("brightness " + std::to_string(b) + " contrast " + std::to_string(c),
                   [=](auto... a) { AdjustBrightnessAndContrast(a..., b, c); },
                   [=](const Image& src, int i) { return BrightnessContrastCurve(i, b, c, TopRowMean(src)); });
    // Refused calls of the raw forms (these and Threshold's) write nothing; two-byte rows are in the sweep below.
    const Image src = vtest::RandomImage(4, 4, 1);
    EXPECT_TRUE(vtest::WritesNothing(Image(4, 4, 1, 0, 77), {
        [&](uint8_t*) { GammaCorrection(src.data(), nullptr, 4, 4, 4, 2.0); },
        [&](uint8_t* d) { GammaCorrection(src.data(), d, 0, 4, 4, 2.0); },
        [&](uint8_t* d) { GammaCorrection(src.data(), d, 4, 4, 4, 0.0); },  // gamma 0
        [&](uint8_t* d) { Threshold(nullptr, d, 4, 4, 4, 9); },
        [&](uint8_t* d) { AdjustBrightnessAndContrast(d, d, 4, 4, 3, 10, 10); },  // Stride < Width
    }));
}

// Matrix forms over records with row padding, under every instruction set: Invert complements every byte,
// padding included, in place too (the record fills every vector width four times over, then once, then a tail).
// GammaCorrection1 maps grey rows whole and three-channel pixels only, and returns 0 even for a depth it
// rejects. Posterize splits evenly and rejects bad levels; Desaturate writes the mid-range grey, keeps alpha
// and returns the last level.
using MatrixForms = vtest::EveryIsa;
TEST_P(MatrixForms, InvertGammaPosterizeDesaturate) {
    Image inv = vtest::RandomImage(101, 5, 3, 3);
    const Image before = inv;
    Matrix m = vtest::MatrixOf(inv);
    EXPECT_EQ(Invert(&m, &m), STATUS_OK);
    for (size_t i = 0; i < inv.bytes.size(); ++i) ASSERT_EQ(inv.bytes[i], 255 - before.bytes[i]) << i;
    for (int c = 1; c <= 4; ++c) {
        Image src = vtest::RandomImage(5, 3, c, 3), dst(5, 3, c, 3, 1);
        Matrix s = vtest::MatrixOf(src), d = vtest::MatrixOf(dst);
        EXPECT_EQ(GammaCorrection1(&s, &d, 1.0), STATUS_OK);
        for (size_t i = 0; i < src.bytes.size(); ++i) {
            const bool mapped = c == 1 || (c == 3 && i % src.stride < 15);
            ASSERT_EQ(dst.bytes[i], mapped ? src.bytes[i] : 1) << "channel " << c << " byte " << i;
        }
        s.Depth = d.Depth = DEPTH_16S;
        EXPECT_EQ(GammaCorrection1(&s, &d, 2.0), STATUS_OK);
    }
    Image ramp(16, 16, 1), dst(16, 16, 1, 0, 9);
    for (int i = 0; i < 256; ++i) ramp.bytes[i] = uint8_t(i);
    Matrix s = vtest::MatrixOf(ramp), d = vtest::MatrixOf(dst);
    EXPECT_EQ(Posterize(&s, &d, 1), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(Posterize(&s, nullptr, 1), STATUS_NULL_REFERENCE);  // nulls are checked first
    EXPECT_TRUE(vtest::BytesEqual(Image(16, 16, 1, 0, 9).bytes, dst.bytes));
    EXPECT_EQ(Posterize(&s, &d, 2 + 256), STATUS_OK);  // only the low byte counts
    for (int i = 0; i < 256; ++i) ASSERT_EQ(dst.bytes[i], i < 128 ? 0 : 255);
    EXPECT_EQ(Posterize(&s, &d, 5), STATUS_OK);  // step 51, scale 63
    for (int i = 0; i < 256; ++i) ASSERT_EQ(dst.bytes[i], std::min(255, (i / 51) * 63));
    Image src = vtest::RandomImage(3, 2, 4), out(3, 2, 4, 0, 42);
    s = vtest::MatrixOf(src), d = vtest::MatrixOf(out);
    const int32_t last = Desaturate(&s, &d);
    int grey = -1;
    for (int p = 0; p < 6; ++p) {
        const uint8_t* b = &src.bytes[4 * p];
        grey = (std::max({b[0], b[1], b[2]}) + std::min({b[0], b[1], b[2]})) / 2;
        for (int k = 0; k < 4; ++k) EXPECT_EQ(out.bytes[4 * p + k], k < 3 ? grey : 42) << "pixel " << p;
    }
    EXPECT_EQ(last, grey);
    s.Channel = d.Channel = 2;  // one channel is refused in the preamble's own test
    EXPECT_EQ(Desaturate(&s, &d), STATUS_INVALID_PARAMETER);
}
VELOMAR_INSTANTIATE_EVERY_ISA(Isa, MatrixForms);

// Threshold: grey maps every byte of the buffer, padding included, by v > T;
// wider layouts walk the first 3 * Width bytes of each row as three-byte
// pixels whose sum is compared with 3 T. Exposal: of grey rows' Width bytes
// or other rows' 3 * Width, those above 127 become 255 - value, the rest keep
// what Dest holds. Soft glow: the blurred layer starts zeroed, is adjusted in
// place, then screen-blended over the source, three bytes per pixel. Rows
// shorter than three bytes per pixel (two bytes; grey for the glow) are not
// written by these walks. Contrast 100 thresholds at the mean: the lowest
// brightness makes every glow byte 0 (the source comes through), the highest
// every one 255 (without overflowing).
TEST(ThresholdExposalSoftGlow, MatchDirectRulesOnRandomLayouts) {
    for (int trial = 0; trial < 42; ++trial) {
        Image src = vtest::SweepImage(trial, {1, 3, 4, 3, 2, 3}, 60, 25, 49);
        const int t = std::array{-1, 0, 128, 200, 255, 400, vtest::RandomInt(0, 255)}[trial % 7];
        for (int k = 0; k < std::min(3, src.width * src.channels); ++k) src.bytes[k] = uint8_t(std::clamp(t, 0, 255));
        const bool grey = src.stride / src.width == 1;
        const int run = src.stride < 3 * src.width ? 0 : 3 * src.width;  // the three-byte walk
        EXPECT_TRUE(vtest::FilterMatches(src, [&](auto... a) { Threshold(a..., t); }, [&](std::vector<uint8_t> d) {
            for (size_t i = 0; grey && i < d.size(); ++i) d[i] = src.bytes[i] > t ? 255 : 0;
            vtest::EachRowByte(src, grey ? 0 : run, [&](size_t i) {
                const uint8_t* p = &src.bytes[i - i % src.stride % 3];  // the pixel's first byte
                d[i] = p[0] + p[1] + p[2] > 3 * t ? 255 : 0;
            });
            return d;
        })) << "threshold " << t;
        EXPECT_TRUE(vtest::FilterMatches(src, Exposal, [&](std::vector<uint8_t> d) {
            vtest::EachRowByte(src, grey ? src.width : run, [&](size_t i) {
                if (src.bytes[i] > 127) d[i] = uint8_t(255 - src.bytes[i]);
            });
            return d;
        }));
        const int sigma = vtest::RandomInt(0, 12), extreme = trial % 5 == 3;
        const int bright = extreme ? (trial % 2 ? INT_MAX : INT_MIN) : vtest::RandomInt(-60, 60);
        const int contrast = extreme ? 100 : vtest::RandomInt(-80, 100);
        auto glow = [&](std::vector<uint8_t> d) {
            std::vector<uint8_t> layer(src.bytes.size(), 0);
            velomar::GuassBlur(src.data(), layer.data(), src.width, src.height, src.stride, sigma);
            velomar::AdjustBrightnessAndContrast(layer.data(), layer.data(), src.width, src.height, src.stride, bright,
                                                 contrast);
            vtest::EachRowByte(src, run, [&](size_t i) {
                d[i] = uint8_t(src.bytes[i] + layer[i] - src.bytes[i] * layer[i] / 255);
            });
            return d;
        };
        EXPECT_TRUE(vtest::FilterMatches(src, [&](auto... a) { SoftGlow(a..., sigma, bright, contrast); }, glow))
            << " sigma " << sigma << " b " << bright << " c " << contrast;
    }
}

}  // namespace
