// filter/sep_bytes.h - weighted sums of bytes that smooth: weights of 0 and more, of one in all at most.
// For row files only.
//
// Sums go down the columns first, of a few result rows at once, so that a source row is read once for
// all of them, where it lies; then along the row. A border is made of the sums down the columns. Elements
// go four ways, by their place modulo 4: a 32-bit lane holds one byte of each, and none has to change its
// lane until the results are put together.
//
// Sums are in units of 2^-16. Those that could lie on either side of a tie, the margin being twice what
// they may be off, are made again in binary64.
#pragma once

#include "filter/sep_rows.h"
#include "filter/vectors.h"

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

inline constexpr size_t smooth_lanes = vector_bytes / sizeof(f32);

// Where the work on a call lies in its scratch: weights, those along the row in units of the results,
// and rows of sums down the columns.
struct Smoothing {
    f32 *rows, *columns, *sums;
    size_t pitch;
    explicit Smoothing(const SepDown &s)
        : rows(reinterpret_cast<f32 *>(s.scratch)), columns(rows + s.height),
          sums(reinterpret_cast<f32 *>(s.scratch + s.weights_size)),
          pitch(smooth_pitch(s.n + (s.width - 1) * s.pixel)) {
        for (size_t i = 0; i < s.height; ++i) rows[i] = static_cast<f32>(s.weights[i]);
        for (size_t i = 0; i < s.width; ++i)
            columns[i] = static_cast<f32>(s.column_weights[i] * 65536);
    }
    // Where an element of row i lies: ways are a pitch apart.
    f32 *at(size_t i, size_t element) const {
        return row(i) + element % smooth_ways * pitch + element / smooth_ways;
    }
    f32 *row(size_t i) const { return sums + i * smooth_ways * pitch; }
};

// Elements of each way.
struct Ways {
    Vector<f32> of[smooth_ways];
    explicit Ways(Bits bytes) {
        const auto two = reinterpret_cast<Vector<u16>>(bytes);
        const auto even = reinterpret_cast<Vector<u32>>(two & 255),
                   odd = reinterpret_cast<Vector<u32>>(two >> 8);
        put(0, even & 0xffff), put(1, odd & 0xffff), put(2, even >> 16), put(3, odd >> 16);
    }

private:
    void put(size_t way, Vector<u32> v) {
        of[way] = __builtin_convertvector(reinterpret_cast<Vector<s32>>(v), Vector<f32>);
    }
};

// A vector of elements of every row, summed for so many result rows; load (i) gives it, of row i.
template<size_t results, class Load>
[[gnu::always_inline]] inline void smooth_block(size_t height, const f32 *weights,
                                                f32 *const (&to)[results], size_t x, size_t pitch,
                                                const Load &load) {
    Vector<f32> sum[results][smooth_ways] = {};
#pragma GCC unroll 16
    for (size_t i = 0; i < height + results - 1; ++i) {
        const Ways row(load(i));
        for (size_t k = 0; k < results; ++k)
            if (i - k < height)
                for (size_t w = 0; w < smooth_ways; ++w)
                    sum[k][w] = plus_some(sum[k][w], row.of[w], weights[i - k]);
    }
    for (size_t k = 0; k < results; ++k)
        for (size_t w = 0; w < smooth_ways; ++w)
            memcpy(to[k] + x + w * pitch, &sum[k][w], sizeof sum[k][w]);
}

// Sums down the columns for so many result rows from g on, from `from` to before `end` of each way.
// taps: how many, where that is known, else 0.
template<size_t taps, size_t results>
void smooth_columns(const SepDown &s, const Smoothing &to, size_t g, size_t from, size_t end) {
    const RowElements &e = s.elements;
    const auto first = static_cast<ptrdiff_t>(e.before),
               last = first + static_cast<ptrdiff_t>(e.there);
    const size_t height = taps ? taps : s.height, pitch = to.pitch;
    // What is known to be few stays in registers.
    f32 own[taps ? taps : 1];
    const char *own_rows[taps ? taps + results - 1 : 1];
    if (taps) memcpy(own, to.rows, sizeof own), memcpy(own_rows, s.rows + g, sizeof own_rows);
    const f32 *const weights = taps ? own : to.rows;
    const char *const *const rows = taps ? own_rows : s.rows + g;
    f32 *out[results];
    for (size_t k = 0; k < results; ++k) out[k] = to.row(k);
    constexpr auto step = static_cast<ptrdiff_t>(vector_bytes);
    // Rows are fetched before the next results need them.
    const size_t count = height + results - 1;
    const ptrdiff_t below = count > 1 ? rows[count - 1] - rows[count - 2] : 0;
    for (; from < end; from += smooth_lanes) {
        const auto x = static_cast<ptrdiff_t>(from * smooth_ways);
        const ptrdiff_t at = e.at + x - first;
        if (x >= first && x + step <= last) {
            for (size_t k = 0; k < results; ++k)
                __builtin_prefetch(rows[count - 1] + at + static_cast<ptrdiff_t>(k + 1) * below);
            smooth_block<results>(height, weights, out, from, pitch,
                                  [&](size_t i) { return load_bits(rows[i] + at); });
            continue;
        }
        const Part part = Part::of(first - x, last - x);
        smooth_block<results>(height, weights, out, from, pitch,
                              [&](size_t i) { return load_part(rows[i] + at, part, Bits{}); });
    }
}

// What is missing before and after the sums down the columns of row k.
inline void smooth_border(const SepDown &s, const Smoothing &to, size_t k, size_t from,
                          size_t end) {
    const RowElements &e = s.elements;
    auto border = [&](size_t i, size_t pixel) {
        *to.at(k, i) = e.nearest ? *to.at(k, pixel + i % s.pixel) : 0;
    };
    const size_t last = e.before + e.there, wanted = s.n + (s.width - 1) * s.pixel;
    if (from == 0)
        for (size_t i = 0; i < e.before; ++i) border(i, e.before);
    for (size_t i = from > last ? from : last; i < end && i < wanted; ++i)
        border(i, last - s.pixel);
}

// Vectors of sums of each way: in 2^-16, rounding and margin added, cut off.
struct SmoothSums {
    Vector<s32> of[smooth_ways];
    // Those whose fraction is below `near`, a bit each: bits of two ways alternate.
    u64 near_ties(u32 near) const {
#if defined(__AVX512BW__)
        const __m512i bound =
            _mm512_set1_epi32(static_cast<s32>(near)); // of integers none is below 0
        auto mask = [&](size_t w) {
            return u64{_mm512_cmplt_epu16_mask(reinterpret_cast<__m512i>(of[w]), bound)};
        };
        return mask(0) | mask(1) << 1 | (mask(2) | mask(3) << 1) << 32;
#else
        Vector<s32> some{};
        for (const Vector<s32> &v : of) some |= (v & 0xffff) < static_cast<s32>(near);
        u64 part[vector_bytes / 8], all = 0;
        memcpy(part, &some, sizeof some);
        for (u64 p : part) all |= p;
        if (all == 0) return 0;
        u64 bits = 0;
        for (size_t w = 0; w < smooth_ways; ++w)
            for (size_t i = 0; i < smooth_lanes; ++i)
                bits |= u64{(of[w][i] & 0xffff) < static_cast<s32>(near)} << bit_of(w, i);
        return bits;
#endif
    }
    static constexpr size_t bit_of(size_t way, size_t lane) {
        return 2 * lane + way % 2 + way / 2 * 32;
    }
    static constexpr size_t element_of(size_t bit) {
        return bit % 32 / 2 * smooth_ways + bit % 2 + bit / 32 * 2;
    }
    // None is below 0 nor above 255 and a half.
    Bits bytes() const {
        auto bits = [&](size_t way) { return reinterpret_cast<Vector<u32>>(of[way]); };
        return reinterpret_cast<Bits>((bits(0) >> 16) | (bits(1) >> 8 & 0xff00) |
                                      (bits(2) & 0xff0000) | (bits(3) << 8 & 0xff000000));
    }
};

// Results from element x to before `end`. again (x) gives one of the row in another way.
template<size_t taps, size_t pixel, class Again>
void smooth_row(const SepDown &s, const Smoothing &from, size_t k, char *to, size_t x, size_t end,
                const Again &again) {
    const auto margin = static_cast<u32>(s.margin);
    const Vector<f32> rounding = Vector<f32>{} + static_cast<f32>(0x8000 + margin);
    const f32 *const sums = from.row(k);
    const f32 *const weights = from.columns;
    const size_t pitch = from.pitch, count = taps ? taps : s.width;
    for (; x < end; x += vector_bytes) {
        Vector<f32> sum[smooth_ways] = {rounding, rounding, rounding, rounding};
        // Four taps lie `pixel` elements of a way from the four before.
        const f32 *at = sums + x / smooth_ways;
        const f32 *weight = weights;
        auto add = [&](size_t tap) {
            for (size_t w = 0; w < smooth_ways; ++w) {
                const size_t element = tap * pixel + w;
                const f32 *const from_way = at + element % smooth_ways * pitch;
                sum[w] = plus_some(sum[w], load_vector<f32>(from_way, element / smooth_ways),
                                   weight[tap]);
            }
        };
#pragma GCC unroll 2
        for (size_t left = count / smooth_ways; left > 0; --left) {
            add(0), add(1), add(2), add(3);
            at += pixel, weight += smooth_ways;
        }
        const size_t rest = count % smooth_ways;
        if (rest > 0) add(0);
        if (rest > 1) add(1);
        if (rest > 2) add(2);
        SmoothSums whole;
        for (size_t w = 0; w < smooth_ways; ++w)
            whole.of[w] = __builtin_convertvector(sum[w], Vector<s32>);
        const size_t n = end - x;
        if (n >= vector_bytes)
            store_bits(to + x, whole.bytes());
        else
            store_first(to + x, whole.bytes(), n);
        for (u64 near = whole.near_ties(2 * margin); near; near &= near - 1) {
            const size_t i = x + SmoothSums::element_of(static_cast<size_t>(__builtin_ctzll(near)));
            if (i < end) store(to, i, again(i));
        }
    }
}

// f (taps), few ones by their number.
template<class F> void with_taps(size_t n, const F &f) {
    switch (n) {
    case 3:
        return f.template operator()<3>();
    case 5:
        return f.template operator()<5>();
    case 7:
        return f.template operator()<7>();
    default:
        return f.template operator()<0>();
    }
}

// The same for pixels of one channel; of more, by the number of those.
template<class F> void with_taps_and_pixel(size_t n, size_t pixel, const F &f) {
    switch (pixel) {
    case 1:
        return with_taps(n, [&]<size_t taps>() { f.template operator()<taps, 1>(); });
    case 2:
        return f.template operator()<0, 2>();
    case 3:
        return f.template operator()<0, 3>();
    default:
        return f.template operator()<0, 4>();
    }
}

// As many result rows at once. Along a row so many elements at once that they stay in the first-level
// cache. again (s, g, x) gives element x of result row g in another way.
template<size_t results, class Again>
void smooth_rows(const SepDown &s, const Smoothing &smoothing, size_t g, const Again &again) {
    constexpr size_t together = 512;
    const size_t margin = (s.width - 1) * s.pixel;
    for (size_t x = 0, done = 0; x < s.n; x += together) {
        const size_t end = s.n - x < together ? s.n : x + together;
        // The last results look at a vector beyond their own, or at less.
        const size_t ready = end < s.n
                                 ? (end + margin + vector_bytes - 1) / vector_bytes * smooth_lanes
                                 : smoothing.pitch;
        with_taps(s.height, [&]<size_t taps>() {
            smooth_columns<taps, results>(s, smoothing, g, done, ready);
        });
        for (size_t k = 0; k < results; ++k) {
            smooth_border(s, smoothing, k, done * smooth_ways, ready * smooth_ways);
            with_taps_and_pixel(s.width, s.pixel, [&]<size_t taps, size_t pixel>() {
                smooth_row<taps, pixel>(s, smoothing, k,
                                        s.out + static_cast<ptrdiff_t>(g + k) * s.step, x, end,
                                        [&](size_t i) { return again(s, g + k, i); });
            });
        }
        done = ready;
    }
}

template<class Again> void smooth(const SepDown &s, const Again &again) {
    const Smoothing smoothing(s);
    size_t g = 0;
    for (; g + smooth_results <= s.group; g += smooth_results)
        smooth_rows<smooth_results>(s, smoothing, g, again);
    for (; g < s.group; ++g) smooth_rows<1>(s, smoothing, g, again);
}

} // namespace kipx::KIPX_SET
