/* detect_stable_regions.c - find the dark and bright spots of a picture, and what they look like.
 *
 * The picture is made here: a slope of grey with two dark disks, one bright disk and some grain.
 * The fast form finds them and gathers their moments, from which centre and orientation are read.
 */
#include <stdio.h>
#include <stdlib.h>

#include <kipx/kipx.h>

enum { width = 160, height = 120 };

struct disk {
    int x, y, radius, shade;
};
static const struct disk disks[] = {{40, 40, 14, 30}, {110, 30, 9, 60}, {90, 85, 20, 230}};
enum { disk_count = sizeof disks / sizeof disks[0] };

static void draw(unsigned char *pixels) {
    unsigned grain = 1;
    for (int y = 0; y < height; y++)
        for (int x = 0; x < width; x++) {
            int value = 110 + x / 8 + y / 10;
            for (int i = 0; i < disk_count; i++) {
                int dx = x - disks[i].x, dy = y - disks[i].y;
                if (dx * dx + dy * dy <= disks[i].radius * disks[i].radius) value = disks[i].shade;
            }
            grain = grain * 1664525u + 1013904223u;
            pixels[y * width + x] = (unsigned char)(value + (int)(grain >> 30));
        }
}

/* Prints a group of regions and counts those that are one of our disks. */
static int show(const char *name, KipxWTSregion **regions, unsigned count,
                const KipxWTSFDs *moments) {
    int known = 0;
    for (unsigned i = 0; i < count; i++) {
        const KipxWTSMF *m = (const KipxWTSMF *)((const char *)regions[i] + moments->state_offset);
        printf("%s: level %d, %d pixels around (%.1f, %.1f), angle %.2f\n", name, regions[i]->level,
               regions[i]->area, kipx_mf_mx(m), kipx_mf_my(m), kipx_mf_theta(m));
        for (int k = 0; k < disk_count; k++) {
            double dx = kipx_mf_mx(m) - disks[k].x, dy = kipx_mf_my(m) - disks[k].y;
            known += dx * dx + dy * dy < 1;
        }
    }
    return known;
}

int main(void) {
    static unsigned char pixels[width * height];
    draw(pixels);
    kipx_arr image = {0};
    image.volume[0] = 1;
    image.volume[1] = height;
    image.volume[2] = width;
    image.volume[3] = 1;
    image.strides[1] = width;
    image.strides[2] = image.strides[3] = 1;
    image.naxes = 3;
    image.type = KIPX_U8;
    image.base = pixels;

    KipxWTSFDs moments;
    KipxWTSMFinitFeatureDs(&moments, NULL);
    KipxMSERContext context = {0};
    context.delta = 8;
    context.min_area_pixels = 200;
    context.max_area_fraction = 0.25f;
    context.max_variation = 0.1f;
    context.min_diversity = 0.3f;
    context.polarity = 2; /* both */
    context.gather = 1;
    context.levelset.descriptors = &moments;
    context.levelset.count = 1;

    KipxXE xe = {0};
    KipxXEinit(&xe, NULL);
    int32_t code = KipxGenerateFMSERs(&xe, 0, &image, NULL, &context);
    if (code < 0) {
        fprintf(stderr, "failed with code %d\n", code);
        return 1;
    }
    int dark = show("dark", context.dark, context.dark_count, &moments);
    int bright = show("bright", context.bright, context.bright_count, &moments);

    /* The pixels of a region are a run in its store. */
    if (context.dark_count > 0) {
        uint32_t pair[2];
        kipx_fwtsr_fetch2D(KipxFWTSRESfrombuilder(context.dark_builder), context.dark[0], 0, 1,
                           pair);
        printf("the first dark region was completed at row %u, column %u first\n", pair[0],
               pair[1]);
    }
    KipxMSERrelease(&context);
    KipxXEfini(&xe);
    return dark == 2 && bright == 1 ? 0 : 1;
}
