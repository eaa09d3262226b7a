// convert/convert.h - conversion of values from one element type to another, as row loops.
//
// Promises to nearest with ties to even, saturated.
#pragma once

#include "core/run.h"
#include "core/simd.h"

namespace kipx {

// NaN to 0 in integers. Null when a type is not numeric.
RowLoop convert_row_for(uint32_t dst_type, uint32_t src_type, Set set);
// As narrowing arithmetic converts: NaN to the smallest value.
RowLoop narrow_row_for(uint32_t dst_type, uint32_t src_type, Set set);

} // namespace kipx
