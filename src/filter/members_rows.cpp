// filter/members_rows.cpp - the row loops of morphology over chosen members, compiled once per
// instruction set. Loops but `down` work on whole vectors: their rows have room for one more.
#include "filter/members_rows.h"
#include "core/element.h"
#include "filter/course.h"

namespace kipx::KIPX_SET {
namespace {

template<class Op> void settle(char *row, size_t bytes) {
    if constexpr (floating<typename Op::Element>)
        for (size_t x = 0; x < bytes; x += vector_bytes)
            store_bits(row + x, Op::of(all(Op::neutral), load_bits(row + x)));
}

template<class Op> void unite(char *out, const char *row, size_t shift, size_t bytes) {
    for (size_t x = 0; x < bytes; x += vector_bytes)
        store_bits(out + x, Op::of(load_bits(row + x), load_bits(row + x + shift)));
}

// n vectors of a result row. fresh: of the source's rows, which are to be fetched before they are
// needed, as what is written is.
template<class Op, size_t n, bool fresh>
[[gnu::always_inline]] inline void whole_at(const char *const *from, size_t count, ptrdiff_t x,
                                            char *out, ptrdiff_t ahead, ptrdiff_t below) {
    Bits v[n];
    for (size_t k = 0; k < n; ++k) {
        v[k] = load_bits(from[0] + x + k * vector_bytes);
        if constexpr (fresh && floating<typename Op::Element>)
            v[k] = Op::of(all(Op::neutral), v[k]);
    }
#pragma GCC unroll 16
    for (size_t t = 1; t < count; ++t) {
        const char *const row = from[t] + x;
        for (size_t k = 0; k < n; ++k) v[k] = Op::of(v[k], load_bits(row + k * vector_bytes));
    }
    if constexpr (fresh) prefetch_lines<n * vector_bytes>(from[count - 1] + x + ahead);
    for (size_t k = 0; k < n; ++k) {
        char *const to = out + x + k * vector_bytes;
        if constexpr (fresh) __builtin_prefetch(to + below, 1);
        store_bits(to, v[k]);
    }
}

// A loop of its own, so that what it needs stays in registers. taps: 0 for as many as count says.
template<class Op, size_t taps, bool fresh>
[[gnu::noinline]] void whole_along(const char *const *from, size_t count, ptrdiff_t x,
                                   ptrdiff_t last, char *out, ptrdiff_t ahead, ptrdiff_t below) {
    constexpr ptrdiff_t step = vector_bytes, wide = 4 * step;
    const char *own[taps ? taps : 1];
    if (taps) memcpy(own, from, sizeof own), from = own, count = taps;
    for (; x + wide <= last; x += wide) whole_at<Op, 4, fresh>(from, count, x, out, ahead, below);
    for (; x < last; x += step) whole_at<Op, 1, fresh>(from, count, x, out, ahead, below);
}

// Where taps look; of many it is found out again for each vector.
template<size_t n> struct Taps : Places<n> {
    explicit Taps(const MembersDown &d) : Places<n>(d.at, d.there) {}
    Part part(const typename Places<n>::Parts &parts, size_t tap) const { return parts.of[tap]; }
};
template<> struct Taps<0> {
    const ptrdiff_t *at;
    Span there;
    struct Parts {
        ptrdiff_t x;
    };
    explicit Taps(const MembersDown &d) : at(d.at), there(d.there) {}
    Parts parts(ptrdiff_t x) const { return {x}; }
    Part part(const Parts &parts, size_t tap) const {
        const ptrdiff_t to = parts.x + at[tap];
        return Part::of(there.begin - to, there.end - to);
    }
};

template<class Op, size_t taps, bool fresh> void down_taps(const MembersDown &d) {
    constexpr ptrdiff_t step = vector_bytes, rows_ahead = 4;
    const Taps<taps> places(d);
    ptrdiff_t low = d.at[0], high = d.at[0];
    for (size_t t = 1; t < d.taps; ++t) {
        low = d.at[t] < low ? d.at[t] : low;
        high = d.at[t] > high ? d.at[t] : high;
    }
    const Course course(places, low, high, 0, d.bytes);
    char *out = d.out;
    for (size_t y = 0; y < d.results; ++y, out += d.step) {
        for (size_t t = 0; t < d.taps; ++t) d.from[t] = d.rows[y + d.row[t]] + d.at[t];
        size_t number = 0;
        for (ptrdiff_t x = 0;; x += step) {
            if (x == course.first && x < course.last) {
                whole_along<Op, taps, fresh>(d.from, d.taps, x, course.last, out, d.ahead,
                                             rows_ahead * d.step);
                x = course.last;
            }
            if (x >= course.end) break;
            const auto parts = course.parts(places, number++, x);
            Bits v = all(Op::neutral);
            for (size_t t = 0; t < d.taps; ++t)
                v = Op::of(v, load_part(d.from[t] + x, places.part(parts, t), all(Op::neutral)));
            course.put(out, x, v);
        }
    }
}

template<class Op, size_t taps> void down_with(const MembersDown &d) {
    if (d.fresh)
        down_taps<Op, taps, true>(d);
    else
        down_taps<Op, taps, false>(d);
}

// No member at all: the neutral element everywhere.
template<class Op> void nothing(const MembersDown &d) {
    typename Op::Element neutral = Op::neutral;
    for (size_t y = 0; y < d.results; ++y)
        for (size_t i = 0; i < d.bytes / sizeof neutral; ++i)
            store(d.out + static_cast<ptrdiff_t>(y) * d.step, i, neutral);
}

template<class Op> void down(const MembersDown &d) {
    switch (d.taps) {
    case 0:
        return nothing<Op>(d);
    case 2:
        return down_with<Op, 2>(d);
    case 3:
        return down_with<Op, 3>(d);
    case 4:
        return down_with<Op, 4>(d);
    case 5:
        return down_with<Op, 5>(d);
    default:
        return down_with<Op, 0>(d);
    }
}

template<class Op> constexpr typename Op::Element neutral = Op::neutral;
template<class Op>
constexpr MembersLoops loops_of = {settle<Op>, unite<Op>, down<Op>, &neutral<Op>};

constexpr MembersSet make_set() {
    MembersSet set{};
#define KIPX_MEMBERS(T)                                                                            \
    set.loops[KIPX_CODE_##T][0] = loops_of<Smaller<T>>;                                            \
    set.loops[KIPX_CODE_##T][1] = loops_of<Larger<T>>;
    KIPX_MEMBERS(u8)
    KIPX_MEMBERS(s16)
    KIPX_MEMBERS(s32)
    KIPX_MEMBERS(f32)
#undef KIPX_MEMBERS
    return set;
}

} // namespace

extern const MembersSet members_sets[1] = {make_set()};

} // namespace kipx::KIPX_SET
