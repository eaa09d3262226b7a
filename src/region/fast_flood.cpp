// region/fast_flood.cpp - the flood whose regions are runs of the pixel order.
#include "region/fast_flood.h"

#include <kipx/types.h>

#include "region/fast_store.h"
#include "region/level_stacks.h"

namespace kipx {
namespace {

// In a cell: done, waiting, masked out or beyond the border. Cells of one byte have no code to spare:
// there the highest level means the same.
template<class Cell> constexpr uint32_t reached = sizeof(Cell) == 1 ? level_count - 1 : level_count;
constexpr uint32_t smallest_region = 16;

// A component whose pixels are still coming in.
struct Open {
    uint32_t level;
    uint32_t start; // done pixels when it was opened
    uint32_t pixel; // where it was labelled
    KipxSTnode *children;
};

// The flood's state. open[0] lies under everything: what the parts of a masked image hang on.
// Levels fall strictly from open[1] to the top, so that there are no more of them than levels.
//
// A flood with one-byte cells takes the pixels of level 255 for walls. They part the rest of the image
// as a mask does, and all of it meets again at their level, in the root; so that an image without a
// mask loses nothing by it.
template<class Cell> class FastFlood {
public:
    FastFlood(const FloodImage &image, const FastScratch &scratch, KipxFWTSRES *store)
        : image_(image), stride_(image.width + 1),
          cells_(static_cast<Cell *>(scratch.cells) + stride_ + 1), store_(store) {
        open_[0] = {no_level, 0, 0, nullptr};
    }

    void fill_cells();
    int32_t run(const uint32_t levels[level_count], uint64_t total, uint32_t *memory);

private:
    void fill_row(uint32_t y);
    template<uint32_t edges> bool flood_part(uint32_t seed);
    uint32_t cell_of(uint64_t pixel) const {
        return static_cast<uint32_t>(pixel / image_.width * stride_ + pixel % image_.width);
    }
    void open(uint32_t level, uint32_t done, uint32_t pixel) {
        open_[++top_] = {level, done, pixel, nullptr};
    }
    bool raise(uint32_t level, uint32_t done, uint32_t pixel);
    KipxSTnode *close(const Open &component, uint32_t done);
    bool end_part(bool whole);
    void add_walls();
    uint64_t next_seed(uint64_t from) const {
        return next_pixel(image_, from, [this](uint32_t y, uint32_t x) {
            return cells_[uint64_t{y} * stride_ + x] < reached<Cell>;
        });
    }

    const FloodImage &image_;
    uint32_t stride_; // cells from row to row; the cell after a row borders the next one too
    Cell *cells_;     // of pixel (0, 0)
    KipxFWTSRES *store_;
    uint32_t done_ = 0;
    uint32_t top_ = 0;
    LevelStacks<uint32_t> boundary_;
    Open open_[level_count + 1];
};

template<class Cell> void FastFlood<Cell>::fill_row(uint32_t y) {
    Cell *cells = cells_ + uint64_t{y} * stride_;
    const uint8_t *p = image_.source.row_at(y);
    uint32_t width = image_.width, invert = image_.invert, shift = image_.shift;
    if (shift > 7) invert = 0, shift = 8;
    if (image_.source.pixel == 1)
        for (uint32_t x = 0; x < width; ++x) cells[x] = static_cast<Cell>((p[x] ^ invert) >> shift);
    else
        for (uint32_t x = 0; x < width; ++x)
            cells[x] = static_cast<Cell>((p[x * image_.source.pixel] ^ invert) >> shift);
    if (image_.mask.at)
        for (uint32_t x = 0; x < width; ++x)
            if (image_.masked_out(y, x)) cells[x] = reached<Cell>;
    cells[width] = reached<Cell>;
}

template<class Cell> void FastFlood<Cell>::fill_cells() {
    for (uint32_t i = 0; i <= stride_; ++i) *(cells_ - 1 - i) = reached<Cell>;
    for (uint32_t y = 0; y < image_.height; ++y) fill_row(y);
    Cell *below = cells_ + uint64_t{image_.height} * stride_;
    for (uint32_t x = 0; x < stride_; ++x) below[x] = reached<Cell>;
}

// Makes the node of a component that is complete. Null when there is no memory.
template<class Cell> KipxSTnode *FastFlood<Cell>::close(const Open &component, uint32_t done) {
    KipxFWTSRESnode *made = fast_store_take(store_);
    if (!made) return nullptr;
    uint32_t row = component.pixel / stride_;
    made->start = component.start;
    made->region.pixel = component.pixel - row; // the row's border cells are not counted
    made->region.level = static_cast<int32_t>(component.level);
    made->region.area = static_cast<int32_t>(done - component.start);
    made->node.child = component.children;
    for (KipxSTnode *c = component.children; c; c = c->next) c->parent = &made->node;
    return &made->node;
}

// Closes what is complete below `level`, which the next pixel has. The component on top either
// becomes one of that level, or ends in the one under it.
template<class Cell> bool FastFlood<Cell>::raise(uint32_t level, uint32_t done, uint32_t pixel) {
    do {
        Open &top = open_[top_], &second = open_[top_ - 1];
        KipxSTnode *node = nullptr;
        if (done - top.start >= smallest_region) {
            node = close(top, done);
            if (!node) return false;
        }
        if (second.level > level) {
            top = {level, top.start, pixel, node};
            return true;
        }
        if (node) {
            node->next = second.children;
            second.children = node;
        }
        --top_;
    } while (open_[top_].level < level);
    return true;
}

template<class Cell> template<uint32_t edges> bool FastFlood<Cell>::flood_part(uint32_t seed) {
    ptrdiff_t s = stride_;
    // Along the row first: what joins the boundary last is taken from it first.
    const ptrdiff_t step[8] = {1, -1, s, -s, s + 1, s - 1, 1 - s, -s - 1};
    Cell *cells = cells_;
    uint32_t *order = store_->pixels;
    uint32_t done = done_, pixel = seed, level = cells[pixel];
    cells[pixel] = reached<Cell>;
    open(level, done, pixel);
    for (;;) {
        // The lowest neighbour, the first of several; reached ones are above every level.
        uint32_t near[edges], lowest = UINT32_MAX;
        for (uint32_t e = 0; e < edges; ++e) {
            near[e] = cells[pixel + step[e]];
            uint32_t key = near[e] << 3 | e;
            lowest = key < lowest ? key : lowest;
        }
        if (lowest >> 3 < level) {
            boundary_.push(level, pixel);
            pixel += static_cast<uint32_t>(step[lowest & 7]);
            level = lowest >> 3;
            cells[pixel] = reached<Cell>;
            open(level, done, pixel);
            continue;
        }
        for (uint32_t e = edges; e-- > 0;)
            if (near[e] < reached<Cell>) {
                uint32_t next = pixel + static_cast<uint32_t>(step[e]);
                cells[next] = reached<Cell>;
                boundary_.push(near[e], next);
            }
        order[done++] = pixel;
        if (boundary_.empty(level)) {
            uint32_t next = boundary_.next_after(level);
            if (next == no_level) break;
            if (!raise(next, done, boundary_.newest(next))) return false;
            level = next;
        }
        pixel = boundary_.take(level);
    }
    done_ = done;
    return true;
}

// A part has been flooded; its outermost component is on top. It is the root if it is the whole
// image, otherwise it goes under what will be the root.
template<class Cell> bool FastFlood<Cell>::end_part(bool whole) {
    while (top_ > 0) {
        const Open &part = open_[top_];
        if (whole || done_ - part.start >= smallest_region) {
            KipxSTnode *node = close(part, done_);
            if (!node) return false;
            node->next = open_[0].children;
            open_[0].children = node;
        }
        --top_;
    }
    return true;
}

// Walls belong to the root alone. They come in raster order.
template<class Cell> void FastFlood<Cell>::add_walls() {
    for (uint32_t y = 0; y < image_.height; ++y)
        for (uint32_t x = 0; x < image_.width; ++x)
            if (image_.level_at(y, x) == reached<Cell>) store_->pixels[done_++] = y * stride_ + x;
}

template<class Cell>
int32_t FastFlood<Cell>::run(const uint32_t levels[level_count], uint64_t total, uint32_t *memory) {
    boundary_.carve(memory, levels);
    uint64_t walls = sizeof(Cell) == 1 ? levels[reached<Cell>] : 0;
    uint64_t seed = uint64_t{image_.seed_row} * image_.width + image_.seed_column, at = 0;
    open_[0].pixel = cell_of(seed);
    bool several = walls > 0;
    if (several && cells_[cell_of(seed)] == reached<Cell>) seed = at = next_seed(0);
    while (done_ + walls < total) {
        uint32_t cell = cell_of(seed);
        bool flooded = image_.eight ? flood_part<8>(cell) : flood_part<4>(cell);
        if (!flooded || !end_part(!several && done_ == total)) return KIPX_ENOMEM;
        if (done_ + walls == total) break;
        several = true;
        seed = at = next_seed(at);
    }
    KipxSTnode *root = open_[0].children;
    if (several) {
        if (walls > 0) add_walls();
        open_[0].level = level_count - 1;
        while (levels[open_[0].level] == 0) --open_[0].level;
        root = close(open_[0], done_);
        if (!root) return KIPX_ENOMEM;
    }
    __KipxSTBrootnode(&store_->builder, root);
    return 0;
}

template<class Cell>
int32_t flood_with(const FloodImage &image, const uint32_t levels[level_count], uint64_t total,
                   const FastScratch &scratch, KipxFWTSRES *store) {
    FastFlood<Cell> flood(image, scratch, store);
    flood.fill_cells();
    return flood.run(levels, total, scratch.boundary);
}

} // namespace

int32_t fast_flood(const FloodImage &image, const uint32_t values[level_count], uint64_t total,
                   const FastScratch &scratch, KipxFWTSRES *store) {
    uint32_t levels[level_count];
    values_to_levels(image, values, levels);
    auto flood = image.mask.at ? flood_with<uint16_t> : flood_with<uint8_t>;
    int32_t code = flood(image, levels, total, scratch, store);
    if (code < 0) fast_store_forget(store);
    return code;
}

} // namespace kipx
