// convert/convert_avx512.h - conversion in registers. For convert_rows.cpp.
//
// Gives    scale_pairs(), sixteen elements as two vectors of binary64, and back;
//          narrowed_in_registers(), a vector into a shorter one.
// Promises the bits of the plain form: products and sums in binary64, to nearest even, saturated, NaN
//          to 0.
#pragma once

#include "core/lanes.h"

#if defined(__AVX512F__)

namespace kipx::KIPX_SET {

struct Pair {
    __m512d low, high;
};

inline Pair pair_of_words(__m512i words) {
    return {_mm512_cvtepi32_pd(_mm512_castsi512_si256(words)),
            _mm512_cvtepi32_pd(_mm512_extracti64x4_epi64(words, 1))};
}

template<class S> inline Pair load_pair(const void *from) {
    if constexpr (same<S, u8>)
        return pair_of_words(
            _mm512_cvtepu8_epi32(_mm_loadu_si128(static_cast<const __m128i *>(from))));
    else if constexpr (same<S, s8>)
        return pair_of_words(
            _mm512_cvtepi8_epi32(_mm_loadu_si128(static_cast<const __m128i *>(from))));
    else if constexpr (same<S, u16>)
        return pair_of_words(
            _mm512_cvtepu16_epi32(_mm256_loadu_si256(static_cast<const __m256i *>(from))));
    else if constexpr (same<S, s16>)
        return pair_of_words(
            _mm512_cvtepi16_epi32(_mm256_loadu_si256(static_cast<const __m256i *>(from))));
    else if constexpr (same<S, s32>)
        return pair_of_words(_mm512_loadu_si512(from));
    else if constexpr (same<S, u32>)
        return {_mm512_cvtepu32_pd(_mm256_loadu_si256(static_cast<const __m256i *>(from))),
                _mm512_cvtepu32_pd(_mm256_loadu_si256(static_cast<const __m256i *>(from) + 1))};
    else if constexpr (same<S, f32>)
        return {_mm512_cvtps_pd(_mm256_loadu_ps(static_cast<const f32 *>(from))),
                _mm512_cvtps_pd(_mm256_loadu_ps(static_cast<const f32 *>(from) + 8))};
    else
        return {_mm512_loadu_pd(from), _mm512_loadu_pd(static_cast<const f64 *>(from) + 8)};
}

// NaN to 0, then into the range; the first operand of a comparison with NaN is dropped. S: what x was
// made from; of integers there is no NaN.
template<class D, class S> inline __m512d into_range(__m512d x) {
    if constexpr (Range<D>::low != 0 && floating<S>)
        x = _mm512_maskz_mov_pd(_mm512_cmp_pd_mask(x, x, _CMP_ORD_Q), x);
    x = _mm512_max_pd(x, _mm512_set1_pd(static_cast<f64>(Range<D>::low)));
    return _mm512_min_pd(x, _mm512_set1_pd(static_cast<f64>(Range<D>::high)));
}

template<class S> inline __m512d one_nan_of(__m512d x) {
    if constexpr (!floating<S>) return x;
    return _mm512_mask_mov_pd(_mm512_set1_pd(__builtin_nan("")),
                              _mm512_cmp_pd_mask(x, x, _CMP_ORD_Q), x);
}

inline __m512i both(__m256i low, __m256i high) {
    return _mm512_inserti64x4(_mm512_castsi256_si512(low), high, 1);
}

template<class D, class S> inline void store_pair(void *to, Pair x) {
    if constexpr (same<D, f64>) {
        _mm512_storeu_pd(to, one_nan_of<S>(x.low));
        _mm512_storeu_pd(static_cast<f64 *>(to) + 8, one_nan_of<S>(x.high));
    } else if constexpr (same<D, f32>) {
        _mm256_storeu_ps(static_cast<f32 *>(to), _mm512_cvtpd_ps(one_nan_of<S>(x.low)));
        _mm256_storeu_ps(static_cast<f32 *>(to) + 8, _mm512_cvtpd_ps(one_nan_of<S>(x.high)));
    } else if constexpr (same<D, u32>) {
        _mm512_storeu_si512(to, both(_mm512_cvtpd_epu32(into_range<D, S>(x.low)),
                                     _mm512_cvtpd_epu32(into_range<D, S>(x.high))));
    } else {
        __m512i words = both(_mm512_cvtpd_epi32(into_range<D, S>(x.low)),
                             _mm512_cvtpd_epi32(into_range<D, S>(x.high)));
        if constexpr (sizeof(D) == 4)
            _mm512_storeu_si512(to, words);
        else if constexpr (sizeof(D) == 2)
            _mm256_storeu_si256(static_cast<__m256i *>(to), _mm512_cvtepi32_epi16(words));
        else
            _mm_storeu_si128(static_cast<__m128i *>(to), _mm512_cvtepi32_epi8(words));
    }
}

template<class D, class S>
inline void scale_pairs(char *to, const char *from, size_t n, f64 scale, f64 shift) {
    const __m512d factor = _mm512_set1_pd(scale), summand = _mm512_set1_pd(shift);
    for (size_t i = 0; i < n; i += 16) {
        Pair x = load_pair<S>(from + i * sizeof(S));
        x.low = _mm512_add_pd(_mm512_mul_pd(x.low, factor), summand);
        x.high = _mm512_add_pd(_mm512_mul_pd(x.high, factor), summand);
        store_pair<D, S>(to + i * sizeof(D), x);
    }
}

// convert (to, from, n) with n elements, whole thirty-twos. Returns how many are done; those of whole
// lines, where streamed.
template<class D, class S, class Convert>
inline size_t in_registers(void *dst, const void *src, size_t n, bool streamed, Convert convert) {
    char *to = static_cast<char *>(dst);
    const char *from = static_cast<const char *>(src);
    constexpr size_t block = 256 / sizeof(D);
    if (!streamed) {
        convert(to, from, n / 32 * 32);
        return n / 32 * 32;
    }
    for (size_t i = 0; n - i >= block; i += block) {
        alignas(64) char out[256];
        convert(out, from + i * sizeof(S), block);
        for (size_t k = 0; k < 256; k += 64) stream_line(to + i * sizeof(D) + k, out + k);
    }
    return n / block * block;
}

// Pairs that the processor narrows by one instruction, saturated.
template<class D, class S>
inline constexpr bool
    narrowed = (same<S, f32> && !floating<D> && (sizeof(D) < 4 || same<D, s32>)) ||
               (same<S, s32> && sizeof(D) < 4) || (same<S, s16> && sizeof(D) == 1);

// To nearest, NaN to 0; at the top as far as D goes. What lies below all words becomes the least one.
template<class D> inline __m512i words_of(__m512 x) {
    const __mmask16 numbers = _mm512_cmp_ps_mask(x, x, _CMP_ORD_Q);
    if constexpr (same<D, s32>)
        return _mm512_mask_mov_epi32(_mm512_maskz_cvtps_epi32(numbers, x),
                                     _mm512_cmp_ps_mask(x, _mm512_set1_ps(0x1p31f), _CMP_GE_OQ),
                                     _mm512_set1_epi32(INT32_MAX));
    return _mm512_maskz_cvtps_epi32(
        numbers, _mm512_min_ps(x, _mm512_set1_ps(static_cast<f32>(Range<D>::high))));
}

// Signed words, saturated.
template<class D> inline void store_words(char *to, __m512i words) {
    if constexpr (Range<D>::low == 0) words = _mm512_max_epi32(words, _mm512_setzero_si512());
    if constexpr (same<D, s32>) _mm512_storeu_si512(to, words);
    __m256i *const half = reinterpret_cast<__m256i *>(to);
    if constexpr (same<D, s16>) _mm256_storeu_si256(half, _mm512_cvtsepi32_epi16(words));
    if constexpr (same<D, u16>) _mm256_storeu_si256(half, _mm512_cvtusepi32_epi16(words));
    __m128i *const quarter = reinterpret_cast<__m128i *>(to);
    if constexpr (same<D, s8>) _mm_storeu_si128(quarter, _mm512_cvtsepi32_epi8(words));
    if constexpr (same<D, u8>) _mm_storeu_si128(quarter, _mm512_cvtusepi32_epi8(words));
}

// 64 results.
template<class D> struct Results {
    __m512i part[sizeof(D)];
    void store(char *to) const {
        for (size_t i = 0; i < sizeof(D); ++i) _mm512_storeu_si512(to + 64 * i, part[i]);
    }
    bool differ(const Results &b) const {
        __m512i bits = _mm512_xor_si512(part[0], b.part[0]);
        for (size_t i = 1; i < sizeof(D); ++i)
            bits = _mm512_or_si512(bits, _mm512_xor_si512(part[i], b.part[i]));
        return _mm512_test_epi32_mask(bits, bits) != 0;
    }
};

// Signed words, saturated. Packing works in quarters of a register, which are put in order.
template<class D> inline Results<D> packed(const __m512i *words) {
    if constexpr (sizeof(D) == 2) {
        const __m512i order = _mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7);
        Results<D> out;
        for (size_t i = 0; i < 2; ++i) {
            const __m512i a = words[2 * i], b = words[2 * i + 1];
            out.part[i] = _mm512_permutexvar_epi64(order, same<D, u16> ? _mm512_packus_epi32(a, b)
                                                                       : _mm512_packs_epi32(a, b));
        }
        return out;
    } else {
        const __m512i order =
            _mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
        const __m512i a = _mm512_packs_epi32(words[0], words[1]),
                      b = _mm512_packs_epi32(words[2], words[3]);
        return {{_mm512_permutexvar_epi32(order, same<D, u8> ? _mm512_packus_epi16(a, b)
                                                             : _mm512_packs_epi16(a, b))}};
    }
}

// 64 of them; false, with nothing written, where there is a NaN that is not 0 by itself.
template<class D> inline bool narrow_block(char *to, const char *from) {
    const __m512 high = _mm512_set1_ps(static_cast<f32>(Range<D>::high));
    __m512 x[4];
    __m512i words[4];
    for (size_t k = 0; k < 4; ++k) x[k] = _mm512_loadu_ps(from + 64 * k);
    if (Range<D>::low != 0 && (_mm512_cmp_ps_mask(x[0], x[1], _CMP_UNORD_Q) |
                               _mm512_cmp_ps_mask(x[2], x[3], _CMP_UNORD_Q)) != 0)
        return false;
    // The second one where it is a NaN, which becomes the least word.
    for (size_t k = 0; k < 4; ++k) words[k] = _mm512_cvtps_epi32(_mm512_min_ps(high, x[k]));
    packed<D>(words).store(to);
    return true;
}

template<class D, class S> inline void narrow_vectors(char *to, const char *from, size_t n) {
    constexpr size_t lanes = 64 / sizeof(S);
    for (size_t i = 0; i < n;) {
        if constexpr (same<S, f32> && sizeof(D) <= 2)
            if (n - i >= 64 && narrow_block<D>(to, from)) {
                i += 64, from += 256, to += 64 * sizeof(D);
                continue;
            }
        const __m512i x = _mm512_loadu_si512(from);
        if constexpr (same<S, f32>) {
            store_words<D>(to, words_of<D>(_mm512_castsi512_ps(x)));
        } else if constexpr (same<S, s32>) {
            store_words<D>(to, x);
        } else {
            const __m512i raised = same<D, u8> ? _mm512_max_epi16(x, _mm512_setzero_si512()) : x;
            _mm256_storeu_si256(reinterpret_cast<__m256i *>(to),
                                same<D, u8> ? _mm512_cvtusepi16_epi8(raised)
                                            : _mm512_cvtsepi16_epi8(raised));
        }
        i += lanes, from += 64, to += lanes * sizeof(D);
    }
}

template<class D, class S>
inline size_t narrowed_in_registers(void *dst, const void *src, size_t n, bool streamed) {
    return in_registers<D, S>(dst, src, n, streamed, narrow_vectors<D, S>);
}

} // namespace kipx::KIPX_SET

#endif
