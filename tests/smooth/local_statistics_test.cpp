// Lee, Wiener and rank noise reduction against neighbourhood statistics and
// rank counts taken directly over each (2r+1)^2 neighbourhood.
#include "common/suite.h"
#include "smooth/smooth.h"

namespace {

using vtest::Image;
using vtest::RandomInt;

// Lee: Dest as on entry with every treated value replaced. Grey reads M from
// the entry bytes; other layouts use the local mean, three bytes per pixel.
std::vector<uint8_t> DirectLee(const Image& src, std::vector<uint8_t> dest, int radius, int noise) {
    const int w = src.width, h = src.height, stride = src.stride, c = stride / w == 1 ? 1 : 3;
    if (stride < w * c) return dest;  // a two-byte layout is left alone
    const vtest::LocalStats st = vtest::DirectLocalStats(src, radius, EDGE_REFLECT, c);
    int64_t total = 0;
    vtest::EachRowByte(src, w * c, [&](size_t i) { total += st.variance[i]; });
    const int N = noise ? noise : int(total / (int64_t(w) * c * h));
    vtest::EachRowByte(src, w * c, [&](size_t i) {
        const int S = src.bytes[i], V = int(st.variance[i]), M = c == 1 ? dest[i] : int(st.mean[i]);
        dest[i] = uint8_t(std::clamp(N + V == 0 ? S : M + ((S - M) * V) / (N + V), 0, 255));  // 0 / 0: the source
    });
    return dest;
}

// Wiener (and rank reduction below): three-byte images channel by channel,
// every other layout as one plane over the first Width bytes of each row.
// Integer box sums are exact; the second moment is its integer sum times
// 1.0 / area, which is what a running double sum of whole numbers gives too.
std::vector<uint8_t> DirectWiener(const Image& src, std::vector<uint8_t> dest, int radius, int noise, int edge) {
    const int walk = src.stride / src.width == 3 ? 3 : 1, area = (2 * radius + 1) * (2 * radius + 1);
    std::vector<int> m(src.bytes.size());
    std::vector<double> v(src.bytes.size()), total(walk);
    vtest::EachSample(src, walk, [&](int x, int y, int k, size_t i) {
        int64_t s = 0, sq = 0;
        for (int p : vtest::Neighbourhood(src, x, y, k, radius, edge, walk)) s += p, sq += p * p;
        m[i] = int(s / area);
        total[k] += v[i] = double(sq) * (1.0 / area) - double(s / area * (s / area));
    });
    vtest::EachSample(src, walk, [&](int, int, int k, size_t i) {
        const int N = noise ? noise : int(total[k] / (double(src.width) * src.height));
        const double D = std::max(v[i] - N, 0.0), Q = N < v[i] ? v[i] : N;
        dest[i] = vtest::TruncClamp(m[i] + D * (src.bytes[i] - m[i]) / Q);  // 0 / 0 gives 0
    });
    return dest;
}

// Rank reduction moves v by e = rank * 255 / n - v, the rank being the
// number of neighbourhood values <= v.
std::vector<uint8_t> DirectReduce(const Image& src, std::vector<uint8_t> dest, int radius, int amount) {
    const int walk = src.stride / src.width == 3 ? 3 : 1, n = (2 * radius + 1) * (2 * radius + 1);
    vtest::EachSample(src, walk, [&](int x, int y, int k, size_t i) {
        const std::vector<int> hood = vtest::Neighbourhood(src, x, y, k, radius, EDGE_REFLECT, walk);
        const int v = src.bytes[i], e = int(std::count_if(hood.begin(), hood.end(), [&](int s) { return s <= v; })) * 255 / n - v;
        dest[i] = vtest::TruncClamp(v + e * (1 - 0.75 * v / 255.0) * (amount * (-0.2) / 100.0));  // beyond 32 bits: 0
    });
    return dest;
}

// Lee: overwhelming noise gives the local mean (which the three-channel path
// writes first); a constant picture with an estimated noise divides 0 by 0,
// and in place the grey mean term is the source value itself. Wiener: a
// constant picture estimates N = 0 and evaluates 0 / 0 everywhere (black);
// with a given noise it keeps its value (V = 0 <= N); noise above every
// local variance gives the box mean. Rank reduction: amount 0 (the second
// trial) is the identity; wide pictures fill every vector width of its count.
using NoiseFilterPaths = vtest::EveryIsa;
TEST_P(NoiseFilterPaths, MatchDirectStatistics) {
    for (int trial = 0; trial < 150 && !HasFailure(); ++trial) {
        const Image noise = vtest::SweepImage(trial, {1, 3, 4, 2}, trial % 4 == 3 ? 150 : 24, 20);
        const Image src = trial % 11 == 6 ? vtest::Flat(noise, 140) : noise;
        const int r = RandomInt(0, trial % 5 == 0 ? 30 : 4), leeNoise = trial % 3 == 0 ? 0 : trial % 9 == 4 ? 1 << 30 : RandomInt(1, 3000);
        EXPECT_TRUE(vtest::FilterMatches(src, [&](auto... a) { velomar::LeeAdditvieNoiseFilter(a..., r, leeNoise); },
                                         [&](auto d) { return DirectLee(src, d, r, leeNoise); }))
            << "Lee r " << r << " noise " << leeNoise;
        const int edge = trial % 5 == 0 ? 0 : trial % 2 + 1, radius = RandomInt(0, trial % 6 == 0 ? 30 : 4);
        const int wienerNoise = trial % 3 == 0 ? 0 : trial % 9 == 4 ? 1 << 20 : RandomInt(-50, 3000);
        EXPECT_TRUE(vtest::FilterMatches(src, [&](auto... a) { velomar::Wiener2(a..., radius, wienerNoise, edge); },
                                         [&](auto d) { return DirectWiener(src, d, radius, wienerNoise, edge); }))
            << "Wiener r " << radius << " noise " << wienerNoise << " edge " << edge;
        const int rank = RandomInt(0, trial % 6 == 0 ? 30 : 8);
        const int amount = trial == 1 ? 0 : trial % 7 == 0 ? RandomInt(-100000000, 100000000) : RandomInt(-300, 300);
        EXPECT_TRUE(vtest::FilterMatches(src, [&](auto... a) { velomar::ReduceNoise(a..., rank, amount); },
                                         [&](auto d) { return DirectReduce(src, d, rank, amount); }))
            << "rank reduction r " << rank << " amount " << amount;
    }
    // The statistics engine declines radii past 32767; Lee once went on with
    // its unfilled variance array and wrote bytes that changed from call to
    // call. A negative radius, a null or empty image are rejected as well (Lee's
    // two-byte rows come up in the sweep); rank reduction takes radii 0 to 127.
    const Image src = vtest::RandomImage(76, 15, 1, 1);
    const uint8_t* s = src.data();
    EXPECT_TRUE(vtest::WritesNothing(Image(76, 15, 1, 1, 9), {
        [&](uint8_t* d) { velomar::LeeAdditvieNoiseFilter(s, d, 76, 15, 77, 32768, 0); },
        [&](uint8_t* d) { velomar::LeeAdditvieNoiseFilter(s, d, 76, 15, 77, -1, 10); },
        [&](uint8_t* d) { velomar::LeeAdditvieNoiseFilter(nullptr, d, 76, 15, 77, 1, 10); },
        [&](uint8_t* d) { ::LeeAdditvieNoiseFilter(s, d, 0, 15, 77, 1, 10), velomar::Wiener2(s, d, 76, 15, 77, -1, 0, 0); },
        [&](uint8_t* d) { velomar::ReduceNoise(s, d, 76, 15, 77, -1, 50), velomar::ReduceNoise(s, d, 76, 15, 77, 128, 50); },
    }));
    // The largest radius, N = 65025, fills the 16-bit counters almost to the
    // top; a flat image has rank N everywhere, e = 255 - v:
    // 100 + 155 * (1 - 0.75 * 100 / 255) * -0.2 = 78.12...
    Image flat(40, 3, 1, 0, 100), out(40, 3, 1);
    ::ReduceNoise(flat.data(), out.data(), 40, 3, 40, 127, 100);
    EXPECT_TRUE(vtest::BytesEqual(Image(40, 3, 1, 0, 78).bytes, out.bytes));
}

VELOMAR_INSTANTIATE_EVERY_ISA(Isa, NoiseFilterPaths);

}  // namespace
