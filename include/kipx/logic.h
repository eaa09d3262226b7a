/* kipx/logic.h - bitwise operations on the elements of integer arrays.
 *
 * KipxAnd, KipxOrr, KipxXor combine two sources bit by bit; the C forms combine a source with one
 * value per channel; KipxNot turns every bit of a source over. Arrays, regions, places, flags and
 * codes are those of kipx/arith.h, without the two trailing numbers:
 *
 *   types   all integer types, of one element size in all arrays: signed and unsigned ones mix.
 *           Other valid types, and sizes that differ, are KIPX_ENOTSUP
 *   values  one number per channel of dst, converted once to the source's type: to nearest with ties
 *           to even, saturated, NaN to 0. Null is KIPX_EINVAL
 *   src1, src (of the C forms and KipxNot)
 *           null: dst is the source (in place)
 *
 * Nothing is allocated: the environment may be null.
 */
#ifndef KIPX_LOGIC_H
#define KIPX_LOGIC_H

#include <kipx/prototypes.h>

KIPX_BEGIN

KIPX_DECLARE_SHAPE(2, and, And, KIPX_TAIL_NONE);
KIPX_DECLARE_SHAPE(2, orr, Orr, KIPX_TAIL_NONE);
KIPX_DECLARE_SHAPE(2, xor, Xor, KIPX_TAIL_NONE);
KIPX_DECLARE_SHAPE(C, andC, AndC, KIPX_TAIL_NONE);
KIPX_DECLARE_SHAPE(C, orrC, OrrC, KIPX_TAIL_NONE);
KIPX_DECLARE_SHAPE(C, xorC, XorC, KIPX_TAIL_NONE);
KIPX_DECLARE_SHAPE(1, not, Not, KIPX_TAIL_NONE);

KIPX_END

#endif
