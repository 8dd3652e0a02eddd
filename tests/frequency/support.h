// Helpers of the frequency-domain tests: random float sequences and owned
// Matrix records.
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

// A record made by VL_CreateMatrix with random pixels, row padding marked
// alike in every record; released at the end of the scope.
struct Record {
    Matrix* m = nullptr;
    Record(int w, int h, int depth, int channels) {
        EXPECT_EQ(VL_CreateMatrix(w, h, depth, channels, &m), STATUS_OK);
        const int row = m ? m->Width * m->Channel * velomar::DepthElementSize(m->Depth) : 0;
        for (int i = 0; m && i < m->WidthStep * m->Height; ++i)
            m->Data[i] = i % m->WidthStep < row ? uint8_t(vtest::RandomInt(0, 255)) : 0xA5;
    }
    ~Record() { VL_FreeMatrix(&m); }
    Record(const Record&) = delete;
    std::vector<uint8_t> Bytes() const { return {m->Data, m->Data + size_t(m->WidthStep) * m->Height}; }
};

// A float kernel record over `values` (KW x KH, row after row).
inline Matrix KernelRecord(std::vector<float>& values, int kw, int kh) {
    return Matrix{kw, kh, kw * 4, 1, DEPTH_32F, reinterpret_cast<unsigned char*>(values.data()), 0};
}

}  // namespace ftest
