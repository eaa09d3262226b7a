// region/fast_flood.h - the fast flood: an image to the regions of a fast result store.
//
// Gives    the component tree of an image of at most 256 levels, nodes and pixels, in one pass.
// Promises the nodes are the root and, for every level, each connected component of the pixels at
//          or below it that holds 16 pixels or more and one of that level. Nodes, their order and
//          the order of pixels depend on the image, the mask, the seed and the settings alone.
// Costs    every pixel is visited once and once more for every step down taken from it (1.3 visits
//          a pixel on noise). 1 byte a pixel for levels and reached marks (2 with a mask) and 4 for
//          the boundary are scratch; 4 bytes a pixel and 64 a node stay in the store.
// Owner    the store owns nodes and pixels, the caller the scratch.
//
// The algorithm. Pixels waiting at the boundary lie in one stack a level. The pixel in hand looks
// at all of its neighbours: when the lowest unreached one lies below the pixel's own level, the
// pixel goes back to the boundary, a component is opened and the flood steps down; otherwise all
// unreached neighbours join the boundary and the pixel is done. The next pixel is the newest of the
// lowest waiting ones. When that is higher than the level in hand, everything below it is complete:
// the open components, whose levels fall towards the top of their stack, are closed up to that
// level.
//
// Done pixels are numbered as they come. While a component is open every new number belongs to it
// or to something that it will enclose, so that the pixels of a component are a run of numbers:
// from the count of done pixels when it was opened to the count when it is closed.
#pragma once

#include <kipx/fast_regions.h>

#include "region/levels.h"

namespace kipx {

// Scratch of one flood; both may be undefined on entry.
struct FastScratch {
    void *cells;        // fast_cells_size(image) bytes
    uint32_t *boundary; // one a pixel
};

// One byte a pixel and border; two for a masked image.
inline uint64_t fast_cells_size(const FloodImage &image) {
    uint64_t cells = (uint64_t{image.height} + 2) * (uint64_t{image.width} + 1) + 1;
    return image.mask.at ? 2 * cells : cells;
}

// Floods into a store that has been made ready (fast_store_prepare). values: pixels
// of each value, as count_values gives them; total: their sum, at least 1. The seed lies inside the
// mask. 0, or KIPX_ENOMEM when the store's storage cannot supply a node.
int32_t fast_flood(const FloodImage &image, const uint32_t values[level_count], uint64_t total,
                   const FastScratch &scratch, KipxFWTSRES *store);

} // namespace kipx
