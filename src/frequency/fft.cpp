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

// The butterfly stages of a decimation-in-time transform of length n (data
// already in bit-reversed order). The twiddle (u1, u2) advances by the
// stage's (c1, c2), and each stage's (c1, c2) comes from the previous one by
// the half-angle formulas, all in float.
// The half-angle twiddle recurrence in float: calls f(l1, j, u1, u2) for
// every stage (half-length l1) and position j in the order the recurrence
// produces them. The one home of the recurrence.
template <class F>
void ForEachTwiddle(int64_t n, int32_t Direction, F&& f) {
    float c1 = -1.0f, c2 = 0.0f;
    for (int64_t l1 = 1, l2 = 2; l2 <= n; l1 = l2, l2 *= 2) {
        float u1 = 1.0f, u2 = 0.0f;
        for (int64_t j = 0; j < l1; ++j) {
            f(l1, j, u1, u2);
            const float next2 = u1 * c2 + u2 * c1;
            u1 = u1 * c1 - u2 * c2;
            u2 = next2;
        }
        c2 = std::sqrt((1.0f - c1) * 0.5f);
        if (ScaledForward(Direction)) c2 = -c2;
        c1 = std::sqrt((1.0f + c1) * 0.5f);
    }
}

template <class Layout>
void Stages(int64_t n, float* Imag, float* Real, int32_t Direction) {
    ForEachTwiddle(n, Direction, [&](int64_t l1, int64_t j, float u1, float u2) {
        for (int64_t i = j; i < n; i += 2 * l1) Layout::Butterfly(Imag, Real, i, i + l1, u1, u2);
    });
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

// ---- many sequences at once ----------------------------------------------------------
//
// FFT2D transforms L rows (or columns) together: element m of sequence l sits
// at m * L + l of a scratch pair, so one vector holds four sequences and each
// lane sees exactly the operations of FFT1D. The twiddles of every stage are
// taken from tables filled by the same recurrence, and two stages are run per
// pass over the data; neither changes a single operation of any element.

constexpr int kRowLanes = 16, kColumnLanes = kColumnStripLanes;
// Scratch elements sit S floats apart, S = L + 4 rather than a power of two,
// so that the elements a pass touches together do not share cache sets.
constexpr int kRowStride = kRowLanes + 4, kColumnStride = kColumnStripStride;

// The twiddles (u1, u2) of every stage in the order the recurrence produces
// them: the stage of half-length l1 uses entries l1 - 1 .. 2 l1 - 2.
void FillTwiddles(int64_t n, int32_t Direction, float* U1, float* U2) {
    ForEachTwiddle(n, Direction, [&](int64_t l1, int64_t j, float u1, float u2) {
        U1[l1 - 1 + j] = u1;
        U2[l1 - 1 + j] = u2;
    });
}

// One butterfly on four lanes.
inline void Butterfly4(__m128& r0, __m128& i0, __m128& r1, __m128& i1, __m128 u1, __m128 u2) {
    const __m128 t1 = _mm_sub_ps(_mm_mul_ps(u1, r1), _mm_mul_ps(u2, i1));
    const __m128 t2 = _mm_add_ps(_mm_mul_ps(u1, i1), _mm_mul_ps(u2, r1));
    r1 = _mm_sub_ps(r0, t1);
    i1 = _mm_sub_ps(i0, t2);
    r0 = _mm_add_ps(r0, t1);
    i0 = _mm_add_ps(i0, t2);
}

// All stages of L interleaved sequences of length n (already bit-reversed),
// elements S floats apart.
template <int L, int S>
void InterleavedStages(int64_t n, float* I, float* R, const float* U1, const float* U2) {
    int64_t l1 = 1;
    int stages = 0;
    while ((int64_t(1) << stages) < n) ++stages;
    if (stages % 2) {  // a single first stage, twiddle (1, 0)
        const __m128 a = _mm_set1_ps(U1[0]), b = _mm_set1_ps(U2[0]);
        for (int64_t i = 0; i < n; i += 2)
            for (int v = 0; v < L; v += 4) {
                float *r0 = R + i * S + v, *i0 = I + i * S + v;
                __m128 x0 = _mm_load_ps(r0), y0 = _mm_load_ps(i0), x1 = _mm_load_ps(r0 + S), y1 = _mm_load_ps(i0 + S);
                Butterfly4(x0, y0, x1, y1, a, b);
                _mm_store_ps(r0, x0), _mm_store_ps(i0, y0), _mm_store_ps(r0 + S, x1), _mm_store_ps(i0 + S, y1);
            }
        l1 = 2;
    }
    // Stages of half-lengths l1 and 2 l1 together: elements p, p + l1, p + 2 l1,
    // p + 3 l1 go through (p, p + l1), (p + 2 l1, p + 3 l1) with twiddle j of
    // the first stage, then (p, p + 2 l1) and (p + l1, p + 3 l1) with twiddles
    // j and j + l1 of the second.
    for (; 4 * l1 <= n; l1 *= 4) {
        const float *a1 = U1 + l1 - 1, *a2 = U2 + l1 - 1, *b1 = U1 + 2 * l1 - 1, *b2 = U2 + 2 * l1 - 1;
        const int64_t step = l1 * S;
        for (int64_t base = 0; base < n; base += 4 * l1)
            for (int64_t j = 0; j < l1; ++j) {
                const __m128 wa = _mm_set1_ps(a1[j]), wb = _mm_set1_ps(a2[j]);
                const __m128 va = _mm_set1_ps(b1[j]), vb = _mm_set1_ps(b2[j]);
                const __m128 xa = _mm_set1_ps(b1[j + l1]), xb = _mm_set1_ps(b2[j + l1]);
                float* r = R + (base + j) * S;
                float* i = I + (base + j) * S;
                for (int v = 0; v < L; v += 4) {
                    __m128 r0 = _mm_load_ps(r + v), r1 = _mm_load_ps(r + step + v);
                    __m128 r2 = _mm_load_ps(r + 2 * step + v), r3 = _mm_load_ps(r + 3 * step + v);
                    __m128 i0 = _mm_load_ps(i + v), i1 = _mm_load_ps(i + step + v);
                    __m128 i2 = _mm_load_ps(i + 2 * step + v), i3 = _mm_load_ps(i + 3 * step + v);
                    Butterfly4(r0, i0, r1, i1, wa, wb);
                    Butterfly4(r2, i2, r3, i3, wa, wb);
                    Butterfly4(r0, i0, r2, i2, va, vb);
                    Butterfly4(r1, i1, r3, i3, xa, xb);
                    _mm_store_ps(r + v, r0), _mm_store_ps(r + step + v, r1);
                    _mm_store_ps(r + 2 * step + v, r2), _mm_store_ps(r + 3 * step + v, r3);
                    _mm_store_ps(i + v, i0), _mm_store_ps(i + step + v, i1);
                    _mm_store_ps(i + 2 * step + v, i2), _mm_store_ps(i + 3 * step + v, i3);
                }
            }
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
    constexpr int L = kRowLanes, S = kRowStride;
    if (count < L) std::fill(out, out + n * S, 0.0f);
    int l = 0;
    if (n >= 16 && count == L) {
        // Sixteen elements (one cache line) of every row at a time, so that
        // each row line is read once and every scratch line is written while
        // it is in cache.
        const float* r0 = plane + y0 * n;
        for (int64_t m = 0; m < n; m += 16) {
            for (int g = 0; g < L; g += 4) {
                const float* r = r0 + g * n + m;
                for (int q = 0; q < 16; q += 4) {
                    __m128 a = _mm_loadu_ps(r + q), b = _mm_loadu_ps(r + n + q);
                    __m128 c = _mm_loadu_ps(r + 2 * n + q), d = _mm_loadu_ps(r + 3 * n + q);
                    Transpose4(a, b, c, d);
                    _mm_store_ps(out + int64_t(rev[m + q]) * S + g, a);
                    _mm_store_ps(out + int64_t(rev[m + q + 1]) * S + g, b);
                    _mm_store_ps(out + int64_t(rev[m + q + 2]) * S + g, c);
                    _mm_store_ps(out + int64_t(rev[m + q + 3]) * S + g, d);
                }
            }
        }
        return;
    }
    for (; l < count; ++l) {
        const float* r = plane + (y0 + l) * n;
        for (int64_t m = 0; m < n; ++m) out[int64_t(rev[m]) * S + l] = r[m];
    }
}

// The reverse of GatherRows without the reordering, each element multiplied by
// s when `scale` is set.
void ScatterRows(const float* in, int64_t n, int64_t y0, int count, bool scale, float s, float* plane) {
    constexpr int S = kRowStride;
    const __m128 f = _mm_set1_ps(s);
    int l = 0;
    if (n >= 4)
        for (; l + 4 <= count; l += 4) {
            float* r0 = plane + (y0 + l) * n;
            for (int64_t m = 0; m < n; m += 4) {
                __m128 a = _mm_load_ps(in + m * S + l), b = _mm_load_ps(in + (m + 1) * S + l);
                __m128 c = _mm_load_ps(in + (m + 2) * S + l), d = _mm_load_ps(in + (m + 3) * S + l);
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
        for (int64_t m = 0; m < n; ++m) r[m] = scale ? in[m * S + l] * s : in[m * S + l];
    }
}

// Columns x0 .. x0 + count - 1 of a plane of width w and height n into the
// interleaved scratch, row m going to position rev[m]; rows from `present`
// on are zero and not read.
void GatherColumns(const float* plane, int64_t w, int64_t n, int64_t present, int64_t x0, int count,
                   const int32_t* rev, float* out) {
    constexpr int L = kColumnLanes, S = kColumnStride;
    for (int64_t m = 0; m < n; ++m) {
        float* o = out + int64_t(rev[m]) * S;
        const float* p = plane + m * w + x0;
        if (m < present && count == L) {
            for (int l = 0; l < L; l += 4) _mm_store_ps(o + l, _mm_loadu_ps(p + l));
            continue;
        }
        int l = 0;
        if (m < present)
            for (; l < count; ++l) o[l] = p[l];
        for (; l < L; ++l) o[l] = 0.0f;
    }
}

void ScatterColumns(const float* in, int64_t w, int64_t n, int64_t x0, int count, bool scale, float s,
                    float* plane) {
    constexpr int S = kColumnStride;
    const __m128 f = _mm_set1_ps(s);
    for (int64_t m = 0; m < n; ++m) {
        const float* i = in + m * S;
        float* o = plane + m * w + x0;
        int l = 0;
        if (scale) {
            for (; l + 4 <= count; l += 4) _mm_storeu_ps(o + l, _mm_mul_ps(_mm_load_ps(i + l), f));
            for (; l < count; ++l) o[l] = i[l] * s;
        } else if (count == kColumnLanes) {
            for (; l < kColumnLanes; l += 4) _mm_storeu_ps(o + l, _mm_load_ps(i + l));
        } else {
            for (; l < count; ++l) o[l] = i[l];
        }
    }
}

// The tables of one transform length.
struct LengthTables {
    Buffer<int32_t> rev;
    Buffer<float> u1, u2;
    LengthTables(int64_t n, int32_t Direction) : rev(size_t(n)), u1(size_t(n)), u2(size_t(n)) {
        BitReversalTable(n, rev.data());
        FillTwiddles(n, Direction, u1.data(), u2.data());
    }
};

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

void FFTRows(float* Real, int32_t Height, float* Imag, int32_t Direction, int32_t Width) {
    if (Width < 1 || Height < 1) return;
    const int64_t w = Width, h = Height;
    const LengthTables t(w, Direction);
    Buffer<float> sr(size_t(w) * kRowStride), si(size_t(w) * kRowStride);
    const bool scale = ScaledForward(Direction);
    const float s = static_cast<float>(1.0 / double(w));
    // Rows that are all +0 stay +0 (every butterfly and the scaling map +0 to
    // +0), so whole blocks of them are skipped.
    for (int64_t y0 = 0; y0 < h; y0 += kRowLanes) {
        const int count = int(std::min<int64_t>(kRowLanes, h - y0));
        if (AllBitsZero(Real + y0 * w, size_t(count * w)) && AllBitsZero(Imag + y0 * w, size_t(count * w)))
            continue;
        GatherRows(Real, w, y0, count, t.rev.data(), sr.data());
        GatherRows(Imag, w, y0, count, t.rev.data(), si.data());
        InterleavedStages<kRowLanes, kRowStride>(w, si.data(), sr.data(), t.u1.data(), t.u2.data());
        ScatterRows(sr.data(), w, y0, count, scale, s, Real);
        ScatterRows(si.data(), w, y0, count, scale, s, Imag);
    }
}

void FFTColumnStrips(const float* Real, const float* Imag, int32_t Height, int32_t Width, int32_t RowsPresent,
                     int32_t Direction, int32_t First, int32_t Last, const ColumnStripVisitor& Visit) {
    if (Width < 1 || Height < 1) return;
    const int64_t w = Width, h = Height, present = std::clamp<int64_t>(RowsPresent, 0, h);
    const LengthTables t(h, Direction);
    Buffer<float> sr(size_t(h) * kColumnStride), si(size_t(h) * kColumnStride);
    for (int64_t x0 = std::max<int64_t>(First, 0); x0 < std::min<int64_t>(Last, w); x0 += kColumnLanes) {
        const int count = int(std::min<int64_t>({kColumnLanes, w - x0, int64_t(Last) - x0}));
        GatherColumns(Real, w, h, present, x0, count, t.rev.data(), sr.data());
        GatherColumns(Imag, w, h, present, x0, count, t.rev.data(), si.data());
        InterleavedStages<kColumnLanes, kColumnStride>(h, si.data(), sr.data(), t.u1.data(), t.u2.data());
        Visit(int32_t(x0), count, sr.data(), si.data());
    }
}

void FFTColumns(float* Real, int32_t Height, float* Imag, int32_t Direction, int32_t Width, int32_t First,
                int32_t Last) {
    const bool scale = ScaledForward(Direction);
    if (Height == 1 && !scale) return;  // length-1 columns without scaling change nothing
    const float s = static_cast<float>(1.0 / double(Height));
    FFTColumnStrips(Real, Imag, Height, Width, Height, Direction, First, Last,
                    [&](int32_t x0, int32_t count, const float* re, const float* im) {
                        ScatterColumns(re, Width, Height, x0, count, scale, s, Real);
                        ScatterColumns(im, Width, Height, x0, count, scale, s, Imag);
                    });
}

void FFT2D(float* Real, int32_t Height, float* Imag, int32_t Direction, int32_t Width) {
    FFTRows(Real, Height, Imag, Direction, Width);
    FFTColumns(Real, Height, Imag, Direction, Width, 0, Width);
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

void LoadSpectrumPlanes(const SpectrumLayout& layout, const uint8_t* Src, Buffer<float>* Planes) {
    const int32_t walk = layout.channels;
    for (int32_t c = 0; c < layout.channels; ++c) {
        Planes[c].Reset(layout.planeSize, true);
        for (int32_t y = 0; y < layout.height; ++y) {
            const uint8_t* s = Src + size_t(y) * size_t(layout.stride) + c;
            float* p = Planes[c].data() + size_t(y) * size_t(layout.paddedWidth);
            for (int32_t x = 0; x < layout.width; ++x) p[x] = float(s[size_t(x) * walk]);
        }
    }
}

void ShowFFT(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
             uint8_t CopyToReal, int32_t Direction) {
    SpectrumLayout layout;
    if (!MakeSpectrumLayout(Src, Dest, Width, Height, Stride, layout)) return;
    // The padding cells of the planes, and the whole real plane when it is not
    // a copy of the pixels, start as zeros.
    Buffer<float> pixels[3];
    LoadSpectrumPlanes(layout, Src, pixels);
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
