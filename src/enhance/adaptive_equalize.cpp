// Adaptive tone mapping: a curve per tile of a regular grid (contrast-limited
// equalisation or a percentile stretch), blended bilinearly between
// neighbouring tiles so that contrast follows the image locally.
#include <algorithm>
#include <cmath>

#include "enhance/enhance.h"

namespace velomar {

void ClipHistogram(int32_t* Table, int32_t ClipLimit) {
    // Sums are kept in 64 bits: clip limits far below zero cannot overflow.
    int64_t excess = 0;
    for (int i = 0; i < 256; ++i)
        if (Table[i] > ClipLimit) excess += int64_t(Table[i]) - ClipLimit;
    const int64_t increment = excess / 256, upper = ClipLimit - increment;
    for (int i = 0; i < 256; ++i) {
        if (Table[i] > ClipLimit) {
            Table[i] = ClipLimit;
        } else if (Table[i] > upper) {
            excess -= int64_t(ClipLimit) - Table[i];
            Table[i] = ClipLimit;
        } else {
            Table[i] = static_cast<int32_t>(Table[i] + increment);
            excess -= increment;
        }
    }
    // The remainder, one count at a time, spread at even steps over the bins
    // below the limit, until it is gone or stops shrinking.
    int64_t previous;
    do {
        previous = excess;
        // Nothing left to spread, or no bin below the limit to take it (a
        // limit far below zero): the passes would change nothing.
        if (excess == 0 || std::none_of(Table, Table + 256, [&](int32_t v) { return v < ClipLimit; })) break;
        for (int32_t start = 0; start < 256 && excess != 0; ++start) {
            const int64_t step = std::max<int64_t>(256 / excess, 1);
            for (int64_t i = start; i < 256 && excess > 0; i += step)
                if (Table[i] < ClipLimit) {
                    ++Table[i];
                    --excess;
                }
        }
    } while (excess > 0 && excess < previous);
}

void EqualizeTable(int32_t* Table) {
    int64_t total = 0, cumulative = 0;
    for (int i = 0; i < 256; ++i) total += Table[i];
    for (int i = 0; i < 256; ++i) {
        cumulative += Table[i];
        Table[i] = TruncToInt(double(cumulative) * 255.0 / double(total));
    }
}

void LevelTable(int32_t* Table, double CutOff, double Expand) {
    int64_t total = 0;
    int32_t min = 256, max = -1;
    for (int i = 0; i < 256; ++i) {
        total += Table[i];
        if (Table[i] != 0) {
            if (min == 256) min = i;
            max = i;
        }
    }
    if (min == 256) min = 0, max = 255;
    int32_t low = 0, high = 255;
    int64_t sum = 0;
    for (int32_t i = min; i < 256; ++i) {
        sum += Table[i];
        if (double(sum) >= double(total) * CutOff) {
            low = i;
            break;
        }
    }
    sum = 0;
    for (int32_t i = 255; i >= 0; --i) {
        sum += Table[i];
        if (double(sum) >= CutOff * double(total)) {
            high = i;
            break;
        }
    }
    // Taken in 64 bits and clamped, so that huge or NaN Expand values cannot
    // overflow.
    const int64_t ext = TruncToInt((max - min) * Expand * 0.5);
    const int32_t outHigh = static_cast<int32_t>(std::clamp<int64_t>(max + ext, 0, 255));
    const int32_t outLow = static_cast<int32_t>(std::clamp<int64_t>(min - ext, 0, 255));
    for (int32_t i = 0; i < 256; ++i) {
        if (high == low)
            Table[i] = high;
        else if (i < low)
            Table[i] = outLow;
        else if (i <= high)
            Table[i] = (outHigh - outLow) * (i - low) / (high - low) + outLow;
        else
            Table[i] = outHigh;
    }
}

namespace {

struct Grid {
    int32_t channels, tileWidth, tileHeight;
};

// Ceiling of size / tiles in double precision, truncated; in 64 bits so that
// huge tile counts are caught by the caller's checks instead of wrapping.
int64_t TileSize(int32_t size, int32_t tiles) { return int64_t(std::ceil(double(size) / double(tiles))); }

// The tile tables, then the blend, on an image whose sides are whole numbers
// of tiles.
void MapWholeTiles(const uint8_t* Src, uint8_t* Dest, int32_t Stride, int32_t TilesX, int32_t TilesY,
                   int32_t Separate, TileMode Mode, double D1, double D2, const Grid& g) {
    const int32_t C = g.channels, TW = g.tileWidth, TH = g.tileHeight;
    const bool colour = C == 3;
    const uint8_t flag = static_cast<uint8_t>(Separate);
    // Which tables a tile has: one per channel, one joint table, or (an
    // equalised colour image whose flag is neither 0 nor 1) none at all.
    const bool perChannel = colour && (Mode == TileMode::AutoLevel || (Mode == TileMode::Equalize && flag == 1));
    const bool noTables = colour && Mode == TileMode::Equalize && flag != 0 && flag != 1;
    const int32_t tablesPerTile = perChannel ? 3 : 1;

    // Contrast limit: the mean bin count, rounded up, plus the share D1 of the
    // rest. Limits beyond +-N (D1 far outside 0..1, or NaN) act as +-N.
    const int64_t N = int64_t(TW) * TH * (colour && flag != 1 ? 3 : 1);
    const int64_t base = TruncToInt(std::ceil(double(N) * 0.00390625));
    const int64_t limit = std::clamp<int64_t>(base + TruncToInt(double(N - base) * D1), -N, N);

    Buffer<int32_t> tables(size_t(TilesX) * TilesY * tablesPerTile * 256, true);
    for (int32_t ty = 0; ty < TilesY; ++ty)
        for (int32_t tx = 0; tx < TilesX; ++tx) {
            int32_t* t = tables.data() + (size_t(ty) * TilesX + tx) * tablesPerTile * 256;
            if (noTables) continue;
            if (!colour) {
                // Grey counts go to four partial tables in turn, so that runs
                // of equal values do not wait on one counter.
                alignas(16) int32_t part[4][256] = {};
                for (int32_t y = 0; y < TH; ++y) {
                    const uint8_t* p = Src + (size_t(ty) * TH + y) * Stride + size_t(tx) * TW;
                    int32_t x = 0;
                    for (; x + 4 <= TW; x += 4) ++part[0][p[x]], ++part[1][p[x + 1]], ++part[2][p[x + 2]], ++part[3][p[x + 3]];
                    for (; x < TW; ++x) ++part[0][p[x]];
                }
                for (int i = 0; i < 256; ++i) t[i] = part[0][i] + part[1][i] + part[2][i] + part[3][i];
            } else {
                for (int32_t y = 0; y < TH; ++y) {
                    const uint8_t* p = Src + (size_t(ty) * TH + y) * Stride + size_t(tx) * TW * C;
                    for (int32_t x = 0; x < TW; ++x, p += C) {
                        if (perChannel)
                            ++t[p[0]], ++t[256 + p[1]], ++t[512 + p[2]];
                        else
                            ++t[p[0]], ++t[p[1]], ++t[p[2]];
                    }
                }
            }
            if (Mode == TileMode::Equalize) {
                for (int k = 0; k < tablesPerTile; ++k) ClipHistogram(t + 256 * k, static_cast<int32_t>(limit));
                for (int k = 0; k < tablesPerTile; ++k) EqualizeTable(t + 256 * k);
            } else {
                for (int k = 0; k < tablesPerTile; ++k) LevelTable(t + 256 * k, D1, D2);
            }
        }

    // Bands of rows and columns between tile centres; the first band is half a
    // tile (rounded up), the last half a tile (rounded down). The products are
    // exact in 64 bits (32 would overflow for bands over 8.4 million pixels);
    // below that they equal the 32-bit ones.
    auto table = [&](int32_t ty, int32_t tx, int32_t c) {
        return tables.data() + ((size_t(ty) * TilesX + tx) * tablesPerTile + (perChannel ? c : 0)) * 256;
    };
    // Curves within 0..255 (always, but where a limit of 0 clips every count
    // away and the curve is 0 / 0) let the quotient be taken in double
    // precision: the numerator is an integer below 255 * area, exact as a
    // double, and a quotient that is not whole lies at least 1 / area from the
    // next integer, far more than the division's rounding, so truncating the
    // double quotient gives the integer one.
    bool bytesOnly = true;
    for (size_t i = 0; i < tables.size(); ++i) bytesOnly &= static_cast<uint32_t>(tables[i]) <= 255u;
    int32_t y0 = 0;
    for (int32_t by = 0; by <= TilesY; ++by) {
        const int32_t bh = by == 0 ? (TH + 1) >> 1 : by == TilesY ? TH >> 1 : TH;
        const int32_t up = by == 0 ? 0 : by - 1, down = by == TilesY ? TilesY - 1 : by;
        int32_t x0 = 0;
        for (int32_t bx = 0; bx <= TilesX; ++bx) {
            const int32_t bw = bx == 0 ? (TW + 1) >> 1 : bx == TilesX ? TW >> 1 : TW;
            const int32_t left = bx == 0 ? 0 : bx - 1, right = bx == TilesX ? TilesX - 1 : bx;
            const int64_t area = int64_t(bw) * bh;
            for (int32_t c = 0; c < C; ++c) {
                const int32_t* tl = table(up, left, c);
                const int32_t* tr = table(up, right, c);
                const int32_t* bl = table(down, left, c);
                const int32_t* br = table(down, right, c);
                const double areaD = double(area);
                for (int32_t y = 0; y < bh; ++y) {
                    const size_t row = size_t(y0 + y) * Stride + size_t(x0) * C + c;
                    const uint8_t* s = Src + row;
                    uint8_t* d = Dest + row;
                    if (bytesOnly && area <= 65536) {
                        // Smaller bands: the numerator stays below 2^24 and
                        // the gap to the next integer above half a float ulp
                        // of 256, so 32-bit integers and a float quotient
                        // serve.
                        const int32_t a = bh - y, b = y;
                        const float areaF = float(area);
                        for (int32_t x = 0; x < bw; ++x) {
                            const uint8_t v = s[size_t(x) * C];
                            const int32_t num = (tr[v] * x + tl[v] * (bw - x)) * a + (br[v] * x + bl[v] * (bw - x)) * b;
                            d[size_t(x) * C] = static_cast<uint8_t>(static_cast<int32_t>(float(num) / areaF));
                        }
                        continue;
                    }
                    if (bytesOnly) {
                        for (int32_t x = 0; x < bw; ++x) {
                            const uint8_t v = s[size_t(x) * C];
                            const int64_t top = int64_t(tr[v]) * x + int64_t(tl[v]) * (bw - x);
                            const int64_t bottom = int64_t(br[v]) * x + int64_t(bl[v]) * (bw - x);
                            d[size_t(x) * C] = static_cast<uint8_t>(
                                static_cast<int32_t>(double(top * (bh - y) + bottom * y) / areaD));
                        }
                        continue;
                    }
                    for (int32_t x = 0; x < bw; ++x) {
                        const uint8_t v = s[size_t(x) * C];
                        const int64_t top = int64_t(tr[v]) * x + int64_t(tl[v]) * (bw - x);
                        const int64_t bottom = int64_t(br[v]) * x + int64_t(bl[v]) * (bw - x);
                        d[size_t(x) * C] = static_cast<uint8_t>((top * (bh - y) + bottom * y) / area);
                    }
                }
            }
            x0 += bw;
        }
        y0 += bh;
    }
}

}  // namespace

void AdaptiveTileMapping(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                         int32_t Stride, int32_t TilesX, int32_t TilesY, int32_t Separate,
                         TileMode Mode, double D1, double D2) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride) || TilesX < 1 || TilesY < 1) return;
    const int32_t C = BytesPerPixel(Width, Stride);
    if (C != 1 && C != 3) return;  // the tiles are built for grey or three bytes only
    const int64_t tw = TileSize(Width, TilesX), th = TileSize(Height, TilesY);
    const int64_t W2 = tw * TilesX, H2 = th * TilesY;
    // The border is mirrored from the image; a grid whose border is wider than
    // the image would read outside it: such calls write nothing.
    const int64_t padX = (W2 - Width) / 2, padY = (H2 - Height) / 2;
    const int64_t padRight = W2 - padX - Width, padBottom = H2 - padY - Height;
    if (padX > Width || padRight > Width || padY > Height || padBottom > Height) return;
    const Grid grid{C, int32_t(tw), int32_t(th)};
    if (W2 == Width && H2 == Height) {
        MapWholeTiles(Src, Dest, Stride, TilesX, TilesY, Separate, Mode, D1, D2, grid);
        return;
    }

    // Extension: mirror the image out to whole tiles (repeating the edge
    // pixel), map that, and copy the middle back.
    const int64_t stride2 = ((W2 * C * 8 + 31) / 32) * 4;
    // The enlarged layout must derive the same channel count (it does not for
    // one or two tiny columns): otherwise nothing is written.
    if (stride2 / W2 != C) return;
    // Rows are copied in and out Stride bytes at a time, from PadX * C and
    // back from PadX * 3: the tail may run past a row, and past the buffer on
    // the last one. The buffer is zeroed and has room for that tail, so what
    // those bytes hold is defined (the copies are kept as they are: a grey
    // image comes back shifted by 2 * PadX pixels).
    const size_t bytes = size_t(stride2) * size_t(H2);
    Buffer<uint8_t> big(bytes + size_t(padX) * 3 + size_t(Stride), true);
    uint8_t* b = big.data();
    const size_t pixel = size_t(C);
    for (int32_t r = 0; r < Height; ++r) {
        uint8_t* row = b + size_t(padY + r) * stride2;
        const uint8_t* s = Src + size_t(r) * Stride;
        std::memcpy(row + size_t(padX) * pixel, s, size_t(Stride));
        if (padX != 0) {
            for (int64_t k = 0; k < padX; ++k) std::memcpy(row + k * pixel, s + (padX - 1 - k) * pixel, pixel);
            for (int64_t k = 0; k < padRight; ++k)
                std::memcpy(row + (padX + Width + k) * pixel, s + (Width - 1 - k) * pixel, pixel);
        }
    }
    if (padY != 0) {
        for (int64_t k = 0; k < padY; ++k)
            std::memcpy(b + k * stride2, b + (2 * padY - 1 - k) * stride2, size_t(stride2));
        for (int64_t k = 0; k < padBottom; ++k)
            std::memcpy(b + (padY + Height + k) * stride2, b + (padY + Height - 1 - k) * stride2, size_t(stride2));
    }
    MapWholeTiles(b, b, int32_t(stride2), TilesX, TilesY, Separate, Mode, D1, D2, grid);
    for (int32_t r = 0; r < Height; ++r)
        std::memcpy(Dest + size_t(r) * Stride, b + size_t(padY + r) * stride2 + size_t(padX) * 3, size_t(Stride));
}

void AdaptEqualize(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                   int32_t TilesX, int32_t TilesY, double CutLimit, int32_t Separate) {
    AdaptiveTileMapping(Src, Dest, Width, Height, Stride, TilesX, TilesY, Separate, TileMode::Equalize,
                        CutLimit, 0.0);
}

void AdaptAutoLevel(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                    int32_t TilesX, int32_t TilesY, double CutOff, double Expand) {
    AdaptiveTileMapping(Src, Dest, Width, Height, Stride, TilesX, TilesY, 1, TileMode::AutoLevel, CutOff,
                        Expand);
}

void AdaptAutoContrast(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                       int32_t Stride, int32_t TilesX, int32_t TilesY, double CutOff, double Expand) {
    AdaptiveTileMapping(Src, Dest, Width, Height, Stride, TilesX, TilesY, 0, TileMode::AutoContrast, CutOff,
                        Expand);
}

}  // namespace velomar

VL_API void VL_CALL AdaptEqualize(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                  int32_t Height, int32_t Stride, int32_t TilesX, int32_t TilesY,
                                  double CutLimit, int32_t Separate) {
    velomar::Guarded([&] {
        velomar::AdaptEqualize(Src, Dest, Width, Height, Stride, TilesX, TilesY, CutLimit, Separate);
    });
}

VL_API void VL_CALL AdaptAutoLevel(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                   int32_t Height, int32_t Stride, int32_t TilesX, int32_t TilesY,
                                   double CutOff, double Expand) {
    velomar::Guarded([&] {
        velomar::AdaptAutoLevel(Src, Dest, Width, Height, Stride, TilesX, TilesY, CutOff, Expand);
    });
}

VL_API void VL_CALL AdaptAutoContrast(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                      int32_t Height, int32_t Stride, int32_t TilesX, int32_t TilesY,
                                      double CutOff, double Expand) {
    velomar::Guarded([&] {
        velomar::AdaptAutoContrast(Src, Dest, Width, Height, Stride, TilesX, TilesY, CutOff, Expand);
    });
}
