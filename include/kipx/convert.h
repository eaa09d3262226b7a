/* kipx/convert.h - copying, filling and converting arrays.
 *
 * Gives    fills with a value per channel, copies, both under a mask; and the conversion of single
 *          values and ranges of values to an element type.
 * Promises a number goes into an integer type to the nearest one, ties to the even one, and where
 *          that leaves the type's range to the end of the range; NaN gives 0. f32 keeps what it can
 *          hold of it.
 * Owner    everything is the caller's; scratch comes from the environment and goes back to it.
 *
 * The public functions take
 *
 *   xe      the environment; may be null where no scratch is needed
 *   flags   KIPX_FLAG_*
 *   dst     result, of 1 to 4 channels and of 3 or 4 axes
 *   src     source of the destination's element type and channels; it has as many axes as dst, or 3
 *           against 4, and then every plane of dst gets the same
 *   mask    u8, of one channel or as many as dst; as many axes as dst, or 3 against 4. Elements of
 *           dst are written where it is not 0. Null writes all
 *   values  one per channel of the region
 *   roi     region of the destination (null: all of it). It never moves a source or a mask
 *   srcAt, maskAt
 *           where their regions start (null: at their origin)
 *
 * and return 0 or a negative code with nothing written. What is worked on is the smallest of what roi
 * and the arrays leave. All element types with a size are taken, codes 1 to 4 and 9 to 14. The flat
 * levels take 2 or 3 axes.
 */
#ifndef KIPX_CONVERT_H
#define KIPX_CONVERT_H

#include <kipx/prototypes.h>

KIPX_BEGIN

/* ---- single values ---- */

/* `channels` values as adjacent elements of a type: the vector that a value per channel becomes.
 * They take 16 bytes at most; more is KIPX_ENOTSUP, and so is type 15. KIPX_EINVAL for other invalid
 * types, no channels or a null pointer. */
KIPX_API int32_t kipx_mkifillvalv16(void *vector, uint32_t type, const double *values,
                                    uint32_t channels);

/* Brings both ends of a range into the range of a type; NaN stays, and so do fractions. The range of
 * f32 is that of its finite numbers, f64 takes everything. KIPX_EINVAL for an invalid type or null,
 * KIPX_ENOTSUP for type 15. */
KIPX_API int32_t kipx_vrng_saturate(kipx_vrange *range, uint32_t type);

/* ---- fill and copy ---- */

/* Every element of a channel becomes the channel's value. */
KIPX_DECLARE_SHAPE(0, fill, Fill, KIPX_TAIL_NONE);
KIPX_DECLARE_SHAPE(0M, fill_xm, FillEx, KIPX_TAIL_NONE);

/* Elements as they are, bit by bit; another element type than the source's is KIPX_ENOTSUP. Source
 * and destination may lie across each other in any way: the result is that of a source copied away
 * first. Where that takes scratch (rows of different strides, pixels with gaps, a mask) a null
 * environment is KIPX_EINVAL. */
KIPX_DECLARE_SHAPE(1, copy, Copy, KIPX_TAIL_NONE);
KIPX_DECLARE_SHAPE(1M, copy_xm, CopyEx, KIPX_TAIL_NONE);

KIPX_END

#endif
