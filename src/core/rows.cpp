// core/rows.cpp - from a Call to runs of adjacent elements.
#include "core/rows.h"

#include <algorithm>

#include "core/stages.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace kipx {
namespace {

constexpr size_t widest = 8;
constexpr size_t line = 64;

// A plane's worth of rows of one channel each, once channels and rows are folded.
struct Sheet {
    const Call &c;
    const Rows &how;
    size_t rows, width;
    uint32_t repeat; // channels that a mask byte stands for
    size_t longest;  // elements that every repeating source can give in one run
    bool direct;     // no operand needs a buffer of its own
    bool streaming;
};

// Where the rows of a sheet stand; a null mask for none.
struct Cursor {
    char *dst;
    const char *src[most_sources];
    const char *mask;
};

struct Buffers {
    alignas(line) char dst[run_length * widest];
    alignas(line) char src[most_sources][run_length * widest];
    alignas(line) char mask[run_length];
};

bool folds(const Operand &o, uint32_t channels) { return !o.at || o.channel * channels == o.pixel; }

// Channels into the row, when every operand's lie evenly; a mask of one channel is repeated.
uint32_t fold_channels(Call &c) {
    uint32_t n = c.channels;
    if (n == 1) return 1;
    bool single = c.mask.at && c.mask.channel == 0;
    bool all =
        uint64_t{c.width} * n <= UINT32_MAX && folds(c.dst, n) && (single || folds(c.mask, n));
    for (uint32_t i = 0; i < c.sources; ++i) all &= folds(c.src[i], n);
    if (!all) return 1;
    c.width *= n, c.channels = 1;
    c.dst.pixel = c.dst.channel;
    if (!single) c.mask.pixel = c.mask.channel;
    for (Operand &o : c.src) o.pixel = o.channel, o.period *= n, o.length *= n;
    return single ? n : 1;
}

bool gapless(const Operand &o, uint64_t width) {
    return !o.at || o.period || o.row == width * o.pixel;
}

Sheet sheet_of(const Call &c, const Rows &how, uint32_t repeat) {
    bool dense = adjacent(c.dst), follow = gapless(c.dst, c.width), in_place = false;
    uint64_t bytes = c.dst.size;
    size_t longest = SIZE_MAX;
    for (uint32_t i = 0; i < c.sources; ++i) {
        const Operand &s = c.src[i];
        dense &= adjacent(s), follow &= gapless(s, c.width);
        if (!s.period)
            bytes += s.size;
        else if (!how.repeats)
            longest = std::min<size_t>(longest, s.length);
        in_place |= s.at == c.dst.at;
    }
    follow &= gapless(c.mask, c.width / repeat);
    Sheet s{c, how, c.height, c.width, repeat, longest, dense && !c.mask.at, false};
    if (follow) s.width *= s.rows, s.rows = 1;
    s.streaming = s.direct && !how.convert && !in_place && c.dst.size &&
                  s.width * s.rows * bytes >= streaming_bytes(how.set);
    return s;
}

const char *source_at(const Operand &o, const char *row, size_t done) {
    return row + (o.period ? done % o.period : done) * o.pixel;
}

Run run_at(const Sheet &s, const Cursor &at, size_t done, size_t n) {
    Run run;
    run.dst = at.dst + done * s.c.dst.size;
    for (uint32_t i = 0; i < s.c.sources; ++i) run.src[i] = source_at(s.c.src[i], at.src[i], done);
    run.n = n, run.params = s.how.params, run.writing = Writing::cached;
    return run;
}

// A row of adjacent elements; where that pays, its whole lines are written past the cache.
void dense_row(const Sheet &s, const Cursor &at) {
    size_t head = 0, body = 0;
    if (s.streaming) {
        size_t size = s.c.dst.size, past = reinterpret_cast<uintptr_t>(at.dst) & (line - 1);
        // Misaligned elements straddle every line's end: such a row is written as usual.
        head = past ? (line - past) / size : 0;
        if (past % size != 0 || head > s.width) head = s.width;
        body = (s.width - head) / (line / size) * (line / size);
    }
    for (size_t done = 0; done < s.width;) {
        bool stream = done >= head && done < head + body;
        size_t end = done < head ? head : stream ? head + body : s.width;
        Run run = run_at(s, at, done, std::min(end - done, s.longest));
        if (stream) run.writing = Writing::streamed;
        s.how.loop(run);
        done += run.n;
    }
}

// The mask bytes of n elements from element `done` on, one each.
const char *mask_bytes(const Sheet &s, const char *row, size_t done, size_t n, char *buffer) {
    const Operand &m = s.c.mask;
    if (s.repeat == 1 && m.pixel == 1) return row + done;
    uint32_t phase = static_cast<uint32_t>(done % s.repeat);
    widen_stages_of(s.how.set)[0](buffer, row + done / s.repeat * m.pixel, n, m.pixel, s.repeat,
                                  phase);
    return buffer;
}

// Stores a run of results that lies in a buffer.
void deliver(const Sheet &s, const Cursor &at, size_t done, size_t n, Buffers &b) {
    const Operand &d = s.c.dst;
    const Stage *stage = stages_of(s.how.set) + size_index(d.size);
    char *to = at.dst + done * d.pixel;
    if (!at.mask) return stage[stage_spread * stage_sizes](to, b.dst, nullptr, n, d.pixel);
    const char *mask = mask_bytes(s, at.mask, done, n, b.mask);
    StageKind kind = adjacent(d) ? stage_blend : stage_spread_masked;
    stage[kind * stage_sizes](to, b.dst, mask, n, d.pixel);
}

// A row that goes through buffers: packed, worked on, converted, and stored where it may be.
void staged_row(const Sheet &s, const Cursor &at) {
    Buffers b;
    const Call &c = s.c;
    bool whole = adjacent(c.dst) && !at.mask;
    size_t most = std::min<size_t>(s.longest, s.direct ? middle_length : run_length);
    for (size_t done = 0; done < s.width; done += most) {
        size_t n = std::min(s.width - done, most);
        Run run = run_at(s, at, done, n);
        for (uint32_t i = 0; i < c.sources; ++i) {
            const Operand &o = c.src[i];
            if (adjacent(o)) continue;
            size_t some = o.period && s.how.repeats ? std::min<size_t>(n, pattern_length) : n;
            stages_of(s.how.set)[stage_pack * stage_sizes + size_index(o.size)](
                b.src[i], static_cast<const char *>(run.src[i]), nullptr, some, o.pixel);
            run.src[i] = b.src[i];
        }
        char *to = whole ? at.dst + done * c.dst.size : b.dst;
        run.dst = s.how.convert ? s.how.middle : to;
        s.how.loop(run);
        if (s.how.convert) s.how.convert({to, {s.how.middle}, n, nullptr, Writing::cached});
        if (!whole) deliver(s, at, done, n, b);
    }
}

Cursor cursor_of(const Call &c) {
    Cursor at{c.dst.at, {}, c.mask.at};
    for (uint32_t i = 0; i < c.sources; ++i) at.src[i] = c.src[i].at;
    return at;
}

// Rows of adjacent elements, as they are: a call of the loop each.
void plain_row(const Sheet &s, const Cursor &at) {
    const char *const(&src)[most_sources] = at.src;
    s.how.loop({at.dst, {src[0], src[1], src[2], src[3]}, s.width, s.how.params, Writing::cached});
}

void work(const Sheet &s) {
    Cursor at = cursor_of(s.c);
    bool plain = !s.streaming && s.longest == SIZE_MAX;
    auto row = !s.direct || s.how.convert ? staged_row : plain ? plain_row : dense_row;
    for (size_t y = 0; y < s.rows; ++y) {
        row(s, at);
        at.dst += s.c.dst.row;
        for (uint32_t i = 0; i < s.c.sources; ++i) at.src[i] += s.c.src[i].row;
        if (at.mask) at.mask += s.c.mask.row;
    }
#if defined(__SSE2__)
    if (s.streaming) _mm_sfence();
#endif
}

void advance(Call &c, uint64_t Operand::*step) {
    c.dst.at += c.dst.*step;
    for (uint32_t i = 0; i < c.sources; ++i) c.src[i].at += c.src[i].*step;
    if (c.mask.at) c.mask.at += c.mask.*step;
}

} // namespace

// Half of 32 MiB of last-level cache, up to where writing through it is the faster way; but where lines that
// are written go through the second level and a mesh, that ends at 8 MiB. Below that, what reads the
// result next is better off with the cache.
uint64_t streaming_bytes([[maybe_unused]] Set set) {
#if defined(__x86_64__)
    if (set == Set::avx512 && __builtin_cpu_is("intel")) return uint64_t{8} << 20;
#endif
    return uint64_t{16} << 20;
}

void rows(Call &c, const Rows &how) {
    if (c.height == 0 || c.width == 0) return;
    uint32_t repeat = fold_channels(c);
    for (uint32_t plane = 0; plane < c.planes; ++plane) {
        Call copy;
        Call &pass = c.planes > 1 ? copy = c : c;
        for (uint32_t channel = 0; channel < c.channels; ++channel) {
            work(sheet_of(pass, how, repeat));
            advance(pass, &Operand::channel);
        }
        advance(c, &Operand::plane);
    }
}

} // namespace kipx
