// core/region.h - what negotiating regions rests on.
#pragma once

#include <kipx/types.h>

namespace kipx {

// Both extents become the smaller of the two over the first slots; true when all of those are at
// least 1. Origins stay where they are.
bool common_extent(kipx_site &a, kipx_site &b, int32_t slots);

} // namespace kipx
