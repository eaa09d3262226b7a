// compare/compare_rows.h - what the row loops of the comparisons take, and their tables.
//
// Gives    one loop per pair of types, relation and kind of result, in one table per instruction
//          set; the index of each.
// Promises a loop's sources are: the two that are compared; and, where it chooses between values,
//          what it writes where the relation holds and where it does not. Any of them may repeat
//          itself, as CompareRow says; the loops read pattern_length elements of such a one.
#pragma once

#include <kipx/compare_types.inc>

#include "core/run.h"
#include "core/sets.h"

namespace kipx {

#define KIPX_INDEX(D, S) compare_##D##S,
enum ComparePair : uint32_t { KIPX_COMPARE_PAIRS(KIPX_INDEX) compare_pair_count };
#undef KIPX_INDEX
// Chosen values go by their bits.
inline constexpr uint32_t compare_f32f32 = compare_s32f32;

enum class Relation : uint32_t { equal, not_equal, less, less_or_equal };
inline constexpr uint32_t relation_count = 4;

struct CompareRow {
    bool repeats[most_sources];
};

inline constexpr uint32_t compare_row_count = compare_pair_count * relation_count * 2;
inline constexpr uint32_t compare_row_index(uint32_t pair, Relation relation, bool chosen) {
    return (pair * relation_count + static_cast<uint32_t>(relation)) * 2 + chosen;
}
KIPX_SET_TABLES(RowLoop, compare_rows, compare_row_count)

} // namespace kipx
