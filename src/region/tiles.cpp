// region/tiles.cpp - tiles to one tree and one order of pixels.
#include "region/tiles.h"

#include <algorithm>

#include "region/seams.h"

namespace kipx {
namespace {

class TiledFlood {
public:
    TiledFlood(const FloodImage &image, TileSize size, FastScratch &scratch)
        : image_(image), size_(size), scratch_(scratch),
          rows_((image.height + size.height - 1) / size.height),
          columns_((image.width + size.width - 1) / size.width),
          tiles_(scratch.take<TileTree>(uint64_t{rows_} * columns_)), forest_(tiles_) {}
    bool make_trees(Set set);
    void join_trees();
    bool tell(ComponentSink &sink);
    void put_in_order(uint32_t *order);

private:
    using Node = Forest::Node;
    TilePlace place(uint32_t row, uint32_t column) const;
    void hang();
    bool leave(Node n, ComponentSink &sink);
    bool walk(Node top, ComponentSink &sink);
    Node holder(Node n) const;
    void put_tile(uint32_t tile, uint32_t *order, uint32_t *&rest);
    uint32_t number_of(uint32_t tile, uint32_t pixel) const {
        const TilePlace &p = tiles_[tile].place;
        return (p.top + pixel / tile_stride) * (image_.width + 1) + p.left + pixel % tile_stride;
    }

    const FloodImage &image_;
    const TileSize size_;
    FastScratch &scratch_;
    const uint32_t rows_, columns_;
    TileTree *const tiles_;
    Forest forest_;
    uint32_t pixels_ = 0;      // in the trees' orders
    uint32_t walls_ = 0;       // see cells.h
    uint32_t highest_ = 0;     // level of all these
    uint32_t held_ = 0;        // pixels that are in some node
    Node tops_ = Forest::none; // chiefs without parent, as siblings
    uint32_t placed_ = 0;      // pixels whose place in the order has been given away
    bool several_ = false;     // the root is one component more
};

TilePlace TiledFlood::place(uint32_t row, uint32_t column) const {
    TilePlace p;
    p.top = row * size_.height;
    p.left = column * size_.width;
    p.height = std::min(size_.height, image_.height - p.top);
    p.width = std::min(size_.width, image_.width - p.left);
    p.above = row > 0;
    p.below = row + 1 < rows_;
    p.before = column > 0;
    p.after = column + 1 < columns_;
    return p;
}

bool TiledFlood::make_trees(Set set) {
    TileBench bench;
    if (!tiles_ || !bench.take(scratch_, image_.mask.at != nullptr)) return false;
    for (uint32_t r = 0; r < rows_; ++r)
        for (uint32_t c = 0; c < columns_; ++c) {
            TileTree &tree = tiles_[r * columns_ + c];
            TilePlace p = place(r, c);
            if (!bench.make(image_, p, set, scratch_, tree)) return false;
            pixels_ += tree.pixels;
            highest_ = std::max<uint32_t>(highest_, tree.highest);
            if (!image_.mask.at) walls_ += p.height * p.width - tree.pixels;
        }
    if (walls_ > 0) highest_ = level_count - 1;
    return true;
}

void TiledFlood::join_trees() {
    for (uint32_t r = 0; r < rows_; ++r)
        for (uint32_t c = 0; c < columns_; ++c) {
            uint32_t tile = r * columns_ + c;
            forest_.enter(tile);
            if (c > 0) forest_.join_after(tile - 1, tile, image_.eight);
            if (r == 0) continue;
            forest_.join_below(tile - columns_, tile, image_.eight);
            if (!image_.eight) continue;
            if (c > 0) forest_.join_corner(tile - columns_ - 1, tile, true);
            if (c + 1 < columns_) forest_.join_corner(tile - columns_ + 1, tile, false);
        }
}

// Children's lists of chiefs; parts give their pixels to their chief. From here on a node's parent is
// a chief: its own if it is a part, that of the component around it if it is a chief.
void TiledFlood::hang() {
    for (uint32_t t = rows_ * columns_; t-- > 0;)
        for (uint32_t i = tiles_[t].nodes; i-- > 0;) {
            Node n = t << 16 | i;
            TileNode &node = forest_.at(n);
            held_ += node.own;
            if (node.parent != Forest::none) node.parent = forest_.chief(node.parent);
            Node around = node.parent;
            if (around != Forest::none && forest_.at(around).level == node.level) {
                forest_.at(around).own += node.own;
                continue;
            }
            Node &list = around == Forest::none ? tops_ : forest_.at(around).child;
            node.sibling = list;
            list = n;
        }
}

// All children of a chief have been left. What has been left without being kept has given its pixels
// to it. A place among the children's runs having been given away as they were left, its own
// pixels come behind them.
bool TiledFlood::leave(Node n, ComponentSink &sink) {
    TileNode &node = forest_.at(n);
    Node around = node.parent;
    uint32_t start = node.child, end = placed_ + node.own; // see walk
    bool root = around == Forest::none && !several_;
    node.kept = root || end - start >= smallest_region;
    if (!node.kept) {
        if (around != Forest::none) forest_.at(around).own += node.own;
        return true;
    }
    node.child = placed_; // from now on: where its next own pixel goes
    placed_ = end;
    return sink.close(node.level, start, end, number_of(n >> 16, node.pixel));
}

// A walk along sibling and parent links. The link to a child is done with when it has been followed,
// and keeps the number of pixels placed before the component's.
bool TiledFlood::walk(Node top, ComponentSink &sink) {
    for (Node n = top;;) {
        TileNode *node = &forest_.at(n);
        Node child = node->child;
        node->child = placed_;
        if (child != Forest::none) {
            n = child;
            continue;
        }
        for (;;) {
            if (!leave(n, sink)) return false;
            if (n == top) return true;
            Node sibling = forest_.at(n).sibling;
            if (sibling != Forest::none) {
                n = sibling;
                break;
            }
            n = forest_.at(n).parent;
        }
    }
}

bool TiledFlood::tell(ComponentSink &sink) {
    hang();
    bool one = tops_ != Forest::none && forest_.at(tops_).sibling == Forest::none;
    several_ = walls_ > 0 || !one || held_ < pixels_;
    for (Node top = tops_, next; top != Forest::none; top = next) {
        next = forest_.at(top).sibling;
        if (!walk(top, sink)) return false;
    }
    uint32_t seed = image_.seed_row * (image_.width + 1) + image_.seed_column;
    return !several_ || sink.close(highest_, 0, pixels_ + walls_, seed);
}

// The smallest component around a node that has been kept, or none: then it is the root's.
TiledFlood::Node TiledFlood::holder(Node n) const {
    while (n != Forest::none && !forest_.at(n).kept) n = forest_.at(n).parent;
    return n;
}

// Gives every stretch of a tile's order that belongs to one node its place, the last ones first. The
// links to siblings are done with: here they lead from each node without parent to the one before.
void TiledFlood::put_tile(uint32_t tile, uint32_t *order, uint32_t *&rest) {
    const TileTree &tree = tiles_[tile];
    auto put = [&](uint32_t start, uint32_t end, Node holder) {
        if (start == end) return;
        uint32_t none = 0, &place = holder == Forest::none ? none : forest_.at(holder).child;
        uint32_t *to = holder == Forest::none ? rest : order + place;
        for (uint32_t i = start; i < end; ++i) *to++ = number_of(tile, tree.order[i]);
        place += end - start;
        if (holder == Forest::none) rest = to;
    };
    Node newest = Forest::none;
    auto put_around = [&](uint32_t start, uint32_t end, Node holder) {
        for (; newest != Forest::none && tree.node[newest].start >= start;
             newest = tree.node[newest].sibling) {
            put(tree.node[newest].end, end, holder);
            end = tree.node[newest].start;
        }
        put(start, end, holder);
    };
    for (uint32_t i = 0; i < tree.nodes; ++i) {
        put_around(tree.node[i].start, tree.node[i].end, holder(tile << 16 | i));
        tree.node[i].sibling = newest;
        newest = i;
    }
    put_around(0, tree.pixels, Forest::none);
}

// What no region but the root holds comes last.
void TiledFlood::put_in_order(uint32_t *order) {
    uint32_t *rest = order + placed_;
    for (uint32_t t = 0; t < rows_ * columns_; ++t) put_tile(t, order, rest);
    if (walls_ == 0) return;
    for (uint32_t t = 0; t < rows_ * columns_; ++t) {
        const TilePlace &p = tiles_[t].place;
        if (tiles_[t].pixels < p.height * p.width)
            rest = number_walls(image_, p, image_.width + 1, rest);
    }
}

} // namespace

uint64_t tiles_scratch_size(const FloodImage &image) { return 5 * image.pixels(); }

bool flood_in_tiles(const FloodImage &image, TileSize size, Set set, FastScratch &scratch,
                    uint32_t *order, ComponentSink &sink) {
    TiledFlood flood(image, size, scratch);
    if (!flood.make_trees(set)) return false;
    flood.join_trees();
    if (!flood.tell(sink)) return false;
    flood.put_in_order(order);
    return true;
}

} // namespace kipx
