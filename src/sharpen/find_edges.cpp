// Find edges: 255 minus the Sobel gradient magnitude of every channel, capped,
// so edges come out as dark lines on white.
#include "sharpen/sharpen.h"

namespace velomar {

namespace {

// Largest sum of squares looked up; anything above reads as magnitude 255.
constexpr int32_t kMaxSquares = 65025;

// Entry i is trunc(255.0 - sqrt(i)). For (k - 1)^2 < i <= k^2 the root lies in
// (k - 1, k] and never within rounding distance of k - 1 (at most 255^2 the gap
// is above 1 / 512), so the entry is 255 - k: the table fills by runs.
void BuildEdgeTable(uint8_t* table) {
    table[0] = 255;
    for (int32_t k = 1; k <= 255; ++k)
        std::memset(table + (k - 1) * (k - 1) + 1, 255 - k, size_t(k * k - (k - 1) * (k - 1)));
}

// Copies the Rows source rows into Bordered, (Width + 2) * C bytes a row, with
// a one-pixel replicated border: the first and last pixel repeated at either
// end, and the first and last rows repeated above and below. C is
// Stride / Width.
void CopyWithBorder(int32_t Width, int32_t Height, const uint8_t* Src, uint8_t* Bordered,
                    int32_t Rows, int32_t Stride) {
    const int32_t c = BytesPerPixel(Width, Stride);
    const size_t row_bytes = size_t(Width) * c;
    const size_t bordered_stride = row_bytes + 2 * size_t(c);
    for (int32_t y = 0; y < Rows; ++y) {
        const uint8_t* s = Src + size_t(y) * Stride;
        uint8_t* b = Bordered + size_t(y + 1) * bordered_stride;
        std::memcpy(b, s, size_t(c));
        std::memcpy(b + c, s, row_bytes);
        std::memcpy(b + c + row_bytes, s + row_bytes - c, size_t(c));
    }
    std::memcpy(Bordered, Bordered + bordered_stride, bordered_stride);
    std::memcpy(Bordered + (size_t(Height) + 1) * bordered_stride,
                Bordered + size_t(Height) * bordered_stride, bordered_stride);
}

inline __m128i Load8(const uint8_t* p) {
    return _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)),
                             _mm_setzero_si128());
}

// Capped sums of squares of the Sobel gradients for the n bytes of one row.
// top, mid and bot point at the first pixel (past the left border) of the
// bordered rows y, y + 1 and y + 2; neighbours are c bytes apart. Reads up to
// 7 bytes past the end of the row (the bordered copy carries that much slack).
void SobelRow(const uint8_t* top, const uint8_t* mid, const uint8_t* bot, int32_t n, int32_t c,
              uint16_t* squares) {
    const __m128i cap = _mm_set1_epi32(kMaxSquares);
    const __m128i bias32 = _mm_set1_epi32(32768);
    const __m128i bias16 = _mm_set1_epi16(static_cast<int16_t>(0x8000));
    for (int32_t i = 0; i < n; i += 8) {
        const __m128i tl = Load8(top + i - c), tm = Load8(top + i), tr = Load8(top + i + c);
        const __m128i ml = Load8(mid + i - c), mr = Load8(mid + i + c);
        const __m128i bl = Load8(bot + i - c), bm = Load8(bot + i), br = Load8(bot + i + c);
        // Left minus right, top minus bottom; both within +-1020.
        const __m128i gx =
            _mm_sub_epi16(_mm_add_epi16(_mm_add_epi16(tl, bl), _mm_add_epi16(ml, ml)),
                          _mm_add_epi16(_mm_add_epi16(tr, br), _mm_add_epi16(mr, mr)));
        const __m128i gy =
            _mm_sub_epi16(_mm_add_epi16(_mm_add_epi16(tl, tr), _mm_add_epi16(tm, tm)),
                          _mm_add_epi16(_mm_add_epi16(bl, br), _mm_add_epi16(bm, bm)));
        // Gx^2 + Gy^2 in 32 bits, one multiply-add per pair.
        __m128i lo = _mm_unpacklo_epi16(gx, gy), hi = _mm_unpackhi_epi16(gx, gy);
        lo = _mm_madd_epi16(lo, lo);
        hi = _mm_madd_epi16(hi, hi);
        const __m128i over_lo = _mm_cmpgt_epi32(lo, cap), over_hi = _mm_cmpgt_epi32(hi, cap);
        lo = _mm_or_si128(_mm_and_si128(over_lo, cap), _mm_andnot_si128(over_lo, lo));
        hi = _mm_or_si128(_mm_and_si128(over_hi, cap), _mm_andnot_si128(over_hi, hi));
        // 0..65025 packs to unsigned 16 bits through a signed pack of value - 32768.
        const __m128i packed =
            _mm_packs_epi32(_mm_sub_epi32(lo, bias32), _mm_sub_epi32(hi, bias32));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(squares + i), _mm_xor_si128(packed, bias16));
    }
}

}  // namespace

void FindEdges(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride)) return;
    const int32_t c = BytesPerPixel(Width, Stride);
    // Only 1, 3 and 4 bytes per pixel; other layouts are left untouched.
    if (c != 1 && c != 3 && c != 4) return;

    Buffer<uint8_t> table(kMaxSquares + 1);
    BuildEdgeTable(table.data());

    // Every output is read from the bordered copy, so Src may be Dest.
    const int32_t n = Width * c;
    const size_t bordered_stride = size_t(n) + 2 * size_t(c);
    // The vector walk may load up to 16 bytes past the last row and fill 8
    // spare squares; results never depend on them, but they are set so that
    // nothing uninitialised is ever read.
    const size_t bordered_bytes = (size_t(Height) + 2) * bordered_stride;
    Buffer<uint8_t> bordered(bordered_bytes + 16);
    std::memset(bordered.data() + bordered_bytes, 0, 16);
    CopyWithBorder(Width, Height, Src, bordered.data(), Height, Stride);

    Buffer<uint16_t> squares(size_t(n) + 8, true);
    const uint8_t* t = table.data();
    for (int32_t y = 0; y < Height; ++y) {
        const uint8_t* top = bordered.data() + size_t(y) * bordered_stride + c;
        SobelRow(top, top + bordered_stride, top + 2 * bordered_stride, n, c, squares.data());
        const uint16_t* m = squares.data();
        uint8_t* d = Dest + size_t(y) * Stride;
        if (c == 4) {
            // The fourth byte is neither used nor written.
            for (int32_t x = 0; x < n; x += 4) {
                d[x] = t[m[x]];
                d[x + 1] = t[m[x + 1]];
                d[x + 2] = t[m[x + 2]];
            }
        } else {
            for (int32_t x = 0; x < n; ++x) d[x] = t[m[x]];
        }
    }
}

}  // namespace velomar

VL_API void VL_CALL FindEdges(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                              int32_t Height, int32_t Stride) {
    velomar::Guarded([&] { velomar::FindEdges(Src, Dest, Width, Height, Stride); });
}
