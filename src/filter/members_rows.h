// filter/members_rows.h - what the row loops of morphology over chosen members take.
#pragma once

#include <cstddef>

#include "core/sets.h"

namespace kipx {

struct MembersDown {
    const char *const *from; // a row per tap, already moved by the tap's place
    size_t taps;
    char *out;
    size_t bytes;
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
