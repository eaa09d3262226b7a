// resize/resize_rows.h - rows of picked pixels: what the loops take, and their tables.
//
// Gives    Picks, which bytes of a source row a stretch of a result row takes, in two forms, and per
//          instruction set the loops that go by it.
// Promises a shuffle reads from a row what lies between its first and last byte; a pick the pixels
//          themselves.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/run.h"
#include "core/sets.h"

namespace kipx {

// Bytes of a result row that are made in one go, widest vector, vectors that a shuffle looks at.
inline constexpr size_t stretch = 4096, widest_chunk = 64, most_blocks = 16;

struct Picks {
    size_t bytes; // of the stretch, whole pixels
    // Bytes from the row's first to each pixel of the stretch.
    size_t pixels;
    size_t offset[stretch];
    // Result vector k takes its bytes from `blocks` vectors that start at byte from[k], at[i] counted
    // from there, for vectors of `chunk` bytes. More than 256 bytes are counted by halves of 128: in
    // half h where part[k][h] has the byte's bit. 0 blocks: there is no such form.
    uint32_t blocks;
    size_t from[stretch / 16];
    alignas(64) uint8_t at[stretch];
    uint64_t part[stretch / widest_chunk][most_blocks / 2];
};

// The same stretch of `copies` result rows, 1 to 4, `row` bytes apart; streamed: past the cache, to
// addresses that are multiples of 64. next: a source row to fetch meanwhile, or null.
struct Stretch {
    char *to;
    size_t row;
    uint32_t copies;
    const char *from, *next;
    bool streamed;
};

struct ResizeLoops {
    uint32_t chunk,
        blocks; // bytes of a vector; as many as a shuffle can look at, 0 for no shuffles
    void (*shuffle)(const Stretch &stretch, const Picks &picks);
    // Pixel by pixel, for pixels of 1, 2, 3, 4, 6, 8, 12, 16, 24 and 32 bytes.
    void (*pick[10])(char *to, const char *from, const Picks &picks);
    RowLoop move[4]; // elements of 1, 2, 4 and 8 bytes, as they are
};
KIPX_SET_TABLES(ResizeLoops, resize_loops, 1)

} // namespace kipx
