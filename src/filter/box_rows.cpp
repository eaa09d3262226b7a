// filter/box_rows.cpp - the row loops of the mean over rectangles, compiled once per instruction set.
//
// Promises every set gives the same bits: sums of real numbers are formed in one order.
#include "filter/box_rows.h"
#include "core/element.h"
#include "filter/box_bytes.h"
#include "filter/box_reals.h"
#include "filter/box_shorts.h"
#include "filter/gather.h"

namespace kipx::KIPX_SET {
namespace {

// Elements that go through a buffer together.
constexpr size_t chunk = 256;

// Integers that wrap: sums never do, but what lies behind a row in its last vector may be anything.
template<class A> struct Wrapping { using Type = A; };
template<> struct Wrapping<s32> { using Type = u32; };
template<> struct Wrapping<s64> { using Type = u64; };

// to = a + b, whole vectors of them; b may lie ahead of a, and `to` be a.
template<class A> void add(A *to, const A *a, const A *b, size_t n) {
    using W = typename Wrapping<A>::Type;
    constexpr size_t lanes = vector_bytes / sizeof(A);
    for (size_t i = 0; i < n; i += lanes) {
        const Vector<W> sum = load_vector<W>(a, i) + load_vector<W>(b, i);
        memcpy(to + i, &sum, sizeof sum);
    }
}

// Windows of 1, 2, 4 ... pixels, of which those that make up the width are added.
template<class T, class A> void few_along(const BoxAlong &b, size_t first, size_t rows) {
    const Wanted wanted{b.reach, b.source, b.step};
    auto sums = [&](size_t y) { return reinterpret_cast<A *>(b.sums + y * b.pitch); };
    auto out = [&](size_t y) {
        return reinterpret_cast<A *>(b.out + static_cast<ptrdiff_t>(first + y) * b.out_step);
    };
    for (size_t y = 0; y < rows; ++y)
        gather<T>(wanted, b.band.at + static_cast<ptrdiff_t>(first + y) * b.band.step, sums(y));
    size_t length = b.n + (b.width - 1) * b.step, from = 0;
    for (size_t w = 1; w <= b.width; w *= 2) {
        if (b.width & w) {
            for (size_t y = 0; y < rows; ++y) {
                if (from == 0)
                    memcpy(out(y), sums(y), b.n * sizeof(A));
                else
                    add(out(y), out(y), sums(y) + from, b.n);
            }
            from += w * b.step;
        }
        if (2 * w > b.width) break;
        length -= w * b.step;
        for (size_t y = 0; y < rows; ++y) add(sums(y), sums(y), sums(y) + w * b.step, length);
    }
}

template<class T, class A> void along(const BoxAlong &b) {
    for (size_t y = 0; y < b.band.rows; y += b.together) {
        const size_t left = b.band.rows - y;
        few_along<T, A>(b, y, left < b.together ? left : b.together);
    }
}

// Quotients to nearest even. Below 2^53 everything here is exact but the first product, which is
// off by one at most.
template<class T, class A> struct Mean {
    f64 count, inverse;
    s64 whole;
    bool exact; // the sums are below 2^53
    explicit Mean(const BoxDown &b)
        : count(static_cast<f64>(b.count)), inverse(1.0 / static_cast<f64>(b.count)),
          whole(static_cast<s64>(b.count)), exact(sizeof(T) < 4 || b.count <= (1u << 21)) {}
    void operator()(char *to, const A *sums, size_t n) const {
        if constexpr (floating<T>) {
            for (size_t i = 0; i < n; ++i) store(to, i, static_cast<T>(one_nan(sums[i] * inverse)));
        } else if (exact) {
            for (size_t i = 0; i < n; ++i) {
                f64 sum = static_cast<f64>(sums[i]), q = nearest(sum * inverse);
                f64 twice = 2 * (sum - q * count), half = q * 0.5;
                bool odd = half != nearest(half);
                f64 up = twice > count || (twice == count && odd) ? 1.0 : 0.0;
                f64 down = -twice > count || (-twice == count && odd) ? 1.0 : 0.0;
                store(to, i, static_cast<T>(static_cast<s64>(q + up - down)));
            }
        } else {
            for (size_t i = 0; i < n; ++i) {
                s64 sum = static_cast<s64>(sums[i]), q = sum / whole, rest = sum % whole;
                s64 size = rest < 0 ? -rest : rest, other = whole - size;
                if (size > other || (size == other && (q & 1))) q += sum < 0 ? -1 : 1;
                store(to, i, static_cast<T>(q));
            }
        }
    }
};

template<class A> const A *row_of(const BoxDown &b, size_t i, size_t x) {
    return reinterpret_cast<const A *>(b.rows[i]) + x;
}

template<class A> void add(A *to, const A *row, size_t n) {
    KIPX_INDEPENDENT
    for (size_t i = 0; i < n; ++i) to[i] = static_cast<A>(to[i] + row[i]);
}

template<class T, class A> void down_integers(const BoxDown &b) {
    const Mean<T, A> mean(b);
    for (size_t x = 0; x < b.n; x += chunk) {
        size_t n = b.n - x < chunk ? b.n - x : chunk;
        alignas(64) A sum[chunk];
        A *const shared = reinterpret_cast<A *>(b.shared) + x;
        if (b.first) {
            memset(shared, 0, n * sizeof(A));
            for (size_t i = 0; i + 1 < b.height; ++i) add(shared, row_of<A>(b, i, x), n);
        }
        for (size_t g = 0; g < b.group; ++g) {
            const A *in = row_of<A>(b, g + b.height - 1, x), *out = row_of<A>(b, g, x);
            KIPX_INDEPENDENT
            for (size_t i = 0; i < n; ++i) sum[i] = static_cast<A>(shared[i] + in[i]);
            mean(b.out + static_cast<ptrdiff_t>(g) * b.out_step + x * sizeof(T), sum, n);
            KIPX_INDEPENDENT
            for (size_t i = 0; i < n; ++i) shared[i] = static_cast<A>(sum[i] - out[i]);
        }
    }
}

template<class T, class A> void down_reals(const BoxDown &b) {
    constexpr size_t most_group = 16, piece = 64;
    const Mean<T, A> mean(b);
    if (b.group == 0 || b.group > most_group) return;
    const size_t last = b.group - 1;
    for (size_t x = 0; x < b.n; x += piece) {
        size_t n = b.n - x < piece ? b.n - x : piece;
        alignas(64) A upper[most_group][piece], lower[piece], sum[piece];
        // upper[g]: the rows of window g that lie above the end of window 0.
        memcpy(upper[last], row_of<A>(b, b.height - 1, x), n * sizeof(A));
        for (size_t i = b.height - 1; i-- >= b.group;) add(upper[last], row_of<A>(b, i, x), n);
        for (size_t g = last; g-- > 0;) {
            memcpy(upper[g], upper[g + 1], n * sizeof(A));
            add(upper[g], row_of<A>(b, g, x), n);
        }
        for (size_t g = 0; g < b.group; ++g) {
            char *to = b.out + static_cast<ptrdiff_t>(g) * b.out_step + x * sizeof(T);
            if (g == 0) {
                mean(to, upper[0], n);
                continue;
            }
            const A *next = row_of<A>(b, g + b.height - 1, x);
            if (g == 1)
                memcpy(lower, next, n * sizeof(A));
            else
                add(lower, next, n);
            for (size_t i = 0; i < n; ++i) sum[i] = upper[g][i] + lower[i];
            mean(to, sum, n);
        }
    }
}

template<class T, class A> constexpr BoxLoops loops_of(uint64_t most) {
    constexpr uint32_t any = UINT32_MAX;
    if constexpr (floating<T>)
        return {along<T, A>, down_reals<T, A>, most, any, any, sizeof(A), BoxWay::rows_first};
    return {along<T, A>, down_integers<T, A>, most, any, any, sizeof(A), BoxWay::rows_first};
}

constexpr BoxLoops columns_first(void (*down)(const BoxDown &), uint64_t most,
                                 uint32_t highest = UINT32_MAX) {
    return {copy_rows<BoxAlong>,  down, most, highest, UINT32_MAX, sizeof(u32),
            BoxWay::columns_first};
}

template<class T> constexpr void shorts(BoxLoops (&loops)[box_variants]) {
    loops[0] = columns_first(down_shorts<T, ShortQuotient>, ShortQuotient::most_positions);
    loops[1] = columns_first(down_shorts<T, LongQuotient>, LongQuotient::most_positions);
    loops[2] = loops_of<T, s64>(UINT64_MAX);
}

template<class T> constexpr void reals(BoxLoops (&loops)[box_variants]) {
    loops[0] = {copy_rows<BoxAlong>, down_few_reals<T>, UINT64_MAX,    box_direct,
                box_direct,          sizeof(f64),       BoxWay::direct};
    loops[1] = loops_of<T, f64>(UINT64_MAX);
}

constexpr BoxSet make_set() {
    constexpr uint64_t all = UINT64_MAX;
    BoxSet set{};
    set.loops[KIPX_CODE_u8][0] = columns_first(down_bytes, ByteMean<u32>::most_positions, 257);
    set.loops[KIPX_CODE_u8][1] = loops_of<u8, u32>(1u << 24);
    set.loops[KIPX_CODE_u8][2] = loops_of<u8, s64>(all);
    set.loops[KIPX_CODE_s8][0] = loops_of<s8, s32>(1u << 24);
    set.loops[KIPX_CODE_s8][1] = loops_of<s8, s64>(all);
    shorts<s16>(set.loops[KIPX_CODE_s16]);
    shorts<u16>(set.loops[KIPX_CODE_u16]);
    set.loops[KIPX_CODE_s32][0] = loops_of<s32, s64>(all);
    set.loops[KIPX_CODE_u32][0] = loops_of<u32, s64>(all);
    reals<f32>(set.loops[KIPX_CODE_f32]);
    reals<f64>(set.loops[KIPX_CODE_f64]);
    return set;
}

} // namespace

extern const BoxSet box_sets[1] = {make_set()};

} // namespace kipx::KIPX_SET
