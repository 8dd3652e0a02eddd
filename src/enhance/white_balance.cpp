// Automatic white balance: blue, green and red scaled by gains taken from a
// reference white found in the image itself (near-white pixels block by
// block, the brightest pixels, or the grey-world average).
#include <algorithm>
#include <cmath>

#include "adjust/colour_space.h"
#include "enhance/enhance.h"

namespace velomar {

namespace {

// Signed 32-bit arithmetic that wraps as the processor's does (the spreads
// and limits below are defined in 32 bits; wrapping keeps huge blocks and
// images defined instead of undefined).
inline int32_t Mul32(int32_t a, int32_t b) { return static_cast<int32_t>(uint32_t(a) * uint32_t(b)); }
inline int32_t Add32(int32_t a, int32_t b) { return static_cast<int32_t>(uint32_t(a) + uint32_t(b)); }
inline int32_t Sub32(int32_t a, int32_t b) { return static_cast<int32_t>(uint32_t(a) - uint32_t(b)); }

// The near-white test on a pixel's stored chroma bytes against a block's (or
// the image's) mean and spread.
struct WhiteTest {
    int32_t mb, mr, db, dr;
    bool operator()(int32_t cb, int32_t cr) const {
        return Sub32(2 * cb, Mul32(2 * mb, Add32(db, 1))) < Mul32(3, db) &&
               Mul32(2, Sub32(cr, Mul32(mr, Add32(dr, 1)))) < Mul32(3, dr);
    }
};

// Where no pixel is found white there is no reference to balance against:
// the image passes through unchanged.
void PassThrough(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride) {
    if (Src == Dest) return;
    for (int32_t y = 0; y < Height; ++y)
        std::memcpy(Dest + size_t(y) * Stride, Src + size_t(y) * Stride, size_t(Width) * 3);
}

// Mean blue, green and red over the pixels `take` accepts; false if none is.
template <class Take>
bool ReferenceWhite(const uint8_t* Src, int32_t Width, int32_t Height, int32_t Stride, Take take,
                    int64_t avg[3]) {
    int64_t sum[3] = {0, 0, 0}, count = 0;
    for (int32_t y = 0; y < Height; ++y) {
        const uint8_t* p = Src + size_t(y) * Stride;
        for (int32_t x = 0; x < Width; ++x, p += 3)
            if (take(x, y)) sum[0] += p[0], sum[1] += p[1], sum[2] += p[2], ++count;
    }
    if (count == 0) return false;
    for (int c = 0; c < 3; ++c) avg[c] = sum[c] / count;
    return true;
}

// Every pixel: value * scale / (average, or scale where the average is 0),
// clamped to 0..255.
void ApplyGains(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                int64_t scale, const int64_t avg[3]) {
    uint8_t table[3][256];
    for (int c = 0; c < 3; ++c)
        for (int v = 0; v < 256; ++v)
            table[c][v] = static_cast<uint8_t>(std::clamp<int64_t>(v * scale / (avg[c] ? avg[c] : scale), 0, 255));
    for (int32_t y = 0; y < Height; ++y) {
        const uint8_t* s = Src + size_t(y) * Stride;
        uint8_t* d = Dest + size_t(y) * Stride;
        for (int32_t x = 0; x < Width; ++x, s += 3, d += 3) {
            d[0] = table[0][s[0]];
            d[1] = table[1][s[1]];
            d[2] = table[2][s[2]];
        }
    }
}

// Mean and spread of one block's chroma.
WhiteTest BlockStatistics(const uint8_t* ycc, int32_t Stride, int32_t x0, int32_t x1, int32_t y0,
                          int32_t y1, bool squared) {
    int32_t histCb[256] = {}, histCr[256] = {};
    uint32_t sumCb = 0, sumCr = 0;
    for (int32_t y = y0; y < y1; ++y) {
        const uint8_t* p = ycc + size_t(y) * Stride + size_t(x0) * 3;
        for (int32_t x = x0; x < x1; ++x, p += 3) {
            ++histCb[p[1]], ++histCr[p[2]];
            sumCb += p[1], sumCr += p[2];
        }
    }
    const uint32_t n = uint32_t(x1 - x0) * uint32_t(y1 - y0);
    const int32_t mb = static_cast<int32_t>(sumCb / n), mr = static_cast<int32_t>(sumCr / n);
    int32_t db = 0, dr = 0;
    for (int32_t i = 0; i < 256; ++i) {
        const int32_t eb = i - mb, er = i - mr;
        db = Add32(db, Mul32(histCb[i], squared ? eb * eb : std::abs(eb)));
        dr = Add32(dr, Mul32(histCr[i], squared ? er * er : std::abs(er)));
    }
    return {mb, mr, db / static_cast<int32_t>(n), dr / static_cast<int32_t>(n)};
}

}  // namespace

void AutoWhiteBalanceUseDynamicThreshold(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                                         int32_t Stride, int32_t BlockSize, uint8_t Global, uint8_t Squared) {
    // Pixels are three bytes whatever Stride / Width says; rows that cannot
    // hold them, or blocks of no pixels, write nothing.
    if (!RawArgsValid(Src, Dest, Width, Height, Stride) || !ThreeBytesFit(Width, Stride) || BlockSize < 1) return;
    const int32_t blocksX = static_cast<int32_t>(std::floor(double(Width) / BlockSize + 0.4999999 + 0.5));
    const int32_t blocksY = static_cast<int32_t>(std::floor(double(Height) / BlockSize + 0.4999999 + 0.5));
    Buffer<uint8_t> ycc(ImageBytes(Height, Stride), true);
    Buffer<uint8_t> mask(size_t(Width) * Height, true);
    for (int32_t y = 0; y < Height; ++y)
        ConvertRowToYCbCr(Width, ycc.data() + size_t(y) * Stride, Src + size_t(y) * Stride);

    auto testPixels = [&](const WhiteTest& test, int32_t x0, int32_t x1, int32_t y0, int32_t y1) {
        int64_t white = 0;
        for (int32_t y = y0; y < y1; ++y) {
            const uint8_t* p = ycc.data() + size_t(y) * Stride + size_t(x0) * 3;
            uint8_t* m = mask.data() + size_t(y) * Width;
            for (int32_t x = x0; x < x1; ++x, p += 3) {
                const bool near = test(p[1], p[2]);
                m[x] = near ? p[0] : 0;
                white += near;
            }
        }
        return white;
    };
    int64_t nearWhite = 0;
    int64_t sums[4] = {0, 0, 0, 0}, blocks = 0;  // Db, Dr, Mb, Mr
    for (int32_t by = 0; by < blocksY; ++by)
        for (int32_t bx = 0; bx < blocksX; ++bx) {
            const int32_t y0 = static_cast<int32_t>(std::min<int64_t>(int64_t(by) * BlockSize, Height));
            const int32_t x0 = static_cast<int32_t>(std::min<int64_t>(int64_t(bx) * BlockSize, Width));
            const int32_t y1 = static_cast<int32_t>(std::min<int64_t>(int64_t(y0) + BlockSize, Height));
            const int32_t x1 = static_cast<int32_t>(std::min<int64_t>(int64_t(x0) + BlockSize, Width));
            if (x1 <= x0 || y1 <= y0) continue;  // (block counts never reach past the image)
            const WhiteTest test = BlockStatistics(ycc.data(), Stride, x0, x1, y0, y1, Squared == 1);
            if (Global != 0) {
                sums[0] += test.db, sums[1] += test.dr, sums[2] += test.mb, sums[3] += test.mr;
                ++blocks;
            } else {
                nearWhite += testPixels(test, x0, x1, y0, y1);
            }
        }
    if (Global == 1 && blocks > 0) {
        int32_t v[4];
        for (int k = 0; k < 4; ++k)
            v[k] = TruncToInt(std::floor(double(sums[k]) / double(static_cast<float>(blocks)) + 0.5));
        nearWhite = testPixels(WhiteTest{v[2], v[3], v[0], v[1]}, 0, Width, 0, Height);
    }

    uint32_t luma[256] = {};
    for (size_t i = 0; i < mask.size(); ++i) ++luma[mask[i]];
    const int64_t limit = static_cast<int32_t>(nearWhite) / 10;
    int32_t threshold = 0, yMax = 255;
    int64_t acc = 0;
    for (int32_t i = 255; i >= 0; --i)
        if ((acc += luma[i]) > limit) {
            threshold = i;
            break;
        }
    while (yMax > 0 && luma[yMax] == 0) --yMax;

    if (yMax == 0) return;  // no luma above black: Dest is left as it was
    int64_t avg[3];
    const uint8_t* m = mask.data();
    if (!ReferenceWhite(Src, Width, Height, Stride,
                        [&](int32_t x, int32_t y) { return m[size_t(y) * Width + x] > threshold; }, avg))
        return PassThrough(Src, Dest, Width, Height, Stride);
    ApplyGains(Src, Dest, Width, Height, Stride, yMax, avg);
}

void AutoWhiteBalanceUseReflectorTheory(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                                        int32_t Stride, int32_t Ratio) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride) || !ThreeBytesFit(Width, Stride)) return;
    Buffer<uint16_t> sums(size_t(Width) * Height);
    int64_t hist[1024] = {};
    for (int32_t y = 0; y < Height; ++y) {
        const uint8_t* p = Src + size_t(y) * Stride;
        for (int32_t x = 0; x < Width; ++x, p += 3) {
            const int32_t s = p[0] + p[1] + p[2];
            sums[size_t(y) * Width + x] = static_cast<uint16_t>(s);
            ++hist[s];
        }
    }
    const int32_t limit = Mul32(Mul32(Width, Height), Ratio) / 100;
    int32_t threshold = 0;
    int64_t acc = 0;
    for (int32_t i = 767; i >= 0; --i)
        if ((acc += hist[i]) > limit) {
            threshold = i;
            break;
        }
    int64_t avg[3];
    if (!ReferenceWhite(Src, Width, Height, Stride,
                        [&](int32_t x, int32_t y) { return sums[size_t(y) * Width + x] > threshold; }, avg))
        return PassThrough(Src, Dest, Width, Height, Stride);
    ApplyGains(Src, Dest, Width, Height, Stride, 255, avg);
}

void AutoWhiteBalanceUseStandardGrayWorldModel(const uint8_t* Src, uint8_t* Dest, int32_t Width,
                                               int32_t Height, int32_t Stride) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride) || BytesPerPixel(Width, Stride) != 3) return;
    // The means are those of the first column, each value weighted by the
    // row's width (the sums are exact in 64 bits).
    int64_t sum[3] = {0, 0, 0};
    for (int32_t y = 0; y < Height; ++y) {
        const uint8_t* p = Src + size_t(y) * Stride;
        for (int c = 0; c < 3; ++c) sum[c] += int64_t(p[c]) * Width;
    }
    const int64_t n = int64_t(Width) * Height;
    int64_t avg[3] = {sum[0] / n, sum[1] / n, sum[2] / n};
    const int64_t grey = (avg[0] + avg[1] + avg[2]) / 3;
    if (grey == 0) return;
    ApplyGains(Src, Dest, Width, Height, Stride, grey, avg);
}

}  // namespace velomar

VL_API void VL_CALL AutoWhiteBalanceUseDynamicThreshold(const unsigned char* Src, unsigned char* Dest,
                                                        int32_t Width, int32_t Height, int32_t Stride,
                                                        int32_t BlockSize, unsigned char Global,
                                                        unsigned char Squared) {
    velomar::Guarded([&] {
        velomar::AutoWhiteBalanceUseDynamicThreshold(Src, Dest, Width, Height, Stride, BlockSize, Global,
                                                     Squared);
    });
}

VL_API void VL_CALL AutoWhiteBalanceUseReflectorTheory(const unsigned char* Src, unsigned char* Dest,
                                                       int32_t Width, int32_t Height, int32_t Stride,
                                                       int32_t Ratio) {
    velomar::Guarded(
        [&] { velomar::AutoWhiteBalanceUseReflectorTheory(Src, Dest, Width, Height, Stride, Ratio); });
}

VL_API void VL_CALL AutoWhiteBalanceUseStandardGrayWorldModel(const unsigned char* Src, unsigned char* Dest,
                                                              int32_t Width, int32_t Height, int32_t Stride) {
    velomar::Guarded(
        [&] { velomar::AutoWhiteBalanceUseStandardGrayWorldModel(Src, Dest, Width, Height, Stride); });
}
