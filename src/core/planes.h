// core/planes.h - the planes of a call, one after the other.
//
// Gives    each_plane(), which hands every plane of a Call to a function as a Call of its own;
//          slice_operand(), the operand that a slice of a pack holds.
// Promises the first negative code ends it and is returned. Sums in 64 bits: nothing wraps at 2^32.
#pragma once

#include <kipx/planes.h>

#include "core/call.h"

namespace kipx {

template<class Function> int32_t each_plane(const Call &call, Function &&function) {
    for (uint32_t plane = 0; plane < call.planes; ++plane) {
        Call slice = call;
        slice.planes = 1;
        auto move = [=](Operand &o) {
            if (o.at) o.at += plane * o.plane;
        };
        move(slice.dst), move(slice.mask);
        for (uint32_t i = 0; i < slice.sources; ++i) move(slice.src[i]);
        if (int32_t code = function(slice); code < 0) return code;
    }
    return 0;
}

inline Operand slice_operand(const kipx_operand &o) {
    Operand out{};
    if (!o.base) return out;
    out.at = static_cast<char *>(o.base);
    for (uint32_t i = 0; i < 4; ++i) out.at += uint64_t{o.origin[i]} * o.strides[i];
    out.plane = o.strides[0], out.row = o.strides[1], out.pixel = o.strides[2];
    out.channel = o.strides[3], out.type = o.type, out.size = element_size(o.type);
    return out;
}

} // namespace kipx
