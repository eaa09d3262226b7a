// region/tiles.h - the fast flood of an image in tiles.
//
// Gives    the components of an image, told to a sink in post-order, and its pixels in an order in
//          which components are runs: those of its children one after the other, then its own.
// Promises both depend on the image, the mask, the settings and the size of the tiles alone. What is
//          told are the components of 16 pixels and more with a pixel of their level, and, last, the
//          one that holds everything.
// Costs    a flood of each tile in the second-level cache, a walk along the seams, a walk through all
//          nodes and one over the pixels. 2 bytes a pixel and 24 a node of a tile, and what a
//          bench holds; tiles_scratch_size has room for one node in eight pixels, and what goes beyond is
//          taken from the environment.
// Owner    scratch and order are the caller's.
#pragma once

#include "region/components.h"
#include "region/tile_tree.h"

namespace kipx {

uint64_t tiles_scratch_size(const FloodImage &image);

// Pixels, in the order and in what the sink is told, are row * (width + 1) + column. False when there
// is no memory, or the sink has ended it.
bool flood_in_tiles(const FloodImage &image, TileSize size, Set set, FastScratch &scratch,
                    uint32_t *order, ComponentSink &sink);

} // namespace kipx
