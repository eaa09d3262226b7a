// core/lanes.h - numbers as row loops see them: loads, saturation, rounding. For row files only.
//
// Everything stands in the namespace of the instruction set being compiled, so that no two forms
// can be mistaken for each other by the linker; nothing of the standard library that emits code is
// used. Rounding is to nearest, ties to even, by adding and taking away a number whose unit in the
// last place is one: exact in every form, with contraction and reassociation off.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <immintrin.h>
#endif

#ifndef KIPX_SET
#error "a row file is compiled once per instruction set, with KIPX_SET naming its namespace"
#endif

// Elements of one run never depend on each other, also where the destination is a source.
#if defined(__clang__)
#define KIPX_INDEPENDENT _Pragma("clang loop vectorize(assume_safety)")
#else
#define KIPX_INDEPENDENT _Pragma("GCC ivdep")
#endif

namespace kipx::KIPX_SET {

using u8 = uint8_t;
using u16 = uint16_t;
using u32 = uint32_t;
using u64 = uint64_t;
using s8 = int8_t;
using s16 = int16_t;
using s32 = int32_t;
using s64 = int64_t;
using f32 = float;
using f64 = double;

template<class A, class B> inline constexpr bool same = false;
template<class A> inline constexpr bool same<A, A> = true;
template<class T> inline constexpr bool floating = same<T, f32> || same<T, f64>;

template<class T> struct Range;
template<> struct Range<u8> { static constexpr s64 low = 0, high = 255; };
template<> struct Range<s8> { static constexpr s64 low = -128, high = 127; };
template<> struct Range<u32> { static constexpr s64 low = 0, high = UINT32_MAX; };
template<> struct Range<u16> { static constexpr s64 low = 0, high = 65535; };
template<> struct Range<s16> { static constexpr s64 low = -32768, high = 32767; };
template<> struct Range<s32> { static constexpr s64 low = INT32_MIN, high = INT32_MAX; };

template<class T> inline T load(const void *row, size_t i) {
    T value;
    memcpy(&value, static_cast<const char *>(row) + i * sizeof(T), sizeof(T));
    return value;
}
template<class T> inline void store(void *row, size_t i, T value) {
    memcpy(static_cast<char *>(row) + i * sizeof(T), &value, sizeof(T));
}

// As many bytes as a register of the set holds, and elements in one.
#if defined(__AVX512BW__)
inline constexpr size_t vector_bytes = 64;
#elif defined(__AVX2__)
inline constexpr size_t vector_bytes = 32;
#else
inline constexpr size_t vector_bytes = 16;
#endif
template<class T> struct VectorOf { typedef T Type __attribute__((vector_size(vector_bytes))); };
template<class T> using Vector = typename VectorOf<T>::Type;
// From element i on; no alignment is needed.
template<class T> inline Vector<T> load_vector(const void *row, size_t i) {
    Vector<T> v;
    memcpy(&v, static_cast<const char *>(row) + i * sizeof(T), sizeof v);
    return v;
}

// One line of 64 bytes to aligned memory, past the cache where there is a way.
inline void stream_line(void *to, const void *from) {
#if defined(__AVX512F__)
    _mm512_stream_si512(static_cast<__m512i *>(to), _mm512_loadu_si512(from));
#elif defined(__SSE2__)
    for (size_t i = 0; i < 4; ++i)
        _mm_stream_si128(static_cast<__m128i *>(to) + i,
                         _mm_loadu_si128(static_cast<const __m128i *>(from) + i));
#else
    memcpy(to, from, 64);
#endif
}

// How many bytes ahead of the work lines are fetched: read ones, and written ones.
inline constexpr size_t read_ahead = 2048, write_ahead = 1024;

// Asks for the lines of so many bytes; they need not belong to an array. Inline for good: by its
// prefetches alone the compiler would take a call for one without effect.
template<size_t bytes> [[gnu::always_inline]] inline void prefetch_lines(const char *at) {
    for (size_t i = 0; i < bytes; i += 64) __builtin_prefetch(at + i);
}

// dst[i] = element(a[i], b[i]). Streamed, four lines at a time are made in registers or the
// first-level cache and written past it.
template<class D, class A, class B, class Element>
inline void row_of_elements(void *dst, const void *a, const void *b, size_t n, bool streamed,
                            Element element) {
    size_t done = 0;
    constexpr size_t block = 256 / sizeof(D);
    for (; streamed && n - done >= block; done += block) {
        alignas(64) D out[block];
        KIPX_INDEPENDENT
        for (size_t i = 0; i < block; ++i)
            out[i] = element(load<A>(a, done + i), load<B>(b, done + i));
        for (size_t i = 0; i < 256; i += 64)
            stream_line(static_cast<char *>(dst) + done * sizeof(D) + i,
                        reinterpret_cast<const char *>(out) + i);
    }
    KIPX_INDEPENDENT
    for (size_t i = done; i < n; ++i)
        store(dst, i, static_cast<D>(element(load<A>(a, i), load<B>(b, i))));
}

// Nearest integer of |x| < 2^51.
inline f64 nearest(f64 x) { return (x + 0x1.8p52) - 0x1.8p52; }

// One NaN for all: which one survives an operation, and its sign, differ between processors.
template<class T> inline T one_nan(T x) {
    return __builtin_isnan(x) ? static_cast<T>(__builtin_nan("")) : x;
}

template<class D, class W> inline D saturate(W r) {
    constexpr W low = static_cast<W>(Range<D>::low), high = static_cast<W>(Range<D>::high);
    if constexpr (sizeof(W) <= sizeof(D)) {
        return static_cast<D>(r);
    } else {
        W clipped = r < low ? low : r;
        return static_cast<D>(clipped > high ? high : clipped);
    }
}

// To nearest, saturated; NaN to the smallest value, 0 for unsigned types.
template<class D> inline D round_saturate(f64 x) {
    constexpr f64 low = static_cast<f64>(Range<D>::low), high = static_cast<f64>(Range<D>::high);
    f64 clipped = x > low ? x : low; // NaN compares false
    clipped = clipped < high ? clipped : high;
    return static_cast<D>(static_cast<s32>(nearest(clipped)));
}
// For narrow types the sum with the rounding number is clipped as an integer: the bits of positive
// floats are ordered like the floats, those of negative ones are negative, and the bits of the
// rounding number end in 16 zeros, so that the last bits of the sum are the result itself.
template<class D> inline D round_saturate(f32 x) {
    if constexpr (sizeof(D) > 2) {
        return round_saturate<D>(static_cast<f64>(x));
    } else {
        constexpr s32 zero = 0x4b400000; // 0x1.8p23f
        constexpr s32 low = zero + static_cast<s32>(Range<D>::low);
        constexpr s32 high = zero + static_cast<s32>(Range<D>::high);
        f32 sum = x + 0x1.8p23f;
        s32 bits;
        memcpy(&bits, &sum, sizeof bits);
        bits = bits < low ? low : bits;
        bits = bits > high ? high : bits;
        return static_cast<D>(x == x ? bits : low);
    }
}

} // namespace kipx::KIPX_SET
