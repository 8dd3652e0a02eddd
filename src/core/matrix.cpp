// Matrix records: creation, release and the shared validation preamble.
#include "core/core.h"

namespace velomar {

int32_t DepthElementSize(int32_t Depth) {
    switch (Depth) {
        case DEPTH_8U:
        case DEPTH_8S: return 1;
        case DEPTH_16S: return 2;
        case DEPTH_32S:
        case DEPTH_32F: return 4;
        case DEPTH_64F: return 8;
        default: return 0;
    }
}

bool RecordDescribesPixels(const Matrix* m) {
    if (m->Width < 1 || m->Height < 1 || m->Channel < 1 || m->Channel > 4) return false;
    return int64_t(m->WidthStep) >= int64_t(m->Width) * m->Channel;
}

Status MatrixPreamble(const Matrix* Src, const Matrix* Dest, bool ExtraPointersPresent,
                      MatrixParamCheck ParamsOk, const void* Context) {
    if (!Src || !Dest) return STATUS_NULL_REFERENCE;
    if (!Src->Data || !Dest->Data || !ExtraPointersPresent) return STATUS_NULL_REFERENCE;
    if (Src->Width != Dest->Width || Src->Height != Dest->Height ||
        Src->Channel != Dest->Channel || Src->Depth != Dest->Depth ||
        Src->WidthStep != Dest->WidthStep)
        return STATUS_SIZE_MISMATCH;
    // Malformed records are bad parameters: nothing may be read through them.
    if (!RecordDescribesPixels(Src)) return STATUS_INVALID_PARAMETER;
    if (ParamsOk && !ParamsOk(Src, Context)) return STATUS_INVALID_PARAMETER;
    if (Src->Depth != DEPTH_8U || Dest->Depth != DEPTH_8U) return STATUS_NOT_SUPPORTED;
    return STATUS_OK;
}

static Status CreateMatrix(int32_t Width, int32_t Height, int32_t Depth, int32_t Channel,
                           Matrix** Out) {
    if (Width < 1 || Height < 1) return STATUS_INVALID_PARAMETER;
    int32_t element = DepthElementSize(Depth);
    if (element == 0) return STATUS_INVALID_PARAMETER;
    if (Channel < 1 || Channel > 4) return STATUS_INVALID_PARAMETER;
    if (!Out) return STATUS_NULL_REFERENCE;  // nowhere to put the record

    auto* m = static_cast<Matrix*>(std::malloc(sizeof(Matrix)));
    if (!m) return STATUS_OUT_OF_MEMORY;  // tested here rather than left to crash
    *Out = m;
    m->Width = Width;
    m->Height = Height;
    m->Depth = Depth;
    m->Channel = Channel;
    // Row length rule: pad every row to a multiple of 4 bytes. Computed wide so
    // that sizes beyond 32 bits fail as an allocation instead of wrapping.
    // (Width, Channel and the element size are bounded, so the step cannot
    // overflow 64 bits; the step times Height is only formed once the step is
    // known to fit 32 bits.)
    const int64_t step = ((int64_t(element) * Width * Channel * 8 + 31) / 32) * 4;
    m->WidthStep = static_cast<int32_t>(step);
    m->Data = nullptr;
    if (step <= INT32_MAX && static_cast<uint64_t>(step * Height) <= SIZE_MAX / 2)
        m->Data = static_cast<unsigned char*>(std::malloc(static_cast<size_t>(step * Height)));
    if (!m->Data) {
        // *Out keeps the released address; callers must not use it after a
        // non-zero result.
        std::free(m);
        return STATUS_OUT_OF_MEMORY;
    }
    m->Reserved = 0;
    return STATUS_OK;
}

static Status FreeMatrix(Matrix** Ref) {
    if (!Ref || !*Ref) return STATUS_NULL_REFERENCE;
    Matrix* m = *Ref;  // the caller's pointer is left dangling, as documented
    if (m->Data) {
        std::free(m->Data);
        std::free(m);
        return STATUS_OK;
    }
    std::free(m);
    return STATUS_OUT_OF_MEMORY;
}

}  // namespace velomar

VL_API Status VL_CALL VL_CreateMatrix(int32_t Width, int32_t Height, int32_t Depth,
                                      int32_t Channel, Matrix** Out) {
    return velomar::CreateMatrix(Width, Height, Depth, Channel, Out);
}

VL_API Status VL_CALL VL_FreeMatrix(Matrix** Ref) { return velomar::FreeMatrix(Ref); }
