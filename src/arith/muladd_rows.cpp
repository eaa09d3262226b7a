// arith/muladd_rows.cpp - the row loops of multiply-accumulate, compiled once per instruction set.
//
// Promises each set gives the same bits: sums and products are exact, or rounded once, without the
//          processor's fused operations, which not every set has.
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
        return f64{};
    else if constexpr (magnitude<A>() * magnitude<B>() + magnitude<C>() <= INT32_MAX)
        return s32{};
    else
        return s64{};
}

// a + b so rounded that rounding the result to binary32 is as good as rounding the sum itself: where
// binary64 does not hold it, to that neighbour whose last bit is 1.
inline f64 sum_to_odd(f64 a, f64 b) {
    const f64 s = a + b, t = s - a;
    const f64 lost = (a - (s - t)) + (b - t); // NaN beside infinities
    const u64 bits = __builtin_bit_cast(u64, s);
    const bool moves = (lost > 0 || lost < 0) && (bits & 1) == 0;
    const u64 outwards = (lost > 0) == (s > 0) ? 1 : ~u64{0};
    return __builtin_bit_cast(f64, moves ? bits + outwards : bits);
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
    if constexpr (floating<D>) {
        return one_nan(static_cast<f32>(r) * scale.factor);
    } else if constexpr (mode == ScaleMode::down) {
        return round_saturate<D>(static_cast<f32>(r) * scale.factor);
    } else if constexpr (floating<W>) {
        return round_saturate<D>(r * static_cast<f64>(scale.factor));
    } else if constexpr (mode == ScaleMode::up) {
        return saturate<D>(static_cast<s64>(static_cast<u64>(s64{r}) << scale.shift));
    } else {
        return saturate<D>(r);
    }
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
    KIPX_INDEPENDENT
    for (size_t i = 0; i < run.n; ++i) {
        const W a = static_cast<W>(load<A>(run.src[0], i));
        const W p = turned(a * static_cast<W>(load<B>(run.src[1], i)), of_product);
        const W c = turned(static_cast<W>(load<C>(run.src[2], i)), of_c);
        if constexpr (floating<D>)
            store(run.dst, i, stored<D, W, mode>(sum_to_odd(p, c), scale));
        else
            store(run.dst, i, stored<D, W, mode>(p + c, scale));
    }
}

template<class D, class A, class B, class C> void row(Run run) {
    if constexpr (floating<D>) return scaled<D, A, B, C, ScaleMode::none>(run);
    switch (static_cast<const MulAddWay *>(run.params)->scale.mode) {
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
