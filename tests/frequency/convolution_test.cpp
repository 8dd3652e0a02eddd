// Conv2 and FFTConv2 against direct correlation and convolution sums, the
// dot product's documented order, and every validation status.
#include <array>
#include <cmath>

#include "common/reference.h"
#include "frequency/support.h"

namespace {

using vtest::MapEdge;

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

// Calls `form` through FilterJudged over Matrix records shaped like `like`.
auto Calls(auto form, const Matrix& like, Matrix* kernel, int edge) {
    return [form, like, kernel, edge](const uint8_t* s, uint8_t* d, auto...) {
        Matrix in = like, out = like;
        in.Data = const_cast<uint8_t*>(s), out.Data = d;
        EXPECT_EQ(form(&in, kernel, &out, edge), STATUS_OK);
    };
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
        vtest::Image src = vtest::RandomImage(w, h, channels, vtest::RandomInt(0, 3));
        const Matrix in = vtest::MatrixOf(src);
        SCOPED_TRACE(testing::Message() << "kernel " << s.kw << "x" << s.kh << " edge " << edge << " integer " << integer);
        EXPECT_TRUE(vtest::FilterMatches(src, Calls(velomar::Conv2, in, &kernel, edge), [&](std::vector<uint8_t> entry) {
            return DirectConv2(&in, k, s.kw, s.kh, edge, entry, integer);
        }));
        if (!integer) continue;
        const int walk = Walk(&in);
        EXPECT_TRUE(vtest::FilterJudged(src, Calls(velomar::FFTConv2, in, &kernel, edge), [&](const auto& entry, const auto& got) {
            for (int y = 0; y < h; ++y)
                for (int i = 0; i < src.stride; ++i) {
                    const size_t at = size_t(y) * src.stride + i;
                    if (i < walk * w ? !FftValueAcceptable(&in, k, s.kw, s.kh, edge, i / walk, y, i % walk, got[at])
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
        vtest::Image src(w, h, 1, 3, 1), dest = vtest::DestFor(src);  // (Dest's row padding compared too)
        Matrix in = vtest::MatrixOf(src), out = vtest::MatrixOf(dest);
        const std::vector<uint8_t> expected = DirectConv2(&in, k, s.kw, s.kh, 0, dest.bytes, false);
        ASSERT_EQ(Conv2(&in, &kernel, &out, 0), STATUS_OK);
        ASSERT_TRUE(vtest::BytesEqual(expected, dest.bytes)) << "kernel " << s.kw << "x" << s.kh << " width " << w;
    }
}

TEST(Convolutions, ValidationStatusesLeaveDestUntouched) {
    std::vector<float> k(9, 1.0f);
    Matrix kernel = ftest::KernelRecord(k, 3, 3);
    std::vector<uint8_t> in(96, 7), out(96, 9);  // room for every record below
    Matrix a{6, 5, 6, 1, DEPTH_8U, in.data(), 0}, b{6, 5, 6, 1, DEPTH_8U, out.data(), 0}, c3 = b, wide = b, tall = b;
    Matrix s16 = a, d16 = b, noData = b, step = a, signedDepth = b, kw0 = kernel, kh0 = kernel, noKernelData = kernel;
    c3.Channel = 3, c3.WidthStep = 18, wide.Width = 7, tall.Height = 6;  // (wide: only its Width differs)
    s16.Depth = d16.Depth = DEPTH_16S, s16.WidthStep = d16.WidthStep = 12;
    noData.Data = noKernelData.Data = nullptr;
    step.WidthStep += 4, signedDepth.Depth = DEPTH_8S, kw0.Width = 0, kh0.Height = 0;  // (the same sizes, another depth)
    struct Case { const Matrix* src; const Matrix* kernel; Matrix* dest; Status conv2, fft; };
    const Case cases[] = {
        {nullptr, &kernel, &b, 3, 3}, {&a, &kernel, nullptr, 3, 3}, {&a, nullptr, &b, 3, 3},
        {&noData, &kernel, &b, 3, 3}, {&a, &noKernelData, &b, 3, 3},
        {&wide, &kernel, &noData, 3, 3},  // null Data comes before the shape
        {&a, &kernel, &tall, 5, 5}, {&a, &kernel, &c3, 5, 5}, {&a, &kernel, &signedDepth, 5, 5},
        {&step, &kernel, &b, 5, 5}, {&a, &kw0, &b, 4, 4}, {&a, &kh0, &b, 4, 4}, {&wide, &kw0, &b, 5, 5},
        {&s16, &kernel, &d16, 4, 0},  // only Conv2 refuses the depth (through the padding)
    };
    for (const Case& t : cases)
        for (int which = 0; which < 2; ++which) {
            const Status want = which ? t.fft : t.conv2;
            const std::vector<uint8_t> before = out;  // every Dest record points into it
            EXPECT_EQ(which ? FFTConv2(t.src, t.kernel, t.dest, 1) : Conv2(t.src, t.kernel, t.dest, 1), want)
                << (which ? "FFTConv2" : "Conv2") << " case " << (&t - cases);
            EXPECT_TRUE(want == STATUS_OK || out == before) << "Dest written, case " << (&t - cases);
        }
}

}  // namespace
