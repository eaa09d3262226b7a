// region/tree.cpp - the tree record: what the caller holds, and how it parts from its builder.
#include <stdlib.h>

#include <kipx/tree.h>

KipxST *KipxSTinit(KipxST *tree, KipxSTB *builder) {
    if (!tree) return nullptr;
    tree->root = nullptr;
    tree->builder = nullptr;
    return builder ? __KipxST_setbuilder(tree, builder) : tree;
}

KipxST *KipxSTopen(KipxST *tree, KipxSTB *builder) {
    if (tree) return KipxSTinit(tree, builder);
    if (builder) {
        KipxSTBclear(builder, 0);
        return __KipxSTBtree(builder);
    }
    tree = static_cast<KipxST *>(malloc(sizeof(KipxST)));
    if (!tree) return nullptr;
    tree->onattach = nullptr;
    tree->onclear = nullptr;
    tree->dealloc = free;
    return KipxSTinit(tree, nullptr);
}

void KipxSTclose(KipxST *tree, int32_t keep) {
    if (!tree) return;
    void (*dealloc)(void *) = tree->dealloc;
    if (KipxSTfini(tree, keep) && dealloc) dealloc(tree);
}

KipxST *KipxSTfini(KipxST *tree, int32_t keep) {
    if (!tree) return nullptr;
    KipxSTB *builder = tree->builder;
    if (!builder) {
        tree->root = nullptr;
        return tree;
    }
    // Asked first: closing the builder may release an embedded tree.
    bool embedded = tree == &builder->embedded_tree;
    if (keep)
        KipxSTBxtrntree(builder, nullptr);
    else
        KipxSTBclose(builder, 1);
    if (embedded) return nullptr;
    tree->root = nullptr;
    tree->builder = nullptr;
    return tree;
}

KipxST *KipxSTclear(KipxST *tree, int32_t detach) {
    if (!tree || !tree->builder) return tree;
    return KipxSTBclear(tree->builder, detach ? 0 : 1) ? tree : nullptr;
}

KipxST *KipxSTsetbuilder(KipxST *tree, KipxSTB *builder) {
    if (!tree) return nullptr;
    if (builder) return __KipxST_setbuilder(tree, builder);
    if (tree->builder) KipxSTBxtrntree(tree->builder, nullptr);
    return tree;
}

KipxST *__KipxST_setbuilder(KipxST *tree, KipxSTB *builder) {
    return tree && KipxSTBxtrntree(builder, tree) ? tree : nullptr;
}
