// Haze removal: the resampler against its position formulas, the sky mask on
// pictures whose answer is known, the exports against their building blocks.
#include <cmath>

#include "adjust/adjust.h"
#include "blur/blur.h"
#include "common/reference.h"
#include "enhance/enhance.h"
#include "smooth/smooth.h"
#include "statistics/statistics.h"

namespace {

using vtest::Image;
using vtest::RandomInt;

TEST(Haze, ResizeNearestAndBilinear) {
    for (int trial = 0; trial < 16; ++trial) {
        const int c = trial % 2 ? 3 : 1;
        const Image src = vtest::RandomImage(RandomInt(1, 30), RandomInt(1, 30), c, RandomInt(0, 1) ? 0 : 1);
        const int sw = src.width, sh = src.height, dw = RandomInt(1, 50), dh = RandomInt(1, 50);
        const int64_t stepX = (int64_t(sw) << 16) / dw + 1, stepY = (int64_t(sh) << 16) / dh + 1;
        auto at = [&](int64_t x, int64_t y, int k) { return int(src.at(vtest::MapEdge(x, sw, 0), vtest::MapEdge(y, sh, 0), k)); };
        for (int mode : {0, 1}) {
            Image out(dw, dh, c, 2, 0x5A), expected = out;  // padding compared too
            velomar::Resize(mode, src.data(), sw, sh, src.stride, out.data(), dw, dh, out.stride);
            vtest::EachSample(out, c, [&](int x, int y, int k, size_t i) {
                const int64_t px = (stepX >> 1) - 32768 + x * stepX, py = (stepY >> 1) - 32768 + y * stepY;
                const int fx = (px >> 8) & 255, fy = (py >> 8) & 255;
                const int64_t ix = px >> 16, iy = py >> 16;
                expected.bytes[i] = uint8_t(
                    mode == 0 ? (c == 3 ? at((x * stepX) >> 16, (y * stepY) >> 16, k) : at(x * sw / dw, y * sh / dh, k))
                              : ((at(ix + 1, iy + 1, k) * fx + at(ix, iy + 1, k) * (256 - fx)) * fy +
                                 (at(ix + 1, iy, k) * fx + at(ix, iy, k) * (256 - fx)) * (256 - fy)) >> 16);
            });
            EXPECT_TRUE(vtest::BytesEqual(expected.bytes, out.bytes)) << src << " -> " << dw << "x" << dh << " mode " << mode;
        }
    }
}

// A bright, bluish, flat sky over ground striped in pairs of columns: sky
// coloured, then dark noise (a Sobel gradient sees no period-2 pattern). The
// two columns at either side are sky coloured, so whatever the edge
// replication leaves flat has the sky's colour.
Image SkyOverGround(int w, int h) {
    Image img(w, h, 3);
    const uint8_t sky[3] = {230, 200, 190};
    vtest::EachSample(img, 3, [&](int x, int y, int k, size_t i) {
        const bool dark = y >= h / 2 && (x / 2) % 2 == 1 && (x | 1) < w - 2;  // whole pairs only
        img.bytes[i] = dark ? uint8_t(RandomInt(0, 60)) : sky[k];
    });
    return img;
}

TEST(Haze, SegmentationAndSkyMask) {
    // Four equal bands of grey columns 20 and 21, 90 and 91, 160 and 161, 230
    // and 231: the map takes each band's rounded mean, 21, 91, 161 and 231.
    Image bands(16, 8, 3);
    for (size_t i = 0; i < bands.bytes.size(); ++i) bands.bytes[i] = uint8_t(20 + 70 * (i / 3 % 16 / 4) + i / 3 % 2);
    std::vector<uint8_t> map(16 * 8);
    velomar::SegmentBrightRegions(bands.data(), map.data(), 16, 8, 48);
    for (int i = 0; i < 128; ++i) ASSERT_EQ(21 + 70 * (i % 16 / 4), map[i]) << i;
    // A flat image is sky except where green dominates and in the last bytes
    // beyond whole 32-bit words, which keep their (white) edge value.
    for (uint8_t green : {100, 250}) {
        const int w = 7, h = 5;  // 35 pixels: 3 beyond the words
        Image flat(w, h, 3, 0, 120);
        for (int i = 0; i < w * h; ++i) flat.bytes[3 * i + 1] = green;
        std::vector<uint8_t> mask(w * h, 7);
        velomar::DetectSkyMask(flat.data(), mask.data(), w, h, 3 * w);
        for (int i = 0; i < w * h; ++i) ASSERT_EQ(green == 100 && i < 32 ? 255 : 0, mask[i]) << i;
    }
}

// The transmission composed from the dark channel, its minimum filter, the sky
// mask and the guided filter; the light from the sky or the brightest dark 1 %.
std::vector<uint8_t> DirectTransmission(const Image& src, int r, int gr, int A[3]) {
    const int w = src.width, h = src.height, n = w * h;
    auto at = [&](int i, int k) { return src.at(i % w, i / w, k); };
    std::vector<uint8_t> dark(n), mask(n), t(n);
    for (int i = 0; i < n; ++i) dark[i] = std::min({at(i, 0), at(i, 1), at(i, 2)});
    velomar::MinValue(dark.data(), dark.data(), w, h, w, r);
    velomar::DetectSkyMask(src.data(), mask.data(), w, h, src.stride);
    const int64_t sky = std::count_if(mask.begin(), mask.end(), [](uint8_t m) { return m > 196; });
    std::vector<int> sorted(dark.begin(), dark.end());
    std::sort(sorted.rbegin(), sorted.rend());
    const int D = sorted[size_t(std::floor(0.01 * n))];  // the bin where the count passes 1 %
    int64_t sum[3] = {}, count = 0;
    for (int i = 0; i < n; ++i)
        if (sky >= 0.2 * n && sky <= 0.8 * n ? mask[i] > 196 : dark[i] >= D) {
            for (int k = 0; k < 3; ++k) sum[k] += at(i, k);
            ++count;
        }
    for (int k = 0; k < 3; ++k) A[k] = int(std::min<int64_t>(sum[k] / count, 255));
    const double K = double(0.95f) * 255 / ((A[0] + 2 * A[1] + A[2]) / 4);
    std::vector<double> p(n), guide(n);
    for (int i = 0; i < n; ++i) {
        const int d = ((255 - mask[i]) * dark[i] + 96 * mask[i]) / 255;
        p[i] = vtest::TruncClamp(255 - d * K) * double(1.0f / 255);
        guide[i] = (at(i, 0) + at(i, 1) + at(i, 2)) * double(1.0f / 1020);
    }
    velomar::GuidedFilterCore(p.data(), guide.data(), p.data(), w, h, gr, double(0.01f));
    for (int i = 0; i < n; ++i) t[i] = vtest::TruncClamp(p[i] * 255.0);
    return t;
}

// clamp((v - A) 255 / max(t, 25) + A) per channel, then the 0.9 gamma.
std::vector<uint8_t> Recovered(const Image& src, const std::vector<uint8_t>& t, const int A[3], std::vector<uint8_t> out) {
    vtest::EachSample(src, 3, [&](int x, int y, int k, size_t i) {
        const int tt = std::max<int>(t[size_t(y) * src.width + x], 25);
        out[i] = uint8_t(std::clamp((src.bytes[i] - A[k]) * 255 / tt + A[k], 0, 255));
    });
    velomar::GammaCorrection(out.data(), out.data(), src.width, src.height, src.stride, double(0.9f));
    return out;
}

// The dark-channel prior (at full and half size) and the box-blurred veil on
// the same pictures.
TEST(Haze, DarkChannelPriorAndBoxBlurVeilMatchTheirCompositions) {
    for (int trial = 0; trial < 8; ++trial) {
        // Sky over ground, random pictures, and bright grey pairs of columns:
        // edges everywhere, so no sky, and a transmission below its floor of 25.
        Image src = trial % 3 == 1 ? SkyOverGround(RandomInt(20, 60), RandomInt(20, 60))
                  : trial % 3 == 2 ? vtest::RandomImage(RandomInt(40, 60), RandomInt(20, 50), 3, 2)
                                   : vtest::SweepImage(trial + 4, {3}, 60, 50, 2);
        if (trial % 3 == 2)
            vtest::EachSample(src, 3, [&](int x, int, int, size_t i) { src.bytes[i] = (x + 1) / 2 % 2 ? 255 : 240; });
        const int w = src.width, h = src.height, n = w * h, r = RandomInt(0, 6);
        int A[3];
        std::vector<uint8_t> t = DirectTransmission(src, 5, 30, A);
        EXPECT_TRUE(trial % 3 != 1 || (A[0] == 230 && A[1] == 200 && A[2] == 190));  // the sky's colour
        for (double scale : {1.0, 0.5}) {
            if (scale == 0.5) {  // half-size estimate with half the radii, enlarged bilinearly
                const int sw = int(w * 0.5), sh = int(0.5 * h);
                Image small(sw, sh, 3);
                velomar::Resize(0, src.data(), w, h, src.stride, small.data(), sw, sh, 3 * sw);
                const std::vector<uint8_t> st = DirectTransmission(small, 2, 15, A);
                velomar::Resize(1, st.data(), sw, sh, sw, t.data(), w, h, w);
            }
            auto filter = [&](auto... a) { velomar::HazeRemovalBasedOnDarkChannelPrior(a..., scale); };
            EXPECT_TRUE(vtest::FilterMatches(src, filter, [&](auto d) { return Recovered(src, t, A, d); })) << " scale " << scale;
        }
        const double strength = trial == 0 ? 0 : RandomInt(0, 300) / 100.0;
        std::vector<uint8_t> dark(n), mean(n);
        double sum = 0;
        int top = 0;
        vtest::EachSample(src, 1, [&](int x, int y, int, size_t) {
            const int b = src.at(x, y, 0), g = src.at(x, y, 1), red = src.at(x, y, 2);
            sum += dark[size_t(y) * w + x] = uint8_t(std::min({b, g, red}));
            top = std::max({top, b, g, red});
        });
        velomar::BoxBlur(dark.data(), mean.data(), w, h, w, r, 1);
        const double delta = sum / (n * 255.0) * strength;
        const double invA = 1 / ((top + *std::max_element(mean.begin(), mean.end())) * 0.5);
        const int K = delta > 0.9 ? 3686 : int(delta * 4096);
        // Strength 0 (the first trial) leaves no veil: the image comes back.
        auto veiled = [&](auto... a) { velomar::HazeRemovalBasedOnBoxBlur(a..., r, strength); };
        EXPECT_TRUE(vtest::FilterMatches(src, veiled, [&](std::vector<uint8_t> out) {
            vtest::EachSample(src, 3, [&](int x, int y, int, size_t i) {
                const int veil = std::min<int>(dark[size_t(y) * w + x], (mean[size_t(y) * w + x] * K) >> 12);
                out[i] = vtest::TruncClamp((src.bytes[i] - veil) / (1 - veil * invA));
            });
            return out;
        }));
    }
}

TEST(Haze, ContrastDrivenDehazingRestoresContrastDeterministically) {
    // Synthetic haze over a smooth scene: I = J t + A (1 - t), t = 0.5.
    const int w = 64, h = 48;
    Image scene = vtest::RandomSmoothImage(w, h, 3), hazy = scene;
    for (size_t i = 0; i < hazy.bytes.size(); ++i) hazy.bytes[i] = uint8_t((scene.bytes[i] + 220) / 2);
    auto deviation = [&](const Image& img) {
        double s = 0, q = 0;
        for (uint8_t v : img.bytes) s += v, q += double(v) * v;
        return std::sqrt(q / img.bytes.size() - (s / img.bytes.size()) * (s / img.bytes.size()));
    };
    Image out(w, h, 3), again = hazy;
    velomar::HazeRemovalBasedonContrastEnhancement(hazy.data(), out.data(), w, h, 3 * w, 16, 5.0, 8);
    velomar::HazeRemovalBasedonContrastEnhancement(again.data(), again.data(), w, h, 3 * w, 16, 5.0, 8);
    EXPECT_EQ(out.bytes, again.bytes);
    EXPECT_GT(deviation(out), 1.5 * deviation(hazy));
    // The clipping penalty trades contrast for values kept inside 0..255.
    auto clipped = [&](double weight) {
        velomar::HazeRemovalBasedonContrastEnhancement(hazy.data(), out.data(), w, h, 3 * w, 16, weight, 8);
        return std::count_if(out.bytes.begin(), out.bytes.end(), [](uint8_t v) { return v == 0 || v == 255; });
    };
    EXPECT_LT(clipped(1e12), clipped(0) / 2);
}

}  // namespace
