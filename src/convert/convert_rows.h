// convert/convert_rows.h - the tables of conversions, one per instruction set.
//
// Gives    a loop for every pair of numeric types, at numeric type of the destination times
//          numeric_type_count plus that of the source; behind them those that narrowing arithmetic
//          has of its own, and the loop that scales.
#pragma once

#include "core/numeric.h"
#include "core/run.h"
#include "core/sets.h"

namespace kipx {

inline constexpr uint32_t convert_pairs = numeric_type_count * numeric_type_count;
enum ConvertLoop : uint32_t {
    narrow_f32_s8 = convert_pairs, // NaN to the smallest value
    narrow_f32_s16,
    convert_scaled,
    convert_row_count
};

// What the scaling loop is given: both ends of the way through binary64, and the numbers; by channel
// they are the second and third source.
struct Scaling {
    RowLoop widen, narrow;
    uint32_t src_size, dst_size;
    bool by_channel;
    double scale, shift;
};

KIPX_SET_TABLES(RowLoop, convert_rows, convert_row_count)

} // namespace kipx
