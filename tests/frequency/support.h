// Helpers of the frequency-domain tests: random float sequences and kernel
// records.
#pragma once

#include "common/reference.h"
#include "common/test_util.h"
#include "frequency/frequency.h"

namespace ftest {

inline std::vector<float> RandomFloats(size_t n, float lo, float hi) {
    std::uniform_real_distribution<float> d(lo, hi);
    std::vector<float> v(n);
    for (float& f : v) f = d(vtest::Rng());
    return v;
}

// A float kernel record over `values` (KW x KH, row after row).
inline Matrix KernelRecord(std::vector<float>& values, int kw, int kh) {
    return Matrix{kw, kh, kw * 4, 1, DEPTH_32F, reinterpret_cast<unsigned char*>(values.data()), 0};
}

}  // namespace ftest
