// support/limit_rows.h - the loops behind limit.h, declared for every instruction set.
#ifndef KIPX_BENCH_SUPPORT_LIMIT_ROWS_H
#define KIPX_BENCH_SUPPORT_LIMIT_ROWS_H

#include <stddef.h>

namespace kipx::bench {

struct Loops {
    // Reads n bytes of each of 1 to 3 streams and writes their exclusive or `copies` times (1, 2 or
    // 4), vector by vector; streamed stores need `to` aligned to 64.
    void (*combine)(unsigned char *to, const unsigned char *const *from, int streams, size_t n,
                    unsigned copies, bool streamed);
    // Reads n bytes; the result depends on each.
    unsigned (*read)(const unsigned char *from, size_t n);
    // Writes n bytes; streamed as above.
    void (*write)(unsigned char *to, size_t n, bool streamed);
    // Orders streamed stores before what follows.
    void (*fence)();
};

extern const Loops baseline_loops, avx2_loops, avx512_loops;

} // namespace kipx::bench

#endif
