// arith/arith.cpp - arithmetic from the public functions down to the named kernels.
//
// Gives    everything that kipx/arith.h declares per operation and per type triple, made from the
//          two lists; the work itself is typed_arith.cpp's and the row loops'.
#include <kipx/arith.h>
#include <kipx/array.h>
#include <kipx/unary.h>

#include "arith/arith_shapes.h"
#include "arith/typed_arith.h"
#include "core/stamp.h"

using namespace kipx;

namespace {

using Work = int32_t (*)(ArithOp op, uint32_t dst_type_bits, Call &call);
template<Work work, ArithOp op, uint32_t dst_type_bits> int32_t worker(Call &call) {
    return work(op, dst_type_bits, call);
}

// ---- tables ----

constexpr uint32_t none = arith_kernel_count;

#define KIPX_CASE(op, D, A, B)                                                                     \
    case kernel_key(KIPX_CODE_##D, KIPX_CODE_##A, KIPX_CODE_##B):                                  \
        return op##_##D##A##B;
#define KIPX_FIND(op, Name, triples, code, mirror)                                                 \
    uint32_t find_##op(uint32_t key) {                                                             \
        switch (key) { KIPX_TRIPLES_##triples(KIPX_CASE, op) default : return none; }              \
    }
KIPX_BINARY_OPS(KIPX_FIND)

#define KIPX_NAMED(op, D, A, B) kipxa__##op##_c1_##D##A##B,
#define KIPX_NAMES(op, Name, triples, code, mirror) KIPX_TRIPLES_##triples(KIPX_NAMED, op)
constexpr kipx_binary_kernel named_kernels[] = {KIPX_BINARY_OPS(KIPX_NAMES)};

kipx_binary_kernel table_answer(ArithOp op, uint32_t dst, uint32_t src1, uint32_t src2,
                                int32_t *status) {
    bool valid = element_valid(dst) && element_valid(src1) && element_valid(src2);
    uint32_t kernel = valid ? find_arith(op, dst, src1, src2) : none;
    int32_t failure = valid ? KIPX_ENOTSUP : KIPX_EINVAL;
    if (status) *status = kernel == none ? failure : 0;
    if (kernel != none) return named_kernels[kernel];
    auto *procedure = valid ? kipxa_proc_enotsup : kipxa_proc_einval;
    // The procedures take no notice of their arguments, whatever shape they are called in.
    return reinterpret_cast<kipx_binary_kernel>(reinterpret_cast<void *>(procedure));
}

// A kernel works on one channel, whatever the channel entry says.
int32_t enter_kernel(uint32_t kernel, KipxXE *xe, uint64_t flags, kipx_dims dims,
                     const uint32_t *extent, const Flat &dst, const Flat (&src)[2], int32_t scale,
                     int32_t aux) {
    const Scaled given(scale, aux);
    uint32_t axes = axes_of(dims);
    Call call{xe,
              flags,
              flat_operand(axes, dst),
              {flat_operand(axes, src[0]), flat_operand(axes, src[1]), {}},
              {},
              2,
              1,
              height_of(axes, extent),
              width_of(axes, extent),
              1,
              &given,
              false};
    return work_kernel(kernel, call);
}

} // namespace

uint32_t kipx::find_arith(ArithOp op, uint32_t dst, uint32_t src1, uint32_t src2) {
    uint32_t key = kernel_key(dst, src1, src2);
    switch (op) {
#define KIPX_FIND_CASE(op, Name, triples, code, mirror)                                            \
    case ArithOp::op:                                                                              \
        return find_##op(key);
        KIPX_BINARY_OPS(KIPX_FIND_CASE)
    }
    return none;
}

extern "C" {

int32_t kipx_binary(uint32_t code, KipxXE *xe, uint64_t flags, const kipx_arr *dst,
                    const kipx_arr *src1, const kipx_arr *src2, const kipx_site *roi,
                    const kipx_pos *src1At, const kipx_pos *src2At, int32_t scale, int32_t aux) {
    switch (code) {
#define KIPX_CODE_CASE(op, Name, triples, code, mirror)                                            \
    case code:                                                                                     \
        return Kipx##Name(xe, flags, dst, src1, src2, roi, src1At, src2At, scale, aux);
#define KIPX_SIGNED_CODE_CASE(op, Name, base, code) KIPX_CODE_CASE(op, Name, , code, )
        KIPX_BINARY_OPS(KIPX_CODE_CASE)
        KIPX_BINARY_SIGNED_OPS(KIPX_SIGNED_CODE_CASE)
    default:
        return KIPX_EINVAL;
    }
}

int32_t kipx_constant(uint32_t code, KipxXE *xe, uint64_t flags, const kipx_arr *dst,
                      const kipx_arr *src, const double *values, const kipx_site *roi,
                      const kipx_pos *srcAt, int32_t scale, int32_t aux) {
    switch (code) {
#define KIPX_CONSTANT_CASE(op, Name, triples, code, mirror)                                        \
    case code:                                                                                     \
        return Kipx##Name##C(xe, flags, dst, src, values, roi, srcAt, scale, aux);
#define KIPX_SIGNED_CONSTANT_CASE(op, Name, base, code) KIPX_CONSTANT_CASE(op, Name, , code, )
        KIPX_BINARY_OPS(KIPX_CONSTANT_CASE)
        KIPX_BINARY_SIGNED_OPS(KIPX_SIGNED_CONSTANT_CASE)
    case 0x7369676d: // "sigm"
        return KipxSigmoidAlpha(xe, flags, dst, src, values, roi, srcAt, scale, aux);
    default:
        return KIPX_EINVAL;
    }
}

// ---- public functions, array and typed levels ----

#define KIPX_LEVELS(op, Name, base, bits)                                                          \
    KIPX_STAMP_2(op, Name, KIPX_TAIL_SCALED, two_arrays, Scaled(scale, aux),                       \
                 (worker<work_arith, ArithOp::base, bits>))                                        \
    KIPX_STAMP_C(op##C, Name##C, KIPX_TAIL_SCALED, one_array, Scaled(scale, aux, values),          \
                 (worker<work_constant, ArithOp::base, bits>))
#define KIPX_OP_LEVELS(op, Name, triples, code, mirror) KIPX_LEVELS(op, Name, op, 0)
#define KIPX_SIGNED_LEVELS(op, Name, base, code) KIPX_LEVELS(op, Name, base, 8)
KIPX_BINARY_OPS(KIPX_OP_LEVELS)
KIPX_BINARY_SIGNED_OPS(KIPX_SIGNED_LEVELS)

// ---- tables and kernels ----

#define KIPX_DEFINE_KERNEL(op, D, A, B)                                                            \
    KIPX_KERNEL_BINARY(op, D, A, B) {                                                              \
        const Flat sources[] = {{KIPX_CODE_##A, src1, src1_strides},                               \
                                {KIPX_CODE_##B, src2, src2_strides}};                              \
        return enter_kernel(op##_##D##A##B, xe, flags, n, extent,                                  \
                            {KIPX_CODE_##D, dst, dst_strides}, sources, scale, aux);               \
    }
#define KIPX_DEFINE_KERNELS(op, Name, triples, code, mirror)                                       \
    KIPX_TABLE_BINARY(op) {                                                                        \
        return table_answer(ArithOp::op, dst_type, src1_type, src2_type, status);                  \
    }                                                                                              \
    KIPX_TRIPLES_##triples(KIPX_DEFINE_KERNEL, op)
KIPX_BINARY_OPS(KIPX_DEFINE_KERNELS)
}
