/* kipx/matrix.h - products of small matrices, pixel by pixel.
 *
 *   KipxMulMM     a matrix at every pixel times a matrix at every pixel
 *   KipxMulMV     a matrix at every pixel times the vector at every pixel
 *   KipxMulMV_n   one matrix times the vectors of all pixels, and a sum with one vector: a colour
 *                 transform
 *
 * A vector is a pixel, its entries are the channels. A matrix of n x n entries, n from 1 to 4, is n
 * pixels side by side with n channels each, the rows of the matrix; a matrix array is n times as wide
 * as it has matrices, and what is left at the end of a row is not part of it. For n = 3:
 *
 *     pixel        0             1             2             3             4
 *            +-------------+-------------+-------------+-------------+-------------+--
 *     row y  | a00 a01 a02 | a10 a11 a12 | a20 a21 a22 | b00 b01 b02 | b10 b11 b12 | ...
 *            +-------------+-------------+-------------+-------------+-------------+--
 *            |<------------- matrix 0 ---------------->|<------- matrix 1 -------- ...
 *
 * A 2 x 2 matrix may also be a pixel of 4 channels, a00 a01 a10 a11: in KipxMulMV where src1 has 4
 * channels and dst 2, in KipxMulMM where `order` is 2, for each array of 4 channels.
 *
 * Arguments are those of kipx/arith.h, but:
 *
 *   roi, src1At, src2At   count matrices, not the pixels that they are made of. Channels are not
 *             chosen: roi's must begin with the first
 *   src1      the left factor; in KipxMulMM null means dst (in place)
 *   src2      the right factor; in KipxMulMV the vectors
 *   order     n; 0: as many as dst has channels
 *   src       of KipxMulMV_n: null means dst. dst may have another number of channels
 *   matrix    as many rows as dst has channels, each of as many numbers as src has, row by row
 *   addends   one number for each channel of dst; null for none
 *
 * Any of u8, u16, s16, s32, f32, f64 for each array; other valid types are KIPX_ENOTSUP. Sums are formed
 * in binary64, a product after the other from the left, then the addend; then times 2^-k with k = -s
 * mod 32 for s < 0 or 2^(s mod 64) for s > 0. Integers are rounded to nearest, ties to even, and
 * saturated, NaN to the smallest value, 0 in unsigned ones; a NaN is 0x7fc00000 or 0x7ff8000000000000.
 *
 * A source may be the destination itself, at the same place with the same strides; any other sharing
 * of bytes is KIPX_EINVAL. Nothing is allocated: the environment may be null.
 */
#ifndef KIPX_MATRIX_H
#define KIPX_MATRIX_H

#include <kipx/prototypes.h>

KIPX_BEGIN

KIPX_API int32_t KipxMulMM(KipxXE *xe, uint64_t flags, const kipx_arr *dst, const kipx_arr *src1,
                           const kipx_arr *src2, const kipx_site *roi, const kipx_pos *src1At,
                           const kipx_pos *src2At, int32_t scale, uint32_t order);
KIPX_API int32_t KipxMulMV(KipxXE *xe, uint64_t flags, const kipx_arr *dst, const kipx_arr *src1,
                           const kipx_arr *src2, const kipx_site *roi, const kipx_pos *src1At,
                           const kipx_pos *src2At, int32_t scale, int32_t aux);
KIPX_API int32_t KipxMulMV_n(KipxXE *xe, uint64_t flags, const kipx_arr *dst, const kipx_arr *src,
                             const double *matrix, const double *addends, const kipx_site *roi,
                             const kipx_pos *srcAt, int32_t scale, int32_t aux);

KIPX_END

#endif
