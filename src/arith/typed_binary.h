// arith/typed_binary.h - the typed level of the binary arithmetic, one routine for all operations.
//
// Gives    typed_binary(): types checked, sources ordered, kernel and conversion found, channels
//          folded, scratch taken, rows worked, scratch given back.
// Promises validity of the three type codes comes first, then the order of the sources (exchanged
//          at most once, the operation with them), then narrowing, then the look-ups, then the
//          flags. Nothing is written before the last of these and the one allocation have
//          succeeded.
#pragma once

#include <kipx/env.h>

#include <kipx/arith_ops.inc>
#include <kipx/types.h>

namespace kipx {

#define KIPX_ENUM(op, Name, triples, code, mirror) op,
enum class ArithOp : uint32_t { KIPX_BINARY_OPS(KIPX_ENUM) };
#undef KIPX_ENUM

struct TypedOperand {
    uint32_t type;
    const void *at;
    const uint32_t *strides;
};

struct TypedCall {
    KipxXE *xe;
    uint64_t flags;
    kipx_dims n;
    const uint32_t *extent;
    TypedOperand dst, src1, src2;
    int32_t scale, aux;
};

// dst_type_bits are set in the destination's type code once it has been found valid.
// The call is used up: its sources may come back exchanged.
int32_t typed_binary(ArithOp op, uint32_t dst_type_bits, TypedCall &call);

} // namespace kipx
