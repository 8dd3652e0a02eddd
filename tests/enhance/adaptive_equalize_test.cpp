// Adaptive tone mapping against a direct model: naive tile histograms and
// curves, and a blend that finds each pixel's band and weights on its own
// instead of walking the bands; the mirrored extension built separately.
#include <array>
#include <cmath>

#include "common/reference.h"

namespace {

using vtest::Image;
using vtest::RandomInt;
using Curve = std::array<int, 256>;

struct Shape {
    int w, h, stride;
};

// The counts clipped at `limit`, the excess spread below it; then the equalising curve.
void ClipAndEqualize(Curve& t, int limit) {
    long excess = 0;
    for (int v : t) excess += v > limit ? v - limit : 0;
    const long inc = excess / 256, upper = limit - inc;
    for (int& v : t) {
        if (v > limit) v = limit;
        else if (v > upper) excess -= limit - v, v = limit;
        else v += int(inc), excess -= inc;
    }
    for (long before = -1; excess > 0 && excess != before;) {
        before = excess;
        for (int start = 0; start < 256 && excess > 0; ++start) {
            const long step = std::max(256 / excess, 1L);
            for (long i = start; i < 256 && excess > 0; i += step)
                if (t[i] < limit) ++t[i], --excess;
        }
    }
    long total = 0, cum = 0;
    for (int v : t) total += v;
    for (int& v : t) cum += v, v = vtest::TruncI32(double(cum) * 255.0 / double(total));
}

void Level(Curve& t, double cut, double expand) {
    long total = 0;
    int lo = -1, hi = 255, low = 0, high = 255;
    for (int i = 0; i < 256; ++i) total += t[i], lo = lo < 0 && t[i] ? i : lo, hi = t[i] ? i : hi;
    const int mn = lo < 0 ? 0 : lo, mx = lo < 0 ? 255 : hi;
    long s = 0;
    for (int i = mn; i < 256; ++i)
        if (double(s += t[i]) >= double(total) * cut) { low = i; break; }
    s = 0;
    for (int i = 255; i >= 0; --i)
        if (double(s += t[i]) >= cut * double(total)) { high = i; break; }
    const int ext = int((mx - mn) * expand * 0.5), oh = std::clamp(mx + ext, 0, 255), ol = std::clamp(mn - ext, 0, 255);
    for (int i = 0; i < 256; ++i)
        t[i] = high == low ? high : i < low ? ol : i <= high ? (oh - ol) * (i - low) / (high - low) + ol : oh;
}

// Band of position p on an axis of `tiles` tiles of `size`: returns the
// offset within the band and sets its size and the two tiles it blends.
int Band(int p, int size, int tiles, int& extent, int& a, int& b) {
    const int first = (size + 1) >> 1;
    if (p < first) return extent = first, a = b = 0, p;
    const int k = (p - first) / size;  // full bands after the first one
    if (k >= tiles - 1) return extent = size >> 1, a = b = tiles - 1, p - first - (tiles - 1) * size;
    return extent = size, a = k, b = k + 1, (p - first) % size;
}

std::vector<uint8_t> Model(const uint8_t* src, std::vector<uint8_t> dst, Shape s, int tx, int ty, int mode,
                           int flag, double d1, double d2) {
    const int c = s.stride / s.w;
    if (c != 1 && c != 3) return dst;  // layouts without tiles are left alone
    const int tw = int(std::ceil(double(s.w) / tx)), th = int(std::ceil(double(s.h) / ty));
    if (tw * tx != s.w || th * ty != s.h) {
        const int w2 = tw * tx, h2 = th * ty, st2 = ((w2 * c * 8 + 31) / 32) * 4, px = (w2 - s.w) / 2, py = (h2 - s.h) / 2;
        std::vector<uint8_t> big(size_t(st2) * h2 + 3 * px + s.stride, 0);
        for (int r = 0; r < s.h; ++r) {
            std::copy_n(src + size_t(r) * s.stride, s.stride, &big[size_t(py + r) * st2 + px * c]);
            for (int k = 0; px && k < w2 - s.w - px; ++k)
                std::copy_n(src + size_t(r) * s.stride + (s.w - 1 - k) * c, c, &big[size_t(py + r) * st2 + (px + s.w + k) * c]);
            for (int k = 0; k < px; ++k)
                std::copy_n(src + size_t(r) * s.stride + (px - 1 - k) * c, c, &big[size_t(py + r) * st2 + k * c]);
        }
        for (int k = 0; py && k < h2 - s.h - py; ++k)
            std::copy_n(&big[size_t(py + s.h - 1 - k) * st2], st2, &big[size_t(py + s.h + k) * st2]);
        for (int k = 0; k < py; ++k) std::copy_n(&big[size_t(2 * py - 1 - k) * st2], st2, &big[size_t(k) * st2]);
        big = Model(big.data(), big, {w2, h2, st2}, tx, ty, mode, flag, d1, d2);
        for (int r = 0; r < s.h; ++r)
            std::copy_n(&big[size_t(py + r) * st2 + px * 3], s.stride, &dst[size_t(r) * s.stride]);
        return dst;
    }
    const bool sep = c == 3 && (mode == 1 || (mode == 0 && uint8_t(flag) == 1));
    const bool none = c == 3 && mode == 0 && uint8_t(flag) > 1;
    const long n = long(tw) * th * (c == 3 && uint8_t(flag) != 1 ? 3 : 1);
    const long base = long(std::ceil(n / 256.0)), limit = base + long((n - base) * d1);
    std::vector<std::array<Curve, 3>> tables(size_t(tx) * ty);  // value-initialised: zeros
    for (int t = 0; t < tx * ty && !none; ++t) {
        vtest::EachSample(Image(tw, th, c), c, [&](int x, int y, int k, size_t) {
            ++tables[t][sep ? k : 0][src[size_t(t / tx * th + y) * s.stride + (t % tx * tw + x) * c + k]];
        });
        for (int k = 0; k < (sep ? 3 : 1); ++k) {
            if (mode == 0) ClipAndEqualize(tables[t][k], int(limit));
            else Level(tables[t][k], d1, d2);
        }
    }
    vtest::EachSample(Image(s.w, s.h, c, s.stride - s.w * c), c, [&](int x, int y, int k, size_t i) {
        int bw, bh, l, r, u, d;
        const int bx = Band(x, tw, tx, bw, l, r), by = Band(y, th, ty, bh, u, d);
        const int v = src[i], ch = sep ? k : 0;
        const long top = long(tables[u * tx + r][ch][v]) * bx + long(tables[u * tx + l][ch][v]) * (bw - bx);
        const long bottom = long(tables[d * tx + r][ch][v]) * bx + long(tables[d * tx + l][ch][v]) * (bw - bx);
        dst[i] = uint8_t((top * (bh - by) + bottom * by) / (long(bw) * bh));
    });
    return dst;
}

// Every tenth picture is constant.
TEST(AdaptiveTileMapping, MatchesDirectModelWholeAndExtendedGrids) {
    for (int trial = 0; trial < 150 && !HasFailure(); ++trial) {
        const int mode = trial % 3, c = trial % 2 ? 3 : 1;
        // The last two trials (grey and colour) take two tiles across 601 x 451
        // pixels: a band over 65536 pixels (301 x 226) takes the double-precision quotient.
        const bool big = trial >= 148;
        const int tx = big ? 2 : RandomInt(1, 5), ty = big ? 1 : RandomInt(1, 5);
        // Every other trial a side that is a whole number of tiles; trial 18
        // (grey, equalised, CutLimit -0.4) has tiles of 2 x 2 pixels.
        const int w = big ? 601 : trial == 18 ? 2 * tx
                                : trial % 4 < 2 ? tx * RandomInt(1, 9) : RandomInt(tx, 40);
        const int h = big ? 451 : trial == 18 ? 2 * ty
                                : trial % 4 < 2 ? ty * RandomInt(1, 9) : RandomInt(ty, 30);
        const int pad = c == 1 ? RandomInt(0, std::min(w - 1, 3)) : RandomInt(0, 3);
        const Image noise = trial % 3 ? vtest::RandomSmoothImage(w, h, c, pad) : vtest::RandomImage(w, h, c, pad);
        const Image src = trial % 10 == 7 ? vtest::Flat(noise, 77) : noise;
        const int flag = mode == 0 ? std::array{0, 1, 257, 2}[trial / 3 % 4] : mode == 1;
        // A CutLimit below 0 clips every count to the limit; on four-pixel
        // tiles that limit is 0, the curves 0 / 0 (the most negative integer):
        // the exact integer blend instead of the floating-point quotient.
        const double d1 = mode ? std::array{0.0, 0.01, 0.2}[trial / 3 % 3] : std::array{0.0, 0.02, 0.3, 1.0, -0.4}[trial / 2 % 5];
        const double d2 = std::array{0.0, 0.5, 3.0}[trial / 5 % 3];
        auto filter = [&](auto... a) {  // modes 1 and 2 take the same arguments
            mode ? (mode == 1 ? AdaptAutoLevel : AdaptAutoContrast)(a..., tx, ty, d1, d2) : AdaptEqualize(a..., tx, ty, d1, flag);
        };
        EXPECT_TRUE(vtest::FilterMatches(src, filter, [&](std::vector<uint8_t> d) {
            return Model(src.data(), d, {w, h, src.stride}, tx, ty, mode, flag, d1, d2);
        })) << "mode " << mode << " tiles " << tx << "x" << ty << " flag " << flag << " d1 " << d1 << " d2 " << d2;
    }
}

}  // namespace
