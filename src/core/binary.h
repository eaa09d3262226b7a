// core/binary.h - the generic handler for operations of two arrays.
//
// Gives    binary_handler(): from descriptors to the array-level call, for any family whose
//          routines have this argument shape. It knows no operation: the family hands in its table.
// Promises checks come in this order, and the first that fails gives the code: operation code,
//          destination, sources, region with the second source, region with the first, axes, byte
//          offsets and shared bytes. Types are left to the typed level. No pixel is touched here.
#pragma once

#include <kipx/env.h>
#include <kipx/types.h>

namespace kipx {

using BinaryRoutine = int32_t (*)(KipxXE *xe, uint64_t flags, kipx_dims dims,
                                  const uint32_t *extent, uint32_t dst_type, void *dst,
                                  const uint32_t *dst_origin, const uint32_t *dst_strides,
                                  uint32_t src1_type, const void *src1, const uint32_t *src1_origin,
                                  const uint32_t *src1_strides, uint32_t src2_type,
                                  const void *src2, const uint32_t *src2_origin,
                                  const uint32_t *src2_strides, int32_t scale, int32_t aux);

struct BinaryEntry {
    uint32_t code;
    BinaryRoutine routine;
};

struct BinaryCall {
    KipxXE *xe;
    uint64_t flags;
    const kipx_arr *dst, *src1, *src2;
    const kipx_site *roi;
    const kipx_pos *src1_at, *src2_at;
    int32_t scale, aux;
};

int32_t binary_handler(uint32_t code, const BinaryEntry *table, uint32_t entries,
                       const BinaryCall &call);

} // namespace kipx
