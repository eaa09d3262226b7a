/* kipx/arith.h - element-wise arithmetic of two arrays, and of an array and a constant.
 *
 * Every destination element is computed from the elements at the same place in two sources. All
 * public functions take
 *
 *   xe      the environment; may be null where no scratch is needed (it is needed when the first
 *           source's elements are wider than the destination's, u8 from s16 excepted)
 *   flags   KIPX_FLAG_*; KIPX_FLAG_PLAIN asks for the plain form of the row loops
 *   dst     result; src1, src2: sources, of 1 to 4 channels, as many as dst
 *   src1    null: dst is the first source (in place)
 *   roi     region of the destination (null: all of it). It never moves a source. Channels that it
 *           leaves out are left out of the sources too
 *   src1At, src2At
 *           where the sources' regions start (null: their origin; in place with src1At null: where
 *           the destination's region starts). The channel entry is not read
 *   scale   the scale exponent s: results are multiplied by two to the power s, see below
 *   aux     carried to the kernels, not read
 *
 * and return 0, or a negative code with nothing written. Height and width worked on are the smallest
 * of what roi and the three arrays leave.
 *
 * Result r is exact for integer sources. With a floating source it is formed in binary64 for s32
 * destinations and where the other source is s32, and otherwise in binary32, where it is the
 * correctly rounded exact result.
 *
 *   s = 0   add, sub, rsub wrap into integer destinations (two's complement); mul and the q and sq
 *           forms saturate. Floating results go to s32 by nearest, ties to even, saturated, NaN to
 *           -2^31
 *   s < 0   r as binary32, times 2^-k with k = -s mod 32, to nearest with ties to even, saturated
 *   s > 0   integer r: shifted left by s mod 64 bits in 64 bits (what is shifted out is lost), then
 *           saturated. Floating r into s32: times 2^(s mod 64), to nearest, saturated
 *   f32 destinations: r as binary32 times 2^-k or 2^(s mod 64), nothing rounded to integers
 *
 * Only s = 0 wraps: -32 and 64, which scale by one, still saturate. The divisions form their quotient
 * q first (div, rdiv: truncated, in integers; divr, rdivr: in binary32) and store it saturated, or
 * for s other than 0 multiply it as binary32 by 2^-k or 2^(s mod 32), round to nearest even, saturate.
 * Division of integers by zero in div and rdiv raises the processor's divide fault (on AArch64, whose
 * division does not trap, it gives 0); the smallest number divided by -1 saturates. In divr and rdivr
 * an infinite or NaN quotient gives the smallest value of a signed destination and 0 for u8.
 *
 * Adding an array to itself, at the same place with the same strides, multiplies it by 2.0: u8 saturates
 * (200 + 200 gives 255; from an equal copy it gives 144).
 *
 * The sq forms saturate into the signed counterpart of the destination's type (its code with 8 set)
 * and store that into the destination's bytes.
 *
 * When the first source is wider than the destination (u8 from s16 excepted) the result is formed in
 * the first source's type, scale and wrap included, and converted from there: to nearest even,
 * saturated, NaN to the smallest value or 0 for unsigned ones.
 *
 * The constant forms, KipxAddC to KipxRDivrC, take one number per channel of dst in the place of the
 * second array (values; null is KIPX_EINVAL) and give what an array of it would give. Its type is the
 * source's for floating sources, else the narrowest of the source's own, s16 and s32 that holds the
 * numbers of all channels as they are, else f32 (to nearest): u8 times 0.5 is rounded and saturated
 * in f32, u8 plus 12 wraps. The divisions of integers have no kernel for a constant that the
 * source's type does not hold: KIPX_ENOTSUP.
 *
 * A source may be the destination itself, at the same place with the same strides and element size.
 * Any other sharing of bytes with the destination is KIPX_EINVAL, and so is a destination whose own
 * elements share bytes. Strides are taken to nest, each spanning everything inside it: a destination
 * whose strides do not, or a source of other strides or extents lying between the destination's
 * first and last byte, counts as sharing.
 */
#ifndef KIPX_ARITH_H
#define KIPX_ARITH_H

#include <kipx/arith_ops.inc>
#include <kipx/arith_types.inc>
#include <kipx/prototypes.h>

KIPX_BEGIN

/* A one-channel kernel: row count and width from the extent vector of n entries, operands as element
 * address and strides. No checks; 0. */
typedef int32_t (*kipx_binary_kernel)(KipxXE *xe, uint64_t flags, kipx_dims n,
                                      const uint32_t *extent, void *dst,
                                      const uint32_t *dst_strides, const void *src1,
                                      const uint32_t *src1_strides, const void *src2,
                                      const uint32_t *src2_strides, int32_t scale, int32_t aux);
#define KIPX_KERNEL_BINARY(op, D, A, B)                                                            \
    int32_t kipxa__##op##_c1_##D##A##B(                                                            \
        KipxXE *xe, uint64_t flags, kipx_dims n, const uint32_t *extent, void *dst,                \
        const uint32_t *dst_strides, const void *src1, const uint32_t *src1_strides,               \
        const void *src2, const uint32_t *src2_strides, int32_t scale, int32_t aux)
/* The table routines, kipxa__aaddfun_imp to kipxa__ardivrfun_imp: the kernel for a triple of element
 * types, never null. status, when given, receives 0; or -65514 when a code is invalid, or -65511 when
 * there is no such kernel, and the result is then kipxa_proc_einval or kipxa_proc_enotsup. */
#define KIPX_TABLE_BINARY(op)                                                                      \
    kipx_binary_kernel kipxa__a##op##fun_imp(uint32_t dst_type, uint32_t src1_type,                \
                                             uint32_t src2_type, int32_t *status)

#define KIPX_DECLARE_KERNEL(op, D, A, B) KIPX_API KIPX_KERNEL_BINARY(op, D, A, B);
#define KIPX_DECLARE_OP(op, Name, triples, code, mirror)                                           \
    KIPX_DECLARE_SHAPE(2, op, Name, KIPX_TAIL_SCALED);                                             \
    KIPX_DECLARE_SHAPE(C, op##C, Name##C, KIPX_TAIL_SCALED);                                       \
    KIPX_API KIPX_TABLE_BINARY(op);                                                                \
    KIPX_TRIPLES_##triples(KIPX_DECLARE_KERNEL, op)
#define KIPX_DECLARE_SIGNED_OP(op, Name, base, code)                                               \
    KIPX_DECLARE_SHAPE(2, op, Name, KIPX_TAIL_SCALED);                                             \
    KIPX_DECLARE_SHAPE(C, op##C, Name##C, KIPX_TAIL_SCALED);

KIPX_BINARY_OPS(KIPX_DECLARE_OP)
KIPX_BINARY_SIGNED_OPS(KIPX_DECLARE_SIGNED_OP)

#undef KIPX_DECLARE_KERNEL
#undef KIPX_DECLARE_OP
#undef KIPX_DECLARE_SIGNED_OP

/* The public function that an operation code names ("aadd" = 0x61616464); KIPX_EINVAL for a code
 * that is not in the list, whatever the other arguments are. */
KIPX_API int32_t kipx_binary(uint32_t code, KipxXE *xe, uint64_t flags, const kipx_arr *dst,
                             const kipx_arr *src1, const kipx_arr *src2, const kipx_site *roi,
                             const kipx_pos *src1At, const kipx_pos *src2At, int32_t scale,
                             int32_t aux);

/* The same for the constant forms, which share the codes; "sigm" 0x7369676d is KipxSigmoidAlpha. */
KIPX_API int32_t kipx_constant(uint32_t code, KipxXE *xe, uint64_t flags, const kipx_arr *dst,
                               const kipx_arr *src, const double *values, const kipx_site *roi,
                               const kipx_pos *srcAt, int32_t scale, int32_t aux);

/* Plain loops over at most 256 elements (more count as 256); source1 null: the destination is the
 * first source. _8 and _16 work on unsigned elements of that width modulo 2^8 and 2^16: add, and suba
 * the first source minus the second. The vcf loops work on f32: a + b, a - b, b - a, a * b, a / b,
 * b / a with a from source1. */
#define KIPX_DECLARE_REFERENCE(name, type)                                                         \
    KIPX_API void C_kipx_##name(type *destination, const type *source1, const type *source2,       \
                                uint32_t count);
KIPX_DECLARE_REFERENCE(addLE256_8, uint8_t)
KIPX_DECLARE_REFERENCE(addLE256_16, uint16_t)
KIPX_DECLARE_REFERENCE(subaLE256_8, uint8_t)
KIPX_DECLARE_REFERENCE(subaLE256_16, uint16_t)
KIPX_DECLARE_REFERENCE(addvcf, float)
KIPX_DECLARE_REFERENCE(subvcf, float)
KIPX_DECLARE_REFERENCE(rsubvcf, float)
KIPX_DECLARE_REFERENCE(mulvcf, float)
KIPX_DECLARE_REFERENCE(divvcf, float)
KIPX_DECLARE_REFERENCE(rdivvcf, float)
#undef KIPX_DECLARE_REFERENCE

KIPX_END

#endif
