/* kipx/array.h - extents, strides, positions and regions of interest: bookkeeping, no pixels.
 *
 * A function named kipx__x takes the plain number of axes n, kipx_x a dims word of which the low four
 * bits count. Vectors have one entry per axis, the channel entry last; n of 0 gives 0 everywhere.
 * Names ending in $L also cover the unused leading slots of a right-aligned vector (as many as bits
 * 4-7 of the dims word say), which lie before the address passed in. $S accepts a null position,
 * meaning the origin. $I works in place on its first operand. $Q answers in 64 bits.
 * Nothing here allocates. Null descriptors or sites make region functions answer false or null.
 */
#ifndef KIPX_ARRAY_H
#define KIPX_ARRAY_H

#include <kipx/types.h>

#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdollar-in-identifier-extension"
#endif

KIPX_BEGIN

/* ---- element types ---- */

/* Bytes of an element by the low three bits of its code; 0 for invalid codes and for 15. */
KIPX_API uint32_t kipx_elsize(uint32_t type);
/* 1 for the codes 1-4 and 9-15, else 0; all 32 bits are looked at. */
KIPX_API int32_t kipx_eltype_valid(uint32_t type);
/* (c & 7) + ((c >> 3) & 1). */
KIPX_API uint32_t kipx_nchannels(uint32_t code);

/* ---- strides: bytes ---- */

/* stride[n - 3] when n > 2, else 0. */
KIPX_API uint32_t kipx__rowstride(uint32_t n, const uint32_t *strides);
KIPX_API uint32_t kipx_rowstride(kipx_dims dims, const uint32_t *strides);
/* stride[n - 3] when n > 2, else width * pixel stride. */
KIPX_API uint32_t kipx__rowstride2(uint32_t n, const uint32_t *volume, const uint32_t *strides);
KIPX_API uint32_t kipx_rowstride2(kipx_dims dims, const uint32_t *volume, const uint32_t *strides);
/* stride[n - 2] and stride[n - 1]. */
KIPX_API uint32_t kipx__pixstride(uint32_t n, const uint32_t *strides);
KIPX_API uint32_t kipx_pixstride(kipx_dims dims, const uint32_t *strides);
KIPX_API uint32_t kipx__elstride(uint32_t n, const uint32_t *strides);
KIPX_API uint32_t kipx_elstride(kipx_dims dims, const uint32_t *strides);
/* Row stride - width * pixel stride when n > 2, else minus width * pixel stride. */
KIPX_API int64_t kipx__rowpadding(uint32_t n, const uint32_t *volume, const uint32_t *strides);
KIPX_API int64_t kipx_rowpadding(kipx_dims dims, const uint32_t *volume, const uint32_t *strides);
/* Pixel stride - channels * element stride. */
KIPX_API int64_t kipx__pixpadding(uint32_t n, const uint32_t *volume, const uint32_t *strides);
KIPX_API int64_t kipx_pixpadding(kipx_dims dims, const uint32_t *volume, const uint32_t *strides);
/* Always 0. */
KIPX_API int64_t kipx__elpadding(uint32_t n);
KIPX_API int64_t kipx_elpadding(kipx_dims dims);

/* ---- extents ---- */

/* volume[n - 3] when n > 2, else 1; volume[n - 2]; decoded channel count of volume[n - 1]. */
KIPX_API uint32_t kipx_volume__height(uint32_t n, const uint32_t *volume);
KIPX_API uint32_t kipx_volume_height(kipx_dims dims, const uint32_t *volume);
KIPX_API uint32_t kipx_volume__width(uint32_t n, const uint32_t *volume);
KIPX_API uint32_t kipx_volume_width(kipx_dims dims, const uint32_t *volume);
KIPX_API uint32_t kipx_volume__nchannels(uint32_t n, const uint32_t *volume);
KIPX_API uint32_t kipx_volume_nchannels(kipx_dims dims, const uint32_t *volume);
/* Elements: the product of the extents, the channel code decoded. The 32-bit forms give the low 32
 * bits, the $Q forms saturate at 2^64 - 1. */
KIPX_API uint32_t kipx_volume__capacity(uint32_t n, const uint32_t *volume);
KIPX_API uint32_t kipx_volume_capacity(kipx_dims dims, const uint32_t *volume);
KIPX_API uint64_t kipx_volume__capacity_$Q(uint32_t n, const uint32_t *volume);
KIPX_API uint64_t kipx_volume_capacity_$Q(kipx_dims dims, const uint32_t *volume);
/* Pixels: the product of the first n - 1 extents. */
KIPX_API uint32_t kipx_volume__pixcap(uint32_t n, const uint32_t *volume);
KIPX_API uint32_t kipx_volume_pixcap(kipx_dims dims, const uint32_t *volume);
/* 1 when any extent is zero or at least 2^31, or n is 0. */
KIPX_API int32_t kipx_volume__empty(uint32_t n, const uint32_t *volume);
KIPX_API int32_t kipx_volume_empty(kipx_dims dims, const uint32_t *volume);

/* Memory that an array of this volume takes: fills strides with compact ones, interleaved channels,
 * rows rounded up to align bytes (a power of two; 0 means 1), and returns the bytes in all. kind is
 * the number of axes in bits 0-3 and the element type code in bits 4-7. 0 when anything is invalid
 * or a stride or the whole would exceed 2^32 - 1 bytes; strides are then left alone. */
KIPX_API uint64_t kipx_vmemsize(uint32_t kind, const uint32_t *volume, uint32_t *strides,
                                uint32_t align);
/* The same with leading slots, whose extents and strides lie right before the addresses: kind has
 * their number in bits 4-7 and the element type code from bit 8 on. */
KIPX_API uint64_t kipx_vmemsizeL(uint32_t kind, const uint32_t *volume, uint32_t *strides,
                                 uint32_t align);

/* The first of rows x width elements of size bytes, rows one after another, whose bytes differ from
 * those at value; null when there is none. Strides in bytes. */
KIPX_API const void *kipx_memcelem2dS(const void *base, uint32_t rows, uint32_t row_stride,
                                      uint32_t width, uint32_t stride, uint32_t size,
                                      const void *value);

/* ---- vectors and addresses ---- */

/* Entry by entry: as source, or all of one value. $L: the unused leading slots that dims names, too. */
KIPX_API void kipx_vec_assign(kipx_dims dims, uint32_t *target, const uint32_t *source);
KIPX_API void kipx_vec_assign_$L(kipx_dims dims, uint32_t *target, const uint32_t *source);
KIPX_API void kipx_vec_dup(kipx_dims dims, uint32_t *target, uint32_t value);
KIPX_API void kipx_vec_dup_$L(kipx_dims dims, uint32_t *target, uint32_t value);
/* Sum of position[i] * strides[i], a 32-bit unsigned byte offset. */
KIPX_API uint32_t kipx_vec_mkloff(kipx_dims dims, const uint32_t *position,
                                  const uint32_t *strides);
KIPX_API uint32_t kipx_vec_mkloff_$LS(kipx_dims dims, const uint32_t *position,
                                      const uint32_t *strides);
/* Moves an origin into a byte offset: adds its kipx_vec_mkloff to *offset and zeroes it. */
KIPX_API void kipx_vec_update_loff(kipx_dims dims, uint32_t *offset, uint32_t *origin,
                                   const uint32_t *strides);
/* The address offset bytes further on. */
KIPX_API void *kipx_advance_ptr(const void *base, uint32_t offset);
/* First element, and the element at a position (null: the first); the plane stride of a 3-axis array
 * is not used. */
KIPX_API void *kipx_arr_base(const kipx_arr *arr);
KIPX_API void *kipx_arr_at(const kipx_arr *arr, const kipx_pos *position);

/* ---- regions of interest ---- */

/* The whole array: four zeros, and the four volume entries as they stand. */
KIPX_API void kipx_arr_siteof(const kipx_arr *arr, kipx_site *site);
/* The same over n entries of a plain volume; origin may be null. */
KIPX_API void kipx_arr__siteof(const uint32_t *volume, uint32_t n, uint32_t *origin,
                               uint32_t *extent);
/* The whole array, and with a position that part of it from there on, intersected over the first
 * min(n, 3) slots, extents at least 0. origin and extent have four entries; the channel entry
 * stays the code. */
KIPX_API void kipx_arr__siteofAt(const kipx_arr *arr, uint32_t n, uint32_t *origin,
                                 uint32_t *extent, const kipx_pos *at);
/* The whole array with the channel code decoded, intersected with roi over all four slots when roi is
 * given. Returns the truth of that intersection (0 or 1), or without roi the site's address. A
 * channel extent of 0 or less is an empty region. */
KIPX_API intptr_t kipx_arr_adjorgetRoi(const kipx_arr *arr, kipx_site *site, const kipx_site *roi);
/* The whole array with the channel code decoded; true when it is not empty. */
KIPX_API int32_t kipx_arr_adjustRoi(const kipx_arr *arr, kipx_site *site);
/* Clips the region to the whole array, channel code decoded; true when something is left. */
KIPX_API int32_t kipx_arr__adjustRoi_$I(uint32_t *origin, uint32_t *extent, const kipx_arr *arr);
/* Intersects A with B in place over n axes, ends computed in 64 bits, entries compared as signed;
 * every axis is written even when one is empty, and an extent may come out negative. True when all
 * extents are at least 1; n < 1 is false. */
KIPX_API int32_t kipx__intersecI(int32_t n, uint32_t *origin_a, uint32_t *extent_a,
                                 const uint32_t *origin_b, const uint32_t *extent_b);
KIPX_API int32_t kipx_intersecI(kipx_dims dims, uint32_t *origin_a, uint32_t *extent_a,
                                const uint32_t *origin_b, const uint32_t *extent_b);
/* The region that an operation works on. The destination's is the whole array or its intersection
 * with roi, the source's starts at src_at (null: the origin) and runs to its end; then the first n
 * extents (n outside 1-3 means 3) of both become the smaller of the two while the origins stay. A roi
 * never moves a source. True when every common extent, and the channels of the destination's region,
 * are at least 1. */
KIPX_API int32_t kipx_arr_negotiateRoi(const kipx_arr *dst, const kipx_arr *src,
                                       kipx_site *dst_site, kipx_site *src_site,
                                       const kipx_site *roi, const kipx_pos *src_at, int32_t n);

/* ---- error procedures: what kernel tables give instead of null ---- */

KIPX_API int32_t kipxa_proc_einval(void);
KIPX_API int32_t kipxa_proc_enotsup(void);
KIPX_API int32_t kipxa_proc_enotimp(void);

/* Bytes of the first- and second-level data cache that block sizes are chosen for: 32 KiB and 1 MiB
 * on every machine, so that work is split alike everywhere. */
KIPX_API uint32_t kipx_level1_dcache_size(void);
KIPX_API uint32_t kipx_level2_cache_size(void);

KIPX_END

#if defined(__clang__)
#pragma clang diagnostic pop
#endif

#endif
