// stats/sum_rows.cpp - sums, compiled once per instruction set.
#include "stats/sum_rows.h"
#include "core/lanes.h"

namespace kipx::KIPX_SET {
namespace {

// ---- whole sums ----

// Two neighbours of T share a lane of W; W sums of as many turns cannot overflow.
template<class T> struct Doubled;
template<> struct Doubled<u8> {
    using W = u16;
    static constexpr size_t turns = 257;
};
template<> struct Doubled<s8> {
    using W = s16;
    static constexpr size_t turns = 255;
};
template<> struct Doubled<u16> {
    using W = u32;
    static constexpr size_t turns = 65537;
};
template<> struct Doubled<s16> {
    using W = s32;
    static constexpr size_t turns = 65535;
};
template<> struct Doubled<u32> {
    using W = u64;
    static constexpr size_t turns = SIZE_MAX;
};
template<> struct Doubled<s32> {
    using W = s64;
    static constexpr size_t turns = SIZE_MAX;
};

// Element k of a turn belongs to channel k mod C: a turn is a whole number of pixels.
template<class T, uint32_t C> void add_whole(FoldRun run) {
    using W = typename Doubled<T>::W;
    constexpr size_t lanes = vector_bytes / sizeof(T), vectors = C == 3 ? 3 : 4;
    constexpr size_t turn = lanes * vectors, shift = 8 * sizeof(T);
    SumState *state = static_cast<SumState *>(run.states);
    const size_t n = run.n * C;
    size_t i = 0;
    while (n - i >= turn) {
        Vector<W> even[vectors] = {}, odd[vectors] = {};
        for (size_t turns = 0; turns < Doubled<T>::turns && n - i >= turn; ++turns, i += turn)
            for (size_t k = 0; k < vectors; ++k) {
                Vector<T> x = load_vector<T>(run.src, i + k * lanes);
                Vector<W> w = reinterpret_cast<Vector<W>>(x);
                even[k] += w << shift >> shift;
                odd[k] += w >> shift;
            }
        for (size_t k = 0; k < turn; ++k) {
            const Vector<W> &half = k & 1 ? odd[k / lanes] : even[k / lanes];
            state[k % C].whole += static_cast<u64>(half[k % lanes / 2]);
        }
    }
    for (size_t k = 0; i < n; ++i, ++k) state[k % C].whole += static_cast<u64>(load<T>(run.src, i));
}

#if defined(__SSE2__)
// Differences from zero, added by eights.
inline u64 add_eights(const u8 *p, size_t vectors) {
    Vector<u64> sum[4] = {};
    for (; vectors >= 4; vectors -= 4)
        for (size_t k = 0; k < 4; ++k, p += vector_bytes) {
#if defined(__AVX512BW__)
            __m512i eights = _mm512_sad_epu8(_mm512_loadu_si512(p), _mm512_setzero_si512());
#elif defined(__AVX2__)
            __m256i eights = _mm256_sad_epu8(
                _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p)), _mm256_setzero_si256());
#else
            __m128i eights = _mm_sad_epu8(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p)),
                                          _mm_setzero_si128());
#endif
            sum[k] += reinterpret_cast<Vector<u64>>(eights);
        }
    sum[0] += sum[1] + sum[2] + sum[3];
    u64 total = 0;
    for (size_t i = 0; i < vector_bytes / 8; ++i) total += sum[0][i];
    return total;
}
#endif

template<class T> void whole(FoldRun run) {
#if defined(__SSE2__)
    if constexpr (same<T, u8>)
        if (run.channels == 1) {
            const u8 *p = static_cast<const u8 *>(run.src);
            size_t done = run.n / (4 * vector_bytes) * (4 * vector_bytes);
            u64 total = add_eights(p, done / vector_bytes);
            for (; done < run.n; ++done) total += p[done];
            static_cast<SumState *>(run.states)->whole += total;
            return;
        }
#endif
    switch (run.channels) {
    case 1:
        return add_whole<T, 1>(run);
    case 2:
        return add_whole<T, 2>(run);
    case 3:
        return add_whole<T, 3>(run);
    default:
        return add_whole<T, 4>(run);
    }
}

// ---- sums of squares ----

// Squares of the even and of the odd elements, in the lanes that two elements share, split once more:
// element 4 p + 2 b + a of a vector is counted in lane p of sum[b][a]. So many turns cannot overflow.
template<class T> struct Squared;
template<> struct Squared<u8> {
    using Square = u16;
    using Sum = u32;
    static constexpr size_t turns = 33025; // of two squares each
};
template<> struct Squared<s8> : Squared<u8> {};
template<> struct Squared<u16> {
    using Square = u32;
    using Sum = u64;
    static constexpr size_t turns = SIZE_MAX;
};
template<> struct Squared<s16> : Squared<u16> {};

#if defined(__SSE2__)
inline Vector<u32> pairs_of_squares(Vector<u16> x) {
#if defined(__AVX512BW__)
    const auto v = reinterpret_cast<__m512i>(x);
    return reinterpret_cast<Vector<u32>>(_mm512_madd_epi16(v, v));
#elif defined(__AVX2__)
    const auto v = reinterpret_cast<__m256i>(x);
    return reinterpret_cast<Vector<u32>>(_mm256_madd_epi16(v, v));
#else
    const auto v = reinterpret_cast<__m128i>(x);
    return reinterpret_cast<Vector<u32>>(_mm_madd_epi16(v, v));
#endif
}
template<class T, uint32_t C> constexpr bool in_pairs = sizeof(T) == 1 && C <= 2;
#endif

template<class T, uint32_t C> void add_squares(FoldRun run) {
    using W = typename Doubled<T>::W;
    using Square = typename Squared<T>::Square;
    using Sum = typename Squared<T>::Sum;
    constexpr size_t lanes = vector_bytes / sizeof(T), vectors = C == 3 ? 3 : 1;
    constexpr size_t turn = lanes * vectors, shift = 8 * sizeof(T);
    SumState *state = static_cast<SumState *>(run.states);
    const size_t n = run.n * C;
    size_t i = 0;
    while (n - i >= turn) {
        Vector<Sum> sum[vectors][2][2] = {};
        for (size_t turns = 0; turns < Squared<T>::turns && n - i >= turn; ++turns, i += turn)
            for (size_t k = 0; k < vectors; ++k) {
                Vector<T> x = load_vector<T>(run.src, i + k * lanes);
                Vector<W> w = reinterpret_cast<Vector<W>>(x);
                Vector<W> halves[2] = {w << shift >> shift, w >> shift};
                for (size_t a = 0; a < 2; ++a) {
                    auto half = reinterpret_cast<Vector<Square>>(halves[a]);
#if defined(__SSE2__)
                    if constexpr (in_pairs<T, C>) { // of one channel: both in the first
                        sum[k][0][a] += pairs_of_squares(half);
                        continue;
                    }
#endif
                    auto squares = reinterpret_cast<Vector<Sum>>(half * half);
                    sum[k][0][a] += squares << 2 * shift >> 2 * shift;
                    sum[k][1][a] += squares >> 2 * shift;
                }
            }
        for (size_t k = 0; k < turn; ++k) {
            const Vector<Sum> &part = sum[k / lanes][k % 4 / 2][k % 2];
            state[k % C].squares[0] += part[k % lanes / 4];
        }
    }
    for (size_t k = 0; i < n; ++i, ++k) {
        const s64 x = load<T>(run.src, i); // NOLINT(bugprone-signed-char-misuse): no characters
        state[k % C].squares[0] += static_cast<u64>(x * x);
    }
}

// Squares of 64 bits, by their words: a sum of 2^32 words cannot overflow.
template<class T, uint32_t C> void add_wide_squares(FoldRun run) {
    SumState *state = static_cast<SumState *>(run.states);
    u64 low[C] = {}, high[C] = {};
    for (size_t i = 0; i < run.n; ++i)
        for (uint32_t c = 0; c < C; ++c) {
            const auto x = static_cast<typename Doubled<T>::W>(load<T>(run.src, i * C + c));
            const u64 square = static_cast<u64>(x) * static_cast<u64>(x);
            low[c] += square & 0xffffffffu, high[c] += square >> 32;
        }
    for (uint32_t c = 0; c < C; ++c) state[c].squares[0] += low[c], state[c].squares[1] += high[c];
}

template<class T, uint32_t C> void squares_of(FoldRun run) {
    if constexpr (sizeof(T) == 4)
        add_wide_squares<T, C>(run);
    else
        add_squares<T, C>(run);
}

template<class T> void squares(FoldRun run) {
    switch (run.channels) {
    case 1:
        return squares_of<T, 1>(run);
    case 2:
        return squares_of<T, 2>(run);
    case 3:
        return squares_of<T, 3>(run);
    default:
        return squares_of<T, 4>(run);
    }
}

// Sums, too, while elements are in the second cache.
template<class T> void whole_and_squares(FoldRun run) {
    const size_t pixel = run.channels * sizeof(T), most = 131072 / pixel;
    for (size_t done = 0; done < run.n; done += most) {
        FoldRun part = run;
        part.src = static_cast<const char *>(run.src) + done * pixel;
        part.n = run.n - done < most ? run.n - done : most;
        whole<T>(part);
        squares<T>(part);
    }
}

// ---- paired sums ----

inline void push(PairedSum &s, f64 x) {
    u32 level = 0;
    for (; s.count >> level & 1; ++level) x = s.level[level] + x;
    s.level[level] = x;
    ++s.count;
}

constexpr size_t f64_lanes = vector_bytes / sizeof(f64);

template<class T> Vector<f64> widened(const void *src, size_t i) {
#if defined(__AVX512F__) // the compiler makes it of two halves
    if constexpr (same<T, f32>)
        return reinterpret_cast<Vector<f64>>(
            _mm512_cvtps_pd(_mm256_loadu_ps(static_cast<const f32 *>(src) + i)));
#endif
    typedef T Part __attribute__((vector_size(f64_lanes * sizeof(T))));
    Part x;
    memcpy(&x, static_cast<const char *>(src) + i * sizeof(T), sizeof x);
    return __builtin_convertvector(x, Vector<f64>);
}

template<bool squares> inline auto term(auto x, auto mean) {
    if constexpr (squares)
        return (x - mean) * (x - mean);
    else
        return x;
}

// Halves onto halves, down to one.
template<size_t half> inline f64 folded(f64 *sum) {
    for (size_t k = 0; k < half; ++k) sum[k] += sum[k + half];
    if constexpr (half == 1)
        return sum[0];
    else
        return folded<half / 2>(sum);
}

// One block of at most fold_length pixels. Lane l of channel c is element l * C + c.
template<class T, uint32_t C, bool squares>
void add_block(const void *src, size_t pixels, SumState *state) {
    constexpr size_t lanes = size_t{sum_lanes} * C, vectors = lanes / f64_lanes;
    alignas(64) f64 sum[lanes], mean[lanes];
    Vector<f64> sums[vectors] = {}, means[vectors];
    if constexpr (squares) {
        for (size_t k = 0; k < lanes; ++k) mean[k] = state[k % C].mean;
        memcpy(means, mean, sizeof mean);
    }
    const size_t n = pixels * C;
    size_t i = 0;
    for (; n - i >= lanes; i += lanes)
        for (size_t k = 0; k < vectors; ++k)
            sums[k] += term<squares>(widened<T>(src, i + k * f64_lanes), means[k]);
    if (i < n) {
        memcpy(sum, sums, sizeof sum);
        for (size_t k = 0; i < n; ++i, ++k)
            sum[k] += term<squares>(static_cast<f64>(load<T>(src, i)), squares ? mean[k] : 0);
        memcpy(sums, sum, sizeof sum);
    }
    // Halves onto halves: whole vectors as long as there is an even number of them.
    size_t half = lanes / 2;
    for (; half >= C && half % f64_lanes == 0; half /= 2)
        for (size_t k = 0; k < half / f64_lanes; ++k) sums[k] += sums[k + half / f64_lanes];
    memcpy(sum, sums, 2 * half * sizeof(f64));
    if constexpr (C == 1) return push(state->paired, folded<f64_lanes / 2>(sum));
    for (; half >= C; half /= 2)
        for (size_t k = 0; k < half; ++k) sum[k] += sum[k + half];
    for (uint32_t c = 0; c < C; ++c) push(state[c].paired, sum[c]);
}

template<class T, uint32_t C, bool squares> void add_blocks(FoldRun run) {
    for (size_t done = 0; done < run.n; done += fold_length) {
        size_t n = run.n - done < fold_length ? run.n - done : fold_length;
        add_block<T, C, squares>(static_cast<const char *>(run.src) + done * C * sizeof(T), n,
                                 static_cast<SumState *>(run.states));
    }
}

template<class T, bool squares> void paired(FoldRun run) {
    switch (run.channels) {
    case 1:
        return add_blocks<T, 1, squares>(run);
    case 2:
        return add_blocks<T, 2, squares>(run);
    case 3:
        return add_blocks<T, 3, squares>(run);
    default:
        return add_blocks<T, 4, squares>(run);
    }
}

template<class T> constexpr FoldLoop elements() {
    if constexpr (floating<T>)
        return paired<T, false>;
    else
        return whole<T>;
}
template<class T> constexpr FoldLoop squared() {
    if constexpr (floating<T>)
        return paired<T, true>;
    else
        return whole_and_squares<T>;
}

} // namespace

#define KIPX_ELEMENTS(T) elements<T>(),
#define KIPX_SQUARES(T) squared<T>(),
extern const FoldLoop sum_rows[sum_row_count] = {KIPX_NUMERIC_TYPES(KIPX_ELEMENTS)
                                                     KIPX_NUMERIC_TYPES(KIPX_SQUARES)};

} // namespace kipx::KIPX_SET
