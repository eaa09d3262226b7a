// arith_bench.cpp - the binary arithmetic: one contest per row of the table and size.
//
// The peer's call is the one that computes the same, or the nearest that it has: its sums saturate
// where ours are plain, and its weighted sum forms its result in binary32.
#include <kipx/arith.h>

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
    case KIPX_U8: return CV_8U;
    case KIPX_S16: return CV_16S;
    case KIPX_S32: return CV_32S;
    default: return CV_32F;
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
    case Peer::none: break;
    case Peer::add: cv::add(a, b, dst, cv::noArray(), depth(row.dst)); break;
    case Peer::half_sum: cv::addWeighted(a, scale, b, scale, 0, dst); break;
    case Peer::half_difference: cv::addWeighted(a, scale, b, -scale, 0, dst); break;
    case Peer::multiply: cv::multiply(a, b, dst, scale); break;
    case Peer::divide: cv::divide(a, b, dst, scale); break;
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

} // namespace

void register_contests() {
#if defined(KIPX_BENCH_OPENCV)
    cv::setNumThreads(1);
#endif
    for (const Row &row : rows)
        for (Size size : all_sizes) register_row(row, size);
    // What a call costs when there is next to nothing to do.
    register_row({"call add u8", KipxAdd, KIPX_U8, KIPX_U8, KIPX_U8, 0, Peer::add}, {8, 8});
}
