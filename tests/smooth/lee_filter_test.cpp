// Lee additive noise filter against neighbourhood statistics computed directly.
#include "common/reference.h"
#include "smooth/smooth.h"

namespace {

using vtest::Image;

// Expected output: Dest as it was on entry with every treated value replaced.
// Grey reads M from the entry bytes; other layouts use the local mean and walk
// three bytes per pixel.
std::vector<uint8_t> DirectLee(const Image& src, std::vector<uint8_t> dest, int radius, int noise) {
    const int w = src.width, h = src.height, stride = src.stride, c = stride / w == 1 ? 1 : 3;
    if (stride < w * c) return dest;  // a two-byte layout is left alone
    const vtest::LocalStats st = vtest::DirectLocalStats(src, radius, EDGE_REFLECT, c);
    int64_t total = 0;
    for (int y = 0; y < h; ++y)
        for (int i = y * stride; i < y * stride + w * c; ++i) total += st.variance[size_t(i)];
    const int N = noise ? noise : int(total / (int64_t(w) * c * h));
    for (int y = 0; y < h; ++y)
        for (int i = y * stride; i < y * stride + w * c; ++i) {
            const int S = src.bytes[size_t(i)], V = int(st.variance[size_t(i)]);
            const int M = c == 1 ? dest[size_t(i)] : int(st.mean[size_t(i)]);
            // A zero divisor lets the source value through.
            const int out = N + V == 0 ? S : M + ((S - M) * V) / (N + V);
            dest[size_t(i)] = uint8_t(std::clamp(out, 0, 255));
        }
    return dest;
}

// Overwhelming noise gives the local mean (which the three-channel path
// writes first); a constant picture with an estimated noise divides 0 by 0.
TEST(LeeAdditvieNoiseFilter, MatchesDirectStatistics) {
    for (int trial = 0; trial < 150 && !HasFailure(); ++trial) {
        const Image noise = vtest::SweepImage(trial, {1, 3, 4, 2}, 24, 20);
        const Image src = trial % 11 == 6 ? vtest::Flat(noise, 77) : noise;
        const int radius = vtest::RandomInt(0, trial % 5 == 0 ? 30 : 4);
        const int noiseVar = trial % 3 == 0 ? 0 : trial % 9 == 4 ? 1 << 30 : vtest::RandomInt(1, 3000);
        // In place the grey mean term is the source value itself.
        EXPECT_TRUE(vtest::FilterMatches(
            src, [&](auto... a) { velomar::LeeAdditvieNoiseFilter(a..., radius, noiseVar); },
            [&](std::vector<uint8_t> d) { return DirectLee(src, d, radius, noiseVar); }))
            << " r " << radius << " noise " << noiseVar;
    }
}

// The statistics engine declines radii past 32767; the filter once went on
// with its unfilled variance array and wrote bytes that changed from call to
// call. Two bytes per pixel, a negative radius, a null or empty image are
// rejected as well.
TEST(LeeAdditvieNoiseFilter, RadiusTheStatisticsDeclineWritesNothing) {
    const Image src = vtest::RandomImage(76, 15, 1, 1);
    EXPECT_TRUE(vtest::WritesNothing(Image(76, 15, 1, 1, 9), {
        [&](uint8_t* d) { velomar::LeeAdditvieNoiseFilter(src.data(), d, 76, 15, 77, 32768, 0); },
        [&](uint8_t* d) { velomar::LeeAdditvieNoiseFilter(src.data(), d, 76, 15, 77, 32768, 10); },
        [&](uint8_t* d) { velomar::LeeAdditvieNoiseFilter(src.data(), d, 38, 15, 77, 1, 10); },
        [&](uint8_t* d) { velomar::LeeAdditvieNoiseFilter(src.data(), d, 76, 15, 77, -1, 10); },
        [&](uint8_t* d) { velomar::LeeAdditvieNoiseFilter(nullptr, d, 76, 15, 77, 1, 10); },
        [&](uint8_t* d) { ::LeeAdditvieNoiseFilter(src.data(), d, 0, 15, 77, 1, 10); },
    }));
}

}  // namespace
