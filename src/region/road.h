// region/road.h - what the floods' and the stable regions' roads share.
//
// Gives    the ways into the road (descriptors, a packed slice, flat operands), the step from a Call
//          to a flooded image.
// Promises checks come in the order of the public functions; one that fails has written nothing.
// Owner    calls and images borrow the arrays.
#pragma once

#include <kipx/fast_regions.h>
#include <kipx/watershed.h>

#include "core/call.h"
#include "core/flat.h"
#include "region/levels.h"

namespace kipx {

// 0 or what is wrong with the arrays, before anything that lies in a context. mask may be null.
int32_t admit_flood(Call &call, KipxXE *xe, uint64_t flags, const kipx_arr *src,
                    const kipx_arr *mask, const kipx_site *roi, const kipx_pos *mask_at);
// The same for a slice; `masked` slices hold a mask as their second operand.
int32_t slice_flood(Call &call, KipxXE *xe, uint64_t flags, const kipx_pack *slice, bool masked);
// The same for flat operands of 2 or 3 axes; a null mask is none.
int32_t flat_flood(Call &call, KipxXE *xe, uint64_t flags, kipx_dims dims, const uint32_t *extent,
                   const Flat &src, const Flat &mask);

// How an image is to be flooded.
struct FloodSettings {
    uint32_t polarity, connectivity, shift, seed_row, seed_column;
};

// The image of a one-plane call, type and channels checked; 0, or what is wrong with it. Null
// settings are wrong once type and channels have been found right.
int32_t image_of(const Call &call, const FloodSettings *settings, bool fast, FloodImage &image);
// Tells the level-set context the image and fixes it up; 0 or KIPX_EINVAL.
int32_t announce(KipxWTSLSC *levelset, const FloodImage &image);

} // namespace kipx
