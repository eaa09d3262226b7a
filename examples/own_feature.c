/* own_feature.c - a feature of one's own: the grey-level histogram of every region, for its median.
 *
 * A feature is a descriptor: how many bytes of state a region needs, and what to do with them when
 * pixels arrive, when regions are combined and when they go. Here the state owns a block of memory,
 * so that every operation has something to do.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <kipx/kipx.h>

enum { width = 48, height = 32 };

struct picture {
    uint8_t pixels[height][width];
};

struct greys {
    const struct picture *picture;
    uint32_t *bins; /* 256 counters, or null when memory was short */
    int32_t complete;
};

/* The descriptor's parameter is handed to each new state. */
static void greys_init(void *state, void *parameter) {
    struct greys *greys = state;
    greys->picture = parameter;
    greys->bins = calloc(256, sizeof *greys->bins);
}

static void greys_destroy(void *state) {
    struct greys *greys = state;
    free(greys->bins);
    greys->bins = NULL;
}

static void greys_count(struct greys *greys, uint32_t row, uint32_t column) {
    if (greys->bins) greys->bins[greys->picture->pixels[row][column]]++;
}

/* Pixels as row * width + column, ... */
static void greys_update(void *state, const uint32_t *pixels, uint32_t count) {
    for (uint32_t i = 0; i < count; i++) greys_count(state, pixels[i] / width, pixels[i] % width);
}

/* ... and as pairs, which is how they come from a flood. */
static void greys_update2D(void *state, const uint32_t *pairs, uint32_t count) {
    for (uint32_t i = 0; i < count; i++) greys_count(state, pairs[2 * i], pairs[2 * i + 1]);
}

static void greys_lazymerge(void *state, const void *other) {
    struct greys *into = state;
    const struct greys *from = other;
    if (!into->bins || !from->bins || into == from) return;
    for (int i = 0; i < 256; i++) into->bins[i] += from->bins[i];
}

static void greys_merge(void *state, const void *other) {
    greys_lazymerge(state, other);
    ((struct greys *)state)->complete = 1;
}

static int32_t greys_isgathered(const void *state) {
    return ((const struct greys *)state)->complete;
}

static void greys_ongather(void *state, const KipxWTSregion *region) {
    (void)region;
    ((struct greys *)state)->complete = 1;
}

static void greys_describe(KipxWTSFDs *feature, struct picture *picture) {
    memset(feature, 0, sizeof *feature);
    feature->magic = 0x67726579; /* "grey" */
    feature->state_size = sizeof(struct greys);
    feature->parameter = picture;
    feature->init = greys_init;
    feature->destroy = greys_destroy;
    feature->update = greys_update;
    feature->update2D = greys_update2D;
    feature->merge = greys_merge;
    feature->lazymerge = greys_lazymerge;
    feature->isgathered = greys_isgathered;
    feature->ongather = greys_ongather;
}

/* A bright ground with a grey disc, which has a dark disc inside, and some texture all over. */
static void paint(struct picture *picture) {
    for (int y = 0; y < height; y++) {
        for (int x = 0; x < width; x++) {
            const int far = (x - 20) * (x - 20) + (y - 15) * (y - 15);
            const int near = (x - 17) * (x - 17) + (y - 14) * (y - 14);
            picture->pixels[y][x] = (uint8_t)((near < 20   ? 40
                                               : far < 120 ? 110
                                                           : 200) +
                                              (7 * x + 3 * y) % 5);
        }
    }
}

static int median(const struct greys *greys, int32_t area) {
    int32_t below = 0;
    int level = 0;
    while (level < 255 && (below += (int32_t)greys->bins[level]) * 2 < area) level++;
    return level;
}

struct report {
    KipxSTB *builder;
    uint32_t offset; /* of our state in a region record */
    int regions, right;
};

/* Called for every region, the outer ones first. */
static int32_t describe_region(KipxSTnode *node, void *arg, int32_t index) {
    struct report *report = arg;
    KipxWTSregion *region = node->data;
    (void)index;
    /* So far the state knows the pixels of this region alone; add those of the nested ones. */
    if (KipxGatherMSERFeatures(report->builder, region) != 0) return 0;
    const struct greys *greys = (const void *)((const char *)region + report->offset);
    if (!greys->bins) return 0;
    uint32_t total = 0;
    for (int i = 0; i <= region->level; i++) total += greys->bins[i];
    printf("level %3d  area %4d  median %3d\n", region->level, region->area,
           median(greys, region->area));
    report->regions++;
    report->right += total == (uint32_t)region->area;
    return 1;
}

int main(void) {
    static struct picture picture;
    paint(&picture);
    kipx_arr image = {{1, height, width, 1}, {0}, {0, width, 1, 1}, 3, 0, KIPX_U8, 0, 0, &picture};

    KipxWTSFDs feature;
    greys_describe(&feature, &picture);
    KipxWTSLSC levelset;
    KipxWTSLSCinit2D(&levelset, &feature, 1, height, width, width);

    KipxXE xe = {0};
    KipxXEinit(&xe, NULL);
    KipxSTB *builder = KipxWTSTBopen(NULL, NULL, NULL, KipxXEmmstack(&xe));
    KipxWatershedContext context = {.builder = builder, .levelset = &levelset, .connectivity = 1};
    const int32_t status = KipxWatershed(&xe, 0, &image, NULL, &context);
    struct report report = {builder, feature.state_offset, 0, 0};
    if (status == 0) KipxAGTwalk(context.output, KIPX_PREORDER, describe_region, &report);
    KipxSTBclose(builder, 0); /* destroys our states, too */
    KipxXEfini(&xe);
    printf("%d regions\n", report.regions);
    return status == 0 && report.regions > 2 && report.right == report.regions ? 0 : 1;
}
