/* kipx/types.h - element types, array descriptors, regions and error codes: plain records.
 *
 * Vectors are four 32-bit entries, right-aligned: (planes, height, width, channels). A 3-axis array
 * uses the last three; its first volume entry must still be at least 1, and its plane stride is
 * never used. Extents of 2^31 or more count as empty.
 */
#ifndef KIPX_TYPES_H
#define KIPX_TYPES_H

#include <kipx/api.h>

KIPX_BEGIN

/* Element type codes. Bits 0-2 give the storage size (1, 2, 4, 8, 4, 8 bytes for 1 to 6), bit 3 marks
 * signed integers and floating point. Valid codes are 1-4 and 9-15; 4 and 12 are 64-bit integers and
 * 15 an opaque element of size 0, for which no family here has kernels. */
enum {
    KIPX_U8 = 1,
    KIPX_U16 = 2,
    KIPX_U32 = 3,
    KIPX_U64 = 4,
    KIPX_S8 = 9,
    KIPX_S16 = 10,
    KIPX_S32 = 11,
    KIPX_S64 = 12,
    KIPX_F32 = 13,
    KIPX_F64 = 14
};

/* What functions return: 0 or a count on success, one of these on failure. Nothing has been written
 * to a destination when one of them comes back, but for -65524 or a kernel's own error in the middle
 * of work done block by block, which is documented where it can happen. */
enum {
    KIPX_EINVAL = -65514,  /* bad argument, descriptor, operation code, or mismatched operands */
    KIPX_ENOTSUP = -65511, /* valid, but this operation has no kernel for it */
    KIPX_ENOTIMP = -65496, /* not implemented */
    KIPX_ENOMEM = -65524,  /* work memory could not be had */
    KIPX_EEMPTY = -65508,  /* the region of interest is empty */
    KIPX_EAGAIN = -65525   /* answer to a probe (flag bit 24) */
};

/* Flag bits that every image operation knows. */
#define KIPX_FLAG_PREPARE UINT64_C(0x1)     /* check everything, choose the kernel, touch no pixel */
#define KIPX_FLAG_PLAIN UINT64_C(0x2)       /* kernels in their plain form, whatever the switch says */
#define KIPX_FLAG_PROBE UINT64_C(0x1000000) /* check everything, then answer KIPX_EAGAIN */

/* Flag bits that floods, and builders that listen to them, know beside those. */
#define KIPX_FLAG_GENERAL_BUILDER UINT64_C(0x100000) /* states are merged as regions merge */
#define KIPX_FLAG_FAST UINT64_C(0x600000)            /* either bit: the fast flood */

/* Number of axes in the low 4 bits; number of unused leading slots in bits 4-7. */
typedef uint32_t kipx_dims;

/* Extents: planes, height, width, channel code, right-aligned; functions take pointers to entries. */
typedef uint32_t kipx_volume[4];

/* Array descriptor. The caller owns the record and the pixels. The element at position p lies at
 * base + offset + sum of p[i] * strides[i]; the byte offset of the last element must stay below
 * 2^32. Elements may be misaligned. The last volume entry is a channel code c, meaning
 * (c & 7) + ((c >> 3) & 1) channels. */
typedef struct kipx_arr {
    uint32_t volume[4];   /* planes, height, width, channel code */
    uint32_t reserved[4]; /* not read */
    uint32_t strides[4];  /* bytes between planes, rows, pixels, channels of a pixel */
    uint16_t naxes;       /* 3 or 4 */
    uint16_t reserved2;   /* not read */
    uint32_t type;        /* element type code */
    uint64_t reserved3;   /* not read */
    uint32_t offset;      /* bytes from base to the first element */
    void *base;
} kipx_arr;

/* Region: where it starts and how far it goes, entries compared as signed numbers. */
typedef struct kipx_site {
    uint32_t origin[4];
    uint32_t extent[4];
} kipx_site;

/* Position: one vector. */
typedef struct kipx_pos {
    uint32_t at[4];
} kipx_pos;

/* Range of values, both ends included. */
typedef struct kipx_vrange {
    double low, high;
} kipx_vrange;

KIPX_END

#endif
