// arith/muladd_rows.h - the row loops of multiply-accumulate and their tables.
#pragma once

#include <kipx/muladd_types.inc>

#include "arith/arith_rows.h"

namespace kipx {

enum class MulAddOp : uint32_t { add, sub, rsub };

#define KIPX_INDEX(op, D, A, B, C) muladd_##D##A##B##C,
enum MulAddTypes : uint32_t { KIPX_MULADD_TYPES(KIPX_INDEX, ) muladd_types_count };
#undef KIPX_INDEX

// What the loops find at params: one loop serves the three operations.
struct MulAddWay {
    ArithScale scale;
    MulAddOp op;
};
KIPX_SET_TABLES(RowLoop, muladd_rows, muladd_types_count)

} // namespace kipx
