// Fragment against direct offsets and mirrored sampling.
#include <cmath>

#include "common/reference.h"
#include "statistics/statistics.h"

namespace {

using vtest::Image;

using vtest::Reflect;

std::vector<uint8_t> DirectFragment(const Image& src, int count, int distance, double angle,
                                    std::vector<uint8_t> out) {
    std::vector<int> dx(size_t(count), 0), dy(size_t(count), 0);
    for (int i = 0; i < count; ++i) {
        double t = i * (6.2831852 / count) + (angle - 90.0) * 3.1415926 / 180.0;
        dx[size_t(i)] = -int(std::sin(t) * (-distance));
        dy[size_t(i)] = -int(std::cos(t) * (-distance));
    }
    const int c = src.channels;
    for (int y = 0; y < src.height; ++y)
        for (int x = 0; x < src.width; ++x) {
            int sum[4] = {}, alpha = 0;
            for (int i = 0; i < count; ++i) {
                const uint8_t* p = &src.bytes[size_t(Reflect(y + dy[size_t(i)], src.height)) * src.stride +
                                              size_t(Reflect(x + dx[size_t(i)], src.width)) * c];
                if (c == 4) {
                    for (int k = 0; k < 3; ++k) sum[k] += p[k] * p[3];
                    alpha += p[3];
                } else {
                    for (int k = 0; k < c; ++k) sum[k] += p[k];
                }
            }
            uint8_t* d = &out[size_t(y) * src.stride + size_t(x) * c];
            if (c == 4) {
                if (alpha == 0) continue;
                for (int k = 0; k < 3; ++k) d[k] = uint8_t(sum[k] / alpha);
                d[3] = uint8_t(alpha / count);
            } else {
                for (int k = 0; k < c; ++k) d[k] = uint8_t(sum[k] / count);
            }
        }
    return out;
}

TEST(Fragment, MatchesDirectSampling) {
    for (int trial = 0; trial < 80 && !HasFailure(); ++trial) {
        Image src = vtest::SweepImage(trial, {1, 3, 4}, 40, 30, 3);
        const int w = src.width, h = src.height, c = src.channels, count = vtest::RandomInt(1, 12);
        const int distance =
            trial % 10 == 3 ? 0 : trial % 7 == 0 ? vtest::RandomInt(50, 300) : vtest::RandomInt(-15, 15);
        const double angle = vtest::RandomInt(-720, 720) * 0.5;
        if (c == 4)  // some transparent pixels, some fully transparent areas
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x)
                    if (vtest::RandomInt(0, 2) == 0 || x < w / 3) src.at(x, y, 3) = 0;
        EXPECT_TRUE(vtest::FilterMatches(src, [&](auto... a) { Fragment(a..., count, distance, angle); },
                                         [&](std::vector<uint8_t> d) { return DirectFragment(src, count, distance, angle, d); }))
            << " n" << count << " d" << distance << " a" << angle;
    }
    const Image src = vtest::RandomImage(6, 4, 2);
    EXPECT_TRUE(vtest::WritesNothing(vtest::DestFor(src), {
        [&](uint8_t* d) { Fragment(src.data(), d, 6, 4, src.stride, 3, 2, 0.0); },   // two bytes per pixel
        [&](uint8_t* d) { Fragment(src.data(), d, 12, 4, src.stride, 0, 2, 0.0); },  // Count 0
    }));
}

TEST(Fragment, StraightDown) {
    // Angle 90, one copy: each pixel takes the one Distance rows below, mirrored.
    Image src = vtest::RandomImage(10, 7, 3, 2), dst(10, 7, 3, 2, 0);
    Fragment(src.data(), dst.data(), 10, 7, src.stride, 1, 2, 90.0);
    for (int y = 0; y < 7; ++y)
        for (int k = 0; k < 30; ++k) EXPECT_EQ(src.at(0, Reflect(y + 2, 7), k), dst.at(0, y, k));
}

}  // namespace
