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

// n vectors of a result row; taps: fixed where it is not 0.
template<class Op, size_t n, size_t taps>
[[gnu::always_inline]] inline void down_at(const MembersDown &d, size_t x, Bits (&v)[n]) {
    const size_t count = taps ? taps : d.taps;
    for (size_t k = 0; k < n; ++k) v[k] = load_bits(d.from[0] + x + k * vector_bytes);
#pragma GCC unroll 16
    for (size_t t = 1; t < count; ++t) {
        const char *from = d.from[t] + x;
        for (size_t k = 0; k < n; ++k) v[k] = Op::of(v[k], load_bits(from + k * vector_bytes));
    }
}

template<class Op, size_t taps> void down_with(const MembersDown &d) {
    constexpr size_t n = 4, width = n * vector_bytes;
    size_t x = 0;
    for (; x + width <= d.bytes; x += width) {
        Bits v[n];
        down_at<Op, n, taps>(d, x, v);
        for (size_t k = 0; k < n; ++k) store_bits(d.out + x + k * vector_bytes, v[k]);
    }
    for (; x < d.bytes; x += vector_bytes) {
        Bits v[1];
        down_at<Op, 1, taps>(d, x, v);
        if (x + vector_bytes <= d.bytes)
            store_bits(d.out + x, v[0]);
        else
            store_first(d.out + x, v[0], d.bytes - x);
    }
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
    KIPX_MEMBERS(s32) KIPX_MEMBERS(f32)
#undef KIPX_MEMBERS
        return set;
}

} // namespace

extern const MembersSet members_sets[1] = {make_set()};

} // namespace kipx::KIPX_SET
