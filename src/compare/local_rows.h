// compare/local_rows.h - what the loops of local thresholds take, and their tables.
//
// Gives    loops that take a row into sums of columns, and such that judge a row by the sums of its
//          neighbourhoods.
// Promises sums are exact; judging rounds each operation once, so that every set gives the same bits.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/sets.h"

namespace kipx {

// A row comes into the sums of its columns, or leaves them. square: of means alone it is null.
struct ColumnRun {
    int64_t *sum, *square;
    const int32_t *values;
    size_t n;
    bool leaves;
};
using ColumnLoop = void (*)(ColumnRun run);

// T = m + offset, m + k s, or m (1 + k (s / range - 1)).
enum class Formula : uint32_t { mean, deviation, relative_deviation };
inline constexpr uint32_t formula_count = 3, ordering_count = 4;
inline constexpr uint32_t local_row_count = formula_count * ordering_count;

// Elements and the sums of their neighbourhoods: of values, of squares, and of columns in them.
struct LocalRun {
    uint8_t *passes; // 255 for elements that pass; with `both` only where it was 255 already
    const int32_t *values;
    const int64_t *sum, *square, *columns;
    int64_t rows;
    size_t n;
    double offset, k, range;
    bool both;
};
using LocalLoop = void (*)(LocalRun run);

// ordering: 0 less, 1 less or equal, 2 greater, 3 greater or equal.
inline constexpr uint32_t local_row_index(Formula formula, uint32_t ordering) {
    return static_cast<uint32_t>(formula) * ordering_count + ordering;
}

// The same in 32 bits, for means of few short integers: what a value less the offset, times the number
// of elements, is to their sum. The sum of columns x - left to x + right is before[x + reach] -
// before[x].
struct WholeRun {
    uint8_t *passes;
    const int32_t *values, *columns;
    const uint32_t *before;
    int32_t rows;
    size_t n;
    uint32_t reach;
    int32_t offset;
    bool both;
};
struct WholeLoops {
    void (*columns)(uint32_t *sum, const int32_t *values, size_t n, bool leaves);
    void (*judge[ordering_count])(WholeRun run);
};

KIPX_SET_TABLES(ColumnLoop, column_rows, 2)
KIPX_SET_TABLES(LocalLoop, local_rows, local_row_count)
KIPX_SET_TABLES(WholeLoops, whole_loops, 1)

} // namespace kipx
