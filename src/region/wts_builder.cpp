// region/wts_builder.cpp - the watershed region-tree builder: its four chains, and how a flood
// chooses among them.
#include <string.h>

#include <kipx/types.h>

#include "region/builder.h"
#include "region/chain.h"
#include "region/gather.h"
#include "region/states.h"
#include "region/wts_regions.h"

namespace kipx {

namespace {

struct Chain {
    KipxSTBIF stbl;
    KipxWTSIF wtsl;
    KipxIFrecord end;
};

// The builder's copy of the context, once it has been configured.
KipxWTSLSC *context_of(const KipxSTB *builder) {
    return static_cast<KipxWTSLSC *>(builder->specialisation);
}

// Of an empty tree the descriptors are not asked for: they may be gone.
KipxAGTvisitor get_disposer(KipxSTB *builder) {
    if (!builder->tree || !builder->tree->root) return nullptr;
    const KipxWTSLSC *context = context_of(builder);
    return context && has_destroy(*context) ? __KipxWTSTBdisposergn : nullptr;
}

void on_attach(KipxSTB *, const KipxSTBIF *) {}
void on_detach(KipxSTB *, const KipxSTBIF *, KipxST *) {}

int32_t configure(KipxSTB *builder, KipxWTSLSC *context, uint64_t flags, const void *feature_part);
int32_t gather(KipxSTB *builder, KipxWTSLSC *context, KipxWTSregion *const *regions,
               uint64_t count);

constexpr Chain chain_with(KipxWTSupdate update, KipxWTSupdate update2D, KipxWTSmerge merge) {
    return {{KIPX_TAG_STBL, sizeof(KipxSTBIF), get_disposer, on_attach, on_detach},
            {KIPX_TAG_WTSL, sizeof(KipxWTSIF), allocate, configure, finish, new_region,
             destroy_features, dispose, update, update2D, merge, gather},
            {0, 0}};
}

constexpr Chain general_chain = chain_with(update_any, update2D_any, merge_states);
constexpr Chain default_chain = chain_with(update_any, update2D_any, merge_links);
constexpr Chain moment_chain = chain_with(update_moments, update2D_moments, merge_links);
constexpr Chain pixel_chain = chain_with(update_area, update_area, merge_links);

const Chain *choose_chain(const KipxWTSLSC &context, uint64_t flags) {
    if (flags & KIPX_FLAG_GENERAL_BUILDER) return &general_chain;
    if ((flags & KIPX_FLAG_FAST) && context.count == 1) {
        uint32_t magic = context.descriptors[0].magic;
        if (magic == KIPX_WTSMF_MAGIC) return &moment_chain;
        if (magic == KIPX_WTSPF_MAGIC) return &pixel_chain;
    }
    return &default_chain;
}

int32_t configure(KipxSTB *builder, KipxWTSLSC *context, uint64_t flags, const void *) {
    if (!builder || !context || builder->extsize < KIPX_WTSTB_EXTSIZE) return KIPX_EINVAL;
    if (context->count > 0 && !context->descriptors) return KIPX_EINVAL;
    // The regions of an earlier flood go while their own features are still known.
    if (builder->tree && builder->tree->builder == builder && builder->tree->root)
        KipxSTBclear(builder, 1);
    // A set that cannot be laid out shows when the first region is wanted.
    KipxWTSLSCfixup(context);
    void *copy = builder + 1;
    memmove(copy, context, sizeof(KipxWTSLSC));
    builder->specialisation = copy;
    builder->interface_chain = choose_chain(*context, flags);
    return 0;
}

int32_t gather(KipxSTB *builder, KipxWTSLSC *context, KipxWTSregion *const *regions,
               uint64_t count) {
    // The states of this chain never saw a pixel.
    if (builder->interface_chain == &pixel_chain) return KIPX_EINVAL;
    return gather_nested(*context, regions, count);
}

} // namespace

bool only_counts(const KipxSTB *builder, const KipxWTSLSC &context) {
    const KipxWTSIF *ops = wtsl_of(builder);
    return ops && ops->configure == configure && context.count <= 0;
}

} // namespace kipx

KipxSTB *KipxWTSTBinit(KipxSTB *builder, KipxST *tree, ZuSMEMSTG *storage, ZuSMEMSTG *parent) {
    return KipxSTBinit(builder, &kipx::default_chain, KIPX_WTSTB_EXTSIZE, tree, storage, parent);
}

KipxSTB *KipxWTSTBopen(KipxSTB *builder, KipxST *tree, ZuSMEMSTG *storage, ZuSMEMSTG *parent) {
    return KipxSTBopen(builder, &kipx::default_chain, KIPX_WTSTB_EXTSIZE, tree, storage, parent);
}

const void *KipxWTSTBxinterface(void) { return &kipx::default_chain; }

void __KipxWTSTBinit__(void *record) {
    if (record) *static_cast<const void **>(record) = &kipx::default_chain;
}

KipxWTSregion *__KipxWTSTBnewregion(void *, KipxSTB *builder, KipxWTSLSC *context) {
    return kipx::new_region(nullptr, builder, context, nullptr);
}

KipxSTnode *__KipxWTSTBnewnodeWithRegion(KipxSTB *builder, KipxWTSregion *region) {
    return region ? KipxDGTnodeData(KipxSTBnewnode(builder), region) : nullptr;
}

KipxSTnode *__KipxWTSTBnewregionNode(void *, KipxSTB *builder, KipxWTSLSC *context) {
    // The node first: a region that then cannot be had leaves no states behind.
    KipxSTnode *node = KipxSTBnewnode(builder);
    if (!node) return nullptr;
    KipxWTSregion *region = kipx::region_behind(builder, context, 0);
    return region ? KipxDGTnodeData(node, region) : nullptr;
}

int32_t __KipxWTSTBdisposergn(KipxSTnode *node, void *arg, int32_t) {
    auto *builder = static_cast<KipxSTB *>(arg);
    const KipxWTSLSC *context = builder ? kipx::context_of(builder) : nullptr;
    if (node && node->data && context)
        kipx::destroy_states(*context, static_cast<KipxWTSregion *>(node->data));
    return 1;
}
