// filter/vectors.h - whole vectors of elements: loads and stores, the smaller and the larger of two.
// For row files only.
//
// Promises every set gives the same bits. Of two floating numbers the later one wins only where it
//          compares as smaller (larger), so that NaN never wins and of equal zeros the earlier
//          stays.
#pragma once

#include "core/lanes.h"

namespace kipx::KIPX_SET {

// A vector of any element type's bits.
using Bits = Vector<u8>;

inline Bits load_bits(const char *at) {
    Bits v;
    memcpy(&v, at, sizeof v);
    return v;
}
inline void store_bits(char *at, Bits v) { memcpy(at, &v, sizeof v); }

// The first n bytes of a vector, n below vector_bytes.
inline void store_first(char *at, Bits v, size_t n) {
#if defined(__AVX512VBMI__)
    _mm512_mask_storeu_epi8(at, (uint64_t{1} << n) - 1, reinterpret_cast<__m512i>(v));
#else
    char whole[vector_bytes];
    store_bits(whole, v);
    memcpy(at, whole, n);
#endif
}

// The bytes of a vector that may be read: from the first to before the last, of none any may do.
struct Part {
#if defined(__AVX512VBMI__)
    __mmask64 bytes;
#else
    size_t first, last;
#endif
    static Part of(ptrdiff_t begin, ptrdiff_t end) {
        constexpr auto whole = static_cast<ptrdiff_t>(vector_bytes);
        const ptrdiff_t low = begin < 0 ? 0 : begin < whole ? begin : whole;
        const ptrdiff_t high = end < low ? low : end < whole ? end : whole;
#if defined(__AVX512VBMI__)
        auto below = [](ptrdiff_t n) { return n < 64 ? (uint64_t{1} << n) - 1 : ~uint64_t{0}; };
        return {below(high) & ~below(low)};
#else
        return {static_cast<size_t>(low), static_cast<size_t>(high)};
#endif
    }
};
// A vector of which a part is read, the rest being as in `other`.
inline Bits load_part(const char *at, Part part, Bits other) {
#if defined(__AVX512VBMI__)
    return reinterpret_cast<Bits>(
        _mm512_mask_loadu_epi8(reinterpret_cast<__m512i>(other), part.bytes, at));
#else
    char whole[vector_bytes];
    store_bits(whole, other);
    memcpy(whole + part.first, at + part.first, part.last - part.first);
    return load_bits(whole);
#endif
}

template<class T> inline Bits all(T value) {
    Vector<T> v;
    for (size_t i = 0; i < vector_bytes / sizeof(T); ++i) v[i] = value;
    return reinterpret_cast<Bits>(v);
}

// ---- the smaller, the larger --------------------------------------------------------------------

template<class T> struct Extreme {
    static constexpr T low = static_cast<T>(T(-1) > T(0) ? 0 : T(1) << (8 * sizeof(T) - 1)),
                       high = static_cast<T>(~low);
};
template<> struct Extreme<f32> { static constexpr f32 low = -0x1.fffffep127f, high = -low; };
template<> struct Extreme<f64> { static constexpr f64 low = -0x1.fffffffffffffp1023, high = -low; };

#if defined(__AVX512VBMI__)
#define KIPX_REAL(op, type, a, b)                                                                  \
    (same<type, f32> ? reinterpret_cast<Bits>(_mm512_##op##_ps(reinterpret_cast<__m512>(a),        \
                                                               reinterpret_cast<__m512>(b)))       \
                     : reinterpret_cast<Bits>(_mm512_##op##_pd(reinterpret_cast<__m512d>(a),       \
                                                               reinterpret_cast<__m512d>(b))))
#elif defined(__AVX2__)
#define KIPX_REAL(op, type, a, b)                                                                  \
    (same<type, f32> ? reinterpret_cast<Bits>(_mm256_##op##_ps(reinterpret_cast<__m256>(a),        \
                                                               reinterpret_cast<__m256>(b)))       \
                     : reinterpret_cast<Bits>(_mm256_##op##_pd(reinterpret_cast<__m256d>(a),       \
                                                               reinterpret_cast<__m256d>(b))))
#elif defined(__SSE2__)
#define KIPX_REAL(op, type, a, b)                                                                  \
    (same<type, f32> ? reinterpret_cast<Bits>(_mm_##op##_ps(reinterpret_cast<__m128>(a),           \
                                                            reinterpret_cast<__m128>(b)))          \
                     : reinterpret_cast<Bits>(_mm_##op##_pd(reinterpret_cast<__m128d>(a),          \
                                                            reinterpret_cast<__m128d>(b))))
#endif

// of (earlier, later): later where it is smaller (larger), else earlier. neutral never wins.
template<class T> struct Smaller {
    using Element = T;
    static constexpr T neutral = Extreme<T>::high;
    static Bits of(Bits earlier, Bits later) {
#if defined(KIPX_REAL)
        if constexpr (floating<T>) return KIPX_REAL(min, T, later, earlier);
#endif
        auto a = reinterpret_cast<Vector<T>>(earlier), b = reinterpret_cast<Vector<T>>(later);
        return reinterpret_cast<Bits>(b < a ? b : a);
    }
};
template<class T> struct Larger {
    using Element = T;
    static constexpr T neutral = Extreme<T>::low;
    static Bits of(Bits earlier, Bits later) {
#if defined(KIPX_REAL)
        if constexpr (floating<T>) return KIPX_REAL(max, T, later, earlier);
#endif
        auto a = reinterpret_cast<Vector<T>>(earlier), b = reinterpret_cast<Vector<T>>(later);
        return reinterpret_cast<Bits>(b > a ? b : a);
    }
};
#undef KIPX_REAL

} // namespace kipx::KIPX_SET
