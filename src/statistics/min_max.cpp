// Local minimum, maximum and range over a square neighbourhood clipped to the
// image.
#include <algorithm>

#include "core/byte_lanes.h"
#include "statistics/statistics.h"

namespace velomar {

namespace {

using FoldFn = void (*)(const uint8_t* const* In, int32_t Count, uint8_t* Out, size_t N);

#define VELOMAR_BYTE_KERNEL "statistics/min_max_lanes.inc"
#include "core/byte_lanes_each_isa.inc"

template <bool kMax>
FoldFn FoldFor() {
    return VELOMAR_WIDEST_KERNEL(Fold<kMax>);
}

// Up to this radius a band of rows, or a span of a row, is folded directly;
// beyond it the cost stops growing with the radius.
constexpr int32_t kDirectRows = 2;
constexpr int32_t kDirectSpan = 2;

// Extremes over the vertical band of rows y - R .. y + R clipped to the
// image, one output row at a time for y = 0, 1, 2, ... (van Herk and
// Gil-Werman): the band's rows, offset by R so that row -R is 0, fall into
// blocks of 2 R + 1; a band that does not start a block covers the end of one
// block and the start of the next, so its extreme is the extreme of a suffix
// of the first (kept for the whole block) and a prefix of the second (grown
// row by row), three folds per row whatever R.
template <bool kMax>
class BandExtremes {
public:
    BandExtremes(FoldFn Fold, const uint8_t* Src, int32_t Height, int32_t Stride, size_t Lanes,
                 int32_t Radius)
        : fold_(Fold), src_(Src), height_(Height), stride_(Stride), lanes_(Lanes), radius_(Radius),
          block_(2 * Radius + 1) {
        if (Radius > kDirectRows) {
            suffix_.Reset(size_t(std::min(block_, Height)) * Lanes);
            prefix_.Reset(Lanes);
        }
    }

    void Row(int32_t y, uint8_t* Out) {
        if (radius_ <= kDirectRows) {
            const uint8_t* in[2 * kDirectRows + 1];
            int32_t count = 0;
            for (int32_t t = std::max(0, y - radius_); t <= std::min(height_ - 1, y + radius_); ++t)
                in[count++] = SourceRow(t);
            fold_(in, count, Out, lanes_);
            return;
        }
        const int32_t start = y - y % block_;
        if (y == start) {
            BuildSuffixes(start);
            std::memcpy(Out, Suffix(0), lanes_);
            return;
        }
        // Source row y + R is the next block's row y + 2 R - (start + block).
        const int32_t enter = y + radius_;
        if (y == start + 1) {
            if (enter < height_) std::memcpy(prefix_.data(), SourceRow(enter), lanes_);
            else std::memset(prefix_.data(), kMax ? 0 : 255, lanes_);
        } else if (enter < height_) {
            const uint8_t* in[2] = {prefix_.data(), SourceRow(enter)};
            fold_(in, 2, prefix_.data(), lanes_);
        }
        const uint8_t* in[2] = {Suffix(y - start), prefix_.data()};
        fold_(in, 2, Out, lanes_);
    }

private:
    const uint8_t* SourceRow(int32_t t) const { return src_ + size_t(t) * stride_; }
    uint8_t* Suffix(int32_t i) { return suffix_.data() + size_t(i) * lanes_; }

    // Suffix i of the block starting at band position Start: the extreme of
    // source rows Start + i - R .. Start + R (clipped). Only positions of
    // output rows are kept; the last folds in every row above it.
    void BuildSuffixes(int32_t Start) {
        const int32_t last = std::min(Start + block_, height_) - 1 - Start;
        const int32_t low = std::max(0, Start + last - radius_);
        const int32_t high = std::min(height_ - 1, Start + radius_);
        std::memcpy(Suffix(last), SourceRow(high), lanes_);
        for (int32_t t = high - 1; t >= low; --t) {
            const uint8_t* in[2] = {Suffix(last), SourceRow(t)};
            fold_(in, 2, Suffix(last), lanes_);
        }
        for (int32_t i = last - 1; i >= 0; --i) {
            const int32_t t = Start + i - radius_;
            if (t < 0) {
                std::memcpy(Suffix(i), Suffix(i + 1), lanes_);
            } else {
                const uint8_t* in[2] = {SourceRow(t), Suffix(i + 1)};
                fold_(in, 2, Suffix(i), lanes_);
            }
        }
    }

    FoldFn fold_;
    const uint8_t* src_;
    int32_t height_, stride_;
    size_t lanes_;
    int32_t radius_, block_;
    Buffer<uint8_t> suffix_, prefix_;
};

// Extremes over runs of Span elements (Step bytes apart) of Padded (Length
// bytes), for the first Lanes starts, written to Out. Runs of 2, 4, 8, ...
// are built by whole-row passes; a run of Span is then the extreme of two
// overlapping power-of-two runs, so the cost grows with log(Span) only. Each
// pass reads only what the previous one wrote.
void SpanRow(FoldFn Fold, const uint8_t* Padded, size_t Length, int32_t Step, int32_t Span,
             uint8_t* A, uint8_t* B, uint8_t* Out, size_t Lanes) {
    const uint8_t* cur = Padded;
    size_t valid = Length;  // cur holds runs starting at 0 .. valid - 1
    int32_t run = 1;
    uint8_t* next = A;
    // Four runs at a time while that fits, then a last doubling if it fits.
    while (4 * run <= Span || 2 * run <= Span) {
        const int32_t ways = 4 * run <= Span ? 4 : 2;
        const size_t d = size_t(run) * Step;
        const uint8_t* in[4] = {cur, cur + d, cur + 2 * d, cur + 3 * d};
        valid -= (ways - 1) * d;
        Fold(in, ways, next, valid);
        cur = next;
        next = next == A ? B : A;
        run *= ways;
        if (ways == 2) break;
    }
    const uint8_t* in[2] = {cur, cur + size_t(Span - run) * Step};
    Fold(in, 2, Out, Lanes);
}

// Out-of-place walk: Src and Dest do not overlap. The neighbourhood is
// clipped to the image, so a radius beyond the image size acts like one that
// just covers it; rows and columns are clipped independently. Each row's
// band extremes sit between neutral sides, so that spans running past the
// image's ends take only pixels inside it.
template <bool kMax>
void ExtremeFilter(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                   int32_t Stride, int32_t Radius, int32_t Channels) {
    const FoldFn fold = FoldFor<kMax>();
    const int32_t rv = std::min(Radius, Height - 1);
    const int32_t rh = std::min(Radius, Width - 1);
    const size_t lanes = size_t(Width) * Channels;
    const size_t side = size_t(rh) * Channels;
    const size_t length = lanes + 2 * side;
    const bool spans = rh > kDirectSpan;

    Buffer<uint8_t> padded(length), a(spans ? length : 0), b(spans ? length : 0);
    std::memset(padded.data(), kMax ? 0 : 255, length);
    uint8_t* column = padded.data() + side;
    BandExtremes<kMax> band(fold, Src, Height, Stride, lanes, rv);

    for (int32_t y = 0; y < Height; ++y) {
        band.Row(y, column);
        uint8_t* out = Dest + size_t(y) * Stride;
        if (spans) {
            SpanRow(fold, padded.data(), length, Channels, 2 * rh + 1, a.data(), b.data(), out, lanes);
        } else {
            const uint8_t* in[2 * kDirectSpan + 1];
            for (int32_t k = 0; k <= 2 * rh; ++k) in[k] = padded.data() + size_t(k) * Channels;
            fold(in, 2 * rh + 1, out, lanes);
        }
    }
}

// Layout of the walk: 1 for grey, 3 for three interleaved channels, 0 for a
// row too short for three bytes per pixel (nothing is then written).
int32_t WalkChannels(int32_t Width, int32_t Stride) {
    if (BytesPerPixel(Width, Stride) == 1) return 1;
    return ThreeBytesFit(Width, Stride) ? 3 : 0;
}

// Shared entry of both extremes. A negative radius has no neighbourhood and
// writes nothing.
template <bool kMax>
bool RunExtreme(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                int32_t Stride, int32_t Radius) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride) || Radius < 0) return false;
    const int32_t channels = WalkChannels(Width, Stride);
    if (channels == 0) return false;
    // The band of source rows is read after earlier output rows are written.
    InPlaceCopy source(Src, Dest, ImageBytes(Height, Stride));
    ExtremeFilter<kMax>(source.get(), Dest, Width, Height, Stride, Radius, channels);
    return true;
}

}  // namespace

void MinValue(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
              int32_t Radius) {
    RunExtreme<false>(Src, Dest, Width, Height, Stride, Radius);
}

// The maximum is the complement of the minimum of the complement, taken over
// every byte of the buffer. Computed directly with 0 as the neutral value; the
// bytes outside the walked pixels (row padding) are complemented twice, so
// they end up as copies of the source's.
void MaxValue(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height, int32_t Stride,
              int32_t Radius) {
    if (!RunExtreme<true>(Src, Dest, Width, Height, Stride, Radius) || Src == Dest) return;
    const size_t walked = static_cast<size_t>(Width) * WalkChannels(Width, Stride);
    for (int32_t y = 0; y < Height; ++y) {
        const size_t row = static_cast<size_t>(y) * Stride;
        std::memcpy(Dest + row + walked, Src + row + walked, static_cast<size_t>(Stride) - walked);
    }
}

// Maximum minus minimum over every byte of the buffer. The minimum's image
// starts zeroed, so its untouched padding is 0 and the padding of the result
// is the maximum's padding, i.e. the source's.
void RangeFilter(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                 int32_t Stride, int32_t Radius) {
    if (!RawArgsValid(Src, Dest, Width, Height, Stride) || Radius < 0) return;
    if (WalkChannels(Width, Stride) == 0) return;
    const size_t bytes = ImageBytes(Height, Stride);
    Buffer<uint8_t> low(bytes, true);
    MinValue(Src, low.data(), Width, Height, Stride, Radius);
    MaxValue(Src, Dest, Width, Height, Stride, Radius);
    size_t i = 0;
    using V = Sse2Bytes;
    for (; i + 16 <= bytes; i += 16) V::Store(Dest + i, _mm_sub_epi8(V::Load(Dest + i), V::Load(low.data() + i)));
    for (; i < bytes; ++i) Dest[i] = static_cast<uint8_t>(Dest[i] - low[i]);
}

}  // namespace velomar

VL_API void VL_CALL MinValue(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                             int32_t Height, int32_t Stride, int32_t Radius) {
    velomar::Guarded([&] { velomar::MinValue(Src, Dest, Width, Height, Stride, Radius); });
}

VL_API void VL_CALL MaxValue(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                             int32_t Height, int32_t Stride, int32_t Radius) {
    velomar::Guarded([&] { velomar::MaxValue(Src, Dest, Width, Height, Stride, Radius); });
}

VL_API void VL_CALL RangeFilter(const unsigned char* Src, unsigned char* Dest, int32_t Width,
                                int32_t Height, int32_t Stride, int32_t Radius) {
    velomar::Guarded([&] { velomar::RangeFilter(Src, Dest, Width, Height, Stride, Radius); });
}
