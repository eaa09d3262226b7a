// compare/compare_rows.h - what the row loops of the comparisons take, and their table.
//
// Gives    the index of each loop, in one table per instruction set; what a pair of types needs.
// Promises a loop's sources are: the two that are compared; and, where it chooses between values,
//          what it writes where the relation holds and where it does not. Any of them may repeat
//          itself, as CompareRow says; the loops read pattern_length elements of such a one.
//          Chosen values of another size than the source go block by block: a mask of the first,
//          and a choice by it.
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

// Types of sources in the order of a destination's pairs; sizes by their logarithms.
#define KIPX_COMPARE_SOURCES(X) X(u8) X(s8) X(s16) X(s32) X(f32)
inline constexpr uint32_t compare_sources = 5, compare_sizes = 3;
inline constexpr uint32_t compare_source_size[compare_sources] = {0, 0, 1, 2, 2};
static_assert(compare_s16s16 == compare_sources + 2 && compare_s32f32 == 2 * compare_sources + 4);

// Integers have loops for the first two alone: the others are these with the sources exchanged, or
// their opposites.
enum class Relation : uint32_t { equal, less, not_equal, less_or_equal };
inline constexpr uint32_t relation_count = 4;

struct CompareRow {
    bool repeats[most_sources];
    bool opposite; // the mask's, of integers
    // Where values are chosen in two steps.
    RowLoop mask, choice;
    uint32_t src_size, dst_size;
};

// Masks of every size; values where the sizes are the same.
inline constexpr uint32_t mask_row_index(uint32_t source, Relation relation, uint32_t dst_size) {
    return (source * relation_count + static_cast<uint32_t>(relation)) * compare_sizes + dst_size;
}
inline constexpr uint32_t mask_row_count = compare_sources * relation_count * compare_sizes;
inline constexpr uint32_t chosen_row_index(uint32_t source, Relation relation) {
    return mask_row_count + source * relation_count + static_cast<uint32_t>(relation);
}
// What writes, by a mask of its size (the first source), one of two values; and both steps.
inline constexpr uint32_t choice_row_index(uint32_t dst_size) {
    return mask_row_count + compare_sources * relation_count + dst_size;
}
inline constexpr uint32_t two_step_row_index = choice_row_index(compare_sizes);
inline constexpr uint32_t compare_row_count = two_step_row_index + 1;
KIPX_SET_TABLES(RowLoop, compare_rows, compare_row_count)

} // namespace kipx
