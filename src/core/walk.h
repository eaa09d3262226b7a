// core/walk.h - row iteration: from strided operands to calls of contiguous row loops.
//
// Gives    walk(), which hands a row loop runs of adjacent elements until the whole region is done:
//          rows that follow each other without a gap become one run; elements that are not adjacent
//          are packed into and spread out of small buffers on the stack.
// Promises only elements of the region are read or written. A destination may be one of the sources
//          (same place, strides and element size): a run is read before it is written.
// Costs    a call per run. Once the operands exceed what the last-level cache keeps, row loops are
//          told that they may write past the cache.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kipx {

// How a row loop is to write. streamed: dst is aligned to 64 bytes, n elements are whole lines of
// 64 bytes, and the loop may write them past the cache; the walk sees to their order with later
// stores.
enum class Writing : uint32_t { cached, streamed };

// A loop over n adjacent elements. b is null where there is one source. params is the family's own.
using RowLoop = void (*)(void *dst, const void *a, const void *b, size_t n, const void *params,
                         Writing writing);

struct Stream {
    char *at = nullptr; // first element
    uint32_t row = 0;   // bytes from row to row
    uint32_t pixel = 0; // bytes from element to element
    uint32_t size = 0;  // bytes of an element
};

struct RowTask {
    uint32_t rows = 0;
    uint32_t width = 0;
    uint32_t sources = 0; // 1 or 2
    Stream dst, src[2];
    RowLoop loop = nullptr;
    const void *params = nullptr;
};

void walk(const RowTask &task);

} // namespace kipx
