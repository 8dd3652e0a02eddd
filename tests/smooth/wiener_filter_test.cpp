// Wiener filter against box statistics summed directly.
#include <algorithm>
#include <cmath>

#include "common/test_util.h"
#include "smooth/smooth.h"

namespace {

using vtest::Image;

int MapIndex(int p, int n, int edge) {
    if (p >= 0 && p < n) return p;
    if (edge == 0) return p < 0 ? 0 : n - 1;
    if (p < 0) {
        p = -p;
        while (p >= n) p -= n;
    } else {
        p = 2 * n - p - 2;
        while (p < 0) p += n;
    }
    return p;
}

// The x86 truncating conversion followed by a clamp: NaN and anything out of
// the 32-bit range become the most negative integer, hence 0.
uint8_t TruncClamp(double v) {
    if (std::isnan(v) || v >= 2147483648.0 || v <= -2147483649.0) return 0;
    return uint8_t(std::clamp(int64_t(v), int64_t(0), int64_t(255)));
}

// One plane: bytes at `first + y * pitch + x * step`. Integer box sums are
// exact; the second moment is its integer sum times 1.0 / area, which is what
// a running double sum of whole numbers gives as well.
void DirectPlane(const std::vector<uint8_t>& src, std::vector<uint8_t>& dest, size_t first, int w,
                 int h, int pitch, int step, int radius, int noise, int edge) {
    const int area = (2 * radius + 1) * (2 * radius + 1);
    auto at = [&](int x, int y) { return first + size_t(y) * pitch + size_t(x) * step; };
    std::vector<int> m(size_t(w) * h);
    std::vector<double> v(size_t(w) * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            int64_t s = 0, sq = 0;
            for (int dy = -radius; dy <= radius; ++dy)
                for (int dx = -radius; dx <= radius; ++dx) {
                    const int p = src[at(MapIndex(x + dx, w, edge), MapIndex(y + dy, h, edge))];
                    s += p;
                    sq += p * p;
                }
            m[size_t(y) * w + x] = int(s / area);
            v[size_t(y) * w + x] = double(sq) * (1.0 / area) - double(s / area * (s / area));
        }
    int N = noise;
    if (N == 0) {
        double sum = 0;
        for (double e : v) sum += e;
        N = int(sum / double(v.size()));
    }
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const double V = v[size_t(y) * w + x];
            const int mean = m[size_t(y) * w + x];
            const double D = std::max(V - N, 0.0), Q = N < V ? V : N;
            dest[at(x, y)] = TruncClamp(mean + D * (src[at(x, y)] - mean) / Q);
        }
}

// Three-byte images channel by channel; every other layout as one plane over
// the first Width bytes of each row.
std::vector<uint8_t> DirectWiener(const Image& src, std::vector<uint8_t> dest, int radius, int noise,
                                  int edge) {
    if (src.stride / src.width == 3)
        for (int k = 0; k < 3; ++k)
            DirectPlane(src.bytes, dest, size_t(k), src.width, src.height, src.stride, 3, radius, noise, edge);
    else
        DirectPlane(src.bytes, dest, 0, src.width, src.height, src.stride, 1, radius, noise, edge);
    return dest;
}

TEST(Wiener2, MatchesDirectStatistics) {
    for (int trial = 0; trial < 150; ++trial) {
        const int w = vtest::RandomInt(1, 24), h = vtest::RandomInt(1, 20);
        const int c = std::vector<int>{1, 3, 4, 2}[size_t(trial % 4)];
        const int pad = trial % 3, edge = trial % 5 == 0 ? 0 : trial % 2 + 1;
        const int radius = vtest::RandomInt(0, trial % 6 == 0 ? 30 : 4);
        const int noise = trial % 2 ? 0 : vtest::RandomInt(-50, 3000);
        const Image src = trial % 4 == 1 ? vtest::RandomImage(w, h, c, pad) : vtest::RandomSmoothImage(w, h, c, pad);
        Image dest = vtest::RandomImage(w, h, c, pad, 0x5A);
        const auto expected = DirectWiener(src, dest.bytes, radius, noise, edge);
        const auto before = src.bytes;
        // The whole buffer is compared: bytes the layout does not treat keep
        // their marker.
        velomar::Wiener2(src.data(), dest.data(), w, h, src.stride, radius, noise, edge);
        ASSERT_TRUE(vtest::BytesEqual(expected, dest.bytes))
            << w << "x" << h << "x" << c << " pad " << pad << " r " << radius << " noise " << noise
            << " edge " << edge;
        ASSERT_EQ(before, src.bytes);

        Image inplace = src;
        ::Wiener2(inplace.data(), inplace.data(), w, h, src.stride, radius, noise, edge);
        ASSERT_TRUE(vtest::BytesEqual(DirectWiener(src, src.bytes, radius, noise, edge), inplace.bytes));
    }
}

TEST(Wiener2, FlatImagesAndLargeNoise) {
    // A constant image estimates N = 0 and evaluates 0 / 0 everywhere: black.
    Image flat(13, 9, 3, 2, 140);
    for (int y = 0; y < 9; ++y)
        for (int k = 0; k < 2; ++k) flat.bytes[size_t(y) * flat.stride + 39 + k] = 0x5A;
    Image out = flat;
    velomar::Wiener2(flat.data(), out.data(), 13, 9, flat.stride, 2, 0, 1);
    for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 13; ++x)
            for (int k = 0; k < 3; ++k) ASSERT_EQ(out.at(x, y, k), 0);
    EXPECT_TRUE(vtest::PaddingIntact(out, 0x5A));
    // With a given noise the same image keeps its value (V = 0 <= N).
    velomar::Wiener2(flat.data(), out.data(), 13, 9, flat.stride, 2, 5, 1);
    for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 13; ++x) ASSERT_EQ(out.at(x, y, 1), 140);

    // Noise above every local variance gives the box mean.
    const Image src = vtest::RandomImage(17, 11, 1);
    Image dest(17, 11, 1);
    velomar::Wiener2(src.data(), dest.data(), 17, 11, src.stride, 3, 1 << 20, 0);
    for (int y = 0; y < 11; ++y)
        for (int x = 0; x < 17; ++x) {
            int s = 0;
            for (int dy = -3; dy <= 3; ++dy)
                for (int dx = -3; dx <= 3; ++dx) s += src.at(MapIndex(x + dx, 17, 0), MapIndex(y + dy, 11, 0));
            ASSERT_EQ(dest.at(x, y), s / 49);
        }

    // A negative radius writes nothing.
    const auto before = dest.bytes;
    velomar::Wiener2(src.data(), dest.data(), 17, 11, src.stride, -1, 0, 0);
    EXPECT_EQ(before, dest.bytes);
}

}  // namespace
