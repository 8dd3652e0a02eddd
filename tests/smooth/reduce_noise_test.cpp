// Noise reduction against a direct rank count over the mirrored neighbourhood.
#include <algorithm>
#include <cmath>

#include "common/test_util.h"
#include "smooth/smooth.h"

namespace {

using vtest::Image;

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

uint8_t Step(int v, int rank, int n, int amount) {
    const int e = rank * 255 / n - v;
    const double out = v + e * (1 - 0.75 * v / 255.0) * (amount * (-0.2) / 100.0);
    if (out >= 2147483648.0 || out <= -2147483649.0) return 0;  // x86 conversion overflow
    return uint8_t(std::clamp(int64_t(out), int64_t(0), int64_t(255)));
}

// One plane at `first + y * pitch + x * step`; the rank of v is the number of
// neighbourhood values <= v.
void DirectPlane(const std::vector<uint8_t>& src, std::vector<uint8_t>& dest, size_t first, int w,
                 int h, int pitch, int step, int radius, int amount) {
    auto at = [&](int x, int y) { return first + size_t(y) * pitch + size_t(x) * step; };
    const int n = (2 * radius + 1) * (2 * radius + 1);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const int v = src[at(x, y)];
            int rank = 0;
            for (int dy = -radius; dy <= radius; ++dy)
                for (int dx = -radius; dx <= radius; ++dx)
                    rank += src[at(Reflect(x + dx, w), Reflect(y + dy, h))] <= v;
            dest[at(x, y)] = Step(v, rank, n, amount);
        }
}

std::vector<uint8_t> DirectReduce(const Image& src, std::vector<uint8_t> dest, int radius, int amount) {
    if (src.stride / src.width == 3)
        for (int k = 0; k < 3; ++k)
            DirectPlane(src.bytes, dest, size_t(k), src.width, src.height, src.stride, 3, radius, amount);
    else
        DirectPlane(src.bytes, dest, 0, src.width, src.height, src.stride, 1, radius, amount);
    return dest;
}

TEST(ReduceNoise, MatchesDirectRankCount) {
    for (int trial = 0; trial < 150; ++trial) {
        const int w = vtest::RandomInt(1, 24), h = vtest::RandomInt(1, 20);
        const int c = std::vector<int>{1, 3, 4, 2}[size_t(trial % 4)];
        const int pad = trial % 3;
        const int radius = vtest::RandomInt(0, trial % 6 == 0 ? 30 : 4);
        const int amount = trial % 7 == 0 ? vtest::RandomInt(-100000000, 100000000) : vtest::RandomInt(-300, 300);
        const Image src = trial % 3 ? vtest::RandomImage(w, h, c, pad) : vtest::RandomSmoothImage(w, h, c, pad);
        Image dest = vtest::RandomImage(w, h, c, pad, 0x5A);
        const auto expected = DirectReduce(src, dest.bytes, radius, amount);
        const auto before = src.bytes;
        // The whole buffer is compared: bytes the layout does not treat keep
        // their marker.
        velomar::ReduceNoise(src.data(), dest.data(), w, h, src.stride, radius, amount);
        ASSERT_TRUE(vtest::BytesEqual(expected, dest.bytes))
            << w << "x" << h << "x" << c << " pad " << pad << " r " << radius << " amount " << amount;
        ASSERT_EQ(before, src.bytes);

        Image inplace = src;
        ::ReduceNoise(inplace.data(), inplace.data(), w, h, src.stride, radius, amount);
        ASSERT_TRUE(vtest::BytesEqual(DirectReduce(src, src.bytes, radius, amount), inplace.bytes));
    }
}

TEST(ReduceNoise, LargestRadiusOnAFlatImage) {
    // N = 65025 fills the 16-bit counters almost to the top; a flat image
    // has rank N everywhere, e = 255 - v.
    Image flat(40, 3, 1, 0, 100);
    Image out(40, 3, 1);
    velomar::ReduceNoise(flat.data(), out.data(), 40, 3, 40, 127, 100);
    // 100 + 155 * (1 - 0.75 * 100 / 255) * -0.2 = 78.12...
    for (uint8_t b : out.bytes) ASSERT_EQ(b, 78);
    // 255 stays 255 (e = 0).
    Image white(5, 5, 1, 0, 255);
    velomar::ReduceNoise(white.data(), out.data(), 5, 5, 5, 2, 100);
    for (int i = 0; i < 25; ++i) ASSERT_EQ(out.bytes[size_t(i)], 255);
}

TEST(ReduceNoise, IdentityToneCurveAndRejectedCalls) {
    const Image src = vtest::RandomImage(31, 7, 3, 1);
    Image dest = vtest::RandomImage(31, 7, 3, 1);
    velomar::ReduceNoise(src.data(), dest.data(), 31, 7, src.stride, 3, 0);
    EXPECT_EQ(src.bytes, dest.bytes);  // both paddings carry the same marker
    // Radius 0 is a tone curve: equal values give equal results.
    velomar::ReduceNoise(src.data(), dest.data(), 31, 7, src.stride, 0, 80);
    uint8_t curve[256];
    for (int v = 0; v < 256; ++v) curve[v] = Step(v, 1, 1, 80);
    for (int y = 0; y < 7; ++y)
        for (int x = 0; x < 31; ++x)
            for (int k = 0; k < 3; ++k) ASSERT_EQ(dest.at(x, y, k), curve[src.at(x, y, k)]);

    const auto before = dest.bytes;
    velomar::ReduceNoise(src.data(), dest.data(), 31, 7, src.stride, -1, 50);
    velomar::ReduceNoise(src.data(), dest.data(), 31, 7, src.stride, 128, 50);
    EXPECT_EQ(before, dest.bytes);
}

}  // namespace
