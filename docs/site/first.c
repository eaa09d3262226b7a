#include <kipx/kipx.h>
#include <stdio.h>

int main(void) {
    uint8_t pixels[] = {10, 100, 200};
    kipx_arr image = {.volume = {1, 1, 3, 1},
                      .strides = {3, 3, 1, 1}, .naxes = 3,
                      .type = KIPX_U8, .base = pixels};
    double value = 100;

    KipxXE *xe = KipxXEopen(NULL, NULL, 0);
    KipxAddqC(xe, 0, &image, &image, &value, NULL, NULL, 0, 0);
    KipxXEclose(xe);

    printf("%d %d %d\n", pixels[0], pixels[1], pixels[2]);
    return 0;
}
