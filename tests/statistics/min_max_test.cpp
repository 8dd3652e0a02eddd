// Local minimum, maximum and range against a direct scan of the neighbourhood
// clipped to the image.
#include "common/reference.h"
#include "statistics/statistics.h"

namespace {

using vtest::Image;

// Extreme over the clipped box; `walk` bytes per pixel; only walked bytes set.
std::vector<uint8_t> DirectExtreme(const Image& src, int r, bool take_max, int walk,
                                   std::vector<uint8_t> out) {
    vtest::EachSample(src, walk, [&](int x, int y, int c, size_t i) {
        int v = take_max ? 0 : 255;
        for (int sy = std::max(0, y - r); sy <= std::min(src.height - 1, y + r); ++sy)
            for (int sx = std::max(0, x - r); sx <= std::min(src.width - 1, x + r); ++sx) {
                int p = src.bytes[size_t(sy) * src.stride + size_t(sx) * walk + c];
                v = take_max ? std::max(v, p) : std::min(v, p);
            }
        out[i] = uint8_t(v);
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
        for (bool take_max : {false, true})
            EXPECT_TRUE(vtest::FilterMatches(
                src, [&](auto... a) { (take_max ? MaxValue : MinValue)(a..., r); },
                [&](std::vector<uint8_t> d) { return DirectExtreme(src, r, take_max, walk, take_max ? src.bytes : d); }))
                << " r" << r << (take_max ? " max" : " min");
        const std::vector<uint8_t> hi = DirectExtreme(src, r, true, walk, src.bytes);
        std::vector<uint8_t> range = DirectExtreme(src, r, false, walk, std::vector<uint8_t>(hi.size(), 0));
        for (size_t i = 0; i < range.size(); ++i) range[i] = uint8_t(hi[i] - range[i]);
        EXPECT_TRUE(vtest::FilterMatches(src, [&](auto... a) { RangeFilter(a..., r); }, [&](auto) { return range; }))
            << " r" << r << " range";
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
