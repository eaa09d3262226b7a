// arith/unary_sigmoids.h - sigmoids 1 / (1 + e^(-alpha x)) of vectors of numbers. For row files only.
//
// Gives    PlainSigmoid: in binary64, for results of fewer bits. SingleSigmoid, DoubleSigmoid: f32 and f64, each
//          computed in its own type; `simple` and `of` as in unary_values.h.
// Promises the two are the number nearest to the true value or its neighbour: -16 alpha x / ln 2, the power of
//          which it is the exponent, the sum with 1 and the quotient carry what rounding leaves off. Parts
//          left off are exact, fused or not, so that every form gives the same bits.
#pragma once

#include "arith/unary_values.h"

namespace kipx::KIPX_SET {

struct PlainSigmoid {
    Vector<f64> alpha;
    explicit PlainSigmoid(f64 of) : alpha(all(of)) {}

    // Beyond 700 nothing changes, nor anything that counts below -700. NaN passes.
    template<class> Vector<f64> of(Vector<f64> x) const {
        Vector<f64> t = x * alpha;
        Vector<u64> odd = {};
        t = t < -700 ? all(-700.0) : t;
        t = t > 700 ? all(700.0) : t;
        return 1 / (1 + Exponential::simple<f64>(-t, odd));
    }
};

// Numbers of two parts.
template<class T> struct Pair { Vector<T> high, low; };
// a + b exactly, of numbers of which the first is not the smaller one.
template<class T> inline Pair<T> ordered_sum(Vector<T> a, Vector<T> b) {
    const Vector<T> high = a + b;
    return {high, (a - high) + b};
}
template<class T> inline Pair<T> any_sum(Vector<T> a, Vector<T> b) {
    const Vector<T> high = a + b, more = high - a;
    return {high, (a - (high - more)) + (b - more)};
}
// a * b exactly, unless something overflows or underflows.
template<class T> inline Pair<T> product(Vector<T> a, Vector<T> b) {
    const Vector<T> high = a * b;
#if defined(__AVX512F__)
    return {high, fused(a, b, -high)};
#else
    const auto top = [](Vector<T> x) {
        const Vector<T> c = x * static_cast<T>((u64{1} << (Real<T>::digits / 2 + 1)) + 1);
        return c - (c - x);
    };
    const Vector<T> at = top(a), bt = top(b), ab = a - at, bb = b - bt;
    return {high, ab * bb - (((high - at * bt) - ab * bt) - at * bb)};
#endif
}
// 1 / x, of which low is a small part.
template<class T> inline Vector<T> reciprocal(Vector<T> high, Vector<T> low) {
    const Vector<T> q = 1 / high;
#if defined(__AVX512F__)
    const Vector<T> left = fused(-q, high, all(T{1}));
#else
    const Pair<T> back = product<T>(q, high);
    const Vector<T> left = (1 - back.high) - back.low;
#endif
    return q + q * (left - q * low);
}

// What alphas the numbers of two parts take as they are: f32 has room for others neither.
inline bool moderate(f64 alpha) {
    const f64 steep = alpha < 0 ? -alpha : alpha;
    return steep >= 0x1p-90 && steep <= 0x1p90;
}

// By u = -16 alpha x / ln 2, the exponent in 16ths.
template<class T> struct SigmoidOfPairs {
    template<class> static constexpr Word<T> special = Exponential::special<T>;
    Pair<T> steps; // in one: u of x = 1

    // 2^(u / 16) = 2^(k / 16) (1 + p).
    static Exponential::Parts<T> power(Pair<T> u) {
        using R = Real<T>;
        const Vector<T> sum = u.high + rounder<T>, k = sum - rounder<T>, r = (u.high - k) + u.low;
        return {r * polynomial(R::power_tail, r) + look_up(R::root_rests, bits_of<T>(sum)), k, sum};
    }
    static Vector<T> value(Pair<T> u, Vector<Word<T>> &odd) {
        const Exponential::Parts<T> e = power(u);
        odd |= Exponential::far<T>(e.sum);
        const Vector<T> s = Exponential::scale<T>(e.sum);
        const Pair<T> all_of_e = ordered_sum<T>(s, s * e.p),
                      under = any_sum<T>(all(T{1}), all_of_e.high);
        return reciprocal<T>(under.high, under.low + all_of_e.low);
    }
    Pair<T> exponent(Vector<T> x) const {
        const Pair<T> u = product<T>(x, steps.high);
        return {u.high, u.low + x * steps.low};
    }
    template<class> Vector<T> simple(Vector<T> x, Vector<Word<T>> &odd) const {
        return value(exponent(x), odd);
    }
};

// For moderate alphas; far ones go through binary64.
struct SingleSigmoid : SigmoidOfPairs<f32> {
    PlainSigmoid plain;
    explicit SingleSigmoid(f64 alpha) : plain(alpha) {
        const f64 in_one = -alpha * Real<f64>::steps_in_one;
        const auto high = static_cast<f32>(in_one);
        steps = {all(high), all(static_cast<f32>(in_one - high))};
    }
    template<class> Vector<f32> of(Vector<f32> x) const {
        typedef f32 Half __attribute__((vector_size(vector_bytes / 2)));
        Half half[2];
        memcpy(half, &x, sizeof x);
        for (Half &h : half)
            h = __builtin_convertvector(plain.of<f64>(__builtin_convertvector(h, Vector<f64>)),
                                        Half);
        Vector<f32> by_plain;
        memcpy(&by_plain, half, sizeof half);
        Vector<u32> odd = {};
        const Vector<f32> y = simple<f32>(x, odd);
        return (odd & special<f32>) != 0 ? by_plain : y;
    }
};

// For any alpha, of which one that is not moderate borrows size from x; the simple way is for moderate ones.
struct DoubleSigmoid : SigmoidOfPairs<f64> {
    f64 lent = 1;
    explicit DoubleSigmoid(f64 alpha) {
        if (!moderate(alpha)) {
            const bool steep = alpha > 1 || alpha < -1;
            lent = steep ? 0x1p200 : 0x1p-600, alpha *= steep ? 0x1p-200 : 0x1p600;
        }
        steps = product<f64>(all(alpha), all(-Real<f64>::steps_in_one));
        steps.low -= alpha * Real<f64>::steps_rest;
    }
    template<class> Vector<f64> of(Vector<f64> x) const {
        using V = Vector<f64>;
        constexpr f64 most = 995 * 16; // products with such powers can be parted
        Pair<f64> u = exponent(x * lent);
        u.low = ((u.high > -18000) & (u.high < 18000)) ? u.low : V{};
        Vector<u64> odd = {};
        const V low_end = u.high < -most ? all(-most) : u.high;
        const V usual = value({low_end > most ? all(most) : low_end, u.low}, odd);
        // Far below zero it is the power itself, which may be less than any normal number.
        const V end = u.high > 1080 * 16 ? all(1080 * 16.0) : u.high;
        const Exponential::Parts<f64> e = power({-end, -u.low});
        const Exponential::Halves<f64> h(e);
        return u.high > most ? (h.s + h.s * e.p) * h.rest : usual;
    }
};

} // namespace kipx::KIPX_SET
