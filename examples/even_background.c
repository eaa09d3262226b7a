/* even_background.c - small bright spots on uneven light: the light away, sparks away, spots counted.
 *
 * The picture is a ramp of light with spots of 5 x 5 on it, and single hot pixels as a sensor has them. A
 * top-hat by a square that no spot can hold takes the ramp away, whatever its slope; before it the hot
 * pixels are removed, and behind it an opening by a cross leaves nothing that is thinner than a spot.
 */
#include <stdio.h>

#include <kipx/kipx.h>

enum { width = 400, height = 300, spots = 12, hot = 40 };

static void describe(kipx_arr *out, uint8_t *pixels, uint32_t rows, uint32_t columns) {
    *out = (kipx_arr){0};
    out->naxes = 3;
    out->type = KIPX_U8;
    out->volume[0] = 1, out->volume[1] = rows, out->volume[2] = columns, out->volume[3] = 1;
    out->strides[1] = columns, out->strides[2] = out->strides[3] = 1;
    out->base = pixels;
}

static void draw(uint8_t (*picture)[width]) {
    for (int y = 0; y < height; y++)
        for (int x = 0; x < width; x++) picture[y][x] = (uint8_t)(20 + x / 4 + y / 6);
    for (int i = 0; i < spots; i++)
        for (int k = 0; k < 25; k++) picture[30 + i * 20 + k / 5][40 + i * 27 + k % 5] += 50;
    for (int i = 0; i < hot; i++) picture[(i * 37 + 11) % height][(i * 91 + 3) % width] = 255;
}

int main(void) {
    static uint8_t picture[height][width], even[height][width];
    draw(picture);
    kipx_arr light, flat, mask;
    describe(&light, &picture[0][0], height, width);
    describe(&flat, &even[0][0], height, width);

    KipxXE xe = {0};
    KipxXEinit(&xe, NULL);
    int32_t code = KipxFirefly(&xe, 0, &light, NULL, NULL, NULL, 60); /* in place */
    kipx_seshape square;
    __kipx_seshape__$g2(&square, 101, 101);
    if (code == 0)
        code = KipxFilter(&xe, 0, &light, &flat, NULL, NULL, KIPX_FILTER_TOPHAT, &square);
    uint8_t members[3][3] = {{0, 255, 0}, {255, 255, 255}, {0, 255, 0}};
    describe(&mask, &members[0][0], 3, 3);
    const kipx_strel cross = {{0, 1, 1, 0}, mask};
    if (code == 0) code = KipxMorphop(&xe, 0, &flat, NULL, NULL, NULL, KIPX_MORPH_OPEN, &cross);
    KipxXEfini(&xe);
    if (code < 0) {
        fprintf(stderr, "%s\n", kipx_strerror(code));
        return 1;
    }

    /* A spot's 21 pixels that a cross can cover stand out by 50 from a ground of next to nothing. */
    int bright = 0, ground = 0;
    for (int y = 0; y < height; y++)
        for (int x = 0; x < width; x++) {
            if (even[y][x] >= 45)
                bright++;
            else if (even[y][x] > ground)
                ground = even[y][x];
        }
    printf("%d bright pixels, %d a spot; the ground reaches %d\n", bright, bright / spots, ground);
    return bright == spots * 21 && ground < 30 ? 0 : 1;
}
