// filter/sep_rows.cpp - the row loops of separable filters, compiled once per instruction set.
//
// Promises every set gives the same bits: sums go from their first term to the last.
#include "filter/sep_rows.h"
#include "core/element.h"
#include "filter/gather.h"

namespace kipx::KIPX_SET {
namespace {

// Elements that are summed together; two kilobytes of the widest sums.
constexpr size_t chunk = 256;

// sum[i] = the weighted sum over k of at (k)[i]; short kernels in one pass.
template<size_t taps, class A, class At>
void sum_of(A *sum, size_t n, const f64 *weights, const At &at) {
    A w[taps];
    const A *from[taps];
    for (size_t k = 0; k < taps; ++k) w[k] = static_cast<A>(weights[k]), from[k] = at(k);
    KIPX_INDEPENDENT
    for (size_t i = 0; i < n; ++i) {
        A s = w[0] * from[0][i];
        for (size_t k = 1; k < taps; ++k) s += w[k] * from[k][i];
        sum[i] = s;
    }
}
template<class A, class At>
void sum_all(A *sum, size_t n, const f64 *weights, size_t count, const At &at) {
    switch (count) {
    case 1:
        return sum_of<1>(sum, n, weights, at);
    case 3:
        return sum_of<3>(sum, n, weights, at);
    case 5:
        return sum_of<5>(sum, n, weights, at);
    case 7:
        return sum_of<7>(sum, n, weights, at);
    default:
        break;
    }
    sum_of<1>(sum, n, weights, at);
    size_t k = 1;
    for (; k + 4 <= count; k += 4) {
        A w[4];
        const A *from[4];
        for (size_t j = 0; j < 4; ++j) w[j] = static_cast<A>(weights[k + j]), from[j] = at(k + j);
        KIPX_INDEPENDENT
        for (size_t i = 0; i < n; ++i)
            sum[i] = sum[i] + w[0] * from[0][i] + w[1] * from[1][i] + w[2] * from[2][i] +
                     w[3] * from[3][i];
    }
    for (; k < count; ++k) {
        const A w = static_cast<A>(weights[k]), *from = at(k);
        KIPX_INDEPENDENT
        for (size_t i = 0; i < n; ++i) sum[i] += w * from[i];
    }
}

template<class T, class A> void along(const SepAlong &s) {
    A *const wide = reinterpret_cast<A *>(s.wide);
    const Wanted wanted{s.reach, s.source, s.step};
    for (size_t y = 0; y < s.band.rows; ++y) {
        char *out = s.out + static_cast<ptrdiff_t>(y) * s.out_step;
        const char *row = s.band.at + static_cast<ptrdiff_t>(y) * s.band.step;
        gather<T>(wanted, row, wide);
        if (s.kept) gather<T>(wanted, row, reinterpret_cast<T *>(out + s.kept));
        for (size_t x = 0; x < s.n; x += chunk) {
            size_t n = s.n - x < chunk ? s.n - x : chunk;
            sum_all(reinterpret_cast<A *>(out) + x, n, s.weights, s.width,
                    [&](size_t k) { return wide + x + k * s.step; });
        }
    }
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

template<class T, class A> void down(const SepDown &s) {
    for (size_t x = 0; x < s.n; x += chunk) {
        size_t n = s.n - x < chunk ? s.n - x : chunk;
        alignas(64) A sum[chunk];
        for (size_t g = 0; g < s.group; ++g) {
            sum_all(sum, n, s.weights, s.height, [&](size_t k) { return row_at<A>(s, g + k, x); });
            put<T>(s.out + static_cast<ptrdiff_t>(g) * s.step + x * sizeof(T), sum, n);
        }
    }
}

// One element in binary64, from the source rows behind the sums.
u8 made_again(const SepDown &s, size_t g, size_t x) {
    f64 sum = 0;
    for (size_t i = 0; i < s.height; ++i) {
        const char *row = s.rows[g + i] + s.kept;
        f64 part = 0;
        for (size_t j = 0; j < s.width; ++j) {
            f64 term = s.column_weights[j] * load<u8>(row, x + j * s.pixel);
            part = j ? part + term : term;
        }
        sum = i ? sum + s.weights[i] * part : s.weights[i] * part;
    }
    return round_saturate<u8>(sum);
}

void down_guarded(const SepDown &s) {
    const f32 margin = static_cast<f32>(0.5 - s.margin);
    for (size_t x = 0; x < s.n; x += chunk) {
        size_t n = s.n - x < chunk ? s.n - x : chunk;
        alignas(64) f32 sum[chunk];
        for (size_t g = 0; g < s.group; ++g) {
            sum_all(sum, n, s.weights, s.height,
                    [&](size_t k) { return row_at<f32>(s, g + k, x); });
            char *to = s.out + static_cast<ptrdiff_t>(g) * s.step + x;
            s32 near = 0;
            for (size_t i = 0; i < n; ++i) {
                f32 whole = (sum[i] + 0x1.8p23f) - 0x1.8p23f, rest = sum[i] - whole;
                near |= rest > margin || rest < -margin ? 1 : 0;
                store(to, i, round_saturate<u8>(sum[i]));
            }
            for (size_t i = 0; near && i < n; ++i) {
                f32 whole = (sum[i] + 0x1.8p23f) - 0x1.8p23f, rest = sum[i] - whole;
                if (rest > margin || rest < -margin) store(to, i, made_again(s, g, x + i));
            }
        }
    }
}

template<class T, class A> constexpr SepLoops loops_of() {
    return {along<T, A>, down<T, A>, sizeof(A)};
}

constexpr SepSet make_set() {
    SepSet set{};
    set.loops[KIPX_CODE_u8][sep_plain] = loops_of<u8, f64>();
    set.loops[KIPX_CODE_u8][sep_short] = loops_of<u8, f32>();
    set.loops[KIPX_CODE_u8][sep_guarded] = {along<u8, f32>, down_guarded, sizeof(f32)};
    set.loops[KIPX_CODE_s16][sep_plain] = loops_of<s16, f64>();
    set.loops[KIPX_CODE_s32][sep_plain] = loops_of<s32, f64>();
    set.loops[KIPX_CODE_f32][sep_plain] = loops_of<f32, f32>();
    return set;
}

} // namespace

extern const SepSet sep_sets[1] = {make_set()};

} // namespace kipx::KIPX_SET
