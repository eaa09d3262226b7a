/* kipx/fast_regions.h - the fast flood's result store: a tree of regions with all of their pixels.
 *
 * Gives    KipxFWTSRES, a tree builder whose nodes the fast flood makes itself. Its tree is walked
 *          like any other (KipxAGTwalk), its regions are KipxWTSregion records, features are
 *          gathered with KipxGatherMSERsFeatures; on top of that the pixels of every region can be
 *          read.
 * Promises nodes and pixels stay where they are until the next flood into the store, or until the
 *          tree is emptied or the builder cleared or closed. The order of nodes and pixels is the
 *          same on every machine.
 * Costs    4 bytes a pixel; a node of 40 bytes and its region record, rounded up to 8 (64 bytes
 *          without features). The pixel buffer stays for later floods of images that are not
 *          larger.
 * Owner    the store owns nodes and pixels. It is closed with KipxSTBclose on its head.
 *
 * Layout. Nodes lie one after another in post-order, children before their parent, in blocks of
 * growing size. Pixels lie in one array, one word each, row * (width + 1) + column, in an order of
 * the flood's own. The pixels of a region are a run of that array: area words from
 * the node's `start` on. A nested region's run lies inside. The array has height * width words in
 * use, of height * width + 2 * (width + 2).
 */
#ifndef KIPX_FAST_REGIONS_H
#define KIPX_FAST_REGIONS_H

#include <kipx/features.h>
#include <kipx/tree.h>

KIPX_BEGIN

#define KIPX_TAG_FWTS UINT32_C(0x66777473) /* the empty record "fwts" in a store's chain */

/* A node of the store and its region; feature states follow the region's header. */
typedef struct KipxFWTSRESnode {
    uint32_t start; /* where its run of pixels begins */
    uint32_t index; /* its number in post-order */
    KipxSTnode node;
    KipxWTSregion region;
} KipxFWTSRESnode;

typedef struct KipxFWTSRES {
    KipxSTB builder;     /* head; flags, tree and storage as of any builder */
    KipxWTSLSC levelset; /* copy made by the flood; the builder's specialisation points here */
    uint32_t *pixels;    /* the pixel array, or null */
    uint64_t capacity;   /* words in it */
    void *first_block;   /* node blocks, oldest first */
    void *last_block;    /* where the next node goes */
    uint32_t count;      /* nodes */
    uint32_t node_size;  /* bytes from node to node */
} KipxFWTSRES;

#define KIPX_FWTSRES_EXTSIZE (sizeof(KipxFWTSRES) - sizeof(KipxSTB))

/* Opens an empty store; the arguments are KipxSTBopen's. Null when memory is short. */
KIPX_API KipxFWTSRES *KipxFWTSRESopen(KipxFWTSRES *store, KipxST *tree, ZuSMEMSTG *storage,
                                      ZuSMEMSTG *parent);
/* KipxSTBclose on its head; null does nothing. */
KIPX_API void KipxFWTSRESclose(KipxFWTSRES *store, int32_t flag);
/* The chain of every store: "stbl", "wtsl" (with the operations dispose and gather alone), "fwts".
 */
KIPX_API const void *KipxFWTSRESxinterface(void);
/* The store behind an initialised builder whose chain has the record "fwts"; else null. */
KIPX_API KipxFWTSRES *KipxFWTSRESfrombuilder(KipxSTB *builder);

/* Called for a node with its region; 0 ends the walk. */
typedef int32_t (*kipx_fwtsr_visitor)(KipxFWTSRESnode *node, void *arg);
/* Called for a pixel; 0 ends the walk. */
typedef int32_t (*kipx_fwtsr_pixelvisitor)(uint32_t row, uint32_t column, void *arg);

/* Number of regions. */
KIPX_API uint32_t kipx_fwtsr_count(const KipxFWTSRES *store);
/* Visits all regions in the order of memory: children before their parent, older siblings first,
 * the root last. */
KIPX_API void kipx_fwtsr_walk(KipxFWTSRES *store, kipx_fwtsr_visitor visitor, void *arg);
/* The node record around one of the store's regions. */
KIPX_API KipxFWTSRESnode *kipx_fwtsr_node(const KipxWTSregion *region);
/* The region's run of pixel words; area of them. Null for null. */
KIPX_API const uint32_t *kipx_fwtsr_run(const KipxFWTSRES *store, const KipxWTSregion *region);
/* Copies up to count of the region's pixels from the first one on: as pairs (row, column), or as
 * linear indices row * width + column. Returns how many there were. */
KIPX_API uint32_t kipx_fwtsr_fetch2D(const KipxFWTSRES *store, const KipxWTSregion *region,
                                     uint32_t first, uint32_t count, uint32_t *pairs);
KIPX_API uint32_t kipx_fwtsr_fetch(const KipxFWTSRES *store, const KipxWTSregion *region,
                                   uint32_t first, uint32_t count, uint32_t *pixels);
/* Visits the region's pixels in the order of the array. */
KIPX_API void kipx_fwtsr_walkPixels(const KipxFWTSRES *store, const KipxWTSregion *region,
                                    kipx_fwtsr_pixelvisitor visitor, void *arg);

KIPX_END

#endif
