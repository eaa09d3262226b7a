// core/flat.h - entering the road below the descriptors: operands as types, addresses and strides.
//
// Gives    start_of(), the address that an array level begins at; flat_call(), the Call of a typed
//          level.
// Promises an array level's offset is the 32-bit sum that kipx_vec_mkloff_$LS gives. A flat Call has
//          one plane. Bits 4-7 of the channel entry go into the flags where those bits are 0 there.
//          Addresses are not looked at: whoever asks for no work may leave them out.
#pragma once

#include "core/call.h"

namespace kipx {

inline void *start_of(kipx_dims dims, const void *base, const uint32_t *origin,
                      const uint32_t *strides) {
    char *at = static_cast<char *>(const_cast<void *>(base));
    if (!at || !origin || !strides) return at;
    return at + byte_offset(leading_of(dims), axes_of(dims), origin, strides);
}

struct Flat {
    uint32_t type;
    const void *at;
    const uint32_t *strides;
};

inline Operand flat_operand(uint32_t axes, const Flat &f) {
    return {static_cast<char *>(const_cast<void *>(f.at)),
            0,
            row_stride(axes, f.strides),
            pixel_stride(axes, f.strides),
            element_stride(axes, f.strides),
            f.type,
            element_size(f.type),
            0,
            0};
}

// The operands of a typed level; a null dst for an operation without one, a mask without an address
// for none.
struct FlatGiven {
    const Flat *dst;
    const Flat *src;
    uint32_t sources;
    Flat mask;
};

// 0, or what is wrong: KIPX_ENOTSUP for 4 axes where all types are valid, KIPX_EINVAL for other
// numbers, for types, and for an extent or strides that are null.
int32_t flat_call(Call &call, KipxXE *xe, uint64_t flags, kipx_dims dims, const uint32_t *extent,
                  const FlatGiven &given);

} // namespace kipx
