// core/numeric.h - the element types that numbers are computed with, as rows of tables of loops.
//
// Gives    KIPX_NUMERIC_TYPES, X(type), and KIPX_NUMERIC_PAIRS, X(first, second) for every pair in the
//          same order; the index of each type.
#pragma once

#include <kipx/types.h>

#include "core/element.h"

namespace kipx {

#define KIPX_NUMERIC_TYPES(X) X(u8) X(u16) X(u32) X(s8) X(s16) X(s32) X(f32) X(f64)

#define KIPX_NUMERIC_PAIRS_OF(X, D)                                                                \
    X(D, u8) X(D, u16) X(D, u32) X(D, s8) X(D, s16) X(D, s32) X(D, f32) X(D, f64)
#define KIPX_NUMERIC_PAIRS(X)                                                                      \
    KIPX_NUMERIC_PAIRS_OF(X, u8)                                                                   \
    KIPX_NUMERIC_PAIRS_OF(X, u16)                                                                  \
    KIPX_NUMERIC_PAIRS_OF(X, u32)                                                                  \
    KIPX_NUMERIC_PAIRS_OF(X, s8)                                                                   \
    KIPX_NUMERIC_PAIRS_OF(X, s16)                                                                  \
    KIPX_NUMERIC_PAIRS_OF(X, s32)                                                                  \
    KIPX_NUMERIC_PAIRS_OF(X, f32)                                                                  \
    KIPX_NUMERIC_PAIRS_OF(X, f64)

#define KIPX_INDEX(T) numeric_##T,
enum NumericType : uint32_t { KIPX_NUMERIC_TYPES(KIPX_INDEX) numeric_end };
#undef KIPX_INDEX
inline constexpr uint32_t numeric_type_count = numeric_end;

// numeric_type_count for another type.
inline uint32_t numeric_type_of(uint32_t type) {
    switch (type) {
#define KIPX_CASE(T)                                                                               \
    case KIPX_CODE_##T:                                                                            \
        return numeric_##T;
        KIPX_NUMERIC_TYPES(KIPX_CASE)
#undef KIPX_CASE
    default:
        return numeric_type_count;
    }
}

inline bool is_floating(uint32_t type) { return type == KIPX_F32 || type == KIPX_F64; }

} // namespace kipx
