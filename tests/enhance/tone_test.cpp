// Contrast, tone and skin filters against their (separately tested) building
// blocks, with curves, gains, log differences and stretches written out
// directly; the refusals of every enhancement export.
#include <cmath>

#include "common/suite.h"
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

// The one-byte path: each byte v becomes 255 (v / 255)^(1 - weighted cdf(v)).
Image Gamma(Image plane, double alpha) {
    std::vector<double> pdf(256);
    for (uint8_t v : plane.bytes) pdf[v] += 1;
    for (double& p : pdf) p /= double(plane.bytes.size());
    const double lo = *std::min_element(pdf.begin(), pdf.end()), hi = *std::max_element(pdf.begin(), pdf.end());
    std::vector<uint8_t> curve(256, plane.bytes[0]);  // a flat distribution: every byte the first one
    std::vector<double> w(256);
    double sum = 0, cdf = 0;
    for (int i = 0; lo < hi && i < 256; ++i) sum += w[i] = hi * std::pow((pdf[i] - lo) / (hi - lo), alpha);
    for (int i = 0; lo < hi && i < 256; ++i)
        curve[i] = vtest::TruncClamp(255 * std::pow(i / 255.0, 1 - (cdf += w[i]) / sum));
    for (uint8_t& v : plane.bytes) v = curve[v];
    return plane;
}

// Dest with the value plane (the largest of each pixel's three bytes) through
// `value`, each pixel rebuilt from its hue (in sextants, ties to red, then
// green) and saturation with the new value, by sextant, bytes truncated (no
// saturation leaves the new value in all three).
template <class F>
std::vector<uint8_t> ThroughHsvValue(const Image& src, std::vector<uint8_t> d, F value) {
    const Image b = vtest::PlaneOf(src, 3, 0), g = vtest::PlaneOf(src, 3, 1), r = vtest::PlaneOf(src, 3, 2);
    Image v = b;
    for (size_t i = 0; i < v.bytes.size(); ++i) v.bytes[i] = std::max({b.bytes[i], g.bytes[i], r.bytes[i]});
    const Image out = value(v);
    vtest::EachSample(v, 1, [&](int x, int y, int, size_t i) {
        const double B = b.bytes[i], G = g.bytes[i], R = r.bytes[i], mx = v.bytes[i], dl = mx - std::min({B, G, R});
        const double H = dl == 0 ? 0 : mx == R ? (G - B) / dl : mx == G ? (B - R) / dl + 2 : (R - G) / dl + 4;
        const double S = dl == 0 ? 0 : dl / mx, h = H < 0 ? H + 6 : H, f = h - int(h), V = out.bytes[i];
        const double p = V * (1 - S), q = V * (1 - S * f), t = V * (1 - S * (1 - f));
        const double bgr[6][3] = {{p, t, V}, {p, V, q}, {t, V, p}, {V, q, p}, {V, p, t}, {q, p, V}};
        for (int k = 0; k < 3; ++k) d[vtest::Offset(src, x, y, 3, k)] = uint8_t(vtest::TruncI32(bgr[int(h)][k]));
    });
    return d;
}

std::vector<double> Scales(double sigma, int n) {
    std::vector<double> s = n == 1 ? std::vector{sigma} : n == 2 ? std::vector{0.5 * sigma, sigma} : std::vector<double>{};
    for (int i = 0; n > 2 && i < n; ++i) s.push_back(2.0 + i * (sigma / n));
    return s;
}

// Mean over the scales of ln(v + 1) - ln(blur + 1) at every byte, stretched channel
// by channel (grey, or three bytes a pixel) by its mean and deviation, written over d.
Image DirectRetinex(Image in, std::vector<uint8_t> d, double sigma, int scales, double dynamic) {
    const std::vector<double> sigmas = Scales(sigma, scales);
    const int c = in.stride / in.width == 1 ? 1 : 3;
    const double n = double(in.width) * in.height;
    std::vector<double> acc(in.bytes.size(), 0.0);
    for (double s : sigmas) {
        std::vector<uint8_t> blur = in.bytes;
        GuassBlur(in.data(), blur.data(), in.width, in.height, in.stride, s);
        for (size_t i = 0; i < acc.size(); ++i)
            acc[i] += (std::log(in.bytes[i] + 1.0) - std::log(blur[i] + 1.0)) * (1.0 / scales);
    }
    double sum[3] = {}, sq[3] = {};
    vtest::EachSample(in, c, [&](int, int, int k, size_t i) { sum[k] += acc[i]; });
    vtest::EachSample(in, c, [&](int, int, int k, size_t i) { sq[k] += std::pow(acc[i] - sum[k] / n, 2); });
    vtest::EachSample(in, c, [&](int, int, int k, size_t i) {
        const double sd = std::sqrt(sq[k] / n), lo = sum[k] / n - dynamic * sd, range = (sum[k] / n + dynamic * sd) - lo;
        d[i] = vtest::TruncClamp((acc[i] - lo) * (255 / (range == 0 ? 1.0 : range)));
    });
    in.bytes = d;
    return in;
}

// The skin smoothing composed from its building blocks; Dest starts as a copy
// of the whole source buffer, row padding included.
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
                 : mode == 1 ? uint8_t(std::clamp(i - std::trunc(-0.667 * (10.0 * amount) * (1 - x * x)), 0.0, 255.0))
                             : uint8_t(i);
    }
    if (mode != 0 || amount != -2)  // base 0: no lift at all
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

// Lee stretches the box mean (in place over 0..255, the range ignored); detail
// enhancement amplifies the guided filter's detail; LSD's gain follows the
// local deviation, grey pixels taking the bytes Dest held as their means.
// Adaptive gamma's trial 16 holds every value once in each plane: a flat
// histogram. Exposure blending weighs the exposures by the smoothed picture;
// tone mapping (three bytes a pixel) compresses the log base layer. Retinex: a
// constant picture (every fifth) has no spread, and Dynamic 0 (every sixth) no
// range: the stretch then divides by 1; every eighth takes 10 scales, more
// than are kept as bytes.
TEST(ToneSweep, ContrastHdrRetinexAndSkinMatchDirectModels) {
    EXPECT_EQ(Scales(90, 3), (std::vector<double>{2, 32, 62}));  // the worked example's spacing
    Image ramp(16, 16, 3);
    for (size_t i = 0; i < ramp.bytes.size(); ++i) ramp.bytes[i] = uint8_t(i / 3 * 7 + i % 3 * 50 + 3);
    for (int trial = 0; trial < 24 && !HasFailure(); ++trial) {
        const Image noise = vtest::SweepImage(trial, {1, 3, 4}, 40, 30);
        const Image src = trial % 5 == 4 ? vtest::Flat(noise, 140) : noise;
        const int w = src.width, h = src.height, c = src.channels;
        const int r = RandomInt(0, 6), amount = trial == 0 ? 100 : RandomInt(-100, 400);
        int lo = RandomInt(-20, 150), hi = trial % 4 == 3 ? lo - RandomInt(0, 5) : RandomInt(lo + 1, 280);
        if (trial == 1) lo = INT32_MIN + 1, hi = INT32_MAX;  // the whole 32-bit range once overflowed
        auto lee = [&](auto... a) { LeeContrastEnhancement(a..., r, amount, lo, hi); };
        EXPECT_TRUE(vtest::FilterMatches(src, lee, [&](std::vector<uint8_t> box) {
            const int64_t low = box == src.bytes ? 0 : lo, high = box == src.bytes ? 255 : hi;
            BoxBlur(src.data(), box.data(), w, h, src.stride, r, 0);
            return Amplified(src, box, amount, [&](int m) {
                return int(high <= low ? 127 : m < low ? 0 : m > high ? 255 : (m - low) * 255 / (high - low));
            });
        })) << "Lee range " << lo << ".." << hi << " amount " << amount;
        const int scales = trial % 8 == 7 ? 10 : RandomInt(1, 4);
        const double sigma = RandomInt(1, 60), dynamic = trial % 6 == 5 ? 0.0 : RandomInt(1, 30) / 10.0;
        for (int hsv : {0, 1}) {  // every byte, or the HSV value plane
            auto retinex = [&](auto... a) { (hsv ? MSRHSV : MSRCRGIMP)(a..., sigma, scales, dynamic); };
            EXPECT_TRUE(vtest::FilterMatches(src, retinex, [&](std::vector<uint8_t> d) {
                if (!hsv) return DirectRetinex(src, d, sigma, scales, dynamic).bytes;
                if (c == 1) return d;  // grey rows cannot hold three-byte pixels: nothing is written
                return ThroughHsvValue(src, d, [&](auto& v) { return DirectRetinex(v, v.bytes, sigma, scales, dynamic); });
            })) << " hsv " << hsv << " scales " << scales << " sigma " << sigma;
        }
        if (c == 4) continue;
        auto detail = [&](auto... a) { DetailEnhanceByEdgePreseveingFilter(a..., r, amount); };
        EXPECT_TRUE(vtest::FilterMatches(src, detail, [&](std::vector<uint8_t> base) {
            GuidedFilter(src.data(), src.data(), base.data(), src.width, src.height, src.stride, r, double(0.01f));
            return Amplified(src, base, amount, [](int b) { return b; });
        })) << "detail amount " << amount;
        const int lsdAmount = RandomInt(0, 300), maxGain = RandomInt(1, 6);
        const vtest::LocalStats stats = vtest::DirectLocalStats(src, r, 1, c);
        double alpha[3] = {};
        for (int k = 0; k < c; ++k) {
            // The grey histogram counts whole rows, padding included, when Width is a multiple of 4.
            const bool rows = c == 1 && src.width % 4 == 0;
            std::vector<uint32_t> count(256);
            vtest::EachRowByte(src, rows ? src.stride : src.width * c,
                               [&](size_t i) { count[src.bytes[i]] += rows || i % src.stride % c == size_t(k); });
            const double n = double(src.width) * src.height;
            double sum = 0, squares = 0;
            for (int i = 0; i < 256; ++i) sum += double(count[i]) * i;
            for (int i = 0; i < 256; ++i) squares += count[i] * ((i - sum / n) * (i - sum / n));
            alpha[k] = std::sqrt(squares / n) * lsdAmount / 100;
        }
        auto lsd = [&](auto... a) { LSDContrastEnhancement(a..., r, lsdAmount, maxGain); };
        EXPECT_TRUE(vtest::FilterMatches(src, lsd, [&](std::vector<uint8_t> out) {
            vtest::EachRowByte(src, src.width * c, [&](size_t i) {
                const int m = c == 1 ? out[i] : int(stats.mean[i]);  // each byte read before it is written
                const double gain = std::min(alpha[i % src.stride % c] / std::sqrt(stats.variance[i] + 1.0), double(maxGain));
                out[i] = vtest::TruncClamp((src.bytes[i] - m) * gain + m);
            });
            return out;
        })) << "LSD amount " << lsdAmount << " gain " << maxGain;
        const Image shadows = vtest::DestFor(src, 0xA5), highlights = vtest::DestFor(src, 0x11);
        auto blend = [&](const uint8_t* s, uint8_t* d, auto... a) {
            HdrBasedOnExposureBlending(s, shadows.data(), highlights.data(), d, a..., r);
        };
        EXPECT_TRUE(vtest::FilterMatches(src, blend, [&](std::vector<uint8_t> out) {
            std::vector<uint8_t> smooth(out.size());
            GuidedFilter(src.data(), src.data(), smooth.data(), w, h, src.stride, r, 0.01);
            vtest::EachRowByte(src, w * src.channels, [&](size_t i) {
                const double weight = std::exp(-4 * std::pow(smooth[i] - 127.5, 2) / 16256.25);
                const int s = src.bytes[i], o = s > 127 ? highlights.bytes[i] : shadows.bytes[i];
                out[i] = vtest::TruncClamp(o * (1 - weight) + s * weight);
            });
            return out;
        }));
        // Sides of 200 and more make every size-scaled radius count; each type
        // (0 to 5, and 9: none) takes small and wide pictures. Trials 4 and 6 lift
        // by the extreme amounts (the lift once overflowed), trial 7 by the logarithm
        // of base 0, which skips the lift; level 0 (trials 3 and 13) neither
        // smooths nor sharpens.
        const Image skin = trial < 12 ? src
                                      : vtest::RandomSmoothImage(RandomInt(200, 230), RandomInt(8, 20), c, RandomInt(0, 3));
        const int type = std::array{0, 1, 2, 3, 4, 5, 9}[(trial - trial / 3) % 7];
        const int level = trial == 3 || trial == 13 ? 0 : RandomInt(1, 10);
        const int mode = trial == 4 || trial == 6 ? 1 : trial == 7 ? 0 : RandomInt(0, 2);
        const int lift = trial == 4 ? INT32_MAX : trial == 6 ? INT32_MIN : trial == 7 ? -2 : RandomInt(-1, 8);
        auto derm = [&](auto... a) { DermabrasionFilter(a..., type, mode, level, lift); };
        EXPECT_TRUE(vtest::FilterMatches(skin, derm, [&](auto&) { return DirectDermabrasion(skin, type, mode, level, lift); }))
            << " type " << type << " mode " << mode << " level " << level << " amount " << lift;
        if (c == 1) continue;
        const Image& colour = trial == 16 ? ramp : src;
        const double exponent = 0.2 + 0.3 * (trial / 3);
        auto curved = [&](const Image& plane, auto...) { return Gamma(plane, exponent); };
        for (uint8_t hsv : {0, 1}) {
            auto gamma = [&](auto... a) { AdaptiveGammaCorrection(a..., exponent, hsv); };
            EXPECT_TRUE(vtest::FilterMatches(colour, gamma, [&](std::vector<uint8_t> d) {
                return hsv ? ThroughHsvValue(colour, d, curved) : vtest::EachPlane(colour, d, 3, curved);
            })) << " hsv " << int(hsv) << " alpha " << exponent;
        }
        Image dim = src;
        dim.at(0, 0, 0) = dim.at(0, 0, 1) = 0;  // no intensity: the pixel keeps its red
        std::vector<double> I(size_t(w) * h), base = I;
        vtest::EachSample(dim, 1, [&](int x, int y, int, size_t) {
            const double g = dim.at(x, y, 1) * 0.00392156862745098, b = dim.at(x, y, 0) * 0.00392156862745098;
            I[size_t(y) * w + x] = (g * 40 + b * 20 + b) * 0.01639344262295082;
        });
        velomar::GuidedFilterCore(I.data(), I.data(), base.data(), w, h, r + 1, 0.01);
        for (double& b : base) b = std::log10(b + 0.00001);
        const double top = *std::max_element(base.begin(), base.end()), bottom = *std::min_element(base.begin(), base.end());
        const double gamma = top > bottom ? std::log10(5.0) / (top - bottom) : 0;
        auto toneMap = [&](auto... a) { HdrBasedOnGuiderFilter(a..., r + 1); };
        EXPECT_TRUE(vtest::FilterMatches(dim, toneMap, [&](std::vector<uint8_t> d) {
            vtest::EachSample(dim, 3, [&](int x, int y, int, size_t at) {
                const size_t i = size_t(y) * w + x;
                const double logI = base[i] * gamma + (std::log10(I[i] + 0.00001) - base[i]) - top * gamma;
                const double ratio = I[i] == 0 ? 1 : std::pow(10.0, logI) / I[i];
                d[at] = vtest::TruncClamp(dim.bytes[at] * 0.00392156862745098 * ratio * 255.0 + 0.5);
            });
            EXPECT_EQ(d[2], dim.bytes[2]);
            return d;
        }));
    }
    Image black(6, 4, 3), bright(6, 4, 3, 0, 200), out(6, 4, 3);  // weight exp(-4): 98 % of the brighter exposure
    HdrBasedOnExposureBlending(black.data(), bright.data(), out.data(), out.data(), 6, 4, 18, 2);
    EXPECT_TRUE(vtest::BytesEqual(Image(6, 4, 3, 0, 196).bytes, out.bytes));
    Image flat(9, 7, 3, 0, 90), lifted(9, 7, 3);  // a constant base: lifted to full intensity
    HdrBasedOnGuiderFilter(flat.data(), lifted.data(), 9, 7, 27, 3);
    EXPECT_TRUE(vtest::BytesEqual(Image(9, 7, 3, 0, 255).bytes, lifted.bytes));
}

// Every enhancement export's refusals: null images, bad radii, levels beyond
// 0..10, no scale, no blocks or tiles, a NaN clipping weight, a scale without
// pixels, a tile grid whose mirrored border leaves the image, two bytes per
// pixel (Stride 2 Width + 1 or 2 Width), and four where three are required
// (Width 15 over rows of 62 bytes): nothing is written.
TEST(EnhanceFilters, RejectedCallsWriteNothing) {
    const Image src = vtest::Flat(vtest::RandomImage(20, 12, 3, 2), 140);
    const uint8_t* s = src.data();
    EXPECT_TRUE(vtest::WritesNothing(vtest::DestFor(src), {
        [&](uint8_t* d) { LeeContrastEnhancement(nullptr, d, 20, 12, 62, 1, 100, 0, 255); },
        [&](uint8_t* d) { LeeContrastEnhancement(s, d, 20, 12, 62, -1, 100, 0, 255); },
        [&](uint8_t* d) { DetailEnhanceByEdgePreseveingFilter(s, d, 20, 0, 62, 1, 100); },
        [&](uint8_t* d) { LSDContrastEnhancement(s, d, 20, 12, 40, 1, 100, 3); },
        [&](uint8_t* d) { AdaptiveGammaCorrection(s, d, 20, 12, 40, 1.0, 1); },
        [&](uint8_t* d) { DermabrasionFilter(s, d, 20, 12, 62, 1, 0, 11, 3), DermabrasionFilter(s, d, 20, 12, 62, 1, 0, -1, 3); },
        [&](uint8_t* d) { HdrBasedOnGuiderFilter(s, d, 20, 12, 62, -1); },
        [&](uint8_t* d) { HdrBasedOnExposureBlending(s, nullptr, s, d, 20, 12, 62, 2), MSRCRGIMP(s, d, 20, 12, 62, 40, 0, 2); },
        [&](uint8_t* d) { MSRHSV(s, d, 20, 12, 62, 40, -1, 2), MSRHSV(s, d, 20, 12, 41, 40, 3, 2); },
        [&](uint8_t* d) { HazeRemovalBasedonContrastEnhancement(s, d, 20, 12, 62, 0, 5.0, 4); },
        [&](uint8_t* d) { HazeRemovalBasedonContrastEnhancement(s, d, 20, 12, 62, 8, NAN, 4); },
        [&](uint8_t* d) { HazeRemovalBasedonContrastEnhancement(s, d, 20, 12, 40, 8, 5.0, 4); },
        [&](uint8_t* d) { HazeRemovalBasedOnDarkChannelPrior(s, d, 20, 12, 62, 0.0); },
        [&](uint8_t* d) { HazeRemovalBasedOnDarkChannelPrior(nullptr, d, 20, 12, 62, 1.0); },
        [&](uint8_t* d) { HazeRemovalBasedOnBoxBlur(s, d, 20, 12, 62, -1, 1.0); },
        [&](uint8_t* d) { AutoWhiteBalanceUseStandardGrayWorldModel(s, d, 15, 12, 62); },
        [&](uint8_t* d) { AutoWhiteBalanceUseReflectorTheory(s, d, 20, 12, 40, 5); },
        [&](uint8_t* d) { AutoWhiteBalanceUseDynamicThreshold(s, d, 15, 12, 62, 0, 0, 0); },
        [&](uint8_t* d) { AutoWhiteBalanceUseDynamicThreshold(nullptr, d, 15, 12, 62, 8, 0, 0); },
        [&](uint8_t* d) { AdaptEqualize(s, d, 20, 12, 62, 0, 2, 0.5, 1); },
        [&](uint8_t* d) { AdaptAutoLevel(s, d, 20, 12, 62, 2, -1, 0.1, 0.0); },
        [&](uint8_t* d) { AdaptAutoLevel(s, d, 20, 12, 40, 2, 2, 0.1, 0.0); },
        [&](uint8_t* d) { AdaptAutoContrast(nullptr, d, 20, 12, 62, 2, 2, 0.1, 0.0); },
        [&](uint8_t* d) { AdaptEqualize(s, d, 20, 12, 62, 100, 2, 0.5, 1); },
        [&](uint8_t* d) { AdaptEqualize(s, d, 20, 12, 62, 2, 40, 0.5, 1); },
    }));
}

}  // namespace
