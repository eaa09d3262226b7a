// filter/box_shorts.h - the mean of 16-bit integers over rectangles. For row files only.
#pragma once

#include "filter/box_columns.h"
#include "filter/vectors.h"

namespace kipx::KIPX_SET {

// The low halves of a, then those of b, all of them from -2^15 to 2^15 - 1.
inline Vector<s16> narrowed(Vector<s32> a, Vector<s32> b) {
#if defined(__AVX512BW__)
    const __m512i pairs =
        _mm512_packs_epi32(reinterpret_cast<__m512i>(a), reinterpret_cast<__m512i>(b));
    return reinterpret_cast<Vector<s16>>(
        _mm512_permutexvar_epi64(_mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7), pairs));
#elif defined(__AVX2__)
    const __m256i pairs =
        _mm256_packs_epi32(reinterpret_cast<__m256i>(a), reinterpret_cast<__m256i>(b));
    return reinterpret_cast<Vector<s16>>(_mm256_permute4x64_epi64(pairs, 0xd8));
#elif defined(__SSE2__)
    return reinterpret_cast<Vector<s16>>(
        _mm_packs_epi32(reinterpret_cast<__m128i>(a), reinterpret_cast<__m128i>(b)));
#else
    constexpr size_t n = lanes_of<s32>;
    Vector<s16> both;
    for (size_t i = 0; i < n; ++i)
        both[i] = static_cast<s16>(a[i]), both[n + i] = static_cast<s16>(b[i]);
    return both;
#endif
}

// Elements count from the lowest of their type, so that sums are not negative: q, the quotient of
// t = sum + count / 2, is at most 65535, t below 65536 * count. A Quotient gives q or, of a tie that ends
// odd, one more than is wanted.

// For few positions in binary32, which holds t: of a reciprocal r, rounded upwards, t * r is q at least. It
// is off by less than 65536 * 3 * 2^-24, and from q + 1 it keeps away by 1 / count, which is more.
class ShortQuotient {
public:
    static constexpr u64 most_positions = (u64{1} << 24) / (3 * 65536);
    explicit ShortQuotient(u64 positions) {
        const f64 exact = 1.0 / static_cast<f64>(positions);
        auto r = static_cast<f32>(exact);
        if (r < exact) r += r * 0x1p-24f;
        reciprocal_ = r;
    }
    [[gnu::always_inline]] Vector<u32> operator()(Vector<u32> t) const {
        const Vector<f32> exact =
            __builtin_convertvector(reinterpret_cast<Vector<s32>>(t), Vector<f32>);
        return reinterpret_cast<Vector<u32>>(
            __builtin_convertvector(exact * reciprocal_, Vector<s32>));
    }

private:
    f32 reciprocal_;
};

// For t below 2^31 in binary64, of even and odd lanes apart: r is rounded upwards by less than 2^-51 of
// itself. t * r, rounded to nearest, is q at least, and exceeds t / count by less than
// 65536 * 5 * 2^-53 < 2^-34. t / count lies from q to q + 1 - 1 / count, and 1 / count is 2^-15 at least; so
// what is a half less and 2^-17 more lies above q - 1/2 and below q + 1/2, and is rounded to q.
class LongQuotient {
public:
    static constexpr u64 most_positions = u64{1} << 15;
    explicit LongQuotient(u64 positions)
        : reciprocal_(1.0 / static_cast<f64>(positions) * (1 + 0x1p-52)) {}
    [[gnu::always_inline]] Vector<u32> operator()(Vector<u32> t) const {
        const auto two = reinterpret_cast<Vector<u64>>(t);
        const Vector<u64> even = of(two & 0xffffffff), odd = of(two >> 32);
        return reinterpret_cast<Vector<u32>>((even & 0xffffffff) | odd << 32);
    }

private:
    // q in the low half.
    [[gnu::always_inline]] Vector<u64> of(Vector<u64> t) const {
        constexpr u64 high = 0x4330000000000000; // the high bits of 2^52
        const Vector<f64> exact = reinterpret_cast<Vector<f64>>(t | high) - 0x1p52;
        return reinterpret_cast<Vector<u64>>(exact * reciprocal_ - (0.5 - 0x1p-17) + 0x1.8p52);
    }
    f64 reciprocal_;
};

template<class T, class Quotient> class ShortMean {
public:
    static constexpr size_t vectors = 2;
    explicit ShortMean(u64 positions) : count_(static_cast<u32>(positions)), quotient_(positions) {}
    u32 start() const { return (signed_type ? 32768 * count_ : 0) + count_ / 2; }
    [[gnu::always_inline]] void put(const ResultRow &row, size_t x,
                                    const Vector<u32> (&sums)[2]) const {
        const auto some = reinterpret_cast<Vector<u16>>(narrowed(mean(sums[0]), mean(sums[1])));
        row.put(x * sizeof(T), signed_type ? some : some ^ 0x8000);
    }

private:
    static constexpr bool signed_type = T(-1) < T(0);
    [[gnu::always_inline]] Vector<s32> mean(Vector<u32> t) const {
        Vector<u32> q = quotient_(t);
        if (count_ % 2 == 0) q -= reinterpret_cast<Vector<u32>>(q * count_ == t) & q & 1;
        return reinterpret_cast<Vector<s32>>(q) - 32768;
    }
    u32 count_;
    Quotient quotient_;
};

template<class T, class Quotient> void down_shorts(const BoxDown &b) {
    const ShortMean<T, Quotient> mean(b.count);
    each_row_of_means<T, u32>(b, [&](const ResultRow &row, const auto &sums) {
        if (b.width <= few)
            sums_of_few(b, sums, mean, row);
        else
            many_columns(b, sums, mean, row);
    });
}

} // namespace kipx::KIPX_SET
