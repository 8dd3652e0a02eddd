// Find edges against a direct Sobel with replicated borders.
#include <algorithm>
#include <array>
#include <cmath>

#include "common/reference.h"
#include "sharpen/sharpen.h"

namespace {

using vtest::Image;
using vtest::RandomInt;

constexpr uint8_t kMarker = 0xA5;

Image Direct(const Image& src, const Image& dest) {
    Image out = dest;
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
        const Image src = vtest::SweepImage(trial, {1, 3, 4}, 40, 12);  // white noise reaches the cap
        const int w = src.width, h = src.height;
        EXPECT_TRUE(vtest::MatchesBothWays(  // fourth bytes and padding kept
            src, vtest::DestFor(src),
            [&](const uint8_t* s, uint8_t* d) { ::FindEdges(s, d, w, h, src.stride); },
            [&](std::vector<uint8_t> d) {
                Image start = src;
                start.bytes = d;
                return Direct(src, start).bytes;
            }))
            << src;
    }
}

TEST(FindEdges, EveryMagnitudeMapsThroughTheRoot) {
    // A single bright pixel v in a dark field gives Gx^2 + Gy^2 = 4 v^2 right
    // beside it and 2 v^2 on the diagonals; sweeping v covers the table from 0
    // to beyond the cap.
    for (int v = 0; v < 256; ++v) {
        Image img(3, 3, 1, 0, 0);
        img.at(1, 1) = uint8_t(v);
        ::FindEdges(img.data(), img.data(), 3, 3, 3);
        const int side = std::min(4 * v * v, 65025), corner = std::min(2 * v * v, 65025);
        ASSERT_EQ(img.at(0, 1), int(255.0 - std::sqrt(side + 0.0))) << v;
        ASSERT_EQ(img.at(1, 1), 255) << v;
        ASSERT_EQ(img.at(0, 0), int(255.0 - std::sqrt(corner + 0.0))) << v;
    }
}

TEST(FindEdges, OtherLayoutsAreLeftUntouched) {
    for (int c : {2, 5}) {
        const Image src = vtest::RandomImage(9, 4, c);
        Image dest(9, 4, c, 0, kMarker);
        ::FindEdges(src.data(), dest.data(), 9, 4, src.stride);
        EXPECT_TRUE(vtest::AllBytes(dest.bytes, kMarker)) << c;
    }
}

}  // namespace
