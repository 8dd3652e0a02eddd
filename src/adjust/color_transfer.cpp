// Colour transfer: matches the per-channel mean and spread of a target image
// to those of a reference in the logarithmic l-alpha-beta space.
#include <cmath>

#include "adjust/adjust.h"
#include "adjust/colour_space.h"

namespace velomar {

namespace {

// Working buffers hold three doubles per pixel, rows packed one after another
// (Width * 3 doubles each): the layout is private to this file.
//
// Photographs repeat colours a great deal, so conversions go through a small
// direct-mapped cache keyed by the colour. A hit returns the very values the
// conversion would compute, so results do not depend on it.
class LabCache {
public:
    LabCache() : entries_(kSize, true) {
        for (size_t i = 0; i < kSize; ++i) entries_[i].key = kEmpty;
    }
    Lab Get(int32_t B, int32_t G, int32_t R) {
        const uint32_t key = uint32_t(B) | uint32_t(G) << 8 | uint32_t(R) << 16;
        Entry& e = entries_[Slot(key)];
        if (e.key != key) {
            e.key = key;
            e.lab = BgrToLab(B, G, R);
        }
        return e.lab;
    }

private:
    static constexpr size_t kBits = 16, kSize = size_t(1) << kBits;
    static constexpr uint32_t kEmpty = 0xFFFFFFFFu;
    struct Entry {
        uint32_t key;
        Lab lab;
    };
    static size_t Slot(uint32_t key) { return (key * 2654435761u) >> (32 - kBits); }
    Buffer<Entry> entries_;
};

void BgrToLab(const uint8_t* Src, int32_t Width, int32_t Height, int32_t Stride, double* Lab3) {
    LabCache cache;
    for (int32_t y = 0; y < Height; ++y) {
        const uint8_t* p = Src + size_t(y) * Stride;
        double* q = Lab3 + size_t(y) * 3 * size_t(Width);
        for (int32_t x = 0; x < Width; ++x, p += 3, q += 3) {
            const Lab lab = cache.Get(p[0], p[1], p[2]);
            q[0] = lab.l;
            q[1] = lab.alpha;
            q[2] = lab.beta;
        }
    }
}

struct Statistics {
    double mean[3], sigma[3];
};

// Mean and population standard deviation of each channel, in two passes,
// each sum running over the pixels in order.
Statistics ChannelStatistics(const double* Lab3, int32_t Width, int32_t Height) {
    const size_t n = size_t(Width) * size_t(Height);
    const double count = double(n);
    double s0 = 0, s1 = 0, s2 = 0;
    for (size_t i = 0; i < n; ++i) {
        s0 += Lab3[3 * i];
        s1 += Lab3[3 * i + 1];
        s2 += Lab3[3 * i + 2];
    }
    Statistics st;
    st.mean[0] = s0 / count;
    st.mean[1] = s1 / count;
    st.mean[2] = s2 / count;
    double v0 = 0, v1 = 0, v2 = 0;
    for (size_t i = 0; i < n; ++i) {
        const double d0 = Lab3[3 * i] - st.mean[0];
        const double d1 = Lab3[3 * i + 1] - st.mean[1];
        const double d2 = Lab3[3 * i + 2] - st.mean[2];
        v0 += d0 * d0;
        v1 += d1 * d1;
        v2 += d2 * d2;
    }
    st.sigma[0] = std::sqrt(v0 / count);
    st.sigma[1] = std::sqrt(v1 / count);
    st.sigma[2] = std::sqrt(v2 / count);
    return st;
}

struct Transfer {
    double targetMean[3], scale[3], referenceMean[3];
};

// Moves every target pixel to the reference statistics and writes it to Dest.
// A pixel's result depends on its colour alone, so results are cached by the
// target colour, read just before the pixel is written (Dest may be Target).
void TransferToDest(const double* Lab3, const uint8_t* Target, int32_t Width, int32_t Height,
                    int32_t Stride, const Transfer& t, uint8_t* Dest) {
    constexpr size_t kBits = 16, kSize = size_t(1) << kBits;
    Buffer<uint32_t> keys(kSize), values(kSize);
    std::memset(keys.data(), 0xFF, kSize * sizeof(uint32_t));  // no colour matches
    for (int32_t y = 0; y < Height; ++y) {
        const uint8_t* p = Target + size_t(y) * Stride;
        const double* q = Lab3 + size_t(y) * 3 * size_t(Width);
        uint8_t* d = Dest + size_t(y) * Stride;
        for (int32_t x = 0; x < Width; ++x, p += 3, q += 3, d += 3) {
            const uint32_t key = uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16;
            const size_t slot = (key * 2654435761u) >> (32 - kBits);
            if (keys[slot] != key) {
                uint8_t out[3];
                LabToBgr((q[0] - t.targetMean[0]) * t.scale[0] + t.referenceMean[0],
                         (q[1] - t.targetMean[1]) * t.scale[1] + t.referenceMean[1],
                         (q[2] - t.targetMean[2]) * t.scale[2] + t.referenceMean[2], out);
                keys[slot] = key;
                values[slot] = uint32_t(out[0]) | uint32_t(out[1]) << 8 | uint32_t(out[2]) << 16;
            }
            const uint32_t v = values[slot];
            d[0] = uint8_t(v);
            d[1] = uint8_t(v >> 8);
            d[2] = uint8_t(v >> 16);
        }
    }
}

bool ImageArgsValid(const uint8_t* Image, int32_t Width, int32_t Height, int32_t Stride) {
    return Image && Width > 0 && Height > 0 && ThreeBytesFit(Width, Stride);
}

}  // namespace

void ColorTransfer(const uint8_t* Reference, const uint8_t* Target, uint8_t* Dest,
                   int32_t ReferenceWidth, int32_t ReferenceHeight, int32_t ReferenceStride,
                   int32_t Width, int32_t Height, int32_t Stride) {
    // Both images are three bytes per pixel; anything that cannot be walked
    // that way is answered by not writing.
    if (!Dest || !ImageArgsValid(Target, Width, Height, Stride) ||
        !ImageArgsValid(Reference, ReferenceWidth, ReferenceHeight, ReferenceStride))
        return;
    const size_t refCount = size_t(ReferenceWidth) * size_t(ReferenceHeight);
    const size_t count = size_t(Width) * size_t(Height);
    Statistics ref, tgt;
    {
        Buffer<double> refLab(3 * refCount);
        BgrToLab(Reference, ReferenceWidth, ReferenceHeight, ReferenceStride, refLab.data());
        ref = ChannelStatistics(refLab.data(), ReferenceWidth, ReferenceHeight);
    }
    // Each target pixel is read again just before its own Dest pixel is
    // written and never after, so Dest may be the target itself.
    Buffer<double> lab(3 * count);
    BgrToLab(Target, Width, Height, Stride, lab.data());
    tgt = ChannelStatistics(lab.data(), Width, Height);

    Transfer t;
    for (int k = 0; k < 3; ++k) {
        t.targetMean[k] = tgt.mean[k];
        t.referenceMean[k] = ref.mean[k];
        // A channel without spread in the target would divide by zero; it is
        // moved to the reference mean instead (a scale of zero).
        t.scale[k] = tgt.sigma[k] == 0.0 ? 0.0 : ref.sigma[k] / tgt.sigma[k];
    }
    TransferToDest(lab.data(), Target, Width, Height, Stride, t, Dest);
}

}  // namespace velomar

using namespace velomar;

VL_API void VL_CALL ColorTransfer(const unsigned char* Reference, const unsigned char* Target,
                                  unsigned char* Dest, int32_t ReferenceWidth,
                                  int32_t ReferenceHeight, int32_t ReferenceStride,
                                  int32_t Width, int32_t Height, int32_t Stride) {
    Guarded([&] {
        velomar::ColorTransfer(Reference, Target, Dest, ReferenceWidth, ReferenceHeight,
                               ReferenceStride, Width, Height, Stride);
    });
}
