// Automatic corrections against a direct model: plain counting (so the
// histogram builders are checked through every correction), plain low/high
// search, a table built from the formulas and applied byte by byte with the
// applier's walk.
#include <array>
#include <cmath>

#include "adjust/adjust.h"
#include "common/suite.h"

namespace {

using Hist = std::array<uint32_t, 256>;
using Tab = std::array<uint8_t, 256>;
enum class Kind { Level, Contrast, Color, Equalize };

// Calls f(B, G, R) for every pixel of the three-byte walk (rows 3 * Width
// plus Stride % Width bytes apart), or f(v, v, v) for every counted grey byte
// (a Width of a multiple of four counts the padding too).
template <class F>
void Walk(const vtest::Image& r, F f) {
    const bool grey = r.stride / r.width == 1;
    const int run = grey ? (r.width % 4 ? r.width : r.stride) : r.width, next = grey ? 0 : 1;
    const size_t pitch = grey ? r.stride : 3 * r.width + r.stride % r.width;
    for (int y = 0; y < r.height; ++y)
        for (size_t x = 0, o = y * pitch; x < size_t(run); ++x, o += 1 + 2 * next)
            f(r.bytes[o], r.bytes[o + next], r.bytes[o + 2 * next]);
}

void LowHigh(const Hist& h, double T, int& low, int& high) {
    low = high = 0;
    double s = 0, z = 0;
    for (int i = 0; i < 256; ++i)
        if ((s += h[i]) >= T) { low = i; break; }
    for (int i = 255; i >= 0; --i)
        if ((z += h[i]) >= T) { high = i; break; }
}

Tab MakeTable(const Hist& h, int low, int high, bool autoGamma) {
    Tab t;
    if (high <= low) { t.fill(uint8_t(high)); return t; }
    double gamma = 1.0;
    if (autoGamma) {
        double n = 0, sum = 0;
        for (int i = 0; i < 256; ++i) n += h[i], sum += double(i) * h[i];
        const double ratio = ((n ? sum / n : 0.0) - low) / (high - low);
        gamma = ratio > 0 ? std::clamp(std::log(0.5) / std::log(ratio), 0.1, 10.0) : 0.1;  // non-positive: lower limit
    }
    for (int i = 0; i < 256; ++i)
        t[i] = i < low ? 0 : i > high ? 255 : uint8_t(std::clamp(
            int(std::pow(double(i - low) / (high - low), gamma) * 255.0), 0, 255));
    return t;
}

// The tables of each kind, applied with the curve applier's walk.
std::vector<uint8_t> Model(Kind kind, const vtest::Image& r, std::vector<uint8_t> d, double clip, bool autoGamma) {
    const int bytes = r.stride / r.width;
    if (bytes == 2) return d;  // the three-byte walk would leave the rows
    if (bytes == 1 && (kind == Kind::Contrast || kind == Kind::Color)) kind = Kind::Level, autoGamma = true;
    const double T = double(r.width * r.height) * clip;
    // One histogram per channel (green and red stay empty unless pixels are
    // exactly three bytes), and one of the luminance (Color) or of every
    // counted byte (Equalize).
    std::array<Hist, 3> h{};
    Hist one{};
    Walk(r, [&](int b, int g, int rd) {
        ++h[0][b];
        if (bytes == 3) ++h[1][g], ++h[2][rd];
        if (kind == Kind::Color) ++one[(b + 2 * g + rd) >> 2];
        if (kind == Kind::Equalize) ++one[b], one[g] += bytes != 1, one[rd] += bytes != 1;
    });
    std::array<Tab, 3> t{};
    int low, high, lo = 256, hi = -1;
    if (kind == Kind::Equalize) {
        double s = 0;
        for (int i = 0; i < 256; ++i) t[0][i] = uint8_t(int((s += one[i]) * 255.0 / (bytes * r.width * r.height)));
    } else if (kind != Kind::Level) {  // one curve: the luminance's range, or the channels' joint range over their sum
        for (int c = 0; kind == Kind::Contrast && c < 3; ++c) {
            LowHigh(h[c], T, low, high);
            lo = std::min(lo, low), hi = std::max(hi, high);
            for (int i = 0; i < 256; ++i) one[i] += h[c][i];
        }
        if (kind == Kind::Color) LowHigh(one, T, lo, hi);
        t[0] = MakeTable(one, lo, hi, autoGamma);
    }
    for (int c = 0; kind == Kind::Level && c < (bytes == 3 ? 3 : 1); ++c) {
        LowHigh(h[c], T, low, high);
        t[c] = MakeTable(h[c], low, high, autoGamma);
    }
    if (kind != Kind::Level) t[1] = t[2] = t[0];  // one table for every byte
    return vtest::ApplyCurves(r, d, t[0].data(), t[1].data(), t[2].data());
}

// The first trials: a fifth of the pixels black and the rest in 100..110, in
// grey and three bytes (with a 30% clip the low point lies above the mean, so
// the gamma's logarithm has a negative argument), then a constant grey picture.
// The sweep then takes every layout, four-byte rows (walked as triples) and
// grey rows of a Width that is a multiple of four with padding (counted, but
// not divided by) included; two-byte rows are not written.
vtest::Image TrialImage(int trial) {
    if (trial == 2) return vtest::Flat(vtest::RandomImage(13, 7, 1), 77);
    if (trial > 2) return vtest::SweepImage(trial, {1, 3, 4, 2}, 37, 19, 36);
    vtest::Image img = vtest::RandomImage(20, 10, 1 + 2 * trial, 1);
    vtest::EachSample(img, img.channels, [&](int x, int, int, size_t i) {
        img.bytes[i] = x < 4 ? 0 : 100 + img.bytes[i] % 11;
    });
    return img;
}

TEST(AutoAdjust, MatchesDirectModelOnRandomLayouts) {
    const double clips[] = {0.0, 0.001, 0.01, 0.05, 0.3, 0.7};
    const auto curves = std::array{AutoLevel, AutoContrast, AutoColor};  // in the order of Kind
    for (Kind kind : {Kind::Level, Kind::Contrast, Kind::Color, Kind::Equalize})
        for (int trial = 0; trial < 50 && !HasFailure(); ++trial) {
            const vtest::Image src = TrialImage(trial);
            const double clip = trial < 2 ? 0.3 : clips[trial % 6];
            const bool gamma = trial < 2 || trial % 4 < 2;
            EXPECT_TRUE(vtest::FilterMatches(
                src,
                [&](auto... a) { kind == Kind::Equalize ? HistEqualize(a...) : curves[int(kind)](a..., clip, gamma); },
                [&](auto d) { return Model(kind, src, d, clip, gamma); }))
                << "kind " << int(kind) << " clip " << clip << " gamma " << gamma;
        }
}

}  // namespace
