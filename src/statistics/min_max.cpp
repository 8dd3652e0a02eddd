// Local minimum, maximum and range over a square neighbourhood clipped to the
// image.
#include <algorithm>

#include "statistics/statistics.h"

namespace velomar {

namespace {

inline __m128i Load(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
inline void Store(uint8_t* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }

// The minimum and the maximum share one walk; the maximum uses 0 where the
// minimum uses 255 (what the complement of a minimum amounts to).
template <bool kMax>
struct Extreme {
    static constexpr uint8_t kNeutral = kMax ? 0 : 255;
    static __m128i Op(__m128i a, __m128i b) { return kMax ? _mm_max_epu8(a, b) : _mm_min_epu8(a, b); }
    static uint8_t Op(uint8_t a, uint8_t b) { return kMax ? std::max(a, b) : std::min(a, b); }
};

// Column extremes over source rows First .. Last of byte lanes [j, j + 16).
template <bool kMax>
inline __m128i RescanLanes(const uint8_t* Src, size_t j, int32_t Stride, int32_t First,
                           int32_t Last) {
    using E = Extreme<kMax>;
    // Four independent chains keep the loads in flight.
    const uint8_t* p = Src + static_cast<size_t>(First) * Stride + j;
    const size_t s = static_cast<size_t>(Stride);
    __m128i v0 = Load(p), v1 = v0, v2 = v0, v3 = v0;
    int32_t k = First + 1;
    p += s;
    for (; k + 4 <= Last + 1; k += 4, p += 4 * s) {
        v0 = E::Op(v0, Load(p));
        v1 = E::Op(v1, Load(p + s));
        v2 = E::Op(v2, Load(p + 2 * s));
        v3 = E::Op(v3, Load(p + 3 * s));
    }
    for (; k <= Last; ++k, p += s) v0 = E::Op(v0, Load(p));
    return E::Op(E::Op(v0, v1), E::Op(v2, v3));
}

template <bool kMax>
inline uint8_t RescanLane(const uint8_t* Src, size_t j, int32_t Stride, int32_t First,
                          int32_t Last) {
    uint8_t v = Extreme<kMax>::kNeutral;
    for (int32_t k = First; k <= Last; ++k)
        v = Extreme<kMax>::Op(v, Src[static_cast<size_t>(k) * Stride + j]);
    return v;
}

// Moves the column extremes one row down. Leave (the row dropping out, or
// null at the top) and Enter (the row coming in, or null at the bottom).
// A column keeps its extreme combined with the entering value unless the
// leaving value was that extreme and the entering value does not replace it;
// those columns are rescanned over the new band First .. Last, sixteen at a
// time.
template <bool kMax>
void StepColumns(uint8_t* Column, const uint8_t* Leave, const uint8_t* Enter, size_t Lanes,
                 const uint8_t* Src, int32_t Stride, int32_t First, int32_t Last) {
    using E = Extreme<kMax>;
    size_t j = 0;
    if (!Leave) {
        for (; j + 16 <= Lanes; j += 16) Store(Column + j, E::Op(Load(Column + j), Load(Enter + j)));
        for (; j < Lanes; ++j) Column[j] = E::Op(Column[j], Enter[j]);
        return;
    }
    for (; j + 16 <= Lanes; j += 16) {
        const __m128i cur = Load(Column + j);
        const __m128i out = Load(Leave + j);
        __m128i next = cur;
        __m128i stale = _mm_cmpeq_epi8(cur, out);
        if (Enter) {
            const __m128i in = Load(Enter + j);
            next = E::Op(cur, in);
            // An entering value at least as extreme settles the lane.
            stale = _mm_andnot_si128(_mm_cmpeq_epi8(next, in), stale);
        }
        if (_mm_movemask_epi8(stale)) next = RescanLanes<kMax>(Src, j, Stride, First, Last);
        Store(Column + j, next);
    }
    for (; j < Lanes; ++j) {
        const uint8_t cur = Column[j];
        uint8_t next = Enter ? E::Op(cur, Enter[j]) : cur;
        if (cur == Leave[j] && !(Enter && next == Enter[j]))
            next = RescanLane<kMax>(Src, j, Stride, First, Last);
        Column[j] = next;
    }
}

// Extremes over runs of Span elements (Step bytes apart) of Padded, for the
// first Lanes starts, written to Out. Runs of 2, 4, 8, ... are built by whole-row
// vector passes; a run of Span is then the combination of two overlapping
// power-of-two runs, so the cost grows with log(Span) only. Padded, A and B
// carry at least 48 readable bytes past Length.
template <bool kMax>
void SpanRow(const uint8_t* Padded, size_t Length, int32_t Step, int32_t Span, uint8_t* A,
             uint8_t* B, uint8_t* Out, size_t Lanes) {
    using E = Extreme<kMax>;
    const uint8_t* cur = Padded;
    int32_t run = 1;
    uint8_t* next = A;
    // Four runs at a time while that fits, then a last doubling if it fits.
    while (4 * run <= Span) {
        const size_t d = static_cast<size_t>(run) * Step;
        const size_t valid = Length - 3 * d;
        for (size_t j = 0; j < valid; j += 16) {
            const __m128i v01 = E::Op(Load(cur + j), Load(cur + j + d));
            const __m128i v23 = E::Op(Load(cur + j + 2 * d), Load(cur + j + 3 * d));
            Store(next + j, E::Op(v01, v23));
        }
        cur = next;
        next = next == A ? B : A;
        run *= 4;
    }
    if (2 * run <= Span) {
        const size_t d = static_cast<size_t>(run) * Step;
        const size_t valid = Length - d;
        for (size_t j = 0; j < valid; j += 16) Store(next + j, E::Op(Load(cur + j), Load(cur + j + d)));
        cur = next;
        run *= 2;
    }
    const size_t d = static_cast<size_t>(Span - run) * Step;
    size_t j = 0;
    for (; j + 16 <= Lanes; j += 16) Store(Out + j, E::Op(Load(cur + j), Load(cur + j + d)));
    if (j < Lanes) {
        if (Lanes >= 16) {
            // The last sixteen lanes again, ending at the row's end.
            j = Lanes - 16;
            Store(Out + j, E::Op(Load(cur + j), Load(cur + j + d)));
        } else {
            for (; j < Lanes; ++j) Out[j] = E::Op(cur[j], cur[j + d]);
        }
    }
}

// Out-of-place walk: Src and Dest do not overlap. The neighbourhood is
// clipped to the image, so a radius beyond the image size acts like one that
// just covers it; rows and columns are clipped independently.
template <bool kMax>
void ExtremeFilter(const uint8_t* Src, uint8_t* Dest, int32_t Width, int32_t Height,
                   int32_t Stride, int32_t Radius, int32_t Channels) {
    const int32_t rv = std::min(Radius, Height - 1);
    const int32_t rh = std::min(Radius, Width - 1);
    const size_t lanes = static_cast<size_t>(Width) * Channels;
    const size_t side = static_cast<size_t>(rh) * Channels;
    const size_t length = lanes + 2 * side;
    constexpr size_t kSlack = 64;

    Buffer<uint8_t> padded(length + kSlack), a(length + kSlack, true), b(length + kSlack, true);
    std::memset(padded.data(), Extreme<kMax>::kNeutral, length + kSlack);
    uint8_t* column = padded.data() + side;

    std::memcpy(column, Src, lanes);
    for (int32_t k = 1; k <= rv; ++k)
        StepColumns<kMax>(column, nullptr, Src + static_cast<size_t>(k) * Stride, lanes, Src,
                          Stride, 0, 0);

    for (int32_t y = 0; y < Height; ++y) {
        if (y > 0) {
            const int32_t leave = y - rv - 1, enter = y + rv;
            const uint8_t* leave_row = leave >= 0 ? Src + static_cast<size_t>(leave) * Stride : nullptr;
            const uint8_t* enter_row = enter < Height ? Src + static_cast<size_t>(enter) * Stride : nullptr;
            if (leave_row || enter_row)
                StepColumns<kMax>(column, leave_row, enter_row, lanes, Src, Stride,
                                  std::max(0, y - rv), std::min(Height - 1, y + rv));
        }
        uint8_t* out = Dest + static_cast<size_t>(y) * Stride;
        if (rh == 0) {
            std::memcpy(out, column, lanes);
        } else {
            SpanRow<kMax>(padded.data(), length, Channels, 2 * rh + 1, a.data(), b.data(), out,
                          lanes);
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
    for (; i + 16 <= bytes; i += 16) Store(Dest + i, _mm_sub_epi8(Load(Dest + i), Load(low.data() + i)));
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
