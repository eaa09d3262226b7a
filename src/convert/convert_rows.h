// convert/convert_rows.h - the tables of conversions, one per instruction set.
//
// Gives    a loop for every pair of numeric types, at numeric type of the destination times
//          numeric_type_count plus that of the source; in the same order the loops that scale; behind
//          them those that narrowing arithmetic has of its own, and the loop that scales by channel.
#pragma once

#include "core/numeric.h"
#include "core/run.h"
#include "core/sets.h"

namespace kipx {

inline constexpr uint32_t convert_pairs = numeric_type_count * numeric_type_count;
enum ConvertLoop : uint32_t {
    convert_scaled = convert_pairs,                 // by pairs, too: one scale and shift for all
    narrow_f32_s8 = convert_scaled + convert_pairs, // NaN to the smallest value
    narrow_f32_s16,
    convert_by_channel, // scales and shifts are the second and third source
    convert_row_count
};

// What the scaling loops are given: the numbers, or, where they are sources, both ends of the way through
// binary64.
struct Scaling {
    double scale, shift;
    RowLoop widen, narrow;
    uint32_t src_size, dst_size;
};

KIPX_SET_TABLES(RowLoop, convert_rows, convert_row_count)

} // namespace kipx
