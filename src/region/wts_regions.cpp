#include "region/wts_regions.h"

#include "region/builder.h"
#include "region/states.h"

namespace kipx {

namespace {

constexpr uint32_t batch = 64; // pixels converted at a time

uint32_t width_of(const KipxWTSLSC &context) { return context.volume[2]; }

void add_area(KipxWTSregion *region, uint32_t count) {
    region->area = static_cast<int32_t>(static_cast<uint32_t>(region->area) + count);
}

// Linear indices as pairs, batch by batch, to add(pairs, count).
template<class Add> void as_pairs(const uint32_t *pixels, uint32_t count, uint32_t width, Add add) {
    uint32_t pairs[2 * batch];
    for (uint32_t done = 0; done < count;) {
        const uint32_t n = count - done < batch ? count - done : batch;
        for (uint32_t i = 0; i < n; i++) {
            pairs[2 * i] = pixels[done + i] / width;
            pairs[2 * i + 1] = pixels[done + i] % width;
        }
        add(pairs, n);
        done += n;
    }
}

// The way back.
template<class Add>
void as_indices(const uint32_t *pairs, uint32_t count, uint32_t width, Add add) {
    uint32_t pixels[batch];
    for (uint32_t done = 0; done < count;) {
        const uint32_t n = count - done < batch ? count - done : batch;
        for (uint32_t i = 0; i < n; i++) {
            const uint32_t *const pair = pairs + 2 * (size_t{done} + i);
            pixels[i] = pair[0] * width + pair[1];
        }
        add(pixels, n);
        done += n;
    }
}

int32_t dispose_below(KipxSTnode *node, void *arg, int32_t) {
    const auto *context = static_cast<const KipxWTSLSC *>(arg);
    if (node->data) destroy_states(*context, static_cast<KipxWTSregion *>(node->data));
    return 1;
}

} // namespace

void *allocate(KipxSTB *builder, size_t size, size_t alignment) {
    return builder_alloc(builder, size, alignment);
}

int32_t finish(KipxSTB *builder, KipxWTSLSC *, KipxST **output, uint32_t) {
    KipxST *const tree = __KipxSTBtree(builder);
    if (output) *output = tree;
    return 0;
}

KipxWTSregion *region_behind(KipxSTB *builder, KipxWTSLSC *context, size_t room) {
    const int32_t record_size = KipxWTSLSCfixup(context);
    if (record_size < 0) return nullptr;
    auto *block =
        static_cast<char *>(builder_alloc(builder, room + static_cast<size_t>(record_size), 0));
    if (!block) return nullptr;
    auto *region = reinterpret_cast<KipxWTSregion *>(block + room);
    init_states(*context, region);
    return region;
}

KipxWTSregion *new_region(void *, KipxSTB *builder, KipxWTSLSC *context, void *) {
    KipxWTSregion *const region = region_behind(builder, context, sizeof(KipxSTnode));
    if (region) KipxDGTnodeData(reinterpret_cast<KipxSTnode *>(region) - 1, region);
    return region;
}

void destroy_features(KipxSTB *, KipxWTSLSC *context, KipxWTSregion *region) {
    destroy_states(*context, region);
}

void dispose(KipxSTB *, KipxWTSLSC *context, KipxWTSregion *region) {
    KipxAGTwalkFromNode(region->node, KIPX_POSTORDER, dispose_below, context);
}

void update_any(KipxSTB *, KipxWTSLSC *context, KipxWTSregion *region, const uint32_t *pixels,
                uint32_t count) {
    add_area(region, count);
    const uint32_t width = width_of(*context);
    for (int32_t f = 0; f < context->count; f++) {
        const KipxWTSFDs &feature = context->descriptors[f];
        void *const state = state_of(feature, region);
        if (feature.update2D && width)
            as_pairs(pixels, count, width,
                     [&](const uint32_t *pairs, uint32_t n) { feature.update2D(state, pairs, n); });
        else if (feature.update)
            feature.update(state, pixels, count);
    }
}

void update2D_any(KipxSTB *, KipxWTSLSC *context, KipxWTSregion *region, const uint32_t *pairs,
                  uint32_t count) {
    add_area(region, count);
    const uint32_t width = width_of(*context);
    for (int32_t f = 0; f < context->count; f++) {
        const KipxWTSFDs &feature = context->descriptors[f];
        void *const state = state_of(feature, region);
        if (feature.update2D)
            feature.update2D(state, pairs, count);
        else if (feature.update)
            as_indices(pairs, count, width, [&](const uint32_t *pixels, uint32_t n) {
                feature.update(state, pixels, n);
            });
    }
}

void update_moments(KipxSTB *, KipxWTSLSC *context, KipxWTSregion *region, const uint32_t *pixels,
                    uint32_t count) {
    add_area(region, count);
    auto *state = static_cast<KipxWTSMF *>(state_of(context->descriptors[0], region));
    if (const uint32_t width = width_of(*context))
        as_pairs(pixels, count, width,
                 [&](const uint32_t *pairs, uint32_t n) { KipxWTSMF_update2D_n(state, pairs, n); });
    else
        KipxWTSMF_update_n(state, pixels, count);
}

void update2D_moments(KipxSTB *, KipxWTSLSC *context, KipxWTSregion *region, const uint32_t *pairs,
                      uint32_t count) {
    add_area(region, count);
    auto *state = static_cast<KipxWTSMF *>(state_of(context->descriptors[0], region));
    KipxWTSMF_update2D_n(state, pairs, count);
}

void update_area(KipxSTB *, KipxWTSLSC *, KipxWTSregion *region, const uint32_t *, uint32_t count) {
    add_area(region, count);
}

void merge_links(KipxSTB *builder, KipxWTSLSC *, KipxWTSregion *parent, KipxWTSregion *child) {
    add_area(parent, static_cast<uint32_t>(child->area));
    KipxAGTaddchild(parent->node, child->node);
    __KipxSTBrootnode(builder, parent->node);
}

void merge_states(KipxSTB *builder, KipxWTSLSC *context, KipxWTSregion *parent,
                  KipxWTSregion *child) {
    for (int32_t f = 0; f < context->count; f++) {
        const KipxWTSFDs &feature = context->descriptors[f];
        if (feature.merge) feature.merge(state_of(feature, parent), state_of(feature, child));
    }
    merge_links(builder, context, parent, child);
}

} // namespace kipx
