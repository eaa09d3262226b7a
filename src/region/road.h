// region/road.h - what the floods' and the stable regions' roads share.
//
// Gives    the checks of arrays, regions and types in the order of the public functions, and the
//          step from a slice to a flooded image.
// Promises a check that fails has written nothing but its own results.
// Owner    slices and images borrow the arrays; a FastRun owns its scratch until give_back.
#pragma once

#include <kipx/fast_regions.h>
#include <kipx/watershed.h>

#include "region/fast_flood.h"
#include "region/levels.h"

namespace kipx {

// Checks in their order, each 0 or a negative code: the array; its region of interest; source and
// mask together; element type and channel count.
int32_t check_source(const kipx_arr *src);
int32_t source_region(const kipx_arr *src, const kipx_site *roi, kipx_site *site);
int32_t masked_regions(const kipx_arr *src, const kipx_arr *mask, const kipx_site *roi,
                       const kipx_pos *mask_at, kipx_site *site, kipx_site *mask_site);
int32_t check_type(uint32_t type, uint32_t channels);

// One slice at the typed level: addresses of the region's first elements, a null mask for none.
struct Slice {
    kipx_dims dims;
    const uint32_t *extent;
    uint32_t type;
    const void *src;
    const uint32_t *strides;
    uint32_t mask_type;
    const void *mask;
    const uint32_t *mask_strides;
};

// The same from the array level, origins resolved.
const void *slice_start(kipx_dims dims, const void *base, const uint32_t *origin,
                        const uint32_t *strides);
// The image that a context asks to flood, type and channels included; 0, or what is wrong with it.
int32_t image_of(const Slice &slice, const KipxWatershedContext *context, bool fast,
                 FloodImage &image);
// Tells the level-set context the image and fixes it up; 0 or KIPX_EINVAL.
int32_t announce(KipxWTSLSC *levelset, const FloodImage &image);

// Fast floods of one image, in one polarity after the other, on one histogram and one scratch.
class FastRun {
public:
    // 0 or KIPX_ENOMEM; give_back in either case. The seed lies inside the mask.
    int32_t take(KipxXE *xe, const FloodImage &image);
    int32_t flood(const FloodImage &image, const KipxWTSLSC &levelset, KipxFWTSRES *store);
    void give_back(KipxXE *xe);

private:
    uint32_t values_[level_count];
    uint64_t total_ = 0;
    FastScratch scratch_{};
};

} // namespace kipx
