// stats/reading.h - what the roads of all statistics share.
//
// Gives    one_reading, the shape of an array that is only read, with a mask; admit_reading(), the
//          checks of a worker.
#pragma once

#include "core/admit.h"
#include "core/fold.h"
#include "core/numeric.h"

namespace kipx {

inline constexpr Shape one_reading{.anchor = slot_src1,
                                   .sources = 1,
                                   .partners = 1,
                                   .partner = {{slot_mask, Fit::mask, Meet::rest}},
                                   .stands_in = slot_count,
                                   .planes = true,
                                   .overlap = false,
                                   .most_channels = fold_channels,
                                   .no_rows = KIPX_EEMPTY};

// What is wrong with a call; else, for a call that asks for no work, its answer; else 0. complete:
// the operation has been given all that it needs besides its arrays.
inline int32_t admit_reading(const Call &c, bool complete) {
    if (!element_valid(c.src[0].type)) return KIPX_EINVAL;
    if (numeric_type_of(c.src[0].type) == numeric_type_count) return KIPX_ENOTSUP;
    if (c.channels < 1 || c.channels > fold_channels || !complete) return KIPX_EINVAL;
    if (no_work_asked(c)) return no_work_answer(c);
    if (c.height == 0 || c.width == 0) return KIPX_EEMPTY;
    return c.src[0].at ? 0 : KIPX_EINVAL;
}

} // namespace kipx
