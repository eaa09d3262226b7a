// core/rows.h - from a Call to runs of adjacent elements: pack, loop, convert, blend, spread.
//
// Gives    Rows, what the typed level has chosen; rows(), which works a whole call off, plane by
//          plane and row by row.
// Promises only elements of the region are read or written; where there is a mask, only those whose
//          mask byte is not 0. A destination may be one of the sources (same place, strides and
//          element size): a run is read before it is written.
// Costs    channels fold into the row, and rows without gaps into one long row, where all operands
//          allow it. A dense unmasked call is then one call of the loop per row; every other one is
//          a call per stage and run of 1024 to 4096 elements, through buffers on the stack. Once the
//          operands exceed what the last-level cache keeps, loops may write past the cache.
#pragma once

#include "core/call.h"
#include "core/run.h"
#include "core/simd.h"

namespace kipx {

// Elements of a run that is narrowed in the buffer `middle`, and of one that goes through buffers.
inline constexpr uint32_t middle_length = 4096, run_length = 1024;

// Bytes of all operands from which the destination is written past the cache.
uint64_t streaming_bytes(Set set);

struct Rows {
    RowLoop loop = nullptr;
    const void *params = nullptr;
    // The loop takes repeating sources from their first pattern_length elements alone, in runs of
    // any length.
    bool repeats = false;
    // Narrowing: the loop writes elements of middle_size bytes into middle, which holds middle_length
    // of them, and convert brings them into the destination's type.
    RowLoop convert = nullptr;
    char *middle = nullptr;
    uint32_t middle_size = 0;
    Set set = Set::baseline;
};

// The call is used up. No rows, no pixels: nothing.
void rows(Call &call, const Rows &how);

} // namespace kipx
