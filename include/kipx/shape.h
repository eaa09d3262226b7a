/* kipx/shape.h - structuring elements and border shapes: which neighbours a filter looks at, and how
 * much border that needs. Plain arithmetic on small vectors; no pixels, nothing allocates.
 *
 * Components run from outermost to innermost: planes, rows, columns, and a fourth for channels. A
 * record that speaks of n dimensions uses the last n of the three spatial components: of one
 * dimension the column only, of two row and column; n above 3 counts as 3, n below 1 as none. The
 * anchor is the position inside the element that lies on the destination pixel.
 *
 *            column 0 1 2 3 4
 *     row 0         . . . . .        height 3, width 5, anchor (row 1, column 3)
 *     row 1         . . . A .        lower border (-1, -3), upper border (1, 1)
 *     row 2         . . . . .
 *
 * Sums, differences and products wrap in 32 bits. Constructors write the whole record and return
 * it. A null record: constructors and volume arithmetic do nothing, sizes are 0, truths are 0,
 * adjustments give KIPX_EINVAL.
 *
 * In names, $g1, $g2, $g3 take components one by one, outermost first; $g11, $g22, $g33 the anchor's
 * before the sizes; $gv a count and a vector, $gvv a count, anchor and sizes. A trailing $L means
 * that the count is a dims word: its low four bits are the count, and bits 4-7 say how many further
 * leading components lie right before the vector's address; of more than three in all the last
 * three are taken. $I works in place, $Q answers in 64 bits.
 */
#ifndef KIPX_SHAPE_H
#define KIPX_SHAPE_H

#include <kipx/types.h>

#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdollar-in-identifier-extension"
#endif

KIPX_BEGIN

/* A solid rectangle. Once adjusted every size is at least 1 and every anchor lies inside. */
typedef struct kipx_seshape {
    int32_t anchor[4]; /* plane, row, column, 0 */
    int32_t volume[4]; /* planes, height, width, channel code (never read here) */
} kipx_seshape;

/* An element with a mask: the same anchor, then an array of bytes whose volume is the element's. A
 * byte that is not 0 belongs to the element; 255 everywhere makes it a solid rectangle. */
typedef struct kipx_strel {
    int32_t anchor[4];
    kipx_arr mask;
} kipx_strel;

/* Either of the two, where only anchor and volume are looked at. */
typedef void kipx_se;

/* The border that is needed on each side of a region: the offset of the widened region's origin,
 * zero or negative, and the extent added behind its end, zero or positive. Of an element:
 * lower = -anchor, upper = size - anchor - 1. */
typedef struct kipx_brshape {
    int32_t lower[4]; /* planes, rows, columns, 0 */
    int32_t upper[4];
} kipx_brshape;

/* The same record where borders are made. */
typedef kipx_brshape kipx_brparm;

/* ---- structuring elements ---- */

/* The default: 5 x 5, centred; anchor (0, 2, 2, 0), volume (1, 5, 5, 1). */
KIPX_API kipx_seshape *__kipx_seshape__$(kipx_seshape *se);
/* Centred: the anchor is size / 2, just behind the middle of an even size. */
KIPX_API kipx_seshape *__kipx_seshape__$g1(kipx_seshape *se, int32_t width);
KIPX_API kipx_seshape *__kipx_seshape__$g2(kipx_seshape *se, int32_t height, int32_t width);
KIPX_API kipx_seshape *__kipx_seshape__$g3(kipx_seshape *se, int32_t planes, int32_t height,
                                           int32_t width);
KIPX_API kipx_seshape *__kipx_seshape__$gv(kipx_seshape *se, int32_t n, const int32_t *sizes);
KIPX_API kipx_seshape *__kipx_seshape__$gv$L(kipx_seshape *se, kipx_dims n, const int32_t *sizes);
/* With an anchor; missing anchor components are 0, missing sizes 1. */
KIPX_API kipx_seshape *__kipx_seshape__$g11(kipx_seshape *se, int32_t column, int32_t width);
KIPX_API kipx_seshape *__kipx_seshape__$g22(kipx_seshape *se, int32_t row, int32_t column,
                                            int32_t height, int32_t width);
KIPX_API kipx_seshape *__kipx_seshape__$g33(kipx_seshape *se, int32_t plane, int32_t row,
                                            int32_t column, int32_t planes, int32_t height,
                                            int32_t width);
KIPX_API kipx_seshape *__kipx_seshape__$gvv(kipx_seshape *se, int32_t n, const int32_t *anchor,
                                            const int32_t *sizes);
KIPX_API kipx_seshape *__kipx_seshape__$gvv$L(kipx_seshape *se, kipx_dims n, const int32_t *anchor,
                                              const int32_t *sizes);

/* anchor[i] = volume[i] / 2 for the first n components, counted from the planes. */
KIPX_API void kipx_strel_rstanchor(kipx_se *se, int32_t n);
KIPX_API void kipx_seshape_rstanchor_$gn(kipx_se *se, int32_t n);
/* The same for the column; row and column; all three. */
KIPX_API void kipx_seshape_rstanchor_$g1(kipx_se *se);
KIPX_API void kipx_seshape_rstanchor_$g2(kipx_se *se);
KIPX_API void kipx_seshape_rstanchor_$g3(kipx_se *se);
/* Sets the volume, channel code 1, and leaves the anchor. */
KIPX_API void kipx_seshape_setvol_$g1(kipx_se *se, int32_t width);
KIPX_API void kipx_seshape_setvol_$g2(kipx_se *se, int32_t height, int32_t width);
KIPX_API void kipx_seshape_setvol_$g3(kipx_se *se, int32_t planes, int32_t height, int32_t width);
KIPX_API void kipx_seshape_setvol_$gv(kipx_se *se, int32_t n, const int32_t *sizes);
KIPX_API void kipx_seshape_setvol_$gv$L(kipx_se *se, kipx_dims n, const int32_t *sizes);
/* The three spatial sizes, or the three anchor components, become 0. */
KIPX_API void kipx_seshape_vzero(kipx_se *se);
KIPX_API void kipx_strel_azero(kipx_se *se);

/* Positions: the product of the three sizes, its low 32 bits; $Q saturates at 2^64 - 1. */
KIPX_API uint32_t kipx_strel_capacity(const kipx_se *se);
KIPX_API uint64_t kipx_seshape_capacity_$Q(const kipx_se *se);
/* 1 when a size is below 1. */
KIPX_API int32_t kipx_strel_empty(const kipx_se *se);
/* 1 when no byte of the mask differs from 255: planes of 4-axis masks, rows, columns, channels. A
 * mask without bytes (no base, an extent of 0) is solid; one of wider elements is not. */
KIPX_API int32_t kipx_sea_issolid_v255(const kipx_arr *mask);
KIPX_API int32_t kipx_strel_issolid_$v255(const kipx_strel *strel);

/* Normalises against the extents of the image, one per dimension (null counts as zeros):
 *   - a negative size counts from the image's, -2 on 100 is 98, and is 0 at least;
 *   - size 0 becomes 1 with anchor 0;
 *   - an element of a single point, or n below 1, becomes 5 x 5 with row and column anchor 2;
 *   - a negative anchor counts from the size, and is 0 at least; one past the end becomes the last;
 *   - the fourth components become 0.
 * The forms with dst first copy anchor and volume from src, when given, and work on dst. They
 * return 1. */
KIPX_API int32_t kipx_strel_adjust(kipx_se *dst, const kipx_se *src, const uint32_t *ref);
KIPX_API int32_t kipx_seshape_adjust_$I(kipx_se *se, const uint32_t *ref);
KIPX_API int32_t kipx_strel__adjust_$gv(kipx_se *dst, const kipx_se *src, int32_t n,
                                        const uint32_t *ref);
KIPX_API int32_t kipx_seshape__adjust_$gv(kipx_se *dst, const kipx_se *src, int32_t n,
                                          const uint32_t *ref);
KIPX_API int32_t kipx_strel__adjust_$gv$I(kipx_se *se, int32_t n, const uint32_t *ref);
KIPX_API int32_t kipx_seshape__adjust_$gv$I(kipx_se *se, int32_t n, const uint32_t *ref);
KIPX_API int32_t kipx_seshape_adjust_$g2(kipx_se *dst, const kipx_se *src, uint32_t rows,
                                         uint32_t columns);
KIPX_API int32_t kipx_seshape_adjust_$g2$I(kipx_se *se, uint32_t rows, uint32_t columns);

/* ---- border shapes ---- */

/* From what is needed before and behind, in positive numbers. */
KIPX_API kipx_brshape *__kipx_brshape__$g1(kipx_brshape *br, int32_t before, int32_t after);
KIPX_API kipx_brshape *__kipx_brshape__$g2(kipx_brshape *br, int32_t rows_before,
                                           int32_t columns_before, int32_t rows_after,
                                           int32_t columns_after);
KIPX_API kipx_brshape *__kipx_brshape__$g3(kipx_brshape *br, int32_t planes_before,
                                           int32_t rows_before, int32_t columns_before,
                                           int32_t planes_after, int32_t rows_after,
                                           int32_t columns_after);
KIPX_API kipx_brshape *__kipx_brshape__$gv(kipx_brshape *br, int32_t n, const int32_t *before,
                                           const int32_t *after);
KIPX_API kipx_brshape *__kipx_brshape__$gv$L(kipx_brshape *br, kipx_dims n, const int32_t *before,
                                             const int32_t *after);
/* What an element needs. */
KIPX_API kipx_brshape *__kipx_brshape__$se(kipx_brshape *br, const kipx_se *se);
KIPX_API kipx_brparm *__kipx_brparm__$se(kipx_brparm *br, const kipx_se *se);
/* What lies between an inner region and an outer one, each an origin and an extent of three. */
KIPX_API kipx_brshape *__kipx_brshape__$ois(kipx_brshape *br, const uint32_t *outer_at,
                                            const uint32_t *outer_volume, const uint32_t *inner_at,
                                            const uint32_t *inner_volume);
/* The same over n components; the others become 0. */
KIPX_API kipx_brshape *kipx_brshape__compute_$gv(kipx_brshape *br, int32_t n,
                                                 const uint32_t *outer_at,
                                                 const uint32_t *outer_volume,
                                                 const uint32_t *inner_at,
                                                 const uint32_t *inner_volume);
KIPX_API kipx_brparm *kipx_brparm__compute_$gv(kipx_brparm *br, int32_t n, const uint32_t *outer_at,
                                               const uint32_t *outer_volume,
                                               const uint32_t *inner_at,
                                               const uint32_t *inner_volume);
/* The three spatial components of both vectors become 0; are 0. */
KIPX_API void kipx_brparm_zero(kipx_brparm *br);
KIPX_API int32_t kipx_brparm_empty(const kipx_brparm *br);

/* Fits a border into the room that an outer region leaves about an inner one; only the extents are
 * looked at. Where the room is smaller than the border, what lies before becomes its share of the
 * room, to nearest even of a binary32 quotient, and the rest lies behind. Returns 1 when the result
 * is a border, 0 when a component is negative because the inner region is the larger one. */
KIPX_API int32_t kipx_brshape_adjust(kipx_brshape *dst, const kipx_brshape *src,
                                     const kipx_site *outer, const kipx_site *inner);
KIPX_API int32_t kipx_brshape__adjust_$gv(kipx_brshape *dst, const kipx_brshape *src, int32_t n,
                                          const uint32_t *outer_volume,
                                          const uint32_t *inner_volume);
KIPX_API int32_t kipx_brshape__adjust_$gv$I(kipx_brshape *br, int32_t n,
                                            const uint32_t *outer_volume,
                                            const uint32_t *inner_volume);

/* ---- volumes with a border ---- */

/* Extents whose count travels as a dims word. */
typedef kipx_volume kipx_Nvolume;

/* Four components from n: missing leading ones 0, fourth 0; missing leading ones 1, fourth 1. */
KIPX_API uint32_t *__kipx_dims__$gv(uint32_t *vector, int32_t n, const int32_t *components);
KIPX_API uint32_t *__kipx_dims__$gv$L(uint32_t *vector, kipx_dims n, const int32_t *components);
KIPX_API uint32_t *__kipx_Nvolume__$gv(uint32_t *vector, int32_t n, const int32_t *components);
KIPX_API uint32_t *__kipx_Nvolume__$gv$L(uint32_t *vector, kipx_dims n, const int32_t *components);

/* Per component, over n spatial extents without the channel entry:
 *     widen $se   v + size - 1           widen $br   v - lower + upper
 *     narrow $se  v - size + 1           narrow $br  v - upper + lower
 * out and in have n entries and may be the same; with in null, out is changed in place. kipx_volume__
 * takes the plain count, kipx_Nvolume_ a dims word whose low four bits are the same count. */
#define KIPX_VOLUME_ARITHMETIC(op, by, record)                                                     \
    KIPX_API void kipx_volume__##op##_##by(uint32_t *out, const uint32_t *in, int32_t n,           \
                                           const record *shape);                                   \
    KIPX_API void kipx_volume__##op##_$I##by(uint32_t *volume, int32_t n, const record *shape);    \
    KIPX_API void kipx_Nvolume_##op##_##by(uint32_t *out, const uint32_t *in, kipx_dims n,         \
                                           const record *shape);                                   \
    KIPX_API void kipx_Nvolume_##op##_$I##by(uint32_t *volume, kipx_dims n, const record *shape);
KIPX_VOLUME_ARITHMETIC(widen, $se, kipx_se)
KIPX_VOLUME_ARITHMETIC(narrow, $se, kipx_se)
KIPX_VOLUME_ARITHMETIC(widen, $br, kipx_brshape)
KIPX_VOLUME_ARITHMETIC(narrow, $br, kipx_brshape)
#undef KIPX_VOLUME_ARITHMETIC

/* kipx_vmemsize, and kipx_vmemsizeL where the name has an L, of the volume widened by a shape; the
 * volume's last entry is its channel code. Where the name has an I the caller's volume is widened,
 * otherwise a copy. A null shape widens nothing. */
#define KIPX_BORDERED_SIZE(name, record, constant)                                                 \
    KIPX_API uint64_t name(uint32_t kind, constant uint32_t *volume, uint32_t *strides,            \
                           const record *shape, uint32_t align);
KIPX_BORDERED_SIZE(kipx_vmemsize_$se, kipx_se, const)
KIPX_BORDERED_SIZE(kipx_vmemsize_$L$se, kipx_se, const)
KIPX_BORDERED_SIZE(kipx_vmemsize_$I$se, kipx_se, )
KIPX_BORDERED_SIZE(kipx_vmemsize_$IL$se, kipx_se, )
KIPX_BORDERED_SIZE(kipx_vmemsize_br, kipx_brshape, const)
KIPX_BORDERED_SIZE(kipx_vmemsizeL_br, kipx_brshape, const)
KIPX_BORDERED_SIZE(kipx_vmemsizeI_br, kipx_brshape, )
KIPX_BORDERED_SIZE(kipx_vmemsizeIL_br, kipx_brshape, )
#undef KIPX_BORDERED_SIZE

/* ---- the source region of a filter ---- */

#define KIPX_ROI_ON_NEED (1u << 24)  /* bit of kind: the result is the needed region itself */
#define KIPX_ROI_OF_OTHER (1u << 25) /* bit of kind: the destination's record, not the source's */

/* Which pixels an element reaches. need becomes given, or without it the destination's region, or
 * without that the source's, widened by the element over the last n components (3 in the short
 * form). roi becomes the source's region (with bit 25, or without a source, the destination's) cut
 * by that; returns 1 when it covers all of it, so that no border has to be made, else 0. With bit
 * 24 roi is the needed region before it is widened, and the result is 0. */
KIPX_API int32_t kipx_compute_roi_$se(kipx_site *roi, kipx_site *need, uint32_t kind,
                                      const kipx_site *given, const kipx_se *se,
                                      const kipx_site *src_roi, const kipx_site *dst_roi);
KIPX_API int32_t kipx__compute_roi_$se(kipx_site *roi, kipx_site *need, int32_t n, uint32_t kind,
                                       const kipx_site *given, const kipx_se *se,
                                       const kipx_site *src_roi, const kipx_site *dst_roi);
/* The same with the whole arrays as regions, channel codes decoded; dst may be null. */
KIPX_API int32_t kipx_testfiltop_$se(kipx_site *roi, kipx_site *need, uint32_t kind,
                                     const kipx_site *given, const kipx_se *se, const kipx_arr *src,
                                     const kipx_arr *dst);
KIPX_API int32_t kipx__testfiltop_$se(kipx_site *roi, kipx_site *need, int32_t n, uint32_t kind,
                                      const kipx_site *given, const kipx_se *se,
                                      const kipx_arr *src, const kipx_arr *dst);

KIPX_END

#if defined(__clang__)
#pragma clang diagnostic pop
#endif

#endif
