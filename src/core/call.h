// core/call.h - the one record of a call: what is left of its arguments once they are admitted.
//
// Gives    Operand, Call, and the shape that a road of its own argument list has. Every level of the
//          road takes a Call; whoever enters at a lower level makes one from what it was given.
// Promises addresses are those of the region's first elements, all sums in 64 bits. An operand that
//          a call does not have is at null. A source that every plane shares has plane stride 0, one
//          that every row shares row stride 0.
// Owner    a Call borrows the arrays and belongs to whoever made it; the levels below may use it up.
#pragma once

#include <kipx/types.h>

#include "core/element.h"
#include "core/run.h"

struct KipxXE;

namespace kipx {

struct Operand {
    char *at;                            // first element of the region; null for no operand
    uint64_t plane, row, pixel, channel; // bytes from one to the next
    uint32_t type, size;                 // type code; bytes of an element
    // A row that repeats itself, as constants do: after `period` pixels it reads as from its start,
    // and from any of these `length` pixels can be read in one run. 0 for an array.
    uint32_t period, length;
};

struct Call {
    KipxXE *xe;
    uint64_t flags;
    Operand dst, src[most_sources], mask;
    uint32_t sources;
    uint32_t planes, height, width, channels;
    const void *params;  // what else the operation was given, as its family knows it
    bool shared;         // destination and a source share bytes as no operation may have them
    bool across = false; // they do, and the family copes with it
};

// Flags that want everything checked and nothing done, and what such a call answers in the end.
inline bool no_work_asked(const Call &c) {
    return (c.flags & (KIPX_FLAG_PROBE | KIPX_FLAG_PREPARE)) != 0;
}
inline int32_t no_work_answer(const Call &c) { return c.flags & KIPX_FLAG_PROBE ? KIPX_EAGAIN : 0; }

inline bool adjacent(const Operand &o) { return o.pixel == o.size; }

} // namespace kipx
