// arith/unary_values.h - exponential, logarithm and sigmoid of single numbers. For row files only.
//
// Gives    exponential, logarithm (f32, f64), sigmoid, precise_sigmoid (f64).
// Promises additions, multiplications, divisions and moves of bits only, without a branch, so that loops
//          over them become vectors and every form gives the same bits. Errors are below one unit in the
//          last place.
//
// Inline for good: a loop that calls one of them does not become vectors.
//
// Coefficients are those of Chebyshev fits of the functions named beside them.
#pragma once

#include "core/lanes.h"

namespace kipx::KIPX_SET {

template<class T> struct Real;

template<> struct Real<f32> {
    using Bits = u32;
    static constexpr int digits = 23;
    static constexpr f32 round = 0x1.8p23f; // added and taken away, rounds to an integer
    static constexpr f32 least = -104, most = 89, normal = 0x1p-126f;
    static constexpr f32 log2_e = 0x1.715476p0f;
    static constexpr f32 ln2_high = 0x1.62e4p-1f, ln2_low = 0x1.7f7d1cp-20f; // the first of 15 bits
    // (e^r - 1 - r) / r^2
    [[gnu::always_inline]] static f32 exp_tail(f32 r) {
        f32 q = 0x1.a12a42p-13f;
        q = q * r + 0x1.6d4920p-10f;
        q = q * r + 0x1.1110dfp-7f;
        q = q * r + 0x1.5554e4p-5f;
        q = q * r + 0x1.555556p-3f;
        return q * r + 0.5f;
    }
    // ln (1 + f) - k ln 2, both numbers small; from (ln (1 + f) - f + f^2 / 2) / f^3
    [[gnu::always_inline]] static f32 log_of(f32 f, f32 k) {
        const f32 z = f * f;
        f32 p = 0x1.1d8ebep-4f;
        p = p * f - 0x1.d635e4p-4f;
        p = p * f + 0x1.dea28cp-4f;
        p = p * f - 0x1.fcf4c2p-4f;
        p = p * f + 0x1.23d218p-3f;
        p = p * f - 0x1.555b4ap-3f;
        p = p * f + 0x1.999d5ap-3f;
        p = p * f - 0x1.fffffcp-3f;
        p = p * f + 0x1.555554p-2f;
        const f32 rest = k * ln2_low + z * f * p;
        return k * ln2_high + (f + (rest - 0.5f * z));
    }
};

template<> struct Real<f64> {
    using Bits = u64;
    static constexpr int digits = 52;
    static constexpr f64 round = 0x1.8p52;
    static constexpr f64 least = -746, most = 710, normal = 0x1p-1022;
    static constexpr f64 log2_e = 0x1.71547652b82fep0;
    static constexpr f64 ln2_high = 0x1.62e42feep-1, ln2_low = 0x1.a39ef35793c76p-33; // of 32 bits
    [[gnu::always_inline]] static f64 exp_tail(f64 r) {
        f64 q = 0x1.1f7340dbc337ep-29;
        q = q * r + 0x1.af4e554377204p-26;
        q = q * r + 0x1.27e4db46cddd1p-22;
        q = q * r + 0x1.71de01fdbf9cap-19;
        q = q * r + 0x1.a01a01a6e1e2ap-16;
        q = q * r + 0x1.a01a01abf85abp-13;
        q = q * r + 0x1.6c16c16c162c3p-10;
        q = q * r + 0x1.11111111100bep-7;
        q = q * r + 0x1.5555555555556p-5;
        q = q * r + 0x1.5555555555557p-3;
        return q * r + 0.5;
    }
    // By s = f / (2 + f), of which ln (1 + f) = 2 s + s^3 p (s^2).
    [[gnu::always_inline]] static f64 log_of(f64 f, f64 k) {
        const f64 s = f / (2 + f), z = s * s, half = 0.5 * f * f;
        f64 p = 0x1.2b6688a387e03p-3;
        p = p * z + 0x1.39fd392179a95p-3;
        p = p * z + 0x1.7462bd8f7796ep-3;
        p = p * z + 0x1.c71c62c639fdep-3;
        p = p * z + 0x1.2492492e09d4dp-2;
        p = p * z + 0x1.9999999995204p-2;
        p = p * z + 0x1.5555555555558p-1;
        return k * ln2_high + (f - (half - (s * (half + z * p) + k * ln2_low)));
    }
};

template<class T> typename Real<T>::Bits bits_of(T x) {
    return __builtin_bit_cast(typename Real<T>::Bits, x);
}
template<class T> T of_bits(typename Real<T>::Bits bits) { return __builtin_bit_cast(T, bits); }
template<class T> [[gnu::always_inline]] inline T whole(T x) {
    return (x + Real<T>::round) - Real<T>::round;
}

// 2^k for a whole number in the range of exponents.
template<class T> [[gnu::always_inline]] inline T power_of_two(T k) {
    return of_bits<T>((bits_of(k + Real<T>::round) << Real<T>::digits) + bits_of(T{1}));
}

// A power of e as (1 + y) times 2^k.
template<class T> struct Exponential {
    T y, k;
    // 2^k in two steps, since it may lie below all normal numbers or above all numbers.
    [[gnu::always_inline]] inline T scaled(T x) const {
        const T half = whole(k * T{0.5});
        return x * power_of_two(half) * power_of_two(k - half);
    }
};

// rest: a part of x that is below its last digit, or no such part.
template<class T, class Rest>
[[gnu::always_inline]] inline Exponential<T> exponential_parts(T x, Rest rest) {
    using R = Real<T>;
    const T clipped = x < R::least ? R::least : x > R::most ? R::most : x; // NaN passes
    const T k = whole(clipped * R::log2_e);
    const T high = clipped - k * R::ln2_high, low = k * R::ln2_low;
    const T r = high - low;
    T more = r * r * R::exp_tail(r) + ((high - r) - low);
    if constexpr (same<T, Rest>) more += rest * (1 + (r + more));
    return {r + more, k};
}

template<class T> [[gnu::always_inline]] inline T exponential(T x) {
    const auto e = exponential_parts(x, nullptr);
    return e.scaled(1 + e.y);
}

template<class T> [[gnu::always_inline]] inline T logarithm(T x) {
    using R = Real<T>;
    using Bits = typename R::Bits;
    constexpr T up = T{static_cast<T>(u64{1} << R::digits)};
    constexpr Bits root_half =
        sizeof(T) == 4 ? Bits{0x3f3504f3} : static_cast<Bits>(0x3fe6a09e667f3bcd);
    constexpr Bits mantissa = (Bits{1} << R::digits) - 1;
    const bool small = x < R::normal;
    const Bits shifted = bits_of(small ? x * up : x) + (bits_of(T{1}) - root_half);
    // The exponent as a number, by way of one that has it in its last bits.
    const T k = of_bits<T>(shifted >> R::digits | bits_of(up)) - up -
                static_cast<T>((bits_of(T{1}) >> R::digits) + (small ? R::digits : 0));
    const T f = of_bits<T>((shifted & mantissa) + root_half) - 1;
    T y = R::log_of(f, k);
    constexpr T infinity = static_cast<T>(__builtin_inf());
    y = x < infinity ? y : x; // infinity and NaN are their own
    y = x < 0 ? static_cast<T>(__builtin_nan("")) : y;
    return x == 0 ? -infinity : y;
}

// 1 / (1 + e^-t), by e^-|t|, which does not overflow.
[[gnu::always_inline]] inline f64 sigmoid(f64 x, f64 alpha) {
    const f64 t = x * alpha, e = exponential(t < 0 ? t : -t);
    return (t < 0 ? e : 1) / (1 + e);
}

// ---- numbers of two parts ----

struct Pair {
    f64 high, low;
};
// a + b exactly, of numbers of which the first is not the smaller one.
[[gnu::always_inline]] inline Pair sum(f64 a, f64 b) {
    const f64 high = a + b;
    return {high, (a - high) + b};
}
// a * b exactly, unless something overflows or underflows.
[[gnu::always_inline]] inline Pair product(f64 a, f64 b) {
    const auto top = [](f64 x) {
        const f64 c = x * 0x8000001p0;
        return c - (c - x);
    };
    const f64 high = a * b, at = top(a), bt = top(b), ab = a - at, bb = b - bt;
    return {high, ab * bb - (((high - at * bt) - ab * bt) - at * bb)};
}

// The same to the last bit but one: the product with alpha, e^-|t| and the quotient carry what rounding
// leaves off.
[[gnu::always_inline]] inline f64 precise_sigmoid(f64 x, f64 alpha) {
    // A product that counts is small: a large factor lends its size to the other one.
    const bool large = __builtin_fabs(x) > 0x1p900, steep = __builtin_fabs(alpha) > 0x1p900;
    const f64 lend = large == steep ? 1 : large ? 0x1p-200 : 0x1p200;
    const Pair t = product(x * lend, alpha * (1 / lend));
    const bool counts = t.high > -1000 && t.high < 1000;
    const bool below = t.high < 0;
    const f64 low = counts ? t.low : 0;
    const auto parts = exponential_parts(below ? t.high : -t.high, below ? low : -low);
    const Pair one = sum(1, parts.y);
    const Pair e = {parts.scaled(one.high), parts.scaled(one.low)};
    const Pair under = sum(1, e.high);
    const f64 over = below ? e.high : 1, over_low = below ? e.low : 0;
    const f64 q = over / under.high;
    const Pair back = product(q, under.high);
    const f64 left = ((over - back.high) - back.low) + (over_low - q * (under.low + e.low));
    return q + left / under.high;
}

} // namespace kipx::KIPX_SET
