// libFuzzer harness over the Matrix form: random and malformed records (null
// records or Data, mismatched shapes, bad depths and channel counts, sizes
// past the 32-bit fields, allocations that fail) through every Matrix-form
// export. Each call must return the status the validation rules give,
// written out here on their own, and a failing call must leave Dest (or
// *Out) as it was. Records that fail validation point at a few bytes only,
// so a read before the checks is an address-sanitizer report.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdio>
#include <vector>

#include "velomar.h"

namespace {

// Allocations above this fail (the fuzz runs set max_allocation_size_mb to
// 1024); calls that would read or make between 1 MB and that much are
// skipped as slow (sizes past the 32-bit fields are still checked).
constexpr int64_t kFailsAbove = int64_t(1) << 30, kSlowAbove = int64_t(1) << 20;

int64_t ElementSize(int32_t depth) {
    const int64_t sizes[] = {1, 1, 2, 4, 4, 8};  // 8U, 8S, 16S, 32S, 32F, 64F
    return depth >= 0 && depth <= 5 ? sizes[depth] : 0;
}

// Width * Channel * element size, padded to 4 bytes.
int64_t RowLength(int64_t w, int64_t c, int32_t depth) { return (w * c * ElementSize(depth) + 3) / 4 * 4; }

struct Record {
    Matrix m{};
    bool null = false;
    std::vector<uint8_t> bytes = std::vector<uint8_t>(16, 0xC3);  // replaced when a call may read it
    Matrix* get() { return null ? nullptr : &m; }
};

int32_t Field(FuzzedDataProvider& in, int32_t lo, int32_t hi) {
    return in.ConsumeIntegralInRange(0, 7) == 0 ? in.ConsumeIntegral<int32_t>() : in.ConsumeIntegralInRange(lo, hi);
}

Record RandomRecord(FuzzedDataProvider& in) {
    Record r;
    r.null = in.ConsumeIntegralInRange(0, 31) == 0;
    r.m.Width = Field(in, 1, 24);
    r.m.Height = Field(in, 1, 24);
    r.m.Channel = Field(in, 1, 4);
    r.m.Depth = in.ConsumeIntegralInRange(0, 5) == 0 ? Field(in, 0, 6) : DEPTH_8U;
    r.m.WidthStep = in.ConsumeIntegralInRange(0, 5) == 0 ? Field(in, 0, 100)
                                                          : int32_t(int64_t(r.m.Width) * r.m.Channel + in.ConsumeIntegralInRange(0, 7));
    r.m.Data = in.ConsumeIntegralInRange(0, 31) == 0 ? nullptr : r.bytes.data();
    return r;
}

// Dest: Src's shape with at most one field changed.
Record Like(FuzzedDataProvider& in, const Record& src) {
    Record r;
    r.m = src.m;
    r.null = in.ConsumeIntegralInRange(0, 31) == 0;
    int32_t* fields[] = {&r.m.Width, &r.m.Height, &r.m.Channel, &r.m.Depth, &r.m.WidthStep};
    if (in.ConsumeIntegralInRange(0, 3) == 0) {
        int32_t& f = *fields[in.ConsumeIntegralInRange(0, 4)];
        f = int32_t(uint32_t(f) + uint32_t(in.ConsumeIntegralInRange(-2, 2)));  // wraps at the ends
    }
    r.m.Data = in.ConsumeIntegralInRange(0, 31) == 0 ? nullptr : r.bytes.data();
    return r;
}

bool Describes(const Matrix& m) {  // the pixels an 8-bit record can describe
    return m.Width >= 1 && m.Height >= 1 && m.Channel >= 1 && m.Channel <= 4 &&
           int64_t(m.WidthStep) >= int64_t(m.Width) * m.Channel;
}

bool SameShape(const Matrix& a, const Matrix& b) {
    return a.Width == b.Width && a.Height == b.Height && a.Channel == b.Channel && a.Depth == b.Depth &&
           a.WidthStep == b.WidthStep;
}

// The shared checks up to the operation's own: 3, 5, 4 for a record that
// cannot describe its pixels, or 0.
int Preamble(Record& s, Record& d) {
    if (!s.get() || !d.get() || !s.m.Data || !d.m.Data) return STATUS_NULL_REFERENCE;
    if (!SameShape(s.m, d.m)) return STATUS_SIZE_MISMATCH;
    return Describes(s.m) ? STATUS_OK : STATUS_INVALID_PARAMETER;
}

// Backs a record that will be read with all of its rows; false if too large.
bool Back(Record& r) {
    const int64_t size = int64_t(r.m.WidthStep) * r.m.Height;
    if (size > kSlowAbove) return false;
    r.bytes.assign(size_t(size), 0);
    for (size_t i = 0; i < r.bytes.size(); ++i) r.bytes[i] = uint8_t(i * 37 + 11);
    r.m.Data = r.bytes.data();
    return true;
}

[[noreturn]] void Wrong(const char* what, int expected, int got) {
    std::fprintf(stderr, "%s: expected status %d, got %d\n", what, expected, got);
    __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    const int op = in.ConsumeIntegralInRange(0, 7);
    if (op == 7) {  // VL_CreateMatrix and VL_FreeMatrix
        const int32_t w = Field(in, 1, 64), h = Field(in, 1, 64), depth = Field(in, 0, 6), c = Field(in, 0, 5);
        int expected = w < 1 || h < 1 || ElementSize(depth) == 0 || c < 1 || c > 4 ? STATUS_INVALID_PARAMETER : STATUS_OK;
        if (expected == STATUS_OK) {
            // Rows longer than 32 bits cannot be allocated either.
            const double bytes = double(RowLength(w, c, depth)) * double(h);
            if (bytes > kSlowAbove && bytes <= kFailsAbove) return 0;
            if (bytes > kFailsAbove || RowLength(w, c, depth) > INT32_MAX) expected = STATUS_OUT_OF_MEMORY;
        }
        Matrix marker{}, *m = &marker;
        const int got = VL_CreateMatrix(w, h, depth, c, &m);
        if (got != expected) Wrong("VL_CreateMatrix", expected, got);
        if (got == STATUS_INVALID_PARAMETER && m != &marker) __builtin_trap();  // *Out touched
        if (got == STATUS_OK) {
            if (m->WidthStep != RowLength(w, c, depth)) Wrong("VL_CreateMatrix row length", int(RowLength(w, c, depth)), m->WidthStep);
            m->Data[size_t(m->WidthStep) * h - 1] = 1;  // the whole block is there
            if (VL_FreeMatrix(&m) != STATUS_OK) __builtin_trap();
        }
        return 0;
    }
    Record s = RandomRecord(in), d = in.ConsumeBool() ? Like(in, s) : RandomRecord(in);
    const bool inPlace = in.ConsumeIntegralInRange(0, 7) == 0;
    if (op == 6) {  // GetPadImage
        const int32_t l = Field(in, 0, 30), r = Field(in, 0, 30), t = Field(in, 0, 30), b = Field(in, 0, 30);
        const int32_t edge = in.ConsumeIntegral<int32_t>();
        const bool nullOut = in.ConsumeIntegralInRange(0, 31) == 0;
        int expected = STATUS_OK;
        const int64_t outW = int64_t(l) + s.m.Width + r, outH = int64_t(t) + s.m.Height + b;
        if (!s.get() || !s.m.Data) expected = STATUS_NULL_REFERENCE;
        else if (s.m.Depth != DEPTH_8U || l < 0 || r < 0 || t < 0 || b < 0 || !Describes(s.m)) expected = STATUS_INVALID_PARAMETER;
        else if (outW > INT32_MAX || outH > INT32_MAX) expected = STATUS_INVALID_PARAMETER;
        else if (nullOut) expected = STATUS_NULL_REFERENCE;
        else {
            const double bytes = double(RowLength(outW, s.m.Channel, DEPTH_8U)) * double(outH);  // may pass 2^63
            if (bytes > kSlowAbove && bytes <= kFailsAbove) return 0;
            if (bytes > kFailsAbove) expected = STATUS_OUT_OF_MEMORY;
            if (!Back(s)) return 0;
        }
        Matrix marker{}, *out = &marker;
        const int got = GetPadImage(s.get(), nullOut ? nullptr : &out, l, r, t, b, edge);
        if (got != expected) Wrong("GetPadImage", expected, got);
        if (got == STATUS_OK) VL_FreeMatrix(&out);
        else if (got != STATUS_OUT_OF_MEMORY && out != &marker) __builtin_trap();  // *Out touched
        return 0;
    }
    if (inPlace) d = s;
    // The operation's own checks and what a passing call returns.
    int expected = Preamble(s, d);
    const int32_t levels = Field(in, 2, 255);
    const double gamma = in.ConsumeFloatingPoint<double>();
    Record k;  // the convolution kernel
    const int32_t edge = in.ConsumeIntegral<int32_t>();
    if (op == 4 || op == 5) {
        k.null = in.ConsumeIntegralInRange(0, 31) == 0;
        k.m.Width = Field(in, 1, 5), k.m.Height = Field(in, 1, 5), k.m.Channel = 1, k.m.Depth = DEPTH_32F;
        k.m.WidthStep = int32_t(uint32_t(k.m.Width) * 4u);
        const bool backed = k.m.Width >= 1 && k.m.Height >= 1 && int64_t(k.m.Width) * k.m.Height <= 4096;
        if (backed) {
            k.bytes.assign(size_t(k.m.Width) * size_t(k.m.Height) * 4, 0);
            for (size_t i = 0; i < k.bytes.size(); i += 4) k.bytes[i + 3] = uint8_t(0x3F - (i / 4) % 2);  // 0.5 or 2
        }
        k.m.Data = in.ConsumeIntegralInRange(0, 31) == 0 ? nullptr : k.bytes.data();
        // Null pointers, the shape, then records that cannot describe their
        // pixels and kernel sizes below 1; the depth is not tested here.
        if (!s.get() || !d.get() || !k.get() || !s.m.Data || !d.m.Data || !k.m.Data) expected = STATUS_NULL_REFERENCE;
        else if (!SameShape(s.m, d.m)) expected = STATUS_SIZE_MISMATCH;
        else if (!Describes(s.m) || k.m.Width < 1 || k.m.Height < 1) expected = STATUS_INVALID_PARAMETER;
        // Conv2's single-channel path pads through GetPadImage, which reports
        // a depth other than 8 bits as a bad parameter.
        else if (op == 4 && s.m.Channel != 3 && s.m.Depth != DEPTH_8U) expected = STATUS_INVALID_PARAMETER;
        else if (!backed) return 0;
        // FFTConv2 transforms planes of about (Width + 2 KW) x (Height + 2 KH),
        // and Conv2 takes KW x KH products a sample: large kernels make one
        // input take seconds, so they are left out.
        else if (op == 5 && (int64_t(s.m.Width) + 2 * k.m.Width) * (int64_t(s.m.Height) + 2 * k.m.Height) > (1 << 14))
            return 0;
        else if (op == 4 && double(s.m.Width) * s.m.Height * s.m.Channel * k.m.Width * k.m.Height > (1 << 18))
            return 0;
        else expected = STATUS_OK;
    } else if (expected == STATUS_OK) {
        if ((op == 1 && s.m.Channel != 3 && s.m.Channel != 4) || (op == 2 && (levels & 0xFF) < 2)) expected = STATUS_INVALID_PARAMETER;  // Levels: its low byte
        else if (s.m.Depth != DEPTH_8U) expected = STATUS_NOT_SUPPORTED;
    }
    if (expected == STATUS_OK) {
        if (!Back(s)) return 0;
        if (inPlace) d.m.Data = s.m.Data;
        else if (!Back(d)) return 0;
    }
    const std::vector<uint8_t> before = d.bytes, sourceBefore = s.bytes;
    int got = 0;
    switch (op) {
        case 0: got = Invert(s.get(), d.get()); break;
        case 1: got = Desaturate(s.get(), d.get()); break;
        case 2: got = Posterize(s.get(), d.get(), levels); break;
        case 3: got = GammaCorrection1(s.get(), d.get(), gamma); break;
        case 4: got = Conv2(s.get(), k.get(), d.get(), edge); break;
        default: got = FFTConv2(s.get(), k.get(), d.get(), edge); break;
    }
    if (op == 3) {  // its status is always 0; a failing check still writes nothing
        if (got != STATUS_OK) Wrong("GammaCorrection1", STATUS_OK, got);
    } else if (op == 1 && expected == STATUS_OK) {  // success returns the last grey level written
        if (got < 0 || got > 255) Wrong("Desaturate", expected, got);
    } else if (got != expected) {
        const char* names[] = {"Invert", "Desaturate", "Posterize", "GammaCorrection1", "Conv2", "FFTConv2"};
        std::fprintf(stderr, "Src %dx%d step %d channels %d depth %d; kernel %dx%d\n", s.m.Width, s.m.Height,
                     s.m.WidthStep, s.m.Channel, s.m.Depth, k.m.Width, k.m.Height);
        Wrong(names[op], expected, got);
    }
    if (expected != STATUS_OK && (d.bytes != before || s.bytes != sourceBefore)) __builtin_trap();  // written on a failure
    return 0;
}
