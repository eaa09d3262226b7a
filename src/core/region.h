// core/region.h - what negotiating regions rests on.
#pragma once

#include <kipx/types.h>

namespace kipx {

// Both extents become the smaller of the two over the first slots; true when all of those are at
// least 1. Origins stay where they are. Entries are signed.
inline bool common_extent(kipx_site &a, kipx_site &b, int32_t slots) {
    bool some = true;
    for (int32_t i = 0; i < slots; ++i) {
        int32_t p = static_cast<int32_t>(a.extent[i]), q = static_cast<int32_t>(b.extent[i]);
        int32_t common = p < q ? p : q;
        a.extent[i] = b.extent[i] = static_cast<uint32_t>(common);
        some &= common >= 1;
    }
    return some;
}

} // namespace kipx
