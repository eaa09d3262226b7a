// filter/box_columns.h - means of small integers: sums down the columns, and along rows of them. For row
// files only.
//
// Sums down the columns come first: a row of them gains the source's next row and loses one. Sums along
// that row follow: of few columns by adding them, of many by what comes in at the right and goes out at the
// left, summed from the row's beginning on. So the cost does not depend on the window's size. All sums
// wrap; those that are results cannot.
//
// T is an element, S a sum down the columns; sums of many columns have 32 bits. A Mean makes results of
// sums, so many vectors at once; sums begin at its start().
#pragma once

#include "filter/box_rows.h"
#include "filter/bytes.h"

namespace kipx::KIPX_SET {

// Where the rows of sums of a call lie in its scratch: down the columns, of a whole window and of one
// without its last row; along the first of them. Before the first there are zeros.
template<class S> struct ColumnSums {
    S *full, *shared;
    u32 *along;
    explicit ColumnSums(const BoxDown &b)
        : full(reinterpret_cast<S *>(b.shared + 64)),
          shared(reinterpret_cast<S *>(b.shared + b.pitch)),
          along(reinterpret_cast<u32 *>(b.shared + 2 * b.pitch)) {
        memset(b.shared, 0, 64);
    }
};

template<class T> void put_vector(T *to, size_t x, const Vector<T> &v) {
    memcpy(to + x, &v, sizeof v);
}

// each (x, load) for vectors of columns; load (row) gives those that there are, and 0.
template<class T, class S, class Each>
[[gnu::always_inline]] inline void each_column(const BoxDown &b, size_t columns, const Each &each) {
    constexpr auto step = static_cast<ptrdiff_t>(lanes_of<S>),
                   size = static_cast<ptrdiff_t>(sizeof(T));
    const auto before = static_cast<ptrdiff_t>(b.elements.before),
               there = static_cast<ptrdiff_t>(b.elements.there),
               end = static_cast<ptrdiff_t>(columns) - before;
    const ptrdiff_t from = b.elements.at;
    auto partly = [&](ptrdiff_t x) {
        const ptrdiff_t first = x < 0 ? (-x < step ? -x : step) : 0,
                        last = there - x < step ? there - x : step;
        each(static_cast<size_t>(x + before), [=](const char *row) {
            T some[lanes_of<S>] = {};
            if (first < last)
                memcpy(some + first, row + from + (x + first) * size,
                       static_cast<size_t>((last - first) * size));
            return widened<T, S>(some);
        });
    };
    ptrdiff_t x = -before;
    for (; x < 0 && x < end; x += step) partly(x);
    for (; x + step <= there; x += step)
        each(static_cast<size_t>(x + before),
             [=](const char *row) { return widened<T, S>(row + from + x * size); });
    for (; x < end; x += step) partly(x);
}

template<class T, class S>
void first_columns(const BoxDown &b, const ColumnSums<S> &sums, size_t columns) {
    each_column<T, S>(b, columns, [&](size_t x, const auto &load) {
        Vector<S> sum{};
        for (size_t i = 0; i + 1 < b.height; ++i) sum += load(b.rows[i]);
        put_vector(sums.shared, x, sum);
    });
}

// What is missing is made of the sums of whole windows.
template<class T, class S>
void next_columns(const BoxDown &b, size_t g, const ColumnSums<S> &sums, size_t columns) {
    const char *const in = b.rows[g + b.height - 1], *const out = b.rows[g];
    S *const shared = sums.shared, *const full = sums.full;
    const RowElements &e = b.elements;
    // The row that comes in a few results later is fetched.
    const ptrdiff_t below = b.height > 1 ? in - b.rows[g + b.height - 2] : 0;
    const char *const ahead = in + 4 * below + e.at - static_cast<ptrdiff_t>(e.before * sizeof(T));
    each_column<T, S>(b, columns, [=](size_t x, const auto &load) {
        if constexpr (vector_bytes == 64) __builtin_prefetch(ahead + x * sizeof(T));
        const Vector<S> sum = load_vector<S>(shared, x) + load(in);
        put_vector(full, x, sum);
        put_vector(shared, x, sum - load(out));
    });
    const size_t end = e.before + e.there;
    auto border = [&](size_t i, size_t pixel) {
        full[i] = e.nearest ? full[pixel + i % b.step] : S{0};
    };
    for (size_t i = 0; i < e.before; ++i) border(i, e.before);
    for (size_t i = end; i < columns; ++i) border(i, end - b.step);
}

// Of few columns; width: fixed where it is not 0.
template<size_t width, class S, class Mean>
void few_columns(const BoxDown &b, const ColumnSums<S> &sums, const Mean &given,
                 const ResultRow &row) {
    const Mean mean = given;
    const Vector<S> start = Vector<S>{} + mean.start();
    const size_t count = width ? width : b.width, step = b.step;
    for (size_t x = 0; x < b.n; x += Mean::vectors * lanes_of<S>) {
        Vector<S> sum[Mean::vectors];
        for (size_t j = 0; j < Mean::vectors; ++j) {
            const S *const at = sums.full + x + j * lanes_of<S>;
            sum[j] = start + load_vector<S>(at, 0);
#pragma GCC unroll 8
            for (size_t k = 1; k < count; ++k) sum[j] += load_vector<S>(at, k * step);
        }
        mean.put(row, x, sum);
    }
}

// Of all columns of the first window but its last, for one channel.
template<class S> u32 sum_before(const BoxDown &b, const ColumnSums<S> &sums, size_t channel) {
    u32 sum = 0;
    for (size_t k = 0; k + 1 < b.width; ++k) sum += sums.full[channel + k * b.step];
    return sum;
}

#if defined(__AVX512BW__)
// What comes to a lane from `by` lanes below it, or nothing.
class Below {
public:
    void set(size_t by) {
        alignas(64) u32 place[16];
        some_ = 0;
        for (u32 i = 0; i < 16; ++i) {
            place[i] = i - static_cast<u32>(by);
            if (i >= by) some_ = static_cast<__mmask16>(some_ | 1u << i);
        }
        from_ = _mm512_load_si512(place);
    }
    __m512i added(__m512i v) const {
        return _mm512_add_epi32(v, _mm512_maskz_permutexvar_epi32(some_, from_, v));
    }

private:
    __m512i from_;
    __mmask16 some_;
};

// What comes in at the right and goes out at the left of the windows from element x on.
inline __m512i wide(const u16 *at) {
    __m256i v;
    memcpy(&v, at, sizeof v);
    return _mm512_cvtepu16_epi32(v);
}
inline __m512i wide(const u32 *at) { return _mm512_loadu_si512(at); }

// Sums of a vector by sums of 1, 2, 4 ... changes; then what all before it have come to.
template<class S, class Mean>
void many_columns(const BoxDown &b, const ColumnSums<S> &sums, const Mean &given,
                  const ResultRow &row) {
    const Mean mean = given;
    Below below[4];
    for (size_t m = 0; m < 4; ++m) below[m].set(b.step << m);
    alignas(64) u32 last[16] = {}, before[16];
    for (size_t c = 0; c < b.step; ++c)
        last[16 - b.step + c] = mean.start() + sum_before(b, sums, c);
    for (size_t i = 0; i < 16; ++i) before[i] = static_cast<u32>(16 - b.step + i % b.step);
    const __m512i place = _mm512_load_si512(before);
    __m512i sum = _mm512_load_si512(last);
    const S *const out = sums.full - b.step, *const in = sums.full + (b.width - 1) * b.step;
    for (size_t x = 0; x < b.n; x += Mean::vectors * 16) {
        Vector<u32> some[Mean::vectors];
        for (size_t j = 0; j < Mean::vectors; ++j) {
            const __m512i carry = _mm512_permutexvar_epi32(place, sum);
            sum = _mm512_sub_epi32(wide(in + x + 16 * j), wide(out + x + 16 * j));
            for (const Below &m : below) sum = m.added(sum);
            sum = _mm512_add_epi32(sum, carry);
            some[j] = reinterpret_cast<Vector<u32>>(sum);
        }
        mean.put(row, x, some);
    }
}
#else
template<class S, class Mean>
void many_columns(const BoxDown &b, const ColumnSums<S> &sums, const Mean &given,
                  const ResultRow &row) {
    const Mean mean = given;
    const S *const out = sums.full - b.step, *const in = sums.full + (b.width - 1) * b.step;
    for (size_t c = 0; c < b.step; ++c) {
        u32 sum = mean.start() + sum_before(b, sums, c);
        for (size_t x = c; x < b.n; x += b.step) {
            sum += u32{in[x]} - out[x];
            sums.along[x] = sum;
        }
    }
    for (size_t x = 0; x < b.n; x += Mean::vectors * lanes_of<u32>) {
        Vector<u32> some[Mean::vectors];
        for (size_t j = 0; j < Mean::vectors; ++j)
            some[j] = load_vector<u32>(sums.along, x + j * lanes_of<u32>);
        mean.put(row, x, some);
    }
}
#endif

// row (out, sums) makes a result row.
template<class T, class S, class Row> void each_row_of_means(const BoxDown &b, const Row &row) {
    const ColumnSums<S> sums(b);
    const size_t columns = b.n + (b.width - 1) * b.step;
    if (b.first) first_columns<T>(b, sums, columns);
    for (size_t g = 0; g < b.group; ++g) {
        next_columns<T>(b, g, sums, columns);
        row(ResultRow{b.out + static_cast<ptrdiff_t>(g) * b.out_step, b.n * sizeof(T)}, sums);
    }
}

// How many columns are few.
inline constexpr size_t few = 8;
template<class S, class Mean>
void sums_of_few(const BoxDown &b, const ColumnSums<S> &sums, const Mean &mean,
                 const ResultRow &row) {
    switch (b.width) {
    case 3:
        return few_columns<3>(b, sums, mean, row);
    case 5:
        return few_columns<5>(b, sums, mean, row);
    default:
        return few_columns<0>(b, sums, mean, row);
    }
}

} // namespace kipx::KIPX_SET
