// core/walk.cpp - row iteration.
#include "core/walk.h"

#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace kipx {
namespace {

// Elements per run where operands go through buffers: three of these fit the first-level cache.
constexpr size_t run_length = 1024;
constexpr size_t widest = 8;
// Bytes of all operands from which the destination is written past the cache: about half of the
// last-level cache of the machines that this was measured on.
constexpr uint64_t streaming_bytes = 16u << 20;
constexpr size_t line = 64;

bool adjacent(const Stream &s) { return s.pixel == s.size; }

template<class T> void pack_elements(char *out, const char *in, size_t n, size_t step) {
    for (size_t i = 0; i < n; ++i) memcpy(out + i * sizeof(T), in + i * step, sizeof(T));
}
template<class T> void spread_elements(char *out, const char *in, size_t n, size_t step) {
    for (size_t i = 0; i < n; ++i) memcpy(out + i * step, in + i * sizeof(T), sizeof(T));
}
void pack(char *out, const Stream &s, const char *in, size_t n) {
    switch (s.size) {
    case 1:
        return pack_elements<uint8_t>(out, in, n, s.pixel);
    case 2:
        return pack_elements<uint16_t>(out, in, n, s.pixel);
    case 4:
        return pack_elements<uint32_t>(out, in, n, s.pixel);
    default:
        return pack_elements<uint64_t>(out, in, n, s.pixel);
    }
}
void spread(char *out, const Stream &s, const char *in, size_t n) {
    switch (s.size) {
    case 1:
        return spread_elements<uint8_t>(out, in, n, s.pixel);
    case 2:
        return spread_elements<uint16_t>(out, in, n, s.pixel);
    case 4:
        return spread_elements<uint32_t>(out, in, n, s.pixel);
    default:
        return spread_elements<uint64_t>(out, in, n, s.pixel);
    }
}

struct Buffers {
    alignas(line) char dst[run_length * widest];
    alignas(line) char src[2][run_length * widest];
};

// One row whose elements are not adjacent in every operand.
void walk_scattered(const RowTask &t, char *dst, const char *const src[2]) {
    Buffers buffers;
    for (size_t done = 0; done < t.width; done += run_length) {
        size_t n = t.width - done < run_length ? t.width - done : run_length;
        const void *from[2] = {nullptr, nullptr};
        for (uint32_t i = 0; i < t.sources; ++i) {
            const char *at = src[i] + done * t.src[i].pixel;
            if (!adjacent(t.src[i])) pack(buffers.src[i], t.src[i], at, n);
            from[i] = adjacent(t.src[i]) ? at : buffers.src[i];
        }
        char *at = dst + done * t.dst.pixel;
        char *to = adjacent(t.dst) ? at : buffers.dst;
        t.loop(to, from[0], from[1], n, t.params, Writing::cached);
        if (!adjacent(t.dst)) spread(at, t.dst, buffers.dst, n);
    }
}

// One row of adjacent elements, of which the whole lines are written past the cache.
void walk_streaming(const RowTask &t, char *dst, const char *const src[2], size_t width) {
    size_t size = t.dst.size, past = reinterpret_cast<uintptr_t>(dst) & (line - 1);
    size_t head = past ? (line - past) / size : 0;
    // Misaligned elements straddle every line's end: such a row is written as usual.
    if (past % size != 0 || head > width) head = width;
    size_t body = (width - head) / (line / size) * (line / size);
    size_t done = 0;
    auto call = [&](size_t n, Writing writing) {
        if (n == 0) return;
        t.loop(dst + done * size, src[0] + done * t.src[0].size,
               t.sources > 1 ? src[1] + done * t.src[1].size : nullptr, n, t.params, writing);
        done += n;
    };
    call(head, Writing::cached);
    call(body, Writing::streamed);
    call(width - done, Writing::cached);
}

bool same_place(const Stream &a, const Stream &b) { return a.at == b.at; }

} // namespace

void walk(const RowTask &t) {
    if (t.width == 0) return;
    bool dense = adjacent(t.dst), gapless = true;
    uint64_t element_bytes = t.dst.size;
    bool in_place = false;
    gapless &= t.dst.row == uint64_t{t.width} * t.dst.pixel;
    for (uint32_t i = 0; i < t.sources; ++i) {
        dense &= adjacent(t.src[i]);
        gapless &= t.src[i].row == uint64_t{t.width} * t.src[i].pixel;
        element_bytes += t.src[i].size;
        in_place |= same_place(t.dst, t.src[i]);
    }
    size_t width = t.width, rows = t.rows;
    if (dense && gapless) width *= rows, rows = rows ? 1 : 0;
    bool streaming =
        dense && !in_place && t.dst.size && width * rows * element_bytes >= streaming_bytes;

    char *dst = t.dst.at;
    const char *src[2] = {t.src[0].at, t.src[1].at};
    if (dense && !streaming) {
        for (size_t y = 0; y < rows; ++y) {
            t.loop(dst, src[0], src[1], width, t.params, Writing::cached);
            dst += t.dst.row, src[0] += t.src[0].row, src[1] += t.src[1].row;
        }
        return;
    }
    for (size_t y = 0; y < rows; ++y) {
        if (streaming)
            walk_streaming(t, dst, src, width);
        else
            walk_scattered(t, dst, src);
        dst += t.dst.row, src[0] += t.src[0].row, src[1] += t.src[1].row;
    }
#if defined(__SSE2__)
    if (streaming) _mm_sfence();
#endif
}

} // namespace kipx
