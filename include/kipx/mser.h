/* kipx/mser.h - maximally stable extremal regions.
 *
 * An image is flooded into its tree of nested regions (kipx/watershed.h), from dark to bright for
 * regions darker than what is around them, from bright to dark for brighter ones, and every tree is
 * walked once for the regions whose area changes little over delta grey levels.
 *
 * All functions return 0 or a negative code, the flood's (KIPX_ENOMEM also for a list that cannot
 * grow). After a failure the context holds no list and no builders.
 *
 * The context owns what a call leaves in it: the list, by KipxMSERrelease or by closing the
 * builders (KipxSTBclose) and freeing the list's entries (_ZuMfree). The regions live in the
 * builders, and these in the environment's memory stack: release before the environment ends. A
 * call wants a context without list and builders: it adds to a list that is still there and forgets
 * builders without closing them, so release what an earlier call left first.
 *
 * The same image gives the same list in the same order on every machine.
 */
#ifndef KIPX_MSER_H
#define KIPX_MSER_H

#include <kipx/env.h>
#include <kipx/fast_regions.h>
#include <kipx/features.h>
#include <kipx/planes.h>
#include <kipx/prototypes.h>
#include <kipx/tree.h>
#include <kipx/types.h>

KIPX_BEGIN

#define KIPX_CODE_MSER UINT32_C(0x6D736572)

/* Growable array of regions. A zero record is an empty one; entries are a heap block of the base
 * runtime. */
typedef struct KipxMSERlist {
    uint64_t capacity, count;
    KipxWTSregion **entries;
} KipxMSERlist;

typedef struct KipxMSERparms {
    int32_t delta;       /* levels over which stability is measured */
    int32_t min_area;    /* pixels, inclusive */
    int32_t max_area;    /* pixels, inclusive */
    float max_variation; /* inclusive */
    float min_diversity; /* inclusive */
} KipxMSERparms;

typedef struct KipxMSERContext {
    int32_t delta;           /* levels over which stability is measured */
    float min_area_fraction; /* of the pixels of the region of interest */
    float max_area_fraction;
    float max_variation;     /* largest relative growth over delta levels */
    float min_diversity;     /* smallest relative area difference of nested regions reported */
    int32_t min_area_pixels; /* used when the fraction gives 0 pixels; below 1 it means 9 */
    /* Fast form: gather the features of the regions found. The other form does not look at it: call
     * KipxGatherMSERsFeatures with the builder; until then the states mean nothing. */
    uint32_t gather;
    uint16_t polarity;     /* 0: dark, 1: bright, else both */
    uint16_t connectivity; /* these five as in KipxWatershedContext */
    uint32_t shift;
    uint32_t seed_row;
    uint32_t seed_column;
    KipxST *output;      /* handed to the floods by value; not written */
    KipxWTSLSC levelset; /* feature set */
    KipxMSERlist list;   /* zeroed by the caller; the regions found, dark ones first */
    uint32_t dark_count;
    uint32_t bright_count;
    KipxWTSregion **dark; /* where the groups start in the list */
    KipxWTSregion **bright;
    KipxSTB *dark_builder;   /* null for a polarity that was not asked for */
    KipxSTB *bright_builder; /* fast form: the heads of KipxFWTSRES stores */
} KipxMSERContext;

/* ---- generation ---- */

/* Finds the stable regions of the region of interest; arguments as in KipxWatershed and
 * KipxWatershedEx. The F forms use the fast flood, as either bit of KIPX_FLAG_FAST makes the others
 * do: the same regions, with the pixel indices and the order of the fast store. Levels of bright
 * regions are on the image's own scale (level XOR 255; with a shift that is 255 minus the shifted
 * level); those of other nodes in the bright builder's tree are as flooded, 255 - value. Areas are
 * fractions of the region of interest, mask or not: fraction * pixels in single precision, truncated,
 * saturated, NaN as 0.
 * A 4-axis array is worked on plane by plane; the regions of the last plane stay. */
KIPX_API KIPX_PUBLIC_FLOOD(KipxGenerateMSERs, KipxMSERContext);
KIPX_API KIPX_PUBLIC_FLOOD_M(KipxGenerateMSERsEx, KipxMSERContext);
KIPX_API KIPX_PUBLIC_FLOOD(KipxGenerateFMSERs, KipxMSERContext);
KIPX_API KIPX_PUBLIC_FLOOD_M(KipxGenerateFMSERsEx, KipxMSERContext);
/* Closes both builders, frees the list and zeroes all that a call has left. Null does nothing. */
KIPX_API void KipxMSERrelease(KipxMSERContext *context);

/* One slice. The F forms set the flags of the fast flood. */
KIPX_API KIPX_SLICE(KipxTGAgenerateMSERs);
KIPX_API KIPX_SLICE(KipxTGAgenerateMSERsEx);
KIPX_API KIPX_SLICE(KipxTGAgenerateFMSERs);
KIPX_API KIPX_SLICE(KipxTGAgenerateFMSERsEx);

/* Array level, operands as in kipxa_watershed and kipxa_watershed_xm; a null mask is none. */
KIPX_API KIPX_ARRAY_FLOOD(kipxa_mser, KipxMSERContext);
KIPX_API KIPX_ARRAY_FLOOD_M(kipxa_mser_xm, KipxMSERContext);
KIPX_API KIPX_ARRAY_FLOOD(kipxa_fmser, KipxMSERContext);
KIPX_API KIPX_ARRAY_FLOOD_M(kipxa_fmser_xm, KipxMSERContext);

/* ---- detection ---- */

/* Appends the stable regions of a tree to the list, children before their parents, in the order of
 * children, and returns the list. Every node's data is a region. Kept flags are set for the regions
 * appended and cleared for the others that were looked at; what lies below a node whose level is
 * below delta is not. A region that finds no room in the list is left out. Null arguments and an
 * empty tree append nothing. */
KIPX_API KipxMSERlist *KipxDetectMSERs(KipxMSERlist *list, KipxST *tree,
                                       const KipxMSERparms *parms);
/* The same for a tree that the fast flood made. */
KIPX_API KipxMSERlist *KipxDetectFMSERs(KipxMSERlist *list, KipxST *tree,
                                        const KipxMSERparms *parms);

/* (b - a) / b in single precision, and its absolute value; of two areas, or of two regions' areas.
 */
KIPX_API float __KipxMSERareaVariation(int32_t a, int32_t b);
KIPX_API float __KipxMSERareaVariationAbs(int32_t a, int32_t b);
KIPX_API float __KipxMSERregionVariation(const KipxWTSregion *r, const KipxWTSregion *s);
KIPX_API float __KipxMSERregionVariationAbs(const KipxWTSregion *r, const KipxWTSregion *s);

KIPX_END

#endif
