// Helpers of the frequency-domain tests: a generator seeded from the running
// test's name, random float sequences, and owned Matrix records.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "common/reference.h"
#include "common/test_util.h"
#include "frequency/frequency.h"

namespace ftest {

// Seeded from "Suite.Test" (FNV-1a), so a failure reproduces on its own.
inline std::mt19937 NamedRng() {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    const std::string name = std::string(info->test_suite_name()) + "." + info->name();
    uint32_t h = 2166136261u;
    for (char c : name) h = (h ^ uint8_t(c)) * 16777619u;
    return std::mt19937(h);
}

inline int Uniform(std::mt19937& rng, int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); }

inline std::vector<float> RandomFloats(std::mt19937& rng, size_t n, float lo, float hi) {
    std::uniform_real_distribution<float> d(lo, hi);
    std::vector<float> v(n);
    for (float& f : v) f = d(rng);
    return v;
}

inline vtest::Image RandomImage(std::mt19937& rng, int w, int h, int c, int padding, uint8_t marker = 0xA5) {
    vtest::Image img(w, h, c, padding, marker);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w * c; ++x) img.bytes[size_t(y) * img.stride + x] = uint8_t(Uniform(rng, 0, 255));
    return img;
}

// A record made by VL_CreateMatrix, released at the end of the scope.
struct Record {
    Matrix* m = nullptr;
    Record(int w, int h, int depth, int channels) { EXPECT_EQ(VL_CreateMatrix(w, h, depth, channels, &m), STATUS_OK); }
    ~Record() { VL_FreeMatrix(&m); }
    Record(const Record&) = delete;
    std::vector<uint8_t> Bytes() const { return {m->Data, m->Data + size_t(m->WidthStep) * m->Height}; }
    // Random pixels; row padding gets a marker common to every record.
    void Fill(std::mt19937& rng) {
        const int row = m->Width * m->Channel * velomar::DepthElementSize(m->Depth);
        for (int i = 0; i < m->WidthStep * m->Height; ++i)
            m->Data[i] = i % m->WidthStep < row ? uint8_t(Uniform(rng, 0, 255)) : 0xA5;
    }
};

// A float kernel record over `values` (KW x KH, row after row).
inline Matrix KernelRecord(std::vector<float>& values, int kw, int kh) {
    return Matrix{kw, kh, kw * 4, 1, DEPTH_32F, reinterpret_cast<unsigned char*>(values.data()), 0};
}

}  // namespace ftest
