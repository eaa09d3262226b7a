// region/one_block.h - the flood of an image as one block.
//
// Gives    the components of an image, told to a sink, and the order of its pixels; part by part where
//          a mask, or what one-byte cells take for walls, separates them.
// Promises the last component told is the one that holds every pixel.
// Costs    scratch of 4 bytes a pixel and one cell.
// Owner    scratch and order are the caller's.
#pragma once

#include "region/block_flood.h"
#include "region/fast_scratch.h"

namespace kipx {

inline uint64_t one_block_size(const FloodImage &image, uint64_t cell) {
    return cells_size(image.height, image.width + 1, cell) + pit_line_size(image.width) +
           queue_slots(image.pixels()) * sizeof(uint32_t) + 64;
}

// What it is made of is taken in this order from a scratch of that size. In a fixed order there must
// be no walls.
template<class Cell, class Rule = FreeOrder> class OneBlock {
public:
    OneBlock(const FloodImage &image, Manner manner, Set set, FastScratch &scratch)
        : image_(image), manner_(manner), set_(set), stride_(image.width + 1),
          line_(scratch.take<uint8_t>(pit_line_size(image.width))),
          cells_{first_cell<Cell>(scratch.take(cells_size(image.height, stride_, sizeof(Cell))),
                                  stride_),
                 image.height, image.width, stride_},
          queue_(scratch.take<uint32_t>(queue_slots(image.pixels()))) {}
    // False when the sink has ended it. order: room for all pixels, or null in a fixed order.
    template<class Sink> bool flood(Sink &sink, uint32_t *order);

private:
    uint64_t next_seed(uint64_t from) const {
        return next_pixel(image_, from, [this](uint32_t y, uint32_t x) {
            return cells_.at[uint64_t{y} * stride_ + x] != reached<Cell>;
        });
    }
    uint32_t cell_of(uint64_t pixel) const {
        return static_cast<uint32_t>(pixel / image_.width * stride_ + pixel % image_.width);
    }

    const FloodImage &image_;
    Manner manner_;
    Set set_;
    uint32_t stride_;
    uint8_t *line_;
    Block<Cell> cells_;
    uint32_t *queue_;
};

template<class Cell, class Rule>
template<class Sink>
bool OneBlock<Cell, Rule>::flood(Sink &sink, uint32_t *order) {
    CellCounts counts;
    fill_cells(cells_, image_, 0, 0);
    if constexpr (sizeof(Cell) == 1 && !Rule::fixed)
        if (manner_ == Manner::queues && !image_.eight) raise_pits(cells_, set_, line_);
    close_borders(cells_, counts);
    // Cells of one byte take the pixels of level 255 for walls. They part the rest of the image as a
    // mask does, and all of it meets again at their level, in the root: an image without a mask
    // loses nothing by it.
    uint64_t away = counts.of[reached<Cell>], flooded = image_.pixels() - away;
    uint64_t walls = sizeof(Cell) == 1 ? away : 0;
    BlockFlood<Cell, uint32_t, Sink, Rule> flood(cells_, counts, manner_, queue_, order, sink);
    uint64_t seed = uint64_t{image_.seed_row} * image_.width + image_.seed_column;
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
    if (!several) return true;
    if constexpr (!Rule::fixed)
        if (walls > 0)
            number_walls(image_, {0, 0, image_.height, image_.width}, stride_, order + flooded);
    uint32_t highest = level_count - 1;
    while (walls == 0 && counts.of[highest] == 0) --highest;
    return sink.close(highest, 0, static_cast<uint32_t>(flooded + walls), label);
}

} // namespace kipx
