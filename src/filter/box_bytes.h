// filter/box_bytes.h - the mean of bytes over rectangles of up to 257 rows. For row files only.
//
// Sums down the columns come first: a row of them gains the source's next row and loses one, in 16
// bits. Sums along that row follow: of few columns by adding them, of many by what comes in at the
// right and goes out at the left, summed from the row's beginning on. So the cost does not depend on
// the window's size. All sums wrap; those that are results cannot.
#pragma once

#include "filter/box_rows.h"
#include "filter/bytes.h"

namespace kipx::KIPX_SET {

// ---- quotients to nearest even -------------------------------------------------------------------

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
        half_ = everywhere(count / 2), factor_ = everywhere(f), count_ = everywhere(count);
        even_ = everywhere(1 - count % 2);
    }
    bool exact() const { return exact_; }
    Bytes<u16> operator()(Vector<u16> sums) const {
        const Vector<u16> t = sums + half_, q = high_half_of_product(t, factor_) >> shift_;
        const Vector<u16> tie = q * count_ == t ? q & even_ : Vector<u16>{};
        return __builtin_convertvector(q - tie, Bytes<u16>);
    }

private:
    Vector<u16> half_, factor_, count_, even_;
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
        : half_(static_cast<u32>(positions / 2)), even_(positions % 2 == 0) {
        const f64 exact = 1.0 / static_cast<f64>(positions);
        auto r = static_cast<f32>(exact);
        if (r < exact) r += r * 0x1p-24f;
        reciprocal_ = Vector<f32>{} + r, count_ = Vector<f32>{} + static_cast<f32>(positions);
    }
    u32 half() const { return half_; }
    // Of sums with the half in them.
    [[gnu::always_inline]] Vector<s32> quotients(Vector<s32> sums) const {
        const Vector<f32> t = __builtin_convertvector(sums, Vector<f32>);
        Vector<s32> q = __builtin_convertvector(t * reciprocal_, Vector<s32>);
        if (even_) {
            const Vector<s32> tie = __builtin_convertvector(q, Vector<f32>) * count_ == t;
            q -= tie & q & 1;
        }
        return q;
    }

private:
    Vector<f32> reciprocal_, count_;
    u32 half_;
    bool even_;
};

// ---- sums ----------------------------------------------------------------------------------------

// Where the rows of sums of a call lie in its scratch: down the columns, of a whole window and of one
// without its last row; along the first of them. Before the first there are zeros.
struct ByteSums {
    u16 *full, *shared;
    char *along;
    explicit ByteSums(const BoxDown &b)
        : full(reinterpret_cast<u16 *>(b.shared + 64)),
          shared(reinterpret_cast<u16 *>(b.shared + b.pitch)), along(b.shared + 2 * b.pitch) {
        memset(b.shared, 0, 64);
    }
};

template<class T> void put_vector(T *to, size_t x, const Vector<T> &v) {
    memcpy(to + x, &v, sizeof v);
}

// each (x, load) for vectors of columns; load (row) gives those that there are, and 0.
template<class Each>
[[gnu::always_inline]] inline void each_column(const BoxDown &b, size_t columns, const Each &each) {
    constexpr auto step = static_cast<ptrdiff_t>(lanes_of<u16>);
    const auto before = static_cast<ptrdiff_t>(b.elements.before),
               there = static_cast<ptrdiff_t>(b.elements.there),
               end = static_cast<ptrdiff_t>(columns) - before;
    const ptrdiff_t from = b.elements.at;
    auto partly = [&](ptrdiff_t x) {
        const ptrdiff_t first = x < 0 ? (-x < step ? -x : step) : 0,
                        last = there - x < step ? there - x : step;
        each(static_cast<size_t>(x + before), [=](const char *row) {
            char some[lanes_of<u16>] = {};
            if (first < last)
                memcpy(some + first, row + from + x + first, static_cast<size_t>(last - first));
            return widened(some, 0);
        });
    };
    ptrdiff_t x = -before;
    for (; x < 0 && x < end; x += step) partly(x);
    for (; x + step <= there; x += step)
        each(static_cast<size_t>(x + before),
             [=](const char *row) { return widened(row + from + x, 0); });
    for (; x < end; x += step) partly(x);
}

inline void first_columns(const BoxDown &b, const ByteSums &sums, size_t columns) {
    each_column(b, columns, [&](size_t x, const auto &load) {
        Vector<u16> sum{};
        for (size_t i = 0; i + 1 < b.height; ++i) sum += load(b.rows[i]);
        put_vector(sums.shared, x, sum);
    });
}

// What is missing is made of the sums of whole windows.
inline void next_columns(const BoxDown &b, size_t g, const ByteSums &sums, size_t columns) {
    const char *const in = b.rows[g + b.height - 1], *const out = b.rows[g];
    u16 *const shared = sums.shared, *const full = sums.full;
    const RowElements &e = b.elements;
    // The row that comes in a few results later is fetched.
    const ptrdiff_t below = b.height > 1 ? in - b.rows[g + b.height - 2] : 0;
    const char *const ahead = in + 4 * below + e.at - static_cast<ptrdiff_t>(e.before);
    each_column(b, columns, [=](size_t x, const auto &load) {
        if constexpr (vector_bytes == 64) __builtin_prefetch(ahead + x);
        const Vector<u16> sum = load_vector<u16>(shared, x) + load(in);
        put_vector(full, x, sum);
        put_vector(shared, x, sum - load(out));
    });
    const size_t end = e.before + e.there;
    auto border = [&](size_t i, size_t pixel) {
        full[i] = e.nearest ? full[pixel + i % b.step] : u16{0};
    };
    for (size_t i = 0; i < e.before; ++i) border(i, e.before);
    for (size_t i = end; i < columns; ++i) border(i, end - b.step);
}

// Of few columns; width: fixed where it is not 0.
template<size_t width>
void few_columns(const BoxDown &b, const ByteSums &sums, const ByteMean<u16> &given,
                 const RowOfBytes &row) {
    const ByteMean<u16> mean = given;
    const size_t count = width ? width : b.width, step = b.step;
    for (size_t x = 0; x < row.n; x += lanes_of<u16>) {
        Vector<u16> sum = load_vector<u16>(sums.full, x);
#pragma GCC unroll 8
        for (size_t k = 1; k < count; ++k) sum += load_vector<u16>(sums.full, x + k * step);
        row.put(x, mean(sum));
    }
}

// Of all columns of the first window but its last, for one channel.
inline u32 sum_before(const BoxDown &b, const ByteSums &sums, size_t channel) {
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

// Sums of a vector by sums of 1, 2, 4 ... changes; then what all before it have come to.
inline void many_columns(const BoxDown &b, const ByteSums &sums, const ByteMean<u32> &given,
                         const RowOfBytes &row) {
    const ByteMean<u32> mean = given;
    Below below[4];
    for (size_t m = 0; m < 4; ++m) below[m].set(b.step << m);
    alignas(64) u32 last[16] = {}, before[16];
    for (size_t c = 0; c < b.step; ++c)
        last[16 - b.step + c] = mean.half() + sum_before(b, sums, c);
    for (size_t i = 0; i < 16; ++i) before[i] = static_cast<u32>(16 - b.step + i % b.step);
    const __m512i place = _mm512_load_si512(before);
    __m512i sum = _mm512_load_si512(last);
    const u16 *const out = sums.full - b.step, *const in = sums.full + (b.width - 1) * b.step;
    for (size_t x = 0; x < row.n; x += 16) {
        const __m512i carry = _mm512_permutexvar_epi32(place, sum);
        sum = _mm512_sub_epi32(wide(in + x), wide(out + x));
        for (const Below &m : below) sum = m.added(sum);
        sum = _mm512_add_epi32(sum, carry);
        row.put(x, __builtin_convertvector(mean.quotients(reinterpret_cast<Vector<s32>>(sum)),
                                           Bytes<u32>));
    }
}

// Of one channel and columns whose changes have 16 bits: pairs of changes at once. A pair's sum is that of
// the window at its second place; of the one at its first, the second change is taken away.
inline void many_columns_by_pairs(const BoxDown &b, const ByteSums &sums,
                                  const ByteMean<u32> &given, const RowOfBytes &row) {
    const ByteMean<u32> mean = given;
    Below below[4];
    for (size_t m = 0; m < 4; ++m) below[m].set(size_t{1} << m);
    const __m512i ones = _mm512_set1_epi16(1), place = _mm512_set1_epi32(15);
    __m512i sum = _mm512_set1_epi32(static_cast<int>(mean.half() + sum_before(b, sums, 0)));
    const u16 *const out = sums.full - 1, *const in = sums.full + b.width - 1;
    for (size_t x = 0; x < row.n; x += 32) {
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
inline void many_columns(const BoxDown &b, const ByteSums &sums, const ByteMean<u32> &given,
                         const RowOfBytes &row) {
    const ByteMean<u32> mean = given;
    u32 *const along = reinterpret_cast<u32 *>(sums.along);
    const u16 *const out = sums.full - b.step, *const in = sums.full + (b.width - 1) * b.step;
    for (size_t c = 0; c < b.step; ++c) {
        u32 sum = mean.half() + sum_before(b, sums, c);
        for (size_t x = c; x < row.n; x += b.step) {
            sum += u32{in[x]} - out[x];
            along[x] = sum;
        }
    }
    for (size_t x = 0; x < row.n; x += lanes_of<u32>)
        row.put(x, __builtin_convertvector(mean.quotients(load_vector<s32>(along, x)), Bytes<u32>));
}
inline void many_columns_by_pairs(const BoxDown &b, const ByteSums &sums, const ByteMean<u32> &mean,
                                  const RowOfBytes &row) {
    many_columns(b, sums, mean, row);
}
#endif

// ---- loops ---------------------------------------------------------------------------------------

// row (out, sums) makes a result row.
template<class Row> void each_row_of_bytes(const BoxDown &b, const Row &row) {
    const ByteSums sums(b);
    const size_t columns = b.n + (b.width - 1) * b.step;
    if (b.first) first_columns(b, sums, columns);
    for (size_t g = 0; g < b.group; ++g) {
        next_columns(b, g, sums, columns);
        row(RowOfBytes{b.out + static_cast<ptrdiff_t>(g) * b.out_step, b.n}, sums);
    }
}

inline void down_bytes(const BoxDown &b) {
    constexpr size_t few = 8, changes_of_16_bits = 128;
    if (b.width <= few)
        if (const ByteMean<u16> mean(b.count); mean.exact())
            return each_row_of_bytes(b, [&](const RowOfBytes &row, const ByteSums &sums) {
                if (b.width == 3)
                    few_columns<3>(b, sums, mean, row);
                else if (b.width == 5)
                    few_columns<5>(b, sums, mean, row);
                else
                    few_columns<0>(b, sums, mean, row);
            });
    const ByteMean<u32> mean(b.count);
    const bool pairs = b.step == 1 && b.height <= changes_of_16_bits;
    each_row_of_bytes(b, [&](const RowOfBytes &row, const ByteSums &sums) {
        if (pairs)
            many_columns_by_pairs(b, sums, mean, row);
        else
            many_columns(b, sums, mean, row);
    });
}

} // namespace kipx::KIPX_SET
