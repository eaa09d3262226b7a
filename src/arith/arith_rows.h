// arith/arith_rows.h - what the row loops of the binary arithmetic take, and their tables.
//
// Gives    the index of every (operation, type triple), the scale exponent made ready, and one
//          table of row loops per instruction set, in the order of the index.
#pragma once

#include <kipx/arith_ops.inc>
#include <kipx/arith_types.inc>

#include "core/run.h"
#include "core/sets.h"

namespace kipx {

#define KIPX_INDEX(op, D, A, B) op##_##D##A##B,
#define KIPX_INDICES(op, Name, triples, code, mirror) KIPX_TRIPLES_##triples(KIPX_INDEX, op)
enum ArithKernel : uint32_t { KIPX_BINARY_OPS(KIPX_INDICES) arith_kernel_count };
#undef KIPX_INDICES
#undef KIPX_INDEX

enum class ScaleMode : uint32_t { none, down, up };

struct ArithScale {
    ScaleMode mode;
    uint32_t shift;        // down: k = -s mod 32; up: s mod 64
    float factor;          // down: 2^-k; up: 2^(s mod 64)
    float quotient_factor; // down: 2^-k; up: 2^(s mod 32); 1 unscaled
};

KIPX_SET_TABLES(RowLoop, arith_rows, arith_kernel_count)

} // namespace kipx
