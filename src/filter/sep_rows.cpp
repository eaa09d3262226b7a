// filter/sep_rows.cpp - the row loops of separable filters, compiled once per instruction set.
//
// Promises every set gives the same bits: sums go from their first term to the last.
#include "filter/sep_rows.h"
#include "core/element.h"
#include "filter/bytes.h"
#include "filter/gather.h"
#include "filter/sep_bytes.h"

namespace kipx::KIPX_SET {
namespace {

// Vectors that are summed together, and elements of them.
constexpr size_t vectors = 4;
template<class A> constexpr size_t block = vectors *vector_bytes / sizeof(A);

// sum + a * w. fused: it may be rounded once, since what comes of it does not depend on that.
template<bool fused, class A> inline Vector<A> plus_product(Vector<A> sum, Vector<A> a, A w) {
#if defined(__AVX512F__)
    if constexpr (fused && same<A, f32>)
        return reinterpret_cast<Vector<A>>(_mm512_fmadd_ps(
            reinterpret_cast<__m512>(a), _mm512_set1_ps(w), reinterpret_cast<__m512>(sum)));
#endif
    return sum + a * w;
}

template<class A> struct Block { Vector<A> of[vectors]; };

// Weights of the sums' own type; taps: how many, where that is known, else 0.
template<class A, size_t taps> struct Weights {
    A own[taps ? taps : 1];
    const f64 *given;
    size_t count;
    Weights(const f64 *weights, size_t n) : given(weights), count(taps ? taps : n) {
        for (size_t k = 0; k < taps; ++k) own[k] = static_cast<A>(weights[k]);
    }
    A operator[](size_t k) const { return taps ? own[k] : static_cast<A>(given[k]); }
};
// f (weights), short ones by their number.
template<class A, class F> void with_weights(const f64 *weights, size_t n, const F &f) {
    switch (n) {
    case 3:
        return f(Weights<A, 3>(weights, n));
    case 5:
        return f(Weights<A, 5>(weights, n));
    default:
        return f(Weights<A, 0>(weights, n));
    }
}

// The weighted sum over k of what lies at (k), for a block of elements.
template<bool fused, class A, size_t taps, class At>
[[gnu::always_inline]] inline Block<A> sum_block(const Weights<A, taps> &weights, const At &at) {
    constexpr size_t lanes = vector_bytes / sizeof(A);
    Block<A> sum;
    const A *from = at(0);
    for (size_t j = 0; j < vectors; ++j) sum.of[j] = load_vector<A>(from, j * lanes) * weights[0];
    for (size_t k = 1; k < (taps ? taps : weights.count); ++k) {
        from = at(k);
        const A w = weights[k];
        for (size_t j = 0; j < vectors; ++j)
            sum.of[j] = plus_product<fused, A>(sum.of[j], load_vector<A>(from, j * lanes), w);
    }
    return sum;
}

template<class T, class A> void along(const SepAlong &s) {
    A *const wide = reinterpret_cast<A *>(s.wide);
    const Wanted wanted{s.reach, s.source, s.step};
    // Numbers, and no tiny ones, where blocks run over the end.
    memset(wide + s.n + (s.width - 1) * s.step, 0, sep_block);
    with_weights<A>(s.weights, s.width, [&](const auto &weights) {
        for (size_t y = 0; y < s.band.rows; ++y) {
            char *const out = s.out + static_cast<ptrdiff_t>(y) * s.out_step;
            const char *row = s.band.at + static_cast<ptrdiff_t>(y) * s.band.step;
            gather<T>(wanted, row, wide);
            for (size_t x = 0; x < s.n; x += block<A>) {
                const auto sum = sum_block<same<T, u8>, A>(
                    weights, [&](size_t k) { return wide + x + k * s.step; });
                memcpy(out + x * sizeof(A), &sum, sizeof sum);
            }
            if (s.kept) gather<T>(wanted, row, reinterpret_cast<T *>(out + s.kept));
        }
    });
}

template<class A> const A *row_at(const SepDown &s, size_t i, size_t x) {
    return reinterpret_cast<const A *>(s.rows[i]) + x;
}

template<class T, class A> void put(char *to, const A *sum, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        if constexpr (floating<T>)
            store(to, i, one_nan(static_cast<T>(sum[i])));
        else
            store(to, i, round_saturate<T>(sum[i]));
    }
}

// each (to, sum, g, x, n): a block of sums from element x of result row g on, of which n count.
template<bool fused, class A, class Each>
void each_block_down(const SepDown &s, size_t size, const Each &each) {
    with_weights<A>(s.weights, s.height, [&](const auto &weights) {
        for (size_t g = 0; g < s.group; ++g)
            for (size_t x = 0; x < s.n; x += block<A>) {
                const auto sum =
                    sum_block<fused, A>(weights, [&](size_t k) { return row_at<A>(s, g + k, x); });
                char *const to = s.out + static_cast<ptrdiff_t>(g) * s.step + x * size;
                each(to, sum, g, x, s.n - x < block<A> ? s.n - x : block<A>);
            }
    });
}

template<class T, class A> void down(const SepDown &s) {
    each_block_down<same<T, u8> && same<A, f32>, A>(
        s, sizeof(T), [](char *to, const Block<A> &some, size_t, size_t, size_t n) {
            alignas(64) A sum[block<A>];
            memcpy(sum, &some, sizeof some);
            if (n == block<A>)
                put<T>(to, sum, block<A>);
            else
                put<T>(to, sum, n);
        });
}

// The sum in binary64; at (i, j): the element that weight j of row i takes.
template<class At> u8 exact_sum(const SepDown &s, const At &at) {
    f64 sum = 0;
    for (size_t i = 0; i < s.height; ++i) {
        f64 part = 0;
        for (size_t j = 0; j < s.width; ++j) {
            f64 term = s.column_weights[j] * at(i, j);
            part = j ? part + term : term;
        }
        sum = i ? sum + s.weights[i] * part : s.weights[i] * part;
    }
    return round_saturate<u8>(sum);
}

// Element x of result row g, from the source rows.
u8 made_again(const SepDown &s, size_t g, size_t x) {
    const RowElements &e = s.elements;
    const char *const *const rows = s.rows + g;
    const size_t first = e.before, end = first + e.there;
    const ptrdiff_t from = e.at - static_cast<ptrdiff_t>(first);
    if (x >= first && x + (s.width - 1) * s.pixel < end)
        return exact_sum(
            s, [&](size_t i, size_t j) { return load<u8>(rows[i] + from, x + j * s.pixel); });
    return exact_sum(s, [&](size_t i, size_t j) -> u8 {
        size_t place = x + j * s.pixel;
        if (place < first || place >= end) {
            if (!e.nearest) return 0;
            place = (place < first ? first : end - s.pixel) + place % s.pixel;
        }
        return load<u8>(rows[i] + from, place);
    });
}

bool any(Vector<s32> v) {
#if defined(__AVX512F__)
    const auto bits = reinterpret_cast<__m512i>(v);
    return _mm512_test_epi32_mask(bits, bits) != 0;
#else
    u64 part[vector_bytes / 8], all = 0;
    memcpy(part, &v, sizeof v);
    for (u64 p : part) all |= p;
    return all != 0;
#endif
}

// Bytes of a block of sums, none of them NaN; true where one is as near to a tie as that.
bool round_block(u8 *to, const Block<f32> &sum, f32 margin) {
    constexpr f32 one = 0x1.8p23f;
    constexpr s32 zero = 0x4b400000; // its bits
    constexpr size_t lanes = vector_bytes / sizeof(f32);
    typedef u8 Bytes __attribute__((vector_size(lanes)));
    Vector<s32> near{};
    for (size_t j = 0; j < vectors; ++j) {
        const Vector<f32> rounded = sum.of[j] + one, rest = sum.of[j] - (rounded - one);
        near |= rest > margin || rest < -margin;
        Vector<s32> whole =
            reinterpret_cast<Vector<s32>>(rounded); // ends in 16 zeros and the result
        whole = whole < zero ? (whole & 0) + zero : whole;
        whole = whole > zero + 255 ? (whole & 0) + (zero + 255) : whole;
        const Bytes bytes = __builtin_convertvector(whole, Bytes);
        memcpy(to + j * lanes, &bytes, sizeof bytes);
    }
    return any(near);
}

void down_guarded(const SepDown &s) {
    const f32 margin = static_cast<f32>(0.5 - s.margin);
    auto each = [&](char *to, const Block<f32> &some, size_t g, size_t x, size_t n) {
        u8 bytes[block<f32>];
        const bool near = round_block(bytes, some, margin);
        if (n == block<f32>)
            memcpy(to, bytes, block<f32>);
        else
            memcpy(to, bytes, n);
        if (!near) return;
        f32 sum[block<f32>];
        memcpy(sum, &some, sizeof sum);
        for (size_t i = 0; i < n; ++i) {
            const f32 whole = (sum[i] + 0x1.8p23f) - 0x1.8p23f, rest = sum[i] - whole;
            if (rest > margin || rest < -margin) store(to, i, made_again(s, g, x + i));
        }
    };
    each_block_down<true, f32>(s, 1, each);
}

void down_smooth(const SepDown &s) { smooth(s, made_again); }

template<class T, class A> constexpr SepLoops loops_of() {
    return {along<T, A>, down<T, A>, sizeof(A)};
}

constexpr SepSet make_set() {
    SepSet set{};
    set.loops[KIPX_CODE_u8][sep_plain] = loops_of<u8, f64>();
    set.loops[KIPX_CODE_u8][sep_short] = loops_of<u8, f32>();
    set.loops[KIPX_CODE_u8][sep_guarded] = {along<u8, f32>, down_guarded, sizeof(f32)};
    set.loops[KIPX_CODE_u8][sep_smooth] = {copy_rows<SepAlong>, down_smooth, sizeof(f32)};
    set.loops[KIPX_CODE_s16][sep_plain] = loops_of<s16, f64>();
    set.loops[KIPX_CODE_s32][sep_plain] = loops_of<s32, f64>();
    set.loops[KIPX_CODE_f32][sep_plain] = loops_of<f32, f32>();
    return set;
}

} // namespace

extern const SepSet sep_sets[1] = {make_set()};

} // namespace kipx::KIPX_SET
