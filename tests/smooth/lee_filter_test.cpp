// Lee additive noise filter against neighbourhood statistics computed directly.
#include <algorithm>

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

TEST(LeeAdditvieNoiseFilter, MatchesDirectStatistics) {
    for (int trial = 0; trial < 150 && !HasFailure(); ++trial) {
        const int w = vtest::RandomInt(1, 24), h = vtest::RandomInt(1, 20);
        const int c = std::vector<int>{1, 3, 4}[size_t(trial % 3)], pad = trial % 4;
        const int radius = vtest::RandomInt(0, trial % 5 == 0 ? 30 : 4);
        const int noise = trial % 2 ? 0 : vtest::RandomInt(1, 3000);
        const Image src = trial % 4 ? vtest::RandomSmoothImage(w, h, c, pad) : vtest::RandomImage(w, h, c, pad);
        // The whole buffer is compared: bytes the layout does not treat keep
        // their marker; in place the grey mean term is the source value itself.
        EXPECT_TRUE(vtest::MatchesBothWays(
            src, vtest::RandomImage(w, h, c, pad, 0x5A),
            [&](const uint8_t* s, uint8_t* d) { velomar::LeeAdditvieNoiseFilter(s, d, w, h, src.stride, radius, noise); },
            [&](std::vector<uint8_t> d) { return DirectLee(src, d, radius, noise); }))
            << w << "x" << h << "x" << c << " pad " << pad << " r " << radius << " noise " << noise;
    }
}

TEST(LeeAdditvieNoiseFilter, LimitsOfTheNoiseVariance) {
    // Overwhelming noise gives the local mean (which the three-channel path
    // writes first).
    const Image src = vtest::RandomSmoothImage(30, 20, 3);
    Image dest(30, 20, 3);
    velomar::LeeAdditvieNoiseFilter(src.data(), dest.data(), 30, 20, src.stride, 2, 1 << 30);
    const std::vector<int64_t> mean = vtest::DirectLocalStats(src, 2, EDGE_REFLECT, 3).mean;
    for (size_t i = 0; i < mean.size(); ++i) ASSERT_EQ(dest.bytes[i], mean[i]) << "byte " << i;
    // A constant image with an estimated noise divides 0 by 0: it stays as it is.
    Image flat(9, 7, 1, 3, 77), out(9, 7, 1, 3, 1);
    velomar::LeeAdditvieNoiseFilter(flat.data(), out.data(), 9, 7, flat.stride, 3, 0);
    for (int y = 0; y < 7; ++y)
        for (int x = 0; x < 9; ++x) ASSERT_EQ(out.at(x, y), 77);
    EXPECT_TRUE(vtest::PaddingIntact(out, 1));
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
