// Noise reduction against a direct rank count over the mirrored neighbourhood.
#include "common/reference.h"
#include "smooth/smooth.h"

namespace {

using vtest::Image;

uint8_t Step(int v, int rank, int n, int amount) {
    const int e = rank * 255 / n - v;
    const double out = v + e * (1 - 0.75 * v / 255.0) * (amount * (-0.2) / 100.0);
    return vtest::TruncClamp(out);  // out of the 32-bit range converts to 0
}

// Three-byte images channel by channel, every other layout as one plane over
// the first Width bytes of each row; the rank of v is the number of
// neighbourhood values <= v.
std::vector<uint8_t> DirectReduce(const Image& src, std::vector<uint8_t> dest, int radius, int amount) {
    const int walk = src.stride / src.width == 3 ? 3 : 1, n = (2 * radius + 1) * (2 * radius + 1);
    vtest::EachSample(src, walk, [&](int x, int y, int k, size_t i) {
        const std::vector<int> hood = vtest::Neighbourhood(src, x, y, k, radius, EDGE_REFLECT, walk);
        const int rank = int(std::count_if(hood.begin(), hood.end(), [&](int s) { return s <= src.bytes[i]; }));
        dest[i] = Step(src.bytes[i], rank, n, amount);
    });
    return dest;
}

// Amount 0 (the second trial) is the identity.
using ReduceNoisePaths = vtest::EveryIsa;
TEST_P(ReduceNoisePaths, MatchesDirectRankCount) {
    for (int trial = 0; trial < 150 && !HasFailure(); ++trial) {
        const Image src = vtest::SweepImage(trial, {1, 3, 4, 2}, 24, 20);
        const int radius = vtest::RandomInt(0, trial % 6 == 0 ? 30 : 4);
        const int amount = trial == 1                ? 0
                           : trial % 7 == 0 ? vtest::RandomInt(-100000000, 100000000)
                                            : vtest::RandomInt(-300, 300);
        EXPECT_TRUE(vtest::FilterMatches(
            src, [&](auto... a) { velomar::ReduceNoise(a..., radius, amount); },
            [&](std::vector<uint8_t> d) { return DirectReduce(src, d, radius, amount); }))
            << " r " << radius << " amount " << amount;
    }
    const Image src = vtest::RandomImage(31, 7, 3, 1);
    EXPECT_TRUE(vtest::WritesNothing(vtest::DestFor(src), {
        [&](uint8_t* d) { velomar::ReduceNoise(src.data(), d, 31, 7, src.stride, -1, 50); },
        [&](uint8_t* d) { velomar::ReduceNoise(src.data(), d, 31, 7, src.stride, 128, 50); },
    }));
}

TEST(ReduceNoise, LargestRadiusOnAFlatImage) {
    // N = 65025 fills the 16-bit counters almost to the top; a flat image
    // has rank N everywhere, e = 255 - v.
    Image flat(40, 3, 1, 0, 100), out(40, 3, 1);
    ::ReduceNoise(flat.data(), out.data(), 40, 3, 40, 127, 100);
    // 100 + 155 * (1 - 0.75 * 100 / 255) * -0.2 = 78.12...
    EXPECT_TRUE(vtest::AllBytes(out.bytes, 78));
}

VELOMAR_INSTANTIATE_EVERY_ISA(Isa, ReduceNoisePaths);

}  // namespace
