/* The public header beside X11's Xlib.h, which defines Status as a macro:
 * Xlib first here, the library's header first in xlib_after.c. */
#include <X11/Xlib.h>

#include "velomar.h"

int XlibFirst(void) {
    Status xlib = 0;        /* Xlib's Status */
    VL_Status vl = STATUS_INVALID_PARAMETER;
    Matrix m = {1, 1, 4, 1, DEPTH_8U, 0, 0};
    return (int)sizeof(vl) == 4 && xlib == 0 && m.WidthStep == 4 ? vl : -1;
}
