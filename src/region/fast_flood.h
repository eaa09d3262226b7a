// region/fast_flood.h - the fast flood: an image to the regions of a fast result store.
//
// Gives    the component tree of an image of at most 256 levels, nodes and pixels, in one of two ways:
//          as one block (block_flood.h), or in tiles whose trees are joined along their seams
//          (tiles.h). Large images go the second way, unless they look flat, calm or woven.
// Promises the nodes are the root and, for every level, each connected component of the pixels at
//          or below it that holds 16 pixels or more and one of that level. Nodes, their order and
//          the order of pixels depend on the image, the mask, the seed and the settings alone, and
//          in tiles not on the seed.
// Costs    scratch of 5 bytes a pixel and some constant, 6 as one block with a mask, and in tiles more
//          where there are very many components. 4 bytes a pixel and 64 a node stay in the store.
// Owner    the store owns nodes and pixels, the caller the scratch.
#pragma once

#include <kipx/fast_regions.h>

#include "core/simd.h"
#include "region/block_flood.h"
#include "region/fast_scratch.h"
#include "region/levels.h"

namespace kipx {

// Floods of one image, in one polarity after the other, in one way and on one scratch.
class FastFlood {
public:
    // Chooses the way and takes the scratch. 0 or KIPX_ENOMEM; close in either case.
    int32_t open(KipxXE *xe, uint64_t flags, const FloodImage &image);
    // Floods the image, or its negative, into a store. The level-set context is fixed up, the seed lies
    // inside the mask. 0, KIPX_ENOMEM, or KIPX_EINVAL for a builder that is not initialised.
    int32_t run(const FloodImage &image, const KipxWTSLSC &levelset, KipxFWTSRES *store);
    void close() { scratch_.close(); }

private:
    Set set_ = Set::baseline;
    bool in_tiles_ = false;
    Manner manner_ = Manner::queues;
    FastScratch scratch_;
};

} // namespace kipx
