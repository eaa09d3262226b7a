// arith/arith.cpp - binary arithmetic from the public functions down to the named kernels.
//
// Gives    everything that kipx/arith.h declares per operation and per type triple, made from the
//          two lists; the work itself is typed_binary.cpp's and the row loops'.
#include <kipx/arith.h>
#include <kipx/array.h>

#include "arith/kernel.h"
#include "arith/typed_binary.h"
#include "core/binary.h"
#include "core/element.h"

using namespace kipx;

namespace {

// Base plus origin: the element that an operand's walk starts from.
struct ArrayLevel {
    kipx_dims dims;
    void *operator()(const void *base, const uint32_t *origin, const uint32_t *strides) const {
        uint32_t offset =
            origin ? byte_offset(leading_of(dims), axes_of(dims), origin, strides) : 0;
        return static_cast<char *>(const_cast<void *>(base)) + offset;
    }
};

int32_t table_status(uint32_t dst, uint32_t src1, uint32_t src2) {
    bool valid = element_valid(dst) && element_valid(src1) && element_valid(src2);
    return valid ? KIPX_ENOTSUP : KIPX_EINVAL;
}

kipx_binary_kernel answer(kipx_binary_kernel kernel, int32_t failure, int32_t *status) {
    if (status) *status = kernel ? 0 : failure;
    if (kernel) return kernel;
    auto *procedure = failure == KIPX_EINVAL ? kipxa_proc_einval : kipxa_proc_enotsup;
    // The procedures take no notice of their arguments, whatever shape they are called in.
    return reinterpret_cast<kipx_binary_kernel>(reinterpret_cast<void *>(procedure));
}

#define KIPX_CODE_ROW(op, Name, triples, code, mirror) {code, kipxa_##op},
#define KIPX_SIGNED_CODE_ROW(op, Name, base, code) {code, kipxa_##op},
constexpr BinaryEntry entries[] = {KIPX_BINARY_OPS(KIPX_CODE_ROW)
                                       KIPX_BINARY_SIGNED_OPS(KIPX_SIGNED_CODE_ROW)};
#undef KIPX_CODE_ROW
#undef KIPX_SIGNED_CODE_ROW

} // namespace

extern "C" {

int32_t kipx_binary(uint32_t code, KipxXE *xe, uint64_t flags, const kipx_arr *dst,
                    const kipx_arr *src1, const kipx_arr *src2, const kipx_site *roi,
                    const kipx_pos *src1At, const kipx_pos *src2At, int32_t scale, int32_t aux) {
    return binary_handler(code, entries, sizeof entries / sizeof entries[0],
                          {xe, flags, dst, src1, src2, roi, src1At, src2At, scale, aux});
}

// ---- public functions and array level ----

#define KIPX_DEFINE_UPPER(op, Name, code)                                                          \
    KIPX_PUBLIC_BINARY(Name) {                                                                     \
        return kipx_binary(code, xe, flags, dst, src1, src2, roi, src1At, src2At, scale, aux);     \
    }                                                                                              \
    KIPX_ARRAY_BINARY(op) {                                                                        \
        ArrayLevel at{dims};                                                                       \
        return kipxa__##op(xe, flags, dims, extent, dst_type, at(dst, dst_origin, dst_strides),    \
                           dst_strides, src1_type, at(src1, src1_origin, src1_strides),            \
                           src1_strides, src2_type, at(src2, src2_origin, src2_strides),           \
                           src2_strides, scale, aux);                                              \
    }

// ---- typed level ----

#define KIPX_DEFINE_TYPED(op, base, type_mask)                                                     \
    KIPX_TYPED_BINARY(op) {                                                                        \
        TypedCall call{xe,                                                                         \
                       flags,                                                                      \
                       n,                                                                          \
                       extent,                                                                     \
                       {dst_type, dst, dst_strides},                                               \
                       {src1_type, src1, src1_strides},                                            \
                       {src2_type, src2, src2_strides},                                            \
                       scale,                                                                      \
                       aux};                                                                       \
        return typed_binary(ArithOp::base, type_mask, call);                                       \
    }

// ---- kernels and their tables ----

#define KIPX_DEFINE_KERNEL(op, D, A, B)                                                            \
    KIPX_KERNEL_BINARY(op, D, A, B) {                                                              \
        (void)xe, (void)aux;                                                                       \
        return run_kernel<op##_##D##A##B, sizeof(D), sizeof(A), sizeof(B)>(                        \
            flags, n, extent, {dst, dst_strides}, {src1, src1_strides}, {src2, src2_strides},      \
            scale);                                                                                \
    }
#define KIPX_CASE(op, D, A, B)                                                                     \
    case kernel_key(KIPX_CODE_##D, KIPX_CODE_##A, KIPX_CODE_##B):                                  \
        return answer(kipxa__##op##_c1_##D##A##B, 0, status);
#define KIPX_DEFINE_TABLE(op, triples)                                                             \
    KIPX_TABLE_BINARY(op) {                                                                        \
        int32_t failure = table_status(dst_type, src1_type, src2_type);                            \
        if (failure == KIPX_EINVAL) return answer(nullptr, failure, status);                       \
        switch (kernel_key(dst_type, src1_type, src2_type)) {                                      \
            KIPX_TRIPLES_##triples(KIPX_CASE, op) default                                          \
                : return answer(nullptr, failure, status);                                         \
        }                                                                                          \
    }

#define KIPX_DEFINE_OP(op, Name, triples, code, mirror)                                            \
    KIPX_DEFINE_UPPER(op, Name, code)                                                              \
    KIPX_DEFINE_TYPED(op, op, 0)                                                                   \
    KIPX_DEFINE_TABLE(op, triples)                                                                 \
    KIPX_TRIPLES_##triples(KIPX_DEFINE_KERNEL, op)
#define KIPX_DEFINE_SIGNED_OP(op, Name, base, code)                                                \
    KIPX_DEFINE_UPPER(op, Name, code)                                                              \
    KIPX_DEFINE_TYPED(op, base, 8)

KIPX_BINARY_OPS(KIPX_DEFINE_OP)
KIPX_BINARY_SIGNED_OPS(KIPX_DEFINE_SIGNED_OP)
}
