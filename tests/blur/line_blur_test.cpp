// Motion and linear blurs: the line kernels against a floating-point
// construction and hand-derived cases, the blurs against the kernel applied
// by a plain loop.
#include <cmath>
#include <map>
#include <utility>

#include "blur/blur.h"
#include "common/reference.h"

namespace {

using vtest::RandomInt;
using velomar::LineTap;

std::vector<LineTap> Kernel(int distance, double angle, bool trailing) {
    std::vector<LineTap> taps;
    int32_t radius = -1;
    EXPECT_TRUE(velomar::BuildLineKernel(distance, angle, trailing, taps, radius));
    return taps;
}

std::map<std::pair<int, int>, int> AsMap(const std::vector<LineTap>& taps, int shiftX = 0, int shiftY = 0) {
    std::map<std::pair<int, int>, int> m;
    for (const LineTap& t : taps) m[{t.dx + shiftX, t.dy + shiftY}] = t.weight;
    return m;
}

// The same samples in double precision: quarter-pixel steps along
// (cos, -sin), each split bilinearly, normalised to 65536.
std::map<std::pair<int, int>, double> FloatKernel(int distance, double angle, bool trailing) {
    const double a = angle * std::acos(-1.0) / 180.0, ux = std::cos(a), uy = -std::sin(a);
    const int n = 4 * distance;
    std::map<std::pair<int, int>, double> m;
    for (int k = 0; k < n; ++k) {
        const double t = (2 * k + 1 - (trailing ? 2 * n : n)) / 8.0, x = t * ux, y = t * uy;
        const int ix = int(std::floor(x)), iy = int(std::floor(y));
        const double fx = x - ix, fy = y - iy;
        for (int q = 0; q < 4; ++q)  // the corners (ix, iy), (ix + 1, iy), (ix, iy + 1), (ix + 1, iy + 1)
            m[{ix + q % 2, iy + q / 2}] += (q % 2 ? fx : 1 - fx) * (q / 2 ? fy : 1 - fy) * 65536 / n;
    }
    return m;
}

TEST(LineKernel, HandDerivedCasesAndFloatConstruction) {
    // Two pixels horizontally: the quarter-pixel samples pile up as 1 : 2 : 1.
    using M = std::map<std::pair<int, int>, int>;
    EXPECT_EQ(AsMap(Kernel(2, 0, false)), (M{{{-1, 0}, 16384}, {{0, 0}, 32768}, {{1, 0}, 16384}}));
    EXPECT_EQ(AsMap(Kernel(2, 90, false)), (M{{{0, -1}, 16384}, {{0, 0}, 32768}, {{0, 1}, 16384}}));
    EXPECT_EQ(AsMap(Kernel(1, 0, false)), (M{{{-1, 0}, 8192}, {{0, 0}, 49152}, {{1, 0}, 8192}}));
    EXPECT_EQ(AsMap(Kernel(0, 17, true)), (M{{{0, 0}, 65536}}));
    // Three pixels: shares 4 : 3.5 : 0.5 of 12 on each side; the three units
    // the shares round away go to the largest remainders, earlier cells first.
    EXPECT_EQ(AsMap(Kernel(3, 0, false)),
              (M{{{-2, 0}, 2731}, {{-1, 0}, 19115}, {{0, 0}, 21845}, {{1, 0}, 19115}, {{2, 0}, 2730}}));
    for (int trial = 0; trial < 60; ++trial) {
        const int d = RandomInt(1, 40);
        const double angle = RandomInt(-720, 720) + RandomInt(0, 99) / 100.0;
        const bool trailing = trial % 2;
        const std::vector<LineTap> taps = Kernel(d, angle, trailing);
        int sum = 0;
        const auto reference = FloatKernel(d, angle, trailing);
        for (const LineTap& t : taps) {
            sum += t.weight;
            EXPECT_GT(t.weight, 0);
            const auto it = reference.find({t.dx, t.dy});
            const double expected = it == reference.end() ? 0.0 : it->second;
            EXPECT_NEAR(t.weight, expected, 64) << "d " << d << " angle " << angle << " at " << t.dx << "," << t.dy;
        }
        EXPECT_EQ(sum, 65536) << "d " << d << " angle " << angle;
        // The centred streak is the same line half a turn on (the angles span four whole turns).
        if (!trailing) {
            EXPECT_EQ(AsMap(taps), AsMap(Kernel(d, angle - 180, false)));
        }
    }
    // Along an axis an even trail is the centred streak moved back by half its length: at 90 degrees it
    // samples the rows below, so a bright dot's trail runs up the picture from it.
    for (int d : {2, 6, 30})
        for (int q = 0; q < 4; ++q) {
            const int bx[4] = {-1, 0, 1, 0}, by[4] = {0, 1, 0, -1};  // "back" for 0, 90, 180, 270
            EXPECT_EQ(AsMap(Kernel(d, 90 * q, true)), AsMap(Kernel(d, 90 * q, false), bx[q] * d / 2, by[q] * d / 2))
                << "d " << d << " angle " << 90 * q;
        }
}

// The kernel applied by a plain loop: rounded weighted sum over the mapped
// positions, Channels bytes per pixel (1, 4, else 3).
std::vector<uint8_t> Direct(const vtest::Image& src, std::vector<uint8_t> dest, const std::vector<LineTap>& taps,
                            int edge) {
    const int w = src.width, h = src.height, bpp = src.stride / w, c = bpp == 1 ? 1 : (bpp == 4 ? 4 : 3);
    vtest::EachSample(src, c, [&](int x, int y, int k, size_t i) {
        int64_t sum = 32768;
        for (const LineTap& t : taps)
            sum += int64_t(t.weight) *
                   src.bytes[vtest::Offset(src, vtest::MapEdge(x + t.dx, w, edge), vtest::MapEdge(y + t.dy, h, edge), c, k)];
        dest[i] = uint8_t(sum >> 16);
    });
    return dest;
}

// The last three trials take refused lengths and angles (-1, 1001, a NaN angle): GetMotionArray returns 0 and
// writes nothing, and neither blur writes (both decline at the same kernel check).
TEST(LineBlurs, MatchTheKernelAppliedDirectly) {
    for (int trial = 0; trial < 51; ++trial) {
        const vtest::Image src = vtest::SweepImage(trial, {1, 3, 4}, 40, 30);
        const bool refused = trial >= 48;
        // Lengths past the picture's size fold the reflected border; trial 5 takes the longest.
        const int d = trial == 48 ? -1 : trial == 49 ? 1001 : trial == 5 ? 1000
                      : RandomInt(0, 3) == 0 ? RandomInt(40, 120) : RandomInt(0, 12);
        const double angle = trial == 50 ? std::nan("") : RandomInt(-400, 400) * 0.9;
        const int edge = RandomInt(0, 1), side = GetMotionArray(nullptr, d, angle);
        // The motion kernel as GetMotionArray writes it: a dense square sized by the distance alone.
        ASSERT_EQ(side, refused ? 0 : 2 * ((d + 1) / 2) + 1);
        std::vector<int32_t> dense(size_t(side) * side + 1, -7);
        ASSERT_EQ(GetMotionArray(dense.data(), d, angle), side);
        ASSERT_EQ(dense.back(), -7) << "wrote past the square";
        std::vector<LineTap> motion, trail = refused ? motion : Kernel(d, angle, true);
        for (int i = 0; i < side * side; ++i)
            if (dense[i]) motion.push_back({i % side - side / 2, i / side - side / 2, dense[i]});
        // MotionBlur applies that square, LinearBlur the trailing line.
        for (const auto& blur : {std::pair{&MotionBlur, &motion}, {&LinearBlur, &trail}})
            EXPECT_TRUE(vtest::FilterMatches(src, [&](auto... a) { blur.first(a..., d, angle, edge); }, [&](auto out) {
                return refused ? out : Direct(src, out, *blur.second, edge);
            }))
                << (blur.second == &motion ? "motion d " : "linear d ") << d << " angle " << angle << " edge " << edge;
    }
}

}  // namespace
