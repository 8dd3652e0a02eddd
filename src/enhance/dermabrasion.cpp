// Skin smoothing: one of five edge-preserving smoothers, an optional tone lift
// of the smoothed image, a blend into the source under a soft skin mask, and a
// light unsharp mask.
#include <algorithm>
#include <cmath>

#include "adjust/adjust.h"
#include "blur/blur.h"
#include "enhance/enhance.h"
#include "sharpen/sharpen.h"
#include "smooth/smooth.h"

namespace velomar {

void DermabrasionToneTable(int32_t ToneMode, int32_t ToneAmount, uint8_t* Table) {
    for (int32_t i = 0; i < 256; ++i) {
        if (ToneMode == 0) {
            const double b = ToneAmount + 2.0;
            // Stored as a byte: the low byte of the truncated value.
            Table[i] = static_cast<uint8_t>(TruncToInt(255 * std::log(1 + (b - 1) * i / 255) / std::log(b)));
        } else if (ToneMode == 1) {
            // The lift's whole part is subtracted in double precision, so
            // that a lift beyond the 32-bit integers still clamps to 0 or 255.
            const double k = 10.0 * ToneAmount, x = (i - 127) / 127.0;
            Table[i] = static_cast<uint8_t>(std::clamp(i - std::trunc(-0.667 * k * (1 - x * x)), 0.0, 255.0));
        } else {
            Table[i] = static_cast<uint8_t>(i);  // other modes: identity
        }
    }
}

void DermabrasionFilter(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
                        int32_t FilterType, int32_t ToneMode, int32_t Level, int32_t ToneAmount) {
    if (static_cast<uint32_t>(Level) > 10 || !RawArgsValid(Src, Dest, Width, Height, Stride)) return;
    // The mask and the blend know grey and three-byte pixels; other layouts
    // are left alone.
    const int32_t channels = BytesPerPixel(Width, Stride);
    if (channels != 1 && channels != 3) return;
    const double size = std::max(Width, Height);
    const size_t bytes = ImageBytes(Height, Stride);

    uint8_t table[256];
    DermabrasionToneTable(ToneMode, ToneAmount, table);
    Buffer<uint8_t> smoothed(bytes);
    std::memcpy(smoothed.data(), Src, bytes);
    if (Level != 0) {
        const double grown = TruncToInt(size * 0.0025 + 0.5) * Level + 5;
        uint8_t* s = smoothed.data();
        switch (FilterType) {
            case 0: BiExponentialEPF(Src, s, Width, Height, Stride, 50.0, grown); break;
            case 1:
                GuidedFilter(Src, Src, s, Width, Height, Stride, TruncToInt(size * 0.005 + 0.5) * (11 - Level) + 5,
                             0.01);
                break;
            case 2: BilateralFilter(Src, Src, s, Width, Height, Stride, 1, 15.0, grown, 0); break;
            case 3: RecursiveDomainTransformFilter(Src, Src, s, Width, Height, Stride, grown, 50.0, 1); break;
            case 4:
                LeeAdditvieNoiseFilter(Src, s, Width, Height, Stride, TruncToInt(size * 0.02), 4 * Level * Level + 50);
                break;
            default: break;  // no smoothing
        }
    }
    if (ToneMode == 0 ? ToneAmount != -2 : ToneAmount != 0)
        ApplyCurveTables(smoothed.data(), smoothed.data(), Width, Height, Stride, table, table, table);

    // Skin: bright enough grey, or blue, green and red above 20, 40 and 50.
    const size_t n = size_t(Width) * Height;
    Buffer<uint8_t> mask(n);
    for (int32_t y = 0; y < Height; ++y) {
        const uint8_t* p = Src + size_t(y) * Stride;
        uint8_t* m = mask.data() + size_t(y) * Width;
        for (int32_t x = 0; x < Width; ++x, p += channels) {
            const bool skin = channels == 1 ? p[0] > 40 : (p[0] > 20 && p[1] > 40 && p[2] > 50);
            m[x] = skin ? 255 : 32;
        }
    }
    GuassBlur(mask.data(), mask.data(), Width, Height, Width, 0.02 * size);

    if (Src != Dest) std::memcpy(Dest, Src, bytes);
    for (int32_t y = 0; y < Height; ++y) {
        uint8_t* d = Dest + size_t(y) * Stride;
        const uint8_t* s = smoothed.data() + size_t(y) * Stride;
        const uint8_t* m = mask.data() + size_t(y) * Width;
        for (int32_t i = 0; i < Width * channels; ++i) {
            const int32_t w = m[i / channels];
            d[i] = static_cast<uint8_t>((s[i] * w + d[i] * (255 - w)) / 255);
        }
    }
    if (Level != 0) UnsharpMask(Dest, Dest, Width, Height, Stride, size * 0.02, 20, 0);
}

}  // namespace velomar

VL_API void VL_CALL DermabrasionFilter(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                       int32_t Height, int32_t Stride, int32_t FilterType, int32_t ToneMode,
                                       int32_t Level, int32_t ToneAmount) {
    velomar::Guarded([&] {
        velomar::DermabrasionFilter(Src, Dest, Width, Height, Stride, FilterType, ToneMode, Level, ToneAmount);
    });
}
