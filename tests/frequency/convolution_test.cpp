// Conv2 and FFTConv2 against direct correlation and convolution sums, the
// dot product's documented order, and every validation status.
#include <array>
#include <cmath>

#include "common/reference.h"
#include "frequency/support.h"

namespace {

using vtest::MapEdge;
using Form = std::function<Status(const Matrix*, const Matrix*, Matrix*, int32_t)>;

// The dot product in its documented order, one float at a time: sixteen
// running sums over whole blocks, combined (S3 + S2) + (S1 + S0) lane by lane
// and then lane 0 first; a remainder pass of four sums from element 0.
float LiteralDot(const float* a, const float* b, int count) {
    float total = 0;
    int rest = count;
    if (count > 16) {
        float s[16] = {};
        for (int i = 0; i + 16 <= count; i += 16)
            for (int e = 0; e < 16; ++e) s[e] = s[e] + a[i + e] * b[i + e];
        float lane[4];
        for (int l = 0; l < 4; ++l) lane[l] = (s[12 + l] + s[8 + l]) + (s[4 + l] + s[l]);
        total = ((lane[0] + lane[1]) + lane[2]) + lane[3];
        rest = count % 16;
        if (rest == 0) return total;
    }
    float m[4] = {};
    for (int g = 0; g < rest / 4; ++g)
        for (int l = 0; l < 4; ++l) m[l] = m[l] + a[4 * g + l] * b[4 * g + l];
    return (((m[0] + m[1]) + m[2]) + m[3]) + total;
}

float ScaleOf(const std::vector<float>& k) {
    float sum = 0;
    for (float v : k) sum = sum + v;
    return sum != 0 ? 1.0f / sum : 1.0f;
}

// Channel c of pixel (x, y): three channels are three planes, any other
// channel count one plane over the first Width bytes of each row.
int Walk(const Matrix* m) { return m->Channel == 3 ? 3 : 1; }
uint8_t& Pixel(const Matrix* m, int x, int y, int c) { return m->Data[size_t(y) * m->WidthStep + x * Walk(m) + c]; }

// Conv2's value at every pixel: the dot product (documented order) of the
// kernel rows padded to a multiple of 4 and the strip of the extended image.
std::vector<uint8_t> DirectConv2(const Matrix* src, const std::vector<float>& k, int kw, int kh, int edge,
                                 std::vector<uint8_t> dest, bool integerSums) {
    const int kwPad = (kw + 3) / 4 * 4, count = kwPad * kh, left = kw / 2, top = kh / 2;
    std::vector<float> kb(count, 0.0f), strip(count, 0.0f);
    for (int r = 0; r < kh; ++r)
        for (int c = 0; c < kw; ++c) kb[r * kwPad + c] = k[r * kw + c];
    const float scale = ScaleOf(k);
    for (int ch = 0; ch < Walk(src); ++ch)
        for (int y = 0; y < src->Height; ++y)
            for (int x = 0; x < src->Width; ++x) {
                for (int r = 0; r < kh; ++r)
                    for (int c = 0; c < kw; ++c)
                        strip[r * kwPad + c] =
                            Pixel(src, MapEdge(x + c - left, src->Width, edge), MapEdge(y + r - top, src->Height, edge), ch);
                double d = LiteralDot(kb.data(), strip.data(), count);
                if (integerSums) {  // the plain sum, element i < R twice, i >= count - R never
                    const int rest = count > 16 ? count % 16 : 0;
                    d = 0;
                    for (int i = 0; i < count; ++i) d += double(kb[i]) * strip[i] * ((i < rest) + (i < count - rest));
                }
                dest[size_t(y) * src->WidthStep + x * Walk(src) + ch] = vtest::TruncClamp(d * scale + 0.5);
            }
    return dest;
}

// FFTConv2's sums, convolution over the extended image with zeros outside
// it, read 2 Top rows down and 2 Right columns right; the transforms may move
// the truncated sum by one either way.
bool FftValueAcceptable(const Matrix* src, const std::vector<float>& k, int kw, int kh, int edge, int x, int y,
                        int ch, uint8_t got) {
    const int left = kw / 2, right = kw - left - 1, top = kh / 2;
    const int ew = src->Width + kw - 1, eh = src->Height + kh - 1;
    double v = 0;
    for (int r = 0; r < kh; ++r)
        for (int c = 0; c < kw; ++c) {
            const int i = y + 2 * top - r, j = x + 2 * right - c;
            if (i < 0 || j < 0 || i >= eh || j >= ew) continue;
            v += k[r * kw + c] * Pixel(src, MapEdge(j - left, src->Width, edge), MapEdge(i - top, src->Height, edge), ch);
        }
    const float scale = ScaleOf(k);
    for (int delta = -1; delta <= 1; ++delta)
        if (got == vtest::TruncClamp(float(float(int(v) + delta) * scale) + 0.5f)) return true;
    return false;
}

// Runs `form` from src into dest, then in place on a copy of src; `check`
// judges each result against the bytes its destination held on entry. Src
// must stay as it was.
using Check = std::function<::testing::AssertionResult(const std::vector<uint8_t>& entry,
                                                        const std::vector<uint8_t>& result)>;
::testing::AssertionResult RunBothWays(const Form& form, ftest::Record& src, ftest::Record& dest, Matrix* kernel,
                                       int edge, const Check& check) {
    const std::vector<uint8_t> before = src.Bytes(), entry = dest.Bytes();
    if (form(src.m, kernel, dest.m, edge) != STATUS_OK) return ::testing::AssertionFailure() << "status";
    if (before != src.Bytes()) return ::testing::AssertionFailure() << "source modified";
    if (auto r = check(entry, dest.Bytes()); !r) return r << " (separate Dest)";
    ftest::Record copy(src.m->Width, src.m->Height, src.m->Depth, src.m->Channel);
    std::copy(before.begin(), before.end(), copy.m->Data);
    if (form(copy.m, kernel, copy.m, edge) != STATUS_OK) return ::testing::AssertionFailure() << "status in place";
    if (auto r = check(before, copy.Bytes()); !r) return r << " (in place)";
    return ::testing::AssertionSuccess();
}

struct Shape { int kw, kh; };
const Shape kShapes[] = {{1, 1}, {3, 3}, {5, 5}, {2, 3}, {4, 1}, {1, 7}, {7, 7}, {6, 2}, {4, 4}, {15, 3}};

// Every instruction set's pixel runs (64, 32 and 16 pixels wide, then one
// pixel at a time) against the same direct sums; FFTConv2 over the same
// pictures when the kernel is whole numbers, every byte outside the pixels
// (row padding) kept.
class Conv2Paths : public vtest::EveryIsa {};
VELOMAR_INSTANTIATE_EVERY_ISA(Conv2, Conv2Paths);

TEST_P(Conv2Paths, MatchesTheDirectCorrelationAndConvolution) {
    for (int trial = 0; trial < 60; ++trial) {
        const Shape s = kShapes[trial % 10];
        const int w = vtest::RandomInt(1, trial < 30 ? 12 : 150), h = vtest::RandomInt(1, trial < 30 ? 12 : 20);
        const int edge = trial % 2, channels = std::array{1, 1, 3, 1, 4, 1, 2}[trial % 7];
        const bool integer = trial % 3 != 0;
        std::vector<float> k = ftest::RandomFloats(size_t(s.kw) * s.kh, -3, 5);
        for (float& v : k) v = integer ? std::round(v) : v;
        Matrix kernel = ftest::KernelRecord(k, s.kw, s.kh);
        ftest::Record src(w, h, DEPTH_8U, channels), dest(w, h, DEPTH_8U, channels);
        SCOPED_TRACE(testing::Message() << w << "x" << h << "x" << channels << " kernel " << s.kw << "x" << s.kh
                                        << " edge " << edge << " integer " << integer);
        EXPECT_TRUE(RunBothWays(velomar::Conv2, src, dest, &kernel, edge, [&](const auto& entry, const auto& result) {
            return vtest::BytesEqual(DirectConv2(src.m, k, s.kw, s.kh, edge, entry, integer), result);
        }));
        if (!integer) continue;
        const int step = dest.m->WidthStep, walk = Walk(src.m);
        EXPECT_TRUE(RunBothWays(velomar::FFTConv2, src, dest, &kernel, edge, [&](const auto& entry, const auto& got) {
            for (int y = 0; y < h; ++y)
                for (int i = 0; i < step; ++i) {
                    const size_t at = size_t(y) * step + i;
                    if (i < walk * w ? !FftValueAcceptable(src.m, k, s.kw, s.kh, edge, i / walk, y, i % walk, got[at])
                                     : got[at] != entry[at])
                        return ::testing::AssertionFailure() << "FFT byte " << int(got[at]) << " at " << i << "," << y;
                }
            return ::testing::AssertionSuccess();
        }));
    }
}

// Pairs of +-2^24 and a 1 at the centre over an image of ones: each output is
// a small remainder of huge partial sums, so a change in the order of the
// additions (in any pixel run or the last pixels, which take DotProduct) shows
// in the bytes. 5 x 5 and 7 x 3 (40 and 24 products) add a remainder pass after
// the whole blocks.
TEST_P(Conv2Paths, KeepsTheDotProductOrder) {
    const Shape shapes[] = {{8, 4}, {15, 3}, {16, 2}, {4, 4}, {3, 3}, {2, 2}, {5, 5}, {7, 3}};
    for (int trial = 0; trial < 800; ++trial) {
        const Shape s = shapes[trial % 8];
        std::vector<float> k(size_t(s.kw) * s.kh, 0.0f);
        k[(s.kh / 2) * s.kw + s.kw / 2] = 1.0f;
        for (int pair = 0; pair < std::min(4, (s.kw * s.kh - 1) / 2); ++pair)
            for (float big : {16777216.0f, -16777216.0f}) {
                size_t i;
                do i = size_t(vtest::RandomInt(0, int(k.size()) - 1)); while (k[i] != 0.0f);
                k[i] = big;
            }
        Matrix kernel = ftest::KernelRecord(k, s.kw, s.kh);
        const int w = vtest::RandomInt(1, 150), h = vtest::RandomInt(1, 2);
        ftest::Record src(w, h, DEPTH_8U, 1), dest(w, h, DEPTH_8U, 1);  // (Dest's row padding compared too)
        for (int y = 0; y < h; ++y) std::fill_n(&Pixel(src.m, 0, y, 0), w, uint8_t(1));
        const std::vector<uint8_t> expected = DirectConv2(src.m, k, s.kw, s.kh, 0, dest.Bytes(), false);
        ASSERT_EQ(Conv2(src.m, &kernel, dest.m, 0), STATUS_OK);
        ASSERT_TRUE(vtest::BytesEqual(expected, dest.Bytes())) << "kernel " << s.kw << "x" << s.kh << " width " << w;
    }
}

TEST(Convolutions, ValidationStatusesLeaveDestUntouched) {
    std::vector<float> k(9, 1.0f);
    Matrix kernel = ftest::KernelRecord(k, 3, 3);
    ftest::Record a(6, 5, DEPTH_8U, 1), b(6, 5, DEPTH_8U, 1), c3(6, 5, DEPTH_8U, 3), wide(7, 5, DEPTH_8U, 1);
    ftest::Record tall(6, 6, DEPTH_8U, 1), s16(6, 5, DEPTH_16S, 1), d16(6, 5, DEPTH_16S, 1);
    Matrix noData = *b.m, step = *a.m, signedDepth = *b.m, kw0 = kernel, kh0 = kernel, noKernelData = kernel;
    noData.Data = noKernelData.Data = nullptr;
    step.WidthStep += 4, signedDepth.Depth = DEPTH_8S, kw0.Width = 0, kh0.Height = 0;  // (the same sizes, another depth)
    struct Case { const Matrix* src; const Matrix* kernel; Matrix* dest; Status conv2, fft; };
    const Case cases[] = {
        {nullptr, &kernel, b.m, 3, 3}, {a.m, &kernel, nullptr, 3, 3}, {a.m, nullptr, b.m, 3, 3},
        {&noData, &kernel, b.m, 3, 3}, {a.m, &noKernelData, b.m, 3, 3}, {a.m, &kernel, &noData, 3, 3},
        {wide.m, &kernel, &noData, 3, 3},  // null Data comes before the shape
        {a.m, &kernel, wide.m, 5, 5}, {a.m, &kernel, tall.m, 5, 5}, {a.m, &kernel, c3.m, 5, 5},
        {a.m, &kernel, &signedDepth, 5, 5}, {&step, &kernel, b.m, 5, 5}, {a.m, &kw0, b.m, 4, 4},
        {a.m, &kh0, b.m, 4, 4}, {wide.m, &kw0, b.m, 5, 5},
        {s16.m, &kernel, d16.m, 4, 0},  // only Conv2 refuses the depth (through the padding)
    };
    for (const Case& t : cases)
        for (int which = 0; which < 2; ++which) {
            const Status want = which ? t.fft : t.conv2;
            uint8_t* const data = t.dest ? t.dest->Data : nullptr;
            const std::vector<uint8_t> before(data, data ? data + t.dest->WidthStep * t.dest->Height : nullptr);
            EXPECT_EQ(which ? FFTConv2(t.src, t.kernel, t.dest, 1) : Conv2(t.src, t.kernel, t.dest, 1), want)
                << (which ? "FFTConv2" : "Conv2") << " case " << (&t - cases);
            EXPECT_TRUE(want == STATUS_OK || std::equal(before.begin(), before.end(), data)) << "Dest written, case " << (&t - cases);
        }
}

}  // namespace
