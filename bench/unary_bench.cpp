// unary_bench.cpp - functions of one array.
//
// The C library's vector functions are a peer of exponential and logarithm in f32, through a loop of
// 16 elements a turn: they allow an error of four units in the last place, the library's of one.
#include <kipx/unary.h>

#include <set>

#include "support/contest.h"
#include "support/opencv.h"

#if defined(__AVX512F__) || (defined(__x86_64__) && defined(__GLIBC__))
#include <immintrin.h>
#define KIPX_BENCH_LIBMVEC 1
extern "C" __m512 _ZGVeN16v_expf(__m512);
extern "C" __m512 _ZGVeN16v_logf(__m512);
#endif

namespace {

using namespace kipx::bench;

enum class Of { negative, exponential, logarithm, sigmoid };
struct Row {
    const char *name;
    Of what;
    decltype(&KipxExp) function; // null for the one that takes values
    uint32_t dst, src;
};
constexpr Row rows[] = {
    {"negate s16", Of::negative, KipxNegate, KIPX_S16, KIPX_S16},
    {"negateq s16", Of::negative, KipxNegateq, KIPX_S16, KIPX_S16},
    {"negate f32", Of::negative, KipxNegate, KIPX_F32, KIPX_F32},
    {"exp f32", Of::exponential, KipxExp, KIPX_F32, KIPX_F32},
    {"ln f32", Of::logarithm, KipxLn, KIPX_F32, KIPX_F32},
    {"exp f64", Of::exponential, KipxExp, KIPX_F64, KIPX_F64},
    {"ln f64", Of::logarithm, KipxLn, KIPX_F64, KIPX_F64},
    {"ln u8 to f32", Of::logarithm, KipxLn, KIPX_F32, KIPX_U8},
    {"sigmoid f32", Of::sigmoid, nullptr, KIPX_F32, KIPX_F32},
};

// Of the pool, reals brought below 40: what leaves the type is a peer's slow path.
const kipx_arr *source(uint32_t type, Size size) {
    static std::set<const kipx_arr *> ready;
    const kipx_arr *a = image(type, size, 4);
    const size_t n = size_t{size.width} * size.height;
    if (!ready.insert(a).second) return a;
    for (size_t i = 0; i < n && type == KIPX_F32; i++) static_cast<float *>(a->base)[i] *= 0.2f;
    for (size_t i = 0; i < n && type == KIPX_F64; i++) static_cast<double *>(a->base)[i] *= 0.2;
    return a;
}

#if defined(KIPX_BENCH_LIBMVEC)
template<__m512 (*function)(__m512)>
__attribute__((target("avx512f"))) void by_sixteen(const kipx_arr *dst, const kipx_arr *src) {
    const size_t n = size_t{src->volume[1]} * src->volume[2];
    const auto *from = static_cast<const float *>(src->base);
    auto *to = static_cast<float *>(dst->base);
    for (size_t i = 0; i + 16 <= n; i += 16)
        _mm512_storeu_ps(to + i, function(_mm512_loadu_ps(from + i)));
}
#endif

void add_peers([[maybe_unused]] Contest &contest, [[maybe_unused]] const Row &row,
               [[maybe_unused]] Size size) {
#if defined(KIPX_BENCH_OPENCV)
    if (row.dst == row.src && row.what != Of::sigmoid)
        contest.peer("OpenCV", [=] {
            cv::Mat dst = mat_of(image(row.dst, size, 0)), src = mat_of(source(row.src, size));
            if (row.what == Of::negative) cv::subtract(cv::Scalar(0), src, dst);
            if (row.what == Of::exponential) cv::exp(src, dst);
            if (row.what == Of::logarithm) cv::log(src, dst);
        });
#endif
#if defined(KIPX_BENCH_LIBMVEC)
    if (!__builtin_cpu_supports("avx512f") || row.dst != KIPX_F32 || row.src != KIPX_F32) return;
    if (row.what == Of::exponential)
        contest.peer("libmvec", [=] {
            by_sixteen<_ZGVeN16v_expf>(image(KIPX_F32, size, 0), source(KIPX_F32, size));
        });
    if (row.what == Of::logarithm)
        contest.peer("libmvec", [=] {
            by_sixteen<_ZGVeN16v_logf>(image(KIPX_F32, size, 0), source(KIPX_F32, size));
        });
#endif
}

void register_row(const Row &row, Size size) {
    constexpr double alpha[1] = {0.5};
    Contest contest("unary", row.name, size);
    contest.kipx([=] {
        const kipx_arr *dst = image(row.dst, size, 0), *src = source(row.src, size);
        if (!row.function)
            return KipxSigmoidAlpha(nullptr, 0, dst, src, alpha, nullptr, nullptr, 0, 0);
        return row.function(nullptr, 0, dst, src, nullptr, nullptr, 0, 0);
    });
    add_peers(contest, row, size);
    contest.limit({type_size(row.dst), type_size(row.src)});
}

} // namespace

void register_contests() {
#if defined(KIPX_BENCH_OPENCV)
    cv::setNumThreads(1);
#endif
    for (Size size : all_sizes)
        for (const Row &row : rows) register_row(row, size);
}
