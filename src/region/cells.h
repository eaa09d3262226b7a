// region/cells.h - a block of pixels as the fast flood works on it: a level a pixel.
//
// Gives    the block, and the steps that make it ready: levels, small pits raised, borders closed.
// Promises a cell is a level or the code `reached`, which is above every level: done, waiting, masked
//          out, or beyond the border. Cells of one byte have no code to spare, there the highest
//          level means the same: pixels of that level look like walls.
// Costs    what cells_size says; a pass over the cells for each step.
// Owner    the memory is the caller's.
#pragma once

#include "core/simd.h"
#include "region/levels.h"
#include "region/pit_rows.h"

namespace kipx {

template<class Cell> inline constexpr uint32_t reached = sizeof(Cell) == 1 ? 255 : level_count;

// Rows of cells, stride apart, stride being larger than width: what lies between two rows borders
// both of them. There is one row of border cells above the first row, one more cell before it, and a
// row below the last.
template<class Cell> struct Block {
    Cell *at; // pixel (0, 0)
    uint32_t height, width, stride;
};

// Bytes that a block's cells need, the room that row loops may read included.
inline uint64_t cells_size(uint32_t height, uint32_t stride, uint64_t cell) {
    return (uint64_t{height} + 2) * stride * cell + 2 * pit_slack;
}
template<class Cell> inline Cell *first_cell(void *memory, uint32_t stride) {
    return reinterpret_cast<Cell *>(static_cast<char *>(memory) + pit_slack) + stride;
}

// The levels of the image's pixels from (top, left) on; masked ones are reached.
template<class Cell>
void fill_cells(const Block<Cell> &block, const FloodImage &image, uint32_t top, uint32_t left);

// Every pixel whose pit is small (13 pixels at most, and within a window of the pixel: see
// pit_rows.cpp) is raised to the lowest level next to that pit. Components of 16 pixels and more stay
// what they are, at every level; the flood has fewer steps down to take. Pits at the block's border
// are left alone, as nothing is known of their other side. Row by row, a row's pixels all at once:
// the same cells on every machine. line: pit_line_size(width) bytes.
void raise_pits(const Block<uint8_t> &block, Set set, uint8_t *line);
inline uint64_t pit_line_size(uint32_t width) { return 2 * (uint64_t{width} + 2 * pit_slack); }

// A rectangle of an image.
struct Extent {
    uint32_t top, left, height, width;
};
// What a part of an image looks like, judged by every eighth row: flat when three pixels in eight are
// like the one before, so that a flood runs along with few turns; calm when it is one in six; woven when
// half of them are like the last but one alone; busy when half of them are far from the two before, so
// that the flood turns everywhere; soft otherwise.
enum class Look { flat, calm, woven, soft, busy };
Look look_of(const FloodImage &image, const Extent &part);
// Whether one-byte cells take some pixels for walls, mask or not.
bool has_walls(const FloodImage &image);
// Lists the pixels of a part that one-byte cells take for walls, in raster order, as row * stride +
// column; returns the end of the list. One place behind it may be written.
uint32_t *number_walls(const FloodImage &image, const Extent &part, uint32_t stride,
                       uint32_t *list);

// How many pixels have each level, or are reached already.
struct CellCounts {
    uint32_t of[level_count + 1];
};
// Closes the borders and counts.
template<class Cell> void close_borders(const Block<Cell> &block, CellCounts &counts);

} // namespace kipx
