// Wiener filter against box statistics summed directly.
#include <algorithm>
#include <cmath>
#include <numeric>

#include "common/reference.h"
#include "smooth/smooth.h"

namespace {

using vtest::Image;

// Three-byte images channel by channel; every other layout as one plane over
// the first Width bytes of each row. Integer box sums are exact; the second
// moment is its integer sum times 1.0 / area, which is what a running double
// sum of whole numbers gives as well.
std::vector<uint8_t> DirectWiener(const Image& src, std::vector<uint8_t> dest, int radius, int noise, int edge) {
    const int walk = src.stride / src.width == 3 ? 3 : 1, area = (2 * radius + 1) * (2 * radius + 1);
    const size_t n = size_t(src.width) * src.height;
    for (int k = 0; k < walk; ++k) {
        std::vector<int> m(n);
        std::vector<double> v(n);
        double total = 0;
        for (int y = 0, j = 0; y < src.height; ++y)
            for (int x = 0; x < src.width; ++x, ++j) {
                int64_t s = 0, sq = 0;
                for (int p : vtest::Neighbourhood(src, x, y, k, radius, edge, walk)) s += p, sq += p * p;
                m[j] = int(s / area);
                v[j] = double(sq) * (1.0 / area) - double(s / area * (s / area));
                total += v[j];
            }
        const int N = noise ? noise : int(total / double(n));
        for (int y = 0, j = 0; y < src.height; ++y)
            for (int x = 0; x < src.width; ++x, ++j) {
                const size_t i = vtest::Offset(src, x, y, walk, k);
                const double D = std::max(v[j] - N, 0.0), Q = N < v[j] ? v[j] : N;
                dest[i] = vtest::TruncClamp(m[j] + D * (src.bytes[i] - m[j]) / Q);  // 0 / 0 gives 0
            }
    }
    return dest;
}

TEST(Wiener2, MatchesDirectStatistics) {
    for (int trial = 0; trial < 150 && !HasFailure(); ++trial) {
        const int w = vtest::RandomInt(1, 24), h = vtest::RandomInt(1, 20);
        const int c = std::vector<int>{1, 3, 4, 2}[size_t(trial % 4)];
        const int pad = trial % 3, edge = trial % 5 == 0 ? 0 : trial % 2 + 1;
        const int radius = vtest::RandomInt(0, trial % 6 == 0 ? 30 : 4);
        const int noise = trial % 2 ? 0 : vtest::RandomInt(-50, 3000);
        const Image src = trial % 4 == 1 ? vtest::RandomImage(w, h, c, pad) : vtest::RandomSmoothImage(w, h, c, pad);
        // The whole buffer is compared: bytes the layout does not treat keep
        // their marker.
        EXPECT_TRUE(vtest::MatchesBothWays(
            src, vtest::RandomImage(w, h, c, pad, 0x5A),
            [&](const uint8_t* s, uint8_t* d) { velomar::Wiener2(s, d, w, h, src.stride, radius, noise, edge); },
            [&](std::vector<uint8_t> d) { return DirectWiener(src, d, radius, noise, edge); }))
            << w << "x" << h << "x" << c << " pad " << pad << " r " << radius << " noise " << noise
            << " edge " << edge;
    }
}

TEST(Wiener2, FlatImagesAndLargeNoise) {
    // A constant image estimates N = 0 and evaluates 0 / 0 everywhere: black.
    Image flat(13, 9, 3, 2, 140);
    for (int y = 0; y < 9; ++y) flat.bytes[size_t(y) * flat.stride + 39] = flat.bytes[size_t(y) * flat.stride + 40] = 0x5A;
    Image out = flat;
    ::Wiener2(flat.data(), out.data(), 13, 9, flat.stride, 2, 0, 1);
    for (int y = 0; y < 9; ++y)
        for (int k = 0; k < 39; ++k) ASSERT_EQ(out.at(0, y, k), 0);
    EXPECT_TRUE(vtest::PaddingIntact(out, 0x5A));
    // With a given noise the same image keeps its value (V = 0 <= N).
    ::Wiener2(flat.data(), out.data(), 13, 9, flat.stride, 2, 5, 1);
    for (int y = 0; y < 9; ++y)
        for (int k = 0; k < 39; ++k) ASSERT_EQ(out.at(0, y, k), 140);
    // Noise above every local variance gives the box mean; a negative radius
    // writes nothing.
    const Image src = vtest::RandomImage(17, 11, 1);
    Image dest(17, 11, 1);
    ::Wiener2(src.data(), dest.data(), 17, 11, src.stride, 3, 1 << 20, 0);
    for (int y = 0; y < 11; ++y)
        for (int x = 0; x < 17; ++x) {
            const std::vector<int> v = vtest::Neighbourhood(src, x, y, 0, 3, EDGE_REPLICATE, 1);
            ASSERT_EQ(dest.at(x, y), std::accumulate(v.begin(), v.end(), 0) / 49);
        }
    const auto before = dest.bytes;
    ::Wiener2(src.data(), dest.data(), 17, 11, src.stride, -1, 0, 0);
    EXPECT_EQ(before, dest.bytes);
}

}  // namespace
