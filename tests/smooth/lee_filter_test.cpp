// Lee additive noise filter against neighbourhood statistics computed directly.
#include <algorithm>

#include "common/test_util.h"
#include "smooth/smooth.h"

namespace {

using vtest::Image;

// Mirror about the edge pixel, folding by whole sizes for wide borders.
int Reflect(int p, int n) {
    if (p < 0) {
        p = -p;
        while (p >= n) p -= n;
    } else if (p >= n) {
        p = 2 * n - p - 2;
        while (p < 0) p += n;
    }
    return p;
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
                auto value = [&](int dx, int dy) {
                    return int(src.bytes[size_t(Reflect(y + dy, h)) * stride + Reflect(x + dx, w) * c + k]);
                };
                int sum = 0, sq = 0;
                for (int dy = -radius; dy <= radius; ++dy)
                    for (int dx = -radius; dx <= radius; ++dx) sum += value(dx, dy);
                const int m = sum / n;
                for (int dy = -radius; dy <= radius; ++dy)
                    for (int dx = -radius; dx <= radius; ++dx) sq += (value(dx, dy) - m) * (value(dx, dy) - m);
                const size_t i = size_t(y) * stride + x * c + k;
                mean[i] = m;
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
    for (int trial = 0; trial < 150; ++trial) {
        const int w = vtest::RandomInt(1, 24), h = vtest::RandomInt(1, 20);
        const int c = std::vector<int>{1, 3, 4}[size_t(trial % 3)];
        const int radius = vtest::RandomInt(0, trial % 5 == 0 ? 30 : 4);
        const int noise = trial % 2 ? 0 : vtest::RandomInt(1, 3000);
        const Image src = trial % 4 ? vtest::RandomSmoothImage(w, h, c, trial % 4)
                                    : vtest::RandomImage(w, h, c, trial % 4);
        Image dest = vtest::RandomImage(w, h, c, trial % 4, 0x5A);
        const auto expected = DirectLee(src, dest.bytes, radius, noise);
        const auto before = src.bytes;
        // The whole buffer is compared: bytes the layout does not treat keep
        // their marker.
        velomar::LeeAdditvieNoiseFilter(src.data(), dest.data(), w, h, src.stride, radius, noise);
        ASSERT_TRUE(vtest::BytesEqual(expected, dest.bytes))
            << w << "x" << h << "x" << c << " pad " << trial % 4 << " r " << radius << " noise " << noise;
        ASSERT_EQ(before, src.bytes);

        // In place the grey mean term is the source value itself.
        Image inplace = src;
        LeeAdditvieNoiseFilter(inplace.data(), inplace.data(), w, h, src.stride, radius, noise);
        ASSERT_TRUE(vtest::BytesEqual(DirectLee(src, src.bytes, radius, noise), inplace.bytes));
    }
}

TEST(LeeAdditvieNoiseFilter, LimitsOfTheNoiseVariance) {
    const Image src = vtest::RandomSmoothImage(30, 20, 3);
    // Overwhelming noise gives the local mean (which the three-channel path
    // writes first).
    Image dest(30, 20, 3);
    velomar::LeeAdditvieNoiseFilter(src.data(), dest.data(), 30, 20, src.stride, 2, 1 << 30);
    const Image box = [&] {
        Image m(30, 20, 3);
        for (int y = 0; y < 20; ++y)
            for (int x = 0; x < 30; ++x)
                for (int k = 0; k < 3; ++k) {
                    int s = 0;
                    for (int dy = -2; dy <= 2; ++dy)
                        for (int dx = -2; dx <= 2; ++dx) s += src.at(Reflect(x + dx, 30), Reflect(y + dy, 20), k);
                    m.at(x, y, k) = uint8_t(s / 25);
                }
        return m;
    }();
    EXPECT_TRUE(vtest::BytesEqual(box.bytes, dest.bytes));

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
    const auto before = dest.bytes;
    velomar::LeeAdditvieNoiseFilter(src.data(), dest.data(), 8, 5, src.stride, 1, 10);
    velomar::LeeAdditvieNoiseFilter(src.data(), dest.data(), 16, 5, src.stride, -1, 10);
    velomar::LeeAdditvieNoiseFilter(nullptr, dest.data(), 16, 5, src.stride, 1, 10);
    ::LeeAdditvieNoiseFilter(src.data(), dest.data(), 0, 5, src.stride, 1, 10);
    EXPECT_EQ(before, dest.bytes);
}

}  // namespace
