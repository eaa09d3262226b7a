// region/builder.cpp - the tree builder: its life, its memory, and the tree that it fills.
//
// A builder and its tree name each other. A tree that no longer names the builder (its owner made
// it anew) is not this builder's any more: it is forgotten and nothing in it is touched.
#include <string.h>

#include "region/builder.h"
#include "region/chain.h"

namespace kipx {

namespace {

KipxST *tree_of(const KipxSTB *builder) {
    KipxST *tree = builder->tree;
    return tree && tree->builder == builder ? tree : nullptr;
}

bool initialised(const KipxSTB *builder) {
    return builder && (builder->flags & KIPX_STB_INITIALISED);
}

struct Disposal {
    KipxSTB *builder;
    KipxAGTvisitor disposer;
};

int32_t dispose_node(KipxSTnode *node, void *arg, int32_t) {
    auto *disposal = static_cast<Disposal *>(arg);
    disposal->disposer(node, disposal->builder, 0);
    return 1;
}

void detach(KipxSTB *builder, const KipxSTBIF *record, KipxST *tree) {
    if (record && record->ondetach) record->ondetach(builder, record, tree);
    tree->builder = nullptr;
    builder->tree = nullptr;
}

// Disposes of all nodes; the storage is the caller's to roll back.
void empty(KipxSTB *builder, bool keep) {
    KipxST *tree = tree_of(builder);
    if (!tree) {
        builder->tree = nullptr;
        return;
    }
    const KipxSTBIF *record = stbl_of(builder);
    if (record && record->getdisposer) {
        Disposal disposal = {builder, record->getdisposer(builder)};
        if (disposal.disposer) KipxAGTwalk(tree, KIPX_POSTORDER, dispose_node, &disposal);
    }
    if (tree->onclear) tree->onclear(tree, builder);
    tree->root = nullptr;
    if (!keep) detach(builder, record, tree);
}

void attach(KipxSTB *builder, KipxST *tree) {
    if (tree->builder && tree->builder != builder) KipxSTBclear(tree->builder, 0);
    builder->tree = tree;
    tree->builder = builder;
    const KipxSTBIF *record = stbl_of(builder);
    if (record && record->onattach) record->onattach(builder, record);
    if (tree->onattach) tree->onattach(tree, builder);
}

// Ends a tree that is empty and names no builder any more.
void discard(KipxST *tree) {
    if (tree->dealloc) tree->dealloc(tree);
}

ZuSMEMSTG *open_storage(void *header, ZuSMEMSTG *parent) {
    return ZuSMEMSTGopen(header, reinterpret_cast<uintptr_t>(parent), 0);
}

} // namespace

ZuSMEMSTG *builder_storage(KipxSTB *builder) {
    if (!builder->storage) {
        builder->storage = open_storage(&builder->embedded_storage, builder->parent);
        if (builder->storage) ZuSMEMSTGgetstate(&builder->saved, builder->storage);
    }
    return builder->storage;
}

void *builder_alloc(KipxSTB *builder, size_t size, size_t alignment) {
    ZuSMEMSTG *storage = initialised(builder) ? builder_storage(builder) : nullptr;
    if (!storage) return nullptr;
    void *block = ZuSMEMSTGaalloc(storage, size, alignment ? alignment : 16, 0);
    return block ? memset(block, 0, size) : nullptr;
}

} // namespace kipx

KipxSTB *KipxSTBinit(KipxSTB *builder, const void *chain, uint32_t extsize, KipxST *tree,
                     ZuSMEMSTG *storage, ZuSMEMSTG *parent) {
    if (kipx::initialised(builder)) return builder;
    if (!builder || extsize > UINT16_MAX) return nullptr;
    if (tree && tree->builder == builder) tree->builder = nullptr;
    builder->interface_chain = chain;
    builder->specialisation = nullptr;
    builder->extsize = static_cast<uint16_t>(extsize);
    builder->parent = parent;
    builder->tree = nullptr;
    builder->storage = storage == &builder->embedded_storage ? nullptr : storage;
    if (builder->storage) ZuSMEMSTGgetstate(&builder->saved, builder->storage);
    builder->embedded_tree = {};
    builder->flags = KIPX_STB_INITIALISED;
    if (tree && tree != &builder->embedded_tree) kipx::attach(builder, tree);
    return builder;
}

KipxSTB *KipxSTBopen(KipxSTB *builder, const void *chain, uint32_t extsize, KipxST *tree,
                     ZuSMEMSTG *storage, ZuSMEMSTG *parent) {
    if (extsize > UINT16_MAX) return nullptr;
    size_t size = sizeof(KipxSTB) + extsize;
    uint16_t origin = 0;
    if (!builder) {
        if (!storage) {
            storage = kipx::open_storage(nullptr, parent);
            if (!storage) return nullptr;
            origin = KIPX_STB_OWN_STORAGE;
        }
        builder = static_cast<KipxSTB *>(ZuSMEMSTGaalloc(storage, size, 8, 0));
        if (!builder) {
            if (origin) ZuMEMSTGclose(storage);
            return nullptr;
        }
        origin |= KIPX_STB_FROM_STORAGE;
    }
    memset(static_cast<void *>(builder), 0, size);
    KipxSTBinit(builder, chain, extsize, tree, storage, parent);
    builder->flags |= origin;
    return builder;
}

void KipxSTBclose(KipxSTB *builder, int32_t flag) {
    if (!builder) return;
    // The builder may lie in the storage that is closed here.
    uint16_t flags = builder->flags;
    KipxSTBfini(builder, flag);
    if (!(flags & KIPX_STB_FROM_STORAGE)) return;
    ZuSMEMSTG *storage = builder->storage;
    if (flags & KIPX_STB_OWN_STORAGE)
        ZuMEMSTGclose(storage);
    else
        ZuSMEMSTGfree(storage, builder);
}

KipxSTB *KipxSTBfini(KipxSTB *builder, int32_t flag) {
    if (!kipx::initialised(builder)) return builder;
    KipxST *tree = kipx::tree_of(builder);
    kipx::empty(builder, false);
    if (!flag && tree && tree != &builder->embedded_tree) kipx::discard(tree);
    if (builder->storage == &builder->embedded_storage) {
        ZuMEMSTGdestroy(builder->storage);
        builder->storage = nullptr;
    } else if (builder->storage) {
        ZuSMEMSTGsetstate(builder->storage, &builder->saved);
    }
    builder->flags &= static_cast<uint16_t>(~KIPX_STB_INITIALISED);
    builder->parent = nullptr;
    return builder;
}

KipxSTB *KipxSTBclear(KipxSTB *builder, int32_t keep) {
    if (!kipx::initialised(builder)) return builder;
    kipx::empty(builder, keep != 0);
    if (builder->storage) ZuSMEMSTGsetstate(builder->storage, &builder->saved);
    return builder;
}

KipxSTB *KipxSTBxtrntree(KipxSTB *builder, KipxST *tree) {
    if (!kipx::initialised(builder)) return nullptr;
    if (!tree) return KipxSTBclear(builder, 0);
    if (kipx::tree_of(builder) == tree) return builder;
    if (tree == &builder->embedded_tree) return nullptr;
    KipxSTBclear(builder, 0);
    kipx::attach(builder, tree);
    return builder;
}

KipxST *__KipxSTBtree(KipxSTB *builder) {
    if (!kipx::initialised(builder)) return nullptr;
    if (!kipx::tree_of(builder)) kipx::attach(builder, &builder->embedded_tree);
    return builder->tree;
}

KipxST *__KipxSTBrootnode(KipxSTB *builder, KipxSTnode *node) {
    KipxST *tree = __KipxSTBtree(builder);
    if (tree) tree->root = node;
    return tree;
}

KipxSTnode *KipxSTBnewnode(KipxSTB *builder) {
    return static_cast<KipxSTnode *>(kipx::builder_alloc(builder, sizeof(KipxSTnode), 8));
}
