/* A program as a user of the library writes it: adds two images of 8-bit grey. */
#include <kipx/kipx.h>

#include <stdio.h>

enum { WIDTH = 19, HEIGHT = 7 };

static kipx_arr image(uint8_t *pixels) {
    kipx_arr arr = {.volume = {1, HEIGHT, WIDTH, 1},
                    .strides = {0, WIDTH, 1, 1},
                    .naxes = 3,
                    .type = KIPX_U8,
                    .base = pixels};
    return arr;
}

int main(void) {
    static uint8_t a[HEIGHT * WIDTH], b[HEIGHT * WIDTH], sum[HEIGHT * WIDTH];
    for (int i = 0; i < HEIGHT * WIDTH; i++) {
        a[i] = (uint8_t)(3 * i);
        b[i] = (uint8_t)(200 - i);
    }
    kipx_arr src1 = image(a), src2 = image(b), dst = image(sum);
    KipxXE xe = {0};
    int wrong = KipxAdd(&xe, 0, &dst, &src1, &src2, NULL, NULL, NULL, 0, 0) != 0;
    for (int i = 0; i < HEIGHT * WIDTH; i++) wrong += sum[i] != (uint8_t)(a[i] + b[i]);
    KipxXEfini(&xe);
    printf("%d wrong\n", wrong);
    return wrong != 0;
}
