// Sliding-histogram helpers: counter adds and subtracts modulo 65536, and the
// border tables under both edge rules.
#include <vector>

#include "common/test_util.h"
#include "sharpen/sharpen.h"

namespace {

using vtest::RandomInt;

// The edge rule written as loops: reflect subtracts (or adds) whole sizes one
// at a time until the index is inside.
int Mirror(int p, int n, int edge_mode) {
    if (p >= 0 && p < n) return p;
    if (edge_mode == EDGE_REPLICATE) return p < 0 ? 0 : n - 1;
    if (p < 0) {
        int r = -p;
        while (r >= n) r -= n;
        return r;
    }
    int r = 2 * n - p - 2;
    while (r < 0) r += n;
    return r;
}

TEST(SlidingHistogram, AddAndSubtractWrapModulo65536) {
    velomar::Buffer<uint16_t> acc(256), hist(256);
    for (int trial = 0; trial < 20; ++trial) {
        std::vector<uint16_t> expect_add(256), expect_sub(256), start(256);
        for (int i = 0; i < 256; ++i) {
            // Mostly small counts, with values near both ends to force wrapping.
            start[i] = acc[i] =
                uint16_t(RandomInt(0, 3) == 0 ? RandomInt(65000, 65535) : RandomInt(0, 300));
            hist[i] = uint16_t(RandomInt(0, 3) == 0 ? RandomInt(65000, 65535) : RandomInt(0, 300));
            expect_add[i] = uint16_t((start[i] + hist[i]) % 65536);
            expect_sub[i] = uint16_t((start[i] - hist[i] + 65536) % 65536);
        }
        velomar::HistogramAdd(acc.data(), hist.data());
        for (int i = 0; i < 256; ++i) ASSERT_EQ(acc[i], expect_add[i]) << "bin " << i;
        for (int i = 0; i < 256; ++i) acc[i] = start[i];
        velomar::HistogramSub(acc.data(), hist.data());
        for (int i = 0; i < 256; ++i) ASSERT_EQ(acc[i], expect_sub[i]) << "bin " << i;
        // Subtracting what was added restores the accumulator.
        velomar::HistogramAdd(acc.data(), hist.data());
        for (int i = 0; i < 256; ++i) ASSERT_EQ(acc[i], start[i]) << "bin " << i;
    }
}

TEST(SlidingHistogram, BorderTablesFollowTheEdgeRule) {
    for (int trial = 0; trial < 300; ++trial) {
        const int width = RandomInt(1, 12), height = RandomInt(1, 12);
        const int radius = RandomInt(0, 30);  // often wider than the image
        const int stride = width * RandomInt(1, 4) + RandomInt(0, 3);
        const int edge_mode = RandomInt(0, 2);  // 2 reflects like 1
        std::vector<int32_t> columns(width + 2 * radius), rows(height + 2 * radius);
        velomar::BuildBorderTables(radius, width, height, stride, edge_mode, columns.data(),
                                   rows.data());
        for (int k = 0; k < width + 2 * radius; ++k)
            ASSERT_EQ(columns[k], Mirror(k - radius, width, edge_mode))
                << "column " << k - radius << " of " << width << ", mode " << edge_mode;
        for (int k = 0; k < height + 2 * radius; ++k)
            ASSERT_EQ(rows[k], Mirror(k - radius, height, edge_mode) * stride)
                << "row " << k - radius << " of " << height << ", mode " << edge_mode;
    }
}

TEST(SlidingHistogram, PadsWiderThanTheImageFoldDifferentlyOnEachSide) {
    std::vector<int32_t> columns(13), rows(11);
    velomar::BuildBorderTables(5, 3, 1, 10, EDGE_REFLECT, columns.data(), rows.data());
    const std::vector<int32_t> reflect = {2, 1, 0, 2, 1, 0, 1, 2, 1, 0, 2, 1, 0};
    EXPECT_EQ(columns, reflect);
    velomar::BuildBorderTables(5, 3, 1, 10, EDGE_REPLICATE, columns.data(), rows.data());
    const std::vector<int32_t> replicate = {0, 0, 0, 0, 0, 0, 1, 2, 2, 2, 2, 2, 2};
    EXPECT_EQ(columns, replicate);
}

}  // namespace
