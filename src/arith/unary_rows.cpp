// arith/unary_rows.cpp - the row loops of exponential, logarithm and sigmoid, compiled once per
// instruction set.
#include "arith/unary_rows.h"
#include "arith/unary_values.h"

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

template<UnaryOp op> void work(f64 *values, [[maybe_unused]] const f64 *alpha, size_t n) {
    KIPX_INDEPENDENT
    for (size_t i = 0; i < n; ++i) {
        if constexpr (op == UnaryOp::negate)
            values[i] = -values[i];
        else if constexpr (op == UnaryOp::exponential)
            values[i] = exponential(values[i]);
        else if constexpr (op == UnaryOp::logarithm)
            values[i] = logarithm(values[i]);
        else if constexpr (op == UnaryOp::sigmoid)
            values[i] = sigmoid(values[i], load<f64>(alpha, i));
        else
            values[i] = precise_sigmoid(values[i], load<f64>(alpha, i));
    }
}

void by_blocks(Run run) {
    const auto &way = *static_cast<const UnaryWay *>(run.params);
    const auto *alpha = static_cast<const f64 *>(run.src[1]);
    alignas(64) f64 block[unary_block];
    for (size_t at = 0; at < run.n; at += unary_block) {
        const size_t n = run.n - at < unary_block ? run.n - at : unary_block;
        way.read(block, run.src[0], at, n);
        way.work(block, alpha ? alpha + at : nullptr, n);
        way.write(run.dst, block, at, n, way.factor);
    }
}

template<UnaryOp op> void single(Run run) {
    const auto factor = static_cast<f32>(static_cast<const UnaryWay *>(run.params)->factor);
    const auto value = [=](f32 x, f32) {
        const f32 r = op == UnaryOp::negate        ? -x
                      : op == UnaryOp::exponential ? exponential(x)
                                                   : logarithm(x);
        return one_nan(r * factor);
    };
    row_of_elements<f32, f32, f32>(run.dst, run.src[0], run.src[0], run.n,
                                   run.writing == Writing::streamed, value);
}

} // namespace

#define KIPX_TYPES(loop) loop<u8>, loop<s16>, loop<s32>, loop<f32>, loop<f64>
extern const UnaryLoops unary_loops[1] = {
    {{KIPX_TYPES(read)},
     {work<UnaryOp::negate>, work<UnaryOp::exponential>, work<UnaryOp::logarithm>,
      work<UnaryOp::sigmoid>, work<UnaryOp::precise_sigmoid>},
     {KIPX_TYPES(write)},
     single<UnaryOp::negate>,
     single<UnaryOp::exponential>,
     single<UnaryOp::logarithm>,
     by_blocks}};

} // namespace kipx::KIPX_SET
