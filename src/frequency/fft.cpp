// The radix-2 FFT (one sequence, and a plane many rows or columns at a time),
// the quadrant shift, and the FFT spectrum picture.
#include <algorithm>
#include <cmath>

#include "frequency/frequency.h"

namespace velomar {

namespace {

inline bool ScaledForward(int32_t Direction) { return static_cast<uint8_t>(Direction) == 1; }

// Butterflies on one sequence.
struct OneSequence {
    static void Butterfly(float* I, float* R, int64_t i, int64_t i1, float u1, float u2) {
        const float t1 = u1 * R[i1] - u2 * I[i1];
        const float t2 = u1 * I[i1] + u2 * R[i1];
        R[i1] = R[i] - t1;
        I[i1] = I[i] - t2;
        R[i] = R[i] + t1;
        I[i] = I[i] + t2;
    }
};

// Butterflies on kLanes sequences stored interleaved (element m of sequence l
// at m * kLanes + l): the same operations as OneSequence, lane by lane.
constexpr int kLanes = 16;
struct InterleavedSequences {
    static void Butterfly(float* I, float* R, int64_t i, int64_t i1, float u1, float u2) {
        const __m128 a = _mm_set1_ps(u1), b = _mm_set1_ps(u2);
        float *ri = R + i * kLanes, *ii = I + i * kLanes;
        float *rj = R + i1 * kLanes, *ij = I + i1 * kLanes;
        for (int v = 0; v < kLanes; v += 4) {
            const __m128 r1 = _mm_load_ps(rj + v), m1 = _mm_load_ps(ij + v);
            const __m128 r0 = _mm_load_ps(ri + v), m0 = _mm_load_ps(ii + v);
            const __m128 t1 = _mm_sub_ps(_mm_mul_ps(a, r1), _mm_mul_ps(b, m1));
            const __m128 t2 = _mm_add_ps(_mm_mul_ps(a, m1), _mm_mul_ps(b, r1));
            _mm_store_ps(rj + v, _mm_sub_ps(r0, t1));
            _mm_store_ps(ij + v, _mm_sub_ps(m0, t2));
            _mm_store_ps(ri + v, _mm_add_ps(r0, t1));
            _mm_store_ps(ii + v, _mm_add_ps(m0, t2));
        }
    }
};

// The butterfly stages of a decimation-in-time transform of length n (data
// already in bit-reversed order). The twiddle (u1, u2) advances by the
// stage's (c1, c2), and each stage's (c1, c2) comes from the previous one by
// the half-angle formulas, all in float.
template <class Layout>
void Stages(int64_t n, float* Imag, float* Real, int32_t Direction) {
    float c1 = -1.0f, c2 = 0.0f;
    for (int64_t l1 = 1, l2 = 2; l2 <= n; l1 = l2, l2 *= 2) {
        float u1 = 1.0f, u2 = 0.0f;
        for (int64_t j = 0; j < l1; ++j) {
            for (int64_t i = j; i < n; i += l2) Layout::Butterfly(Imag, Real, i, i + l1, u1, u2);
            const float next2 = u1 * c2 + u2 * c1;
            u1 = u1 * c1 - u2 * c2;
            u2 = next2;
        }
        c2 = std::sqrt((1.0f - c1) * 0.5f);
        if (ScaledForward(Direction)) c2 = -c2;
        c1 = std::sqrt((1.0f + c1) * 0.5f);
    }
}

// The reordering of the bit-reversal swaps as a table: position i receives
// element rev[i] (the permutation is its own inverse).
void BitReversalTable(int64_t n, int32_t* rev) {
    for (int64_t i = 0; i < n; ++i) rev[i] = static_cast<int32_t>(i);
    int64_t j = 0;
    for (int64_t i = 0; i + 1 < n; ++i) {
        if (i < j) std::swap(rev[i], rev[j]);
        int64_t k = n >> 1;
        while (k > 0 && k <= j) {
            j -= k;
            k >>= 1;
        }
        j += k;
    }
}

bool AllBitsZero(const float* p, size_t count) {
    const uint32_t* w = reinterpret_cast<const uint32_t*>(p);
    uint32_t any = 0;
    for (size_t i = 0; i < count; ++i) any |= w[i];
    return any == 0;
}

inline void Transpose4(__m128& a, __m128& b, __m128& c, __m128& d) { _MM_TRANSPOSE4_PS(a, b, c, d); }

// Gathers rows y0 .. y0 + count - 1 of a plane with rows of n floats into the
// interleaved scratch, element m of row l going to position rev[m]; lanes
// beyond count are zero.
void GatherRows(const float* plane, int64_t n, int64_t y0, int count, const int32_t* rev, float* out) {
    if (count < kLanes) std::fill(out, out + n * kLanes, 0.0f);
    int l = 0;
    if (n >= 4)
        for (; l + 4 <= count; l += 4) {
            const float* r0 = plane + (y0 + l) * n;
            for (int64_t m = 0; m < n; m += 4) {
                __m128 a = _mm_loadu_ps(r0 + m), b = _mm_loadu_ps(r0 + n + m);
                __m128 c = _mm_loadu_ps(r0 + 2 * n + m), d = _mm_loadu_ps(r0 + 3 * n + m);
                Transpose4(a, b, c, d);
                _mm_store_ps(out + int64_t(rev[m]) * kLanes + l, a);
                _mm_store_ps(out + int64_t(rev[m + 1]) * kLanes + l, b);
                _mm_store_ps(out + int64_t(rev[m + 2]) * kLanes + l, c);
                _mm_store_ps(out + int64_t(rev[m + 3]) * kLanes + l, d);
            }
        }
    for (; l < count; ++l) {
        const float* r = plane + (y0 + l) * n;
        for (int64_t m = 0; m < n; ++m) out[int64_t(rev[m]) * kLanes + l] = r[m];
    }
}

// The reverse of GatherRows without the reordering, each element multiplied by
// s when `scale` is set.
void ScatterRows(const float* in, int64_t n, int64_t y0, int count, bool scale, float s, float* plane) {
    const __m128 f = _mm_set1_ps(s);
    int l = 0;
    if (n >= 4)
        for (; l + 4 <= count; l += 4) {
            float* r0 = plane + (y0 + l) * n;
            for (int64_t m = 0; m < n; m += 4) {
                __m128 a = _mm_load_ps(in + m * kLanes + l), b = _mm_load_ps(in + (m + 1) * kLanes + l);
                __m128 c = _mm_load_ps(in + (m + 2) * kLanes + l), d = _mm_load_ps(in + (m + 3) * kLanes + l);
                Transpose4(a, b, c, d);
                if (scale) {
                    a = _mm_mul_ps(a, f);
                    b = _mm_mul_ps(b, f);
                    c = _mm_mul_ps(c, f);
                    d = _mm_mul_ps(d, f);
                }
                _mm_storeu_ps(r0 + m, a);
                _mm_storeu_ps(r0 + n + m, b);
                _mm_storeu_ps(r0 + 2 * n + m, c);
                _mm_storeu_ps(r0 + 3 * n + m, d);
            }
        }
    for (; l < count; ++l) {
        float* r = plane + (y0 + l) * n;
        for (int64_t m = 0; m < n; ++m) r[m] = scale ? in[m * kLanes + l] * s : in[m * kLanes + l];
    }
}

// Columns x0 .. x0 + count - 1 of a plane of width w and height n into the
// interleaved scratch, row m going to position rev[m].
void GatherColumns(const float* plane, int64_t w, int64_t n, int64_t x0, int count, const int32_t* rev,
                   float* out) {
    for (int64_t m = 0; m < n; ++m) {
        float* o = out + int64_t(rev[m]) * kLanes;
        std::copy_n(plane + m * w + x0, count, o);
        std::fill(o + count, o + kLanes, 0.0f);
    }
}

void ScatterColumns(const float* in, int64_t w, int64_t n, int64_t x0, int count, bool scale, float s,
                    float* plane) {
    for (int64_t m = 0; m < n; ++m) {
        const float* i = in + m * kLanes;
        float* o = plane + m * w + x0;
        if (scale)
            for (int l = 0; l < count; ++l) o[l] = i[l] * s;
        else
            std::copy_n(i, count, o);
    }
}

}  // namespace

int64_t PaddedLength(int64_t n) {
    int64_t p = 1;
    while (p < n) p *= 2;
    return p;
}

void FFT1D(int32_t Length, float* Imag, float* Real, int32_t Direction) {
    const int64_t n = Length;
    if (n < 1) return;
    int64_t j = 0;
    for (int64_t i = 0; i + 1 < n; ++i) {
        if (i < j) {
            std::swap(Real[i], Real[j]);
            std::swap(Imag[i], Imag[j]);
        }
        int64_t k = n >> 1;
        while (k > 0 && k <= j) {
            j -= k;
            k >>= 1;
        }
        j += k;
    }
    Stages<OneSequence>(n, Imag, Real, Direction);
    if (ScaledForward(Direction)) {
        const float s = static_cast<float>(1.0 / double(n));
        for (int64_t i = 0; i < n; ++i) {
            Real[i] = Real[i] * s;
            Imag[i] = Imag[i] * s;
        }
    }
}

void FFT2D(float* Real, int32_t Height, float* Imag, int32_t Direction, int32_t Width) {
    if (Width < 1 || Height < 1) return;
    const int64_t w = Width, h = Height;
    const bool scale = ScaledForward(Direction);
    Buffer<int32_t> revW{size_t(w)}, revH{size_t(h)};
    BitReversalTable(w, revW.data());
    BitReversalTable(h, revH.data());
    const size_t longest = size_t(std::max(w, h)) * kLanes;
    Buffer<float> sr(longest), si(longest);

    // Rows, kLanes at a time. Rows that are all +0 stay +0 (every butterfly
    // and the scaling map +0 to +0), so whole blocks of them are skipped.
    const float sw = static_cast<float>(1.0 / double(w));
    for (int64_t y0 = 0; y0 < h; y0 += kLanes) {
        const int count = int(std::min<int64_t>(kLanes, h - y0));
        if (AllBitsZero(Real + y0 * w, size_t(count * w)) && AllBitsZero(Imag + y0 * w, size_t(count * w)))
            continue;
        GatherRows(Real, w, y0, count, revW.data(), sr.data());
        GatherRows(Imag, w, y0, count, revW.data(), si.data());
        Stages<InterleavedSequences>(w, si.data(), sr.data(), Direction);
        ScatterRows(sr.data(), w, y0, count, scale, sw, Real);
        ScatterRows(si.data(), w, y0, count, scale, sw, Imag);
    }
    // Columns, kLanes at a time through contiguous scratch.
    if (h == 1 && !scale) return;  // length-1 columns without scaling change nothing
    const float sh = static_cast<float>(1.0 / double(h));
    for (int64_t x0 = 0; x0 < w; x0 += kLanes) {
        const int count = int(std::min<int64_t>(kLanes, w - x0));
        GatherColumns(Real, w, h, x0, count, revH.data(), sr.data());
        GatherColumns(Imag, w, h, x0, count, revH.data(), si.data());
        Stages<InterleavedSequences>(h, si.data(), sr.data(), Direction);
        ScatterColumns(sr.data(), w, h, x0, count, scale, sh, Real);
        ScatterColumns(si.data(), w, h, x0, count, scale, sh, Imag);
    }
}

void FFTShift(int32_t Width, int32_t Height, float* PlaneA, float* PlaneB) {
    const size_t w = size_t(std::max(Width, 0)), hw = w / 2, hh = size_t(std::max(Height, 0)) / 2;
    for (float* p : {PlaneA, PlaneB}) {
        if (!p) continue;
        for (size_t r = 0; r < hh; ++r) {
            float* top = p + r * w;
            float* bottom = p + (r + hh) * w;
            std::swap_ranges(top, top + hw, bottom + hw);
            std::swap_ranges(top + hw, top + 2 * hw, bottom);
        }
    }
}

// ---- spectrum pictures ----------------------------------------------------------------

bool MakeSpectrumLayout(const void* Src, const void* Dest, int32_t Width, int32_t Height,
                        int32_t Stride, SpectrumLayout& layout) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride)) return false;
    // One byte per pixel is grey; every other layout is walked three bytes
    // per pixel, so a row must hold 3 * Width bytes (two bytes per pixel is
    // answered by returning without writing).
    const int32_t channels = BytesPerPixel(Width, Stride) == 1 ? 1 : 3;
    if (channels == 3 && !ThreeBytesFit(Width, Stride)) return false;
    const int64_t pw = PaddedLength(Width), ph = PaddedLength(Height);
    if (uint64_t(pw) * uint64_t(ph) > SIZE_MAX / 64) return false;  // beyond any address space
    layout.width = Width;
    layout.height = Height;
    layout.stride = Stride;
    layout.channels = channels;
    layout.paddedWidth = int32_t(pw);
    layout.paddedHeight = int32_t(ph);
    layout.planeSize = size_t(pw) * size_t(ph);
    layout.origin = size_t((ph - Height) / 2) * size_t(pw) + size_t((pw - Width) / 2);
    return true;
}

void LoadSpectrumPlane(const SpectrumLayout& layout, const uint8_t* Src, int32_t c, float* Plane) {
    const int32_t walk = layout.channels;
    for (int32_t y = 0; y < layout.height; ++y) {
        const uint8_t* s = Src + size_t(y) * size_t(layout.stride) + c;
        float* p = Plane + size_t(y) * size_t(layout.paddedWidth);
        for (int32_t x = 0; x < layout.width; ++x) p[x] = float(s[size_t(x) * walk]);
    }
}

void ShowFFT(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
             uint8_t CopyToReal, int32_t Direction) {
    SpectrumLayout layout;
    if (!MakeSpectrumLayout(Src, Dest, Width, Height, Stride, layout)) return;
    // The padding cells of the planes, and the whole real plane when it is not
    // a copy of the pixels, start as zeros.
    Buffer<float> pixels[3];
    for (int32_t c = 0; c < layout.channels; ++c) {
        pixels[c].Reset(layout.planeSize, true);
        LoadSpectrumPlane(layout, Src, c, pixels[c].data());
    }
    // Every source byte is in the planes now; Dest may be Src.
    Buffer<float> real(layout.planeSize);
    const float gain = static_cast<uint8_t>(Direction) == 0 ? 0.003921569f : 255.0f;
    for (int32_t c = 0; c < layout.channels; ++c) {
        float* imag = pixels[c].data();
        if (CopyToReal == 1)
            std::copy_n(imag, layout.planeSize, real.data());
        else
            std::fill_n(real.data(), layout.planeSize, 0.0f);
        FFT2D(real.data(), layout.paddedHeight, imag, Direction, layout.paddedWidth);
        FFTShift(layout.paddedWidth, layout.paddedHeight, imag, real.data());
        const float* re = real.data();
        // Linear in |re| + |im|, in float.
        StoreSpectrumPlane(layout, Dest, c, [&](size_t k) {
            const float amplitude = std::fabs(imag[k]) + std::fabs(re[k]);
            return ClampByte(TruncToInt(amplitude * gain));
        });
    }
}

}  // namespace velomar

VL_API void VL_CALL ShowFFT(const unsigned char* Src, unsigned char* Dest, int32_t Width, int32_t Height,
                            int32_t Stride, unsigned char CopyToReal, int32_t Direction) {
    velomar::Guarded([&] { velomar::ShowFFT(Src, Dest, Width, Height, Stride, CopyToReal, Direction); });
}
