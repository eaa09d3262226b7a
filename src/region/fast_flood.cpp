// region/fast_flood.cpp - the two ways of the fast flood, and the one as a single block.
#include "region/fast_flood.h"

#include <kipx/types.h>

#include "region/block_flood.h"
#include "region/store_sink.h"
#include "region/tiles.h"

namespace kipx {
namespace {

// A larger image is flooded in tiles: its cells and boundary would leave the caches.
constexpr uint64_t most_in_one_block = uint64_t{1} << 22;

// A busy image's queues are read all over; one that is larger does better with stacks.
constexpr uint64_t most_queued_busy = uint64_t{1} << 19;

uint64_t block_scratch_size(const FloodImage &image) {
    uint64_t cell = image.mask.at ? sizeof(uint16_t) : sizeof(uint8_t);
    return cells_size(image.height, image.width + 1, cell) + pit_line_size(image.width) +
           queue_slots(image.pixels()) * sizeof(uint32_t) + 64;
}

// What it is made of is taken in this order from a scratch of that size.
template<class Cell> class OneBlock {
public:
    OneBlock(const FloodImage &image, Manner manner, Set set, FastScratch &scratch)
        : image_(image), manner_(manner), set_(set), stride_(image.width + 1),
          line_(scratch.take<uint8_t>(pit_line_size(image.width))),
          cells_{first_cell<Cell>(scratch.take(cells_size(image.height, stride_, sizeof(Cell))),
                                  stride_),
                 image.height, image.width, stride_},
          queue_(scratch.take<uint32_t>(queue_slots(image.pixels()))) {}
    bool flood(KipxFWTSRES *store);

private:
    uint64_t next_seed(uint64_t from) const {
        return next_pixel(image_, from, [this](uint32_t y, uint32_t x) {
            return cells_.at[uint64_t{y} * stride_ + x] != reached<Cell>;
        });
    }

    const FloodImage &image_;
    Manner manner_;
    Set set_;
    uint32_t stride_;
    uint8_t *line_;
    Block<Cell> cells_;
    uint32_t *queue_;
};

template<class Cell> bool OneBlock<Cell>::flood(KipxFWTSRES *store) {
    CellCounts counts;
    fill_cells(cells_, image_, 0, 0);
    if constexpr (sizeof(Cell) == 1)
        if (manner_ == Manner::queues && !image_.eight) raise_pits(cells_, set_, line_);
    close_borders(cells_, counts);
    // Cells of one byte take the pixels of level 255 for walls. They part the rest of the image as a
    // mask does, and all of it meets again at their level, in the root: an image without a mask
    // loses nothing by it.
    uint64_t away = counts.of[reached<Cell>], flooded = image_.pixels() - away;
    uint64_t walls = sizeof(Cell) == 1 ? away : 0;
    StoreSink sink(image_.width, store);
    BlockFlood flood(cells_, counts, manner_, queue_, store->pixels, sink);
    uint64_t seed = uint64_t{image_.seed_row} * image_.width + image_.seed_column;
    auto cell_of = [&](uint64_t pixel) {
        return static_cast<uint32_t>(pixel / image_.width * stride_ + pixel % image_.width);
    };
    uint32_t label = cell_of(seed);
    bool several = walls > 0;
    uint64_t at = 0;
    if (flooded > 0 && cells_.at[label] == reached<Cell>) seed = at = next_seed(0);
    while (flood.done() < flooded) {
        if (!flood.flood(cell_of(seed), image_.eight)) return false;
        several |= flood.done() < flooded;
        if (!flood.end(!several)) return false;
        if (flood.done() < flooded) seed = at = next_seed(at);
    }
    if (several) {
        if (walls > 0)
            number_walls(image_, {0, 0, image_.height, image_.width}, stride_,
                         store->pixels + flooded);
        uint32_t highest = level_count - 1;
        while (walls == 0 && counts.of[highest] == 0) --highest;
        uint32_t total = static_cast<uint32_t>(flooded + walls);
        if (!sink.close(highest, 0, total, label)) return false;
    }
    __KipxSTBrootnode(&store->builder, sink.root());
    return true;
}

} // namespace

int32_t FastFlood::open(KipxXE *xe, uint64_t flags, const FloodImage &image) {
    set_ = active_set(flags);
    Look look = look_of(image, {0, 0, image.height, image.width});
    in_tiles_ = look != Look::flat && image.pixels() > most_in_one_block;
    manner_ = Manner::queues;
    if (look == Look::flat) manner_ = Manner::runs;
    if (look == Look::busy && image.pixels() > most_queued_busy) manner_ = Manner::stacks;
    uint64_t size = in_tiles_ ? tiles_scratch_size(image) : block_scratch_size(image);
    return scratch_.open(xe, size) ? 0 : KIPX_ENOMEM;
}

int32_t FastFlood::run(const FloodImage &image, const KipxWTSLSC &levelset, KipxFWTSRES *store) {
    if (int32_t code = fast_store_prepare(store, levelset); code < 0) return code;
    bool complete = false;
    if (in_tiles_) {
        StoreSink sink(image.width, store);
        complete = flood_in_tiles(image, largest_tile, set_, scratch_, store->pixels, sink);
        if (complete) __KipxSTBrootnode(&store->builder, sink.root());
    } else if (image.mask.at) {
        complete = OneBlock<uint16_t>(image, manner_, set_, scratch_).flood(store);
    } else {
        complete = OneBlock<uint8_t>(image, manner_, set_, scratch_).flood(store);
    }
    scratch_.rewind();
    if (!complete) fast_store_forget(store);
    return complete ? 0 : KIPX_ENOMEM;
}

} // namespace kipx
