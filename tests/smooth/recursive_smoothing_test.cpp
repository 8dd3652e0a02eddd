// The recursive edge-preserving filters against direct models: every line
// recursion written out on a 2-D grid; the homogeneous block search checked
// on hand-placed blocks.
#include <array>
#include <cmath>
#include <cstring>

#include "common/suite.h"
#include "smooth/smooth.h"

namespace {

using vtest::Image;
using vtest::RandomInt;
template <class T>
using Grid = std::vector<std::vector<T>>;  // [y][x]

// Channel c (pixels `walk` bytes apart) through f; a grid row after row; its columns as rows.
template <class T, class F = T (*)(T)>
Grid<T> GridOf(const Image& img, int walk, int c, F f = [](T v) { return v; }) {
    Grid<T> g(img.height, std::vector<T>(img.width));
    for (int y = 0; y < img.height; ++y)
        for (int x = 0; x < img.width; ++x) g[y][x] = f(T(img.bytes[vtest::Offset(img, x, y, walk, c)]));
    return g;
}
template <class T>
std::vector<T> Flattened(const Grid<T>& g) {
    std::vector<T> v;
    for (const auto& row : g) v.insert(v.end(), row.begin(), row.end());
    return v;
}
template <class T>
Grid<T> Transposed(const Grid<T>& g) {
    Grid<T> t(g[0].size(), std::vector<T>(g.size()));
    vtest::EachSample(Image(int(g[0].size()), int(g.size()), 1), 1, [&](int x, int y, auto...) { t[x][y] = g[y][x]; });
    return t;
}

// ---- bi-exponential ---------------------------------------------------------

std::vector<double> BiExpLine(const std::vector<double>& x, double rho, double sigma) {
    const size_t n = x.size();
    const double s = 1 + rho, k = (1 - rho) / (1 + rho);
    auto w = [&](double d) { return rho * std::exp(d * (-0.5 / (sigma * sigma)) * d); };
    std::vector<double> p(x), q(x), y(n);
    p[0] = x[0] / s;
    for (size_t i = 1; i < n; ++i) {
        const double r = w(x[i] - s * p[i - 1]);
        p[i] = (1 - r) * x[i] / s + r * p[i - 1];
    }
    q[n - 1] = x[n - 1] / s;
    for (size_t i = n - 1; i-- > 0;) {
        const double r = w(x[i] - s * q[i + 1]);
        q[i] = r * q[i + 1] + (1 - r) * x[i] / s;
    }
    for (size_t i = 0; i < n; ++i) y[i] = p[i] + q[i] - k * x[i];
    return y;
}

double Rho(double lambda) { return 1 - (std::sqrt(2 * lambda * lambda + 1) - 1) / (lambda * lambda); }

// Rows then columns over a, columns then rows over b.
void BiExpBothOrders(Grid<double>& a, Grid<double>& b, double lambda, double sigma) {
    auto rows = [&](Grid<double>& g) {
        for (auto& row : g) row = BiExpLine(row, Rho(lambda), sigma);
    };
    auto columns = [&](Grid<double>& g) { g = Transposed(g), rows(g), g = Transposed(g); };
    rows(a), columns(a), columns(b), rows(b);
}

// Lambda 0 passes the image through; four bytes per pixel are left alone.
std::vector<uint8_t> BiExpModel(const Image& src, std::vector<uint8_t> d, double lambda, double sigma) {
    const int c = src.stride / src.width;
    return c == 4 ? d : vtest::EachPlane(src, d, c, [&](const Image& plane, Image out, int) {
        Grid<double> a = GridOf<double>(plane, 1, 0), b = a;
        if (lambda != 0) BiExpBothOrders(a, b, lambda, sigma);
        vtest::EachSample(out, 1, [&](int x, int y, int, size_t i) {
            out.bytes[i] = vtest::TruncClamp(std::clamp((a[y][x] + b[y][x]) * 0.5, 0.0, 255.0));
        });
        return out;
    });
}

// ---- recursive domain transform ------------------------------------------

// a^d on the high word of a double, in single precision.
float FastPow(float a, float d) {
    const double ad = a;
    uint64_t bits;
    std::memcpy(&bits, &ad, 8);
    const float t = d * float(int32_t(bits >> 32) - 1072632447) + float(1072632447);
    bits = uint64_t(uint32_t(vtest::TruncI32(t))) << 32;
    double w;
    std::memcpy(&w, &bits, 8);
    return float(w);
}

std::vector<uint8_t> DomainModel(const Image& src, const Image& guide, std::vector<uint8_t> d, double ss, double sr,
                                 int iterations) {
    const int c = src.stride / src.width == 1 ? 1 : 3, w = src.width, h = src.height;
    const float r = float(ss / (sr / 255.0));
    std::vector<Grid<float>> j(c);
    auto load = [&](const Image& img) {
        for (int ch = 0; ch < c; ++ch) j[ch] = GridOf<float>(img, c, ch, [](float v) { return v * 0.003921569f; });
    };
    load(guide);
    Grid<float> dx(h, std::vector<float>(w, 0.0f)), dy = dx;
    vtest::EachSample(Image(w, h, c), c, [&](int x, int y, int ch, size_t) {
        dx[y][x] = dx[y][x] + (x ? std::fabs(j[ch][y][x] - j[ch][y][x - 1]) : 0.0f);
        dy[y][x] = dy[y][x] + (y ? std::fabs(j[ch][y][x] - j[ch][y - 1][x]) : 0.0f);
    });
    // Along every row of p forwards and backwards, weights a^(1 + r D), D the
    // guide's summed differences; columns as the rows of the transposed planes.
    auto sweep = [&](Grid<float>& p, const Grid<float>& D, float a) {
        for (size_t y = 0; y < p.size(); ++y) {
            auto& q = p[y];
            for (size_t x = 1; x < q.size(); ++x) q[x] = q[x] + FastPow(a, 1.0f + r * D[y][x]) * (q[x - 1] - q[x]);
            for (size_t x = q.size() - 1; x-- > 0;) q[x] = q[x] + FastPow(a, 1.0f + r * D[y][x + 1]) * (q[x + 1] - q[x]);
        }
    };
    load(src);
    const Grid<float> dyT = Transposed(dy);
    for (int i = 0; i < iterations; ++i) {
        const double sigma = ss * std::sqrt(3.0) * std::ldexp(1.0, iterations - i - 1) / std::sqrt(std::ldexp(1.0, 2 * iterations) - 1);
        const float a = float(std::exp(-std::sqrt(2.0) / sigma));
        for (auto& p : j) sweep(p, dx, a);
        for (auto& p : j) p = Transposed(p), sweep(p, dyT, a), p = Transposed(p);
    }
    vtest::EachSample(src, c, [&](int x, int y, int ch, size_t i) {
        d[i] = vtest::TruncClamp(double(j[ch][y][x]) * 255.0);
    });
    return d;
}

// ---- speckle-reducing diffusion -------------------------------------------

// The diffusion of j over the block at (x0, y0) of bw x bh pixels.
void Diffuse(Grid<double>& j, int x0, int y0, int bw, int bh, int iterations, double lambda) {
    const int w = int(j[0].size()), h = int(j.size());
    auto at = [&](const Grid<double>& g, int y, int x) { return g[std::clamp(y, 0, h - 1)][std::clamp(x, 0, w - 1)]; };
    for (int it = 0; it < iterations; ++it) {
        double sum = 0, sq = 0;
        for (int y = y0; y < y0 + bh; ++y)
            for (int x = x0; x < x0 + bw; ++x) sum += j[y][x], sq += j[y][x] * j[y][x];
        const double n = double(bw) * bh, m = sum / n, q0 = (sq / n - m * m) / (m * m);
        Grid<double> k = j;
        vtest::EachSample(Image(w, h, 1), 1, [&](int x, int y, int, size_t) {
            const double v = j[y][x], dn = at(j, y - 1, x) - v, ds = at(j, y + 1, x) - v;
            const double dw = at(j, y, x - 1) - v, de = at(j, y, x + 1) - v;
            const double L = (dn + ds + dw + de) / v, G = (dn * dn + ds * ds + dw * dw + de * de) / (v * v);
            const double q = (0.5 * G - 0.0625 * (L * L)) / ((1 + 0.25 * L) * (1 + 0.25 * L));
            const double kv = 1 / (1 + (q - q0) / (q0 * (1 + q0)));
            k[y][x] = std::isnan(kv) ? 0 : std::clamp(kv, 0.0, 1.0);
        });
        Grid<double> next = j;
        vtest::EachSample(Image(w, h, 1), 1, [&](int x, int y, int, size_t) {
            const double v = j[y][x];
            const double D = k[y][x] * ((at(j, y - 1, x) - v) + (at(j, y, x - 1) - v)) +
                             at(k, y + 1, x) * (at(j, y + 1, x) - v) + at(k, y, x + 1) * (at(j, y, x + 1) - v);
            next[y][x] = v + 0.25 * lambda * D;
        });
        j = next;
    }
}

// Three bytes per pixel filter each channel, other layouts the first Width
// bytes of each row. The block comes from the library's search, which the
// block test below pins with hand-placed blocks.
std::vector<uint8_t> SpeckleModel(const Image& src, std::vector<uint8_t> d, int iterations, double lambda) {
    return vtest::EachPlane(src, d, src.channels == 3 ? 3 : 1, [&](const Image& plane, Image out, int) {
        Grid<double> j = GridOf<double>(plane, 1, 0, [](double v) { return std::exp(v / 255.0); });
        const auto b = velomar::FindHomogeneousBlock(plane.data(), plane.width, plane.height, plane.stride);
        Diffuse(j, b.X0, b.Y0, b.X1 - b.X0, b.Y1 - b.Y0, iterations, lambda);
        vtest::EachSample(out, 1, [&](int x, int y, int, size_t i) {
            out.bytes[i] = vtest::TruncClamp(std::log(j[y][x]) * 255.0 + 0.5);
        });
        return out;
    });
}

// The three filters on the same pictures, over a separate Dest and in place.
// Bi-exponential: lambda 0 passes the image through; the two orders are also
// compared on doubles (the bytes hide the last bits). Domain transform: the
// source or a picture of noise as guide; no iterations is the float round trip
// alone. Every fourth picture is one or two rows high. The last two pictures
// hold whole 64 x 64 blocks (two of them side by side in the first); the last
// is uniform: its coefficients are 0 / 0.
TEST(RecursiveFilters, MatchTheirDirectModels) {
    const double lambdas[] = {50, 5, 20, 0.5, 0, 0.7}, sigmas[] = {20, 10, 1e9, 0.01, 40, 3, 1e6};
    const double spatial[] = {20, 6, 40, 3, 5}, range[] = {30, 15, 80, 1, 1e-3};
    for (int trial = 0; trial < 38 && !HasFailure(); ++trial) {
        const int big = trial - 36, h = trial % 4 == 1 ? 2 : 17;
        const Image noise = big < 0 ? vtest::SweepImage(trial, {1, 3, 4}, 30, h, 3)
                                    : vtest::RandomSmoothImage(big ? 70 : 130, big ? 66 : 70, big ? 3 : 1, big ? 0 : 3);
        const Image src = big == 1 ? vtest::Flat(noise, 120) : noise;
        const double lambda = lambdas[trial / 3 % 6], sigma = sigmas[trial % 7];
        EXPECT_TRUE(vtest::FilterMatches(src, [&](auto... a) { BiExponentialEPF(a..., lambda, sigma); },
                                         [&](auto d) { return BiExpModel(src, d, lambda, sigma); }))
            << "lambda " << lambda << " sigma " << sigma;
        if (lambda != 0) {  // the two orders on the first plane of doubles, to the bit
            Grid<double> a = GridOf<double>(src, src.channels, 0), b = a;
            std::vector<double> pa = Flattened(a), pb = pa;
            velomar::SmoothRowsThenColumns(pa.data(), src.width, src.height, Rho(lambda), sigma);
            velomar::SmoothColumnsThenRows(pb.data(), src.width, src.height, Rho(lambda), sigma);
            BiExpBothOrders(a, b, lambda, sigma);
            EXPECT_EQ(pa, Flattened(a)) << "rows first, lambda " << lambda;
            EXPECT_EQ(pb, Flattened(b)) << "columns first, lambda " << lambda;
        }
        const bool ownGuide = trial % 4 == 0;
        const Image guide = ownGuide ? src : vtest::DestFor(src, 0x5A);
        const double ss = spatial[trial / 5 % 5], sr = range[trial / 5 % 5];
        const int iterations = trial % 5;
        auto domain = [&](const uint8_t* s, auto... a) {
            RecursiveDomainTransformFilter(s, ownGuide ? s : guide.data(), a..., ss, sr, iterations);
        };
        EXPECT_TRUE(vtest::FilterMatches(src, domain,
                                         [&](auto d) { return DomainModel(src, guide, d, ss, sr, iterations); }))
            << "domain transform, iterations " << iterations;
        const int steps = big < 0 ? trial % 5 : 3 + 2 * big;
        const double speckle = std::array{0.5, 1.0, 0.25}[trial / 3 % 3];
        auto diffusion = [&](auto... a) { SpeckleReducingAnisotropicDiffusion(a..., steps, speckle); };
        EXPECT_TRUE(vtest::FilterMatches(src, diffusion, [&](auto d) { return SpeckleModel(src, d, steps, speckle); }))
            << "speckle, iterations " << steps;
    }
    const Image src = vtest::RandomImage(6, 4, 3);  // no image, no pixels, no guide; two bytes per pixel
    EXPECT_TRUE(vtest::WritesNothing(vtest::RandomImage(6, 4, 3), {[&](uint8_t* d) {
        BiExponentialEPF(nullptr, d, 6, 4, 18, 50, 20), BiExponentialEPF(src.data(), d, 0, 4, 18, 50, 20);
        RecursiveDomainTransformFilter(src.data(), nullptr, d, 6, 4, 18, 20, 30, 3);
        RecursiveDomainTransformFilter(src.data(), src.data(), d, 6, 4, 13, 20, 30, 3);
    }}));
}

// The diffusion itself on doubles, to the bit (the bytes hide the last bits),
// and the homogeneous block: of two equally flat blocks the first in row-major
// order wins; a flatter later block replaces it.
TEST(SpeckleReducingAnisotropicDiffusion, DiffusionStepsAndBlockSearch) {
    for (auto [w, h, bx, by, bw, bh] : {std::tuple{40, 30, 5, 3, 20, 10}, {1, 9, 0, 0, 1, 9}, {17, 2, 0, 0, 17, 2}}) {
        Grid<double> g = GridOf<double>(vtest::RandomImage(w, h, 1), 1, 0, [](double v) { return std::exp(v / 255.0); });
        std::vector<double> plane = Flattened(g);
        velomar::DiffuseSpeckle(plane.data(), w, h, {bx, bx + bw, by, by + bh}, 4, 0.8);
        Diffuse(g, bx, by, bw, bh, 4, 0.8);
        EXPECT_EQ(plane, Flattened(g)) << w << "x" << h;
    }
    Image img = vtest::RandomImage(192, 130, 1);
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x) img.at(64 + x, y) = 7, img.at(128 + x, 64 + y) = 7;
    auto block = [&](int w) {
        const auto b = velomar::FindHomogeneousBlock(img.data(), w, 130, 192);
        return std::vector<int>{b.X0, b.X1, b.Y0, b.Y1};
    };
    EXPECT_EQ(block(192), std::vector<int>({64, 128, 0, 64}));
    img.at(64, 0) = 8;
    EXPECT_EQ(block(192), std::vector<int>({128, 192, 64, 128}));
    EXPECT_EQ(block(63), std::vector<int>({0, 63, 0, 130}));
}

}  // namespace
