/* kipx/filter.h - neighbourhood filters over rectangles: minimum, maximum, mean, and the compound
 * ones made of minimum and maximum.
 *
 * A result pixel is made of the source pixels under a rectangle whose anchor lies on it:
 *
 *     source      . . . . . . .        height 3, width 4, anchor (row 1, column 2):
 *                 . a a a a . .        the result at P is made of the twelve pixels a and P;
 *                 . a a P a . .        the next one to the right of those one column further on
 *                 . a a a a . .
 *
 * What may be read is decided by the source array, what is written by the region: pixels of the
 * array outside the region are real neighbours. Positions outside the array do not count for minimum
 * and maximum; for the mean they are the nearest pixel of the array, or what bits 8-11 of flags say.
 *
 *   src     the source: 3 or 4 axes (planes are filtered one by one), 1 to 4 channels, each filtered
 *           by itself
 *   dst     the destination: as many axes as the source, or 3 where that has 4; as many planes, or
 *           one; as many channels. Null filters the source in place. The destination may be the
 *           source, or lie across it in any way: the result is as if the source had been copied
 *   mask    null, or a u8 array of the source's axes (3 serve every plane) and of as many channels or
 *           one: where it is 0, the destination stays as it is
 *   roi     null, or the region of the destination; source and mask are read at the same position
 *   shape   null for 5 x 5, or the rectangle; it is normalised against the region's extents as
 *           kipx_seshape__adjust_$gv$I does, on a copy. Its planes are not applied
 *
 * Open is minimum, then maximum; close is maximum, then minimum; the second step sees the first
 * one's results for the region, and nothing beyond. The anchor is the same in both steps, never
 * mirrored, so that an anchor off the centre shifts the picture. The top-hat is the source minus the
 * opening, the bottom-hat the closing minus the source, by saturating subtraction: for the integer
 * types of kipxa__subq only (u8, s16, s32).
 *
 * Minimum starts at the type's highest value and takes what compares as smaller; so a NaN never
 * wins, a window of nothing but infinities gives the largest finite value, and of two zeros the first
 * stays; maximum likewise. The mean is the sum, exact for integers, divided by the count: to
 * nearest even, saturated. f32 and f64: sums in binary64, times the reciprocal of the count; a NaN is
 * the quiet one.
 *
 * Types: u8, s16, s32, f32; u16, s8, u32, f64 as well but for the hats; every type that has a size to
 * be copied.
 *
 * Checks, in this order; nothing has been written when one fails:
 *   KIPX_EINVAL   descriptors, axes, planes, channels, a mask that does not fit
 *   KIPX_EEMPTY   no common region
 *   KIPX_EINVAL   byte offsets beyond 2^32 - 1
 *   KIPX_EINVAL   the kind, the border kind, an invalid type code
 *   KIPX_ENOTIMP  median and gradient
 *   KIPX_ENOTSUP  a type without a kernel
 *   KIPX_EINVAL   bytes that mask and destination share, or elements of the destination
 *   KIPX_EAGAIN   all is well and KIPX_FLAG_PROBE was set
 *   KIPX_ENOMEM   no scratch; a null environment has none
 */
#ifndef KIPX_FILTER_H
#define KIPX_FILTER_H

#include <kipx/convert.h>
#include <kipx/planes.h>
#include <kipx/prototypes.h>
#include <kipx/shape.h>

KIPX_BEGIN

/* Kinds: the low 8 bits count. */
enum {
    KIPX_FILTER_COPY = 0, /* the destination receives the source */
    KIPX_FILTER_MIN = 3,
    KIPX_FILTER_MAX = 4,
    KIPX_FILTER_BOX = 5,
    KIPX_FILTER_MEDIAN = 6, /* named, not implemented */
    KIPX_FILTER_CLOSE = 105,
    KIPX_FILTER_OPEN = 106,
    KIPX_FILTER_BOTHAT = 107,
    KIPX_FILTER_TOPHAT = 108,
    KIPX_FILTER_GRADIENT = 109 /* named, not implemented */
};
/* "min-filter" and so on; "unknown-filter". */
KIPX_API const char *kipx_filter_str(uint32_t kind);

/* A border kind in the flag word, for means and weighted sums; 0 is replicate. */
#define KIPX_FLAG_BORDER(kind) ((uint64_t)(kind) << 8)

/* Bit 0 of flags is cleared: there is no preparing here, only at the levels below. */
KIPX_API int32_t KipxFilter(KipxXE *xe, uint64_t flags, const kipx_arr *src, const kipx_arr *dst,
                            const kipx_arr *mask, const kipx_site *roi, uint32_t kind,
                            const kipx_seshape *shape);

/* ---- one slice: source, destination, and a mask where there is one; the context says the rest ---- */

typedef struct kipx_filter_args {
    uint32_t kind;
    uint32_t reserved;
    kipx_seshape shape; /* normalised */
    kipx_brshape room;  /* how far the source array reaches beyond the region */
} kipx_filter_args;
KIPX_API KIPX_SLICE(KipxTGAfilter);

/* ---- flat levels ----
 *
 * One plane of 2 or 3 axes; the channel entry is a code whose low four bits count. The shape is
 * taken as it is: normalised. The source must be readable as far as the shape reaches beyond the
 * volume. kipxa_: base addresses and origins; kipxa__: element addresses. A null dst is the source.
 * e: with a mask, whose strides are those of a u8 array of the same axes. KIPX_FLAG_PREPARE checks,
 * chooses the kernels and returns 0. */
#define KIPX_FILTER_OPERANDS                                                                       \
    KipxXE *xe, uint64_t flags, kipx_dims dims, const uint32_t *volume, uint32_t type, void *dst,  \
        const uint32_t *dst_strides, const void *src, const uint32_t *src_strides
#define KIPX_FILTER_ORIGINS                                                                        \
    KipxXE *xe, uint64_t flags, kipx_dims dims, const uint32_t *volume, uint32_t type, void *dst,  \
        const uint32_t *dst_origin, const uint32_t *dst_strides, const void *src,                  \
        const uint32_t *src_origin, const uint32_t *src_strides
#define KIPX_FILTER_MASK const void *mask, const uint32_t *mask_origin, const uint32_t *mask_strides
KIPX_API int32_t kipxa_filter(KIPX_FILTER_ORIGINS, uint32_t kind, const kipx_seshape *shape);
KIPX_API int32_t kipxa_efilter(KIPX_FILTER_ORIGINS, KIPX_FILTER_MASK, uint32_t kind,
                               const kipx_seshape *shape);
KIPX_API int32_t kipxa__filter(KIPX_FILTER_OPERANDS, uint32_t kind, const kipx_seshape *shape);

/* One kind each. */
KIPX_API int32_t kipxa__filter_min(KIPX_FILTER_OPERANDS, const kipx_seshape *shape);
KIPX_API int32_t kipxa__filter_max(KIPX_FILTER_OPERANDS, const kipx_seshape *shape);
KIPX_API int32_t kipxa__filter_box(KIPX_FILTER_OPERANDS, const kipx_seshape *shape);
KIPX_API int32_t kipxa__filter_open(KIPX_FILTER_OPERANDS, const kipx_seshape *shape);
KIPX_API int32_t kipxa__filter_close(KIPX_FILTER_OPERANDS, const kipx_seshape *shape);
KIPX_API int32_t kipxa__filter_tophat(KIPX_FILTER_OPERANDS, const kipx_seshape *shape);
KIPX_API int32_t kipxa__filter_bothat(KIPX_FILTER_OPERANDS, const kipx_seshape *shape);

/* ---- kernel tables: by channel code and type code, never null ----
 *
 * A kernel takes the operands of its typed level without the type, and checks nothing but the flags.
 * Without one: a procedure that returns the code, which *status receives as well (may be null). */
typedef int32_t (*kipx_filter_kernel)(KipxXE *xe, uint64_t flags, kipx_dims dims,
                                      const uint32_t *volume, void *dst,
                                      const uint32_t *dst_strides, const void *src,
                                      const uint32_t *src_strides, const kipx_seshape *shape);
KIPX_API kipx_filter_kernel kipxa__minfiltfun_imp(uint32_t channels, uint32_t type,
                                                  int32_t *status);
KIPX_API kipx_filter_kernel kipxa__maxfiltfun_imp(uint32_t channels, uint32_t type,
                                                  int32_t *status);
KIPX_API kipx_filter_kernel kipxa__boxfiltfun_imp(uint32_t channels, uint32_t type,
                                                  int32_t *status);

KIPX_END

#endif
