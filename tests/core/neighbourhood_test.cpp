// Sliding-histogram counters: adds and subtracts wrap modulo 65536.
#include "common/reference.h"
#include "core/neighbourhood.h"

namespace {

using vtest::RandomInt;

TEST(SlidingHistogram, AddAndSubtractWrapModulo65536) {
    velomar::Buffer<uint16_t> acc(256), hist(256);
    // Mostly small counts, with values near both ends to force wrapping.
    auto count = [] { return uint16_t(RandomInt(0, 3) == 0 ? RandomInt(65000, 65535) : RandomInt(0, 300)); };
    for (int trial = 0; trial < 20; ++trial) {
        std::vector<uint16_t> start(256);
        for (int i = 0; i < 256; ++i) start[i] = acc[i] = count(), hist[i] = count();
        velomar::HistogramAdd(acc.data(), hist.data());
        for (int i = 0; i < 256; ++i) ASSERT_EQ(acc[i], uint16_t((start[i] + hist[i]) % 65536)) << "bin " << i;
        for (int i = 0; i < 256; ++i) acc[i] = start[i];
        velomar::HistogramSub(acc.data(), hist.data());
        for (int i = 0; i < 256; ++i) ASSERT_EQ(acc[i], uint16_t((start[i] - hist[i] + 65536) % 65536)) << "bin " << i;
    }
}

}  // namespace
