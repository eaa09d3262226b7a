// arith/unary_rows.cpp - the row loops of exponential, logarithm and sigmoid, compiled once per
// instruction set.
#include "arith/unary_rows.h"
#include "arith/unary_sigmoids.h"

namespace kipx::KIPX_SET {
namespace {

template<class T> void read(f64 *to, const void *from, size_t at, size_t n) {
    KIPX_INDEPENDENT
    for (size_t i = 0; i < n; ++i) to[i] = static_cast<f64>(load<T>(from, at + i));
}

template<class T> void write(void *to, const f64 *from, size_t at, size_t n, f64 factor) {
    KIPX_INDEPENDENT
    for (size_t i = 0; i < n; ++i) {
        const f64 r = from[i] * factor;
        if constexpr (floating<T>)
            store(to, at + i, one_nan(static_cast<T>(r)));
        else
            store(to, at + i, round_saturate<T>(r));
    }
}

inline bool any(Vector<u64> bits) {
#if defined(__AVX512F__)
    const auto all_bits = reinterpret_cast<__m512i>(bits);
    return _mm512_test_epi64_mask(all_bits, all_bits) != 0;
#elif defined(__AVX2__)
    const auto all_bits = reinterpret_cast<__m256i>(bits);
    return !_mm256_testz_si256(all_bits, all_bits);
#else
    return (bits[0] | bits[1]) != 0;
#endif
}

template<class T> inline Vector<T> finished(Vector<T> y, T factor) {
    y *= factor;
    return y == y ? y : all(static_cast<T>(__builtin_nan("")));
}

// The function of n numbers, four vectors at a time.
template<class T, class Function>
void row_of(void *dst, const void *src, size_t n, Function function, T factor, bool streamed) {
    constexpr size_t vectors = 4, lanes = vector_bytes / sizeof(T), block = vectors * lanes;
    struct Block {
        alignas(64) Vector<T> at[vectors];
    };
    const auto work = [=](const void *from, Block &to) __attribute__((always_inline)) {
        Vector<Word<T>> odd = {};
#pragma GCC unroll 4
        for (size_t v = 0; v < vectors; ++v)
            to.at[v] = function.template simple<T>(load_vector<T>(from, v * lanes), odd);
        if (factor == 1 && !any(reinterpret_cast<Vector<u64>>(odd & Function::template special<T>)))
            return;
        for (size_t v = 0; v < vectors; ++v)
            to.at[v] = finished(function.template of<T>(load_vector<T>(from, v * lanes)), factor);
    };
    const auto *from = static_cast<const char *>(src);
    auto *to = static_cast<char *>(dst);
    size_t done = 0;
    for (; done + block <= n; done += block) {
        Block b;
        work(from + done * sizeof(T), b);
        if (streamed)
            for (size_t i = 0; i < sizeof b; i += 64)
                stream_line(to + done * sizeof(T) + i, reinterpret_cast<const char *>(&b) + i);
        else
            memcpy(to + done * sizeof(T), &b, sizeof b);
    }
    if (done == n) return;
    T rest[block] = {};
    Block b;
    memcpy(rest, from + done * sizeof(T), (n - done) * sizeof(T));
    work(rest, b);
    memcpy(to + done * sizeof(T), &b, (n - done) * sizeof(T));
}

template<class Function> void work(f64 *values, size_t n, f64) {
    row_of<f64>(values, values, n, Function(), 1.0, false);
}
void negative(f64 *values, size_t n, f64) {
    KIPX_INDEPENDENT
    for (size_t i = 0; i < n; ++i) values[i] = -values[i];
}
// The values are there up to the end of a vector.
template<class Function> void sigmoids(f64 *values, size_t n, f64 alpha) {
    const Function function(alpha);
    for (size_t i = 0; i < n; i += vector_bytes / sizeof(f64)) {
        const Vector<f64> y = function.template of<f64>(load_vector<f64>(values, i));
        memcpy(values + i, &y, sizeof y);
    }
}

void by_blocks(Run run) {
    const auto &way = *static_cast<const UnaryWay *>(run.params);
    alignas(64) f64 block[unary_block] = {};
    for (size_t at = 0; at < run.n; at += unary_block) {
        const size_t n = run.n - at < unary_block ? run.n - at : unary_block;
        way.read(block, run.src[0], at, n);
        way.work(block, n, way.alpha);
        way.write(run.dst, block, at, n, way.factor);
    }
}

template<class T, class Function> void direct(Run run, Function function) {
    const auto factor = static_cast<T>(static_cast<const UnaryWay *>(run.params)->factor);
    row_of<T>(run.dst, run.src[0], run.n, function, factor, run.writing == Writing::streamed);
}
template<class T, class Function> void direct(Run run) { direct<T>(run, Function()); }
template<class T, class Function> void direct_sigmoid(Run run) {
    const f64 alpha = static_cast<const UnaryWay *>(run.params)->alpha;
    if (moderate(alpha))
        direct<T>(run, Function(alpha));
    else
        by_blocks(run);
}
void single_negative(Run run) {
    const auto factor = static_cast<f32>(static_cast<const UnaryWay *>(run.params)->factor);
    row_of_elements<f32, f32, f32>(run.dst, run.src[0], run.src[0], run.n,
                                   run.writing == Writing::streamed,
                                   [=](f32 x, f32) { return one_nan(-x * factor); });
}

} // namespace

#define KIPX_TYPES(loop) loop<u8>, loop<s16>, loop<s32>, loop<f32>, loop<f64>
extern const UnaryLoops unary_loops[1] = {
    {{KIPX_TYPES(read)},
     {negative, work<Exponential>, work<Logarithm>, sigmoids<PlainSigmoid>,
      sigmoids<DoubleSigmoid>},
     {KIPX_TYPES(write)},
     {single_negative, direct<f32, Exponential>, direct<f32, Logarithm>,
      direct_sigmoid<f32, SingleSigmoid>},
     {by_blocks, direct<f64, Exponential>, direct<f64, Logarithm>,
      direct_sigmoid<f64, DoubleSigmoid>},
     by_blocks}};

} // namespace kipx::KIPX_SET
