// Curve-table appliers: every table-driven tone operation ends here.
#include "adjust/adjust.h"

namespace velomar {

namespace {

// One table over a flat run of bytes, unrolled so the loads of several look-ups
// are in flight together.
void MapRun(const uint8_t* src, uint8_t* dst, size_t count, const uint8_t* table) {
    size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        uint8_t a0 = table[src[i]], a1 = table[src[i + 1]], a2 = table[src[i + 2]],
                a3 = table[src[i + 3]], a4 = table[src[i + 4]], a5 = table[src[i + 5]],
                a6 = table[src[i + 6]], a7 = table[src[i + 7]];
        dst[i] = a0, dst[i + 1] = a1, dst[i + 2] = a2, dst[i + 3] = a3;
        dst[i + 4] = a4, dst[i + 5] = a5, dst[i + 6] = a6, dst[i + 7] = a7;
    }
    for (; i < count; ++i) dst[i] = table[src[i]];
}

// Three tables over Height rows of Width three-byte pixels; rows start `pitch`
// bytes apart. The tables sit in one 768-byte block (blue, green, red).
void MapPixels(const uint8_t* src, uint8_t* dst, int32_t Width, int32_t Height, size_t pitch,
               const uint8_t* blue, const uint8_t* green, const uint8_t* red) {
    if (std::memcmp(blue, green, 256) == 0 && std::memcmp(blue, red, 256) == 0) {
        // One curve for all three channels: each row is one flat run.
        for (int32_t y = 0; y < Height; ++y)
            MapRun(src + y * pitch, dst + y * pitch, size_t(3) * Width, blue);
        return;
    }
    uint8_t block[768];
    std::memcpy(block, blue, 256);
    std::memcpy(block + 256, green, 256);
    std::memcpy(block + 512, red, 256);
    const uint8_t* tb = block;
    const uint8_t* tg = block + 256;
    const uint8_t* tr = block + 512;
    for (int32_t y = 0; y < Height; ++y) {
        const uint8_t* s = src + y * pitch;
        uint8_t* d = dst + y * pitch;
        int32_t x = 0;
        for (; x + 2 <= Width; x += 2, s += 6, d += 6) {
            uint8_t b0 = tb[s[0]], g0 = tg[s[1]], r0 = tr[s[2]];
            uint8_t b1 = tb[s[3]], g1 = tg[s[4]], r1 = tr[s[5]];
            d[0] = b0, d[1] = g0, d[2] = r0, d[3] = b1, d[4] = g1, d[5] = r1;
        }
        for (; x < Width; ++x, s += 3, d += 3) {
            uint8_t b = tb[s[0]], g = tg[s[1]], r = tr[s[2]];
            d[0] = b, d[1] = g, d[2] = r;
        }
    }
}

}  // namespace

void ApplyCurveTables(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                      int32_t Stride, const uint8_t* TableBlue, const uint8_t* TableGreen,
                      const uint8_t* TableRed) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride) || !TableBlue) return;
    if (BytesPerPixel(Width, Stride) == 1) {
        // Grey: the whole buffer as one run, row padding included.
        MapRun(Src, Dest, ImageBytes(Height, Stride), TableBlue);
        return;
    }
    if (!TableGreen || !TableRed || !ThreeBytesFit(Width, Stride)) return;
    // Rows are 3 * Width bytes plus a skip of Stride % Width: this equals the
    // padding only while the padding is shorter than Width.
    size_t pitch = size_t(3) * Width + size_t(Stride % Width);
    MapPixels(Src, Dest, Width, Height, pitch, TableBlue, TableGreen, TableRed);
}

Status ApplyCurveTablesMatrix(const Matrix* Src, Matrix* Dest, const uint8_t* TableBlue,
                              const uint8_t* TableGreen, const uint8_t* TableRed) {
    Status s = MatrixPreamble(Src, Dest, TableBlue && TableGreen && TableRed);
    if (s != STATUS_OK) return s;
    if (Src->Channel == 1) {
        MapRun(Src->Data, Dest->Data, ImageBytes(Src->Height, Src->WidthStep), TableBlue);
    } else if (Src->Channel == 3) {
        MapPixels(Src->Data, Dest->Data, Src->Width, Src->Height, size_t(Src->WidthStep),
                  TableBlue, TableGreen, TableRed);
    }
    return STATUS_OK;
}

}  // namespace velomar
