// convert/convert_rows.cpp - the row loops of the conversions, compiled once per instruction set.
#include "convert/convert_rows.h"
#include "convert/scale_avx512.h"
#include "core/lanes.h"

namespace kipx::KIPX_SET {
namespace {

// To nearest, saturated, NaN to 0. Whole numbers of 2^31 and more go through the signed ones.
template<class D, class S> D rounded(S x) {
    if constexpr (same<D, u32>) {
        constexpr f64 half = 0x1p31, high = 0xffffffffp0;
        f64 wide = static_cast<f64>(x);
        f64 clipped = wide > 0.0 ? wide : 0.0; // NaN compares false
        clipped = nearest(clipped < high ? clipped : high);
        return static_cast<u32>(static_cast<s32>(clipped - half)) ^ 0x80000000u;
    } else if constexpr (same<D, s32> && same<S, f32>) {
        // A float of 2^23 and more is whole. The last one in the range stands for all behind it.
        constexpr f32 whole = 0x1p23f, high = 0x1p31f, last = 0x1.fffffep30f;
        f32 size = x < 0 ? -x : x, near = (size + whole) - whole;
        near = size < whole ? near : size;
        s32 y = static_cast<s32>(near < last ? near : last); // NaN compares false
        y = x < 0 ? -y : y;
        y = x >= high ? INT32_MAX : x <= -high ? INT32_MIN : y;
        return __builtin_isnan(x) ? 0 : y;
    } else {
        D y = round_saturate<D>(x);
        return Range<D>::low != 0 && __builtin_isnan(x) ? D{0} : y;
    }
}

// Between integers: both ends of what the types share are numbers of the source's.
template<class D, class S> D clipped(S x) {
    constexpr s64 d_low = Range<D>::low, s_low = Range<S>::low, d_high = Range<D>::high,
                  s_high = Range<S>::high;
    constexpr S low = static_cast<S>(d_low > s_low ? d_low : s_low);
    constexpr S high = static_cast<S>(d_high < s_high ? d_high : s_high);
    S raised = x < low ? low : x;
    return static_cast<D>(raised > high ? high : raised);
}

template<class D, class S> D converted(S x) {
    if constexpr (same<D, S>)
        return x;
    else if constexpr (floating<D> && floating<S>)
        return one_nan(static_cast<D>(x));
    else if constexpr (floating<D>)
        return static_cast<D>(x);
    else if constexpr (floating<S>)
        return rounded<D>(x);
    else
        return clipped<D>(x);
}

template<class D, class S> void row(Run run) {
    const bool streamed = run.writing == Writing::streamed;
    size_t done = 0;
#if defined(__AVX512F__)
    if constexpr (narrowed<D, S>)
        done = narrowed_in_registers<D, S>(run.dst, run.src[0], run.n, streamed);
#endif
    const char *from = static_cast<const char *>(run.src[0]) + done * sizeof(S);
    row_of_elements<D, S, S>(static_cast<char *>(run.dst) + done * sizeof(D), from, from,
                             run.n - done, streamed, [](S x, S) { return converted<D>(x); });
}

template<class D> void narrow(Run run) {
    KIPX_INDEPENDENT
    for (size_t i = 0; i < run.n; ++i)
        store(run.dst, i, round_saturate<D>(load<f32>(run.src[0], i)));
}

// Of so many elements on a table of all values pays, where these are few and vectors are short.
#if defined(__AVX512F__)
template<class D, class S> constexpr bool few_values = false;
#else
template<class D, class S> constexpr bool few_values = sizeof(S) == 1 && sizeof(D) > 1;
#endif
constexpr size_t entries = 256, table_pays = 4 * entries;

// x * scale + shift in binary64, each rounded.
template<class D, class S> void scaled_row(Run run) {
    const Scaling &s = *static_cast<const Scaling *>(run.params);
    const bool streamed = run.writing == Writing::streamed;
    auto element = [scale = s.scale, shift = s.shift](S x, S) {
        f64 wide = static_cast<f64>(x) * scale + shift;
        return converted<D>(same<D, f64> ? one_nan(wide) : wide);
    };
    if constexpr (few_values<D, S>)
        if (run.n >= table_pays) {
            D table[entries];
            for (size_t i = 0; i < entries; ++i) table[i] = element(static_cast<S>(i), 0);
            return row_of_elements<D, u8, u8>(run.dst, run.src[0], run.src[0], run.n, streamed,
                                              [&table](u8 x, u8) { return table[x]; });
        }
    size_t done = 0;
#if defined(__AVX512F__)
    done = scaled_blocks<D, S>(run.dst, run.src[0], run.n, s.scale, s.shift, streamed);
#endif
    const char *from = static_cast<const char *>(run.src[0]) + done * sizeof(S);
    row_of_elements<D, S, S>(static_cast<char *>(run.dst) + done * sizeof(D), from, from,
                             run.n - done, streamed, element);
}

// The same with numbers of the channels, block by block.
void scaled_by_channel(Run run) {
    const Scaling &s = *static_cast<const Scaling *>(run.params);
    constexpr size_t block = 512;
    alignas(64) f64 wide[block];
    for (size_t done = 0; done < run.n; done += block) {
        size_t n = run.n - done < block ? run.n - done : block;
        const char *from = static_cast<const char *>(run.src[0]) + done * s.src_size;
        s.widen({wide, {from, nullptr, nullptr}, n, nullptr, Writing::cached});
        KIPX_INDEPENDENT
        for (size_t i = 0; i < n; ++i)
            // NOLINTNEXTLINE(clang-analyzer-core.UndefinedBinaryOperatorResult): widened above
            wide[i] = one_nan(wide[i] * load<f64>(run.src[1], done + i) +
                              load<f64>(run.src[2], done + i));
        char *to = static_cast<char *>(run.dst) + done * s.dst_size;
        s.narrow({to, {wide, nullptr, nullptr}, n, nullptr, Writing::cached});
    }
}

} // namespace

#define KIPX_ROW(D, S) row<D, S>,
#define KIPX_SCALED_ROW(D, S) scaled_row<D, S>,
extern const RowLoop convert_rows[convert_row_count] = {
    KIPX_NUMERIC_PAIRS(KIPX_ROW) KIPX_NUMERIC_PAIRS(KIPX_SCALED_ROW) narrow<s8>, narrow<s16>,
    scaled_by_channel};

} // namespace kipx::KIPX_SET
