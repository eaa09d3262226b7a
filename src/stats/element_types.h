// stats/element_types.h - which row of a table of loops serves an element type.
#pragma once

#include <kipx/types.h>

#include "core/element.h"
#include "stats/stats_types.inc"

namespace kipx {

#define KIPX_INDEX(T) stats_##T,
enum StatsType : uint32_t { KIPX_STATS_TYPES(KIPX_INDEX) stats_type_count };
#undef KIPX_INDEX

// stats_type_count for a type without loops.
inline uint32_t stats_type_of(uint32_t type) {
    switch (type) {
#define KIPX_CASE(T)                                                                               \
    case KIPX_CODE_##T:                                                                            \
        return stats_##T;
        KIPX_STATS_TYPES(KIPX_CASE)
#undef KIPX_CASE
    default:
        return stats_type_count;
    }
}

// Floating types, but for codes without a size, are those whose bits 0 to 3 say so.
inline bool is_floating(uint32_t type) { return type == KIPX_F32 || type == KIPX_F64; }

} // namespace kipx
