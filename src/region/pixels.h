// region/pixels.h - making room in a pixel state before it is filled.
#pragma once

#include <kipx/features.h>

namespace kipx {

// Room for capacity entries in all, exactly so many if there were fewer. False, with the state as
// it was, when memory is short.
bool reserve_pixels(KipxWTSPF &state, uint64_t capacity);

} // namespace kipx
