// stats/extreme_rows.h - the fold loops of extrema, one per element type and instruction set.
#pragma once

#include "core/fold.h"
#include "core/numeric.h"
#include "core/sets.h"

namespace kipx {

// Of one channel. Nothing but NaN, or nothing at all, leaves low above high.
struct Extremes {
    double low, high;
};

KIPX_SET_TABLES(FoldLoop, extreme_rows, numeric_type_count)

} // namespace kipx
