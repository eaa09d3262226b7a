// stats/count_rows.h - the fold loops that count elements between two numbers.
#pragma once

#include "core/fold.h"
#include "core/numeric.h"
#include "core/sets.h"

namespace kipx {

// Of one channel: low and high are numbers of the element type, both count; low above high for none.
struct BetweenCount {
    double low, high;
    uint64_t count;
};

KIPX_SET_TABLES(FoldLoop, count_rows, numeric_type_count)

} // namespace kipx
