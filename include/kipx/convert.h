/* kipx/convert.h - copying, filling, converting and continuing arrays.
 *
 * Gives    fills with a value per channel, copies, both under a mask; conversion of element types, with
 *          scale and shift; copies that continue an array beyond its edges; and the conversion of
 *          single values and ranges of values to an element type.
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
 *   src     source of the destination's channels and, but for conversion, its element type; it has as
 *           many axes as dst, or 3 against 4, and then every plane of dst gets the same. As many
 *           planes as dst, or 1; where borders are made, any number
 *   mask    u8, of one channel or as many as dst; as many axes as dst, or 3 against 4. Elements of
 *           dst are written where it is not 0. Null writes all
 *   values  one per channel of the region
 *   roi     region of the destination (null: all of it). It never moves a source or a mask
 *   srcAt, maskAt
 *           where their regions start (null: at their origin)
 *
 * and return 0 or a negative code with nothing written. What is worked on is the smallest of what roi
 * and the arrays leave. But for conversion all element types with a size are taken, codes 1 to 4 and 9
 * to 14. The flat levels take 2 or 3 axes.
 */
#ifndef KIPX_CONVERT_H
#define KIPX_CONVERT_H

#include <kipx/prototypes.h>
#include <kipx/shape.h>

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

/* ---- conversion ---- */

/* Every element times `scale` plus `shift`, into the destination's element type: to nearest, ties to
 * even, saturated, NaN to 0 in integers and to the quiet NaN without a sign in floating types. Product
 * and sum are formed and rounded in binary64; a shift of 0 adds nothing, so that -0 stays. With a scale
 * of 1 and a shift of 0 the values themselves are converted, and elements of one type are copied bit by
 * bit. Every pair of u8, u16, u32, s8, s16, s32, f32 and f64; another valid type is KIPX_ENOTSUP. The
 * source may be the destination itself where both have elements of one size, as in arithmetic; any
 * other sharing of bytes is KIPX_EINVAL. */
#define KIPX_TAIL_CONVERT , double scale, double shift
KIPX_DECLARE_SHAPE(1, convert, Convert, KIPX_TAIL_CONVERT);
/* The same with a scale and a shift per channel of the region; null scales are 1, null shifts 0, and
 * where both are null this is KipxConvert with 1 and 0. */
#define KIPX_TAIL_VCONVERT , const double *scales, const double *shifts
KIPX_DECLARE_SHAPE(1, vconvert, VConvert, KIPX_TAIL_VCONVERT);

/* ---- borders ---- */

/* How an array goes on beyond its edges; the low four bits count. An array a b c d goes on as */
enum {
    KIPX_BORDER_NONE = 0,      /* nothing is written there */
    KIPX_BORDER_CONST = 3,     /* v v | a b c d | v v   one value per channel */
    KIPX_BORDER_REPLICATE = 4, /* a a | a b c d | d d */
    KIPX_BORDER_WRAP = 5,      /* c d | a b c d | a b */
    KIPX_BORDER_REFLECT = 6,   /* b a | a b c d | d c */
    KIPX_BORDER_REFLECT101 = 7 /* c b | a b c d | c b */
};

/* "nul-border", "const-border", "replicate-border", "wrap-border", "reflect-border",
 * "reflect101-border"; "unknown-border" for every other kind. Bits from the fifth on do not count. */
KIPX_API const char *kipx_border_str(int32_t kind);

/* Copies a source into the middle of the destination's region and continues it all around.
 *
 *   border  how many planes, rows and columns of the region lie before (lower, negative or 0) and
 *           behind (upper) the copy; any number, more than the source has, too. The planes of 3-axis
 *           arrays are not looked at. KIPX_EINVAL for null and for the wrong signs
 *   kind    KIPX_BORDER_*; another one is KIPX_EINVAL
 *   values  of a const border, one per channel of the region; null: zeros. Not read for others
 *
 * Corners go on in both directions: rows and columns are continued independently of each other, and so
 * are planes. A source with fewer rows, columns or planes than the region has room for makes the region
 * smaller, border included. KIPX_EEMPTY where the border leaves no room.
 *
 * KipxCopyMkb continues the part that it copies, from srcAt on, as if there were nothing around it. The
 * source may lie across the destination as in KipxCopy; where it is the middle itself only the border
 * is written. KipxCopyRMkb continues the whole source array: the border has the elements that really
 * lie around the part, and beyond the array's own edges what continues the array. There the source's
 * address range must lie apart from the destination's (KIPX_EINVAL).
 *
 * The flat levels are those of KipxCopyMkb: extent is that of the copy, the destination's address that
 * of the first element of its border, and a plane border is not looked at. */
#define KIPX_TAIL_BORDER , const kipx_brparm *border, int32_t kind, const double *values
KIPX_DECLARE_SHAPE(1, copymkb, CopyMkb, KIPX_TAIL_BORDER);
KIPX_API KIPX_PUBLIC_1(KipxCopyRMkb, KIPX_TAIL_BORDER);

KIPX_END

#endif
