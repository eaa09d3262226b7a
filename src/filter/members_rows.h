// filter/members_rows.h - what the row loops of morphology over chosen members take.
#pragma once

#include <cstddef>

#include "core/sets.h"
#include "core/window.h"

namespace kipx {

struct MembersDown {
    const char *const *rows; // those under the results
    size_t results;
    const uint32_t *row; // of a tap, among those under a result
    const ptrdiff_t *at; // how far from the result's place it looks
    size_t taps;
    const char **from; // scratch: one a tap
    Span there;        // of the rows; whatever lies beyond it does not count
    bool fresh;        // the source's own rows: elements may be NaN
    char *out;
    ptrdiff_t step;
    size_t bytes;
    ptrdiff_t ahead; // how far from the last tap lies what is to be read soon
};

struct MembersLoops {
    // row[x] for as many bytes: itself, or the neutral element where that wins against it.
    void (*settle)(char *row, size_t bytes);
    // out[x] = the union of row[x] and row[x + shift]; out may be the row.
    void (*unite)(char *out, const char *row, size_t shift, size_t bytes);
    void (*down)(const MembersDown &);
    const void *neutral;
};

struct MembersSet {
    MembersLoops loops[16][2]; // by type code; smallest, largest
};
KIPX_SET_TABLES(MembersSet, members_sets, 1)

} // namespace kipx
