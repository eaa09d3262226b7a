// core/planes.h - the address arithmetic of packed operands, for inlining.
//
// Gives    the address where a slice's region starts.
// Promises sums in pointer width: nothing wraps at 2^32.
#pragma once

#include <kipx/planes.h>

namespace kipx {

// base + origin * strides over the last `axes` entries of right-aligned vectors.
inline const uint8_t *region_start(const void *base, uint32_t axes, const uint32_t *origin,
                                   const uint32_t *strides) {
    uint64_t offset = 0;
    for (uint32_t i = 0; i < axes; ++i) offset += uint64_t{origin[i]} * strides[i];
    return static_cast<const uint8_t *>(base) + offset;
}

} // namespace kipx
