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
        const int c = std::array{1, 3, 4}[RandomInt(0, 2)];
        const int w = trial < 12 ? 1 + trial % 2 : RandomInt(1, 40), h = RandomInt(1, 12);
        const int pad = RandomInt(0, std::min(5, w - 1));  // keeps Stride / Width == c
        // White noise reaches the cap; smooth images cover the small magnitudes.
        const Image src = RandomInt(0, 1) ? vtest::RandomImage(w, h, c, pad) : vtest::RandomSmoothImage(w, h, c, pad);
        EXPECT_TRUE(vtest::MatchesBothWays(  // fourth bytes and padding kept
            src, vtest::RandomImage(w, h, c, pad, 0x3C),
            [&](const uint8_t* s, uint8_t* d) { ::FindEdges(s, d, w, h, src.stride); },
            [&](std::vector<uint8_t> d) {
                Image start = src;
                start.bytes = d;
                return Direct(src, start).bytes;
            }))
            << w << "x" << h << "x" << c << " pad " << pad;
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

TEST(FindEdges, VerticalStep) {
    Image step(10, 4, 1, 2, kMarker);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 10; ++x) step.at(x, y) = x < 5 ? 0 : 255;
    ::FindEdges(step.data(), step.data(), 10, 4, step.stride);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 10; ++x) ASSERT_EQ(step.at(x, y), x == 4 || x == 5 ? 0 : 255) << x;
    EXPECT_TRUE(vtest::PaddingIntact(step, kMarker));
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
