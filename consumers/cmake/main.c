/* Inverts a 3 x 2 grey picture in place through the Matrix form. */
#include <stdio.h>
#include <velomar.h>

int main(void) {
    unsigned char pixels[2][4] = {{0, 1, 254, 9}, {100, 200, 255, 9}};
    Matrix m = {3, 2, 4, 1, DEPTH_8U, &pixels[0][0], 0};
    VL_Status status = Invert(&m, &m);
    /* Invert complements every byte, row padding included. */
    if (status != VL_STATUS_OK || pixels[0][0] != 255 || pixels[0][2] != 1 || pixels[1][1] != 55 ||
        pixels[1][3] != 246) {
        fprintf(stderr, "Invert: status %d, bytes %d %d %d %d\n", (int)status, pixels[0][0],
                pixels[0][2], pixels[1][1], pixels[1][3]);
        return 1;
    }
    printf("cmake consumer: velomar %s, Invert OK\n", VELOMAR_VERSION_STRING);
    return 0;
}
