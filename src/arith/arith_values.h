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

struct op_add {
    static constexpr Kind kind = Kind::sum;
    static constexpr bool wraps = true;
    template<class W> static W of(W a, W b) { return a + b; }
};
struct op_sub : op_add {
    template<class W> static W of(W a, W b) { return a - b; }
};
struct op_rsub : op_add {
    template<class W> static W of(W a, W b) { return b - a; }
};
struct op_addq : op_add {
    static constexpr bool wraps = false;
};
struct op_subq : op_sub {
    static constexpr bool wraps = false;
};
struct op_rsubq : op_rsub {
    static constexpr bool wraps = false;
};
struct op_mul {
    static constexpr Kind kind = Kind::product;
    static constexpr bool wraps = false;
    template<class W> static W of(W a, W b) { return a * b; }
};
struct op_div {
    static constexpr Kind kind = Kind::quotient;
    static constexpr bool reversed = false;
};
struct op_rdiv : op_div {
    static constexpr bool reversed = true;
};
struct op_divr : op_div {
    static constexpr Kind kind = Kind::rounded;
};
struct op_rdivr : op_divr {
    static constexpr bool reversed = true;
};

// The type of a sum or product: exact for integers; for floating sources binary64 where s32 takes
// part on either side, else binary32.
template<class D, class A, class B> constexpr auto wide_of() {
    constexpr bool s32_source = same<A, s32> || same<B, s32>;
    if constexpr (floating<A> || floating<B>) {
        if constexpr (same<D, f32> && !s32_source)
            return f32{};
        else
            return f64{};
    } else if constexpr (s32_source) {
        return s64{};
    } else {
        return s32{};
    }
}
template<class D, class A, class B> using Wide = decltype(wide_of<D, A, B>());

// One NaN for all: which operand's NaN survives, and its sign, differ between processors.
inline f32 one_nan(f32 x) { return x == x ? x : __builtin_nanf(""); }

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
template<class Op, class D, class A, class B> struct Down {
    using W = Wide<D, A, B>;
    static constexpr bool wide_product = Op::kind == Kind::product && sizeof(A) > 1 &&
                                         sizeof(B) > 1;
    static constexpr bool in_integers = same<W, s32> && !floating<D> && !wide_product;

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
