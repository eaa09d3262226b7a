// compare/compare_avx512.h - comparisons in 512-bit vectors. For row files only.
//
// Gives    in_vectors(): elements compared 64 at a time: the answers are 64 bits of a mask register,
//          whatever the sizes of source and destination are.
// Promises the bits of the plain loops. Where fewer than 64 elements are left, masked loads and
//          stores touch those alone.
#pragma once

#include "compare/compare_standing.h"

#if defined(__AVX512VBMI__)

namespace kipx::KIPX_SET {

// Of `bytes` bytes those that lie in vector q.
inline __mmask64 lanes_of(size_t bytes, size_t q) {
    return bytes > 64 * q ? _bzhi_u64(~u64{0}, static_cast<u32>(bytes - 64 * q)) : 0;
}

// How a group of 64 elements is read and written: whole vectors, such past the cache, or the bytes
// that are there.
enum class Access { whole, streamed, part };

template<Access access> inline __m512i load_vector(const char *at, size_t q, size_t bytes) {
    if constexpr (access != Access::part) return _mm512_loadu_si512(at + 64 * q);
    return _mm512_maskz_loadu_epi8(lanes_of(bytes, q), at + 64 * q);
}

template<Access access> inline void store_vector(char *at, size_t q, size_t bytes, __m512i v) {
    if constexpr (access == Access::part)
        _mm512_mask_storeu_epi8(at + 64 * q, lanes_of(bytes, q), v);
    else if constexpr (access == Access::streamed)
        _mm512_stream_si512(reinterpret_cast<__m512i *>(at + 64 * q), v);
    else
        _mm512_storeu_si512(at + 64 * q, v);
}

// One bit per element of a vector.
template<Relation r, class S> inline u64 answers(__m512i a, __m512i b) {
    constexpr auto integer = r == Relation::equal ? _MM_CMPINT_EQ : _MM_CMPINT_LT;
    constexpr int real = r == Relation::equal       ? _CMP_EQ_OQ
                         : r == Relation::not_equal ? _CMP_NEQ_UQ
                         : r == Relation::less      ? _CMP_LT_OQ
                                                    : _CMP_LE_OQ;
    if constexpr (same<S, u8>) return _mm512_cmp_epu8_mask(a, b, integer);
    if constexpr (same<S, s8>) return _mm512_cmp_epi8_mask(a, b, integer);
    if constexpr (same<S, s16>) return _mm512_cmp_epi16_mask(a, b, integer);
    if constexpr (same<S, s32>) return _mm512_cmp_epi32_mask(a, b, integer);
    if constexpr (same<S, f32>)
        return _mm512_cmp_ps_mask(_mm512_castsi512_ps(a), _mm512_castsi512_ps(b), real);
}

// All bits of those elements of a vector whose bit is set.
template<size_t size> inline __m512i spread_bits(u64 bits) {
    if constexpr (size == 1) return _mm512_movm_epi8(bits);
    if constexpr (size == 2) return _mm512_movm_epi16(static_cast<__mmask32>(bits));
    return _mm512_movm_epi32(static_cast<__mmask16>(bits));
}
template<size_t size> inline __m512i choose(u64 bits, __m512i no, __m512i yes) {
    if constexpr (size == 1) return _mm512_mask_blend_epi8(bits, no, yes);
    if constexpr (size == 2) return _mm512_mask_blend_epi16(static_cast<__mmask32>(bits), no, yes);
    return _mm512_mask_blend_epi32(static_cast<__mmask16>(bits), no, yes);
}

// Vector q of a group's results, from the answers for its elements; flip turns those of a mask round.
template<class D, bool chosen, Access access>
inline void vector_of_results(const Standing &at, size_t i, size_t q, size_t bytes, u64 bits,
                              __m512i flip) {
    __m512i v;
    if constexpr (chosen)
        v = choose<sizeof(D)>(bits, load_vector<access>(at.src[3] + i * sizeof(D), q, bytes),
                              load_vector<access>(at.src[2] + i * sizeof(D), q, bytes));
    else
        v = _mm512_xor_si512(spread_bits<sizeof(D)>(bits), flip);
    store_vector<access>(at.dst + i * sizeof(D), q, bytes, v);
}

// 64 elements from element i on, or the n that are left.
template<Relation r, class D, class S, bool chosen, Access access>
inline void vector_group(const Standing &at, size_t i, size_t n, __m512i flip) {
    const char *a = at.src[0] + i * sizeof(S), *b = at.src[1] + i * sizeof(S);
    auto answers_of = [=](size_t q) {
        return answers<r, S>(load_vector<access>(a, q, n * sizeof(S)),
                             load_vector<access>(b, q, n * sizeof(S)));
    };
    const size_t bytes = n * sizeof(D);
    if constexpr (sizeof(S) == sizeof(D)) {
        for (size_t q = 0; q < sizeof(D); ++q)
            vector_of_results<D, chosen, access>(at, i, q, bytes, answers_of(q), flip);
    } else {
        u64 bits = 0;
        for (size_t q = 0; q < sizeof(S); ++q) bits |= answers_of(q) << q * (64 / sizeof(S)) % 64;
        for (size_t q = 0; q < sizeof(D); ++q)
            vector_of_results<D, chosen, access>(at, i, q, bytes, bits >> q * (64 / sizeof(D)) % 64,
                                                 flip);
    }
}

template<Relation r, class D, class S, bool chosen, Access access>
inline void vector_blocks(Standing &at, size_t blocks, __m512i flip) {
    for (; blocks > 0; --blocks) {
        prefetch<D, S>(at, access == Access::streamed);
        for (size_t i = 0; i < pattern_length; i += 64)
            vector_group<r, D, S, chosen, access>(at, i, 64, flip);
        at.advance<D, chosen>();
    }
}

template<Relation r, class D, class S, bool chosen> inline void in_vectors(const Run &run) {
    Standing at = standing_of<D, S, chosen>(run);
    const bool opposite = static_cast<const CompareRow *>(run.params)->opposite;
    const __m512i flip = _mm512_set1_epi64(-static_cast<s64>(opposite));
    const size_t blocks = run.n / pattern_length, rest = run.n % pattern_length;
    if (run.writing == Writing::streamed)
        vector_blocks<r, D, S, chosen, Access::streamed>(at, blocks, flip);
    else
        vector_blocks<r, D, S, chosen, Access::whole>(at, blocks, flip);
    size_t i = 0;
    for (; i + 64 <= rest; i += 64) vector_group<r, D, S, chosen, Access::whole>(at, i, 64, flip);
    if (i < rest) vector_group<r, D, S, chosen, Access::part>(at, i, rest - i, flip);
}

} // namespace kipx::KIPX_SET

#endif
