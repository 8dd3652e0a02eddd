// Matrix records: creation, release, the shared preamble's status order.
#include <climits>
#include <tuple>

#include "common/test_util.h"
#include "core/core.h"

namespace {

// A step of 0 marks a refused shape, which leaves Out as it was.
TEST(CreateMatrix, RowLengthPadsToFourBytesAndBadShapesAreRefused) {
    struct Case { int w, h, depth, channel, step; } cases[] = {
        {1, 1, DEPTH_8U, 1, 4},  {3, 1, DEPTH_8U, 3, 12}, {1, 1, DEPTH_64F, 3, 24}, {5, 2, DEPTH_16S, 1, 12},
        {7, 3, DEPTH_8U, 3, 24}, {2, 2, DEPTH_32F, 4, 32}, {0, 1, DEPTH_8U, 1, 0},   {1, -1, DEPTH_8U, 1, 0},
        {1, 1, 6, 1, 0},         {1, 1, DEPTH_8U, 0, 0},   {1, 1, DEPTH_8U, 5, 0},   {0, 1, 9, 9, 0},
    };
    Matrix sentinel{};
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.w << "x" << c.h << " depth " << c.depth << " channels " << c.channel);
        Matrix* m = &sentinel;
        const Status status = VL_CreateMatrix(c.w, c.h, c.depth, c.channel, &m);
        if (c.step == 0) {
            EXPECT_EQ(status, STATUS_INVALID_PARAMETER);
            EXPECT_EQ(m, &sentinel);
            continue;
        }
        ASSERT_EQ(status, STATUS_OK);
        ASSERT_TRUE(m != nullptr && m->Data != nullptr);
        EXPECT_EQ(std::make_tuple(m->WidthStep, m->Width, m->Height, m->Depth, m->Channel, m->Reserved),
                  std::make_tuple(c.step, c.w, c.h, c.depth, c.channel, 0));
        m->Data[size_t(m->WidthStep) * c.h - 1] = 7;  // the whole block is ours
        EXPECT_EQ(VL_FreeMatrix(&m), STATUS_OK);
    }
}

TEST(CreateMatrix, FailedPixelAllocationReportsOutOfMemory) {
    Matrix* m = nullptr;
    // Far more than any machine gives: 100000 x 100000 pixels of 4 doubles.
    EXPECT_EQ(VL_CreateMatrix(100000, 100000, DEPTH_64F, 4, &m), STATUS_OUT_OF_MEMORY);
    EXPECT_NE(m, nullptr);  // the released record's address, not to be used
    // A row length beyond 32 bits fails the same way instead of wrapping.
    EXPECT_EQ(VL_CreateMatrix(1 << 28, 1, DEPTH_64F, 1, &m), STATUS_OUT_OF_MEMORY);
    // The largest request: its size is never formed in a type it overflows.
    EXPECT_EQ(VL_CreateMatrix(INT_MAX, INT_MAX, DEPTH_64F, 4, &m), STATUS_OUT_OF_MEMORY);
}

TEST(FreeMatrix, ReportsMissingRecordAndMissingData) {
    Matrix* none = nullptr;
    EXPECT_EQ(VL_FreeMatrix(&none), STATUS_NULL_REFERENCE);
    EXPECT_EQ(VL_FreeMatrix(nullptr), STATUS_NULL_REFERENCE);

    Matrix* m = nullptr;
    ASSERT_EQ(VL_CreateMatrix(4, 4, DEPTH_8U, 1, &m), STATUS_OK);
    std::free(m->Data);
    m->Data = nullptr;
    Matrix* kept = m;
    EXPECT_EQ(VL_FreeMatrix(&m), STATUS_OUT_OF_MEMORY);  // released, reported as 1
    EXPECT_EQ(m, kept);                                  // the caller's pointer is not cleared
}

// The preamble, through Invert: nulls, then shape in field order, then depth.
TEST(MatrixPreamble, ReportsTheFirstFailingCheckAndRefusesMalformedRecords) {
    uint8_t a[64] = {}, b[64] = {};
    Matrix src{4, 4, 4, 1, DEPTH_8U, a, 0}, dst{4, 4, 4, 1, DEPTH_8U, b, 0};

    EXPECT_EQ(Invert(nullptr, &dst), STATUS_NULL_REFERENCE);
    EXPECT_EQ(Invert(&src, nullptr), STATUS_NULL_REFERENCE);
    Matrix noData{9, 4, 4, 1, DEPTH_8U, nullptr, 0};  // a null Data wins over a shape difference
    EXPECT_EQ(Invert(&src, &noData), STATUS_NULL_REFERENCE);
    Matrix wide{4, 4, 8, 1, DEPTH_8U, b, 0}, colour{4, 4, 4, 3, DEPTH_8U, b, 0};
    EXPECT_EQ(Invert(&src, &wide), STATUS_SIZE_MISMATCH);
    EXPECT_EQ(Invert(&src, &colour), STATUS_SIZE_MISMATCH);

    Matrix s16 = src, d16 = dst;
    s16.Depth = d16.Depth = DEPTH_16S;
    EXPECT_EQ(Invert(&s16, &d16), STATUS_NOT_SUPPORTED);
    // A parameter error (Desaturate on one channel) comes before the depth.
    EXPECT_EQ(Desaturate(&s16, &d16), STATUS_INVALID_PARAMETER);

    // Records that cannot describe their own pixels once made Invert, Posterize
    // and Desaturate walk outside them or report success. They are bad
    // parameters, reported after the shape comparison and before the depth.
    struct Shape { int w, h, step, channel; };
    for (Shape bad : {Shape{0, 4, 4, 1}, {4, 0, 4, 1}, {4, 4, 4, 0}, {4, 4, 36, 9}, {7, 5, 7, 3}, {7, 5, 7, 4},
                      {7, 5, -8, 3}, {-3, 2, 4, 1}}) {
        Matrix bs{bad.w, bad.h, bad.step, bad.channel, DEPTH_8U, a, 0}, bd = bs;
        bd.Data = b;
        EXPECT_EQ(Invert(&bs, &bd), STATUS_INVALID_PARAMETER) << bad.w << "x" << bad.h << " step " << bad.step;
        EXPECT_EQ(Posterize(&bs, &bd, 4), STATUS_INVALID_PARAMETER);
        EXPECT_EQ(Desaturate(&bs, &bd), STATUS_INVALID_PARAMETER);
        bs.Depth = bd.Depth = DEPTH_16S;  // still a parameter error, not a depth one
        EXPECT_EQ(Invert(&bs, &bd), STATUS_INVALID_PARAMETER);
    }
    for (uint8_t v : b) ASSERT_EQ(v, 0);  // nothing written on any rejection
}

}  // namespace
