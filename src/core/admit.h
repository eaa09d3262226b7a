// core/admit.h - from array descriptors to a Call, for every shape of arguments.
//
// Gives    Shape, what a family says of its arguments; admit(), which checks them and fixes the
//          regions; travel(), the whole way from a public function to the family's worker.
// Promises checks come in one order, and the first that fails gives the code: the anchor, the other
//          arrays, regions in the order that the shape gives, axes, byte offsets, shared bytes.
//          Element types are left to the worker, and no pixel is touched.
// Costs    no allocation; some 50 ns for three arrays.
#pragma once

#include "core/call.h"

namespace kipx {

enum Slot : uint8_t { slot_dst, slot_src1, slot_src2, slot_src3, slot_mask, slot_count };

inline Operand &operand(Call &call, uint32_t slot) {
    return slot == slot_dst ? call.dst : slot == slot_mask ? call.mask : call.src[slot - slot_src1];
}

// How an array must fit the anchor.
enum class Fit : uint8_t {
    like, // as many axes, or 3 against 4; as many planes, or 1; as many channels
    same, // as many axes, planes and channels
    near, // as many axes, or 3 against 4; as many channels
    mask  // u8; as many axes, or 3 against 4; as many channels, or 1
};

// How its region meets the one agreed on so far.
enum class Meet : uint8_t {
    rest, // what lies from its position on, and in front of it for a negative one, is left off the
          // end; both extents become the smaller ones
    box   // a box of the agreed extent at its position, clipped to the array
};

struct Partner {
    Slot slot;
    Fit fit;
    Meet meet;
    bool follows = false; // without a position it starts where the anchor's region does, else at 0
};

struct Shape {
    Slot anchor;           // whose region roi names, and whom the others must fit
    uint8_t sources;       // arrays that are read, mask not counted
    uint8_t partners;      // entries of partner that are used
    Partner partner[4];    // in the order in which they meet the anchor's region
    Slot stands_in;        // may be null, and is then the anchor itself; slot_count for none
    bool planes;           // 4 axes are gone through plane by plane; else they are not supported
    bool overlap;          // the family copes with a destination that lies across a source, and
                           // looks at call.across
    uint8_t most_channels; // of the anchor
    int32_t no_rows;       // what an anchor without rows or pixels is: KIPX_EINVAL or KIPX_EEMPTY
};

struct Given {
    KipxXE *xe;
    uint64_t flags;
    const kipx_arr *arr[slot_count];
    const kipx_site *roi;
    const kipx_pos *at[slot_count]; // null: the shape's rule
};

// 0, or what is wrong. An absent mask is left at null. call.params is the caller's to fill.
int32_t admit(const Shape &shape, const Given &given, Call &call);

// A worker does what is left to do: types, kernel, flags, work. It is told what is wrong with types
// even where bytes are shared.
using Worker = int32_t (*)(Call &call);

// What is left to do for an admitted call.
int32_t work_admitted(Call &call, Worker worker);

int32_t travel(const Shape &shape, const Given &given, const void *params, Worker worker);

} // namespace kipx
