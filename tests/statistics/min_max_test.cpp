// Local minimum, maximum and range against a direct scan of the neighbourhood
// clipped to the image.
#include <array>

#include "common/reference.h"
#include "statistics/statistics.h"

namespace {

using vtest::Image;

// The minimum (op 0), maximum (1) or range (2) over the clipped box; `walk`
// bytes per pixel; only walked bytes set.
std::vector<uint8_t> DirectExtreme(const Image& src, int r, int op, int walk, std::vector<uint8_t> out) {
    vtest::EachSample(src, walk, [&](int x, int y, int c, size_t i) {
        int lo = 255, hi = 0;
        for (int sy = std::max(0, y - r); sy <= std::min(src.height - 1, y + r); ++sy)
            for (int sx = std::max(0, x - r); sx <= std::min(src.width - 1, x + r); ++sx) {
                const int p = src.bytes[size_t(sy) * src.stride + size_t(sx) * walk + c];
                lo = std::min(lo, p), hi = std::max(hi, p);
            }
        out[i] = uint8_t(op == 0 ? lo : op == 1 ? hi : hi - lo);
    });
    return out;
}

// Runs of equal values and extremes over most of the picture, so the leaving
// value often equals the current extreme.
Image Blocky(Image img) {
    const int levels[] = {0, 17, 128, 200, 255};
    for (int y = 0; y < img.height; ++y)
        for (int x = 0; x < img.width * img.channels; ++x)
            if (vtest::RandomInt(0, 3))
                img.bytes[size_t(y) * img.stride + x] = uint8_t(levels[((x / 5) + (y / 3) + vtest::RandomInt(0, 1)) % 5]);
    return img;
}

// Four bytes per pixel are walked three bytes apart, like other three-channel
// filters; bytes past 3 * Width are left alone by the minimum. The maximum's
// bytes outside the walk come out as the source's (complemented twice), and
// so do the range's. Rows wider than the widest vector, under every
// instruction set.
using MinMaxPaths = vtest::EveryIsa;
TEST_P(MinMaxPaths, MatchDirectScan) {
    for (int trial = 0; trial < 160 && !HasFailure(); ++trial) {
        const Image noise = vtest::SweepImage(trial, {1, 3, 1, 3, 4}, trial % 2 ? 150 : 70, 40, 4);
        const Image src = trial % 3 ? Blocky(noise) : noise;
        const int r = trial < 20 ? trial / 4 : vtest::RandomInt(0, trial % 5 ? 12 : 80), walk = std::min(src.channels, 3);
        for (int op = 0; op < 3; ++op)
            EXPECT_TRUE(vtest::FilterMatches(
                src, [&](auto... a) { std::array{MinValue, MaxValue, RangeFilter}[op](a..., r); },
                [&](std::vector<uint8_t> d) { return DirectExtreme(src, r, op, walk, op ? src.bytes : d); }))
                << " r" << r << std::array{" min", " max", " range"}[op];
    }
    // A negative radius and a two-byte layout write nothing.
    const Image src = vtest::RandomImage(13, 6, 3, 2), two = vtest::RandomImage(8, 3, 2);
    EXPECT_TRUE(vtest::WritesNothing(Image(8, 3, 2, 0, 0x11), {
        [&](uint8_t* d) { MinValue(src.data(), d, 8, 3, 16, -1); },
        [&](uint8_t* d) { MaxValue(two.data(), d, 8, 3, 16, 1); },
        [&](uint8_t* d) { RangeFilter(two.data(), d, 8, 3, 16, 1); },
    }));
}

VELOMAR_INSTANTIATE_EVERY_ISA(Isa, MinMaxPaths);

}  // namespace
