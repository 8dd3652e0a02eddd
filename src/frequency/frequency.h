// Frequency domain: the library's one FFT, the DCT and Walsh transforms built
// for the spectrum pictures, and the convolution building blocks.
#pragma once

#include <functional>

#include "core/core.h"

namespace velomar {

// ---- transforms ------------------------------------------------------------------
//
// Complex data are two float arrays of equal length, the real part and the
// imaginary part. Only the low byte of a Direction is looked at: 1 is the
// forward transform with e^(-2 pi i mk/n) scaled by 1/n, every other value the
// unscaled transform with e^(+2 pi i mk/n). All arithmetic is single
// precision; the twiddles come from the half-angle recurrence, not from a
// sine table, and that fixes the rounding of every result.

// Smallest power of two not smaller than n, doubling from 1 (1 for n <= 1).
int64_t PaddedLength(int64_t n);

// In-place radix-2 transform of Real + i Imag, Length a power of two. The
// imaginary array comes first.
void FFT1D(int32_t Length, float* Imag, float* Real, int32_t Direction);

// Every row of a row-major Width x Height plane pair with FFT1D(Width), then
// every column with FFT1D(Height). Both sizes are powers of two. Rows and
// columns are transformed many at a time with each element's operations
// exactly those of FFT1D, so the result equals the row-by-row form bit for bit.
void FFT2D(float* Real, int32_t Height, float* Imag, int32_t Direction, int32_t Width);

// The two passes of FFT2D on their own: the rows, and the columns First ..
// Last - 1 (the other columns are left as they are).
void FFTRows(float* Real, int32_t Height, float* Imag, int32_t Direction, int32_t Width);
void FFTColumns(float* Real, int32_t Height, float* Imag, int32_t Direction, int32_t Width, int32_t First,
                int32_t Last);

// The column transforms of a Width x Height plane pair whose rows from
// RowsPresent on are zero (and need not be stored), without writing them
// back: each strip of up to kColumnStripLanes columns from First to Last - 1
// is handed over transformed (not yet scaled) to Visit(x0, count, Real, Imag),
// element m of column x0 + l at m * kColumnStripStride + l.
constexpr int kColumnStripLanes = 32, kColumnStripStride = kColumnStripLanes + 4;
using ColumnStripVisitor =
    std::function<void(int32_t First, int32_t Count, const float* Real, const float* Imag)>;
void FFTColumnStrips(const float* Real, const float* Imag, int32_t Height, int32_t Width, int32_t RowsPresent,
                     int32_t Direction, int32_t First, int32_t Last, const ColumnStripVisitor& Visit);

// Exchanges the quadrants of each non-null plane diagonally (zero frequency to
// the centre). Planes one element wide or one row high are left as they are.
void FFTShift(int32_t Width, int32_t Height, float* PlaneA, float* PlaneB);

// Orthonormal DCT of one sequence in place, through one FFT of the same
// length: Direction low byte 0 is the forward (type II) transform, any other
// value the inverse path (exact inverse for Direction 1).
void DCT1D(float* Data, int32_t Length, int32_t Direction);
// Rows with DCT1D(Width), then columns with DCT1D(Height).
void DCT2D(int32_t Width, int32_t Height, float* Data, int32_t Direction);

// Walsh-Hadamard transform in dyadic order, scaled by 1 / Length.
void WalshTransform1D(int32_t Length, float* Data);
// Rows with WalshTransform1D(Width), then columns with WalshTransform1D(Height).
void WalshTransform2D(int32_t Width, int32_t Height, float* Data);

// ---- convolution building blocks ----------------------------------------------------

// Bytes 0, 1, 2 of each three-byte pixel of Src (Height rows of Width pixels,
// rows Src->WidthStep apart) into the three one-channel records, whose rows
// step by Plane0's WidthStep. 3 if a record or its Data is null, else 0.
Status SplitChannels(const Matrix* Src, Matrix* Plane0, Matrix* Plane1, Matrix* Plane2);
// The reverse copy, into Dest.
Status MergeChannels(Matrix* Dest, const Matrix* Plane0, const Matrix* Plane1,
                     const Matrix* Plane2);

// Four-lane float dot product of Count elements (a multiple of 4). Counts over
// 16 run four accumulators over whole blocks of 16, then a remainder pass that
// starts again at element 0: the first Count % 16 products are counted twice
// and the last Count % 16 left out. That is the defined result.
float DotProduct(const float* A, const float* B, int32_t Count);

// Conv2's dot products for neighbouring pixels at once. A term is one
// product of the dot product: its weight (four copies, for a broadcast
// load) and the offset of its sample from a pixel's first tap in the float
// copy of the extended image. Groups 0..15 are the accumulators of the
// 16-element blocks, 16..19 the lanes of the remainder pass; each lists its
// terms with a non-zero weight, in DotProduct's order.
struct ConvTerm {
    alignas(16) float weight[4];
    ptrdiff_t offset;
};
struct ConvPlan {
    struct Group {
        const ConvTerm* first = nullptr;
        const ConvTerm* last = nullptr;
    };
    int32_t blocks = 0;  // whole blocks of 16 when the count is over 16, else 0
    int32_t rest = 0;    // products of the remainder pass
    Group group[20];
};
// Conv2's bytes for the first pixels of a row (Row: the first pixel's first
// tap; Out: its output byte), in runs as wide as the instruction set takes;
// returns how many pixels were written, the rest being left to the caller.
// Each equals DotProduct over the pixel's strip, scaled, rounded and clamped.
int32_t Conv2RunSse2(const ConvPlan& Plan, const float* Row, int32_t Count, double Scale, uint8_t* Out);
int32_t Conv2RunAvx2(const ConvPlan& Plan, const float* Row, int32_t Count, double Scale, uint8_t* Out);
int32_t Conv2RunAvx512(const ConvPlan& Plan, const float* Row, int32_t Count, double Scale, uint8_t* Out);

// ---- internal forms of the exports ---------------------------------------------------

void ShowFFT(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
             uint8_t CopyToReal, int32_t Direction);
void ShowDCT(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
             int32_t Direction);
void ShowWALSH(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride);
Status Conv2(const Matrix* Src, const Matrix* Kernel, Matrix* Dest, int32_t EdgeMode);
Status FFTConv2(const Matrix* Src, const Matrix* Kernel, Matrix* Dest, int32_t EdgeMode);

// ---- spectrum pictures ---------------------------------------------------------------

// The planes of a spectrum picture: one per channel, PaddedWidth x
// PaddedHeight floats, the image in the top-left corner and zeros elsewhere;
// the output area is the centred Width x Height window of the plane.
struct SpectrumLayout {
    int32_t width = 0, height = 0, stride = 0;
    int32_t channels = 0;          // 1 grey, 3 interleaved bytes per pixel
    int32_t paddedWidth = 0, paddedHeight = 0;
    size_t planeSize = 0;          // floats per plane
    size_t origin = 0;             // plane index of the output area's first element
};

// Fills `layout` for a raw-form call; false (write nothing) for null
// pointers, sizes below 1, a Stride short of its layout, or planes too large
// to address.
bool MakeSpectrumLayout(const void* Src, const void* Dest, int32_t Width, int32_t Height,
                        int32_t Stride, SpectrumLayout& layout);
// Every channel of the source into its own plane (Planes[0 .. channels - 1]),
// the cells outside the image zero. The whole source is read here, before
// anything is written: Src may be Dest.
void LoadSpectrumPlanes(const SpectrumLayout& layout, const uint8_t* Src, Buffer<float>* Planes);
// Writes channel `c` of every pixel of Dest as value(k), k the plane index of
// the pixel in the output area.
template <class Value>
void StoreSpectrumPlane(const SpectrumLayout& layout, uint8_t* Dest, int32_t c, Value value) {
    const int32_t walk = layout.channels;
    for (int32_t y = 0; y < layout.height; ++y) {
        uint8_t* d = Dest + size_t(y) * size_t(layout.stride) + c;
        const size_t k = layout.origin + size_t(y) * size_t(layout.paddedWidth);
        for (int32_t x = 0; x < layout.width; ++x) d[size_t(x) * walk] = value(k + size_t(x));
    }
}

}  // namespace velomar
