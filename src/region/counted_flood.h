// region/counted_flood.h - the standard flood into a builder that nobody listens through.
//
// Gives    the tree that the standard flood leaves in a builder that only counts (wts_regions.h).
// Promises regions, their pixel indices and the order of children are the standard flood's: pixels are
//          met in the same order. Memory is taken before the builder hears of the image, and a region
//          that cannot be made ends the flood with an empty builder and KIPX_ENOMEM.
// Costs    4 bytes a pixel for the boundary and a cell of one byte, or of two where there is a mask or a
//          pixel of level 255.
// Owner    regions and tree belong to the builder.
#pragma once

#include <kipx/env.h>
#include <kipx/watershed.h>

#include "region/levels.h"

namespace kipx {

// The image is as for the standard flood, the level-set context has been told of it.
int32_t counted_flood(KipxXE *xe, uint64_t flags, const FloodImage &image,
                      KipxWatershedContext *context);

} // namespace kipx
