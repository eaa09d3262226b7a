/* kipx/planes.h - running a one-plane function over every plane of its operands.
 *
 * A pack holds what a per-slice function needs: the operation code, the extent of one slice, and up
 * to five operands, each as role, type, address, origin and strides. Packing checks nothing; the
 * caller has validated the arrays and fixed the regions. A pack borrows the arrays' memory and owns
 * nothing.
 */
#ifndef KIPX_PLANES_H
#define KIPX_PLANES_H

#include <kipx/env.h>
#include <kipx/types.h>

KIPX_BEGIN

/* What an operation does with an operand. */
enum {
    KIPX_ROLE_SOURCE = 0, /* reads it */
    KIPX_ROLE_MASK = 1,   /* reads it, to know where to work */
    KIPX_ROLE_RESULT = 2  /* writes it */
};

typedef struct kipx_operand {
    void *base;          /* first element of the array, or of the slice's plane */
    uint32_t type;       /* element type code */
    uint32_t channels;   /* channels of the region */
    uint32_t origin[4];  /* right-aligned, as in kipx_site */
    uint32_t strides[4]; /* right-aligned, bytes; the first is 0 for an operand without planes */
    uint32_t role;       /* KIPX_ROLE_* */
    uint32_t reserved;   /* 0 */
} kipx_operand;

#define KIPX_PACK_OPERANDS 5

typedef struct kipx_pack {
    uint32_t code;   /* four-character operation code */
    kipx_dims dims;  /* of one slice: 3 axes, one unused leading slot */
    uint32_t planes; /* slices to go through */
    uint32_t count;  /* operands */
    uint32_t
        extent[4]; /* right-aligned: 1, height, width, channels of the first operand's region */
    kipx_operand operand[KIPX_PACK_OPERANDS];
    void *context; /* handed through */
} kipx_pack;

/* Works on one slice: base is the plane's first element, the plane entry of every origin is 0. */
typedef int32_t (*kipx_slice_fun)(KipxXE *xe, uint64_t flags, const kipx_pack *slice);

/* Packs one source and its region of interest. Returns pack. */
KIPX_API kipx_pack *kipxa_genpackL(kipx_pack *pack, uint32_t code, const kipx_arr *arr,
                                   const kipx_site *site, void *context);
/* Packs a source and a mask with their regions, of one extent. A 3-axis mask serves every plane of
 * a 4-axis source. Returns pack. */
KIPX_API kipx_pack *kipxa_mappackL(kipx_pack *pack, uint32_t code, const kipx_arr *src,
                                   const kipx_site *src_site, const kipx_arr *mask,
                                   const kipx_site *mask_site, void *context);
/* Adds one more operand to a pack. Returns pack, or null when it is full. */
KIPX_API kipx_pack *kipxa_addpackL(kipx_pack *pack, const kipx_arr *arr, const kipx_site *site,
                                   uint32_t role);
/* Calls the function for each plane in turn. The first negative result ends it and is returned;
 * otherwise 0. Planes before it have been worked on then. */
KIPX_API int32_t kipxa_call(KipxXE *xe, uint64_t flags, const kipx_pack *pack,
                            kipx_slice_fun function);

KIPX_END

#endif
