// filter/box_bytes.h - the mean of bytes over rectangles of up to 257 rows: sums down the columns have 16
// bits. For row files only.
#pragma once

#include "filter/box_columns.h"

namespace kipx::KIPX_SET {

inline Vector<u16> high_half_of_product(Vector<u16> a, Vector<u16> b) {
#if defined(__AVX512BW__)
    return reinterpret_cast<Vector<u16>>(
        _mm512_mulhi_epu16(reinterpret_cast<__m512i>(a), reinterpret_cast<__m512i>(b)));
#elif defined(__AVX2__)
    return reinterpret_cast<Vector<u16>>(
        _mm256_mulhi_epu16(reinterpret_cast<__m256i>(a), reinterpret_cast<__m256i>(b)));
#elif defined(__SSE2__)
    return reinterpret_cast<Vector<u16>>(
        _mm_mulhi_epu16(reinterpret_cast<__m128i>(a), reinterpret_cast<__m128i>(b)));
#else
    Vector<u16> high;
    for (size_t i = 0; i < vector_bytes / sizeof(u16); ++i)
        high[i] = static_cast<u16>(u32{a[i]} * b[i] >> 16);
    return high;
#endif
}

template<class S> class ByteMean;

// For counts below 256 by a reciprocal f of 16 bits, rounded upwards: f * count = 2^k + e. Of
// t = sum + count / 2 the quotient is t * f >> k: of a multiple of the count it is large enough, and of
// the integer below, q * count - 1 with q up to 255, it is too large only if q * e * count >= 2^k + e.
template<> class ByteMean<u16> {
public:
    explicit ByteMean(u64 positions) : shift_(0), exact_(positions > 1 && positions < 256) {
        const u32 count = exact_ ? static_cast<u32>(positions) : 2;
        while (u32{2} << shift_ < count) ++shift_;
        const u32 power = u32{65536} << shift_, f = (power + count - 1) / count,
                  e = f * count - power;
        exact_ &= 255 * e * count < power + e;
        auto everywhere = [](u32 value) { return Vector<u16>{} + static_cast<u16>(value); };
        start_ = static_cast<u16>(count / 2), factor_ = everywhere(f), count_ = everywhere(count);
        even_ = everywhere(1 - count % 2);
    }
    bool exact() const { return exact_; }
    static constexpr size_t vectors = 1;
    u16 start() const { return start_; }
    void put(const ResultRow &row, size_t x, const Vector<u16> (&sums)[1]) const {
        const Vector<u16> t = sums[0], q = high_half_of_product(t, factor_) >> shift_;
        const Vector<u16> tie = q * count_ == t ? q & even_ : Vector<u16>{};
        row.put(x, __builtin_convertvector(q - tie, Bytes<u16>));
    }

private:
    Vector<u16> factor_, count_, even_;
    u16 start_;
    int shift_;
    bool exact_;
};

// The quotient of t = sum + count / 2, q at most 255, by a reciprocal r in binary32 that is rounded
// upwards: of t = q * count the product is q at least. Of the integer below it is less than q: it is off by
// less than 3 * 2^-24 of at most 256, and a count of most_positions or less keeps it 1 / count away.
template<> class ByteMean<u32> {
public:
    static constexpr u64 most_positions = (u64{1} << 24) / (3 * 256);
    explicit ByteMean(u64 positions)
        : start_(static_cast<u32>(positions / 2)), even_(positions % 2 == 0) {
        const f64 exact = 1.0 / static_cast<f64>(positions);
        auto r = static_cast<f32>(exact);
        if (r < exact) r += r * 0x1p-24f;
        reciprocal_ = Vector<f32>{} + r, count_ = Vector<f32>{} + static_cast<f32>(positions);
    }
    static constexpr size_t vectors = 1;
    u32 start() const { return start_; }
    [[gnu::always_inline]] Vector<s32> quotients(Vector<s32> sums) const {
        const Vector<f32> t = __builtin_convertvector(sums, Vector<f32>);
        Vector<s32> q = __builtin_convertvector(t * reciprocal_, Vector<s32>);
        if (even_) {
            const Vector<s32> tie = __builtin_convertvector(q, Vector<f32>) * count_ == t;
            q -= tie & q & 1;
        }
        return q;
    }
    void put(const ResultRow &row, size_t x, const Vector<u32> (&sums)[1]) const {
        row.put(x, __builtin_convertvector(quotients(reinterpret_cast<Vector<s32>>(sums[0])),
                                           Bytes<u32>));
    }

private:
    Vector<f32> reciprocal_, count_;
    u32 start_;
    bool even_;
};

#if defined(__AVX512BW__)
// Of one channel and columns whose changes have 16 bits: pairs of changes at once. A pair's sum is that of
// the window at its second place; of the one at its first, the second change is taken away.
inline void many_columns_by_pairs(const BoxDown &b, const ColumnSums<u16> &sums,
                                  const ByteMean<u32> &given, const ResultRow &row) {
    const ByteMean<u32> mean = given;
    Below below[4];
    for (size_t m = 0; m < 4; ++m) below[m].set(size_t{1} << m);
    const __m512i ones = _mm512_set1_epi16(1), place = _mm512_set1_epi32(15);
    __m512i sum = _mm512_set1_epi32(static_cast<int>(mean.start() + sum_before(b, sums, 0)));
    const u16 *const out = sums.full - 1, *const in = sums.full + b.width - 1;
    for (size_t x = 0; x < b.n; x += 32) {
        const __m512i carry = _mm512_permutexvar_epi32(place, sum);
        const __m512i change =
            _mm512_sub_epi16(_mm512_loadu_si512(in + x), _mm512_loadu_si512(out + x));
        sum = _mm512_madd_epi16(change, ones);
        for (const Below &m : below) sum = m.added(sum);
        sum = _mm512_add_epi32(sum, carry);
        const __m512i first = _mm512_sub_epi32(sum, _mm512_srai_epi32(change, 16));
        const Vector<s32> means = mean.quotients(reinterpret_cast<Vector<s32>>(first)) |
                                  mean.quotients(reinterpret_cast<Vector<s32>>(sum)) << 8;
        row.put(x, _mm512_cvtepi32_epi16(reinterpret_cast<__m512i>(means)));
    }
}
#else
inline void many_columns_by_pairs(const BoxDown &b, const ColumnSums<u16> &sums,
                                  const ByteMean<u32> &mean, const ResultRow &row) {
    many_columns(b, sums, mean, row);
}
#endif

inline void down_bytes(const BoxDown &b) {
    constexpr size_t changes_of_16_bits = 128;
    if (b.width <= few)
        if (const ByteMean<u16> mean(b.count); mean.exact())
            return each_row_of_means<u8, u16>(b, [&](const ResultRow &row, const auto &sums) {
                sums_of_few(b, sums, mean, row);
            });
    const ByteMean<u32> mean(b.count);
    const bool pairs = b.step == 1 && b.height <= changes_of_16_bits;
    each_row_of_means<u8, u16>(b, [&](const ResultRow &row, const auto &sums) {
        if (pairs)
            many_columns_by_pairs(b, sums, mean, row);
        else
            many_columns(b, sums, mean, row);
    });
}

} // namespace kipx::KIPX_SET
