/* kipx/watershed.h - flooding an image into a tree of its nested regions.
 *
 * A flood starts at a seed and works through the grey levels of a one-channel u8 image. It reports
 * every connected component of every level set, and how the components nest, to a builder. The
 * nodes of the tree are the root, which holds every pixel, and for each level every connected
 * component of the pixels at or below it that holds 16 pixels or more and at least one of that
 * level. A node's parent is the smallest of them around it.
 *
 * The standard flood reports through the "wtsl" operations of a builder's interface chain and lets
 * the builder gather features as pixels arrive. The fast flood fills a fast region result store
 * (kipx/fast_regions.h) with the same regions: level, area, nesting and pixels are the same, the
 * pixel indices and the order of children are the store's own. Either bit of KIPX_FLAG_FAST selects
 * it.
 *
 * All functions return 0 or a negative code. Nothing has been given to the builder when it is one of
 *
 *   KIPX_EINVAL   context, builder, level-set context, array or its base null; not 3 or 4 axes; no
 *                 elements; a builder without "wtsl" operations, or a store that is none; a seed
 *                 outside the region; more than 65536 rows or columns, more than 2^28 pixels (fast:
 *                 2^27 and more); a byte offset beyond 2^32 - 1; 3, 5, 6, 7 channels; an invalid
 *                 type; a mask of another type than u8, or with other axes or channels
 *   KIPX_ENOTSUP  another valid type, or 2, 4 or 8 channels (both at once: KIPX_EINVAL)
 *   KIPX_EEMPTY   the region of interest, or the mask inside it, is empty
 *   KIPX_EAGAIN   array, region, type and seed are in order and KIPX_FLAG_PROBE was set
 *   KIPX_ENOMEM   scratch could not be taken. The same code ends a flood in whose middle the builder
 *                 or the store cannot make a region; the tree is then empty
 *
 * A null environment is KIPX_EINVAL: there is no flood without scratch.
 *
 * Masks. Pixels whose mask byte is 0 are not part of the image. A seed on one of them moves to the
 * first pixel inside the mask in raster order. Parts that the mask separates are flooded one after
 * the other, each from its first pixel in raster order but for the one with the seed, which comes
 * first. When there are several, each is a region of its own if it has 16 pixels or more, and the
 * root is one region more: it holds all of them and has the highest level found inside the mask.
 *
 * A 4-axis array is flooded plane by plane with one context: the tree of the last plane stays.
 */
#ifndef KIPX_WATERSHED_H
#define KIPX_WATERSHED_H

#include <kipx/env.h>
#include <kipx/features.h>
#include <kipx/planes.h>
#include <kipx/prototypes.h>
#include <kipx/tree.h>
#include <kipx/types.h>

KIPX_BEGIN

#define KIPX_CODE_WTSH UINT32_C(0x77747368)
#define KIPX_CODE_WTSX UINT32_C(0x77747378)

typedef struct KipxWatershedContext {
    KipxSTB *builder;      /* with "wtsl" operations; fast: the KipxFWTSRES behind such a head */
    KipxWTSLSC *levelset;  /* told the image's height, width and row stride */
    uint16_t polarity;     /* 1: bright to dark, levels are 255 - value; else dark to bright */
    uint16_t connectivity; /* 0: 4 neighbours, else 8 */
    uint32_t shift;        /* fast: low bits dropped from every level */
    uint32_t seed_row;     /* relative to the region of interest */
    uint32_t seed_column;
    KipxST *output; /* the finished tree */
} KipxWatershedContext;

/* ---- public ---- */

/* Floods the region of interest (null: all of the array). */
KIPX_API KIPX_PUBLIC_FLOOD(KipxWatershed, KipxWatershedContext);
/* The same inside a mask: a u8 array of the source's axes (or 3 against 4: one mask for all planes)
 * and of as many channels or one. maskAt: where the region starts in the mask (null: its origin).
 * Without a mask it is KipxWatershed. */
KIPX_API KIPX_PUBLIC_FLOOD_M(KipxWatershedEx, KipxWatershedContext);

/* ---- one slice: picks the standard or the fast array level by the flags ---- */

KIPX_API KIPX_SLICE(KipxTGAwatershed);
/* A mask of more than one channel is KIPX_EINVAL. */
KIPX_API KIPX_SLICE(KipxTGAwatershedEx);

/* ---- array level, with origins; typed level, with element addresses, which checks type and
 * channels. 2 or 3 axes. The same four for the fast flood. ---- */

#define KIPX_DECLARE_FLOOD(name)                                                                   \
    KIPX_API KIPX_ARRAY_FLOOD(kipxa_##name, KipxWatershedContext);                                 \
    KIPX_API KIPX_ARRAY_FLOOD_M(kipxa_##name##_xm, KipxWatershedContext);                          \
    KIPX_API KIPX_TYPED_FLOOD(kipxa__##name, KipxWatershedContext);                                \
    KIPX_API KIPX_TYPED_FLOOD_M(kipxa__##name##_xm, KipxWatershedContext)
KIPX_DECLARE_FLOOD(watershed);
KIPX_DECLARE_FLOOD(fwatershed);
#undef KIPX_DECLARE_FLOOD

/* ---- the fast flood's kernels: u8, one channel, addresses of the region's first elements ---- */

KIPX_API int32_t __kipxa__fwatershed_c1_u8(KipxXE *xe, uint64_t flags, kipx_dims dims,
                                           const uint32_t *extent, const void *src,
                                           const uint32_t *strides, KipxWatershedContext *context);
KIPX_API int32_t __kipxa__fwatershed_xm_c1_u8(KipxXE *xe, uint64_t flags, kipx_dims dims,
                                              const uint32_t *extent, const void *src,
                                              const uint32_t *strides, const void *mask,
                                              const uint32_t *mask_strides,
                                              KipxWatershedContext *context);

KIPX_END

#endif
