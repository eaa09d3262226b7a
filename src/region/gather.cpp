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
#include "region/states.h"

namespace kipx {

namespace {

constexpr uint32_t listed = UINT32_C(1) << 31;

KipxWTSregion *region_of(const KipxSTnode *node) {
    return static_cast<KipxWTSregion *>(node->data);
}

struct Combination {
    const KipxWTSFDs &feature;
    KipxWTSregion *into;
};

int32_t combine(KipxSTnode *node, void *arg, int32_t) {
    const auto &[feature, into] = *static_cast<Combination *>(arg);
    const KipxWTSregion *region = region_of(node);
    if (!region || region == into) return 1;
    bool whole = complete(feature, region);
    absorb(feature, into, region);
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
    KipxSTnode *start = top->node;
    KipxSTnode *node = start ? innermost(feature, start) : nullptr;
    while (node) {
        KipxWTSregion *region = region_of(node);
        if (region && (region->kept & listed)) {
            region->kept &= ~listed;
            int32_t result = gather_region(feature, region);
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
    for (uint64_t i = 0; i < count; ++i)
        if (!regions[i]) return false;
    return true;
}

} // namespace

int32_t gather_nested(const KipxWTSLSC &context, KipxWTSregion *const *regions, uint64_t count) {
    if (!usable(context, regions, count)) return KIPX_EINVAL;
    int32_t status = 0;
    for (int32_t f = 0; f < context.count; ++f) {
        const KipxWTSFDs &feature = context.descriptors[f];
        if (!can_gather(feature)) continue;
        for (uint64_t i = 0; i < count; ++i) regions[i]->kept |= listed;
        for (uint64_t i = 0; i < count; ++i) {
            if (!(regions[i]->kept & listed)) continue;
            int32_t result = gather_marked(feature, regions[i]);
            if (result) status = result;
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
    const KipxWTSIF *record = kipx::wtsl_of(builder);
    if (!record || !record->gather) return KIPX_EINVAL;
    return record->gather(builder, static_cast<KipxWTSLSC *>(builder->specialisation), regions,
                          count);
}

int32_t KipxMSERgatherFeatures(const KipxWTSLSC *context, KipxWTSregion *region) {
    if (!context || !region) return KIPX_EINVAL;
    return kipx::gather_nested(*context, &region, 1);
}
