// region/flood.h - the standard flood: an image to the calls of a builder's "wtsl" operations.
//
// Gives    the component tree through a builder, level by level, features gathered as pixels come.
// Promises all memory is taken before the builder hears of the image, and given back block by block
//          in reverse. A region that cannot be made ends the flood: the regions it still holds are
//          disposed of and the tree's root is null.
//          A builder that only counts (wts_regions.h) gets the same tree from counted_flood.h, in a third
//          to two thirds of the time.
// Costs    8 bytes a pixel for the boundary and one bit for the reached mask, from the environment;
//          at most 256 component records and some entry pointers from the heap. Every pixel is
//          taken from the boundary once and once more for every step down from it. A component
//          below 16 pixels costs no region.
// Owner    regions and tree belong to the builder.
#pragma once

#include <kipx/env.h>
#include <kipx/watershed.h>

#include "region/levels.h"

namespace kipx {

// Floods into context->builder. The image is not empty, its seed lies inside the mask, and it has
// at most 65536 rows and columns and 2^28 pixels. 0 or a negative code.
int32_t standard_flood(KipxXE *xe, uint64_t flags, const FloodImage &image,
                       KipxWatershedContext *context);

} // namespace kipx
