// core/stamp.h - the bodies behind kipx/prototypes.h: how each level of an operation joins the road.
//
// Gives    KIPX_STAMP_x (op, Name, tail, shape, record, worker) for the shapes x of
//          kipx/prototypes.h: the public function, the array level and the typed level of one
//          operation. `record` is an expression over the function's own parameters: what the worker
//          is to find at call.params.
#pragma once

#include "core/admit.h"
#include "core/flat.h"

// What the tail of an argument list is called when it is handed on.
#define KIPX_PASS_KIPX_TAIL_NONE
#define KIPX_PASS_KIPX_TAIL_SCALED , scale, aux
#define KIPX_PASS_KIPX_TAIL_COMPARED , cmpop
#define KIPX_PASS_KIPX_TAIL_CHOSEN , cmpop, true_values, false_values

#define KIPX_START(x) start_of(dims, x, x##_origin, x##_strides), x##_strides
#define KIPX_FLAT(x) (Flat{x##_type, x, x##_strides})
#define KIPX_NO_FLAT (Flat{0, nullptr, nullptr})

// Flat operands into a Call, and on to the worker; the sources come last.
#define KIPX_ENTER_FLAT(dst, count, mask, record, worker, ...)                                     \
    const auto given = record;                                                                     \
    const Flat sources[] = {__VA_ARGS__};                                                          \
    Call call;                                                                                     \
    int32_t code = flat_call(call, xe, flags, n, extent, {dst, sources, count, mask});             \
    if (code < 0) return code;                                                                     \
    call.params = &given;                                                                          \
    return worker(call)
#define KIPX_ENTER(count, mask, record, worker, ...)                                               \
    const Flat result = KIPX_FLAT(dst);                                                            \
    KIPX_ENTER_FLAT(&result, count, mask, record, worker, __VA_ARGS__)

// Array and typed level alone, for families whose public functions take other arguments.
#define KIPX_STAMP_FLAT_2(op, tail, record, worker)                                                \
    KIPX_FLAT_LEVELS_2(op, (tail), (KIPX_PASS_##tail), record, worker)
#define KIPX_STAMP_FLAT_C(op, tail, record, worker)                                                \
    KIPX_FLAT_LEVELS_C(op, (tail), (KIPX_PASS_##tail), record, worker)

// Tails bring commas of their own: parentheses carry them from macro to macro.
#define KIPX_UNPACK(...) __VA_ARGS__
#define KIPX_FLAT_LEVELS_2(op, tail, passed, record, worker)                                       \
    KIPX_ARRAY_2(kipxa_##op, KIPX_UNPACK tail) {                                                   \
        return kipxa__##op(xe, flags, dims, extent, dst_type, KIPX_START(dst), src1_type,          \
                           KIPX_START(src1), src2_type, KIPX_START(src2) KIPX_UNPACK passed);      \
    }                                                                                              \
    KIPX_TYPED_2(kipxa__##op, KIPX_UNPACK tail) {                                                  \
        KIPX_ENTER(2, KIPX_NO_FLAT, record, worker, KIPX_FLAT(src1), KIPX_FLAT(src2));             \
    }
#define KIPX_FLAT_LEVELS_C(op, tail, passed, record, worker)                                       \
    KIPX_ARRAY_C(kipxa_##op, KIPX_UNPACK tail) {                                                   \
        return kipxa__##op(xe, flags, dims, extent, dst_type, KIPX_START(dst), src_type,           \
                           KIPX_START(src), values KIPX_UNPACK passed);                            \
    }                                                                                              \
    KIPX_TYPED_C(kipxa__##op, KIPX_UNPACK tail) {                                                  \
        KIPX_ENTER(1, KIPX_NO_FLAT, record, worker, KIPX_FLAT(src));                               \
    }

#define KIPX_STAMP_2(op, Name, tail, shape, record, worker)                                        \
    KIPX_PUBLIC_2(Kipx##Name, tail) {                                                              \
        const auto given = record;                                                                 \
        return travel(shape, {xe, flags, {dst, src1, src2}, roi, {nullptr, src1At, src2At}},       \
                      &given, worker);                                                             \
    }                                                                                              \
    KIPX_FLAT_LEVELS_2(op, (tail), (KIPX_PASS_##tail), record, worker)

#define KIPX_STAMP_C(op, Name, tail, shape, record, worker)                                        \
    KIPX_PUBLIC_C(Kipx##Name, tail) {                                                              \
        const auto given = record;                                                                 \
        return travel(shape, {xe, flags, {dst, src}, roi, {nullptr, srcAt}}, &given, worker);      \
    }                                                                                              \
    KIPX_FLAT_LEVELS_C(op, (tail), (KIPX_PASS_##tail), record, worker)

#define KIPX_STAMP_1(op, Name, tail, shape, record, worker)                                        \
    KIPX_PUBLIC_1(Kipx##Name, tail) {                                                              \
        const auto given = record;                                                                 \
        return travel(shape, {xe, flags, {dst, src}, roi, {nullptr, srcAt}}, &given, worker);      \
    }                                                                                              \
    KIPX_ARRAY_1(kipxa_##op, tail) {                                                               \
        return kipxa__##op(xe, flags, dims, extent, dst_type, KIPX_START(dst), src_type,           \
                           KIPX_START(src) KIPX_PASS_##tail);                                      \
    }                                                                                              \
    KIPX_TYPED_1(kipxa__##op, tail) { KIPX_ENTER(1, KIPX_NO_FLAT, record, worker, KIPX_FLAT(src)); }

#define KIPX_STAMP_3(op, Name, tail, shape, record, worker)                                        \
    KIPX_PUBLIC_3(Kipx##Name, tail) {                                                              \
        const auto given = record;                                                                 \
        return travel(                                                                             \
            shape, {xe, flags, {dst, src1, src2, src3}, roi, {nullptr, src1At, src2At, src3At}},   \
            &given, worker);                                                                       \
    }                                                                                              \
    KIPX_ARRAY_3(kipxa_##op, tail) {                                                               \
        return kipxa__##op(xe, flags, dims, extent, dst_type, KIPX_START(dst), src1_type,          \
                           KIPX_START(src1), src2_type, KIPX_START(src2), src3_type,               \
                           KIPX_START(src3) KIPX_PASS_##tail);                                     \
    }                                                                                              \
    KIPX_TYPED_3(kipxa__##op, tail) {                                                              \
        KIPX_ENTER(3, KIPX_NO_FLAT, record, worker, KIPX_FLAT(src1), KIPX_FLAT(src2),              \
                   KIPX_FLAT(src3));                                                               \
    }

#define KIPX_STAMP_2C(op, Name, tail, shape, record, worker)                                       \
    KIPX_PUBLIC_2C(Kipx##Name, tail) {                                                             \
        const auto given = record;                                                                 \
        return travel(shape, {xe, flags, {dst, src1, src2}, roi, {nullptr, src1At, src2At}},       \
                      &given, worker);                                                             \
    }                                                                                              \
    KIPX_ARRAY_2C(kipxa_##op, tail) {                                                              \
        return kipxa__##op(xe, flags, dims, extent, dst_type, KIPX_START(dst), src1_type,          \
                           KIPX_START(src1), src2_type, KIPX_START(src2),                          \
                           values KIPX_PASS_##tail);                                               \
    }                                                                                              \
    KIPX_TYPED_2C(kipxa__##op, tail) {                                                             \
        KIPX_ENTER(2, KIPX_NO_FLAT, record, worker, KIPX_FLAT(src1), KIPX_FLAT(src2));             \
    }

#define KIPX_STAMP_1CC(op, Name, tail, shape, record, worker)                                      \
    KIPX_PUBLIC_1CC(Kipx##Name, tail) {                                                            \
        const auto given = record;                                                                 \
        return travel(shape, {xe, flags, {dst, src}, roi, {nullptr, srcAt}}, &given, worker);      \
    }                                                                                              \
    KIPX_ARRAY_1CC(kipxa_##op, tail) {                                                             \
        return kipxa__##op(xe, flags, dims, extent, dst_type, KIPX_START(dst), src_type,           \
                           KIPX_START(src), factors, addends KIPX_PASS_##tail);                    \
    }                                                                                              \
    KIPX_TYPED_1CC(kipxa__##op, tail) {                                                            \
        KIPX_ENTER(1, KIPX_NO_FLAT, record, worker, KIPX_FLAT(src));                               \
    }

#define KIPX_STAMP_1M(op, Name, tail, shape, record, worker)                                       \
    KIPX_PUBLIC_1M(Kipx##Name, tail) {                                                             \
        const auto given = record;                                                                 \
        return travel(shape,                                                                       \
                      {xe,                                                                         \
                       flags,                                                                      \
                       {dst, src, nullptr, nullptr, mask},                                         \
                       roi,                                                                        \
                       {nullptr, srcAt, nullptr, nullptr, maskAt}},                                \
                      &given, worker);                                                             \
    }                                                                                              \
    KIPX_ARRAY_1M(kipxa_##op, tail) {                                                              \
        return kipxa__##op(xe, flags, dims, extent, dst_type, KIPX_START(dst), src_type,           \
                           KIPX_START(src), mask_type, KIPX_START(mask) KIPX_PASS_##tail);         \
    }                                                                                              \
    KIPX_TYPED_1M(kipxa__##op, tail) {                                                             \
        KIPX_ENTER(1, KIPX_FLAT(mask), record, worker, KIPX_FLAT(src));                            \
    }

#define KIPX_STAMP_0(op, Name, tail, shape, record, worker)                                        \
    KIPX_PUBLIC_0(Kipx##Name, tail) {                                                              \
        const auto given = record;                                                                 \
        return travel(shape, {xe, flags, {dst}, roi, {}}, &given, worker);                         \
    }                                                                                              \
    KIPX_ARRAY_0(kipxa_##op, tail) {                                                               \
        return kipxa__##op(xe, flags, dims, extent, dst_type, KIPX_START(dst),                     \
                           values KIPX_PASS_##tail);                                               \
    }                                                                                              \
    KIPX_TYPED_0(kipxa__##op, tail) { KIPX_ENTER(0, KIPX_NO_FLAT, record, worker, KIPX_NO_FLAT); }

#define KIPX_STAMP_0M(op, Name, tail, shape, record, worker)                                       \
    KIPX_PUBLIC_0M(Kipx##Name, tail) {                                                             \
        const auto given = record;                                                                 \
        return travel(shape,                                                                       \
                      {xe,                                                                         \
                       flags,                                                                      \
                       {dst, nullptr, nullptr, nullptr, mask},                                     \
                       roi,                                                                        \
                       {nullptr, nullptr, nullptr, nullptr, maskAt}},                              \
                      &given, worker);                                                             \
    }                                                                                              \
    KIPX_ARRAY_0M(kipxa_##op, tail) {                                                              \
        return kipxa__##op(xe, flags, dims, extent, dst_type, KIPX_START(dst), mask_type,          \
                           KIPX_START(mask), values KIPX_PASS_##tail);                             \
    }                                                                                              \
    KIPX_TYPED_0M(kipxa__##op, tail) {                                                             \
        KIPX_ENTER(0, KIPX_FLAT(mask), record, worker, KIPX_NO_FLAT);                              \
    }

#define KIPX_STAMP_R(op, Name, tail, shape, record, worker)                                        \
    KIPX_PUBLIC_R(Kipx##Name, tail) {                                                              \
        const auto given = record;                                                                 \
        return travel(shape,                                                                       \
                      {xe,                                                                         \
                       flags,                                                                      \
                       {nullptr, src, nullptr, nullptr, mask},                                     \
                       roi,                                                                        \
                       {nullptr, nullptr, nullptr, nullptr, maskAt}},                              \
                      &given, worker);                                                             \
    }                                                                                              \
    KIPX_ARRAY_R(kipxa_##op, tail) {                                                               \
        return kipxa__##op(xe, flags, dims, extent, src_type, KIPX_START(src), mask_type,          \
                           KIPX_START(mask) KIPX_PASS_##tail);                                     \
    }                                                                                              \
    KIPX_TYPED_R(kipxa__##op, tail) {                                                              \
        KIPX_ENTER_FLAT(nullptr, 1, KIPX_FLAT(mask), record, worker, KIPX_FLAT(src));              \
    }
