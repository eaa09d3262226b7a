// filter/vectors.h - whole vectors of elements: loads and stores, the smaller and the larger of two,
// and a row's vectors shifted by any number of bytes. For row files only.
//
// Promises every set gives the same bits. Of two floating numbers the later one wins only where it
//          compares as smaller (larger), so that NaN never wins and of equal zeros the earlier
//          stays.
#pragma once

#include "core/lanes.h"

#if defined(__ARM_NEON)
#include <arm_neon.h>
#endif

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

// ---- shifts along a row -------------------------------------------------------------------------

// How far the vectors of a row are shifted, 1 to vector_bytes bytes; with AVX-512 a multiple of 4,
// or fewer than vector_bytes, depending on the function that is to use it.
struct Shift {
#if defined(__AVX512VBMI__)
    __m512i index;
    static Shift of_bytes(size_t bytes) {
        alignas(64) u8 at[64];
        for (size_t i = 0; i < 64; ++i) at[i] = static_cast<u8>(64 - bytes + i);
        return {_mm512_load_si512(at)};
    }
    static Shift of_words(size_t bytes) {
        alignas(64) u32 at[16];
        for (u32 i = 0; i < 16; ++i) at[i] = 16 - static_cast<u32>(bytes / 4) + i;
        return {_mm512_load_si512(at)};
    }
#elif defined(__AVX2__)
    __m256i near, far;
    bool half; // 16 bytes more
    static Shift of_bytes(size_t bytes) {
        alignas(32) u8 a[32], b[32];
        bool half = bytes > 16;
        size_t s = half ? bytes - 16 : bytes;
        for (size_t i = 0; i < 32; ++i) {
            size_t lane = i & 15;
            a[i] = static_cast<u8>(lane >= s ? lane - s : 0x80);
            b[i] = static_cast<u8>(lane < s ? 16 + lane - s : 0x80);
        }
        return {_mm256_load_si256(reinterpret_cast<const __m256i *>(a)),
                _mm256_load_si256(reinterpret_cast<const __m256i *>(b)), half};
    }
    static Shift of_words(size_t bytes) { return of_bytes(bytes); }
#elif defined(__SSE2__)
    __m128i left, right;
    bool half; // 8 bytes more
    static Shift of_bytes(size_t bytes) {
        bool half = bytes > 8;
        int s = static_cast<int>(half ? bytes - 8 : bytes);
        return {_mm_cvtsi32_si128(8 * s), _mm_cvtsi32_si128(64 - 8 * s), half};
    }
    static Shift of_words(size_t bytes) { return of_bytes(bytes); }
#else
    size_t bytes;
    static Shift of_bytes(size_t n) { return {n}; }
    static Shift of_words(size_t n) { return {n}; }
#endif
};

// The vector that ends so many bytes before the end of current, previous lying before it.
inline Bits shift_bytes(Bits previous, Bits current, const Shift &s) {
#if defined(__AVX512VBMI__)
    return reinterpret_cast<Bits>(_mm512_permutex2var_epi8(
        reinterpret_cast<__m512i>(previous), s.index, reinterpret_cast<__m512i>(current)));
#elif defined(__AVX2__)
    auto p = reinterpret_cast<__m256i>(previous), c = reinterpret_cast<__m256i>(current);
    __m256i between = _mm256_permute2x128_si256(p, c, 0x21);
    __m256i near = _mm256_shuffle_epi8(s.half ? between : c, s.near);
    __m256i far = _mm256_shuffle_epi8(s.half ? p : between, s.far);
    return reinterpret_cast<Bits>(_mm256_or_si256(near, far));
#elif defined(__SSE2__)
    auto p = reinterpret_cast<__m128i>(previous), c = reinterpret_cast<__m128i>(current);
    __m128i between = reinterpret_cast<__m128i>(
        _mm_shuffle_pd(reinterpret_cast<__m128d>(p), reinterpret_cast<__m128d>(c), 1));
    __m128i left = _mm_sll_epi64(s.half ? between : c, s.left);
    __m128i right = _mm_srl_epi64(s.half ? p : between, s.right);
    return reinterpret_cast<Bits>(_mm_or_si128(left, right));
#elif defined(__ARM_NEON) && defined(__aarch64__)
    uint8x16x2_t both = {
        {reinterpret_cast<uint8x16_t>(previous), reinterpret_cast<uint8x16_t>(current)}};
    alignas(16) static const u8 ramp[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    uint8x16_t index = vaddq_u8(vld1q_u8(ramp), vdupq_n_u8(static_cast<u8>(16 - s.bytes)));
    return reinterpret_cast<Bits>(vqtbl2q_u8(both, index));
#else
    char both[2 * vector_bytes];
    store_bits(both, previous);
    store_bits(both + vector_bytes, current);
    return load_bits(both + vector_bytes - s.bytes);
#endif
}
inline Bits shift_words(Bits previous, Bits current, const Shift &s) {
#if defined(__AVX512VBMI__)
    return reinterpret_cast<Bits>(_mm512_permutex2var_epi32(
        reinterpret_cast<__m512i>(previous), s.index, reinterpret_cast<__m512i>(current)));
#else
    return shift_bytes(previous, current, s);
#endif
}

} // namespace kipx::KIPX_SET
