// region/store_sink.h - components as nodes of a fast result store.
//
// Gives    a sink that makes a node of every component it is told of and links it.
// Promises nodes come in post-order. Children lists are newest first.
// Owner    the nodes are the store's.
#pragma once

#include <cstddef>

#include "region/components.h"
#include "region/fast_store.h"

namespace kipx {

class StoreSink final : public ComponentSink {
public:
    // Components come with pixels as row * (width + 1) + column.
    StoreSink(uint32_t width, KipxFWTSRES *store) : store_(store), stride_(width + 1) {}
    bool keeps(uint32_t start, uint32_t end) const { return end - start >= smallest_region; }
    bool close(uint32_t level, uint32_t start, uint32_t end, uint32_t pixel) override {
        KipxFWTSRESnode *made = fast_store_take(store_);
        if (!made) return false;
        made->start = start;
        made->region.pixel = pixel - pixel / stride_; // a row's border cells are not counted
        made->region.level = static_cast<int32_t>(level);
        made->region.area = static_cast<int32_t>(end - start);
        // What lies in its run is newest on the list of nodes without parent.
        KipxSTnode *inner = newest_, *last = nullptr;
        for (; newest_ && start_of(newest_) >= start; newest_ = newest_->next) {
            newest_->parent = &made->node;
            last = newest_;
        }
        if (last) {
            last->next = nullptr;
            made->node.child = inner;
        }
        made->node.next = newest_;
        newest_ = &made->node;
        return true;
    }
    // The outermost node, once it holds all others.
    KipxSTnode *root() const { return newest_; }

private:
    static uint32_t start_of(const KipxSTnode *node) {
        auto *at = reinterpret_cast<const char *>(node) - offsetof(KipxFWTSRESnode, node);
        return reinterpret_cast<const KipxFWTSRESnode *>(at)->start;
    }
    KipxFWTSRES *store_;
    uint32_t stride_;
    KipxSTnode *newest_ = nullptr;
};

} // namespace kipx
