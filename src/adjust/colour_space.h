// Colour spaces: per-pixel conversions between blue-green-red bytes and the
// spaces the adjustments and enhancements work in. One home for each, so
// that every filter converting to a space converts the same way.
#pragma once

#include <algorithm>
#include <cmath>

#include "core/core.h"

namespace velomar {

// Luminance of a blue-green-red pixel as the histogram adjustments weigh it:
// (B + 2 G + R) / 4, truncated.
inline int32_t Luminance(int32_t B, int32_t G, int32_t R) { return (B + 2 * G + R) >> 2; }

// Full-range luma/chroma (JPEG's), in 20-bit fixed point: each pixel's three
// bytes become Y, Cb + 128 and Cr + 128, each the low 8 bits of its rounded,
// shifted sum (so a chroma of +128 wraps to 0: the defined storage). Src and
// Dest rows hold Width three-byte pixels; they may be the same row.
inline void ConvertRowToYCbCr(int32_t Width, uint8_t* Dest, const uint8_t* Src) {
    for (int32_t x = 0; x < Width; ++x, Src += 3, Dest += 3) {
        const int32_t B = Src[0], G = Src[1], R = Src[2];
        const int32_t y = (313524 * R + 615514 * G + 119538 * B + 524288) >> 20;
        const int32_t cb = ((-176932 * R - 347354 * G + 524288 * B + 524288) >> 20) + 128;
        const int32_t cr = ((524288 * R - 439025 * G - 85261 * B + 524288) >> 20) + 128;
        Dest[0] = static_cast<uint8_t>(y);
        Dest[1] = static_cast<uint8_t>(cb);
        Dest[2] = static_cast<uint8_t>(cr);
    }
}

// HSV rows: three doubles per pixel, H in sextants (0 <= H < 6), S in 0..1,
// V in 0..255 (the largest byte). Grey pixels get H = S = 0; ties between the
// largest bytes favour red, then green.
inline void RowBgrToHsv(int32_t Width, const uint8_t* Src, double* Hsv) {
    for (int32_t x = 0; x < Width; ++x, Src += 3, Hsv += 3) {
        const int32_t B = Src[0], G = Src[1], R = Src[2];
        const int32_t max = std::max({B, G, R}), min = std::min({B, G, R}), delta = max - min;
        double h = 0, s = 0;
        if (max != 0 && delta != 0) {
            if (max == R)
                h = double(G - B) / delta;
            else if (max == G)
                h = double(B - R) / delta + 2;
            else
                h = double(R - G) / delta + 4;
            if (h < 0) h += 6;
            s = double(delta) / max;
        }
        Hsv[0] = h;
        Hsv[1] = s;
        Hsv[2] = max;
    }
}

// Back to blue, green, red bytes, each value truncated without clamping; a
// hue outside 0..6 leaves its pixel unwritten.
inline void RowHsvToBgr(int32_t Width, const double* Hsv, uint8_t* Dest) {
    auto byte = [](double v) { return static_cast<uint8_t>(TruncToInt(v)); };
    for (int32_t x = 0; x < Width; ++x, Hsv += 3, Dest += 3) {
        const double H = Hsv[0], S = Hsv[1], V = Hsv[2];
        if (S == 0) {
            Dest[0] = Dest[1] = Dest[2] = byte(V);
            continue;
        }
        const int32_t i = TruncToInt(H);
        const double f = H - i, p = V * (1 - S), q = V * (1 - S * f), t = V * (1 - S * (1 - f));
        double r, g, b;
        switch (i) {
            case 0: r = V, g = t, b = p; break;
            case 1: r = q, g = V, b = p; break;
            case 2: r = p, g = V, b = t; break;
            case 3: r = p, g = q, b = V; break;
            case 4: r = t, g = p, b = V; break;
            case 5: r = V, g = p, b = q; break;
            default: continue;
        }
        Dest[0] = byte(b);
        Dest[1] = byte(g);
        Dest[2] = byte(r);
    }
}

// Logarithmic l-alpha-beta space (through LMS cone responses), where colour
// statistics transfer channel by channel.
struct Lab {
    double l, alpha, beta;
};

inline Lab BgrToLab(int32_t B, int32_t G, int32_t R) {
    // The +1 keeps the logarithms finite.
    const double b = (B + 1) / 256.0, g = (G + 1) / 256.0, r = (R + 1) / 256.0;
    const double L = 0.3811 * r + 0.5783 * g + 0.0402 * b;
    const double M = 0.1967 * r + 0.7244 * g + 0.0782 * b;
    const double S = 0.0241 * r + 0.1288 * g + 0.8444 * b;
    const double lnL = std::log(L), lnM = std::log(M), lnS = std::log(S);
    return {0.5774 * (lnL + lnM + lnS), 0.4082 * (lnL + lnM) - 0.8164 * lnS,
            0.7071 * (lnL - lnM)};
}

// An l-alpha-beta colour back to blue, green, red bytes (truncated, then
// clamped).
inline void LabToBgr(double l, double alpha, double beta, uint8_t* d) {
    const double L = std::exp(0.5774 * l + 0.4082 * alpha + 0.7071 * beta);
    const double M = std::exp(0.5774 * l + 0.4082 * alpha - 0.7071 * beta);
    const double S = std::exp(0.5774 * l - 0.8164 * alpha);
    const double B = (0.0497 * L - 0.2439 * M + 1.2045 * S) * 255.0 - 0.5;
    const double G = (-1.2186 * L + 2.3809 * M - 0.1624 * S) * 255.0 - 0.5;
    const double R = (4.4679 * L - 3.5873 * M + 0.1193 * S) * 255.0 - 0.5;
    d[0] = TruncClampByte(B);
    d[1] = TruncClampByte(G);
    d[2] = TruncClampByte(R);
}

}  // namespace velomar
