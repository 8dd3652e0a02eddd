// Edge padding: index tables under both border rules and GetPadImage against
// a direct per-pixel construction.
#include <tuple>

#include "common/reference.h"
#include "core/core.h"

namespace {

using vtest::MapEdge;

std::vector<int> Columns(int left, int width, int right, int mode) {
    std::vector<int> cols(left + width + right), rows(1);
    EXPECT_EQ(velomar::BuildPadIndexTable(left, width, 1, right, 0, 0, mode, cols.data(), rows.data()), STATUS_OK);
    return cols;
}

TEST(PadIndexTable, WorkedExamples) {
    EXPECT_EQ(Columns(5, 3, 5, EDGE_REFLECT), (std::vector<int>{2, 1, 0, 2, 1, 0, 1, 2, 1, 0, 2, 1, 0}));
    EXPECT_EQ(Columns(5, 3, 5, EDGE_REPLICATE), (std::vector<int>{0, 0, 0, 0, 0, 0, 1, 2, 2, 2, 2, 2, 2}));
    EXPECT_EQ(Columns(4, 1, 4, 7), std::vector<int>(9, 0));  // any non-zero mode reflects
    int cols[4], rows[4];
    EXPECT_EQ(velomar::BuildPadIndexTable(0, 2, 2, 0, 0, -1, 1, cols, rows), STATUS_INVALID_PARAMETER);
}

Matrix* MakeRandom(int w, int h, int c) {
    Matrix* m = nullptr;
    EXPECT_EQ(VL_CreateMatrix(w, h, DEPTH_8U, c, &m), STATUS_OK);
    for (int i = 0; i < m->WidthStep * h; ++i) m->Data[i] = uint8_t(vtest::RandomInt(0, 255));
    return m;
}

TEST(GetPadImage, MatchesDirectConstruction) {
    for (int trial = 0; trial < 60; ++trial) {
        // The first case pads nothing: a copy of the image.
        const int w = vtest::RandomInt(1, 9), h = vtest::RandomInt(1, 9), c = vtest::RandomInt(1, 4), mode = trial % 2;
        auto pad = [&] { return trial ? vtest::RandomInt(0, 12) : 0; };
        const int l = pad(), r = pad(), t = pad(), b = pad();
        Matrix *src = MakeRandom(w, h, c), *out = nullptr;
        const std::vector<uint8_t> before(src->Data, src->Data + src->WidthStep * h);
        ASSERT_EQ(GetPadImage(src, &out, l, r, t, b, mode), STATUS_OK);
        ASSERT_EQ(std::make_tuple(out->Width, out->Height, out->Channel, out->WidthStep),
                  std::make_tuple(l + w + r, t + h + b, c, ((l + w + r) * c + 3) / 4 * 4));
        for (int y = 0; y < out->Height; ++y)
            for (int x = 0; x < out->Width; ++x)
                for (int k = 0; k < c; ++k)
                    ASSERT_EQ(out->Data[y * out->WidthStep + x * c + k],
                              src->Data[MapEdge(y - t, h, mode) * src->WidthStep + MapEdge(x - l, w, mode) * c + k])
                        << "at " << x << "," << y << " of " << w << "x" << h << "x" << c;
        EXPECT_TRUE(std::equal(before.begin(), before.end(), src->Data));
        VL_FreeMatrix(&out);
        VL_FreeMatrix(&src);
    }
}

TEST(GetPadImage, RejectsBadArguments) {
    Matrix *src = MakeRandom(4, 4, 1), *out = nullptr;
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
    // Records that cannot describe their pixels once divided by zero, read before
    // Data or over-read a short row; they are rejected before anything is made.
    uint8_t pixels[64] = {};
    struct Shape { int w, h, step, channel; };
    for (Shape bad : {Shape{0, 4, 4, 1}, {4, 0, 4, 1}, {-3, 2, 4, 1}, {5, 4, 5, 3}, {4, 4, 4, 5}, {2, 2, -4, 1}})
        for (int edge : {0, 1}) {
            const Matrix src{bad.w, bad.h, bad.step, bad.channel, DEPTH_8U, pixels, 0};
            Matrix* out = nullptr;
            EXPECT_EQ(GetPadImage(&src, &out, 5, 1, 2, 1, edge), STATUS_INVALID_PARAMETER)
                << bad.w << "x" << bad.h << " step " << bad.step;
            EXPECT_EQ(out, nullptr);
        }
}

}  // namespace
