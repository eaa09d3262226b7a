// filter/box_rows.h - what the row loops of the mean over rectangles take.
//
// Sums along every row, of windows doubled as often as it takes; then down the columns: integers by
// a sum that gains a row and loses one, real numbers by sums that only gain (the rows that a group's
// windows share, those above it, those below), so that nothing drifts and an infinity passes. Of
// bytes and of 16 bits the sums down the columns come first, of source rows where they lie, or of a
// ring of them. Real numbers over small windows are summed from such rows, too, piece by piece, in the same
// order.
#pragma once

#include "core/sets.h"
#include "core/window.h"
#include "filter/elements.h"

namespace kipx {

// Rows that take a step together, before one of them takes the next: what a step has written is on
// its way to the cache for a while, and reading it would have to wait.
inline constexpr size_t box_together = 8, box_together_bytes = 16384;
// Real numbers over windows of up to so many pixels either way: a piece of so many elements is summed at once.
inline constexpr size_t box_direct = 8, box_piece = 128;

struct BoxAlong {
    Band band;
    Span reach;
    Source source;
    size_t width, step;     // of the window in pixels; elements of a pixel
    size_t n;               // elements of a result row
    char *sums;             // scratch: rows of (n + width * step) sums, a pitch each
    size_t pitch, together; // together: how many rows
    char *out;
    ptrdiff_t out_step;
};

struct BoxDown {
    const char *const *rows; // group + height - 1 of them
    size_t height, group, n;
    // Integers: sums of the rows that the last window shares with the next, n of them. Columns first: three
    // rows of scratch, a pitch each; direct: as many as there are rows.
    char *shared;
    bool first; // there are none yet
    char *out;
    ptrdiff_t out_step;
    uint64_t count;            // positions of the window
    size_t width, step, pitch; // of the window in pixels; elements of a pixel
    RowElements elements;      // columns first, direct
};

// Sums along every row into a ring; or all at once, from rows where they lie or a ring of them: sums down the
// columns first, or piece by piece.
enum class BoxWay { rows_first, columns_first, direct };

struct BoxLoops {
    void (*along)(const BoxAlong &);
    void (*down)(const BoxDown &);
    uint64_t most;            // positions whose sum cannot overflow, or has a short quotient
    uint32_t highest, widest; // window
    size_t sum_size;          // bytes of a sum
    BoxWay way;
};

inline constexpr size_t box_variants = 3;
struct BoxSet {
    BoxLoops loops[16][box_variants]; // by type code, narrow sums first
};
KIPX_SET_TABLES(BoxSet, box_sets, 1)

} // namespace kipx
