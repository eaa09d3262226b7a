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

// Pixels of an image of some width (0: not known), in one of two forms; the other is null.
struct Pixels {
    const uint32_t *pairs, *indices;
    uint32_t count, width;
};

// Converts batch by batch, from `in` words a pixel to `out`, and hands the batches to add(words, n).
template<uint32_t in, uint32_t out, class Convert, class Add>
void converted(const uint32_t *from, uint32_t count, Convert convert, Add add) {
    uint32_t to[out * batch];
    while (count > 0) {
        uint32_t n = count < batch ? count : batch;
        for (uint32_t i = 0; i < n; ++i) convert(from + in * i, to + out * i);
        add(to, n);
        from += in * n;
        count -= n;
    }
}

template<class Add> void as_pairs(const Pixels &pixels, Add add) {
    auto divide = [&](const uint32_t *index, uint32_t *pair) {
        pair[0] = *index / pixels.width;
        pair[1] = *index % pixels.width;
    };
    converted<1, 2>(pixels.indices, pixels.count, divide, add);
}

template<class Add> void as_indices(const Pixels &pixels, Add add) {
    auto join = [&](const uint32_t *pair, uint32_t *index) {
        *index = pair[0] * pixels.width + pair[1];
    };
    converted<2, 1>(pixels.pairs, pixels.count, join, add);
}

// Pairs for a feature that takes them, as long as there are any or they can be made.
void update_state(const KipxWTSFDs &feature, void *state, const Pixels &pixels) {
    if (feature.update2D && pixels.pairs)
        feature.update2D(state, pixels.pairs, pixels.count);
    else if (feature.update2D && pixels.width && pixels.indices)
        as_pairs(pixels, [&](const uint32_t *p, uint32_t n) { feature.update2D(state, p, n); });
    else if (feature.update && pixels.indices)
        feature.update(state, pixels.indices, pixels.count);
    else if (feature.update && pixels.pairs)
        as_indices(pixels, [&](const uint32_t *p, uint32_t n) { feature.update(state, p, n); });
}

void update_states(const KipxWTSLSC &context, KipxWTSregion *region, const Pixels &pixels) {
    add_area(region, pixels.count);
    for (int32_t f = 0; f < context.count; ++f)
        update_state(context.descriptors[f], state_of(context.descriptors[f], region), pixels);
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
    KipxST *tree = __KipxSTBtree(builder);
    if (output) *output = tree;
    return 0;
}

KipxWTSregion *region_behind(KipxSTB *builder, KipxWTSLSC *context, size_t room) {
    int32_t record_size = KipxWTSLSCfixup(context);
    if (record_size < 0) return nullptr;
    auto *block =
        static_cast<char *>(builder_alloc(builder, room + static_cast<size_t>(record_size), 0));
    if (!block) return nullptr;
    auto *region = reinterpret_cast<KipxWTSregion *>(block + room);
    init_states(*context, region);
    return region;
}

KipxWTSregion *new_region(void *, KipxSTB *builder, KipxWTSLSC *context, void *) {
    KipxWTSregion *region = region_behind(builder, context, sizeof(KipxSTnode));
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
    update_states(*context, region, {nullptr, pixels, count, width_of(*context)});
}

void update2D_any(KipxSTB *, KipxWTSLSC *context, KipxWTSregion *region, const uint32_t *pairs,
                  uint32_t count) {
    update_states(*context, region, {pairs, nullptr, count, width_of(*context)});
}

void update_moments(KipxSTB *, KipxWTSLSC *context, KipxWTSregion *region, const uint32_t *pixels,
                    uint32_t count) {
    add_area(region, count);
    auto *state = static_cast<KipxWTSMF *>(state_of(context->descriptors[0], region));
    Pixels all{nullptr, pixels, count, width_of(*context)};
    if (all.width)
        as_pairs(all, [&](const uint32_t *p, uint32_t n) { KipxWTSMF_update2D_n(state, p, n); });
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
    for (int32_t f = 0; f < context->count; ++f) {
        const KipxWTSFDs &feature = context->descriptors[f];
        if (feature.merge) feature.merge(state_of(feature, parent), state_of(feature, child));
    }
    merge_links(builder, context, parent, child);
}

} // namespace kipx
