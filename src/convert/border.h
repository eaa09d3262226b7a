// convert/border.h - what lies around a region when an array is continued beyond its edge.
//
// Gives    make_border(), which writes the frame around a region.
#pragma once

#include "core/border.h"
#include "core/call.h"

namespace kipx {

// A frame about the destination's region of a call.
struct Frame {
    Border border;
    int64_t before[3], after[3]; // elements: planes, rows, columns
    const double *values;        // of a constant border, one per channel; null: zeros
    // Where the source's region starts in the whole that is continued, and how long that is.
    int64_t from[3], length[3];
};

// Writes the frame, from the call's first source; the region itself is left alone. Types are equal
// and have a size. Neither the source nor the whole around it lies across the frame.
void make_border(const Call &call, const Frame &frame);

} // namespace kipx
