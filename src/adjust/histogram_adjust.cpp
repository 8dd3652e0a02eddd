// Histogram builders and the automatic tone corrections built on them:
// AutoLevel, AutoContrast, AutoColor and HistEqualize.
#include <cmath>

#include "adjust/adjust.h"
#include "adjust/colour_space.h"

namespace velomar {

namespace {

using Table = uint8_t[256];

// Counts are gathered into several sub-histograms and summed at the end, so
// that neighbouring equal bytes do not wait on each other's increments.

// Adds the counts of n consecutive bytes to hist, through eight
// sub-histograms (a run of one repeated level is the worst case).
void CountRun(const uint8_t* p, size_t n, uint32_t* hist) {
    alignas(32) uint32_t sub[8][256] = {};
    size_t i = 0;
    for (; i + 16 <= n; i += 16) {
        uint64_t lo, hi;
        std::memcpy(&lo, p + i, 8);
        std::memcpy(&hi, p + i + 8, 8);
        for (int k = 0; k < 8; ++k) ++sub[k][(lo >> (8 * k)) & 0xFF];
        for (int k = 0; k < 8; ++k) ++sub[k][(hi >> (8 * k)) & 0xFF];
    }
    for (; i < n; ++i) ++sub[0][p[i]];
    for (int k = 0; k < 256; ++k) {
        uint32_t total = 0;
        for (int j = 0; j < 8; ++j) total += sub[j][k];
        hist[k] += total;
    }
}

// Grey bytes: a Width that is a multiple of 4 counts the whole buffer as one
// run, row padding included; any other Width counts each row's Width bytes.
void CountGrey(const uint8_t* Src, int32_t Width, int32_t Height, int32_t Stride, uint32_t* hist) {
    if (Width % 4 == 0) {
        CountRun(Src, ImageBytes(Height, Stride), hist);
        return;
    }
    for (int32_t y = 0; y < Height; ++y) CountRun(Src + size_t(y) * Stride, size_t(Width), hist);
}

// Distance between the starts of two rows of the three-byte walk: 3 * Width
// bytes of pixels plus the skip Stride - b * Width. It is Stride for b = 3 and
// never less than 3 * Width for b >= 3, so the walk stays inside the buffer.
size_t ThreeByteRowPitch(int32_t Width, int32_t Stride) {
    const int64_t b = BytesPerPixel(Width, Stride);
    return size_t(int64_t(Stride) - (b - 3) * Width);
}

// Per-channel counts of the three-byte walk (b >= 3 only).
void CountPixels(const uint8_t* Src, int32_t Width, int32_t Height, int32_t Stride,
                 uint32_t* blue, uint32_t* green, uint32_t* red) {
    alignas(32) uint32_t sub[6][256] = {};
    const size_t pitch = ThreeByteRowPitch(Width, Stride);
    for (int32_t y = 0; y < Height; ++y) {
        const uint8_t* p = Src + size_t(y) * pitch;
        int32_t x = 0;
        for (; x + 2 <= Width; x += 2, p += 6) {
            ++sub[0][p[0]];
            ++sub[2][p[1]];
            ++sub[4][p[2]];
            ++sub[1][p[3]];
            ++sub[3][p[4]];
            ++sub[5][p[5]];
        }
        if (x < Width) {
            ++sub[0][p[0]];
            ++sub[2][p[1]];
            ++sub[4][p[2]];
        }
    }
    for (int k = 0; k < 256; ++k) {
        blue[k] += sub[0][k] + sub[1][k];
        green[k] += sub[2][k] + sub[3][k];
        red[k] += sub[4][k] + sub[5][k];
    }
}

// Clip count: the 32-bit pixel count times the fraction, never rounded.
double ClipCount(int32_t Width, int32_t Height, double ClipFraction) {
    const int32_t pixels = static_cast<int32_t>(uint32_t(Width) * uint32_t(Height));
    return pixels * ClipFraction;
}

// Low point: first level from the bottom whose running count reaches T; high
// point: the same from the top. A level that is never reached gives 0. The
// running counts are exact integers, compared as doubles.
void FindLowHigh(const uint32_t* hist, double T, int32_t& low, int32_t& high) {
    low = 0;
    high = 0;
    uint64_t sum = 0;
    for (int32_t i = 0; i < 256; ++i) {
        sum += hist[i];
        if (double(sum) >= T) {
            low = i;
            break;
        }
    }
    sum = 0;
    for (int32_t i = 255; i >= 0; --i) {
        sum += hist[i];
        if (double(sum) >= T) {
            high = i;
            break;
        }
    }
}

// Exponent that sends the histogram's mean level to half of full scale,
// limited to 0.1..10. A mean at or below the low point (a logarithm of zero or
// of a negative number), or a ratio that is not a number, gives 0.1: the
// limit the formula tends to as the ratio falls to zero.
double EstimateGamma(const uint32_t* hist, int32_t low, int32_t high) {
    uint64_t count = 0, weighted = 0;
    for (int32_t i = 0; i < 256; ++i) {
        count += hist[i];
        weighted += uint64_t(i) * hist[i];
    }
    const double mean = count == 0 ? 0.0 : double(weighted) / double(count);
    const double ratio = (mean - low) / (high - low);
    if (!(ratio > 0.0)) return 0.1;
    double gamma = std::log(0.5) / std::log(ratio);
    if (gamma < 0.1)
        gamma = 0.1;
    else if (gamma > 10.0)
        gamma = 10.0;
    return gamma;
}

// Stretch between low and high with the given exponent. An empty range
// (high <= low) fills the whole table with the high point.
void BuildLevelTable(int32_t low, int32_t high, double gamma, Table table) {
    if (high <= low) {
        std::memset(table, high, 256);
        return;
    }
    for (int32_t i = 0; i < 256; ++i) {
        if (i < low)
            table[i] = 0;
        else if (i > high)
            table[i] = 255;
        else
            table[i] = ClampByte(
                TruncToInt(std::pow(double(i - low) / double(high - low), gamma) * 255.0));
    }
}

void BuildAutoTable(const uint32_t* hist, double T, bool AutoGamma, Table table) {
    int32_t low, high;
    FindLowHigh(hist, T, low, high);
    const double gamma = AutoGamma && high > low ? EstimateGamma(hist, low, high) : 1.0;
    BuildLevelTable(low, high, gamma, table);
}

// Arguments every operation here needs: valid buffers and a layout that is
// grey or at least three bytes per pixel. A two-byte layout would make the
// three-byte walk leave the buffer; it is answered by doing nothing.
bool LayoutUsable(const uint8_t* Src, const uint8_t* Dest, int32_t Width, int32_t Height,
                  int32_t Stride) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride)) return false;
    return BytesPerPixel(Width, Stride) == 1 || ThreeBytesFit(Width, Stride);
}

}  // namespace

// All three builders start from empty histograms. Invalid arguments, or a
// two-byte layout that the three-byte walk cannot cover, leave them empty.
void ComputeChannelHistograms(const uint8_t* Src, int32_t Width, int32_t Height, int32_t Stride,
                              uint32_t* HistBlue, uint32_t* HistGreen, uint32_t* HistRed) {
    if (!HistBlue) return;
    std::memset(HistBlue, 0, 256 * sizeof(uint32_t));
    if (HistGreen) std::memset(HistGreen, 0, 256 * sizeof(uint32_t));
    if (HistRed) std::memset(HistRed, 0, 256 * sizeof(uint32_t));
    if (!LayoutUsable(Src, Src, Width, Height, Stride)) return;
    if (BytesPerPixel(Width, Stride) == 1) {
        CountGrey(Src, Width, Height, Stride, HistBlue);
        return;
    }
    // Green and red are only meaningful for exactly three bytes per pixel;
    // wider layouts count blue alone and leave them empty.
    alignas(32) uint32_t green[256] = {}, red[256] = {};
    CountPixels(Src, Width, Height, Stride, HistBlue, green, red);
    if (BytesPerPixel(Width, Stride) == 3) {
        if (HistGreen) std::memcpy(HistGreen, green, sizeof(green));
        if (HistRed) std::memcpy(HistRed, red, sizeof(red));
    }
}

void ComputeCombinedHistogram(const uint8_t* Src, int32_t Width, int32_t Height, int32_t Stride,
                              uint32_t* Hist) {
    if (!Hist) return;
    std::memset(Hist, 0, 256 * sizeof(uint32_t));
    if (!LayoutUsable(Src, Src, Width, Height, Stride)) return;
    if (BytesPerPixel(Width, Stride) == 1) {
        ComputeChannelHistograms(Src, Width, Height, Stride, Hist, nullptr, nullptr);
        return;
    }
    // All three bytes of every pixel into one histogram.
    CountPixels(Src, Width, Height, Stride, Hist, Hist, Hist);
}

void ComputeLuminanceHistogram(const uint8_t* Src, int32_t Width, int32_t Height, int32_t Stride,
                               uint32_t* Hist) {
    if (!Hist) return;
    std::memset(Hist, 0, 256 * sizeof(uint32_t));
    if (!LayoutUsable(Src, Src, Width, Height, Stride)) return;
    if (BytesPerPixel(Width, Stride) == 1) {
        ComputeChannelHistograms(Src, Width, Height, Stride, Hist, nullptr, nullptr);
        return;
    }
    alignas(32) uint32_t sub[4][256] = {};
    const size_t pitch = ThreeByteRowPitch(Width, Stride);
    for (int32_t y = 0; y < Height; ++y) {
        const uint8_t* p = Src + size_t(y) * pitch;
        int32_t x = 0;
        for (; x + 4 <= Width; x += 4, p += 12) {
            ++sub[0][Luminance(p[0], p[1], p[2])];
            ++sub[1][Luminance(p[3], p[4], p[5])];
            ++sub[2][Luminance(p[6], p[7], p[8])];
            ++sub[3][Luminance(p[9], p[10], p[11])];
        }
        for (; x < Width; ++x, p += 3) ++sub[0][Luminance(p[0], p[1], p[2])];
    }
    for (int k = 0; k < 256; ++k) Hist[k] = sub[0][k] + sub[1][k] + sub[2][k] + sub[3][k];
}

void AutoLevel(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
               double ClipFraction, bool AutoGamma) {
    if (!LayoutUsable(Src, Dest, Width, Height, Stride)) return;
    alignas(32) uint32_t hist[3][256];
    ComputeChannelHistograms(Src, Width, Height, Stride, hist[0], hist[1], hist[2]);
    const double T = ClipCount(Width, Height, ClipFraction);
    // Green and red get curves only for exactly three bytes per pixel; other
    // layouts keep them all zero (grey uses the blue curve alone).
    alignas(32) Table tables[3] = {};
    const int channels = BytesPerPixel(Width, Stride) == 3 ? 3 : 1;
    for (int c = 0; c < channels; ++c) BuildAutoTable(hist[c], T, AutoGamma, tables[c]);
    ApplyCurveTables(Src, Dest, Width, Height, Stride, tables[0], tables[1], tables[2]);
}

void AutoContrast(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                  int32_t Stride, double ClipFraction, bool AutoGamma) {
    if (!LayoutUsable(Src, Dest, Width, Height, Stride)) return;
    if (BytesPerPixel(Width, Stride) == 1) {
        // Grey input always estimates gamma, whatever the caller asked.
        AutoLevel(Src, Dest, Width, Height, Stride, ClipFraction, true);
        return;
    }
    alignas(32) uint32_t hist[3][256];
    ComputeChannelHistograms(Src, Width, Height, Stride, hist[0], hist[1], hist[2]);
    const double T = ClipCount(Width, Height, ClipFraction);
    int32_t low = 0, high = 0;
    for (int c = 0; c < 3; ++c) {
        int32_t l, h;
        FindLowHigh(hist[c], T, l, h);
        if (c == 0 || l < low) low = l;
        if (c == 0 || h > high) high = h;
    }
    double gamma = 1.0;
    if (AutoGamma && high > low) {
        alignas(32) uint32_t total[256];
        for (int k = 0; k < 256; ++k) total[k] = hist[0][k] + hist[1][k] + hist[2][k];
        gamma = EstimateGamma(total, low, high);
    }
    alignas(32) Table table;
    BuildLevelTable(low, high, gamma, table);
    ApplyCurveTables(Src, Dest, Width, Height, Stride, table, table, table);
}

void AutoColor(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
               double ClipFraction, bool AutoGamma) {
    if (!LayoutUsable(Src, Dest, Width, Height, Stride)) return;
    if (BytesPerPixel(Width, Stride) == 1) {
        AutoLevel(Src, Dest, Width, Height, Stride, ClipFraction, true);
        return;
    }
    alignas(32) uint32_t hist[256];
    ComputeLuminanceHistogram(Src, Width, Height, Stride, hist);
    alignas(32) Table table;
    BuildAutoTable(hist, ClipCount(Width, Height, ClipFraction), AutoGamma, table);
    ApplyCurveTables(Src, Dest, Width, Height, Stride, table, table, table);
}

void HistEqualize(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                  int32_t Stride) {
    if (!LayoutUsable(Src, Dest, Width, Height, Stride)) return;
    alignas(32) uint32_t hist[256];
    ComputeCombinedHistogram(Src, Width, Height, Stride, hist);
    const double divisor =
        double(int64_t(BytesPerPixel(Width, Stride)) * int64_t(Width) * int64_t(Height));
    // Truncated, not clamped: a grey run that counted its row padding can pass
    // 255, and then the low byte of the level is kept.
    alignas(32) Table table;
    uint64_t running = 0;
    for (int i = 0; i < 256; ++i) {
        running += hist[i];
        table[i] = static_cast<uint8_t>(TruncToInt(double(running) * 255.0 / divisor));
    }
    ApplyCurveTables(Src, Dest, Width, Height, Stride, table, table, table);
}

}  // namespace velomar

using namespace velomar;

VL_API void VL_CALL AutoLevel(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                              int32_t Height, int32_t Stride, double ClipFraction,
                              unsigned char AutoGamma) {
    Guarded([&] {
        velomar::AutoLevel(Src, Dest, Width, Height, Stride, ClipFraction, AutoGamma != 0);
    });
}

VL_API void VL_CALL AutoContrast(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                 int32_t Height, int32_t Stride, double ClipFraction,
                                 unsigned char AutoGamma) {
    Guarded([&] {
        velomar::AutoContrast(Src, Dest, Width, Height, Stride, ClipFraction, AutoGamma != 0);
    });
}

VL_API void VL_CALL AutoColor(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                              int32_t Height, int32_t Stride, double ClipFraction,
                              unsigned char AutoGamma) {
    Guarded([&] {
        velomar::AutoColor(Src, Dest, Width, Height, Stride, ClipFraction, AutoGamma != 0);
    });
}

VL_API void VL_CALL HistEqualize(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                 int32_t Height, int32_t Stride) {
    Guarded([&] { velomar::HistEqualize(Src, Dest, Width, Height, Stride); });
}
