// stats/sum_rows.h - the fold loops of sums and of squared distances from a mean.
//
// Gives    exact sums of integer elements in 64 bits; sums in binary64 in one fixed order: each row
//          is cut into blocks of fold_length pixels, pixel x of a block is added to one of
//          sum_lanes sums, these are added in pairs, and so are the blocks.
#pragma once

#include "core/fold.h"
#include "core/numeric.h"
#include "core/sets.h"

namespace kipx {

inline constexpr uint32_t sum_lanes = 32;

// Numbers added in pairs, pairs in pairs, and so on: the error grows with the logarithm of their
// number, and infinities and NaN come out as from any sum.
struct PairedSum {
    double level[40];
    uint64_t count;
};
inline double total_of(const PairedSum &s) {
    double total = 0;
    for (uint32_t i = 0; s.count >> i; ++i)
        if (s.count >> i & 1) total = s.level[i] + total;
    return total;
}

// Of one channel. A whole sum counts modulo 2^64, as a signed number but for u32; the squares of
// integers are squares[0] + 2^32 squares[1].
struct SumState {
    uint64_t whole, squares[2];
    PairedSum paired;
    double mean; // that distances of floating elements are from
};

// Sums of integer types are whole ones, and so are squares, with which sums are taken, too; sums and
// squared distances of floating types are paired ones.
enum SumLoop : uint32_t { sum_elements, sum_squares, sum_loops };
inline constexpr uint32_t sum_row_count = sum_loops * numeric_type_count;
KIPX_SET_TABLES(FoldLoop, sum_rows, sum_row_count)

} // namespace kipx
