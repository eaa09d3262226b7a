/* kipx/muladd.h - products to which something is added, or that are taken from something.
 *
 * KipxMulAdd a * b + c, KipxMulSub a * b - c, KipxMulRSub c - a * b, element by element. The plain forms
 * take three arrays. The C forms take one number per channel for b: with KipxMulAddC an image times
 * a factor is added to another one. The CC forms take numbers for b and c: factors and addends.
 *
 * Arrays, regions, places, flags and codes are those of kipx/arith.h:
 *
 *   src1 (src)   a; null: dst is the source (in place)
 *   src2, src3   b and c; in the C forms src2 is c. To add up products in dst give dst for c
 *   values       C forms: b, one per channel; null is KIPX_EINVAL
 *   factors, addends
 *                CC forms: b and c, one per channel; null is KIPX_EINVAL
 *   scale        the scale exponent s; aux is carried and not read
 *
 * Types are those of the list in kipx/muladd_types.inc, a and b in either order; others are
 * KIPX_ENOTSUP. A constant is of the first of a's own type, s16, s32 that holds the numbers of all
 * channels as they are and for which there is a kernel, else f32 (to nearest).
 *
 * Results of integers are exact. Where one of a, b, c is f32, a * b + c is rounded once into binary32, to
 * nearest even, whatever the destination. What is stored of that:
 *
 *   s = 0   saturated, from f32 sources to nearest even; f32 as it is. Nothing wraps
 *   s < 0   as binary32, times 2^-k with k = -s mod 32, to nearest even, saturated
 *   s > 0   integers shifted left by s mod 64 bits and saturated; binary32 times 2^(s mod 64)
 *   f32     times 2^-k or 2^(s mod 64). A NaN is 0x7fc00000; in integers it is the smallest value
 *
 * Nothing is allocated: the environment may be null.
 */
#ifndef KIPX_MULADD_H
#define KIPX_MULADD_H

#include <kipx/muladd_types.inc>
#include <kipx/prototypes.h>

KIPX_BEGIN

#define KIPX_DECLARE_MULADD(op, Name)                                                              \
    KIPX_DECLARE_SHAPE(3, op, Name, KIPX_TAIL_SCALED);                                             \
    KIPX_DECLARE_SHAPE(2C, op##C, Name##C, KIPX_TAIL_SCALED);                                      \
    KIPX_DECLARE_SHAPE(1CC, op##CC, Name##CC, KIPX_TAIL_SCALED)

KIPX_DECLARE_MULADD(muladd, MulAdd);
KIPX_DECLARE_MULADD(mulsub, MulSub);
KIPX_DECLARE_MULADD(mulrsub, MulRSub);
#undef KIPX_DECLARE_MULADD

/* The functions that an operation code names: "mla " 0x6d6c6120, "mls " 0x6d6c7320, "mlrs" 0x6d6c7273;
 * KIPX_EINVAL for any other, whatever the other arguments are. */
KIPX_API int32_t kipx_muladd(uint32_t code, KipxXE *xe, uint64_t flags, const kipx_arr *dst,
                             const kipx_arr *src1, const kipx_arr *src2, const kipx_arr *src3,
                             const kipx_site *roi, const kipx_pos *src1At, const kipx_pos *src2At,
                             const kipx_pos *src3At, int32_t scale, int32_t aux);
KIPX_API int32_t kipx_muladdC(uint32_t code, KipxXE *xe, uint64_t flags, const kipx_arr *dst,
                              const kipx_arr *src1, const kipx_arr *src2, const double *values,
                              const kipx_site *roi, const kipx_pos *src1At, const kipx_pos *src2At,
                              int32_t scale, int32_t aux);
KIPX_API int32_t kipx_muladdCC(uint32_t code, KipxXE *xe, uint64_t flags, const kipx_arr *dst,
                               const kipx_arr *src, const double *factors, const double *addends,
                               const kipx_site *roi, const kipx_pos *srcAt, int32_t scale,
                               int32_t aux);

KIPX_END

#endif
