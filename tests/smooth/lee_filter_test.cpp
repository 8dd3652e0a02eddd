// Lee additive noise filter against neighbourhood statistics computed directly.
#include <algorithm>
#include <numeric>

#include "common/reference.h"
#include "smooth/smooth.h"

namespace {

using vtest::Image;

// Mean of the reflected (2r+1)^2 neighbourhood, `walk` bytes per pixel.
int BoxMean(const Image& src, int x, int y, int k, int r, int walk) {
    const std::vector<int> v = vtest::Neighbourhood(src, x, y, k, r, EDGE_REFLECT, walk);
    return std::accumulate(v.begin(), v.end(), 0) / int(v.size());
}

// Expected output: Dest as it was on entry with every treated value replaced.
// Grey reads M from the entry bytes; other layouts use the local mean and walk
// three bytes per pixel.
std::vector<uint8_t> DirectLee(const Image& src, std::vector<uint8_t> dest, int radius, int noise) {
    const int w = src.width, h = src.height, stride = src.stride;
    const int c = stride / w == 1 ? 1 : 3, n = (2 * radius + 1) * (2 * radius + 1);
    if (stride < w * c) return dest;  // a two-byte layout is left alone
    std::vector<int> mean(dest.size()), var(dest.size());
    int64_t total = 0;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int k = 0; k < c; ++k) {
                const size_t i = vtest::Offset(src, x, y, c, k);
                mean[i] = BoxMean(src, x, y, k, radius, c);
                int sq = 0;
                for (int v : vtest::Neighbourhood(src, x, y, k, radius, EDGE_REFLECT, c))
                    sq += (v - mean[i]) * (v - mean[i]);
                var[i] = sq / n;
                total += var[i];
            }
    const int N = noise ? noise : int(total / (int64_t(w) * c * h));
    for (int y = 0; y < h; ++y)
        for (int i = y * stride; i < y * stride + w * c; ++i) {
            const int S = src.bytes[size_t(i)], M = c == 1 ? dest[size_t(i)] : mean[size_t(i)];
            // A zero divisor lets the source value through.
            const int out = N + var[size_t(i)] == 0 ? S : M + ((S - M) * var[size_t(i)]) / (N + var[size_t(i)]);
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
    for (int y = 0; y < 20; ++y)
        for (int x = 0; x < 30; ++x)
            for (int k = 0; k < 3; ++k) ASSERT_EQ(dest.at(x, y, k), BoxMean(src, x, y, k, 2, 3)) << x << "," << y;
    // A constant image with an estimated noise divides 0 by 0: it stays as it is.
    Image flat(9, 7, 1, 3, 77), out(9, 7, 1, 3, 1);
    velomar::LeeAdditvieNoiseFilter(flat.data(), out.data(), 9, 7, flat.stride, 3, 0);
    for (int y = 0; y < 7; ++y)
        for (int x = 0; x < 9; ++x) ASSERT_EQ(out.at(x, y), 77);
    EXPECT_TRUE(vtest::PaddingIntact(out, 1));
}

TEST(LeeAdditvieNoiseFilter, RejectedCallsWriteNothing) {
    const Image src = vtest::RandomImage(8, 5, 2);  // two bytes per pixel
    Image dest(8, 5, 2, 0, 9);
    velomar::LeeAdditvieNoiseFilter(src.data(), dest.data(), 8, 5, src.stride, 1, 10);
    velomar::LeeAdditvieNoiseFilter(src.data(), dest.data(), 16, 5, src.stride, -1, 10);
    velomar::LeeAdditvieNoiseFilter(nullptr, dest.data(), 16, 5, src.stride, 1, 10);
    ::LeeAdditvieNoiseFilter(src.data(), dest.data(), 0, 5, src.stride, 1, 10);
    EXPECT_TRUE(vtest::AllBytes(dest.bytes, 9));
}

// The statistics engine declines radii past 32767; the filter once went on
// with its unfilled variance array and wrote bytes that changed from call to
// call.
TEST(LeeAdditvieNoiseFilter, RadiusTheStatisticsDeclineWritesNothing) {
    const Image src = vtest::RandomImage(76, 15, 1, 1);
    Image dest(76, 15, 1, 1, 9);
    for (int noise : {0, 10}) velomar::LeeAdditvieNoiseFilter(src.data(), dest.data(), 76, 15, 77, 32768, noise);
    EXPECT_TRUE(vtest::AllBytes(dest.bytes, 9));
}

}  // namespace
