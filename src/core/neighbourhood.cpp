// Border tables and padded planes.
#include "core/neighbourhood.h"

namespace velomar {

void BuildBorderTables(int32_t Radius, int32_t Width, int32_t Height, int32_t Stride,
                       int32_t EdgeMode, int32_t* ColumnIndex, int32_t* RowOffset) {
    // The pad tables with equal pads on every side, rows turned into offsets.
    BuildPadIndexTable(Radius, Width, Height, Radius, Radius, Radius, EdgeMode, ColumnIndex, RowOffset);
    for (int64_t k = 0; k < int64_t(Height) + 2 * int64_t(Radius); ++k) RowOffset[k] *= Stride;
}

Buffer<uint8_t> PadPlane(const uint8_t* Src, int32_t Width, int32_t Height, int32_t Stride, int32_t Radius,
                         int32_t EdgeMode) {
    const size_t width = size_t(Width) + 2 * size_t(Radius), height = size_t(Height) + 2 * size_t(Radius);
    Buffer<int32_t> column(width), row(height);
    BuildBorderTables(Radius, Width, Height, Stride, EdgeMode, column.data(), row.data());
    Buffer<uint8_t> out(width * height);
    for (size_t y = 0; y < height; ++y) {
        const uint8_t* s = Src + row[y];
        uint8_t* d = out.data() + y * width;
        // Positions inside the image map to themselves.
        std::memcpy(d + Radius, s, size_t(Width));
        for (size_t x = 0; x < size_t(Radius); ++x) d[x] = s[column[x]];
        for (size_t x = size_t(Radius) + Width; x < width; ++x) d[x] = s[column[x]];
    }
    return out;
}

}  // namespace velomar
