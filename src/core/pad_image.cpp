// Edge padding: a larger copy of an image with borders filled by EdgeMode.
#include "core/core.h"

namespace velomar {

Status BuildPadIndexTable(int32_t Left, int32_t Width, int32_t Height, int32_t Right, int32_t Top,
                          int32_t Bottom, int32_t EdgeMode, int32_t* ColumnTable,
                          int32_t* RowTable) {
    if (Left < 0 || Right < 0 || Top < 0 || Bottom < 0) return STATUS_INVALID_PARAMETER;
    for (int64_t p = -int64_t(Left); p < int64_t(Width) + Right; ++p)
        ColumnTable[p + Left] = MapEdgeIndex(p, Width, EdgeMode);
    for (int64_t p = -int64_t(Top); p < int64_t(Height) + Bottom; ++p)
        RowTable[p + Top] = MapEdgeIndex(p, Height, EdgeMode);
    return STATUS_OK;
}

static Status PadImage(const Matrix* Src, Matrix** Out, int32_t Left, int32_t Right, int32_t Top,
                       int32_t Bottom, int32_t EdgeMode) {
    if (!Src || !Src->Data) return STATUS_NULL_REFERENCE;
    if (Src->Depth != DEPTH_8U || Left < 0 || Right < 0 || Top < 0 || Bottom < 0 ||
        !RecordDescribesPixels(Src))
        return STATUS_INVALID_PARAMETER;
    // Sizes that do not fit a record's 32-bit fields are out of range.
    int64_t outWidth = int64_t(Left) + Src->Width + Right;
    int64_t outHeight = int64_t(Top) + Src->Height + Bottom;
    if (outWidth > INT32_MAX || outHeight > INT32_MAX) return STATUS_INVALID_PARAMETER;
    if (!Out) return STATUS_NULL_REFERENCE;

    Status s = VL_CreateMatrix(int32_t(outWidth), int32_t(outHeight), DEPTH_8U, Src->Channel, Out);
    if (s != STATUS_OK) return s;
    Matrix* dst = *Out;

    // An allocation failure here releases the new record and reports 1.
    Buffer<int32_t> columns, rows;
    try {
        columns.Reset(size_t(outWidth));
        rows.Reset(size_t(outHeight));
    } catch (const std::bad_alloc&) {
        VL_FreeMatrix(Out);
        return STATUS_OUT_OF_MEMORY;
    }
    BuildPadIndexTable(Left, Src->Width, Src->Height, Right, Top, Bottom, EdgeMode, columns.data(),
                       rows.data());

    const size_t pixel = size_t(Src->Channel);
    const size_t srcStep = size_t(Src->WidthStep), dstStep = size_t(dst->WidthStep);
    for (int32_t y = 0; y < Src->Height; ++y) {
        const uint8_t* s = Src->Data + y * srcStep;
        uint8_t* d = dst->Data + (size_t(Top) + y) * dstStep;
        for (int32_t j = 0; j < Left; ++j)
            std::memcpy(d + j * pixel, s + size_t(columns[j]) * pixel, pixel);
        std::memcpy(d + Left * pixel, s, size_t(Src->Width) * pixel);
        for (int64_t j = int64_t(Left) + Src->Width; j < outWidth; ++j)
            std::memcpy(d + j * pixel, s + size_t(columns[j]) * pixel, pixel);
    }
    // Added rows are whole-row copies of finished middle rows.
    for (int64_t r = 0; r < outHeight; ++r) {
        if (r >= Top && r < int64_t(Top) + Src->Height) continue;
        std::memcpy(dst->Data + r * dstStep, dst->Data + (size_t(rows[r]) + Top) * dstStep,
                    dstStep);
    }
    return STATUS_OK;
}

}  // namespace velomar

VL_API Status VL_CALL GetPadImage(const Matrix* Src, Matrix** Out, int32_t Left, int32_t Right,
                                  int32_t Top, int32_t Bottom, int32_t EdgeMode) {
    return velomar::GuardedStatus(
        [&] { return velomar::PadImage(Src, Out, Left, Right, Top, Bottom, EdgeMode); });
}
