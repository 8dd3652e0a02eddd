/* The public header after <windows.h>, whose winnt.h defines
 * STATUS_INVALID_PARAMETER as an NTSTATUS code: it compiles without
 * redefinitions, the short name stays Windows', the VL_ name is the library's,
 * and Render takes an HDC. */
#include <windows.h>

#include "velomar.h"

int main(void) {
    int32_t (VL_CALL *render)(const unsigned char*, int32_t, int32_t, void*, int32_t, int32_t, int32_t,
                              int32_t, int32_t, int32_t, int32_t, int32_t, uint8_t) = Render;
    HDC dc = CreateCompatibleDC(NULL);
    unsigned char pixel[4] = {1, 2, 3, 0};
    const int mode = render(pixel, 1, 1, dc, 0, 0, 0, 0, 0, 0, 0, 0, 1);
    DeleteDC(dc);
    return VL_STATUS_INVALID_PARAMETER == 4 && STATUS_INVALID_PARAMETER != 4 && mode == HALFTONE ? 0 : 1;
}
