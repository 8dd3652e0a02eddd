// Guided filter: in every square window the input is fitted as a linear
// function a * I + b of the guide, and each output pixel averages the models of
// the windows that cover it. Every local mean is a double box mean with
// replicated edges, so the cost per pixel does not depend on the radius.
//
// The six box means run as two streams of rows instead of six whole-plane
// passes: the first stream keeps running sums of p, I * I, I and I * p and
// turns each finished row of means into a row of coefficients a and b; the
// second keeps running sums of a and b, a few rows behind, and turns each row
// into output. Both streams are the library's one double box mean, the one
// behind BoxBlurDouble, so every mean, and the result, has the same bits as
// the plane-by-plane formulation.
#include <algorithm>

#include "blur/box_mean.h"
#include "smooth/smooth.h"

namespace velomar {

namespace {

constexpr double kByteToUnit = 0.00392156862745098;  // 1 / 255

// Where p and I come from: double planes with pitch Width, or one channel of
// an 8-bit buffer converted by v / 255 as it is read.
struct DoubleRows {
    const double* plane;
    int32_t width;
    const double* Row(int32_t y, double*) const { return plane + size_t(y) * size_t(width); }
};

struct ByteRows {
    const uint8_t* base;
    int32_t width, stride, pixelBytes;
    const double* Row(int32_t y, double* scratch) const {
        const uint8_t* s = base + size_t(y) * size_t(stride);
        for (int32_t x = 0; x < width; ++x) scratch[x] = s[size_t(x) * pixelBytes] * kByteToUnit;
        return scratch;
    }
};

// The four planes of the first stream: p, I * I, I, I * p (the last two only
// when the guide differs from the input; otherwise they equal the first two).
template <class RowSource, int K>
struct ModelInputs {
    RowSource input, guide;
    int32_t width;

    void Rows(int32_t y, double* const* scratch, const double** rows) const {
        const double* p = input.Row(y, scratch[0]);
        const double* g = p;
        if constexpr (K == 4) g = guide.Row(y, scratch[2]);
        double* squares = scratch[1];
        int32_t x = 0;
        for (; x + 2 <= width; x += 2) {
            const __m128d v = _mm_loadu_pd(g + x);
            _mm_storeu_pd(squares + x, _mm_mul_pd(v, v));
        }
        for (; x < width; ++x) squares[x] = g[x] * g[x];
        rows[0] = p;
        rows[1] = squares;
        if constexpr (K == 4) {
            double* products = scratch[3];
            for (x = 0; x + 2 <= width; x += 2)
                _mm_storeu_pd(products + x, _mm_mul_pd(_mm_loadu_pd(g + x), _mm_loadu_pd(p + x)));
            for (; x < width; ++x) products[x] = g[x] * p[x];
            rows[2] = g;
            rows[3] = products;
        }
    }
};

// Rows of a and b, kept in a ring of whole rows just deep enough for the
// second stream's window (the whole plane when the window covers it).
struct CoefficientRing {
    Buffer<double> a, b;
    int32_t width, rows;

    CoefficientRing(int32_t w, int32_t h, int32_t radius)
        : width(w), rows(static_cast<int32_t>(std::min<int64_t>(2 * int64_t(radius) + 2, h))) {
        a.Reset(size_t(rows) * size_t(w));
        b.Reset(size_t(rows) * size_t(w));
    }
    double* A(int32_t y) { return a.data() + size_t(y % rows) * size_t(width); }
    double* B(int32_t y) { return b.data() + size_t(y % rows) * size_t(width); }
    void Rows(int32_t y, double* const*, const double** out) {
        out[0] = A(y);
        out[1] = B(y);
    }
};

// a = (mean_Ip - mean_I * mean_p) / (mean_II - mean_I * mean_I + Epsilon),
// b = mean_p - a * mean_I, for one row.
void Coefficients(const double* mP, const double* mII, const double* mI, const double* mIP,
                  double Epsilon, double* outA, double* outB, int32_t width) {
    const __m128d eps = _mm_set1_pd(Epsilon);
    int32_t x = 0;
    for (; x + 2 <= width; x += 2) {
        const __m128d i = _mm_loadu_pd(mI + x), p = _mm_loadu_pd(mP + x);
        const __m128d num = _mm_sub_pd(_mm_loadu_pd(mIP + x), _mm_mul_pd(i, p));
        const __m128d den = _mm_add_pd(_mm_sub_pd(_mm_loadu_pd(mII + x), _mm_mul_pd(i, i)), eps);
        const __m128d a = _mm_div_pd(num, den);
        _mm_storeu_pd(outA + x, a);
        _mm_storeu_pd(outB + x, _mm_sub_pd(p, _mm_mul_pd(a, i)));
    }
    for (; x < width; ++x) {
        const double a = (mIP[x] - mI[x] * mP[x]) / (mII[x] - mI[x] * mI[x] + Epsilon);
        outA[x] = a;
        outB[x] = mP[x] - a * mI[x];
    }
}

// Runs both streams; emit(y, meanA, meanB, guideRow) writes output row y,
// q = mean_a * I + mean_b. The first stream stays just far enough ahead for
// the second stream's next row, so the ring never drops a row still needed.
template <int K, class RowSource, class Emit>
void RunGuided(const RowSource& input, const RowSource& guide, int32_t Width, int32_t Height, int32_t Radius,
               double Epsilon, Emit&& emit) {
    ModelInputs<RowSource, K> inputs{input, guide, Width};
    BoxMeanRows<K> first(Width, Height, Radius, EDGE_REPLICATE);
    BoxMeanRows<2> second(Width, Height, Radius, EDGE_REPLICATE);
    CoefficientRing ring(Width, Height, Radius);
    Buffer<double> meanRows(size_t(K + 2) * size_t(Width)), guideRow{size_t(Width)};
    double* means[K];
    for (int k = 0; k < K; ++k) means[k] = meanRows.data() + size_t(k) * Width;
    double* ab[2] = {meanRows.data() + size_t(K) * Width, meanRows.data() + size_t(K + 1) * Width};
    int32_t made = 0;
    for (int32_t y = 0; y < Height; ++y) {
        const int32_t needed = static_cast<int32_t>(std::min<int64_t>(int64_t(y) + Radius, Height - 1));
        for (; made <= needed; ++made) {
            first.Next(inputs, means);
            if constexpr (K == 4)
                Coefficients(means[0], means[1], means[2], means[3], Epsilon, ring.A(made),
                             ring.B(made), Width);
            else  // mean_I is mean_p and mean_Ip is mean_II
                Coefficients(means[0], means[1], means[0], means[1], Epsilon, ring.A(made),
                             ring.B(made), Width);
        }
        second.Next(ring, ab);
        emit(y, ab[0], ab[1], guide.Row(y, guideRow.data()));
    }
}

// q = mean_a * I + mean_b for one row.
void ApplyModel(const double* meanA, const double* meanB, const double* guide, double* out,
                int32_t width) {
    int32_t x = 0;
    for (; x + 2 <= width; x += 2)
        _mm_storeu_pd(out + x, _mm_add_pd(_mm_mul_pd(_mm_loadu_pd(meanA + x), _mm_loadu_pd(guide + x)),
                                          _mm_loadu_pd(meanB + x)));
    for (; x < width; ++x) out[x] = meanA[x] * guide[x] + meanB[x];
}

}  // namespace

void GuidedFilterCore(const double* Input, const double* Guide, double* Output, int32_t Width,
                      int32_t Height, int32_t Radius, double Epsilon) {
    // Missing planes, an empty image or a negative radius: nothing to do.
    if (!Input || !Guide || !Output || Width <= 0 || Height <= 0 || Radius < 0) return;
    // Output row y is written after the first stream has read every input row
    // it needs up to y + Radius, but later rows still read the input: work from
    // a copy when Output is the input or the guide.
    const size_t n = size_t(Width) * size_t(Height);
    Buffer<double> inputCopy, guideCopy;
    const double* input = Input;
    const double* guide = Guide;
    if (Output == Input || Output == Guide) {
        inputCopy.Reset(n);
        std::memcpy(inputCopy.data(), Input, n * sizeof(double));
        input = inputCopy.data();
        if (Guide == Input) {
            guide = input;
        } else {
            guideCopy.Reset(n);
            std::memcpy(guideCopy.data(), Guide, n * sizeof(double));
            guide = guideCopy.data();
        }
    }
    auto emit = [&](int32_t y, const double* meanA, const double* meanB, const double* g) {
        ApplyModel(meanA, meanB, g, Output + size_t(y) * size_t(Width), Width);
    };
    const DoubleRows inRows{input, Width}, guideRows{guide, Width};
    if (input == guide)
        RunGuided<2>(inRows, guideRows, Width, Height, Radius, Epsilon, emit);
    else
        RunGuided<4>(inRows, guideRows, Width, Height, Radius, Epsilon, emit);
}

void GuidedFilter(const uint8_t* Src, const uint8_t* Guide, uint8_t* Dest, int32_t Width,
                  int32_t Height, int32_t Stride, int32_t Radius, double Epsilon) {
    // Null buffers, an empty image or a negative radius return without writing.
    if (!RawArgsValid(Src, Dest, Width, Height, Stride) || !Guide || Radius < 0) return;
    const int32_t bpp = BytesPerPixel(Width, Stride);
    // Every layout but grey is walked as three-byte pixels (a fourth byte is
    // left alone); a two-byte layout would leave the row, so nothing is written.
    if (bpp != 1 && !ThreeBytesFit(Width, Stride)) return;
    const int32_t pixelBytes = bpp == 1 ? 1 : 3;
    const int32_t channels = bpp == 1 ? 1 : 3;
    // Rows of Src and Guide are read again after earlier Dest rows are
    // written, so a source that is also the destination is copied first.
    const size_t bytes = ImageBytes(Height, Stride);
    InPlaceCopy src(Src, Dest, bytes);
    InPlaceCopy guide(Guide, Src == Guide ? nullptr : Dest, bytes);
    const uint8_t* g = Src == Guide ? src.get() : guide.get();
    Buffer<double> row{size_t(Width)};
    for (int32_t c = 0; c < channels; ++c) {
        uint8_t* dest = Dest + c;
        auto emit = [&](int32_t y, const double* meanA, const double* meanB, const double* I) {
            double* q = row.data();
            ApplyModel(meanA, meanB, I, q, Width);
            // q * 255 + 0.5, truncated, clamped to 0..255 (NaN gives 0).
            uint8_t* d = dest + size_t(y) * size_t(Stride);
            for (int32_t x = 0; x < Width; ++x)
                d[size_t(x) * pixelBytes] = TruncClampByte(q[x] * 255 + 0.5);
        };
        const ByteRows inRows{src.get() + c, Width, Stride, pixelBytes};
        const ByteRows guideRows{g + c, Width, Stride, pixelBytes};
        if (Src == Guide)
            RunGuided<2>(inRows, guideRows, Width, Height, Radius, Epsilon, emit);
        else
            RunGuided<4>(inRows, guideRows, Width, Height, Radius, Epsilon, emit);
    }
}

}  // namespace velomar

VL_API void VL_CALL GuidedFilter(const unsigned char* Src, const unsigned char* Guide,
                                 unsigned char* Dest, int32_t Width, int32_t Height,
                                 int32_t Stride, int32_t Radius, double Epsilon) {
    velomar::Guarded([&] {
        velomar::GuidedFilter(Src, Guide, Dest, Width, Height, Stride, Radius, Epsilon);
    });
}
