// Display: draws a 24-bit picture onto a Windows device context through GDI.
// Other systems have no device contexts; there the file is empty.
#ifdef _WIN32
#include <windows.h>

#include "core/core.h"

VL_API int32_t VL_CALL Render(const unsigned char* Pixels, int32_t Width, int32_t Height,
                              void* DeviceContext, int32_t DestX, int32_t DestY, int32_t DestWidth,
                              int32_t DestHeight, int32_t SrcX, int32_t SrcY, int32_t SrcWidth,
                              int32_t SrcHeight, uint8_t Halftone) {
    const HDC dc = static_cast<HDC>(DeviceContext);
    int32_t w = DestWidth != 0 ? DestWidth : Width;
    int32_t h = DestHeight != 0 ? DestHeight : Height;
    // A negative source size mirrors: the destination size turns negative.
    int32_t sw = SrcWidth, sh = SrcHeight;
    if (sw == 0) {
        sw = Width;
    } else if (sw < 0) {
        sw = -sw;
        w = -w;
    }
    if (sh == 0) {
        sh = Height;
    } else if (sh < 0) {
        sh = -sh;
        h = -h;
    }

    // Rows are stored top-down (negative height); the fields GDI does not read
    // for a 24-bit BI_RGB picture are zeroed.
    BITMAPINFO info{};
    info.bmiHeader.biSize = sizeof(BITMAPINFOHEADER);
    info.bmiHeader.biWidth = Width;
    info.bmiHeader.biHeight = -Height;
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 24;
    info.bmiHeader.biCompression = BI_RGB;

    const int previous = GetStretchBltMode(dc);
    SetStretchBltMode(dc, Halftone == 1 ? HALFTONE : COLORONCOLOR);
    // The drawing's own result is not reported.
    StretchDIBits(dc, DestX, DestY, w, h, SrcX > 0 ? SrcX : 0, SrcY > 0 ? SrcY : 0, sw, sh, Pixels, &info,
                  DIB_RGB_COLORS, SRCCOPY);
    return SetStretchBltMode(dc, previous);
}
#endif
