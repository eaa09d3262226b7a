/* kipx/resize.h - arrays in other sizes, every element that of the nearest pixel.
 *
 * The source's region is laid over the destination's, edge on edge, and every pixel of the result is
 * the one that its centre falls on: of w columns that become W, column x gets column
 *
 *   floor ((2 x + 1) * w / (2 W))
 *
 * and rows likewise. The quotient is that of whole numbers, so that no ratio drifts. A centre on the
 * line between two pixels gets the one behind it: half the size takes columns 1, 3, 5 ..., twice the
 * size 0, 0, 1, 1 ... Elements are moved bit by bit. Planes are not resized.
 *
 * The public functions take
 *
 *   xe      the environment; not used, may be null
 *   flags   KIPX_FLAG_*; KIPX_FLAG_PLAIN asks for the plain form of the loops
 *   dst     result, of 1 to 4 channels and of 3 or 4 axes
 *   src     source of the destination's element type and channels; it has as many axes as dst, or 3
 *           against 4. A source with one plane serves all planes of dst, else both have as many
 *   mask    u8, of one channel or as many as dst; as many axes as dst, or 3 against 4. Elements of dst
 *           are written where it is not 0, the others are left as they are. Null writes all
 *   roi     region of the destination (null: all of it)
 *   srcRoi  region of the source (null: all of it)
 *   maskAt  where the mask's region starts (null: at its origin). A mask that is smaller than the
 *           destination's region leaves alone what lies beyond it, and moves nothing
 *
 * and return 0, or a negative code with nothing written: KIPX_EINVAL for null and for arrays that do
 * not fit, KIPX_EEMPTY for an empty region or a mask beyond which nothing is left, KIPX_ENOTSUP for
 * different element types and for type 15. Both regions are clipped to their arrays before the one is
 * laid over the other. Planes and channels of both regions are taken in order, as many as both have.
 * Arrays may lie in one picture, but must share no byte (KIPX_EINVAL).
 */
#ifndef KIPX_RESIZE_H
#define KIPX_RESIZE_H

#include <kipx/prototypes.h>

KIPX_BEGIN

/* Without a mask, and with one: 0, or a negative code with nothing written. */
KIPX_API int32_t KipxResize(KipxXE *xe, uint64_t flags, const kipx_arr *dst, const kipx_arr *src,
                            const kipx_site *roi, const kipx_site *srcRoi);
KIPX_API int32_t KipxEResize(KipxXE *xe, uint64_t flags, const kipx_arr *dst, const kipx_arr *src,
                             const kipx_arr *mask, const kipx_site *roi, const kipx_site *srcRoi,
                             const kipx_pos *maskAt);

/* The flat levels: extent is the destination's, of which the channel entry counts, src_extent the
 * source's. Mask and destination are of the same extent; a mask without an address writes all. */
KIPX_API int32_t kipxa_resize(KIPX_ARRAY_HEAD, const uint32_t *src_extent, KIPX_ARRAY_SOURCE(src));
KIPX_API int32_t kipxa_eresize(KIPX_ARRAY_HEAD, const uint32_t *src_extent, KIPX_ARRAY_SOURCE(src),
                               KIPX_ARRAY_SOURCE(mask));
KIPX_API int32_t kipxa__resize(KIPX_TYPED_HEAD, const uint32_t *src_extent, KIPX_TYPED_SOURCE(src));
KIPX_API int32_t kipxa__eresize(KIPX_TYPED_HEAD, const uint32_t *src_extent, KIPX_TYPED_SOURCE(src),
                                KIPX_TYPED_SOURCE(mask));

KIPX_END

#endif
