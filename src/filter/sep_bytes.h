// filter/sep_bytes.h - weighted sums of bytes that smooth: weights of 0 and more, mirrored, of one in
// all at most. For row files only.
//
// Down the columns first, from the outermost pair of rows, which is added in 16 bits, to the middle one;
// then along the row likewise. Even and odd elements go their own ways, since a 32-bit lane holds one of
// each: no element has to change its lane until the results are put together.
//
// Sums are formed in binary32, in units of 2^-16. Those that could lie on either side of a tie, the
// margin being twice what they may be off, are made again in binary64.
#pragma once

#include "filter/bytes.h"
#include "filter/sep_rows.h"

namespace kipx::KIPX_SET {

// sum + a * w; it may be rounded once or twice.
inline Vector<f32> plus_some(Vector<f32> sum, Vector<f32> a, f32 w) {
#if defined(__AVX512F__)
    return reinterpret_cast<Vector<f32>>(_mm512_fmadd_ps(
        reinterpret_cast<__m512>(a), _mm512_set1_ps(w), reinterpret_cast<__m512>(sum)));
#else
    return sum + a * w;
#endif
}

// A pair of places of the sums down the columns, for even and for odd results, and its weight; of the
// middle the first place only.
struct SmoothTap {
    const f32 *even[2], *odd[2];
    f32 weight;
};
static_assert(sizeof(SmoothTap) + sizeof(f32) <= 2 * sep_tap_bytes);

// Where the work on a call lies in its scratch: weights of rows and taps along the row, each from the
// outermost to the middle, then the even and the odd sums down the columns.
struct Smoothing {
    static constexpr size_t lanes = vector_bytes / sizeof(f32);
    SmoothTap *taps;
    f32 *rows, *even, *odd;
    explicit Smoothing(const SepDown &s)
        : taps(reinterpret_cast<SmoothTap *>(s.scratch)),
          rows(reinterpret_cast<f32 *>(taps + s.width / 2 + 1)),
          even(reinterpret_cast<f32 *>(s.scratch + s.weights_size)), odd(even + blocks(s) * lanes) {
        for (size_t i = 0; i <= s.height / 2; ++i) rows[i] = static_cast<f32>(s.weights[i]);
        for (size_t i = 0; i <= s.width / 2; ++i) {
            SmoothTap &tap = taps[i];
            const size_t place[2] = {i * s.pixel, (s.width - 1 - i) * s.pixel};
            for (size_t k = 0; k < 2; ++k) {
                const f32 *const e = even + place[k] / 2, *const o = odd + place[k] / 2;
                const bool crosses = place[k] % 2 != 0;
                tap.even[k] = crosses ? o : e, tap.odd[k] = crosses ? e + 1 : o;
            }
            tap.weight = static_cast<f32>(s.column_weights[i] * 65536);
        }
    }
    // Of two vectors of sums, and one for what lies behind.
    static size_t blocks(const SepDown &s) {
        return (s.n + (s.width - 1) * s.pixel) / (2 * lanes) + 2;
    }
};

// pairs: how many, where that is known, else 0.
template<size_t pairs> void smooth_columns(const SepDown &s, const Smoothing &to, size_t g) {
    const char *const *const rows = s.rows + g;
    const size_t count = pairs ? pairs : s.height / 2, blocks = Smoothing::blocks(s);
    for (size_t i = 0; i < blocks; ++i) {
        const size_t x = i * 2 * Smoothing::lanes;
        Vector<f32> even{}, odd{};
        auto add = [&](Vector<u16> v, f32 w) {
            const auto both = reinterpret_cast<Vector<u32>>(v);
            auto real = [](Vector<u32> u) {
                return __builtin_convertvector(reinterpret_cast<Vector<s32>>(u), Vector<f32>);
            };
            even = plus_some(even, real(both & 0xffff), w);
            odd = plus_some(odd, real(both >> 16), w);
        };
#pragma GCC unroll 4
        for (size_t m = 0; m < count; ++m)
            add(widened(rows[m], x) + widened(rows[s.height - 1 - m], x), to.rows[m]);
        add(widened(rows[count], x), to.rows[count]);
        memcpy(to.even + i * Smoothing::lanes, &even, sizeof even);
        memcpy(to.odd + i * Smoothing::lanes, &odd, sizeof odd);
    }
}

// Two vectors of sums, of even and of odd elements: in 2^-16, rounding and margin added, cut off.
struct SmoothSums {
    Vector<s32> even, odd;
    // Whether a sum may lie on either side of a tie; mask: the bits of the fraction above the margin.
    bool near_ties(s32 mask) const {
#if defined(__AVX512F__)
        const __m512i bits = _mm512_set1_epi32(mask);
        return (_mm512_testn_epi32_mask(reinterpret_cast<__m512i>(even), bits) |
                _mm512_testn_epi32_mask(reinterpret_cast<__m512i>(odd), bits)) != 0;
#else
        const Vector<s32> near = ((even & mask) == 0) | ((odd & mask) == 0);
        u64 part[vector_bytes / 8], all = 0;
        memcpy(part, &near, sizeof near);
        for (u64 p : part) all |= p;
        return all != 0;
#endif
    }
    auto bytes() const {
#if defined(__AVX512VBMI__)
        alignas(64) u8 place[64] = {};
        for (u8 i = 0; i < 32; ++i) place[i] = static_cast<u8>(i % 2 * 64 + i / 2 * 4 + 2);
        return _mm512_castsi512_si256(_mm512_permutex2var_epi8(reinterpret_cast<__m512i>(even),
                                                               _mm512_load_si512(place),
                                                               reinterpret_cast<__m512i>(odd)));
#else
        typedef u16 Words __attribute__((vector_size(vector_bytes / 2)));
        return __builtin_convertvector(even >> 16 | (odd >> 8 & 0xff00), Words);
#endif
    }
};

// again (x) gives element x of the row in another way.
template<size_t pairs, class Again>
void smooth_row(const SepDown &s, const Smoothing &from, const RowOfBytes &row,
                const Again &again) {
    const size_t count = pairs ? pairs : s.width / 2;
    const auto unit = static_cast<s32>(s.margin); // a power of two
    const s32 mask = 0xffff & ~(2 * unit - 1);
    const Vector<f32> rounding = Vector<f32>{} + static_cast<f32>(0x8000 + unit);
    SmoothTap few[pairs + 1];
    const SmoothTap *const taps = pairs ? few : from.taps;
    if (pairs) memcpy(few, from.taps, sizeof few);
    for (size_t x = 0; x < row.n; x += 2 * Smoothing::lanes) {
        const size_t j = x / 2;
        Vector<f32> even = rounding, odd = rounding;
#pragma GCC unroll 4
        for (size_t m = 0; m < count; ++m) {
            const SmoothTap &t = taps[m];
            even = plus_some(even, load_vector<f32>(t.even[0], j) + load_vector<f32>(t.even[1], j),
                             t.weight);
            odd = plus_some(odd, load_vector<f32>(t.odd[0], j) + load_vector<f32>(t.odd[1], j),
                            t.weight);
        }
        const SmoothTap &middle = taps[count];
        even = plus_some(even, load_vector<f32>(middle.even[0], j), middle.weight);
        odd = plus_some(odd, load_vector<f32>(middle.odd[0], j), middle.weight);
        const SmoothSums sums{__builtin_convertvector(even, Vector<s32>),
                              __builtin_convertvector(odd, Vector<s32>)};
        row.put(x, sums.bytes());
        if (!sums.near_ties(mask)) continue;
        s32 value[2][Smoothing::lanes];
        memcpy(value[0], &sums.even, sizeof sums.even);
        memcpy(value[1], &sums.odd, sizeof sums.odd);
        for (size_t i = 0; i < 2 * Smoothing::lanes && x + i < row.n; ++i)
            if ((value[i % 2][i / 2] & mask) == 0) store(row.to, x + i, again(x + i));
    }
}

// f (pairs), few ones by their number.
template<class F> void with_pairs(size_t n, const F &f) {
    switch (n / 2) {
    case 1:
        return f.template operator()<1>();
    case 2:
        return f.template operator()<2>();
    case 3:
        return f.template operator()<3>();
    default:
        return f.template operator()<0>();
    }
}

// again (s, g, x) gives element x of result row g in another way.
template<class Again> void smooth(const SepDown &s, const Again &again) {
    const Smoothing smoothing(s);
    for (size_t g = 0; g < s.group; ++g) {
        with_pairs(s.height, [&]<size_t pairs>() { smooth_columns<pairs>(s, smoothing, g); });
        with_pairs(s.width, [&]<size_t pairs>() {
            smooth_row<pairs>(s, smoothing,
                              RowOfBytes{s.out + static_cast<ptrdiff_t>(g) * s.step, s.n},
                              [&](size_t x) { return again(s, g, x); });
        });
    }
}

} // namespace kipx::KIPX_SET
