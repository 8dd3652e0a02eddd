// The surface blur entry point is reserved: it returns at once and touches
// none of its arguments.
#include "core/core.h"

VL_API void VL_CALL SurfaceBlur(const unsigned char*, unsigned char*, int32_t, int32_t, int32_t, int32_t,
                                int32_t) {}
