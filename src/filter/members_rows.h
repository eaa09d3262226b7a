// filter/members_rows.h - what the row loops of morphology over chosen members take.
#pragma once

#include <cstddef>

#include "core/sets.h"
#include "core/window.h"

namespace kipx {

struct MembersDown {
    const char *const *from; // a row per tap, already moved by the tap's place
    const ptrdiff_t *moved;  // by how much; null where `there` is the same for all
    size_t taps;
    Span there; // of the rows before they were moved; whatever lies beyond it does not count
    char *out;
    size_t bytes;
    ptrdiff_t ahead, below; // how far lies what is to be read soon, from the last tap, and written
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
