// Wiener filter against box statistics summed directly.
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

// A constant picture estimates N = 0 and evaluates 0 / 0 everywhere (black);
// with a given noise it keeps its value (V = 0 <= N); noise above every local
// variance gives the box mean.
TEST(Wiener2, MatchesDirectStatistics) {
    for (int trial = 0; trial < 150 && !HasFailure(); ++trial) {
        const Image noise = vtest::SweepImage(trial, {1, 3, 4, 2}, 24, 20);
        const Image src = trial % 11 == 6 ? vtest::Flat(noise, 140) : noise;
        const int edge = trial % 5 == 0 ? 0 : trial % 2 + 1, radius = vtest::RandomInt(0, trial % 6 == 0 ? 30 : 4);
        const int noiseVar = trial % 3 == 0 ? 0 : trial % 9 == 4 ? 1 << 20 : vtest::RandomInt(-50, 3000);
        EXPECT_TRUE(vtest::FilterMatches(
            src, [&](auto... a) { velomar::Wiener2(a..., radius, noiseVar, edge); },
            [&](std::vector<uint8_t> d) { return DirectWiener(src, d, radius, noiseVar, edge); }))
            << " r " << radius << " noise " << noiseVar << " edge " << edge;
    }
    const Image src = vtest::RandomImage(17, 11, 1);
    EXPECT_TRUE(vtest::WritesNothing(vtest::DestFor(src), {[&](uint8_t* d) { Wiener2(src.data(), d, 17, 11, 17, -1, 0, 0); }}));
}

}  // namespace
