// support/limit.h - how fast the machine can move the bytes that an operation must move.
//
// Gives    three loops over up to three streams that are read and one that is written: cached
//          stores, stores past the cache, and memcpy. The fastest of them is the limit that an
//          operation is measured against.
// Promises every byte of every stream is touched once, in step: after a share of the pixels every
//          stream has advanced by the same share. Loads are combined, so that none can be dropped.
// Costs    vectors of the widest set that the processor has.
#ifndef KIPX_BENCH_SUPPORT_LIMIT_H
#define KIPX_BENCH_SUPPORT_LIMIT_H

#include <cstddef>
#include <cstdint>

namespace kipx::bench {

// Bytes per pixel of each stream; 0 leaves the stream out.
struct Traffic {
    unsigned write = 0, read1 = 0, read2 = 0, read3 = 0;
};

enum class Move { cached, streamed, copied };
inline constexpr Move all_moves[] = {Move::cached, Move::streamed, Move::copied};
const char *move_name(Move move);

// Moves the traffic of `pixels` pixels; null streams must have no bytes per pixel. write is aligned
// to 64.
void move_bytes(Move move, Traffic traffic, size_t pixels, unsigned char *write,
                const unsigned char *read1, const unsigned char *read2, const unsigned char *read3);

} // namespace kipx::bench

#endif
