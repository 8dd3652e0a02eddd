// Haze removal: the haze model I = J t + A (1 - t) inverted with a
// transmission t from the dark channel (refined by a guided filter, bright
// flat regions treated as sky), from a box-blurred dark channel, or chosen
// block by block for the most contrast at a bounded loss of clipped values.
#include <algorithm>
#include <cmath>

#include "adjust/adjust.h"
#include "adjust/colour_space.h"
#include "blur/blur.h"
#include "enhance/enhance.h"
#include "sharpen/sharpen.h"
#include "smooth/smooth.h"
#include "statistics/statistics.h"

namespace velomar {

namespace {

constexpr size_t kTableSize = 65536;

// The guided refinement's regularisation: the single-precision 0.01 widened.
constexpr double kHazeEps = double(0.01f);

// Minimum of the three bytes of every pixel into Dark (rows Width apart);
// returns their sum.
int64_t DarkChannel(const uint8_t* Src, int32_t Width, int32_t Height, int32_t Stride, uint8_t* Dark) {
    int64_t sum = 0;
    for (int32_t y = 0; y < Height; ++y) {
        const uint8_t* p = Src + size_t(y) * Stride;
        uint8_t* d = Dark + size_t(y) * Width;
        for (int32_t x = 0; x < Width; ++x, p += 3) {
            d[x] = std::min({p[0], p[1], p[2]});
            sum += d[x];
        }
    }
    return sum;
}

// Bilinear sample of one channel: fx, fy are the 8-bit weights of the right
// and lower neighbours.
inline uint8_t Bilinear(int32_t TL, int32_t TR, int32_t BL, int32_t BR, int32_t fx, int32_t fy) {
    return static_cast<uint8_t>(((BR * fx + BL * (256 - fx)) * fy + (TR * fx + TL * (256 - fx)) * (256 - fy)) >> 16);
}

// 16.16 step of an axis resized from n to m, with one unit added.
inline int64_t ResizeStep(int32_t n, int32_t m) { return (int64_t(n) << 16) / m + 1; }

void RecoverWithTables(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                       const uint8_t* T, const uint8_t* Tables) {
    for (int32_t y = 0; y < Height; ++y) {
        const uint8_t* s = Src + size_t(y) * Stride;
        uint8_t* d = Dest + size_t(y) * Stride;
        const uint8_t* t = T + size_t(y) * Width;
        for (int32_t x = 0; x < Width; ++x)
            for (int32_t k = 0; k < 3; ++k)
                d[3 * x + k] = Tables[k * kTableSize + size_t(s[3 * x + k]) * 256 + t[x]];
    }
}

// The guided filter refines a transmission map: the map scaled to 0..1 is
// filtered with the pixel sums scaled to 0..0.75 as the guide (the
// single-precision 1/255 and 1/1020), and the result truncated back to bytes.
void RefineTransmission(const uint8_t* Src, int32_t Width, int32_t Height, int32_t Stride, uint8_t* T,
                        int32_t Radius, double Eps) {
    const size_t n = size_t(Width) * Height;
    Buffer<double> p(n), guide(n);
    for (int32_t y = 0; y < Height; ++y) {
        const uint8_t* s = Src + size_t(y) * Stride;
        for (int32_t x = 0; x < Width; ++x, s += 3) {
            const size_t i = size_t(y) * Width + x;
            p[i] = T[i] * double(1.0f / 255);
            guide[i] = (s[0] + s[1] + s[2]) * double(1.0f / 1020);
        }
    }
    GuidedFilterCore(p.data(), guide.data(), p.data(), Width, Height, Radius, Eps);
    for (size_t i = 0; i < n; ++i) T[i] = TruncClampByte(p[i] * 255.0);
}

// Atmospheric light: the mean colour of the sky pixels (mask above 196) when
// they cover 20 to 80 percent of the image, else of the pixels whose dark
// value is among the brightest 1 percent. Each channel at most 255.
void AtmosphericLight(const uint8_t* Src, int32_t Width, int32_t Height, int32_t Stride, const uint8_t* Dark,
                      const uint8_t* Mask, int32_t A[3]) {
    const double n = double(Width) * Height;
    int64_t sum[3], count;
    auto meanOf = [&](auto take) {
        sum[0] = sum[1] = sum[2] = count = 0;
        for (int32_t y = 0; y < Height; ++y) {
            const uint8_t* s = Src + size_t(y) * Stride;
            for (int32_t x = 0; x < Width; ++x, s += 3) {
                if (!take(size_t(y) * Width + x)) continue;
                for (int32_t k = 0; k < 3; ++k) sum[k] += s[k];
                ++count;
            }
        }
    };
    meanOf([&](size_t i) { return Mask[i] > 196; });
    if (count < 0.2 * n || count > 0.8 * n) {
        uint32_t hist[256];
        ComputeChannelHistograms(Dark, Width, Height, Width, hist, nullptr, nullptr);
        int32_t D = 255;
        for (uint64_t accumulated = 0; D > 0; --D)
            if ((accumulated += hist[D]) > 0.01 * n) break;
        // At least the pixels of bin D are taken, so count is never 0.
        meanOf([&](size_t i) { return Dark[i] >= D; });
    }
    for (int32_t k = 0; k < 3; ++k) A[k] = int32_t(std::min<int64_t>(sum[k] / count, 255));
}

// The dark channel's minimum-filter radius: 1 % of the longer side, 5 .. 30.
int32_t DarkChannelRadius(int32_t Width, int32_t Height) { return std::clamp(std::max(Width, Height) / 100, 5, 30); }

// Dark channel, its minimum filter and the sky mask, then the atmospheric
// light from them.
void DarkChannelAndLight(const uint8_t* Src, int32_t Width, int32_t Height, int32_t Stride, int32_t Radius,
                         uint8_t* Dark, uint8_t* Mask, int32_t A[3]) {
    DarkChannel(Src, Width, Height, Stride, Dark);
    MinValue(Dark, Dark, Width, Height, Width, Radius);
    DetectSkyMask(Src, Mask, Width, Height, Stride);
    AtmosphericLight(Src, Width, Height, Stride, Dark, Mask, A);
}

}  // namespace

void BuildRecoveryTables(const int32_t A[3], uint8_t* Tables) {
    for (int32_t k = 0; k < 3; ++k)
        for (int32_t v = 0; v < 256; ++v)
            for (int32_t t = 0; t < 256; ++t)
                Tables[k * kTableSize + size_t(v) * 256 + t] = ClampByte((v - A[k]) * 255 / std::max(t, 25) + A[k]);
}

void Resize(int32_t Mode, const uint8_t* Src, int32_t SrcWidth, int32_t SrcHeight, int32_t SrcStride,
            uint8_t* Dest, int32_t DestWidth, int32_t DestHeight, int32_t DestStride) {
    if (!RawArgsValid(Src, Dest, SrcWidth, SrcHeight, SrcStride) || DestWidth <= 0 || DestHeight <= 0) return;
    const int32_t bpp = BytesPerPixel(SrcWidth, SrcStride);
    if ((bpp != 1 && bpp != 3) || int64_t(DestStride) < int64_t(bpp) * DestWidth) return;
    const int64_t stepX = ResizeStep(SrcWidth, DestWidth), stepY = ResizeStep(SrcHeight, DestHeight);
    // Positions are clamped to the image: only extreme enlargements would
    // step past its last pixel.
    if (Mode == 0) {
        int32_t lastRow = -1;
        for (int32_t y = 0; y < DestHeight; ++y) {
            uint8_t* d = Dest + size_t(y) * DestStride;
            const int32_t sy = std::min<int64_t>(bpp == 3 ? (y * stepY) >> 16 : int64_t(y) * SrcHeight / DestHeight,
                                                 SrcHeight - 1);
            if (sy == lastRow) {
                std::memcpy(d, d - DestStride, size_t(DestStride));
                continue;
            }
            lastRow = sy;
            const uint8_t* s = Src + size_t(sy) * SrcStride;
            for (int32_t x = 0; x < DestWidth; ++x) {
                const int32_t sx = std::min<int64_t>(
                    bpp == 3 ? (x * stepX) >> 16 : int64_t(x) * SrcWidth / DestWidth, SrcWidth - 1);
                std::memcpy(d + size_t(x) * bpp, s + size_t(sx) * bpp, size_t(bpp));
            }
        }
        return;
    }
    if (Mode != 1) return;
    // The source with a one-pixel replicated border on every side.
    const int32_t bw = SrcWidth + 2, bh = SrcHeight + 2;
    const size_t bstride = size_t(bw) * bpp;
    Buffer<uint8_t> bordered(bstride * bh);
    for (int32_t y = 0; y < bh; ++y) {
        const uint8_t* s = Src + size_t(std::clamp(y - 1, 0, SrcHeight - 1)) * SrcStride;
        uint8_t* b = bordered.data() + size_t(y) * bstride;
        std::memcpy(b, s, size_t(bpp));
        std::memcpy(b + bpp, s, size_t(SrcWidth) * bpp);
        std::memcpy(b + bstride - bpp, s + size_t(SrcWidth - 1) * bpp, size_t(bpp));
    }
    int64_t posY = (stepY >> 1) - 32768;
    for (int32_t y = 0; y < DestHeight; ++y, posY += stepY) {
        const int32_t iy = std::clamp<int64_t>((posY >> 16) + 1, 0, bh - 2), fy = (posY >> 8) & 255;
        const uint8_t* top = bordered.data() + size_t(iy) * bstride;
        const uint8_t* bottom = top + bstride;
        uint8_t* d = Dest + size_t(y) * DestStride;
        int64_t posX = (stepX >> 1) - 32768;
        for (int32_t x = 0; x < DestWidth; ++x, posX += stepX) {
            const int32_t ix = std::clamp<int64_t>((posX >> 16) + 1, 0, bw - 2), fx = (posX >> 8) & 255;
            const size_t l = size_t(ix) * bpp, r = l + bpp;
            for (int32_t k = 0; k < bpp; ++k)
                d[size_t(x) * bpp + k] = Bilinear(top[l + k], top[r + k], bottom[l + k], bottom[r + k], fx, fy);
        }
    }
}

void SegmentBrightRegions(const uint8_t* Src, uint8_t* Map, int32_t Width, int32_t Height, int32_t Stride) {
    constexpr int32_t kLevels = 4;
    uint32_t hist[256] = {};
    for (int32_t y = 0; y < Height; ++y) {
        const uint8_t* p = Src + size_t(y) * Stride;
        for (int32_t x = 0; x < Width; ++x, p += 3) ++hist[Luminance(p[0], p[1], p[2])];
    }
    // Start from the levels' quantiles, then move each level to the rounded
    // mean of the values nearest to it (ties to the darker level) until no
    // level moves.
    const uint64_t total = uint64_t(Width) * Height;
    int32_t centre[kLevels];
    uint64_t seen = 0;
    for (int32_t v = 0, k = 0; v < 256 && k < kLevels; ++v) {
        seen += hist[v];
        while (k < kLevels && 2 * kLevels * seen >= (2 * uint64_t(k) + 1) * total) centre[k++] = v;
    }
    uint8_t level[256];
    for (int32_t round = 0; round < 64; ++round) {
        for (int32_t v = 0, k = 0; v < 256; ++v) {
            while (k + 1 < kLevels && std::abs(v - centre[k + 1]) < std::abs(v - centre[k])) ++k;
            level[v] = static_cast<uint8_t>(k);
        }
        uint64_t sum[kLevels] = {}, count[kLevels] = {};
        for (int32_t v = 0; v < 256; ++v) {
            sum[level[v]] += uint64_t(hist[v]) * v;
            count[level[v]] += hist[v];
        }
        bool moved = false;
        for (int32_t k = 0; k < kLevels; ++k) {
            if (count[k] == 0) continue;
            const int32_t c = int32_t((2 * sum[k] + count[k]) / (2 * count[k]));
            moved |= c != centre[k];
            centre[k] = c;
        }
        if (!moved) break;
    }
    uint8_t value[256];
    for (int32_t v = 0; v < 256; ++v) value[v] = static_cast<uint8_t>(centre[level[v]]);
    for (int32_t y = 0; y < Height; ++y) {
        const uint8_t* p = Src + size_t(y) * Stride;
        uint8_t* m = Map + size_t(y) * Width;
        for (int32_t x = 0; x < Width; ++x, p += 3) m[x] = value[Luminance(p[0], p[1], p[2])];
    }
}

void DetectSkyMask(const uint8_t* Src, uint8_t* Mask, int32_t Width, int32_t Height, int32_t Stride) {
    SegmentBrightRegions(Src, Mask, Width, Height, Stride);
    // (The level holding the map's brightest 2 % plays no part in the mask,
    // so it is not looked for.)
    FindEdges(Mask, Mask, Width, Height, Width);
    // Only whole 32-bit words are inverted; the last bytes keep their edges.
    const size_t n = size_t(Width) * Height, words = n / 4 * 4;
    for (size_t i = 0; i < words; ++i) Mask[i] = static_cast<uint8_t>(~Mask[i]);
    for (int32_t y = 0; y < Height; ++y) {
        const uint8_t* s = Src + size_t(y) * Stride;
        uint8_t* m = Mask + size_t(y) * Width;
        for (int32_t x = 0; x < Width; ++x, s += 3) {
            const bool edge = m[x] > 19, green = s[0] + s[1] + s[2] <= 2.5 * s[1];
            m[x] = edge || green ? 0 : 255;
        }
    }
}

void EstimateTransmission(const uint8_t* Src, int32_t Width, int32_t Height, int32_t Stride, int32_t Radius,
                          int32_t GuidedRadius, uint8_t* T, int32_t& AB, int32_t& AG, int32_t& AR, double Omega,
                          double Eps) {
    const size_t n = size_t(Width) * Height;
    Buffer<uint8_t> dark(n), mask(n);
    int32_t A[3];
    DarkChannelAndLight(Src, Width, Height, Stride, Radius, dark.data(), mask.data(), A);
    AB = A[0], AG = A[1], AR = A[2];
    const int32_t grey = (A[0] + 2 * A[1] + A[2]) / 4;
    const double K = Omega * 255 / grey;
    // Sky pixels take the dark value 96.
    for (size_t i = 0; i < n; ++i) {
        const int32_t M = mask[i], d = ((255 - M) * dark[i] + 96 * M) / 255;
        T[i] = TruncClampByte(255 - d * K);
    }
    RefineTransmission(Src, Width, Height, Stride, T, GuidedRadius, Eps);
}

void HazeRemovalBasedOnDarkChannelPrior(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                                        int32_t Stride, double Scale) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride) || !ThreeBytesFit(Width, Stride)) return;
    const int32_t radius = DarkChannelRadius(Width, Height), guidedRadius = 6 * radius;
    const double omega = double(0.95f);
    Buffer<uint8_t> T(size_t(Width) * Height), tables(3 * kTableSize);
    int32_t A[3];
    if (Scale == 1.0) {
        EstimateTransmission(Src, Width, Height, Stride, radius, guidedRadius, T.data(), A[0], A[1], A[2], omega,
                             kHazeEps);
    } else {
        // A working size without pixels (Scale not positive, or too small
        // for the image) writes nothing.
        const int32_t w = TruncToInt(Width * Scale), h = TruncToInt(Scale * Height);
        if (w <= 0 || h <= 0) return;
        // Zeroed: the resampler writes nothing for rows it cannot read as
        // grey or three-byte pixels (four bytes a pixel).
        Buffer<uint8_t> small(size_t(w) * h * 3, true), smallT(size_t(w) * h);
        Resize(0, Src, Width, Height, Stride, small.data(), w, h, 3 * w);
        EstimateTransmission(small.data(), w, h, 3 * w, TruncToInt(Scale * radius), TruncToInt(guidedRadius * Scale),
                             smallT.data(), A[0], A[1], A[2], omega, kHazeEps);
        Resize(1, smallT.data(), w, h, w, T.data(), Width, Height, Width);
    }
    BuildRecoveryTables(A, tables.data());
    RecoverWithTables(Src, Dest, Width, Height, Stride, T.data(), tables.data());
    GammaCorrection(Dest, Dest, Width, Height, Stride, double(0.9f));
}

void HazeRemovalBasedOnBoxBlur(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                               int32_t Radius, double Strength) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride) || !ThreeBytesFit(Width, Stride) || Radius < 0) return;
    const size_t n = size_t(Width) * Height;
    Buffer<uint8_t> M(n), mean(n), table(kTableSize);
    const double average = DarkChannel(Src, Width, Height, Stride, M.data()) / (double(n) * 255);
    BoxBlur(M.data(), mean.data(), Width, Height, Width, Radius, 1);
    const double delta = average * Strength;
    const int64_t K = delta > 0.9 ? 3686 : TruncToInt(delta * 4096);
    int32_t brightest = 0, brightestMean = 0;
    for (int32_t y = 0; y < Height && brightest < 255; ++y) {
        const uint8_t* s = Src + size_t(y) * Stride;
        brightest = std::max<int32_t>(brightest, *std::max_element(s, s + 3 * size_t(Width)));
    }
    for (int32_t y = 0; y < Height && brightestMean < 255; ++y) {
        const uint8_t* m = mean.data() + size_t(y) * Width;
        brightestMean = std::max<int32_t>(brightestMean, *std::max_element(m, m + Width));
    }
    // The veil, stored back into M as a byte.
    for (size_t i = 0; i < n; ++i) M[i] = static_cast<uint8_t>(std::min<int64_t>(M[i], (mean[i] * K) >> 12));
    const double invA = 1 / ((brightest + brightestMean) * 0.5);
    for (int32_t v = 0; v < 256; ++v)
        for (int32_t l = 0; l < 256; ++l) table[size_t(v) * 256 + l] = TruncClampByte((v - l) / (1 - l * invA));
    for (int32_t y = 0; y < Height; ++y) {
        const uint8_t* s = Src + size_t(y) * Stride;
        uint8_t* d = Dest + size_t(y) * Stride;
        const uint8_t* L = M.data() + size_t(y) * Width;
        for (int32_t x = 0; x < Width; ++x)
            for (int32_t k = 0; k < 3; ++k) d[3 * x + k] = table[size_t(s[3 * x + k]) * 256 + L[x]];
    }
}

void HazeRemovalBasedonContrastEnhancement(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                                           int32_t Stride, int32_t BlockSize, double LossWeight, int32_t Radius) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride) || !ThreeBytesFit(Width, Stride)) return;
    if (BlockSize < 1 || Radius < 0 || !(LossWeight >= 0)) return;
    const size_t n = size_t(Width) * Height;
    Buffer<uint8_t> dark(n), T(n), tables(3 * kTableSize);
    int32_t A[3];
    DarkChannelAndLight(Src, Width, Height, Stride, DarkChannelRadius(Width, Height), dark.data(), T.data(), A);

    // Candidate transmissions 0.1, 0.15, .. 1; Penalty[k][c][v] is the
    // squared distance by which value v of channel c leaves 0..255 once
    // recovered with candidate k.
    constexpr int32_t kCandidates = 19;
    Buffer<double> penalty(kCandidates * 3 * 256);
    for (int32_t k = 0; k < kCandidates; ++k)
        for (int32_t c = 0; c < 3; ++c)
            for (int32_t v = 0; v < 256; ++v) {
                const double J = (v - A[c]) / ((k + 2) * 0.05) + A[c];
                const double out = J < 0 ? J : (J > 255 ? J - 255 : 0);
                penalty[(k * 3 + c) * 256 + v] = out * out;
            }
    // Each block takes the candidate that maximises the contrast of its
    // recovered values (their variance, the source's over t squared) minus
    // LossWeight times their mean clipping penalty; ties go to the smaller t.
    // The sums run over each channel's values in increasing order; empty
    // bins would add nothing, so only the values present are visited (a block
    // of a few pixels then costs a few terms, not 256 per channel).
    uint32_t hist[3][256] = {};
    uint8_t present[3][256];
    for (int32_t by = 0; by < Height; by += BlockSize) {
        const int32_t y1 = std::min(Height, by + BlockSize);
        for (int32_t bx = 0; bx < Width; bx += BlockSize) {
            const int32_t x1 = std::min(Width, bx + BlockSize);
            int32_t distinct[3] = {};
            for (int32_t y = by; y < y1; ++y) {
                const uint8_t* s = Src + size_t(y) * Stride + 3 * size_t(bx);
                for (int32_t x = bx; x < x1; ++x, s += 3)
                    for (int32_t c = 0; c < 3; ++c)
                        if (hist[c][s[c]]++ == 0) present[c][distinct[c]++] = s[c];
            }
            for (int32_t c = 0; c < 3; ++c) {
                if (distinct[c] <= 32) {
                    std::sort(present[c], present[c] + distinct[c]);
                } else {
                    distinct[c] = 0;
                    for (int32_t v = 0; v < 256; ++v)
                        if (hist[c][v]) present[c][distinct[c]++] = uint8_t(v);
                }
            }
            const double count = double(y1 - by) * (x1 - bx) * 3;
            double variance = 0;
            for (int32_t c = 0; c < 3; ++c) {
                double sum = 0, squares = 0;
                for (int32_t i = 0; i < distinct[c]; ++i) {
                    const int32_t v = present[c][i];
                    sum += double(hist[c][v]) * v;
                    squares += double(hist[c][v]) * v * v;
                }
                variance += squares - sum * sum / (count / 3);
            }
            variance /= count;
            int32_t best = 0;
            double bestCost = HUGE_VAL;
            for (int32_t k = 0; k < kCandidates; ++k) {
                double loss = 0;
                for (int32_t c = 0; c < 3; ++c)
                    for (int32_t i = 0; i < distinct[c]; ++i) {
                        const int32_t v = present[c][i];
                        loss += hist[c][v] * penalty[(k * 3 + c) * 256 + v];
                    }
                const double t = (k + 2) * 0.05;
                const double cost = LossWeight * loss / count - variance / (t * t);
                if (cost < bestCost) bestCost = cost, best = k;
            }
            for (int32_t c = 0; c < 3; ++c)
                for (int32_t i = 0; i < distinct[c]; ++i) hist[c][present[c][i]] = 0;
            const uint8_t t = static_cast<uint8_t>(TruncToInt((best + 2) * 0.05 * 255 + 0.5));
            for (int32_t y = by; y < y1; ++y) std::memset(T.data() + size_t(y) * Width + bx, t, size_t(x1 - bx));
        }
    }
    RefineTransmission(Src, Width, Height, Stride, T.data(), Radius, kHazeEps);
    BuildRecoveryTables(A, tables.data());
    RecoverWithTables(Src, Dest, Width, Height, Stride, T.data(), tables.data());
}

}  // namespace velomar

VL_API void VL_CALL HazeRemovalBasedOnDarkChannelPrior(const unsigned char* Src, unsigned char* Dest,
                                                       int32_t Width, int32_t Height, int32_t Stride,
                                                       double Scale) {
    velomar::Guarded([&] { velomar::HazeRemovalBasedOnDarkChannelPrior(Src, Dest, Width, Height, Stride, Scale); });
}

VL_API void VL_CALL HazeRemovalBasedOnBoxBlur(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                              int32_t Height, int32_t Stride, int32_t Radius, double Strength) {
    velomar::Guarded(
        [&] { velomar::HazeRemovalBasedOnBoxBlur(Src, Dest, Width, Height, Stride, Radius, Strength); });
}

VL_API void VL_CALL HazeRemovalBasedonContrastEnhancement(const unsigned char* Src, unsigned char* Dest,
                                                          int32_t Width, int32_t Height, int32_t Stride,
                                                          int32_t BlockSize, double LossWeight, int32_t Radius) {
    velomar::Guarded([&] {
        velomar::HazeRemovalBasedonContrastEnhancement(Src, Dest, Width, Height, Stride, BlockSize, LossWeight,
                                                       Radius);
    });
}
