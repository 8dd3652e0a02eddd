/* The library's header first, then X11's Xlib.h (see xlib_before.c). */
#include "velomar.h"

#include <X11/Xlib.h>

int XlibFirst(void);

int main(void) {
    Status xlib = 0;
    VL_Status vl = STATUS_OK;
    /* Both orders compile, and the result type stays a 32-bit code. */
    return XlibFirst() == STATUS_INVALID_PARAMETER && sizeof(vl) == 4 && xlib == 0 ? 0 : 1;
}
