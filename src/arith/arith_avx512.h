// arith/arith_avx512.h - loops of 512-bit intrinsics, where they beat the compiled ones. For row
// files only.
//
// Gives    quotients of bytes by table reciprocals, truncated and rounded; quotients of s16 by
//          refined reciprocals; scaled sums, differences and products of bytes in bytes and words;
//          the same of s16 in exact 32-bit pairs.
// Promises the results of arith_values.h for every input, whatever a processor's reciprocal
//          approximation gives within its documented error. What is computed for a divisor of 0 is
//          used only by the rounded quotient.
#pragma once

#include "arith/arith_values.h"

#if defined(__AVX512VBMI__)

namespace kipx::KIPX_SET {

// Calls lanes(a, b) -> __m512i on 64 bytes at a time of rows of T; what is past the end is 0.
template<class T, class Lanes>
inline void row_of_vectors(void *dst, const void *a, const void *b, size_t n, bool streamed,
                           Lanes lanes) {
    char *to = static_cast<char *>(dst);
    const char *x = static_cast<const char *>(a), *y = static_cast<const char *>(b);
    size_t bytes = n * sizeof(T), i = 0;
    for (; bytes - i >= 64; i += 64) {
        __m512i out = lanes(_mm512_loadu_si512(x + i), _mm512_loadu_si512(y + i));
        if (streamed)
            _mm512_stream_si512(reinterpret_cast<__m512i *>(to + i), out);
        else
            _mm512_storeu_si512(to + i, out);
    }
    if (i < bytes) {
        __mmask64 rest = _cvtu64_mask64(~UINT64_C(0) >> (64 - (bytes - i)));
        __m512i out =
            lanes(_mm512_maskz_loadu_epi8(rest, x + i), _mm512_maskz_loadu_epi8(rest, y + i));
        _mm512_mask_storeu_epi8(to + i, rest, out);
    }
}

// ---- quotients of bytes ----

// 65536 / b rounded down, in 16 bits. (256 a + 255) times that, shifted right by 24, is a / b
// rounded down: the last byte lifts exact quotients by 255 / 256 of what is missing to the next
// one, more than the reciprocal's rounding takes away.
struct ReciprocalTable {
    u8 low[256], high[256];
};
constexpr ReciprocalTable make_reciprocals() {
    ReciprocalTable table{};
    for (u32 b = 1; b < 256; ++b) {
        u32 reciprocal = b == 1 ? 65535 : 65536 / b;
        table.low[b] = static_cast<u8>(reciprocal),
        table.high[b] = static_cast<u8>(reciprocal >> 8);
    }
    return table;
}

// 256 bytes in four registers.
struct ByteTable {
    __m512i part[4];
    explicit ByteTable(const u8 *bytes) {
        for (size_t i = 0; i < 4; ++i) part[i] = _mm512_load_si512(bytes + 64 * i);
    }
    __m512i operator[](__m512i index) const {
        __m512i low = _mm512_permutex2var_epi8(part[0], index, part[1]);
        __m512i high = _mm512_permutex2var_epi8(part[2], index, part[3]);
        return _mm512_mask_blend_epi8(_mm512_movepi8_mask(index), low, high);
    }
};

class ByteQuotient {
public:
    // Even quotients in the low bytes of words (high bytes 0), odd ones in the high bytes of words
    // (low bytes 0).
    struct Pair {
        __m512i even, odd;
    };

    ByteQuotient() : low_(table.low), high_(table.high) {}

    Pair operator()(__m512i a, __m512i b) const {
        const __m512i byte = _mm512_set1_epi16(255);
        __m512i low = low_[b], high = high_[b];
        __m512i even = _mm512_or_si512(_mm512_and_si512(low, byte), _mm512_slli_epi16(high, 8));
        __m512i odd = _mm512_or_si512(_mm512_srli_epi16(low, 8), _mm512_andnot_si512(byte, high));
        __m512i raised_even = _mm512_or_si512(_mm512_slli_epi16(a, 8), byte);
        __m512i raised_odd = _mm512_or_si512(a, byte);
        return {_mm512_srli_epi16(_mm512_mulhi_epu16(raised_even, even), 8),
                _mm512_andnot_si512(byte, _mm512_mulhi_epu16(raised_odd, odd))};
    }

private:
    alignas(64) static constexpr ReciprocalTable table = make_reciprocals();
    ByteTable low_, high_;
};

inline void row_of_byte_quotients(void *dst, const void *a, const void *b, size_t n,
                                  bool streamed) {
    const ByteQuotient quotient;
    row_of_vectors<u8>(dst, a, b, n, streamed, [&](__m512i x, __m512i y) {
        ByteQuotient::Pair q = quotient(x, y);
        return _mm512_or_si512(q.even, q.odd);
    });
}

// One more where twice the remainder exceeds the divisor, or equals it and the quotient is odd; 0
// where the divisor is 0. All in words.
inline __m512i rounded_words(__m512i quotient, __m512i a, __m512i b) {
    const __m512i one = _mm512_set1_epi16(1);
    __m512i rest = _mm512_sub_epi16(a, _mm512_mullo_epi16(quotient, b));
    __m512i twice = _mm512_add_epi16(_mm512_add_epi16(rest, rest), _mm512_and_si512(quotient, one));
    __mmask32 up = _mm512_cmpgt_epu16_mask(twice, b), some = _mm512_test_epi16_mask(b, b);
    return _mm512_maskz_mov_epi16(some, _mm512_mask_add_epi16(quotient, up, quotient, one));
}

inline void row_of_rounded_bytes(void *dst, const void *a, const void *b, size_t n, bool streamed) {
    const ByteQuotient quotient;
    const __m512i low = _mm512_set1_epi16(255);
    row_of_vectors<u8>(dst, a, b, n, streamed, [&](__m512i x, __m512i y) {
        ByteQuotient::Pair q = quotient(x, y);
        __m512i even = rounded_words(q.even, _mm512_and_si512(x, low), _mm512_and_si512(y, low));
        __m512i odd = rounded_words(_mm512_srli_epi16(q.odd, 8), _mm512_srli_epi16(x, 8),
                                    _mm512_srli_epi16(y, 8));
        return _mm512_or_si512(even, _mm512_slli_epi16(odd, 8));
    });
}

// ---- scaled bytes ----

// Products times 2^-k, k from 2 to 9. The sum of the product, half a unit less one, and one more where
// the quotient is odd is halved by an average that rounds up, and shifted on; packing saturates.
inline void row_of_scaled_byte_products(void *dst, const void *a, const void *b, size_t n, u32 k,
                                        bool streamed) {
    const __m512i low = _mm512_set1_epi16(255), odd = _mm512_set1_epi16(1);
    const __m512i bias = _mm512_set1_epi16(static_cast<s16>((1 << (k - 1)) - 2));
    const __m512i whole = _mm512_set1_epi16(static_cast<s16>(k)),
                  rest = _mm512_set1_epi16(static_cast<s16>(k - 1));
    const __m512i places =
        _mm512_broadcast_i32x4(_mm_setr_epi8(0, 8, 1, 9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15));
    auto scaled = [=](__m512i r) {
        // (r >> k) & 1, or bias
        __m512i more = _mm512_ternarylogic_epi32(_mm512_srlv_epi16(r, whole), odd, bias, 0xea);
        return _mm512_srlv_epi16(_mm512_avg_epu16(r, more), rest);
    };
    row_of_vectors<u8>(dst, a, b, n, streamed, [=](__m512i x, __m512i y) {
        __m512i even = _mm512_mullo_epi16(_mm512_and_si512(x, low), _mm512_and_si512(y, low));
        __m512i high = _mm512_mulhi_epu16(_mm512_andnot_si512(low, x), _mm512_andnot_si512(low, y));
        return _mm512_shuffle_epi8(_mm512_packus_epi16(scaled(even), scaled(high)), places);
    });
}

// Sums times 2^-k, k from 2 to 8, in bytes: with m the mean rounded down and p the half that it lost,
// the result is (m + 2^(k-2) - 1 + (p | bit k-1 of m)) >> (k - 1). A difference below zero is stored as
// zero, and one above is the sum with zero.
template<class Op>
inline void row_of_scaled_byte_sums(void *dst, const void *a, const void *b, size_t n, u32 k,
                                    bool streamed) {
    const __m512i one = _mm512_set1_epi8(1);
    const __m512i bias = _mm512_set1_epi8(static_cast<char>(k > 2 ? (1 << (k - 2)) - 2 : 0));
    const __m512i kept = _mm512_set1_epi8(static_cast<char>(0xff >> (k - 2)));
    const __m128i to_odd = _mm_cvtsi32_si128(static_cast<int>(k - 1)),
                  rest = _mm_cvtsi32_si128(static_cast<int>(k - 2));
    const bool halves = k == 2;
    row_of_vectors<u8>(dst, a, b, n, streamed, [=](__m512i x, __m512i y) {
        static_assert(Op::form != Form::other);
        if constexpr (Op::form != Form::sum) {
            constexpr bool reversed = Op::form == Form::reversed_difference;
            x = reversed ? _mm512_subs_epu8(y, x) : _mm512_subs_epu8(x, y);
            y = _mm512_setzero_si512();
        }
        __m512i differ = _mm512_xor_si512(x, y);
        __m512i mean = _mm512_sub_epi8(_mm512_avg_epu8(x, y), _mm512_and_si512(differ, one));
        // Bits of the neighbouring byte come into the high bits only.
        __m512i odd = _mm512_ternarylogic_epi32(differ, _mm512_srl_epi16(mean, to_odd), one, 0xa8);
        if (halves) {
            __m512i uneven = _mm512_and_si512(_mm512_xor_si512(mean, odd), one);
            return _mm512_sub_epi8(_mm512_avg_epu8(mean, odd), uneven);
        }
        __m512i half = _mm512_avg_epu8(mean, _mm512_or_si512(odd, bias));
        return _mm512_and_si512(_mm512_srl_epi16(half, rest), kept);
    });
}

// ---- s16 as pairs of exact 32-bit numbers ----

// Even and odd words of 32-bit lanes, saturated, back in their places.
inline __m512i joined_words(__m512i even, __m512i odd) {
    const __m512i places =
        _mm512_broadcast_i32x4(_mm_setr_epi8(0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15));
    return _mm512_shuffle_epi8(_mm512_packs_epi32(even, odd), places);
}

inline __m512i even_words(__m512i x) { return _mm512_srai_epi32(_mm512_slli_epi32(x, 16), 16); }
inline __m512i odd_words(__m512i x) { return _mm512_srai_epi32(x, 16); }

template<class Op>
inline void row_of_scaled_words(void *dst, const void *a, const void *b, size_t n, f32 factor,
                                bool streamed) {
    const __m512 times = _mm512_set1_ps(factor);
    auto scaled = [=](__m512i r) {
        return _mm512_cvtps_epi32(_mm512_mul_ps(_mm512_cvtepi32_ps(r), times));
    };
    row_of_vectors<s16>(dst, a, b, n, streamed, [=](__m512i x, __m512i y) {
        if constexpr (Op::kind == Kind::product) {
            const __m512i low = _mm512_set1_epi32(0xffff);
            return joined_words(scaled(_mm512_madd_epi16(_mm512_and_si512(x, low), y)),
                                scaled(_mm512_madd_epi16(_mm512_andnot_si512(low, x), y)));
        } else {
            typedef s32 Pairs __attribute__((vector_size(64)));
            Pairs even = Op::of((Pairs)even_words(x), (Pairs)even_words(y));
            Pairs odd = Op::of((Pairs)odd_words(x), (Pairs)odd_words(y));
            return joined_words(scaled((__m512i)even), scaled((__m512i)odd));
        }
    });
}

// x times a reciprocal of y that is off by less than 2^-21, raised by 2^-20: never below an exact
// quotient, and never up to the next integer, which is at least 2^-16 away.
inline __m512i truncated_pairs(__m512i x, __m512i y) {
    __m512 divisor = _mm512_cvtepi32_ps(y);
    __m512 guess = _mm512_rcp14_ps(divisor);
    __m512 error = _mm512_sub_ps(_mm512_set1_ps(2.0f), _mm512_mul_ps(divisor, guess));
    __m512 quotient = _mm512_mul_ps(_mm512_cvtepi32_ps(x), _mm512_mul_ps(guess, error));
    return _mm512_cvttps_epi32(_mm512_mul_ps(quotient, _mm512_set1_ps(1.0f + 0x1p-20f)));
}

inline void row_of_word_quotients(void *dst, const void *a, const void *b, size_t n,
                                  bool streamed) {
    row_of_vectors<s16>(dst, a, b, n, streamed, [=](__m512i x, __m512i y) {
        return joined_words(truncated_pairs(even_words(x), even_words(y)),
                            truncated_pairs(odd_words(x), odd_words(y)));
    });
}

} // namespace kipx::KIPX_SET

#endif
