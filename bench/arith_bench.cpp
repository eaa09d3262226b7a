// arith_bench.cpp - arithmetic and logic: one contest per row of the tables and size.
//
// The peer's call is the one that computes the same, or the nearest that it has: its sums saturate
// where ours are plain, and its weighted sum forms its result in binary32.
#include <kipx/arith.h>
#include <kipx/logic.h>

#include "support/contest.h"

#if defined(KIPX_BENCH_OPENCV)
#include <opencv2/core.hpp>
#endif

namespace {

using namespace kipx::bench;

using Binary = decltype(&KipxAdd);
enum class Peer { none, add, half_sum, half_difference, multiply, divide };

struct Row {
    const char *name;
    Binary function;
    uint32_t dst, src1, src2;
    int32_t scale;
    Peer peer;
};

constexpr Row rows[] = {
    {"add u8", KipxAdd, KIPX_U8, KIPX_U8, KIPX_U8, 0, Peer::add},
    {"addq u8", KipxAddq, KIPX_U8, KIPX_U8, KIPX_U8, 0, Peer::add},
    {"add s16", KipxAdd, KIPX_S16, KIPX_S16, KIPX_S16, 0, Peer::add},
    {"addq s16", KipxAddq, KIPX_S16, KIPX_S16, KIPX_S16, 0, Peer::add},
    {"add u8 2^-1", KipxAdd, KIPX_U8, KIPX_U8, KIPX_U8, -1, Peer::half_sum},
    {"sub u8 2^-1", KipxSub, KIPX_U8, KIPX_U8, KIPX_U8, -1, Peer::half_difference},
    {"add u8 2^-3", KipxAdd, KIPX_U8, KIPX_U8, KIPX_U8, -3, Peer::half_sum},
    {"add s16 2^-1", KipxAdd, KIPX_S16, KIPX_S16, KIPX_S16, -1, Peer::half_sum},
    {"mul u8", KipxMul, KIPX_U8, KIPX_U8, KIPX_U8, 0, Peer::multiply},
    {"mul u8 2^-7", KipxMul, KIPX_U8, KIPX_U8, KIPX_U8, -7, Peer::multiply},
    {"mul s16 2^-7", KipxMul, KIPX_S16, KIPX_S16, KIPX_S16, -7, Peer::multiply},
    {"div u8", KipxDiv, KIPX_U8, KIPX_U8, KIPX_U8, 0, Peer::divide},
    {"divr u8", KipxDivr, KIPX_U8, KIPX_U8, KIPX_U8, 0, Peer::divide},
    {"div s16", KipxDiv, KIPX_S16, KIPX_S16, KIPX_S16, 0, Peer::divide},
    {"add u8 u8 to s16", KipxAdd, KIPX_S16, KIPX_U8, KIPX_U8, 0, Peer::add},
    {"add s16 u8 to s16", KipxAdd, KIPX_S16, KIPX_S16, KIPX_U8, 0, Peer::add},
    {"add u8 u8 to f32", KipxAdd, KIPX_F32, KIPX_U8, KIPX_U8, 0, Peer::add},
    {"add f32 u8 to f32", KipxAdd, KIPX_F32, KIPX_F32, KIPX_U8, 0, Peer::add},
    {"add s16 s16 to u8", KipxAdd, KIPX_U8, KIPX_S16, KIPX_S16, 0, Peer::add},
    {"add f32 f32 to u8", KipxAdd, KIPX_U8, KIPX_F32, KIPX_F32, 0, Peer::add},
    {"add f32", KipxAdd, KIPX_F32, KIPX_F32, KIPX_F32, 0, Peer::add},
    {"mul f32", KipxMul, KIPX_F32, KIPX_F32, KIPX_F32, 0, Peer::multiply},
    {"add s32", KipxAdd, KIPX_S32, KIPX_S32, KIPX_S32, 0, Peer::add},
};

#if defined(KIPX_BENCH_OPENCV)

int depth(uint32_t type) {
    switch (type) {
    case KIPX_U8:
        return CV_8U;
    case KIPX_S16:
        return CV_16S;
    case KIPX_S32:
        return CV_32S;
    default:
        return CV_32F;
    }
}

cv::Mat mat(const kipx_arr *a) {
    return cv::Mat(static_cast<int>(a->volume[1]), static_cast<int>(a->volume[2]), depth(a->type),
                   a->base, a->strides[1]);
}

void peer_call(const Row &row, Size size) {
    cv::Mat dst = mat(image(row.dst, size, 0)), a = mat(image(row.src1, size, 1)),
            b = mat(image(row.src2, size, 2));
    double scale = row.scale < 0 ? 1.0 / (1 << -row.scale) : 1.0;
    switch (row.peer) {
    case Peer::none:
        break;
    case Peer::add:
        cv::add(a, b, dst, cv::noArray(), depth(row.dst));
        break;
    case Peer::half_sum:
        cv::addWeighted(a, scale, b, scale, 0, dst);
        break;
    case Peer::half_difference:
        cv::addWeighted(a, scale, b, -scale, 0, dst);
        break;
    case Peer::multiply:
        cv::multiply(a, b, dst, scale);
        break;
    case Peer::divide:
        cv::divide(a, b, dst, scale);
        break;
    }
}

#endif

void register_row(const Row &row, Size size) {
    Contest contest("arith", row.name, size);
    contest.kipx([=] {
        return row.function(environment(), 0, image(row.dst, size, 0), image(row.src1, size, 1),
                            image(row.src2, size, 2), nullptr, nullptr, nullptr, row.scale, 0);
    });
#if defined(KIPX_BENCH_OPENCV)
    if (row.peer != Peer::none) contest.peer("OpenCV", [=] { peer_call(row, size); });
#endif
    contest.limit({type_size(row.dst), type_size(row.src1), type_size(row.src2)});
}

// A constant in the place of the second source; a saturating sum is the peer's nearest.
constexpr double values[4] = {12, 12, 12, 12};
struct ConstantRow {
    const char *name;
    decltype(&KipxAddC) function;
    uint32_t type;
    int32_t scale;
    Peer peer;
};
constexpr ConstantRow constant_rows[] = {
    {"addC u8", KipxAddC, KIPX_U8, 0, Peer::add},
    {"addqC u8", KipxAddqC, KIPX_U8, 0, Peer::add},
    {"addC s16", KipxAddC, KIPX_S16, 0, Peer::add},
    {"mulC u8 2^-7", KipxMulC, KIPX_U8, -7, Peer::multiply},
    {"mulC f32", KipxMulC, KIPX_F32, 0, Peer::multiply},
};

void register_constant(const ConstantRow &row, Size size) {
    Contest contest("arith", row.name, size);
    contest.kipx([=] {
        return row.function(environment(), 0, image(row.type, size, 0), image(row.type, size, 1),
                            values, nullptr, nullptr, row.scale, 0);
    });
#if defined(KIPX_BENCH_OPENCV)
    contest.peer("OpenCV", [=] {
        cv::Mat dst = mat(image(row.type, size, 0)), a = mat(image(row.type, size, 1));
        if (row.peer == Peer::add)
            cv::add(a, cv::Scalar(12), dst);
        else
            cv::multiply(a, cv::Scalar(12), dst, row.scale ? 1.0 / (1 << -row.scale) : 1.0);
    });
#endif
    contest.limit({type_size(row.type), type_size(row.type)});
}

void register_logic(Size size) {
    Contest arrays("arith", "and u8", size), turned("arith", "not u8", size);
    arrays.kipx([=] {
        return KipxAnd(environment(), 0, image(KIPX_U8, size, 0), image(KIPX_U8, size, 1),
                       image(KIPX_U8, size, 2), nullptr, nullptr, nullptr);
    });
    turned.kipx([=] {
        return KipxNot(environment(), 0, image(KIPX_U8, size, 0), image(KIPX_U8, size, 1), nullptr,
                       nullptr);
    });
#if defined(KIPX_BENCH_OPENCV)
    arrays.peer("OpenCV", [=] {
        cv::Mat dst = mat(image(KIPX_U8, size, 0));
        cv::bitwise_and(mat(image(KIPX_U8, size, 1)), mat(image(KIPX_U8, size, 2)), dst);
    });
    turned.peer("OpenCV", [=] {
        cv::Mat dst = mat(image(KIPX_U8, size, 0));
        cv::bitwise_not(mat(image(KIPX_U8, size, 1)), dst);
    });
#endif
    arrays.limit({1, 1, 1});
    turned.limit({1, 1});
}

// What a call costs when there is next to nothing to do: descriptors and headers are kept.
void register_small_call() {
    constexpr Size size{8, 8};
    const auto u8 = [=](int role) { return image(KIPX_U8, size, role); };
    Contest contest("arith", "call add u8", size);
    using Array = const kipx_arr *;
    contest.kipx([=, dst = Array(), a = Array(), b = Array()]() mutable {
        if (!dst) dst = u8(0), a = u8(1), b = u8(2);
        return KipxAdd(environment(), 0, dst, a, b, nullptr, nullptr, nullptr, 0, 0);
    });
#if defined(KIPX_BENCH_OPENCV)
    contest.peer("OpenCV", [=, dst = cv::Mat(), a = cv::Mat(), b = cv::Mat()]() mutable {
        if (dst.empty()) dst = mat(u8(0)), a = mat(u8(1)), b = mat(u8(2));
        cv::add(a, b, dst);
    });
#endif
    contest.limit({1, 1, 1});
}

} // namespace

void register_contests() {
#if defined(KIPX_BENCH_OPENCV)
    cv::setNumThreads(1);
#endif
    for (Size size : all_sizes) {
        for (const Row &row : rows) register_row(row, size);
        for (const ConstantRow &row : constant_rows) register_constant(row, size);
        register_logic(size);
    }
    register_small_call();
}
