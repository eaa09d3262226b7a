// arith/unary_rows.h - the row loops of exponential, logarithm and sigmoid, and their tables.
//
// A run is worked off in blocks: read as f64, worked on in place, written in its type. f32 to f32, where f32
// is precise enough, and f64 to f64 have loops of their own.
#pragma once

#include "core/run.h"
#include "core/sets.h"

namespace kipx {

inline constexpr size_t unary_block = 256;

enum class UnaryOp : uint32_t { negate, exponential, logarithm, sigmoid, precise_sigmoid };
inline constexpr uint32_t unary_op_count = 5;
// In this order: u8, s16, s32, f32, f64.
inline constexpr uint32_t unary_type_count = 5;

struct UnaryLoops {
    void (*read[unary_type_count])(double *to, const void *from, size_t at, size_t n);
    // alpha: for sigmoids.
    void (*work[unary_op_count])(double *values, size_t n, double alpha);
    void (*write[unary_type_count])(void *to, const double *from, size_t at, size_t n,
                                    double factor);
    // Negation, exponential, logarithm and sigmoid without a detour through blocks, and the loop for the rest.
    RowLoop of_f32[4], of_f64[4], by_blocks;
};
KIPX_SET_TABLES(UnaryLoops, unary_loops, 1)

// What the loops find at params.
struct UnaryWay {
    void (*read)(double *to, const void *from, size_t at, size_t n);
    void (*work)(double *values, size_t n, double alpha);
    void (*write)(void *to, const double *from, size_t at, size_t n, double factor);
    double factor, alpha;
};

} // namespace kipx
