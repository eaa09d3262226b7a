// convert/scale_avx512.h - scaled conversion by binary32, where its result is certain. For
// convert_rows.cpp.
//
// Gives    scaled_blocks(), blocks of 64 elements times a scale plus a shift.
// Promises the bits of product and sum in binary64, each rounded. A block is worked out twice, with
//          constants a little below and a little above those given. Rounding and saturation never turn
//          an order around: where both ways end alike, so does any between them, and the exact one is.
//          Where they do not, and where there is a NaN, the block goes through binary64.
#pragma once

#include "convert/convert_avx512.h"

#if defined(__AVX512F__)

namespace kipx::KIPX_SET {

// Between elements that binary32 holds and results of few bits, bytes to bytes aside, which go through
// tables; and from such integers into binary32 itself, without a shift.
template<class D, class S>
inline constexpr bool into_few = !floating<D> && sizeof(D) <= 2 && sizeof(D) + sizeof(S) > 2 &&
                                 (same<S, f32> || sizeof(S) <= 2);
template<class D, class S>
inline constexpr bool into_floats = same<D, f32> && !floating<S> && sizeof(S) <= 2;

// Constants of one run. ways: how often a block is worked out, 0 where this is no way to go.
struct Quick {
    int ways;
    f32 scale, most; // sources are clipped to +-most, where results are saturated
    f32 low, high;   // of the shift; of what the scale has beyond binary32
};

// With a scale of binary32 and no shift, product and rounding to an integer are one step, which adds a
// number whose unit in the last place is 1: once is enough. Else, where it is within the range and 1,
// |x scale + shift| is wrong by less than 2^-23 (range + |shift| + 2), and there is a margin of twice
// that; of results of 16 bits too few would be certain.
template<class D, class S> inline Quick quick_into_few(f64 scale, f64 shift) {
    constexpr f64 range = static_cast<f64>(u64{1} << 8 * sizeof(D));
    const f64 size = __builtin_fabs(scale), margin = 0x1p-22 * (range + __builtin_fabs(shift) + 2);
    if (!(size > 0x1p-60 && size < (same<S, f32> ? 0x1p60 : 0x1p12) && margin < 0.125)) return {};
    const f32 s = static_cast<f32>(scale);
    if (static_cast<f64>(s) == scale && shift == 0 && (same<S, f32> || size < 32))
        return {1, s, static_cast<f32>(0x1p21 / size), 0, 0};
    if (sizeof(D) > 1) return {};
    return {2, s, static_cast<f32>(0x1p30 / size), static_cast<f32>(shift - margin),
            static_cast<f32>(shift + margin)};
}

// The scale is s + rest, |rest| <= 2^-24 s; rest, its product, and the product in binary64 are wrong by
// less than 2^-46 of the result together.
inline Quick quick_into_floats(f64 scale, f64 shift) {
    if (!(scale > 0x1p-60 && scale < 0x1p60 && shift == 0)) return {};
    const f32 s = static_cast<f32>(scale);
    const f64 rest = scale - static_cast<f64>(s), margin = 0x1p-46 * scale;
    return {2, s, 0, static_cast<f32>(rest - margin), static_cast<f32>(rest + margin)};
}

template<class S> inline __m512 load_floats(const char *from) {
    if constexpr (same<S, f32>) return _mm512_loadu_ps(from);
    if constexpr (sizeof(S) == 2) {
        const __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(from));
        return _mm512_cvtepi32_ps(same<S, u16> ? _mm512_cvtepu16_epi32(x)
                                               : _mm512_cvtepi16_epi32(x));
    }
    if constexpr (sizeof(S) == 1) {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i *>(from));
        return _mm512_cvtepi32_ps(same<S, u8> ? _mm512_cvtepu8_epi32(x) : _mm512_cvtepi8_epi32(x));
    }
}

// x scale + shift to nearest; once: in one step.
template<class D, bool once>
inline Results<D> rounded_results(const __m512 *x, __m512 scale, f32 shift) {
    const __m512 summand = _mm512_set1_ps(once ? 0x1.8p23f : shift);
    __m512i words[4];
    for (size_t k = 0; k < 4; ++k) {
        const __m512 sum = _mm512_fmadd_ps(x[k], scale, summand);
        words[k] = once ? _mm512_sub_epi32(_mm512_castps_si512(sum), _mm512_castps_si512(summand))
                        : _mm512_cvtps_epi32(sum);
    }
    return packed<D>(words);
}

// False, with nothing written, where a result is not certain.
template<class D, class S, bool once>
inline bool block_into_few(char *to, const char *from, const Quick &q) {
    const __m512 scale = _mm512_set1_ps(q.scale);
    __m512 x[4];
    for (size_t k = 0; k < 4; ++k) x[k] = load_floats<S>(from + 16 * k * sizeof(S));
    if constexpr (same<S, f32>) {
        if ((_mm512_cmp_ps_mask(x[0], x[1], _CMP_UNORD_Q) |
             _mm512_cmp_ps_mask(x[2], x[3], _CMP_UNORD_Q)) != 0)
            return false;
        // The one that is less in size, with the sign of x.
        for (size_t k = 0; k < 4; ++k) x[k] = _mm512_range_ps(x[k], _mm512_set1_ps(q.most), 2);
    }
    const Results<D> low = rounded_results<D, once>(x, scale, q.low);
    if constexpr (!once)
        if (low.differ(rounded_results<D, false>(x, scale, q.high))) return false;
    low.store(to);
    return true;
}

template<class S> inline bool block_into_floats(char *to, const char *from, const Quick &q) {
    const __m512 scale = _mm512_set1_ps(q.scale), low = _mm512_set1_ps(q.low),
                 high = _mm512_set1_ps(q.high);
    __m512 out[4];
    __mmask16 differ = 0;
    for (size_t k = 0; k < 4; ++k) {
        const __m512 x = load_floats<S>(from + 16 * k * sizeof(S));
        out[k] = _mm512_fmadd_ps(x, scale, _mm512_mul_ps(x, low));
        const __m512 above = _mm512_fmadd_ps(x, scale, _mm512_mul_ps(x, high));
        differ |= _mm512_cmp_ps_mask(out[k], above, _CMP_NEQ_UQ);
    }
    if (differ) return false;
    for (size_t k = 0; k < 4; ++k) _mm512_storeu_ps(to + 64 * k, out[k]);
    return true;
}

// Numbers that lie between two results, as tenths of integers do, are never certain: after two such
// blocks so many go through binary64 at once.
constexpr size_t rest_length = 16;

template<class D, class S, bool once>
inline void quick_blocks(char *to, const char *from, size_t n, const Quick &q, f64 scale,
                         f64 shift) {
    size_t failures = 0, rest = 0;
    for (size_t i = 0; i < n; i += 64, to += 64 * sizeof(D), from += 64 * sizeof(S)) {
        bool done = false;
        if (rest > 0) {
            --rest;
        } else {
            if constexpr (floating<D>)
                done = block_into_floats<S>(to, from, q);
            else
                done = block_into_few<D, S, once>(to, from, q);
            failures = done ? 0 : failures + 1;
            if (failures > 1) rest = rest_length;
        }
        if (!done) scale_pairs<D, S>(to, from, 64, scale, shift);
    }
}

// How many elements are done.
template<class D, class S>
inline size_t scaled_blocks(void *dst, const void *src, size_t n, f64 scale, f64 shift,
                            bool streamed) {
    // Integers are not looked at for NaN, which these would make of them.
    if (!floating<S> && !(__builtin_isfinite(scale) && __builtin_isfinite(shift))) return 0;
    Quick q{};
    if constexpr (into_few<D, S>) q = quick_into_few<D, S>(scale, shift);
    if constexpr (into_floats<D, S>) q = quick_into_floats(scale, shift);
    return in_registers<D, S>(
        dst, src, n / 64 * 64, streamed, [=](char *to, const char *from, size_t some) {
            if constexpr (into_few<D, S>)
                if (q.ways == 1) return quick_blocks<D, S, true>(to, from, some, q, scale, shift);
            if constexpr (into_floats<D, S> || (into_few<D, S> && sizeof(D) == 1))
                if (q.ways == 2) return quick_blocks<D, S, false>(to, from, some, q, scale, shift);
            scale_pairs<D, S>(to, from, some, scale, shift);
        });
}

} // namespace kipx::KIPX_SET

#endif
