// Convolution with a user kernel: Conv2 correlates over a border-extended copy
// through four-lane dot products, FFTConv2 convolves through the FFT. Both
// normalise by the kernel sum, round and clamp, and split three-channel images
// into planes.
#include <algorithm>
#include <cmath>
#include <vector>

#include "core/cpu.h"
#include "core/planes.h"
#include "frequency/frequency.h"

namespace velomar {

namespace {

// ---- kernel and records ---------------------------------------------------------------

// Element i of the kernel, row after row (Data need not be float-aligned).
inline float KernelAt(const Matrix* Kernel, size_t i) {
    float f;
    std::memcpy(&f, Kernel->Data + i * sizeof(float), sizeof(float));
    return f;
}

// 1 / (sum of the kernel in storage order, in float), or 1 for a zero sum.
float KernelScale(const Matrix* Kernel) {
    const size_t count = size_t(Kernel->Width) * size_t(Kernel->Height);
    float sum = 0.0f;
    for (size_t i = 0; i < count; ++i) sum = sum + KernelAt(Kernel, i);
    return sum != 0.0f ? 1.0f / sum : 1.0f;
}

bool KernelAndImageOk(const Matrix* Src, const void* Context) {
    const Matrix* Kernel = static_cast<const Matrix*>(Context);
    if (Kernel->Width < 1 || Kernel->Height < 1) return false;
    // Records outside the Matrix rules (no pixels, rows shorter than their
    // pixels) are refused as parameters rather than read out of bounds.
    const int64_t rowBytes = int64_t(Src->Width) * (Src->Channel == 3 ? 3 : 1);
    return Src->Width >= 1 && Src->Height >= 1 && Src->WidthStep >= rowBytes;
}

// Null records or Data -> 3, a shape difference -> 5, a kernel size below 1
// (or an image outside the record rules) -> 4. The depth is not tested: the
// convolutions read bytes whatever it says.
Status Validate(const Matrix* Src, const Matrix* Kernel, const Matrix* Dest) {
    const Status s = MatrixPreamble(Src, Dest, Kernel && Kernel->Data, KernelAndImageOk, Kernel);
    return s == STATUS_NOT_SUPPORTED ? STATUS_OK : s;
}

// A record made by VL_CreateMatrix (or GetPadImage), released when it goes out
// of scope unless released before.
class OwnedRecord {
public:
    OwnedRecord() = default;
    explicit OwnedRecord(Matrix* m) : m_(m) {}
    OwnedRecord(const OwnedRecord&) = delete;
    OwnedRecord& operator=(const OwnedRecord&) = delete;
    ~OwnedRecord() {
        if (m_) VL_FreeMatrix(&m_);
    }
    Status Create(int32_t Width, int32_t Height) {
        const Status s = VL_CreateMatrix(Width, Height, DEPTH_8U, 1, &m_);
        if (s != STATUS_OK) m_ = nullptr;  // a failed creation leaves a released address
        return s;
    }
    Status Release() {
        const Status s = VL_FreeMatrix(&m_);
        m_ = nullptr;
        return s;
    }
    Matrix* get() const { return m_; }

private:
    Matrix* m_ = nullptr;
};

using ConvolutionForm = Status (*)(const Matrix* Src, const Matrix* Kernel, Matrix* Dest, int32_t EdgeMode);

// Three channels: split into one-channel records, filter each in place with
// the export's own form, merge into Dest. The result is that of the last
// release. A plane that cannot be created or filtered (out of memory) ends the
// call with that status before Dest is written.
Status PerChannel(const Matrix* Src, const Matrix* Kernel, Matrix* Dest, int32_t EdgeMode, ConvolutionForm form) {
    OwnedRecord planes[3];
    for (OwnedRecord& p : planes)
        if (const Status s = p.Create(Src->Width, Src->Height); s != STATUS_OK) return s;
    SplitChannels(Src, planes[0].get(), planes[1].get(), planes[2].get());
    for (OwnedRecord& p : planes)
        if (const Status s = form(p.get(), Kernel, p.get(), EdgeMode); s != STATUS_OK) return s;
    MergeChannels(Dest, planes[0].get(), planes[1].get(), planes[2].get());
    Status last = STATUS_OK;
    for (OwnedRecord& p : planes) last = p.Release();
    return last;
}

// ---- Conv2 ------------------------------------------------------------------------------

// The plan's terms, grouped by accumulator, and the plan pointing into them.
struct OwnedPlan {
    std::vector<ConvTerm> terms;
    ConvPlan plan;
};

void MakePlan(const float* kernelBuffer, int32_t kwPad, int32_t count, ptrdiff_t rowStep, OwnedPlan& out) {
    ConvPlan& plan = out.plan;
    plan.blocks = count > 16 ? count / 16 : 0;
    plan.rest = count > 16 ? count - 16 * (count / 16) : count;
    std::vector<int32_t> members[20];  // element indices of each group
    for (int32_t b = 0; b < plan.blocks; ++b)
        for (int32_t e = 0; e < 16; ++e) members[e].push_back(16 * b + e);
    for (int32_t g = 0; g < plan.rest / 4; ++g)
        for (int32_t l = 0; l < 4; ++l) members[16 + l].push_back(4 * g + l);
    size_t start[21] = {};
    for (int k = 0; k < 20; ++k) {
        for (int32_t i : members[k])
            if (kernelBuffer[i] != 0.0f) {
                const float w = kernelBuffer[i];
                out.terms.push_back(ConvTerm{{w, w, w, w}, ptrdiff_t(i / kwPad) * rowStep + i % kwPad});
            }
        start[k + 1] = out.terms.size();
    }
    for (int k = 0; k < 20; ++k)
        plan.group[k] = {out.terms.data() + start[k], out.terms.data() + start[k + 1]};
}

Status Conv2Single(const Matrix* Src, const Matrix* Kernel, Matrix* Dest, int32_t EdgeMode) {
    const int32_t kw = Kernel->Width, kh = Kernel->Height;
    const int32_t left = kw / 2, right = kw - left - 1, top = kh / 2, bottom = kh - top - 1;
    // Only the first Width bytes of each row take part, whatever the channel
    // count: the extended copy is made of a one-channel view of them. (A
    // channel count outside 1..4 is passed on, and refused there, as it is.)
    Matrix view = *Src;
    if (view.Channel >= 1 && view.Channel <= 4) view.Channel = 1;
    Matrix* paddedRecord = nullptr;
    const Status s = GetPadImage(&view, &paddedRecord, left, right, top, bottom, EdgeMode);
    if (s != STATUS_OK) return s;
    const OwnedRecord padded(paddedRecord);

    const float scale = KernelScale(Kernel);
    const int64_t kwPad = ((int64_t(kw) + 3) / 4) * 4;
    const int64_t count = kwPad * kh;
    if (count > INT32_MAX) throw std::bad_alloc();  // no dot product that long can be held
    Buffer<float> kernelBuffer(size_t(count), true);  // rows padded with zeros
    for (int32_t r = 0; r < kh; ++r)
        for (int32_t c = 0; c < kw; ++c) kernelBuffer[size_t(r * kwPad + c)] = KernelAt(Kernel, size_t(r) * kw + c);

    // The extended image as floats, a band of output rows at a time (the
    // band's rows plus the KH - 1 below stay in cache while they are used).
    const int32_t width = Src->Width, height = Src->Height;
    const size_t pw = size_t(paddedRecord->Width);
    constexpr int32_t kBand = 32;
    Buffer<float> band(pw * (size_t(kBand) + kh - 1));
    OwnedPlan plan;
    MakePlan(kernelBuffer.data(), int32_t(kwPad), int32_t(count), ptrdiff_t(pw), plan);
    const Isa isa = ActiveIsa();
    Buffer<float> column(size_t(count), true);  // one strip for the pixels left over
    for (int32_t y0 = 0; y0 < height; y0 += kBand) {
        const int32_t rows = std::min(kBand, height - y0);
        for (size_t r = 0; r < size_t(rows) + kh - 1; ++r) {
            const uint8_t* p = paddedRecord->Data + (size_t(y0) + r) * size_t(paddedRecord->WidthStep);
            float* e = band.data() + r * pw;
            for (size_t c = 0; c < pw; ++c) e[c] = float(p[c]);
        }
        for (int32_t y = y0; y < y0 + rows; ++y) {
            const float* row = band.data() + size_t(y - y0) * pw;
            uint8_t* out = Dest->Data + size_t(y) * size_t(Dest->WidthStep);
            int32_t x = 0;
            if (isa >= Isa::Avx512) x = Conv2RunAvx512(plan.plan, row, width, double(scale), out);
            if (isa >= Isa::Avx2) x += Conv2RunAvx2(plan.plan, row + x, width - x, double(scale), out + x);
            x += Conv2RunSse2(plan.plan, row + x, width - x, double(scale), out + x);
            for (; x < width; ++x) {
                for (int32_t r = 0; r < kh; ++r)
                    std::copy_n(row + size_t(r) * pw + x, kw, column.data() + size_t(r) * kwPad);
                const float d = DotProduct(kernelBuffer.data(), column.data(), int32_t(count));
                out[x] = TruncClampByte(double(d) * double(scale) + 0.5);
            }
        }
    }
    return STATUS_OK;
}

Status Conv2Form(const Matrix* Src, const Matrix* Kernel, Matrix* Dest, int32_t EdgeMode) {
    if (const Status s = Validate(Src, Kernel, Dest); s != STATUS_OK) return s;
    if (Src->Channel == 3) return PerChannel(Src, Kernel, Dest, EdgeMode, Conv2Form);
    return Conv2Single(Src, Kernel, Dest, EdgeMode);
}

// ---- FFTConv2 ---------------------------------------------------------------------------

// Planes of PW x PH floats, refused (as out of memory) beyond what an address
// space can hold.
size_t PlaneSize(int64_t pw, int64_t ph) {
    if (pw > (int64_t(1) << 30) || ph > (int64_t(1) << 30) || uint64_t(pw) * uint64_t(ph) > SIZE_MAX / 64)
        throw std::bad_alloc();
    return size_t(pw) * size_t(ph);
}

Status FFTConv2Single(const Matrix* Src, const Matrix* Kernel, Matrix* Dest, int32_t EdgeMode) {
    const int32_t kw = Kernel->Width, kh = Kernel->Height;
    const int32_t left = kw / 2, right = kw - left - 1, top = kh / 2, bottom = kh - top - 1;
    const int32_t width = Src->Width, height = Src->Height;
    const int64_t pw = PaddedLength(int64_t(width) + 2 * int64_t(kw) - 2);
    const int64_t ph = PaddedLength(int64_t(height) + 2 * int64_t(kh) - 2);
    const size_t size = PlaneSize(pw, ph);
    const float scale = KernelScale(Kernel);

    const int64_t ew = int64_t(width) + kw - 1, eh = int64_t(height) + kh - 1;
    Buffer<int32_t> columns{size_t(ew)}, rows{size_t(eh)};
    BuildPadIndexTable(left, width, height, right, top, bottom, EdgeMode, columns.data(), rows.data());

    // The extended image as the imaginary part; one byte per pixel whatever
    // the depth.
    Buffer<float> imgImag(size, true), imgReal(size, true);
    for (int64_t i = 0; i < eh; ++i) {
        const uint8_t* s = Src->Data + size_t(rows[size_t(i)]) * size_t(Src->WidthStep);
        float* p = imgImag.data() + size_t(i) * size_t(pw);
        for (int64_t j = 0; j < ew; ++j) p[j] = float(s[columns[size_t(j)]]);
    }
    FFT2D(imgReal.data(), int32_t(ph), imgImag.data(), 0, int32_t(pw));

    // The kernel's transform: only its KH rows are non-zero, so the row pass
    // runs on those alone and the column transforms are taken strip by strip
    // straight into the product, without a kernel plane.
    Buffer<float> kerImag(size_t(kh) * size_t(pw), true), kerReal(size_t(kh) * size_t(pw), true);
    for (int32_t r = 0; r < kh; ++r)
        for (int32_t c = 0; c < kw; ++c) kerImag[size_t(r) * size_t(pw) + c] = KernelAt(Kernel, size_t(r) * kw + c);
    FFTRows(kerReal.data(), kh, kerImag.data(), 0, int32_t(pw));

    // Product of the two transforms times i (both signals sit in the
    // imaginary parts): (a, b) x (c, d) -> (a c - d b, a d + c b).
    float *ii = imgImag.data(), *ir = imgReal.data();
    FFTColumnStrips(kerReal.data(), kerImag.data(), int32_t(ph), int32_t(pw), kh, 0, 0, int32_t(pw),
                    [&](int32_t x0, int32_t count, const float* kr, const float* ki) {
                        for (int64_t m = 0; m < ph; ++m) {
                            float* pi = ii + size_t(m) * size_t(pw) + x0;
                            float* pr = ir + size_t(m) * size_t(pw) + x0;
                            const float* c = ki + m * kColumnStripStride;
                            const float* d = kr + m * kColumnStripStride;
                            int32_t l = 0;
                            for (; l + 4 <= count; l += 4) {
                                const __m128 va = _mm_loadu_ps(pi + l), vb = _mm_loadu_ps(pr + l);
                                const __m128 vc = _mm_load_ps(c + l), vd = _mm_load_ps(d + l);
                                _mm_storeu_ps(pi + l, _mm_sub_ps(_mm_mul_ps(va, vc), _mm_mul_ps(vd, vb)));
                                _mm_storeu_ps(pr + l, _mm_add_ps(_mm_mul_ps(va, vd), _mm_mul_ps(vc, vb)));
                            }
                            for (; l < count; ++l) {
                                const float a = pi[l], b = pr[l];
                                pi[l] = a * c[l] - d[l] * b;
                                pr[l] = a * d[l] + c[l] * b;
                            }
                        }
                    });
    // The scaled inverse; only the columns read below need their column pass.
    FFTRows(ir, int32_t(ph), ii, 1, int32_t(pw));
    FFTColumns(ir, int32_t(ph), ii, 1, int32_t(pw), 2 * right, 2 * right + width);

    // Rows sit 2 Top further down and columns 2 Right further right. The
    // value is truncated before scaling; the scaling and the half are float.
    for (int32_t y = 0; y < height; ++y) {
        const float* t = ii + (size_t(y) + 2 * size_t(top)) * size_t(pw) + 2 * size_t(right);
        uint8_t* out = Dest->Data + size_t(y) * size_t(Dest->WidthStep);
        for (int32_t x = 0; x < width; ++x) {
            const float scaled = float(TruncToInt(t[x])) * scale;
            out[x] = ClampByte(TruncToInt(scaled + 0.5f));
        }
    }
    // The one-channel result is not otherwise defined; it reports success.
    return STATUS_OK;
}

Status FFTConv2Form(const Matrix* Src, const Matrix* Kernel, Matrix* Dest, int32_t EdgeMode) {
    if (const Status s = Validate(Src, Kernel, Dest); s != STATUS_OK) return s;
    if (Src->Channel == 3) return PerChannel(Src, Kernel, Dest, EdgeMode, FFTConv2Form);
    return FFTConv2Single(Src, Kernel, Dest, EdgeMode);
}

}  // namespace

// ---- building blocks ------------------------------------------------------------------

Status SplitChannels(const Matrix* Src, Matrix* Plane0, Matrix* Plane1, Matrix* Plane2) {
    if (!Src || !Plane0 || !Plane1 || !Plane2) return STATUS_NULL_REFERENCE;
    if (!Src->Data || !Plane0->Data || !Plane1->Data || !Plane2->Data) return STATUS_NULL_REFERENCE;
    const size_t step = size_t(Plane0->WidthStep);
    for (int32_t y = 0; y < Src->Height; ++y)
        SplitPlanes(Src->Data + size_t(y) * size_t(Src->WidthStep), Src->Width, 1, 0, Plane0->Data + y * step,
                    Plane1->Data + y * step, Plane2->Data + y * step);
    return STATUS_OK;
}

Status MergeChannels(Matrix* Dest, const Matrix* Plane0, const Matrix* Plane1, const Matrix* Plane2) {
    if (!Dest || !Plane0 || !Plane1 || !Plane2) return STATUS_NULL_REFERENCE;
    if (!Dest->Data || !Plane0->Data || !Plane1->Data || !Plane2->Data) return STATUS_NULL_REFERENCE;
    const size_t step = size_t(Plane0->WidthStep);
    for (int32_t y = 0; y < Dest->Height; ++y)
        MergePlanes(Plane0->Data + y * step, Plane1->Data + y * step, Plane2->Data + y * step, Dest->Width, 1, 0,
                    Dest->Data + size_t(y) * size_t(Dest->WidthStep));
    return STATUS_OK;
}

float DotProduct(const float* A, const float* B, int32_t Count) {
    float total = 0.0f;
    int32_t rest = Count;
    if (Count > 16) {
        __m128 s0 = _mm_setzero_ps(), s1 = s0, s2 = s0, s3 = s0;
        for (int32_t i = 0; i + 16 <= Count; i += 16) {
            s0 = _mm_add_ps(s0, _mm_mul_ps(_mm_loadu_ps(A + i), _mm_loadu_ps(B + i)));
            s1 = _mm_add_ps(s1, _mm_mul_ps(_mm_loadu_ps(A + i + 4), _mm_loadu_ps(B + i + 4)));
            s2 = _mm_add_ps(s2, _mm_mul_ps(_mm_loadu_ps(A + i + 8), _mm_loadu_ps(B + i + 8)));
            s3 = _mm_add_ps(s3, _mm_mul_ps(_mm_loadu_ps(A + i + 12), _mm_loadu_ps(B + i + 12)));
        }
        alignas(16) float lane[4];
        _mm_store_ps(lane, _mm_add_ps(_mm_add_ps(s3, s2), _mm_add_ps(s1, s0)));
        total = ((lane[0] + lane[1]) + lane[2]) + lane[3];
        rest = Count - 16 * (Count / 16);
        if (rest == 0) return total;
    }
    // The remainder pass starts again at element 0.
    __m128 m = _mm_setzero_ps();
    for (int32_t g = 0; g < rest / 4; ++g) m = _mm_add_ps(m, _mm_mul_ps(_mm_loadu_ps(A + 4 * g), _mm_loadu_ps(B + 4 * g)));
    alignas(16) float lane[4];
    _mm_store_ps(lane, m);
    return (((lane[0] + lane[1]) + lane[2]) + lane[3]) + total;
}

Status Conv2(const Matrix* Src, const Matrix* Kernel, Matrix* Dest, int32_t EdgeMode) {
    return Conv2Form(Src, Kernel, Dest, EdgeMode);
}

Status FFTConv2(const Matrix* Src, const Matrix* Kernel, Matrix* Dest, int32_t EdgeMode) {
    return FFTConv2Form(Src, Kernel, Dest, EdgeMode);
}

}  // namespace velomar

VL_API Status VL_CALL Conv2(const Matrix* Src, const Matrix* Kernel, Matrix* Dest, int32_t EdgeMode) {
    return velomar::GuardedStatus([&] { return velomar::Conv2(Src, Kernel, Dest, EdgeMode); });
}

VL_API Status VL_CALL FFTConv2(const Matrix* Src, const Matrix* Kernel, Matrix* Dest, int32_t EdgeMode) {
    return velomar::GuardedStatus([&] { return velomar::FFTConv2(Src, Kernel, Dest, EdgeMode); });
}
