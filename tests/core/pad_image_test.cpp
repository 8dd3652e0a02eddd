// Edge padding: index tables under both border rules and GetPadImage against
// a direct per-pixel construction.
#include <gtest/gtest.h>

#include <vector>

#include "common/test_util.h"
#include "core/core.h"

namespace {

// The border rule written out literally: mirror, then fold by whole sizes.
int Reference(int p, int n, int mode) {
    if (p >= 0 && p < n) return p;
    if (mode == 0) return p < 0 ? 0 : n - 1;
    if (p < 0) {
        int r = -p;
        while (r >= n) r -= n;
        return r;
    }
    int r = 2 * n - p - 2;
    while (r < 0) r += n;
    return r;
}

std::vector<int> Columns(int left, int width, int right, int mode) {
    std::vector<int> cols(left + width + right), rows(1);
    EXPECT_EQ(velomar::BuildPadIndexTable(left, width, 1, right, 0, 0, mode, cols.data(), rows.data()),
              STATUS_OK);
    return cols;
}

TEST(PadIndexTable, WorkedExamples) {
    EXPECT_EQ(Columns(5, 3, 5, EDGE_REFLECT),
              (std::vector<int>{2, 1, 0, 2, 1, 0, 1, 2, 1, 0, 2, 1, 0}));
    EXPECT_EQ(Columns(5, 3, 5, EDGE_REPLICATE),
              (std::vector<int>{0, 0, 0, 0, 0, 0, 1, 2, 2, 2, 2, 2, 2}));
    EXPECT_EQ(Columns(4, 1, 4, 7), std::vector<int>(9, 0));  // any non-zero mode reflects
    int cols[4], rows[4];
    EXPECT_EQ(velomar::BuildPadIndexTable(0, 2, 2, 0, 0, -1, 1, cols, rows), STATUS_INVALID_PARAMETER);
}

TEST(PadIndexTable, MatchesTheLiteralRuleForWidePads) {
    for (int n = 1; n <= 7; ++n)
        for (int mode : {0, 1})
            for (int p = -40; p < n + 40; ++p)
                ASSERT_EQ(velomar::MapEdgeIndex(p, n, mode), Reference(p, n, mode))
                    << "p=" << p << " n=" << n << " mode=" << mode;
}

Matrix* MakeRandom(int w, int h, int c) {
    Matrix* m = nullptr;
    EXPECT_EQ(VL_CreateMatrix(w, h, DEPTH_8U, c, &m), STATUS_OK);
    for (int i = 0; i < m->WidthStep * h; ++i) m->Data[i] = uint8_t(vtest::RandomInt(0, 255));
    return m;
}

TEST(GetPadImage, MatchesDirectConstruction) {
    for (int trial = 0; trial < 60; ++trial) {
        int w = vtest::RandomInt(1, 9), h = vtest::RandomInt(1, 9), c = vtest::RandomInt(1, 4);
        int l = vtest::RandomInt(0, 12), r = vtest::RandomInt(0, 12);
        int t = vtest::RandomInt(0, 12), b = vtest::RandomInt(0, 12), mode = trial % 2;
        Matrix* src = MakeRandom(w, h, c);
        std::vector<uint8_t> before(src->Data, src->Data + src->WidthStep * h);
        Matrix* out = nullptr;
        ASSERT_EQ(GetPadImage(src, &out, l, r, t, b, mode), STATUS_OK);
        ASSERT_EQ(out->Width, l + w + r);
        ASSERT_EQ(out->Height, t + h + b);
        ASSERT_EQ(out->Channel, c);
        for (int y = 0; y < out->Height; ++y)
            for (int x = 0; x < out->Width; ++x)
                for (int k = 0; k < c; ++k) {
                    int sy = Reference(y - t, h, mode), sx = Reference(x - l, w, mode);
                    ASSERT_EQ(out->Data[y * out->WidthStep + x * c + k],
                              src->Data[sy * src->WidthStep + sx * c + k])
                        << "at " << x << "," << y << " of " << w << "x" << h << "x" << c;
                }
        EXPECT_TRUE(std::equal(before.begin(), before.end(), src->Data));
        VL_FreeMatrix(&out);
        VL_FreeMatrix(&src);
    }
}

TEST(GetPadImage, ZeroPadsCopyTheImage) {
    Matrix* src = MakeRandom(5, 3, 3);
    Matrix* out = nullptr;
    ASSERT_EQ(GetPadImage(src, &out, 0, 0, 0, 0, EDGE_REFLECT), STATUS_OK);
    EXPECT_EQ(out->WidthStep, src->WidthStep);
    for (int y = 0; y < 3; ++y)
        EXPECT_EQ(0, std::memcmp(out->Data + y * out->WidthStep, src->Data + y * src->WidthStep, 15));
    VL_FreeMatrix(&out);
    VL_FreeMatrix(&src);
}

TEST(GetPadImage, RejectsBadArguments) {
    Matrix* src = MakeRandom(4, 4, 1);
    Matrix* out = nullptr;
    EXPECT_EQ(GetPadImage(nullptr, &out, 1, 1, 1, 1, 0), STATUS_NULL_REFERENCE);
    EXPECT_EQ(GetPadImage(src, &out, 1, 1, 1, -1, 0), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(out, nullptr);  // nothing created
    src->Depth = DEPTH_32F;   // a wrong depth is a parameter error here
    EXPECT_EQ(GetPadImage(src, &out, 1, 1, 1, 1, 0), STATUS_INVALID_PARAMETER);
    src->Depth = DEPTH_8U;
    uint8_t* data = src->Data;
    src->Data = nullptr;
    EXPECT_EQ(GetPadImage(src, &out, 1, 1, 1, 1, 0), STATUS_NULL_REFERENCE);
    src->Data = data;
    EXPECT_EQ(GetPadImage(src, &out, INT32_MAX, 1, 0, 0, 0), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(out, nullptr);
    VL_FreeMatrix(&src);
}

}  // namespace
