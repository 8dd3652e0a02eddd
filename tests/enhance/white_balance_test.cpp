// White balance against direct models: block statistics taken pixel by pixel
// instead of from histograms, reference whites and gains computed plainly.
#include <cmath>

#include "adjust/colour_space.h"
#include "common/reference.h"

namespace {

using vtest::Image;
using vtest::RandomInt;

// Gains applied to every pixel from the reference white's mean (scale / mean,
// a zero mean counting as the scale), or the image unchanged without one.
std::vector<uint8_t> Balance(const Image& src, std::vector<uint8_t> d, long scale, long count, const long sum[3]) {
    vtest::EachSample(src, 3, [&](int, int, int c, size_t i) {
        const long avg = count ? sum[c] / count : 0, v = src.bytes[i];
        d[i] = uint8_t(count ? std::clamp(v * scale / (avg ? avg : scale), 0L, 255L) : v);
    });
    return d;
}

// Balance against the pixels whose key (one a pixel, rows Width apart) lies
// above the level where the count of keys from the top down first passes
// `limit`.
std::vector<uint8_t> BalanceAbove(const Image& src, std::vector<uint8_t> d, const std::vector<int>& key, long limit,
                                  long scale) {
    std::vector<long> hist(768);
    for (int k : key) ++hist[k];
    int t = 0;
    for (long i = 767, acc = 0; i >= 0; --i)
        if ((acc += hist[i]) > limit) { t = int(i); break; }
    long sum[3] = {}, count = 0;
    vtest::EachSample(src, 3, [&](int x, int y, int c, size_t i) {
        if (key[size_t(y) * src.width + x] > t) sum[c] += src.bytes[i], count += c == 0;
    });
    return Balance(src, d, scale, count, sum);
}

std::vector<uint8_t> DynamicModel(const Image& src, std::vector<uint8_t> d, int bs, int global, int squared) {
    const int w = src.width, h = src.height;
    Image ycc = src;
    for (int y = 0; y < h; ++y) velomar::ConvertRowToYCbCr(w, &ycc.at(0, y), &src.bytes[size_t(y) * src.stride]);
    const std::vector<uint8_t> Y = vtest::PlaneOf(ycc, 3, 0).bytes, Cb = vtest::PlaneOf(ycc, 3, 1).bytes;
    const std::vector<uint8_t> Cr = vtest::PlaneOf(ycc, 3, 2).bytes;
    std::vector<int> mask(w * h, 0);
    auto near = [&](int i, long mb, long mr, long db, long dr) {
        return 2 * Cb[i] - 2 * mb * (db + 1) < 3 * db && 2 * (Cr[i] - mr * (dr + 1)) < 3 * dr;
    };
    long nearWhite = 0, sums[4] = {}, blocks = 0;
    for (int y0 = 0; y0 < h; y0 += bs)
        for (int x0 = 0; x0 < w; x0 += bs) {
            std::vector<int> px;
            for (int y = y0; y < std::min(y0 + bs, h); ++y)
                for (int x = x0; x < std::min(x0 + bs, w); ++x) px.push_back(y * w + x);
            const long n = long(px.size());
            long mb = 0, mr = 0, db = 0, dr = 0;
            for (int i : px) mb += Cb[i], mr += Cr[i];
            mb /= n, mr /= n;
            for (int i : px)
                db += squared == 1 ? (Cb[i] - mb) * (Cb[i] - mb) : std::abs(Cb[i] - mb),
                dr += squared == 1 ? (Cr[i] - mr) * (Cr[i] - mr) : std::abs(Cr[i] - mr);
            db /= n, dr /= n;
            if (global) {
                sums[0] += db, sums[1] += dr, sums[2] += mb, sums[3] += mr, ++blocks;
                continue;
            }
            for (int i : px) mask[i] = near(i, mb, mr, db, dr) ? Y[i] : 0, nearWhite += near(i, mb, mr, db, dr);
        }
    if (global == 1) {
        long v[4];
        for (int k = 0; k < 4; ++k) v[k] = long(std::floor(double(sums[k]) / blocks + 0.5));
        for (int i = 0; i < w * h; ++i) mask[i] = near(i, v[2], v[3], v[0], v[1]) ? Y[i] : 0, nearWhite += near(i, v[2], v[3], v[0], v[1]);
    }
    const int yMax = *std::max_element(mask.begin(), mask.end());
    return yMax ? BalanceAbove(src, d, mask, nearWhite / 10, yMax) : d;
}

TEST(ConvertRowToYCbCr, FullRangeLumaChromaWithWrappingStorage) {
    Image row = vtest::RandomImage(200, 1, 3);
    row.at(0, 0, 0) = 255, row.at(0, 0, 1) = row.at(0, 0, 2) = 0;  // pure blue: Cb of +128 wraps to 0
    std::vector<uint8_t> out(600);
    velomar::ConvertRowToYCbCr(200, out.data(), row.data());
    EXPECT_EQ(out[1], 0);
    for (int x = 1; x < 200; ++x) {
        const double b = row.at(x, 0, 0), g = row.at(x, 0, 1), r = row.at(x, 0, 2);
        EXPECT_NEAR(out[3 * x], 0.299 * r + 0.587 * g + 0.114 * b, 0.51) << x;
        EXPECT_NEAR(out[3 * x + 1], std::fmod(-0.168736 * r - 0.331264 * g + 0.5 * b + 128 + 256, 256), 0.51) << x;
        EXPECT_NEAR(out[3 * x + 2], std::fmod(0.5 * r - 0.418688 * g - 0.081312 * b + 128 + 256, 256), 0.51) << x;
    }
}

// A neutral first column (every eighth picture) keeps the grey world picture
// as it is.
TEST(AutoWhiteBalance, MatchDirectModels) {
    for (int trial = 0; trial < 60 && !HasFailure(); ++trial) {
        Image src = vtest::SweepImage(trial, {3}, 40, 30, 4);
        const int w = src.width, h = src.height, bs = RandomInt(1, 50), global = trial % 3, squared = trial / 3 % 2;
        const int ratio = std::array{0, 1, 5, 30, 100, 140}[trial % 6];
        for (int y = 0; trial % 8 == 3 && y < h; ++y) src.at(0, y, 0) = src.at(0, y, 1) = src.at(0, y, 2) = uint8_t(100 + y);
        auto filter = [&](auto... a) { AutoWhiteBalanceUseDynamicThreshold(a..., bs, uint8_t(global), uint8_t(squared)); };
        EXPECT_TRUE(vtest::FilterMatches(src, filter, [&](auto d) { return DynamicModel(src, d, bs, global, squared); }))
            << " block " << bs << " global " << global << " squared " << squared;
        auto reflector = [&](auto... a) { AutoWhiteBalanceUseReflectorTheory(a..., ratio); };
        EXPECT_TRUE(vtest::FilterMatches(src, reflector, [&](std::vector<uint8_t> d) {
            std::vector<int> total(size_t(w) * h);  // each pixel's three bytes summed
            vtest::EachSample(src, 3, [&](int x, int y, int, size_t i) { total[size_t(y) * w + x] += src.bytes[i]; });
            return BalanceAbove(src, d, total, long(w) * h * ratio / 100, 255);
        })) << " ratio " << ratio;
        EXPECT_TRUE(vtest::FilterMatches(src, AutoWhiteBalanceUseStandardGrayWorldModel, [&](std::vector<uint8_t> d) {
            long sum[3] = {};
            for (int y = 0; y < h; ++y)
                for (int c = 0; c < 3; ++c) sum[c] += src.at(0, y, c);  // the first column's means
            const long grey = (sum[0] / h + sum[1] / h + sum[2] / h) / 3;
            return grey ? Balance(src, d, grey, h, sum) : d;
        }));
    }
}

}  // namespace
