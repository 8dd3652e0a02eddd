// Find edges against a direct Sobel with replicated borders.
#include <array>
#include <cmath>

#include "common/reference.h"
#include "sharpen/sharpen.h"

namespace {

using vtest::Image;

// Grey, three and four bytes per pixel (the fourth kept); other layouts are
// left untouched.
Image Direct(const Image& src, const Image& dest) {
    Image out = dest;
    if (src.channels == 2 || src.channels > 4) return out;
    auto at = [&](int x, int y, int k) {
        return int(src.at(std::clamp(x, 0, src.width - 1), std::clamp(y, 0, src.height - 1), k));
    };
    for (int y = 0; y < src.height; ++y)
        for (int x = 0; x < src.width; ++x)
            for (int k = 0; k < std::min(src.channels, 3); ++k) {
                const int gx = (at(x - 1, y - 1, k) + 2 * at(x - 1, y, k) + at(x - 1, y + 1, k)) -
                               (at(x + 1, y - 1, k) + 2 * at(x + 1, y, k) + at(x + 1, y + 1, k));
                const int gy = (at(x - 1, y - 1, k) + 2 * at(x, y - 1, k) + at(x + 1, y - 1, k)) -
                               (at(x - 1, y + 1, k) + 2 * at(x, y + 1, k) + at(x + 1, y + 1, k));
                const int m = std::min(gx * gx + gy * gy, 65025);
                out.at(x, y, k) = uint8_t(int(255.0 - std::sqrt(m + 0.0)));
            }
    return out;
}

TEST(FindEdges, MatchesADirectSobel) {
    for (int trial = 0; trial < 150 && !HasFailure(); ++trial) {
        const Image src = vtest::SweepImage(trial, {1, 3, 4, 1, 3, 2, 5}, 40, 12);  // white noise reaches the cap
        EXPECT_TRUE(vtest::FilterMatches(src, ::FindEdges, [&](std::vector<uint8_t> d) {
            Image start = src;
            start.bytes = d;
            return Direct(src, start).bytes;
        }));
    }
}

}  // namespace
