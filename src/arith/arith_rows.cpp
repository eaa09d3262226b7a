// arith/arith_rows.cpp - the row loops of the binary arithmetic, compiled once per instruction set.
//
// Gives    arith_rows, one loop per (operation, type triple), in the order of ArithKernel.
// Promises each set gives the same bits. A NaN result is always the quiet NaN 0x7fc00000, since
//          which of two NaN operands survives an operation differs between processors.
// Costs    one pass; the loop is chosen by the scale's mode before it starts.
#include "arith/arith_rows.h"
#include "arith/arith_avx512.h"
#include "arith/arith_quick.h"
#include "arith/arith_values.h"

namespace kipx::KIPX_SET {
namespace {

// One run as the ways below take it.
struct Row {
    void *dst;
    const void *a, *b;
    size_t n;
    const ArithScale &scale;
    bool streamed;
};

template<class T, class D, class A, class B>
inline constexpr bool all_of = same<D, T> &&same<A, T> &&same<B, T>;
// Products and sums of a known form have ways that compute with what they are.
template<class Op>
inline constexpr bool known = Op::kind == Kind::product || Op::form != Form::other;

// ---- shorter ways for sums and products; each answers whether it was one for this row ----

template<class Op, class D, class A, class B> bool scaled_bytes([[maybe_unused]] const Row &r) {
#if defined(__AVX512VBMI__)
    if constexpr (all_of<u8, D, A, B> && Op::kind == Kind::product) {
        if (r.scale.mode != ScaleMode::down || r.scale.shift < 2 || r.scale.shift > 9) return false;
        return row_of_scaled_byte_products(r.dst, r.a, r.b, r.n, r.scale.shift, r.streamed), true;
    } else if constexpr (all_of<u8, D, A, B> && known<Op>) {
        if (r.scale.mode != ScaleMode::down || r.scale.shift < 2 || r.scale.shift > 8) return false;
        return row_of_scaled_byte_sums<Op>(r.dst, r.a, r.b, r.n, r.scale.shift, r.streamed), true;
    }
#endif
    return false;
}

template<class Op, class D, class A, class B> bool paired_bytes([[maybe_unused]] const Row &r) {
    if constexpr (all_of<u8, D, A, B> && known<Op>) {
        bool pairs = r.scale.mode == ScaleMode::down && r.scale.shift > 1;
        if constexpr (Op::kind == Kind::product) pairs = r.scale.mode != ScaleMode::up;
        return pairs && row_of_bytes<Op>(r.dst, r.a, r.b, r.n, r.scale, r.streamed);
    }
    return false;
}

template<class Op, class D, class A, class B> bool halved([[maybe_unused]] const Row &r) {
    using Short = Quick<Op, D, A, B>;
    if constexpr (requires { &Short::half; }) {
        if (r.scale.mode != ScaleMode::down || r.scale.shift != 1) return false;
        row_of_elements<D, A, B>(r.dst, r.a, r.b, r.n, r.streamed,
                                 [](A x, B y) { return Short::half(x, y); });
        return true;
    }
    return false;
}

template<class Op, class D, class A, class B> bool scaled_words([[maybe_unused]] const Row &r) {
#if defined(__AVX512VBMI__)
    if constexpr (all_of<s16, D, A, B> && known<Op>)
        if (r.scale.mode == ScaleMode::down)
            return row_of_scaled_words<Op>(r.dst, r.a, r.b, r.n, r.scale.factor, r.streamed), true;
#endif
    return false;
}

template<class Op, class D, class A, class B>
bool unscaled_in_place([[maybe_unused]] const Row &r) {
    using Short = Quick<Op, D, A, B>;
    if constexpr (requires { &Short::none; }) {
        if (r.scale.mode != ScaleMode::none) return false;
        row_of_elements<D, A, B>(r.dst, r.a, r.b, r.n, r.streamed,
                                 [](A x, B y) { return Short::none(x, y); });
        return true;
    }
    return false;
}

// The loops of a sum or product: the first shorter way that is one, else one per mode of the scale.
template<class Op, class D, class A, class B> void row_exact(const Row &r) {
    using W = Wide<Op, D, A, B>;
    if (scaled_bytes<Op, D, A, B>(r) || paired_bytes<Op, D, A, B>(r) || halved<Op, D, A, B>(r) ||
        scaled_words<Op, D, A, B>(r) || unscaled_in_place<Op, D, A, B>(r))
        return;
    auto result = [](A x, B y) { return Op::of(static_cast<W>(x), static_cast<W>(y)); };
    switch (r.scale.mode) {
    case ScaleMode::none:
        return row_of_elements<D, A, B>(r.dst, r.a, r.b, r.n, r.streamed,
                                        [=](A x, B y) { return unscaled<Op, D>(result(x, y)); });
    case ScaleMode::down:
        return row_of_elements<D, A, B>(
            r.dst, r.a, r.b, r.n, false,
            [=, down = Down<Op, D, A, B>(r.scale)](A x, B y) { return down(result(x, y)); });
    case ScaleMode::up:
        return row_of_elements<D, A, B>(
            r.dst, r.a, r.b, r.n, false,
            [=, up = Up<D, W>(r.scale)](A x, B y) { return up(result(x, y)); });
    }
}

// Elements looked through for a zero divisor before they are divided without looking.
constexpr size_t divisor_run = 1024;

template<class B> bool holds_zero(const void *row, size_t n) {
    B found = 0;
    for (size_t i = 0; i < n; ++i) found |= load<B>(row, i) == 0;
    return found != 0;
}

// Unscaled quotients of a run without a zero divisor, by the shorter way; false where there is
// none.
template<class T>
bool short_quotients([[maybe_unused]] void *dst, [[maybe_unused]] const void *dividend,
                     [[maybe_unused]] const void *divisor, [[maybe_unused]] size_t n,
                     [[maybe_unused]] bool streamed) {
#if defined(__AVX512VBMI__)
    if constexpr (same<T, u8>)
        return row_of_byte_quotients(dst, dividend, divisor, n, streamed), true;
    if constexpr (same<T, s16>)
        return row_of_word_quotients(dst, dividend, divisor, n, streamed), true;
#endif
    return false;
}

// Integer quotients. A run with a zero among its divisors is divided by the processor's own
// division, which faults there.
template<class Op, class T>
void row_quotient(void *dst, const void *a, const void *b, size_t n, const ArithScale &scale,
                  bool streamed) {
    const void *divisor = Op::reversed ? a : b, *dividend = Op::reversed ? b : a;
    const f32 factor = scale.quotient_factor;
    const bool scaled = scale.mode != ScaleMode::none;
    auto run = [=](size_t from, size_t to, auto divide) {
        if (scaled) {
            KIPX_INDEPENDENT
            for (size_t i = from; i < to; ++i) {
                f32 q = static_cast<f32>(divide(load<T>(dividend, i), load<T>(divisor, i)));
                store(dst, i, round_saturate<T>(q * factor));
            }
        } else {
            KIPX_INDEPENDENT
            for (size_t i = from; i < to; ++i)
                store(dst, i, saturate<T>(divide(load<T>(dividend, i), load<T>(divisor, i))));
        }
    };
    for (size_t from = 0; from < n; from += divisor_run) {
        size_t to = n - from < divisor_run ? n : from + divisor_run;
        auto at = [=](const void *row) {
            return static_cast<const char *>(row) + from * sizeof(T);
        };
        if (holds_zero<T>(at(divisor), to - from))
            run(from, to, [](T x, T y) { return divide_faulting(x, y); });
        else if (scaled || !short_quotients<T>(const_cast<char *>(at(dst)), at(dividend),
                                               at(divisor), to - from, streamed))
            run(from, to, [](T x, T y) { return truncated_quotient(x, y); });
    }
}

template<class Op>
void row_quotient_f32(void *dst, const void *a, const void *b, size_t n, const ArithScale &scale) {
    const void *divisor = Op::reversed ? a : b, *dividend = Op::reversed ? b : a;
    const f32 factor = scale.quotient_factor;
    KIPX_INDEPENDENT
    for (size_t i = 0; i < n; ++i)
        store(dst, i, one_nan(load<f32>(dividend, i) / load<f32>(divisor, i) * factor));
}

template<class Op, class T>
void row_rounded(void *dst, const void *a, const void *b, size_t n, const ArithScale &scale,
                 [[maybe_unused]] bool streamed) {
    const void *divisor = Op::reversed ? a : b, *dividend = Op::reversed ? b : a;
#if defined(__AVX512VBMI__)
    if constexpr (same<T, u8>)
        if (scale.mode == ScaleMode::none)
            return row_of_rounded_bytes(dst, dividend, divisor, n, streamed);
#endif
    const f32 factor = scale.quotient_factor;
    constexpr T indefinite = static_cast<T>(Range<T>::low);
    KIPX_INDEPENDENT
    for (size_t i = 0; i < n; ++i) {
        T x = load<T>(dividend, i), y = load<T>(divisor, i);
        T q = round_saturate<T>(static_cast<f32>(x) / static_cast<f32>(y) * factor);
        store(dst, i, y == 0 ? indefinite : q);
    }
}

template<class Op, class D, class A, class B> void row(Run run) {
    [[maybe_unused]] const bool streamed = run.writing == Writing::streamed;
    const ArithScale &scale = *static_cast<const ArithScale *>(run.params);
    void *dst = run.dst;
    const void *a = run.src[0], *b = run.src[1];
    const size_t n = run.n;
    if constexpr (Op::kind == Kind::rounded)
        row_rounded<Op, D>(dst, a, b, n, scale, streamed);
    else if constexpr (Op::kind == Kind::quotient && floating<D>)
        row_quotient_f32<Op>(dst, a, b, n, scale);
    else if constexpr (Op::kind == Kind::quotient)
        row_quotient<Op, D>(dst, a, b, n, scale, streamed);
    else
        row_exact<Op, D, A, B>({dst, a, b, n, scale, streamed});
}

} // namespace

#define KIPX_ROW(Op, D, A, B) row<Op, D, A, B>,
#define KIPX_ROWS(op, Name, triples, code, mirror) KIPX_TRIPLES_##triples(KIPX_ROW, Name)
extern const RowLoop arith_rows[arith_kernel_count] = {KIPX_BINARY_OPS(KIPX_ROWS)};

} // namespace kipx::KIPX_SET
