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

TEST(GetPadImage, MatchesDirectConstruction) {
    for (int trial = 0; trial < 60; ++trial) {
        // The first case pads nothing: a copy of the image. Source rows end in 0 to 5 bytes of padding, so
        // their WidthStep need not be the padded image's rule.
        const int w = vtest::RandomInt(1, 9), h = vtest::RandomInt(1, 9), c = vtest::RandomInt(1, 4), mode = trial % 2;
        auto pad = [&] { return trial ? vtest::RandomInt(0, 12) : 0; };
        const int l = pad(), r = pad(), t = pad(), b = pad();
        const vtest::Image img = vtest::RandomImage(w, h, c, vtest::RandomInt(0, 5));
        vtest::Image kept = img;
        Matrix src = vtest::MatrixOf(kept), *out = nullptr;
        ASSERT_EQ(GetPadImage(&src, &out, l, r, t, b, mode), STATUS_OK);
        ASSERT_EQ(std::make_tuple(out->Width, out->Height, out->Channel, out->WidthStep),
                  std::make_tuple(l + w + r, t + h + b, c, ((l + w + r) * c + 3) / 4 * 4));
        for (int y = 0; y < out->Height; ++y)
            for (int x = 0; x < out->Width; ++x)
                for (int k = 0; k < c; ++k)
                    ASSERT_EQ(out->Data[y * out->WidthStep + x * c + k],
                              img.at(MapEdge(x - l, w, mode), MapEdge(y - t, h, mode), k))
                        << "at " << x << "," << y << " of " << img;
        EXPECT_EQ(kept.bytes, img.bytes);
        VL_FreeMatrix(&out);
    }
}

// A negative pad, a wrong depth (a parameter error here), a null Data, a size
// past 32 bits; then records that cannot describe their pixels, which once
// divided by zero, read before Data or over-read a short row. Nothing is made.
TEST(GetPadImage, RejectsBadArguments) {
    Matrix* out = nullptr;
    EXPECT_EQ(GetPadImage(nullptr, &out, 1, 1, 1, 1, 0), STATUS_NULL_REFERENCE);
    uint8_t pixels[64] = {};
    const Status bad = STATUS_INVALID_PARAMETER, null = STATUS_NULL_REFERENCE;
    struct Case { Matrix src; int left, bottom; Status status; };
    const Case cases[] = {
        {{4, 4, 4, 1, DEPTH_8U, pixels, 0}, 1, -1, bad},  {{4, 4, 4, 1, DEPTH_32F, pixels, 0}, 1, 1, bad},
        {{4, 4, 4, 1, DEPTH_8U, nullptr, 0}, 1, 1, null}, {{4, 4, 4, 1, DEPTH_8U, pixels, 0}, INT32_MAX, 0, bad},
        {{0, 4, 4, 1, DEPTH_8U, pixels, 0}, 5, 1, bad},   {{4, 0, 4, 1, DEPTH_8U, pixels, 0}, 5, 1, bad},
        {{-3, 2, 4, 1, DEPTH_8U, pixels, 0}, 5, 1, bad},  {{5, 4, 5, 3, DEPTH_8U, pixels, 0}, 5, 1, bad},
        {{4, 4, 4, 5, DEPTH_8U, pixels, 0}, 5, 1, bad},   {{2, 2, -4, 1, DEPTH_8U, pixels, 0}, 5, 1, bad},
    };
    for (const Case& c : cases)
        for (int edge : {0, 1}) {
            EXPECT_EQ(GetPadImage(&c.src, &out, c.left, 1, 2, c.bottom, edge), c.status)
                << c.src.Width << "x" << c.src.Height << " step " << c.src.WidthStep << " depth " << c.src.Depth;
            EXPECT_EQ(out, nullptr);
        }
}

}  // namespace
