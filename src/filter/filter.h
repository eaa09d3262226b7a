// filter/filter.h - the filter front end's inside: from arrays or flat operands to passes.
//
// Gives    ways into a Call for operations over a window, with the checks that they share; and
//          filter_call(), the work of a kind of filter.
// Promises nothing is written unless everything has been found right and all scratch taken.
#pragma once

#include <kipx/filter.h>

#include "core/admit.h"
#include "filter/apply.h"

namespace kipx {

// Source, destination (null: the source) and mask (may be null), of one region.
struct FilterArrays {
    const kipx_arr *src, *dst, *mask;
    const kipx_site *roi;
};
// 0, or what is wrong. room: how far the source array reaches beyond the region.
int32_t admit_filter(Call &call, KipxXE *xe, uint64_t flags, const FilterArrays &arrays,
                     kipx_brshape &room);
// The same for a slice of a pack.
int32_t slice_filter(Call &call, KipxXE *xe, uint64_t flags, const kipx_pack *slice);
// The same for flat operands, KIPX_EINVAL or KIPX_ENOTSUP for the number of axes.
struct FlatPlace {
    const void *at;
    const uint32_t *strides;
};
int32_t flat_filter(Call &call, KipxXE *xe, uint64_t flags, kipx_dims dims, const uint32_t *volume,
                    uint32_t type, FlatPlace dst, FlatPlace src, FlatPlace mask);

// The window of a normalised element, its margins those of the room; false where sizes or anchor
// are impossible. Without a room it is as large as the element reaches.
bool window_of(Window &window, const kipx_se *shape, const kipx_brshape *room);
// The caller's shape, or none, against the region's extents; on a copy.
kipx_seshape normalised(const kipx_seshape *shape, const Call &call);
// Windows whose border does not count need not reach beyond the array.
void cut_to_array(Window &window, const Call &call);
// Margins no larger than the window reaches.
void cut_to_reach(Window &window);

// The border kind in the flag word, replicate where there is none; false for one that there is not.
bool border_in(uint64_t flags, Border &border);

// 1 to go on, else what the call answers: what is wrong with shared bytes, the probe, or 0 for
// prepare and for a call without pixels.
int32_t goes_on(const Call &call);
// Both types valid and the same.
bool types_fit(const Call &call);

// Copies the source; filters by kind with a window that has been cut to nothing yet.
int32_t copy_call(Call &call);
int32_t filter_call(Call &call, uint32_t kind, Window window);

} // namespace kipx
