// arith/typed_arith.h - the typed level of the arithmetic, one routine for all operations.
//
// Gives    work_arith(): types checked, sources ordered, kernel and conversion found, scratch taken,
//          rows worked, scratch given back; work_kernel(), the same from a chosen kernel on; the
//          operations and the look-up of their kernels.
// Promises validity of the three type codes comes first, then the order of the sources (exchanged
//          at most once, the operation with them), then narrowing, then the look-ups, then the
//          flags. Nothing is written before the last of these and the one allocation have
//          succeeded.
#pragma once

#include "arith/arith_rows.h"
#include "core/call.h"

namespace kipx {

#define KIPX_ENUM(op, Name, triples, code, mirror) op,
enum class ArithOp : uint32_t { KIPX_BINARY_OPS(KIPX_ENUM) };
#undef KIPX_ENUM

// What an arithmetic call brings besides its operands: the two trailing numbers, of which the second
// is not read, and for a constant operand one value per channel.
struct Scaled {
    int32_t exponent, aux;
    const double *values;
    Scaled(int32_t e, int32_t a, const double *v = nullptr) : exponent(e), aux(a), values(v) {}
};

// The scale exponent as the row loops take it.
ArithScale make_scale(int32_t exponent);

// arith_kernel_count when the triple has no kernel.
uint32_t find_arith(ArithOp op, uint32_t dst, uint32_t src1, uint32_t src2);

// dst_type_bits are set in the destination's type code once it has been found valid.
int32_t work_arith(ArithOp op, uint32_t dst_type_bits, Call &call);
// The second source is call.params' constant, in the narrowest type that holds it.
int32_t work_constant(ArithOp op, uint32_t dst_type_bits, Call &call);
// One-channel operands of the kernel's own types.
int32_t work_kernel(uint32_t kernel, Call &call);

} // namespace kipx
