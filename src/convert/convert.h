// convert/convert.h - conversion of values from one element type to another.
//
// Gives    convert_row_for(): the row loop for a pair of types, for core/rows.h.
// Promises to nearest with ties to even, saturated; NaN to the smallest value, 0 for unsigned
//          types.
#pragma once

#include "core/run.h"
#include "core/simd.h"

namespace kipx {

// Null when the pair has no conversion.
RowLoop convert_row_for(uint32_t dst_type, uint32_t src_type, Set set);

} // namespace kipx
