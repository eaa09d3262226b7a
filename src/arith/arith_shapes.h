// arith/arith_shapes.h - the shapes of element-wise operations whose destination leads.
//
// The second source, then the third, meet the destination's region; the first source meets it last, and
// where that is null the destination stands in for it.
#pragma once

#include "core/admit.h"

namespace kipx {

inline constexpr Shape two_arrays{
    .anchor = slot_dst,
    .sources = 2,
    .partners = 2,
    .partner = {{slot_src2, Fit::like, Meet::rest}, {slot_src1, Fit::like, Meet::box}},
    .stands_in = slot_src1,
    .planes = false,
    .overlap = false,
    .most_channels = 4,
    .no_rows = KIPX_EEMPTY};
inline constexpr Shape three_arrays{.anchor = slot_dst,
                                    .sources = 3,
                                    .partners = 3,
                                    .partner = {{slot_src2, Fit::like, Meet::rest},
                                                {slot_src3, Fit::like, Meet::rest},
                                                {slot_src1, Fit::like, Meet::box}},
                                    .stands_in = slot_src1,
                                    .planes = false,
                                    .overlap = false,
                                    .most_channels = 4,
                                    .no_rows = KIPX_EEMPTY};
inline constexpr Shape one_array{.anchor = slot_dst,
                                 .sources = 1,
                                 .partners = 1,
                                 .partner = {{slot_src1, Fit::like, Meet::box}},
                                 .stands_in = slot_src1,
                                 .planes = false,
                                 .overlap = false,
                                 .most_channels = 4,
                                 .no_rows = KIPX_EEMPTY};

} // namespace kipx
