// region/tile_tree.cpp - flooding one tile, and what its neighbours must know of it.
#include "region/tile_tree.h"

#include <cstring>

#include "region/block_flood.h"

namespace kipx {

// A component as the flood reports it.
struct TileBench::Closed {
    uint16_t start, end, pixel;
    uint8_t level;
};

namespace {

uint32_t row_of(uint32_t pixel) { return pixel / tile_stride; }
uint32_t column_of(uint32_t pixel) { return pixel % tile_stride; }

// The rows and columns of a tile that lie along seams; where there is none, a number that no row or
// column has.
struct Seams {
    static constexpr uint32_t batch = tile_slack;
    uint16_t top, bottom, left, right;
    explicit Seams(const TilePlace &p)
        : top(p.above ? 0 : none), bottom(number(p.below, p.height - 1)), left(p.before ? 0 : none),
          right(number(p.after, p.width - 1)) {}
    // Whether any of the n pixels from there on lies along a seam, n being less than a region's; as many as
    // those are read.
    bool touch(const uint16_t *pixels, uint32_t n) const {
        uint16_t any = 0;
        for (uint16_t i = 0; i < smallest_region; ++i)
            any |= static_cast<uint16_t>(along(pixels[i]) & -(i < n));
        return any != 0;
    }
    // 1 for every pixel of a batch that lies along a seam, else 0.
    void mark(const uint16_t *pixels, uint8_t marks[batch]) const {
        for (uint32_t i = 0; i < batch; ++i) marks[i] = static_cast<uint8_t>(along(pixels[i]));
    }

private:
    // 16 bits throughout, so that eight pixels and more are looked at at once.
    uint16_t along(uint16_t pixel) const {
        uint16_t y = pixel / tile_stride, x = pixel % tile_stride;
        return (y == top) | (y == bottom) | (x == left) | (x == right);
    }
    static uint16_t number(bool seam, uint32_t n) { return seam ? static_cast<uint16_t>(n) : none; }
    static constexpr uint16_t none = tile_stride;
};
static_assert(Seams::batch % 8 == 0 && Seams::batch >= smallest_region);

} // namespace

struct TileBench::Sink {
    Seams seams;
    const uint16_t *order;
    Closed *closed;
    uint32_t count = 0;
    bool keeps(uint32_t start, uint32_t end) const {
        return end - start >= smallest_region || seams.touch(order + start, end - start);
    }
    bool close(uint32_t level, uint32_t start, uint32_t end, uint32_t pixel) {
        closed[count++] = {static_cast<uint16_t>(start), static_cast<uint16_t>(end),
                           static_cast<uint16_t>(pixel), static_cast<uint8_t>(level)};
        return true;
    }
};

namespace {

uint64_t bench_cells_size(bool masked) {
    return cells_size(largest_tile.height, tile_stride, masked ? 2 : 1);
}

} // namespace

bool TileBench::take(FastScratch &scratch, bool masked) {
    cells_ = scratch.take(bench_cells_size(masked));
    line_ = scratch.take<uint8_t>(pit_line_size(largest_tile.width));
    queue_ = scratch.take<uint16_t>(queue_slots(tile_pixels));
    closed_ = scratch.take<Closed>(tile_pixels);
    return cells_ && line_ && queue_ && closed_;
}

template<class Cell>
bool TileBench::flood(const FloodImage &image, Set set, FastScratch &scratch, TileTree &tree,
                      Sink &sink) {
    const TilePlace &place = tree.place;
    Block<Cell> block{first_cell<Cell>(cells_, tile_stride), place.height, place.width,
                      tile_stride};
    CellCounts counts;
    fill_cells(block, image, place.top, place.left);
    Manner manner = look_of(image, place) == Look::flat ? Manner::runs : Manner::queues;
    if constexpr (sizeof(Cell) == 1)
        if (manner == Manner::queues && !image.eight) raise_pits(block, set, line_);
    close_borders(block, counts);
    tree.pixels = place.height * place.width - counts.of[reached<Cell>];
    tree.highest = reached<Cell> - 1;
    while (tree.highest > 0 && counts.of[tree.highest] == 0) --tree.highest;
    tree.order = scratch.take<uint16_t>(tree.pixels + tile_slack);
    if (!tree.order) return false;
    sink.order = tree.order;
    BlockFlood flood(block, counts, manner, queue_, tree.order, sink);
    for (uint32_t y = 0; flood.done() < tree.pixels; ++y)
        for (uint32_t x = 0; x < place.width; ++x)
            if (uint32_t seed = y * tile_stride + x; block.at[seed] != reached<Cell>) {
                flood.flood(seed, image.eight);
                flood.end(false);
            }
    return true;
}

// Nodes from the components, in the same order, each with its parent.
void TileBench::link(const Sink &sink, TileTree &tree) {
    uint16_t *orphans = queue_; // numbers of the nodes without parent, outermost and newest last
    uint32_t count = 0;
    for (uint32_t i = 0; i < sink.count; ++i) {
        const Closed &c = closed_[i];
        TileNode &node = tree.node[i];
        uint32_t own = uint32_t{c.end} - c.start;
        node = {no_parent, own, no_parent, no_parent, c.start, c.end, c.pixel, c.level, false};
        for (; count > 0 && tree.node[orphans[count - 1]].start >= c.start; --count) {
            TileNode &inner = tree.node[orphans[count - 1]];
            inner.parent = i;
            node.own -= uint32_t{inner.end} - inner.start;
        }
        orphans[count++] = static_cast<uint16_t>(i);
    }
}

// Finds the smallest node of every pixel along a seam. Places in the order and ends of nodes both
// rise, so that one walk serves them all: the first node that ends behind a place holds it, or the
// smallest around that node does.
void TileBench::line_up(TileTree &tree) const {
    const TilePlace &p = tree.place;
    const Seams seams(p);
    for (uint16_t &n : tree.top) n = no_node;
    for (uint16_t &n : tree.bottom) n = no_node;
    for (uint16_t &n : tree.left) n = no_node;
    for (uint16_t &n : tree.right) n = no_node;
    uint32_t first = 0; // node that may end behind the place
    for (uint32_t i = 0; i < tree.pixels; i += Seams::batch) {
        alignas(8) uint8_t marks[Seams::batch];
        seams.mark(tree.order + i, marks);
        for (uint32_t at = i; at < i + Seams::batch && at < tree.pixels; ++at) {
            uint64_t eight;
            std::memcpy(&eight, marks + (at - i) / 8 * 8, sizeof eight);
            if (eight == 0) {
                at += 7; // batches start at multiples of eight
                continue;
            }
            if (!marks[at - i]) continue;
            uint32_t pixel = tree.order[at];
            while (tree.node[first].end <= at) ++first;
            uint32_t smallest = first;
            while (tree.node[smallest].start > at) smallest = tree.node[smallest].parent;
            uint32_t y = row_of(pixel), x = column_of(pixel);
            uint16_t n = static_cast<uint16_t>(smallest);
            if (y == 0) tree.top[x] = n;
            if (y == p.height - 1) tree.bottom[x] = n;
            if (x == 0) tree.left[y] = n;
            if (x == p.width - 1) tree.right[y] = n;
        }
    }
}

bool TileBench::make(const FloodImage &image, const TilePlace &place, Set set, FastScratch &scratch,
                     TileTree &tree) {
    tree.place = place;
    Sink sink{Seams(place), nullptr, closed_};
    bool flooded = image.mask.at ? flood<uint16_t>(image, set, scratch, tree, sink)
                                 : flood<uint8_t>(image, set, scratch, tree, sink);
    if (!flooded) return false;
    tree.nodes = sink.count;
    tree.node = scratch.take<TileNode>(sink.count);
    if (!tree.node) return false;
    link(sink, tree);
    line_up(tree);
    return true;
}

} // namespace kipx
