#include "support/limit.h"

#include <algorithm>
#include <cstring>

#include "support/limit_rows.h"

namespace kipx::bench {
namespace {

const Loops &best_loops() {
#if defined(KIPX_HAVE_avx512)
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
        __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512dq")) {
        return avx512_loops;
    }
#endif
#if defined(KIPX_HAVE_avx2)
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi2")) return avx2_loops;
#endif
    return baseline_loops;
}

volatile unsigned sink;

struct Streams {
    const unsigned char *from[3];
    unsigned bytes[3];
    int reads;
};

// A block of pixels: what all streams have in common in one loop, what some have beyond it alone.
void move_block(const Loops &loops, Move move, unsigned char *to, unsigned write,
                const Streams &streams, size_t pixels) {
    const bool streamed = move == Move::streamed;
    unsigned common = write;
    for (int k = 0; k < streams.reads; k++) common = std::min(common, streams.bytes[k]);
    if (streams.reads == 0) common = 0;
    int combined = common ? streams.reads : 0;
    if (combined && move == Move::copied) {
        std::memcpy(to, streams.from[0], common * pixels);
        combined = 1;
    } else if (combined) {
        loops.combine(to, streams.from, streams.reads, common * pixels, 1, streamed);
    }
    unsigned mix = 0;
    for (int k = 0; k < streams.reads; k++) {
        const size_t done = k < combined ? common * pixels : 0;
        const size_t left = streams.bytes[k] * pixels - done;
        if (left) mix ^= loops.read(streams.from[k] + done, left);
    }
    sink = mix;
    const size_t left = (write - common) * pixels;
    if (left && move == Move::copied) {
        std::memset(to + common * pixels, 0x5A, left);
    } else if (left) {
        loops.write(to + common * pixels, left, streamed);
    }
}

} // namespace

const char *move_name(Move move) {
    static const char *const names[] = {"cached", "streamed", "copied"};
    return names[static_cast<int>(move)];
}

void move_bytes(Move move, Traffic traffic, size_t pixels, unsigned char *write,
                const unsigned char *read1, const unsigned char *read2,
                const unsigned char *read3) {
    static const Loops &loops = best_loops();
    const unsigned char *const given[3] = {read1, read2, read3};
    const unsigned bytes[3] = {traffic.read1, traffic.read2, traffic.read3};
    Streams streams{};
    bool even = true;
    for (int k = 0; k < 3; k++) {
        if (!bytes[k]) continue;
        streams.from[streams.reads] = given[k];
        streams.bytes[streams.reads++] = bytes[k];
        even = even && bytes[k] == streams.bytes[0];
    }
    const unsigned width = streams.bytes[0];
    const unsigned copies = width && traffic.write % width == 0 ? traffic.write / width : 0;
    // Reads of one width and a write of the same or twice or four times as much: one loop. Others
    // keep in step by blocks that fit the first cache.
    if (even && move != Move::copied && (copies == 1 || copies == 2 || copies == 4)) {
        loops.combine(write, streams.from, streams.reads, width * pixels, copies,
                      move == Move::streamed);
        return loops.fence();
    }
    const bool alone = streams.reads == 0 || (traffic.write == 0 && streams.reads == 1);
    const bool whole = alone || (even && copies == 1 && streams.reads == 1);
    const size_t block = whole ? pixels : 2048;
    for (size_t at = 0; at < pixels; at += block) {
        const size_t n = std::min(block, pixels - at);
        Streams here = streams;
        for (int k = 0; k < here.reads; k++) here.from[k] += at * here.bytes[k];
        move_block(loops, move, write + at * traffic.write, traffic.write, here, n);
    }
    loops.fence();
}

} // namespace kipx::bench
