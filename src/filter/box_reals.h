// filter/box_reals.h - the mean of real numbers over small rectangles. For row files only.
//
// Pieces of all rows that lie under some results are summed along the row in registers, then down the
// columns. They stay in the first-level cache: no ring of sums is kept, and the few rows that the next
// results share are summed again.
#pragma once

#include "filter/box_rows.h"
#include "filter/bytes.h"

namespace kipx::KIPX_SET {

inline constexpr size_t f64_lanes = lanes_of<f64>;
template<class T> struct RealsOf {
    typedef T Type __attribute__((vector_size(f64_lanes * sizeof(T))));
};
// As many as a vector has of binary64.
template<class T> using Reals = typename RealsOf<T>::Type;

// Where elements from `from` to before `end` of what results look at lie, and a vector more that may be
// read: in the row, or made in `to` with their border, zeros behind them.
template<class T>
const char *piece_of_row(const BoxDown &b, const char *row, size_t from, size_t end, char *to) {
    const RowElements &e = b.elements;
    const size_t first = e.before, last = first + e.there;
    auto element = [&](size_t i) {
        const auto place = static_cast<ptrdiff_t>(i) - static_cast<ptrdiff_t>(first);
        return row + e.at + place * static_cast<ptrdiff_t>(sizeof(T));
    };
    if (from >= first && end + f64_lanes <= last) return element(from);
    const size_t begin = first < from  ? from
                         : first < end ? first
                                       : end,
                 stop = last > end     ? end
                        : last > begin ? last
                                       : begin;
    memcpy(to + (begin - from) * sizeof(T), element(begin), (stop - begin) * sizeof(T));
    auto border = [&](size_t i, size_t pixel) {
        store(to, i - from, e.nearest ? load<T>(element(pixel + i % b.step), 0) : T{});
    };
    for (size_t i = from; i < begin; ++i) border(i, first);
    for (size_t i = stop; i < end; ++i) border(i, last - b.step);
    memset(to + (end - from) * sizeof(T), 0, f64_lanes * sizeof(T));
    return to;
}

template<class T> inline Vector<f64> reals_at(const char *at) {
    Reals<T> some;
    memcpy(&some, at, sizeof some);
#if defined(__AVX512F__)
    if constexpr (same<T, f32>)
        return reinterpret_cast<Vector<f64>>(_mm512_cvtps_pd(reinterpret_cast<__m256>(some)));
#endif
    return __builtin_convertvector(some, Vector<f64>);
}

// Sums over 1, 2, 4 ... elements from the k-th of a window on; a window's is made of the smallest first.
// step: bytes of a pixel.
template<size_t n, class T> inline Vector<f64> doubled(const char *at, size_t k, size_t step) {
    if constexpr (n == 1)
        return reals_at<T>(at + k * step);
    else
        return doubled<n / 2, T>(at, k, step) + doubled<n / 2, T>(at, k + n / 2, step);
}
template<size_t width, class T> inline Vector<f64> sum_along(const char *at, size_t step) {
    constexpr size_t largest = width < 2 ? 1 : width < 4 ? 2 : width < 8 ? 4 : 8;
    if constexpr (width == largest)
        return doubled<width, T>(at, 0, step);
    else
        return sum_along<width - largest, T>(at, step) +
               doubled<largest, T>(at, width - largest, step);
}
template<size_t width, class T> void sums_along(const char *row, size_t n, size_t step, f64 *to) {
    for (size_t x = 0; x < n; x += f64_lanes) {
        __builtin_prefetch(row + (x + box_piece) * sizeof(T));
        const Vector<f64> sum = sum_along<width, T>(row + x * sizeof(T), step);
        memcpy(to + x, &sum, sizeof sum);
    }
}
template<class T> auto along_of(size_t width) {
    using Along = void (*)(const char *, size_t, size_t, f64 *);
    constexpr Along along[] = {sums_along<1, T>, sums_along<2, T>, sums_along<3, T>,
                               sums_along<4, T>, sums_along<5, T>, sums_along<6, T>,
                               sums_along<7, T>, sums_along<8, T>};
    static_assert(sizeof along / sizeof *along == box_direct);
    return along[width - 1];
}

// Results of a group, from sums of rows a pitch apart: out (g, x, sums) takes a vector of them. False where
// some are no numbers, or may be. height, group: fixed where that is not 0.
template<size_t fixed, class Out>
bool sums_down(const f64 *rows, size_t pitch, size_t given_height, size_t given_group, size_t n,
               const Out &out) {
    const size_t height = fixed ? fixed : given_height, group = fixed ? fixed : given_group,
                 last = group - 1;
    Vector<f64> zero{};
    for (size_t x = 0; x < n; x += f64_lanes) {
        auto row = [&](size_t i) { return load_vector<f64>(rows + i * pitch, x); };
        // upper[g]: the rows of window g that lie above the end of window 0.
        Vector<f64> upper[fixed ? fixed : box_direct], lower{};
        upper[last] = row(height - 1);
        for (size_t i = height - 1; i-- >= group;) upper[last] += row(i);
        for (size_t g = last; g-- > 0;) upper[g] = upper[g + 1] + row(g);
        out(0, x, upper[0]);
        for (size_t g = 1; g < group; ++g) {
            lower = g == 1 ? row(height) : lower + row(height + g - 1);
            out(g, x, upper[g] + lower);
        }
        zero += (upper[0] + lower) * 0; // of all rows
    }
    bool numbers = true;
    for (size_t i = 0; i < f64_lanes; ++i) numbers &= zero[i] == 0;
    return numbers;
}
template<class Out>
bool sums_down(const BoxDown &b, const f64 *rows, size_t group, size_t n, const Out &out) {
    const size_t pitch = b.pitch / sizeof(f64);
    if (group == 3 && b.height == 3) return sums_down<3>(rows, pitch, 3, 3, n, out);
    if (group == 5 && b.height == 5) return sums_down<5>(rows, pitch, 5, 5, n, out);
    return sums_down<0>(rows, pitch, b.height, group, n, out);
}

// n results of a group, from sums on.
template<class T>
void piece_of_means(const BoxDown &b, const f64 *sums, size_t group, size_t n, char *to) {
    const f64 inverse = 1.0 / static_cast<f64>(b.count);
    const ptrdiff_t step = b.out_step;
    auto mean = [=](Vector<f64> sum) { return __builtin_convertvector(sum * inverse, Reals<T>); };
    auto row = [=](size_t g) { return to + static_cast<ptrdiff_t>(g) * step; };
    const size_t whole = n - n % f64_lanes;
    bool numbers = sums_down(b, sums, group, whole, [=](size_t g, size_t x, Vector<f64> sum) {
        const Reals<T> some = mean(sum);
        memcpy(row(g) + x * sizeof(T), &some, sizeof some);
    });
    numbers &= sums_down(b, sums + whole, group, n - whole, [=](size_t g, size_t, Vector<f64> sum) {
        const Reals<T> some = mean(sum);
        memcpy(row(g) + whole * sizeof(T), &some, (n - whole) * sizeof(T));
    });
    for (size_t g = 0; !numbers && g < group; ++g)
        for (size_t x = 0; x < n; ++x) store(row(g), x, one_nan(load<T>(row(g), x)));
}

template<class T> void down_few_reals(const BoxDown &b) {
    f64 *const sums = reinterpret_cast<f64 *>(b.shared);
    const size_t pitch = b.pitch / sizeof(f64), reach = (b.width - 1) * b.step,
                 rows = b.group + b.height - 1;
    const auto along = along_of<T>(b.width);
    char *const made = reinterpret_cast<char *>(sums + rows * pitch);
    for (size_t x = 0; x < b.n; x += box_piece) {
        const size_t n = b.n - x < box_piece ? b.n - x : box_piece;
        for (size_t i = 0; i < rows; ++i) {
            const char *const row = piece_of_row<T>(b, b.rows[i], x, x + n + reach, made);
            along(row, n, b.step * sizeof(T), sums + i * pitch);
        }
        for (size_t g = 0; g < b.group; g += b.height) {
            const size_t group = b.group - g < b.height ? b.group - g : b.height;
            piece_of_means<T>(b, sums + g * pitch, group, n,
                              b.out + static_cast<ptrdiff_t>(g) * b.out_step + x * sizeof(T));
        }
    }
}

} // namespace kipx::KIPX_SET
