// region/tree_sink.h - components as the nodes of a tree.
//
// Gives    a sink that has a region made of every component it is told of, and links its node.
// Promises children's lists are newest first.
// Owner    the regions are theirs who make them.
#pragma once

#include "region/components.h"
#include "region/fast_store.h"
#include "region/wts_regions.h"

namespace kipx {

// Make: KipxWTSregion *(uint32_t start), a region behind its node for the component whose run starts
// there; null when there is no memory.
template<class Make> class TreeSink final : public ComponentSink {
public:
    // Components come with pixels as row * (width + 1) + column.
    TreeSink(uint32_t width, Make make) : make_(make), stride_(width + 1) {}
    bool keeps(uint32_t start, uint32_t end) const { return end - start >= smallest_region; }
    bool close(uint32_t level, uint32_t start, uint32_t end, uint32_t pixel) override {
        KipxWTSregion *made = make_(start);
        if (!made) return false;
        made->pixel = pixel - pixel / stride_; // a row's border cells are not counted
        made->level = static_cast<int32_t>(level);
        made->area = static_cast<int32_t>(end - start);
        // What lies in its run is newest on the list of nodes without parent.
        KipxSTnode *inner = newest_, *last = nullptr;
        for (; newest_ && start_of(newest_) >= start; newest_ = newest_->next) {
            newest_->parent = made->node;
            last = newest_;
        }
        if (last) {
            last->next = nullptr;
            made->node->child = inner;
        }
        made->node->next = newest_;
        newest_ = made->node;
        newest_->parent = reinterpret_cast<KipxSTnode *>(uintptr_t{start});
        return true;
    }
    // The outermost node, once it holds all others.
    KipxSTnode *root() {
        if (newest_) newest_->parent = nullptr;
        return newest_;
    }

private:
    // As long as a node has no parent, it has where its run starts in the parent's place.
    static uint32_t start_of(const KipxSTnode *node) {
        return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(node->parent));
    }
    Make make_;
    uint32_t stride_;
    KipxSTnode *newest_ = nullptr;
};

// Nodes of a fast result store, which come in post-order.
struct MakeInStore {
    KipxFWTSRES *store;
    KipxWTSregion *operator()(uint32_t start) const {
        KipxFWTSRESnode *made = fast_store_take(store);
        if (!made) return nullptr;
        made->start = start;
        return &made->region;
    }
};
// Regions of a builder of ours.
struct MakeInBuilder {
    KipxSTB *builder;
    KipxWTSLSC *levelset;
    KipxWTSregion *operator()(uint32_t) const {
        return new_region(nullptr, builder, levelset, nullptr);
    }
};

} // namespace kipx
