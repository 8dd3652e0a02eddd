// Sliding-histogram helpers: counter adds and subtracts modulo 65536, and the
// border tables under both edge rules.
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

TEST(SlidingHistogram, BorderTablesFollowTheEdgeRule) {
    for (int trial = 0; trial < 300; ++trial) {
        const int width = RandomInt(1, 12), height = RandomInt(1, 12);
        const int radius = RandomInt(0, 30);  // often wider than the image
        const int stride = width * RandomInt(1, 4) + RandomInt(0, 3);
        const int edge_mode = RandomInt(0, 2);  // 2 reflects like 1
        std::vector<int32_t> columns(width + 2 * radius), rows(height + 2 * radius);
        velomar::BuildBorderTables(radius, width, height, stride, edge_mode, columns.data(), rows.data());
        for (int k = 0; k < width + 2 * radius; ++k)
            ASSERT_EQ(columns[k], vtest::MapEdge(k - radius, width, edge_mode))
                << "column " << k - radius << " of " << width << ", mode " << edge_mode;
        for (int k = 0; k < height + 2 * radius; ++k)
            ASSERT_EQ(rows[k], vtest::MapEdge(k - radius, height, edge_mode) * stride)
                << "row " << k - radius << " of " << height << ", mode " << edge_mode;
    }
}

}  // namespace
