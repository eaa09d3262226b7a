// filter/box_rows.cpp - the row loops of the mean over rectangles, compiled once per instruction set.
//
// Promises every set gives the same bits: sums of real numbers are formed in one order.
#include "filter/box_rows.h"
#include "core/element.h"
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

// u8 of at most 256 positions: the quotient by a product, where that has been found to be exact for
// every multiple of the count and its neighbour below; it grows with the sum, so that is enough.
template<> struct Mean<u8, u16> {
    Mean<u8, u32> other;
    u16 half, factor, count, even;
    u32 shift;
    bool exact;
    explicit Mean(const BoxDown &b)
        : other(b), half(static_cast<u16>(b.count / 2)), factor(0),
          count(static_cast<u16>(b.count)), even(b.count % 2 == 0), shift(0),
          exact(b.count > 1 && b.count <= 256) {
        if (!exact) return;
        while (uint64_t{2} << shift < b.count) ++shift;
        u64 f = ((u64{65536} << shift) + b.count - 1) / b.count;
        factor = static_cast<u16>(f);
        exact = f < 65536;
        for (u32 q = 1; exact && q <= 256; ++q) {
            u32 n = q * static_cast<u32>(b.count);
            exact = (n > 65535 || (n * factor >> 16) >> shift == q) &&
                    (n > 65536 || ((n - 1) * factor >> 16) >> shift == q - 1);
        }
    }
    void operator()(char *to, const u16 *sums, size_t n) const {
        if (!exact) {
            u32 wide[chunk];
            for (size_t i = 0; i < n; ++i) wide[i] = sums[i];
            return other(to, wide, n);
        }
        const u16 h = half, f = factor, c = count, e = even;
        const u32 s = shift;
        for (size_t i = 0; i < n; ++i) {
            u16 t = static_cast<u16>(sums[i] + h);
            u16 q = static_cast<u16>(static_cast<u32>(t) * f >> 16);
            q = static_cast<u16>(q >> s);
            u16 tie = static_cast<u16>(t == static_cast<u16>(q * c) ? 1 : 0);
            store(to, i, static_cast<u8>(q - (tie & q & e)));
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
            mean(b.out + static_cast<ptrdiff_t>(g) * b.step + x * sizeof(T), sum, n);
            KIPX_INDEPENDENT
            for (size_t i = 0; i < n; ++i) shared[i] = static_cast<A>(sum[i] - out[i]);
        }
    }
}

Vector<u16> high_half_of_product(Vector<u16> a, Vector<u16> b) {
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

// Bytes by products, two vectors of sums at a time from one group's first row to its last.
void down_bytes(const BoxDown &b) {
    const Mean<u8, u16> mean(b);
    if (!mean.exact) return down_integers<u8, u16>(b);
    constexpr size_t lanes = vector_bytes / sizeof(u16), most = 2 * lanes;
    typedef u8 Bytes __attribute__((vector_size(lanes)));
    const Vector<u16> none{}, half = none + mean.half, factor = none + mean.factor,
                              count = none + mean.count, even = none + mean.even;
    const int shift = static_cast<int>(mean.shift);
    for (size_t x = 0; x < b.n; x += most) {
        u16 *const shared = reinterpret_cast<u16 *>(b.shared) + x;
        Vector<u16> sum[2] = {};
        if (b.first) {
            for (size_t i = 0; i + 1 < b.height; ++i)
                for (size_t k = 0; k < 2; ++k)
                    sum[k] += load_vector<u16>(row_of<u16>(b, i, x), k * lanes);
        } else {
            memcpy(sum, shared, sizeof sum);
        }
        char *to = b.out + x;
        for (size_t g = 0; g < b.group; ++g, to += b.step) {
            u8 bytes[most];
            for (size_t k = 0; k < 2; ++k) {
                sum[k] += load_vector<u16>(row_of<u16>(b, g + b.height - 1, x), k * lanes);
                const Vector<u16> t = sum[k] + half, q = high_half_of_product(t, factor) >> shift;
                const Vector<u16> tie = q * count == t ? q & even : none;
                const Bytes means = __builtin_convertvector(q - tie, Bytes);
                memcpy(bytes + k * lanes, &means, sizeof means);
                sum[k] -= load_vector<u16>(row_of<u16>(b, g, x), k * lanes);
            }
            if (b.n - x >= most)
                memcpy(to, bytes, most);
            else
                memcpy(to, bytes, b.n - x);
        }
        memcpy(shared, sum, sizeof sum);
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
            char *to = b.out + static_cast<ptrdiff_t>(g) * b.step + x * sizeof(T);
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
    if constexpr (floating<T>) return {along<T, A>, down_reals<T, A>, most, sizeof(A)};
    return {along<T, A>, down_integers<T, A>, most, sizeof(A)};
}

constexpr BoxSet make_set() {
    constexpr uint64_t all = UINT64_MAX;
    BoxSet set{};
    set.loops[KIPX_CODE_u8][0] = {along<u8, u16>, down_bytes, 257, sizeof(u16)};
    set.loops[KIPX_CODE_u8][1] = loops_of<u8, u32>(1u << 24);
    set.loops[KIPX_CODE_u8][2] = loops_of<u8, s64>(all);
    set.loops[KIPX_CODE_s8][0] = loops_of<s8, s32>(1u << 24);
    set.loops[KIPX_CODE_s8][1] = loops_of<s8, s64>(all);
    set.loops[KIPX_CODE_s16][0] = loops_of<s16, s32>(1u << 15);
    set.loops[KIPX_CODE_s16][1] = loops_of<s16, s64>(all);
    set.loops[KIPX_CODE_u16][0] = loops_of<u16, u32>(1u << 16);
    set.loops[KIPX_CODE_u16][1] = loops_of<u16, s64>(all);
    set.loops[KIPX_CODE_s32][0] = loops_of<s32, s64>(all);
    set.loops[KIPX_CODE_u32][0] = loops_of<u32, s64>(all);
    set.loops[KIPX_CODE_f32][0] = loops_of<f32, f64>(all);
    set.loops[KIPX_CODE_f64][0] = loops_of<f64, f64>(all);
    return set;
}

} // namespace

extern const BoxSet box_sets[1] = {make_set()};

} // namespace kipx::KIPX_SET
