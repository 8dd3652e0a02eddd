// Test helpers: random images with marked row padding, and comparisons that
// name the first differing byte.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "core/cpu.h"

namespace vtest {

// A raw image: Height rows of Stride bytes, the bytes beyond Width * Channels
// of every row filled with a marker so tests can check they stay untouched.
struct Image {
    int width = 0, height = 0, channels = 1, stride = 0;
    std::vector<uint8_t> bytes;

    Image() = default;
    Image(int w, int h, int c, int padding = 0, uint8_t fill = 0)
        : width(w), height(h), channels(c), stride(w * c + padding), bytes(size_t(h) * size_t(stride), fill) {}

    uint8_t* data() { return bytes.data(); }
    const uint8_t* data() const { return bytes.data(); }
    uint8_t& at(int x, int y, int c = 0) { return bytes[size_t(y) * stride + size_t(x) * channels + c]; }
    uint8_t at(int x, int y, int c = 0) const { return bytes[size_t(y) * stride + size_t(x) * channels + c]; }
};

// Names a layout in failure messages: "WxHxC stride S".
inline std::ostream& operator<<(std::ostream& os, const Image& img) {
    return os << img.width << "x" << img.height << "x" << img.channels << " stride " << img.stride;
}

// The random generator, seeded from the running test's full name, so that a
// failing case reproduces alone under --gtest_filter.
inline std::mt19937& Rng() {
    static std::mt19937 rng;
    static std::string seeded_for;
    const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
    const std::string name = test ? std::string(test->test_suite_name()) + "." + test->name() : "";
    if (name != seeded_for) {
        seeded_for = name;
        rng.seed(static_cast<std::mt19937::result_type>(std::hash<std::string>{}(name)));
    }
    return rng;
}

inline int RandomInt(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(Rng()); }

// Random pixels; padding bytes get `pad_marker`.
inline Image RandomImage(int w, int h, int c, int padding = 0, uint8_t pad_marker = 0xA5) {
    Image img(w, h, c, padding, pad_marker);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w * c; ++x) img.bytes[size_t(y) * img.stride + x] = uint8_t(RandomInt(0, 255));
    return img;
}

// Random pixels with smooth structure plus noise (closer to photographs than
// white noise, so that extreme values do not dominate every neighbourhood).
inline Image RandomSmoothImage(int w, int h, int c, int padding = 0, uint8_t pad_marker = 0xA5) {
    Image img = RandomImage(w, h, c, padding, pad_marker);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int k = 0; k < c; ++k)
                img.at(x, y, k) = uint8_t(std::clamp((x * 7 + y * 3 + k * 50) % 256 + RandomInt(-20, 20), 0, 255));
    return img;
}

// The source picture of trial `trial` of a random sweep: the channel count
// taken in turn from `channels`, Widths 1 and 2 in the first trials, rows
// unpadded in half the trials and otherwise padded by less than Width (so
// Stride / Width stays the channel count) and at most `maxPad` bytes, white
// noise or smooth structure at random.
inline Image SweepImage(int trial, std::initializer_list<int> channels, int maxWidth, int maxHeight,
                        int maxPad = 5) {
    const int c = channels.begin()[size_t(trial) % channels.size()];
    const int w = trial < 2 * int(channels.size()) ? 1 + trial / int(channels.size()) : RandomInt(1, maxWidth);
    const int h = RandomInt(1, maxHeight), pad = RandomInt(0, 1) ? RandomInt(0, std::min(maxPad, w - 1)) : 0;
    return RandomInt(0, 1) ? RandomImage(w, h, c, pad) : RandomSmoothImage(w, h, c, pad);
}

// A random Dest of the same layout whose padding marker differs from the
// source's, so that bytes a filter must not write are compared too.
inline Image DestFor(const Image& src, uint8_t marker = 0x3C) {
    return RandomImage(src.width, src.height, src.channels, src.stride - src.width * src.channels, marker);
}

inline ::testing::AssertionResult BytesEqual(const std::vector<uint8_t>& expected,
                                             const std::vector<uint8_t>& actual) {
    if (expected.size() != actual.size())
        return ::testing::AssertionFailure() << "sizes differ: " << expected.size() << " vs " << actual.size();
    for (size_t i = 0; i < expected.size(); ++i)
        if (expected[i] != actual[i])
            return ::testing::AssertionFailure() << "first difference at byte " << i << ": expected "
                                                 << int(expected[i]) << ", got " << int(actual[i]);
    return ::testing::AssertionSuccess();
}

// Parameterised over every instruction set the dispatcher can use on this
// machine; each test runs with ActiveIsa() narrowed to its parameter (cases
// wider than the machine are skipped), so every wider path is compared with
// the same direct reference as the SSE2 baseline.
class EveryIsa : public ::testing::TestWithParam<velomar::Isa> {
protected:
    void SetUp() override {
        if (GetParam() > velomar::DetectedIsa())
            GTEST_SKIP() << velomar::IsaName(GetParam()) << " is not available here";
        limit_.emplace(GetParam());
    }
    void TearDown() override { limit_.reset(); }

private:
    std::optional<velomar::ScopedIsaLimit> limit_;
};

#define VELOMAR_INSTANTIATE_EVERY_ISA(prefix, fixture)                                                \
    INSTANTIATE_TEST_SUITE_P(prefix, fixture,                                                         \
                             ::testing::Values(velomar::Isa::Sse2, velomar::Isa::Avx2, velomar::Isa::Avx512), \
                             [](const auto& info) { return std::string(velomar::IsaName(info.param)); })

}  // namespace vtest
