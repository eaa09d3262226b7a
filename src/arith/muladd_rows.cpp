// arith/muladd_rows.cpp - the row loops of multiply-accumulate, compiled once per instruction set.
//
// Promises each set gives the same bits: integers are exact; with f32 among the sources a * b + c is
//          rounded once, by the processor's fused operation where the set has one, else by binary64.
#include "arith/muladd_rows.h"
#include "core/lanes.h"

namespace kipx::KIPX_SET {
namespace {

template<class T> constexpr s64 magnitude() {
    return Range<T>::high > -Range<T>::low ? Range<T>::high : -Range<T>::low;
}

// What holds a * b + c exactly, for integers; their bound is below 2^63 for all types here.
template<class A, class B, class C> constexpr auto wide_of() {
    if constexpr (floating<A> || floating<B> || floating<C>)
        return f32{};
    else if constexpr (magnitude<A>() * magnitude<B>() + magnitude<C>() <= INT32_MAX)
        return s32{};
    else
        return s64{};
}

// a + b so rounded that rounding the result to binary32 is as good as rounding the sum itself: where
// binary64 does not hold it, to that neighbour whose last bit is 1.
[[maybe_unused]] inline f64 sum_to_odd(f64 a, f64 b) {
    const f64 s = a + b, t = s - a;
    const f64 lost = (a - (s - t)) + (b - t); // NaN beside infinities
    const u64 bits = __builtin_bit_cast(u64, s);
    const bool moves = (lost > 0 || lost < 0) && (bits & 1) == 0;
    const u64 outwards = (lost > 0) == (s > 0) ? 1 : ~u64{0};
    return __builtin_bit_cast(f64, moves ? bits + outwards : bits);
}

// a * b + c, in f32 rounded once.
template<class W> W accumulated(W a, W b, W c) {
    if constexpr (!floating<W>)
        return a * b + c;
    else
#if defined(__AVX512F__)
        return __builtin_fmaf(a, b, c);
#else
        return static_cast<f32>(sum_to_odd(f64{a} * f64{b}, f64{c}));
#endif
}

// x, or -x where turn is all ones (-1 in reals).
template<class W> W turned(W x, W turn) {
    if constexpr (floating<W>)
        return x * turn;
    else
        return (x ^ turn) - turn;
}

// The result in its type, scaled.
template<class D, class W, ScaleMode mode> D stored(W r, const ArithScale &scale) {
    if constexpr (floating<D>)
        return one_nan(r * scale.factor);
    else if constexpr (floating<W> || mode == ScaleMode::down)
        return round_saturate<D>(static_cast<f32>(r) * scale.factor);
    else if constexpr (mode == ScaleMode::up)
        return saturate<D>(static_cast<s64>(static_cast<u64>(s64{r}) << scale.shift));
    else
        return saturate<D>(r);
}

// dst[i] = element (i). Streamed, four lines at a time are made first and written past the cache.
template<class D, class Element> void each(Run run, Element element) {
    size_t done = 0;
    constexpr size_t block = 256 / sizeof(D);
    for (; run.writing == Writing::streamed && run.n - done >= block; done += block) {
        alignas(64) D out[block];
        KIPX_INDEPENDENT
        for (size_t i = 0; i < block; ++i) out[i] = element(done + i);
        for (size_t i = 0; i < block; i += 64 / sizeof(D))
            stream_line(static_cast<D *>(run.dst) + done + i, out + i);
    }
    KIPX_INDEPENDENT
    for (size_t i = done; i < run.n; ++i) store(run.dst, i, element(i));
}

template<class D, class A, class B, class C, ScaleMode mode> void scaled(Run run) {
    using W = decltype(wide_of<A, B, C>());
    static_assert(!floating<D> || floating<W>);
    const auto &way = *static_cast<const MulAddWay *>(run.params);
    const ArithScale scale = way.scale;
    // One loop for the three operations: some turn the product's sign, some that of c.
    constexpr W as_it_is = floating<W> ? W{1} : W{0}, turn = W{-1};
    const W of_product = way.op == MulAddOp::rsub ? turn : as_it_is;
    const W of_c = way.op == MulAddOp::sub ? turn : as_it_is;
    each<D>(run, [=](size_t i) {
        const W a = turned(static_cast<W>(load<A>(run.src[0], i)), of_product);
        const W b = static_cast<W>(load<B>(run.src[1], i));
        const W c = turned(static_cast<W>(load<C>(run.src[2], i)), of_c);
        return stored<D, W, mode>(accumulated(a, b, c), scale);
    });
}

// Bytes alone, with up to 8 bits rounded off: what is not negative fits 16 bits, and so does what is
// added to round; a negative result is 0 in the end. Shifts by a constant are what stays in 16 bits.
template<MulAddOp op, u32 shift> void bytes(Run run) {
    each<u8>(run, [=](size_t i) {
        const u16 p = static_cast<u16>(load<u8>(run.src[0], i) * load<u8>(run.src[1], i));
        const u16 c = load<u8>(run.src[2], i);
        u16 r;
        if constexpr (op == MulAddOp::add)
            r = static_cast<u16>(p + c);
        else if constexpr (op == MulAddOp::sub)
            r = static_cast<u16>(p > c ? p - c : 0);
        else
            r = static_cast<u16>(c > p ? c - p : 0);
        if constexpr (shift > 0) {
            constexpr u16 below_half = (1u << (shift - 1)) - 1;
            const u16 odd = static_cast<u16>(r >> shift) & 1;
            r = static_cast<u16>(static_cast<u16>(r + below_half + odd) >> shift);
        }
        return static_cast<u8>(r < 255 ? r : 255);
    });
}
constexpr u32 byte_shifts = 9;
#define KIPX_BYTES(op)                                                                             \
    {                                                                                              \
        bytes<op, 0>, bytes<op, 1>, bytes<op, 2>, bytes<op, 3>, bytes<op, 4>, bytes<op, 5>,        \
            bytes<op, 6>, bytes<op, 7>, bytes<op, 8>                                               \
    }
constexpr RowLoop byte_loops[3][byte_shifts] = {
    KIPX_BYTES(MulAddOp::add), KIPX_BYTES(MulAddOp::sub), KIPX_BYTES(MulAddOp::rsub)};

// a * b + c of reals as it is: nothing turned, nothing scaled.
template<class D, class A, class B, class C> void plain_sum(Run run) {
    each<D>(run, [=](size_t i) {
        const auto a = static_cast<f32>(load<A>(run.src[0], i));
        const auto b = static_cast<f32>(load<B>(run.src[1], i));
        return one_nan(accumulated(a, b, static_cast<f32>(load<C>(run.src[2], i))));
    });
}

template<class D, class A, class B, class C> void row(Run run) {
    const auto &way = *static_cast<const MulAddWay *>(run.params);
    const ArithScale &scale = way.scale;
    if constexpr (same<D, u8> && same<B, u8>) {
        const bool none = scale.mode == ScaleMode::none, down = scale.mode == ScaleMode::down;
        if (none || (down && scale.shift < byte_shifts))
            return byte_loops[static_cast<u32>(way.op)][none ? 0 : scale.shift](run);
    }
    if constexpr (floating<D>)
        if (way.op == MulAddOp::add && scale.factor == 1) return plain_sum<D, A, B, C>(run);
    if constexpr (floating<decltype(wide_of<A, B, C>())>) // the factor says it all
        return scaled<D, A, B, C, ScaleMode::none>(run);
    switch (scale.mode) {
    case ScaleMode::none:
        return scaled<D, A, B, C, ScaleMode::none>(run);
    case ScaleMode::down:
        return scaled<D, A, B, C, ScaleMode::down>(run);
    default:
        return scaled<D, A, B, C, ScaleMode::up>(run);
    }
}

} // namespace

#define KIPX_ROW(op, D, A, B, C) row<D, A, B, C>,
extern const RowLoop muladd_rows[muladd_types_count] = {KIPX_MULADD_TYPES(KIPX_ROW, )};

} // namespace kipx::KIPX_SET
