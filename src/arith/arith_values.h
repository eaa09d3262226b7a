// arith/arith_values.h - the binary operations on single numbers. For row files only.
//
// Gives    the operations as types, the wide type that holds a triple's exact result, and the rules
//          that bring a wide result into the destination: unscaled, scaled down, scaled up.
// Promises every expression is exact or rounds once, where kipx/arith.h says so.
#pragma once

#include "arith/arith_rows.h"
#include "core/lanes.h"

namespace kipx::KIPX_SET {

enum class Kind { sum, product, quotient, rounded };

// What a sum-like operation is exactly, for ways that compute something else with the same result.
// A functor says so itself; an operation that says nothing goes the general way.
enum class Form { other, sum, difference, reversed_difference };

struct SumLike {
    static constexpr Kind kind = Kind::sum;
    static constexpr Form form = Form::other;
    static constexpr bool wraps = true;
};
struct Add : SumLike {
    static constexpr Form form = Form::sum;
    template<class W> static constexpr W of(W a, W b) { return a + b; }
};
struct Sub : SumLike {
    static constexpr Form form = Form::difference;
    template<class W> static constexpr W of(W a, W b) { return a - b; }
};
struct RSub : SumLike {
    static constexpr Form form = Form::reversed_difference;
    template<class W> static constexpr W of(W a, W b) { return b - a; }
};
struct Addq : Add {
    static constexpr bool wraps = false;
};
struct Subq : Sub {
    static constexpr bool wraps = false;
};
struct RSubq : RSub {
    static constexpr bool wraps = false;
};
struct Mul {
    static constexpr Kind kind = Kind::product;
    static constexpr Form form = Form::other;
    static constexpr bool wraps = false;
    template<class W> static constexpr W of(W a, W b) { return a * b; }
};
struct Div {
    static constexpr Kind kind = Kind::quotient;
    static constexpr bool reversed = false;
};
struct RDiv : Div {
    static constexpr bool reversed = true;
};
struct Divr : Div {
    static constexpr Kind kind = Kind::rounded;
};
struct RDivr : Divr {
    static constexpr bool reversed = true;
};

// Whether the functor does what its form says; a functor that took its form over from another one by
// mistake stops the build.
template<class Op> constexpr bool form_is_true() {
    if constexpr (Op::kind == Kind::sum) {
        constexpr s32 a = 1000, b = 244;
        switch (Op::form) {
        case Form::sum:
            return Op::of(a, b) == a + b && Op::of(b, a) == a + b;
        case Form::difference:
            return Op::of(a, b) == a - b && Op::of(b, a) == b - a;
        case Form::reversed_difference:
            return Op::of(a, b) == b - a && Op::of(b, a) == a - b;
        default:
            return true;
        }
    }
    return true;
}

// The largest magnitude of an integer sum or product.
template<class T>
inline constexpr __int128 magnitude =
    Range<T>::high > -Range<T>::low ? Range<T>::high : -Range<T>::low;
template<class Op, class A, class B> constexpr __int128 bound() {
    if constexpr (Op::kind == Kind::product)
        return magnitude<A> * magnitude<B>;
    else
        return magnitude<A> + magnitude<B>;
}

// The type of a sum or product: exact for integers; for floating sources binary64 where s32 takes
// part on either side, else binary32.
template<class Op, class D, class A, class B> constexpr auto wide_of() {
    static_assert(form_is_true<Op>(), "the operation is not of the form that it claims");
    if constexpr (floating<A> || floating<B>) {
        if constexpr (same<D, f32> && !same<A, s32> && !same<B, s32>)
            return f32{};
        else
            return f64{};
    } else {
        constexpr __int128 most = bound<Op, A, B>();
        static_assert(most <= INT64_MAX, "no type here holds the exact result");
        if constexpr (most <= INT32_MAX)
            return s32{};
        else
            return s64{};
    }
}
template<class Op, class D, class A, class B> using Wide = decltype(wide_of<Op, D, A, B>());

template<class Op, class D, class W> inline D unscaled(W r) {
    if constexpr (floating<D>)
        return one_nan(static_cast<D>(r));
    else if constexpr (floating<W>)
        return round_saturate<D>(r);
    else if constexpr (Op::wraps)
        return static_cast<D>(r);
    else
        return saturate<D>(r);
}

// r as binary32 times 2^-k, to nearest even. Where |r| < 2^24 binary32 holds r, and the same is
// done in integers: half a unit less one is added, and one more where the quotient's last bit is
// odd.
template<class Op, class D, class A, class B> constexpr bool held_by_binary32() {
    if constexpr (floating<A> || floating<B>)
        return false;
    else
        return bound<Op, A, B>() < 1 << 24;
}
template<class Op, class D, class A, class B> struct Down {
    using W = Wide<Op, D, A, B>;
    static constexpr bool in_integers = !floating<D> && held_by_binary32<Op, D, A, B>();

    f32 factor;
    u32 shift;
    s32 bias, odd;

    explicit Down(const ArithScale &s)
        : factor(s.factor), shift(s.shift), bias(s.shift ? (1 << (s.shift - 1)) - 1 : 0),
          odd(s.shift ? 1 : 0) {}

    D operator()(W r) const {
        if constexpr (floating<D>)
            return one_nan(static_cast<f32>(r) * factor);
        else if constexpr (in_integers)
            return saturate<D>((r + bias + ((r >> shift) & odd)) >> shift);
        else
            return round_saturate<D>(static_cast<f32>(r) * factor);
    }
};

template<class D, class W> struct Up {
    f32 factor;
    u32 shift;

    explicit Up(const ArithScale &s) : factor(s.factor), shift(s.shift) {}

    D operator()(W r) const {
        if constexpr (floating<D>)
            return one_nan(static_cast<f32>(r) * factor);
        else if constexpr (floating<W>)
            return round_saturate<D>(r * static_cast<f64>(factor));
        else
            return saturate<D>(static_cast<s64>(static_cast<u64>(s64{r}) << shift));
    }
};

// Truncated quotients, y not 0. The floating quotient is off by less than the distance of any
// non-integer quotient from an integer, so that its truncation is the integer quotient.
inline s32 truncated_quotient(u8 x, u8 y) {
    return static_cast<s32>(static_cast<f32>(x) / static_cast<f32>(y));
}
inline s32 truncated_quotient(s16 x, s16 y) {
    return static_cast<s32>(static_cast<f32>(x) / static_cast<f32>(y));
}
inline s32 truncated_quotient(s32 x, s32 y) {
    f64 q = static_cast<f64>(x) / static_cast<f64>(y);
    return static_cast<s32>(q < 2147483647.0 ? q : 2147483647.0); // -2^31 / -1 saturates
}

// The processor's own division, kept out of the optimiser's sight: a zero divisor must reach it.
template<class T>
__attribute__((noinline, no_sanitize("integer-divide-by-zero"))) inline s64 divide_faulting(T x,
                                                                                            T y) {
    s64 dividend = x, divisor = y;
    asm volatile("" : "+r"(divisor));
    return dividend / divisor;
}

} // namespace kipx::KIPX_SET
