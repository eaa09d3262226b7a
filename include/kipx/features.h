/* kipx/features.h - regions, their features, and the builder that a flood fills with them.
 *
 * Gives    the region record that hangs on every node of a flood's tree; feature sets, arrays of
 *          descriptors whose states lie behind the region's header; the moment and the pixel
 *          feature; the watershed region-tree builder KipxWTSTB; and gathering, which completes the
 *          states of chosen regions with those of the regions nested in them.
 * Promises a flood knows no feature and a feature no flood: they meet in the record "wtsl" of the
 *          builder's chain. A descriptor's operations may each be null. Whichever of the four
 *          chains built a tree, gathered moments and pixels are the same (sums as long as they stay
 *          below 2^53; pixels but for their order).
 * Costs    a region is one block of record size + 32 bytes. Gathering a list visits a node at most
 *          twice, whatever the order of the list; a fast region result store instead reads the
 *          pixels of every listed region that no complete region before it in the list covers.
 * Owner    the caller owns contexts and descriptors; descriptors must live until the builder has
 *          been cleared or closed, since they dispose of its states. Regions belong to the builder.
 */
#ifndef KIPX_FEATURES_H
#define KIPX_FEATURES_H

#include <kipx/tree.h>

KIPX_BEGIN

/* ---- regions -------------------------------------------------------------------------------- */

/* Header of a region record; feature states follow at their descriptors' offsets, from byte 24. */
typedef struct KipxWTSregion {
    KipxSTnode *node; /* whose data this is */
    uint32_t pixel;   /* one of its own, where the flood labelled it: row * width + column */
    int32_t level;
    int32_t area;  /* pixels, those of the regions below it included */
    uint32_t kept; /* stable-region detection's */
} KipxWTSregion;

/* ---- feature descriptors -------------------------------------------------------------------- */

/* A feature: how large its state is and what can be done with it. States are zero-filled before
 * init. "Gathered" means that a state speaks for the whole region, nested regions included; before
 * that it speaks for what it was given. Any operation may be null and is then left out; a feature
 * takes part in gathering when it has isgathered, ongather and one of lazymerge and merge. */
typedef struct KipxWTSFDs {
    uint32_t magic;        /* four-character code, first character in the most significant byte */
    uint32_t state_size;   /* bytes of state in each region */
    uint32_t state_offset; /* where in the region record; set by KipxWTSLSCfixup */
    uint32_t reserved0;
    void *parameter; /* handed to init */
    void (*init)(void *state, void *parameter);
    void (*destroy)(void *state);
    void *reserved; /* zero */
    /* Pixels as linear indices. The builder knows the width of the image and calls update2D instead
     * where there is one. */
    void (*update)(void *state, const uint32_t *pixels, uint32_t count);
    /* Pixels as count pairs (row, column). */
    void (*update2D)(void *state, const uint32_t *pairs, uint32_t count);
    /* Absorbs the state of a nested region; the result counts as gathered. */
    void (*merge)(void *state, const void *other);
    /* Absorbs another state and leaves the gathered mark alone. */
    void (*lazymerge)(void *state, const void *other);
    int32_t (*isgathered)(const void *state);
    /* The state is complete: marks it so. */
    void (*ongather)(void *state, const KipxWTSregion *region);
} KipxWTSFDs;

/* Index of the first descriptor with that magic, or -1. */
KIPX_API int32_t KipxWTSFindexByMagic(const KipxWTSFDs *descriptors, int32_t count, uint32_t magic);

/* ---- level-set context ---------------------------------------------------------------------- */

/* What a builder must know of one image: its features and its extents. */
typedef struct KipxWTSLSC {
    KipxWTSFDs *descriptors;
    int32_t count;       /* of descriptors; below 1: none */
    int32_t record_size; /* of a region, bytes; 0 until fixed up */
    uint32_t volume[4];  /* planes, height, width, channels */
    uint32_t strides[4]; /* bytes between planes, rows, pixels, channels */
} KipxWTSLSC;

/* Stores the feature set and the image volume (either vector may be null: zeros) and fixes up.
 * Returns context; null when the record size overflows or descriptors are missing. */
KIPX_API KipxWTSLSC *KipxWTSLSCinit(KipxWTSLSC *context, KipxWTSFDs *descriptors, int32_t count,
                                    const uint32_t volume[4], const uint32_t strides[4]);
KIPX_API KipxWTSLSC *KipxWTSLSCinit2D(KipxWTSLSC *context, KipxWTSFDs *descriptors, int32_t count,
                                      uint32_t height, uint32_t width, uint32_t stride);
/* The image volume alone; the 2D form means one plane of one-byte pixels. Returns context. */
KIPX_API KipxWTSLSC *KipxWTSLSCsetimvol(KipxWTSLSC *context, const uint32_t volume[4],
                                        const uint32_t strides[4]);
KIPX_API KipxWTSLSC *KipxWTSLSCsetimvol2D(KipxWTSLSC *context, uint32_t height, uint32_t width,
                                          uint32_t stride);
/* Lays the states out: in descriptor order from byte 24, each rounded up to a multiple of 8. A
 * record size above 24 is final and stays. Returns the record size; -65514, changing nothing, when
 * it would not fit into 31 bits or descriptors are missing. */
KIPX_API int32_t KipxWTSLSCfixup(KipxWTSLSC *context);

/* ---- moment feature ------------------------------------------------------------------------- */

#define KIPX_WTSMF_MAGIC UINT32_C(0x6D6E7466) /* "mntf"; in memory the bytes "ftnm" */

typedef struct KipxWTSMF {
    int32_t count; /* gathered: pixels of the region; else minus the number of pixels added */
    uint32_t reserved;
    double row, column, row_row, row_column, column_column; /* sums over the pixels */
} KipxWTSMF;

/* Fills a moment descriptor; returns it. The parameter is stored and not used. */
KIPX_API KipxWTSFDs *KipxWTSMFinitFeatureDs(KipxWTSFDs *descriptor, void *parameter);
/* The five sums alone; the count is left to the descriptor's operations. _update_n takes linear
 * indices and, knowing no width, counts an index as a column of row 0. The _n forms return count.
 */
KIPX_API void KipxWTSMF_update2D(KipxWTSMF *state, uint32_t row, uint32_t column);
KIPX_API uint32_t KipxWTSMF_update_n(KipxWTSMF *state, const uint32_t *pixels, uint32_t count);
KIPX_API uint32_t KipxWTSMF_update2D_n(KipxWTSMF *state, const uint32_t *pairs, uint32_t count);
/* The descriptor's operations. Merging a state into itself does nothing. */
KIPX_API void __KipxWTSMF__update__(void *state, const uint32_t *pixels, uint32_t count);
KIPX_API void __KipxWTSMF__update2D__(void *state, const uint32_t *pairs, uint32_t count);
KIPX_API void __KipxWTSMF__merge__(void *state, const void *other);
KIPX_API void __KipxWTSMF__lazymerge__(void *state, const void *other);
KIPX_API int32_t __KipxWTSMF__isgathered__(const void *state);
KIPX_API void __KipxWTSMF__ongather__(void *state, const KipxWTSregion *region);

/* Read-outs of a gathered state, x being the column and y the row: means, central second moments
 * divided by the count, and half the angle of atan2 (2 Mxy, Mxx - Myy) in radians. The count is
 * used as it stands; before gathering the results mean nothing. */
KIPX_API double kipx_mf_mx(const KipxWTSMF *state);
KIPX_API double kipx_mf_my(const KipxWTSMF *state);
KIPX_API double kipx_mf_Mxx(const KipxWTSMF *state);
KIPX_API double kipx_mf_Mxy(const KipxWTSMF *state);
KIPX_API double kipx_mf_Myy(const KipxWTSMF *state);
KIPX_API void kipx_mf_M2(double out[3], const KipxWTSMF *state); /* Myy, Mxy, Mxx */
KIPX_API double kipx_mf_theta(const KipxWTSMF *state);

/* ---- pixel feature -------------------------------------------------------------------------- */

#define KIPX_WTSPF_MAGIC UINT32_C(0x70786C66) /* "pxlf"; in memory the bytes "flxp" */
#define KIPX_WTSPF_GATHERED (UINT64_C(1) << 63)

typedef struct KipxWTSPFpixel {
    uint32_t row, column;
} KipxWTSPFpixel;

typedef struct KipxWTSPF {
    uint64_t capacity; /* entries there is room for; bit 63: gathered */
    uint64_t count;    /* entries in use */
    KipxWTSPFpixel *entries;
} KipxWTSPF;

/* Fills a pixel descriptor; returns it. The parameter is stored and not used. */
KIPX_API KipxWTSFDs *KipxWTSPFinitFeatureDs(KipxWTSFDs *descriptor, void *parameter);
/* Append pixels; the gathered mark stays. _update_n takes linear indices and, knowing no width,
 * makes an index a column of row 0. They return the number appended: all, or 0 when memory is
 * short. */
KIPX_API uint32_t KipxWTSPF_update2D(KipxWTSPF *state, uint32_t row, uint32_t column);
KIPX_API uint32_t KipxWTSPF_update_n(KipxWTSPF *state, const uint32_t *pixels, uint32_t count);
KIPX_API uint32_t KipxWTSPF_update2D_n(KipxWTSPF *state, const uint32_t *pairs, uint32_t count);
/* The descriptor's operations. What does not fit into memory is not appended; merge sets its mark
 * all the same. Merging a state into itself does nothing. */
KIPX_API void __KipxWTSPF__init__(void *state, void *parameter);
KIPX_API void __KipxWTSPF__destroy__(void *state);
KIPX_API void __KipxWTSPF__update__(void *state, const uint32_t *pixels, uint32_t count);
KIPX_API void __KipxWTSPF__update2D__(void *state, const uint32_t *pairs, uint32_t count);
KIPX_API void __KipxWTSPF__merge__(void *state, const void *other);
KIPX_API void __KipxWTSPF__lazymerge__(void *state, const void *other);
KIPX_API int32_t __KipxWTSPF__isgathered__(const void *state);
KIPX_API void __KipxWTSPF__ongather__(void *state, const KipxWTSregion *region);

/* ---- what a flood asks of a builder: the record "wtsl" -------------------------------------- */

#define KIPX_TAG_WTSL UINT32_C(0x7774736C)

/* context is the flood's level-set context, fixed up. */
typedef void *(*KipxWTSallocate)(KipxSTB *builder, size_t size, size_t alignment);
typedef int32_t (*KipxWTSconfigure)(KipxSTB *builder, KipxWTSLSC *context, uint64_t flags,
                                    const void *feature_part);
typedef int32_t (*KipxWTSfinish)(KipxSTB *builder, KipxWTSLSC *context, KipxST **output,
                                 uint32_t entries);
typedef KipxWTSregion *(*KipxWTSnewregion)(void *reserved, KipxSTB *builder, KipxWTSLSC *context,
                                           void *reserved2);
typedef void (*KipxWTSdispose)(KipxSTB *builder, KipxWTSLSC *context, KipxWTSregion *region);
typedef void (*KipxWTSupdate)(KipxSTB *builder, KipxWTSLSC *context, KipxWTSregion *region,
                              const uint32_t *pixels, uint32_t count);
typedef void (*KipxWTSmerge)(KipxSTB *builder, KipxWTSLSC *context, KipxWTSregion *parent,
                             KipxWTSregion *child);
typedef int32_t (*KipxWTSgather)(KipxSTB *builder, KipxWTSLSC *context,
                                 KipxWTSregion *const *regions, uint64_t count);

typedef struct KipxWTSIF {
    uint32_t tag;  /* KIPX_TAG_WTSL */
    uint32_t size; /* 88 */
    /* Zero-filled bytes from the builder's storage; alignment 0 means 16. Null: memory is short. */
    KipxWTSallocate allocate;
    /* Once, before flooding: empties a tree that an earlier flood left, copies the context into the
     * builder and chooses the chain; find this record again afterwards. 0, or -65514. */
    KipxWTSconfigure configure;
    /* Once, when the root has been set: leaves the tree in *output (may be null). Returns 0. */
    KipxWTSfinish finish;
    /* A region with its node, states initialised, in no tree yet. Null: memory is short. */
    KipxWTSnewregion newregion;
    /* Destroys the states of one region. For a region that will be in no tree. */
    KipxWTSdispose destroyfeatures;
    /* Destroys the states of a region and of all regions below it. A flood that fails calls it for
     * what it still holds, and then makes the tree's root null. */
    KipxWTSdispose dispose;
    /* Count pixels of the region itself: linear indices, or pairs (row, column). */
    KipxWTSupdate update;
    KipxWTSupdate update2D;
    /* The child, complete by now, becomes the newest child of the parent, and the parent's node the
     * root of the tree. */
    KipxWTSmerge merge;
    /* Completes the states of the given regions. 0, -65514, or -65524 when pixels were lost for
     * want of memory. */
    KipxWTSgather gather;
} KipxWTSIF;

/* ---- the watershed region-tree builder ------------------------------------------------------ */

/* Its extension area of 48 bytes holds its copy of the level-set context; the specialisation word
 * points at that copy once it has been configured. */
#define KIPX_WTSTB_EXTSIZE 48

/* KipxSTBinit and KipxSTBopen with the default chain and that extension. */
KIPX_API KipxSTB *KipxWTSTBinit(KipxSTB *builder, KipxST *tree, ZuSMEMSTG *storage,
                                ZuSMEMSTG *parent);
KIPX_API KipxSTB *KipxWTSTBopen(KipxSTB *builder, KipxST *tree, ZuSMEMSTG *storage,
                                ZuSMEMSTG *parent);
/* The default chain: "stbl", then "wtsl". */
KIPX_API const void *KipxWTSTBxinterface(void);
/* Stores the default chain as the first word of record. */
KIPX_API void __KipxWTSTBinit__(void *record);
/* Fixes the context up and makes a region: node and record in one zero-filled block, bound to each
 * other, states initialised. Null when memory is short or the record size overflows. The first
 * argument is not read. */
KIPX_API KipxWTSregion *__KipxWTSTBnewregion(void *reserved, KipxSTB *builder, KipxWTSLSC *context);
/* A node of its own for a region, bound both ways; null when memory is short. */
KIPX_API KipxSTnode *__KipxWTSTBnewnodeWithRegion(KipxSTB *builder, KipxWTSregion *region);
/* A region and a node in separate blocks, bound both ways; returns the node. */
KIPX_API KipxSTnode *__KipxWTSTBnewregionNode(void *reserved, KipxSTB *builder,
                                              KipxWTSLSC *context);
/* The node disposer: destroys the feature states of the node's region. arg is the builder. Returns
 * 1. */
KIPX_API int32_t __KipxWTSTBdisposergn(KipxSTnode *node, void *arg, int32_t index);

/* ---- gathering ------------------------------------------------------------------------------ */

/* Complete the feature states of a region, or of each region of a list, with the states of the
 * regions nested in it, every pixel once; a complete state is left as it is. Afterwards a moment
 * state's count is the region's area, and a pixel state lists the region's own pixels first. The
 * list may be in any order; nested regions that are complete are used whole.
 * Bit 31 of the kept words may be used meanwhile and is 0 afterwards.
 * Return 0; -65514 for null arguments, a builder that no flood has configured, one without the
 * operation, and one whose chain keeps no pixels; -65524 when a pixel list lacks pixels for want of
 * memory, all other regions being gathered nevertheless. */
KIPX_API int32_t KipxGatherMSERFeatures(KipxSTB *builder, KipxWTSregion *region);
KIPX_API int32_t KipxGatherMSERsFeatures(KipxSTB *builder, KipxWTSregion *const *regions,
                                         uint64_t count);
/* The same for one region of a tree whose states have seen the region's pixels, by the descriptors of
 * the context. The states of a fast region result store have not: use KipxGatherMSERFeatures. */
KIPX_API int32_t KipxMSERgatherFeatures(const KipxWTSLSC *context, KipxWTSregion *region);

KIPX_END

#endif
