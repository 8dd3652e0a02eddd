// Point operations: per-pixel tone curves in both calling forms.
#include <algorithm>
#include <cmath>

#include "adjust/adjust.h"
#include "core/byte_lanes.h"

namespace velomar {

namespace {

#define VELOMAR_BYTE_KERNEL "adjust/invert_lanes.inc"
#include "core/byte_lanes_each_isa.inc"

using Table = uint8_t[256];

// 255 * (i / 255) ^ gamma, truncated, then clamped.
void BuildGammaTable(double gamma, Table table) {
    for (int i = 0; i < 256; ++i)
        table[i] = ClampByte(TruncToInt(std::pow(i / 255.0, gamma) * 255.0));
}

Status InvertMatrix(const Matrix* Src, Matrix* Dest) {
    Status s = MatrixPreamble(Src, Dest);
    if (s != STATUS_OK) return s;
    // Every byte, alpha and padding included.
    const size_t n = ImageBytes(Src->Height, Src->WidthStep);
    VELOMAR_WIDEST_KERNEL(InvertBytes)(Src->Data, Dest->Data, n);
    return STATUS_OK;
}

bool ColourChannels(const Matrix* Src, const void*) {
    return Src->Channel == 3 || Src->Channel == 4;
}

int32_t DesaturateMatrix(const Matrix* Src, Matrix* Dest) {
    Status s = MatrixPreamble(Src, Dest, true, ColourChannels);
    if (s != STATUS_OK) return s;
    // The result on success is the last grey level written (0 when none is).
    int32_t grey = 0;
    const int32_t channel = Src->Channel;
    for (int32_t y = 0; y < Src->Height; ++y) {
        const uint8_t* p = Src->Data + size_t(y) * size_t(Src->WidthStep);
        uint8_t* d = Dest->Data + size_t(y) * size_t(Dest->WidthStep);
        for (int32_t x = 0; x < Src->Width; ++x, p += channel, d += channel) {
            int32_t b = p[0], g = p[1], r = p[2];
            grey = (std::max({b, g, r}) + std::min({b, g, r})) >> 1;
            d[0] = d[1] = d[2] = static_cast<uint8_t>(grey);
        }
    }
    return grey;
}

Status GammaMatrix(const Matrix* Src, Matrix* Dest, double Gamma) {
    if (Gamma == 0.0) return STATUS_OK;
    Table table;
    BuildGammaTable(Gamma, table);
    ApplyCurveTablesMatrix(Src, Dest, table, table, table);  // its status is not reported
    return STATUS_OK;
}

struct PosterizeLevels {
    int32_t levels;
};

// Levels 0 and 1 would divide by zero; they are reported as a bad parameter.
bool PosterizeLevelsOk(const Matrix*, const void* context) {
    return static_cast<const PosterizeLevels*>(context)->levels >= 2;
}

Status PosterizeMatrix(const Matrix* Src, Matrix* Dest, int32_t Levels) {
    PosterizeLevels levels{Levels & 0xFF};
    Status s = MatrixPreamble(Src, Dest, true, PosterizeLevelsOk, &levels);
    if (s != STATUS_OK) return s;
    Table table;
    const int32_t step = 256 / levels.levels, scale = 255 / (levels.levels - 1);
    for (int i = 0; i < 256; ++i) table[i] = static_cast<uint8_t>(std::min(255, (i / step) * scale));
    // Channel counts other than 1 and 3 are left untouched.
    return ApplyCurveTablesMatrix(Src, Dest, table, table, table);
}

}  // namespace

void GammaCorrection(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                     int32_t Stride, double Gamma) {
    if (Gamma == 0.0) return;
    Table table;
    BuildGammaTable(Gamma, table);
    ApplyCurveTables(Src, Dest, Width, Height, Stride, table, table, table);
}

void Level(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
           int32_t InputLow, double Gamma, int32_t InputHigh, int32_t OutputLow,
           int32_t OutputHigh) {
    InputLow = std::clamp(InputLow, 0, 253);
    InputHigh = std::clamp(InputHigh, 2, 255);
    Gamma = std::clamp(Gamma, 0.01, 9.99);
    OutputLow = std::clamp(OutputLow, 0, 255);
    OutputHigh = std::clamp(OutputHigh, 0, 255);
    Table table;
    for (int i = 0; i < 256; ++i) {
        const int32_t d = i - InputLow;
        double value;
        if (d < 0) {
            value = OutputLow;
        } else if (i > InputHigh) {
            value = OutputHigh;
        } else if (InputHigh == InputLow) {
            // A zero-width input range (only i == InputLow gets here) would
            // divide 0 by 0; the level sits at the bottom of the output range.
            value = OutputLow;
        } else {
            value = std::pow(static_cast<double>(d) / (InputHigh - InputLow), 1 / Gamma) *
                        (OutputHigh - OutputLow) +
                    OutputLow;
        }
        table[i] = static_cast<uint8_t>(TruncToInt(std::clamp(value, 0.0, 255.0)));
    }
    ApplyCurveTables(Src, Dest, Width, Height, Stride, table, table, table);
}

void Threshold(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
               int32_t Threshold) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride)) return;
    if (BytesPerPixel(Width, Stride) == 1) {
        // Grey: the whole run, padding included; value > Threshold gives 255.
        const size_t n = ImageBytes(Height, Stride);
        size_t i = 0;
        if (Threshold >= 0 && Threshold < 255) {
            // value > t  <=>  max(value, t + 1) == value (unsigned bytes).
            const __m128i limit = _mm_set1_epi8(static_cast<char>(Threshold + 1));
            for (; i + 16 <= n; i += 16) {
                __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(Src + i));
                __m128i above = _mm_cmpeq_epi8(_mm_max_epu8(v, limit), v);
                _mm_storeu_si128(reinterpret_cast<__m128i*>(Dest + i), above);
            }
        }
        for (; i < n; ++i) Dest[i] = Src[i] > Threshold ? 255 : 0;
        return;
    }
    if (!ThreeBytesFit(Width, Stride)) return;
    const int64_t limit = 3 * int64_t(Threshold);
    for (int32_t y = 0; y < Height; ++y) {
        const uint8_t* s = Src + size_t(y) * Stride;
        uint8_t* d = Dest + size_t(y) * Stride;
        for (int32_t x = 0; x < Width; ++x, s += 3, d += 3) {
            const uint8_t v = (s[0] + s[1] + s[2]) > limit ? 255 : 0;
            d[0] = d[1] = d[2] = v;
        }
    }
}

void AdjustBrightnessAndContrast(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                                 int32_t Stride, int32_t Brightness, int32_t Contrast) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride)) return;
    const int32_t b = BytesPerPixel(Width, Stride);
    const int32_t used = b * Width;
    // Mean level: the whole top row (padding included) minus every row's
    // padding, over all pixels. Only the top row contributes pixel values, so
    // the level is small for tall images; that is the intended behaviour.
    int64_t sum = 0;
    for (int32_t k = 0; k < Stride; ++k) sum += Src[k];
    for (int32_t y = 0; y < Height; ++y)
        for (int32_t k = used; k < Stride; ++k) sum -= Src[size_t(y) * Stride + k];
    const int32_t mean = static_cast<int32_t>(sum / (int64_t(used) * Height));

    // Offsets and products are taken in 64 bits: extreme Brightness or
    // Contrast values clamp instead of overflowing.
    const int64_t mean64 = mean;
    Table table;
    for (int32_t i = 0; i < 256; ++i) {
        const int32_t v = static_cast<int32_t>(std::clamp<int64_t>(int64_t(i) + Brightness, 0, 255));
        if (Contrast == 100) {
            table[i] = mean < v ? 255 : 0;
        } else if (Contrast >= 0) {
            // Contrast above 100 makes k negative: an inverting stretch.
            const int32_t k = 10000 / (100 - Contrast) - 100;
            const double r = v + k * (v - mean) / 100.0;
            table[i] = static_cast<uint8_t>(TruncToInt(std::clamp(r, 0.0, 255.0)));
        } else {
            const int64_t t = std::clamp<int64_t>(i + ((i - mean64) * Contrast) / 100, 0, 255);
            table[i] = static_cast<uint8_t>(std::clamp<int64_t>(t + Brightness, 0, 255));
        }
    }
    ApplyCurveTables(Src, Dest, Width, Height, Stride, table, table, table);
}

}  // namespace velomar

using namespace velomar;

VL_API Status VL_CALL Invert(const Matrix* Src, Matrix* Dest) {
    return InvertMatrix(Src, Dest);
}

VL_API int32_t VL_CALL Desaturate(const Matrix* Src, Matrix* Dest) {
    return DesaturateMatrix(Src, Dest);
}

VL_API void VL_CALL GammaCorrection(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                    int32_t Height, int32_t Stride, double Gamma) {
    velomar::GammaCorrection(Src, Dest, Width, Height, Stride, Gamma);
}

VL_API Status VL_CALL GammaCorrection1(const Matrix* Src, Matrix* Dest, double Gamma) {
    return GammaMatrix(Src, Dest, Gamma);
}

VL_API void VL_CALL Level(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                          int32_t Height, int32_t Stride, int32_t InputLow, double Gamma,
                          int32_t InputHigh, int32_t OutputLow, int32_t OutputHigh) {
    velomar::Level(Src, Dest, Width, Height, Stride, InputLow, Gamma, InputHigh, OutputLow,
                   OutputHigh);
}

VL_API Status VL_CALL Posterize(const Matrix* Src, Matrix* Dest, int32_t Levels) {
    return PosterizeMatrix(Src, Dest, Levels);
}

VL_API void VL_CALL Threshold(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                              int32_t Height, int32_t Stride, int32_t Threshold) {
    velomar::Threshold(Src, Dest, Width, Height, Stride, Threshold);
}

VL_API void VL_CALL AdjustBrightnessAndContrast(const unsigned char* Src, unsigned char* Dest,
                                                int32_t Width, int32_t Height, int32_t Stride,
                                                int32_t Brightness, int32_t Contrast) {
    velomar::AdjustBrightnessAndContrast(Src, Dest, Width, Height, Stride, Brightness, Contrast);
}
