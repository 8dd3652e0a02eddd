// Fragment against direct offsets and mirrored sampling.
#include <cmath>

#include "common/reference.h"
#include "statistics/statistics.h"

namespace {

using vtest::Image;
using vtest::RandomInt;

// Count samples on a circle of radius Distance, mirrored at the borders and
// averaged; four bytes per pixel weight the colour by alpha, and a pixel whose
// samples are all transparent keeps what Dest held.
std::vector<uint8_t> DirectFragment(const Image& src, int count, int distance, double angle,
                                    std::vector<uint8_t> out) {
    std::vector<int> dx(count, 0), dy(count, 0);
    for (int i = 0; i < count; ++i) {
        const double t = i * (6.2831852 / count) + (angle - 90.0) * 3.1415926 / 180.0;
        dx[size_t(i)] = -int(std::sin(t) * (-distance)), dy[size_t(i)] = -int(std::cos(t) * (-distance));
    }
    const int c = src.channels;
    vtest::EachSample(src, 1, [&](int x, int y, int, size_t) {  // every pixel
        int sum[3] = {}, alpha = 0;
        for (int i = 0; i < count; ++i) {
            const int sx = vtest::MapEdge(x + dx[size_t(i)], src.width, 1);
            const int sy = vtest::MapEdge(y + dy[size_t(i)], src.height, 1);
            const uint8_t* p = &src.bytes[vtest::Offset(src, sx, sy, c, 0)];
            for (int k = 0; k < std::min(c, 3); ++k) sum[k] += c == 4 ? p[k] * p[3] : p[k];
            alpha += c == 4 ? p[3] : 0;
        }
        uint8_t* d = &out[vtest::Offset(src, x, y, c, 0)];
        for (int k = 0; k < c && k < 3 && (c != 4 || alpha); ++k) d[k] = uint8_t(sum[k] / (c == 4 ? alpha : count));
        if (c == 4 && alpha) d[3] = uint8_t(alpha / count);
    });
    return out;
}

TEST(Fragment, MatchesDirectSamplingAndStraightDown) {
    for (int trial = 0; trial < 80 && !HasFailure(); ++trial) {
        Image src = vtest::SweepImage(trial, {1, 3, 4}, 40, 30, 3);
        const int w = src.width, c = src.channels, count = RandomInt(1, 12);
        const int distance = trial % 10 == 3 ? 0 : trial % 7 == 0 ? RandomInt(50, 300) : RandomInt(-15, 15);
        const double angle = RandomInt(-720, 720) * 0.5;
        vtest::EachSample(src, c, [&](int x, int, int k, size_t i) {
            if (k == 3 && (RandomInt(0, 2) == 0 || x < w / 3)) src.bytes[i] = 0;  // some transparent areas too
        });
        EXPECT_TRUE(vtest::FilterMatches(
            src, [&](auto... a) { Fragment(a..., count, distance, angle); },
            [&](std::vector<uint8_t> d) { return DirectFragment(src, count, distance, angle, d); }))
            << " n" << count << " d" << distance << " a" << angle;
    }
    // Angle 90, one copy: each pixel takes the one Distance rows below, mirrored.
    Image down = vtest::RandomImage(10, 7, 3, 2), dst(10, 7, 3, 2, 0);
    Fragment(down.data(), dst.data(), 10, 7, down.stride, 1, 2, 90.0);
    for (int y = 0; y < 7; ++y)
        for (int k = 0; k < 30; ++k) EXPECT_EQ(down.at(0, vtest::MapEdge(y + 2, 7, 1), k), dst.at(0, y, k));
    EXPECT_TRUE(vtest::WritesNothing(dst, {
        [&](uint8_t* d) { Fragment(down.data(), d, 16, 7, down.stride, 3, 2, 0.0); },   // two bytes per pixel
        [&](uint8_t* d) { Fragment(down.data(), d, 10, 7, down.stride, 0, 2, 0.0); },   // Count 0
    }));
}

}  // namespace
