/* kipx/unary.h - functions of one array, element by element.
 *
 *   KipxNegate, KipxNegateq   -x
 *   KipxExp                   e to the power x
 *   KipxLn                    natural logarithm of x
 *   KipxSigmoidAlpha          1 / (1 + e^(-alpha x)), with an alpha for each channel of dst in `values`
 *
 * Arrays, regions, places, flags and codes are those of kipx/arith.h; a null src means that dst is the
 * source (in place). Nothing is allocated but where KipxNegate narrows, as in KipxRSubC.
 *
 * Types. Negation takes those of KipxRSubC, of which it is the form with 0, and f64 on either side. A
 * result r that is an integer is wrapped by KipxNegate where the scale exponent s is 0 (-(-128) is -128,
 * -1 in u8 is 255) and saturated by KipxNegateq and for all other s, as there; -0 is the negative of 0
 * in f32 and f64. The other functions take u8, s16, s32, f32 and f64 on either side. Other valid types
 * are KIPX_ENOTSUP.
 *
 * Accuracy. From f32 to f32 everything is computed in f32, else in f64. Results in f32 and f64 are the
 * correctly rounded value or its neighbour; in f32 from other types, and for KipxSigmoidAlpha from any,
 * nearly always the former. Integer results are rounded to nearest, ties to even, and saturated; NaN gives
 * the smallest value, 0 in u8. Subnormal numbers are read and written as they are.
 *
 * Scale. r is multiplied by 2^-k with k = -s mod 32 for s < 0, by 2^(s mod 64) for s > 0, before it is
 * rounded to an integer.
 *
 * Ends. e^x is 0 or infinity where it leaves the type; ln 0 is minus infinity for either zero, ln of what
 * is less NaN. A NaN, and alpha 0 times an infinite x, gives the NaN 0x7fc00000 or, in f64,
 * 0x7ff8000000000000.
 */
#ifndef KIPX_UNARY_H
#define KIPX_UNARY_H

#include <kipx/prototypes.h>

KIPX_BEGIN

KIPX_DECLARE_SHAPE(1, negate, Negate, KIPX_TAIL_SCALED);
KIPX_DECLARE_SHAPE(1, negateq, Negateq, KIPX_TAIL_SCALED);
KIPX_DECLARE_SHAPE(1, exp, Exp, KIPX_TAIL_SCALED);
KIPX_DECLARE_SHAPE(1, ln, Ln, KIPX_TAIL_SCALED);
KIPX_DECLARE_SHAPE(C, sigmoidalpha, SigmoidAlpha, KIPX_TAIL_SCALED);

/* The function of one array that an operation code names: "neg " 0x6e656720, "negq" 0x6e656771, "exp "
 * 0x65787020, "ln  " 0x6c6e2020; KIPX_EINVAL for any other, whatever the other arguments are. */
KIPX_API int32_t kipx_unary(uint32_t code, KipxXE *xe, uint64_t flags, const kipx_arr *dst,
                            const kipx_arr *src, const kipx_site *roi, const kipx_pos *srcAt,
                            int32_t scale, int32_t aux);

KIPX_END

#endif
