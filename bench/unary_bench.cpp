// unary_bench.cpp - functions of one array.
//
// The C library's vector functions are a peer of exponential and logarithm, through a loop of a vector a
// turn: they allow an error of four units in the last place, the library's of one. A sigmoid of f32 by
// them goes through f64, as in f32 alpha x itself would be off by too much; that of f64 is off by 19 units.
#include <kipx/unary.h>

#include <set>

#include "support/contest.h"
#include "support/opencv.h"

#if defined(__AVX512F__) || (defined(__x86_64__) && defined(__GLIBC__))
#include <immintrin.h>
#define KIPX_BENCH_LIBMVEC 1
extern "C" __m512 _ZGVeN16v_expf(__m512);
extern "C" __m512 _ZGVeN16v_logf(__m512);
extern "C" __m512d _ZGVeN8v_exp(__m512d);
extern "C" __m512d _ZGVeN8v_log(__m512d);
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
    {"sigmoid f64", Of::sigmoid, nullptr, KIPX_F64, KIPX_F64},
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

constexpr double alpha[1] = {0.5};

#if defined(KIPX_BENCH_LIBMVEC)
#pragma GCC push_options
#pragma GCC target("avx512f")
__m512d sigmoids(__m512d x) { return 1 / (1 + _ZGVeN8v_exp(x * -alpha[0])); }
__m256 single_sigmoids(__m256 x) {
    return __builtin_convertvector(sigmoids(__builtin_convertvector(x, __m512d)), __m256);
}

template<class T, class V, V (*function)(V)>
void by_vectors(const kipx_arr *dst, const kipx_arr *src) {
    const size_t n = size_t{src->volume[1]} * src->volume[2], lanes = sizeof(V) / sizeof(T);
    const auto *from = static_cast<const T *>(src->base);
    auto *to = static_cast<T *>(dst->base);
    for (size_t i = 0; i + lanes <= n; i += lanes) {
        V x;
        __builtin_memcpy(&x, from + i, sizeof x);
        x = function(x);
        __builtin_memcpy(to + i, &x, sizeof x);
    }
}
#pragma GCC pop_options
using Peer = void (*)(const kipx_arr *, const kipx_arr *);
Peer peer_of(Of what, uint32_t type) {
    const bool single = type == KIPX_F32;
    switch (what) {
    case Of::exponential:
        return single ? by_vectors<float, __m512, _ZGVeN16v_expf>
                      : by_vectors<double, __m512d, _ZGVeN8v_exp>;
    case Of::logarithm:
        return single ? by_vectors<float, __m512, _ZGVeN16v_logf>
                      : by_vectors<double, __m512d, _ZGVeN8v_log>;
    case Of::sigmoid:
        return single ? by_vectors<float, __m256, single_sigmoids>
                      : by_vectors<double, __m512d, sigmoids>;
    default:
        return nullptr;
    }
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
    if (!__builtin_cpu_supports("avx512f") || row.dst != row.src || row.dst == KIPX_S16) return;
    if (const Peer peer = peer_of(row.what, row.dst))
        contest.peer("libmvec", [=] { peer(image(row.dst, size, 0), source(row.src, size)); });
#endif
}

void register_row(const Row &row, Size size) {
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
