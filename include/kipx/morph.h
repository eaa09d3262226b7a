/* kipx/morph.h - grey-level morphology with structuring elements of any form.
 *
 * Erosion is the minimum, dilation the maximum over the element's members, the anchor lying on the
 * result's pixel. The element is applied as it is stored, never mirrored, in both steps of a compound
 * operation: with an element that is not symmetric about its anchor, opening shifts.
 *
 *     an element, anchor (1, 1):  0 1 0      the result at P is made of the pixels a and P:   . a .
 *                                 1 1 0                                                       a P .
 *                                 0 1 0                                                       . a .
 *
 * Without an element, or with one whose mask has no base address, everything is KipxFilter's: the
 * rectangle of the element's volume, normalised; without an element 5 x 5. With a mask
 *
 *   members   are the bytes that are not 0. Rows, columns, address and strides are read, of planes and
 *             channels the first; elements wider than a byte are KIPX_EINVAL
 *   size      at least 1 x 1, below 2^32 bytes, the anchor inside, else KIPX_EINVAL: nothing is normalised. 1 x 1 makes
 *             every operation a copy, before anything else is looked at
 *   255s      everywhere: the rectangle's minimum and maximum, with the same results, faster
 *   no members: the type's lowest value for dilation, its highest for erosion
 *
 * Source, destination, auxiliary mask, region, planes, borders, NaN and zeros are as in
 * kipx/filter.h; but with an element's mask an auxiliary one has as many channels as the source. Gradient
 * is the dilation minus the erosion, the hats as there, all by saturating subtraction: f32 is KIPX_ENOTSUP.
 *
 * Types: u8, s16, s32, f32, of 1, 3 or 4 channels; others are KIPX_EINVAL. Open, close and the hats
 * take what KipxFilter takes where the mask is 255 everywhere. Checks come in the order of
 * kipx/filter.h, after the element's; KIPX_FLAG_PREPARE ends a call before its work at every level.
 */
#ifndef KIPX_MORPH_H
#define KIPX_MORPH_H

#include <kipx/filter.h>

KIPX_BEGIN

/* Operations: the low four bits count. */
enum {
    KIPX_MORPH_COPY = 0, /* the destination receives the source */
    KIPX_MORPH_ERODE = 3,
    KIPX_MORPH_DILATE = 4,
    KIPX_MORPH_CLOSE = 5,   /* dilation, then erosion */
    KIPX_MORPH_OPEN = 6,    /* erosion, then dilation */
    KIPX_MORPH_BOTHAT = 7,  /* closing minus source */
    KIPX_MORPH_TOPHAT = 8,  /* source minus opening */
    KIPX_MORPH_GRADIENT = 9 /* dilation minus erosion; KIPX_ENOTIMP without a mask */
};
/* "nul-morhop", "erode", "dilate", "morph-close" and so on; "unknown-morhop". */
KIPX_API const char *kipx_morphop_str(uint32_t op);

/* One operation with an element, under a mask where one is given. 0, or a negative code with nothing
 * written. */
KIPX_API int32_t KipxMorphop(KipxXE *xe, uint64_t flags, const kipx_arr *src, const kipx_arr *dst,
                             const kipx_arr *mask, const kipx_site *roi, uint32_t op,
                             const kipx_strel *strel);

/* ---- one slice: source, destination, and a mask where there is one; the context says the rest ---- */

typedef struct kipx_morphop_args {
    uint32_t op;
    uint32_t reserved;
    const kipx_strel *strel; /* its mask has a base */
    kipx_brshape room;       /* how far the source array reaches beyond the region */
} kipx_morphop_args;
KIPX_API KIPX_SLICE(KipxTGAmorphop);

/* ---- flat levels: operands as in kipx/filter.h ---- */

KIPX_API int32_t kipxa_morphop(KIPX_FILTER_ORIGINS, uint32_t op, const kipx_strel *strel);
KIPX_API int32_t kipxa_emorphop(KIPX_FILTER_ORIGINS, KIPX_FILTER_MASK, uint32_t op,
                                const kipx_strel *strel);
KIPX_API int32_t kipxa__morphop(KIPX_FILTER_OPERANDS, uint32_t op, const kipx_strel *strel);
KIPX_API int32_t kipxa__emorphop(KIPX_FILTER_OPERANDS, const void *mask,
                                 const uint32_t *mask_strides, uint32_t op,
                                 const kipx_strel *strel);

/* One operation each. */
KIPX_API int32_t kipxa__morphop_erode(KIPX_FILTER_OPERANDS, const kipx_strel *strel);
KIPX_API int32_t kipxa__morphop_dilate(KIPX_FILTER_OPERANDS, const kipx_strel *strel);
KIPX_API int32_t kipxa__morphop_open(KIPX_FILTER_OPERANDS, const kipx_strel *strel);
KIPX_API int32_t kipxa__morphop_close(KIPX_FILTER_OPERANDS, const kipx_strel *strel);
KIPX_API int32_t kipxa__morphop_tophat(KIPX_FILTER_OPERANDS, const kipx_strel *strel);
KIPX_API int32_t kipxa__morphop_bothat(KIPX_FILTER_OPERANDS, const kipx_strel *strel);

/* ---- kernels, and their tables by channel code (1, 3, 4 and 11, which is 4 channels) and type code.
 *
 * A kernel takes the operands of its typed level without the type. A table is never null: without a
 * kernel it gives kipxa_proc_einval, and *status (may be null) receives KIPX_EINVAL. */
typedef int32_t (*kipx_morph_kernel)(KipxXE *xe, uint64_t flags, kipx_dims dims,
                                     const uint32_t *volume, void *dst, const uint32_t *dst_strides,
                                     const void *src, const uint32_t *src_strides,
                                     const kipx_strel *strel);
KIPX_API kipx_morph_kernel kipxa__dilatefun_imp(uint32_t channels, uint32_t type, int32_t *status);
KIPX_API kipx_morph_kernel kipxa__erodefun_imp(uint32_t channels, uint32_t type, int32_t *status);

/* X (channels, type) for every kernel of an operation. */
#define KIPX_MORPH_KERNELS(X)                                                                      \
    X(1, u8)                                                                                       \
    X(1, s16)                                                                                      \
    X(1, s32)                                                                                      \
    X(1, f32) X(3, u8) X(3, s16) X(3, s32) X(3, f32) X(4, u8) X(4, s16) X(4, s32) X(4, f32)
#define KIPX_MORPH_KERNEL(name)                                                                    \
    int32_t name(KipxXE *xe, uint64_t flags, kipx_dims dims, const uint32_t *volume, void *dst,    \
                 const uint32_t *dst_strides, const void *src, const uint32_t *src_strides,        \
                 const kipx_strel *strel)
#define KIPX_DECLARE_MORPH(c, T)                                                                   \
    KIPX_API KIPX_MORPH_KERNEL(kipxa__dilate_c##c##_##T);                                          \
    KIPX_API KIPX_MORPH_KERNEL(kipxa__erode_c##c##_##T);
KIPX_MORPH_KERNELS(KIPX_DECLARE_MORPH)
#undef KIPX_DECLARE_MORPH

KIPX_END

#endif
