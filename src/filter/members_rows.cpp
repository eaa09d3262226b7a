// filter/members_rows.cpp - the row loops of morphology over chosen members, compiled once per
// instruction set. Loops but `down` work on whole vectors: their rows have room for one more.
#include "filter/members_rows.h"
#include "core/element.h"
#include "filter/vectors.h"

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

// n vectors of a result row. direct: of the source's rows; their elements may be NaN, and they are to be
// fetched before they are needed, as what is written is.
template<class Op, size_t n, bool direct>
[[gnu::always_inline]] inline void whole_at(const char *const *from, size_t count, ptrdiff_t x,
                                            char *out, ptrdiff_t ahead, ptrdiff_t below) {
    Bits v[n];
    for (size_t k = 0; k < n; ++k) {
        v[k] = load_bits(from[0] + x + k * vector_bytes);
        if constexpr (direct && floating<typename Op::Element>)
            v[k] = Op::of(all(Op::neutral), v[k]);
    }
#pragma GCC unroll 16
    for (size_t t = 1; t < count; ++t) {
        const char *const row = from[t] + x;
        for (size_t k = 0; k < n; ++k) v[k] = Op::of(v[k], load_bits(row + k * vector_bytes));
    }
    if constexpr (direct) prefetch_lines<n * vector_bytes>(from[count - 1] + x + ahead);
    for (size_t k = 0; k < n; ++k) {
        char *const to = out + x + k * vector_bytes;
        if constexpr (direct) __builtin_prefetch(to + below, 1);
        store_bits(to, v[k]);
    }
}

// A vector of which not everything is there, or not everything is a result.
template<class Op> void part_at(const MembersDown &d, ptrdiff_t x) {
    const Bits neutral = all(Op::neutral);
    Bits v = neutral;
    for (size_t t = 0; t < d.taps; ++t) {
        const ptrdiff_t to = x + (d.moved ? d.moved[t] : 0);
        const Part part = Part::of(d.there.begin - to, d.there.end - to);
        v = Op::of(v, load_part(d.from[t] + x, part, neutral));
    }
    const size_t n = d.bytes - static_cast<size_t>(x);
    if (n >= vector_bytes)
        store_bits(d.out + x, v);
    else
        store_first(d.out + x, v, n);
}

template<class Op, size_t taps, bool direct> void down_taps(const MembersDown &d) {
    constexpr ptrdiff_t step = vector_bytes, wide = 4 * step;
    const size_t count = taps ? taps : d.taps;
    const char *own[taps ? taps : 1];
    if (taps) memcpy(own, d.from, sizeof own);
    const char *const *const rows = taps ? own : d.from;
    const ptrdiff_t ahead = d.ahead, below = d.below;
    char *const out = d.out;
    const auto end = static_cast<ptrdiff_t>(d.bytes);
    ptrdiff_t x = 0, first = d.there.begin, last = d.there.end;
    for (size_t t = 0; direct && t < d.taps; ++t) {
        const ptrdiff_t from = d.there.begin - d.moved[t], to = d.there.end - d.moved[t];
        first = first > from ? first : from, last = last < to ? last : to;
    }
    last = last < end ? last : end;
    for (; x < first && x < end; x += step) part_at<Op>(d, x);
    for (; x + wide <= last; x += wide) whole_at<Op, 4, direct>(rows, count, x, out, ahead, below);
    for (; x + step <= last; x += step) whole_at<Op, 1, direct>(rows, count, x, out, ahead, below);
    for (; x < end; x += step) part_at<Op>(d, x);
}

template<class Op, size_t taps> void down_with(const MembersDown &d) {
    if (d.moved)
        down_taps<Op, taps, true>(d);
    else
        down_taps<Op, taps, false>(d);
}

// No member at all: the neutral element everywhere.
template<class Op> void nothing(const MembersDown &d) {
    typename Op::Element neutral = Op::neutral;
    for (size_t i = 0; i < d.bytes / sizeof neutral; ++i) store(d.out, i, neutral);
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
