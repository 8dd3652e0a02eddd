/* Thresholds a 4 x 1 grey row through the raw form; built with
 * cc $(pkg-config --cflags --libs velomar). */
#include <stdio.h>
#include <string.h>
#include <velomar.h>

int main(void) {
    const unsigned char src[4] = {0, 100, 101, 255};
    const unsigned char want[4] = {0, 0, 255, 255};
    unsigned char dest[4] = {7, 7, 7, 7};
    Threshold(src, dest, 4, 1, 4, 100);
    if (memcmp(dest, want, 4) != 0) {
        fprintf(stderr, "Threshold: got %d %d %d %d\n", dest[0], dest[1], dest[2], dest[3]);
        return 1;
    }
    printf("pkg-config consumer: velomar %s, Threshold OK\n", VELOMAR_VERSION_STRING);
    return 0;
}
