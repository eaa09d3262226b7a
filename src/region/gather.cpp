// region/gather.cpp - completing feature states.
//
// A region's own state is combined with those below it in pre-order; a complete state stands for
// the whole subtree and is not looked into. As a region comes before what is nested in it, in this
// order, the pixels of a nested region are one run of the list, and it does not matter which nested
// states were complete before.
//
// A list is worked off inside out whatever its order: the listed regions are marked, and the walk
// below a region completes marked ones when it leaves them. Complete regions are not entered again,
// so that a node is passed once by this walk and once while its nearest listed ancestor is
// combined.
#include "region/gather.h"

#include <kipx/types.h>

#include "region/chain.h"
#include "region/pixels.h"

namespace kipx {

namespace {

constexpr uint32_t listed = UINT32_C(1) << 31;
constexpr uint32_t batch = 64; // pixels fetched at a time

bool can_gather(const KipxWTSFDs &feature) {
    return feature.isgathered && feature.ongather && (feature.lazymerge || feature.merge);
}

bool lists_pixels(const KipxWTSFDs &feature) {
    return feature.magic == KIPX_WTSPF_MAGIC && feature.ongather == __KipxWTSPF__ongather__;
}

bool complete(const KipxWTSFDs &feature, const KipxWTSregion *region) {
    return feature.isgathered(state_of(feature, region)) != 0;
}

KipxWTSregion *region_of(const KipxSTnode *node) {
    return static_cast<KipxWTSregion *>(node->data);
}

// A pixel list needs room for the whole region before anything is put into it.
bool make_room(const KipxWTSFDs &feature, const KipxWTSregion *region) {
    if (!lists_pixels(feature)) return true;
    const int32_t area = region->area;
    return reserve_pixels(*static_cast<KipxWTSPF *>(state_of(feature, region)),
                          area > 0 ? static_cast<uint64_t>(area) : 0);
}

// False for a pixel list that lacks pixels which could not be had when they arrived.
bool holds_all(const KipxWTSFDs &feature, const KipxWTSregion *region) {
    if (!lists_pixels(feature)) return true;
    const auto *state = static_cast<const KipxWTSPF *>(state_of(feature, region));
    return state->count == static_cast<uint64_t>(region->area);
}

struct Combination {
    const KipxWTSFDs &feature;
    KipxWTSregion *into;
};

int32_t combine(KipxSTnode *node, void *arg, int32_t) {
    const auto &[feature, into] = *static_cast<Combination *>(arg);
    const KipxWTSregion *const region = region_of(node);
    if (!region || region == into) return 1;
    const bool whole = complete(feature, region);
    (feature.lazymerge ? feature.lazymerge : feature.merge)(state_of(feature, into),
                                                            state_of(feature, region));
    return whole ? -1 : 1;
}

int32_t gather_region(const KipxWTSFDs &feature, KipxWTSregion *region) {
    if (!complete(feature, region)) {
        if (!make_room(feature, region)) return KIPX_ENOMEM;
        Combination combination = {feature, region};
        KipxAGTwalkFromNode(region->node, KIPX_PREORDER, combine, &combination);
        feature.ongather(state_of(feature, region), region);
    }
    return holds_all(feature, region) ? 0 : KIPX_ENOMEM;
}

// The first node to be left below node: complete regions are not entered.
KipxSTnode *innermost(const KipxWTSFDs &feature, KipxSTnode *node) {
    while (node->child && !(region_of(node) && complete(feature, region_of(node))))
        node = node->child;
    return node;
}

int32_t gather_marked(const KipxWTSFDs &feature, KipxWTSregion *top) {
    int32_t status = 0;
    KipxSTnode *const start = top->node;
    KipxSTnode *node = start ? innermost(feature, start) : nullptr;
    while (node) {
        KipxWTSregion *const region = region_of(node);
        if (region && (region->kept & listed)) {
            region->kept &= ~listed;
            const int32_t result = gather_region(feature, region);
            if (result) status = result;
        }
        if (node == start) break;
        node = node->next ? innermost(feature, node->next) : node->parent;
    }
    if (top->kept & listed) { // no node leads to it
        top->kept &= ~listed;
        status = gather_region(feature, top);
    }
    return status;
}

bool usable(const KipxWTSLSC &context, KipxWTSregion *const *regions, uint64_t count) {
    if ((context.count > 0 && !context.descriptors) || (count && !regions)) return false;
    for (uint64_t i = 0; i < count; i++)
        if (!regions[i]) return false;
    return true;
}

void fetch_into(const KipxWTSFDs &feature, KipxWTSregion *region, const PixelSource &source) {
    uint32_t pairs[2 * batch];
    uint64_t from = 0;
    for (uint32_t got = batch; got == batch; from += got) {
        got = source.fetch(source.arg, region, from, pairs, batch);
        if (got) feature.update2D(state_of(feature, region), pairs, got);
    }
    feature.ongather(state_of(feature, region), region);
}

} // namespace

int32_t gather_nested(const KipxWTSLSC &context, KipxWTSregion *const *regions, uint64_t count) {
    if (!usable(context, regions, count)) return KIPX_EINVAL;
    int32_t status = 0;
    for (int32_t f = 0; f < context.count; f++) {
        const KipxWTSFDs &feature = context.descriptors[f];
        if (!can_gather(feature)) continue;
        for (uint64_t i = 0; i < count; i++) regions[i]->kept |= listed;
        for (uint64_t i = 0; i < count; i++) {
            if (!(regions[i]->kept & listed)) continue;
            const int32_t result = gather_marked(feature, regions[i]);
            if (result) status = result;
        }
    }
    return status;
}

int32_t gather_fetched(const KipxWTSLSC &context, KipxWTSregion *const *regions, uint64_t count,
                       const PixelSource &source) {
    if (!usable(context, regions, count)) return KIPX_EINVAL;
    int32_t status = 0;
    for (int32_t f = 0; f < context.count; f++) {
        const KipxWTSFDs &feature = context.descriptors[f];
        if (!feature.isgathered || !feature.ongather || !feature.update2D) continue;
        for (uint64_t i = 0; i < count; i++) {
            KipxWTSregion *const region = regions[i];
            if (!complete(feature, region)) {
                if (make_room(feature, region)) fetch_into(feature, region, source);
            }
            if (!holds_all(feature, region)) status = KIPX_ENOMEM;
        }
    }
    return status;
}

} // namespace kipx

int32_t KipxGatherMSERFeatures(KipxSTB *builder, KipxWTSregion *region) {
    return KipxGatherMSERsFeatures(builder, &region, 1);
}

int32_t KipxGatherMSERsFeatures(KipxSTB *builder, KipxWTSregion *const *regions, uint64_t count) {
    if (!builder || !builder->specialisation || (count && !regions)) return KIPX_EINVAL;
    const KipxWTSIF *const record = kipx::wtsl_of(builder);
    if (!record || !record->gather) return KIPX_EINVAL;
    return record->gather(builder, static_cast<KipxWTSLSC *>(builder->specialisation), regions,
                          count);
}

int32_t KipxMSERgatherFeatures(const KipxWTSLSC *context, KipxWTSregion *region) {
    if (!context || !region) return KIPX_EINVAL;
    return kipx::gather_nested(*context, &region, 1);
}
