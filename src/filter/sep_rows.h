// filter/sep_rows.h - what the row loops of separable filters take.
//
// Weighted sums along every row, into a ring; weighted sums of those rows down the columns. Integers
// are defined by sums in binary64. Bytes are summed in binary32 where that gives the same: always,
// if the weights are such that no step rounds; else wherever the sum lies further from a tie than
// both can be off, and the few elements that do not are made again in binary64 from the source rows,
// which lie in the ring behind the sums. With weights that smooth sums go down the columns first, from
// source rows where they lie, or from a ring of them.
#pragma once

#include "core/sets.h"
#include "core/window.h"
#include "filter/elements.h"

namespace kipx {

// Rows of sums have room for so many bytes more than they hold.
inline constexpr size_t sep_block = 256;
// Of weights that smooth: sums down the columns go so many ways, a pitch apart, the same for every
// instruction set and an odd number of lines of the cache; there is room for a vector behind them. So many
// result rows are made at once.
inline constexpr size_t smooth_ways = 4, smooth_results = 4;
inline constexpr size_t smooth_pitch(size_t elements) {
    return (((elements + 63) / 64 + 1) | 1) * 16;
}

struct SepAlong {
    Band band;
    Span reach;
    Source source;
    size_t width, step; // of the window in pixels; elements of a pixel
    size_t n;           // elements of a result row
    const double *weights;
    char *wide; // scratch: n + width * step sums, and a block
    char *out;
    ptrdiff_t out_step;
    size_t kept; // where in a row of the ring the source's elements go; 0: nowhere
};

struct SepDown {
    const char *const *rows; // group + height - 1 of them
    size_t height, group, n;
    const double *weights;
    char *out;
    ptrdiff_t step;
    // For weights that smooth, and elements that are made again.
    RowElements elements;
    size_t width, pixel; // pixel: elements of one
    const double *column_weights;
    double margin; // how far a sum may be off; of those that smooth in 2^-16, a whole number
    char *scratch; // of those that smooth: weights, rows of sums behind them
    size_t weights_size;
};

struct SepLoops {
    void (*along)(const SepAlong &);
    void (*down)(const SepDown &);
    size_t sum_size;
};

// binary64 for all; binary32 for bytes that are exact in it, and for bytes that are looked after, for
// those whose weights smooth by a way of their own; f32 has its own.
enum SepVariant : uint32_t { sep_plain, sep_short, sep_guarded, sep_smooth, sep_variants };
struct SepSet {
    SepLoops loops[16][sep_variants]; // by type code
};
KIPX_SET_TABLES(SepSet, sep_sets, 1)

} // namespace kipx
