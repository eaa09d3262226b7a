// arith/unary_values.h - exponential and logarithm of vectors of numbers. For row files only.
//
// Gives    Exponential, Logarithm (f32, f64): of (x) for any x, simple (x, odd) for those that take no special
//          care, which are told by bits of `odd`.
// Promises additions, multiplications, divisions, moves of bits and tables of sixteen, so that every form
//          gives the same bits; operations are fused where a product is exact, which changes none. Exponential
//          and logarithm are the number nearest to the true value or its neighbour.
#pragma once

#include "arith/unary_reals.h"

namespace kipx::KIPX_SET {

template<class T> using Word = typename Real<T>::Word;

template<class T> inline Vector<Word<T>> bits_of(Vector<T> x) {
    return reinterpret_cast<Vector<Word<T>>>(x);
}
template<class T> inline Vector<T> number_of(Vector<Word<T>> bits) {
    return reinterpret_cast<Vector<T>>(bits);
}
template<class T> inline Vector<T> all(T x) { return Vector<T>{} + x; }

#if defined(__AVX512F__)
inline Vector<f32> fused(Vector<f32> a, Vector<f32> b, Vector<f32> c) {
    return _mm512_fmadd_ps(a, b, c);
}
inline Vector<f64> fused(Vector<f64> a, Vector<f64> b, Vector<f64> c) {
    return _mm512_fmadd_pd(a, b, c);
}
#endif
// a b + c, where a b is exact.
template<class V> inline V sum_with_exact(V a, V b, V c) {
#if defined(__AVX512F__)
    return fused(a, b, c);
#else
    return a * b + c;
#endif
}

// Entries of a table, by the last four bits of each index.
template<class T> inline Vector<T> look_up(const T (&table)[16], Vector<Word<T>> index) {
#if defined(__AVX512F__)
    if constexpr (same<T, f32>)
        return _mm512_permutexvar_ps(reinterpret_cast<__m512i>(index), _mm512_loadu_ps(table));
    else
        return _mm512_permutex2var_pd(_mm512_loadu_pd(table), reinterpret_cast<__m512i>(index),
                                      _mm512_loadu_pd(table + 8));
#else
#if defined(__AVX2__)
    if constexpr (same<T, f32>) {
        const auto i = reinterpret_cast<__m256i>(index);
        const __m256 first = _mm256_permutevar8x32_ps(_mm256_loadu_ps(table), i),
                     second = _mm256_permutevar8x32_ps(_mm256_loadu_ps(table + 8), i);
        return _mm256_blendv_ps(first, second, _mm256_castsi256_ps(_mm256_slli_epi32(i, 28)));
    }
#endif
    Vector<T> found = {};
    for (size_t i = 0; i < vector_bytes / sizeof(T); ++i) found[i] = table[index[i] & 15];
    return found;
#endif
}

// c[0] + c[1] x + ...
template<class T, size_t n> inline Vector<T> polynomial(const T (&c)[n], Vector<T> x) {
    Vector<T> sum = all(c[n - 1]);
#pragma GCC unroll 8
    for (size_t i = n - 1; i > 0; --i) sum = sum * x + c[i - 1];
    return sum;
}

// Added and taken away, it rounds to an integer, which stands in the last bits of the sum, `window` more.
template<class T>
inline constexpr T rounder = static_cast<T>((u64{3} << (Real<T>::digits - 1)) + Real<T>::window);
template<class T> inline Vector<T> whole(Vector<T> x) { return (x + rounder<T>)-rounder<T>; }

// 2^k for a whole number in the range of exponents.
template<class T> inline Vector<T> power_of_two(Vector<T> k) {
    return number_of<T>((bits_of<T>(k + rounder<T>) << Real<T>::digits) + bits_of<T>(all(T{1})));
}

// Of 2 to the power of a sixteenth, less what the sixteenths are in the exponent's place.
template<class T> struct Roots {
    T of[16];
    constexpr Roots() : of() {
        for (int i = 0; i < 16; ++i)
            of[i] = __builtin_bit_cast(
                T, __builtin_bit_cast(Word<T>, Real<T>::roots[i]) -
                       (static_cast<Word<T>>(i + Real<T>::window) << (Real<T>::digits - 4)));
    }
};
template<class T> alignas(64) inline constexpr Roots<T> roots;

struct Exponential {
    template<class T> static constexpr Word<T> special = ~(2 * Real<T>::window - 1);

    // e^x = 2^(k / 16) (1 + p), k in the last bits of sum.
    template<class T> struct Parts {
        Vector<T> p, k, sum;
        explicit Parts(Vector<T> x) {
            using R = Real<T>;
            sum = x * R::steps_in_one + rounder<T>, k = sum - rounder<T>;
            Vector<T> r = sum_with_exact(k, all(-R::step_high), x);
            // Of the low part f64 has enough in bits that are exact times k, too.
            r = same<T, f64> ? sum_with_exact(k, all(-R::step_low), r) : r - k * R::step_low;
            p = r + r * r * polynomial(R::exp_tail, r);
        }
        Parts(Vector<T> p_of, Vector<T> k_of, Vector<T> sum_of) : p(p_of), k(k_of), sum(sum_of) {}
    };
    // 2^(k / 16) of a sum.
    template<class T> static Vector<T> scale(Vector<T> sum) {
        const Vector<Word<T>> bits = bits_of<T>(sum);
        return number_of<T>(bits_of<T>(look_up(roots<T>.of, bits)) +
                            (bits << (Real<T>::digits - 4)));
    }
    // Bits of `special` where a sum is not that of a number of up to `window` 16ths.
    template<class T> static Vector<Word<T>> far(Vector<T> sum) {
        return bits_of<T>(sum) ^ bits_of<T>(all(rounder<T> - Real<T>::window));
    }
    template<class T> static Vector<T> simple(Vector<T> x, Vector<Word<T>> &odd) {
        const Parts<T> e(x);
        odd |= far<T>(e.sum);
        const Vector<T> s = scale<T>(e.sum);
        return s + s * e.p;
    }

    // NaN passes.
    template<class T> static Vector<T> clipped(Vector<T> x) {
        const Vector<T> least = all(Real<T>::least), most = all(Real<T>::most);
        x = x < least ? least : x;
        return x > most ? most : x;
    }
    // s holds about the root of the power, which may lie below all normal numbers or above all numbers.
    template<class T> struct Halves {
        Vector<T> s, rest;
        explicit Halves(const Parts<T> &e) {
            const Vector<T> h = whole<T>(e.k * T{0x1p-5});
            s = scale<T>((e.k - h * T{16}) + rounder<T>), rest = power_of_two<T>(h);
        }
    };
    template<class T> static Vector<T> of(Vector<T> x) {
        const Parts<T> e(clipped<T>(x));
        const Halves<T> h(e);
        return (h.s + h.s * e.p) * h.rest;
    }
};

struct Logarithm {
    template<class T>
    static constexpr Word<T> special = static_cast<Word<T>>(u64{3} << (8 * sizeof(T) - 2));

    // x = 2^k z. f: how far z is from a point, as a part of it; the point's logarithm in two parts; k in the
    // type's unit.
    template<class T> struct Parts {
        Vector<T> f, log, rest, k;
        explicit Parts(Vector<T> x) {
            using R = Real<T>;
            const Vector<Word<T>> above = bits_of<T>(x) - R::lowest_point,
                                  exponent = above & -(Word<T>{1} << R::digits),
                                  index = above >> (R::digits - 4);
            const Vector<T> z = number_of<T>(bits_of<T>(x) - exponent);
            const Vector<T> c = look_up(R::points, index);
            log = look_up(R::logs, index), rest = look_up(R::log_rests, index),
            k = R::exponent(exponent);
#if defined(__AVX512F__)
            f = fused(z, c, all(T{-1}));
#else
            const Vector<T> high = number_of<T>(bits_of<T>(z) & R::upper_half);
            f = (high * c - 1) + (z - high) * c;
#endif
        }
        Vector<T> value() const {
            using R = Real<T>;
            const Vector<T> more = sum_with_exact(k, all(R::ln2_low), f) + rest;
            return sum_with_exact(k, all(R::ln2_high), log) +
                   (more + f * f * polynomial(R::log_tail, f));
        }
    };
    template<class T> static Vector<T> simple(Vector<T> x, Vector<Word<T>> &odd) {
        odd |= bits_of<T>(x) - bits_of<T>(all(Real<T>::least_simple));
        return Parts<T>(x).value();
    }
    template<class T> static Vector<T> of(Vector<T> x) {
        using R = Real<T>;
        constexpr T up = T{static_cast<T>(u64{1} << R::digits)};
        constexpr T infinity = static_cast<T>(__builtin_inf());
        const Vector<T> none = {};
        Parts<T> parts(x < R::normal ? x * up : x);
        parts.k -= x < R::normal ? all(R::digits * R::exponent_unit) : none;
        Vector<T> y = parts.value();
        y = x < infinity ? y : x; // infinity and NaN are their own
        y = x < none ? all(static_cast<T>(__builtin_nan(""))) : y;
        return x == none ? all(-infinity) : y;
    }
};

} // namespace kipx::KIPX_SET
