// muladd_bench.cpp - multiply-accumulate.
//
// The peer has an image times a number plus another one, and contrast with brightness; of three arrays it
// has nothing.
#include <kipx/muladd.h>

#include "support/contest.h"
#include "support/opencv.h"

namespace {

using namespace kipx::bench;

constexpr double factors[4] = {1.5, 1.5, 1.5, 1.5}, addends[4] = {-20, -20, -20, -20};

// constants: how many of b and c are numbers; b, c: the types of those that are arrays.
struct Row {
    const char *name;
    int constants;
    uint32_t dst, a, b, c;
    int32_t scale;
};
constexpr Row rows[] = {
    {"muladd u8", 0, KIPX_U8, KIPX_U8, KIPX_U8, KIPX_U8, 0},
    {"muladd u8 2^-8", 0, KIPX_U8, KIPX_U8, KIPX_U8, KIPX_U8, -8},
    {"muladd u8 to s16", 0, KIPX_S16, KIPX_U8, KIPX_U8, KIPX_S16, 0},
    {"muladd s16", 0, KIPX_S16, KIPX_S16, KIPX_S16, KIPX_S16, 0},
    {"muladd s16 to s32", 0, KIPX_S32, KIPX_S16, KIPX_S16, KIPX_S32, 0},
    {"muladd f32", 0, KIPX_F32, KIPX_F32, KIPX_F32, KIPX_F32, 0},
    {"muladdC u8", 1, KIPX_U8, KIPX_U8, 0, KIPX_U8, 0},
    {"muladdC f32", 1, KIPX_F32, KIPX_F32, 0, KIPX_F32, 0},
    {"muladdCC u8", 2, KIPX_U8, KIPX_U8, 0, 0, 0},
    {"muladdCC u8 to f32", 2, KIPX_F32, KIPX_U8, 0, 0, 0},
    {"muladdCC f32", 2, KIPX_F32, KIPX_F32, 0, 0, 0},
};

void register_row(const Row &row, Size size) {
    Contest contest("muladd", row.name, size);
    contest.kipx([=] {
        const kipx_arr *dst = image(row.dst, size, 0), *a = image(row.a, size, 1);
        if (row.constants == 2)
            return KipxMulAddCC(nullptr, 0, dst, a, factors, addends, nullptr, nullptr, row.scale,
                                0);
        const kipx_arr *c = image(row.c, size, 3);
        if (row.constants == 1)
            return KipxMulAddC(nullptr, 0, dst, a, c, factors, nullptr, nullptr, nullptr, row.scale,
                               0);
        return KipxMulAdd(nullptr, 0, dst, a, image(row.b, size, 2), c, nullptr, nullptr, nullptr,
                          nullptr, row.scale, 0);
    });
#if defined(KIPX_BENCH_OPENCV)
    if (row.constants)
        contest.peer("OpenCV", [=] {
            cv::Mat dst = mat_of(image(row.dst, size, 0)), a = mat_of(image(row.a, size, 1));
            if (row.constants == 2)
                a.convertTo(dst, depth_of(row.dst), factors[0], addends[0]);
            else if (row.a == KIPX_F32)
                cv::scaleAdd(a, factors[0], mat_of(image(row.c, size, 3)), dst);
            else
                cv::addWeighted(a, factors[0], mat_of(image(row.c, size, 3)), 1, 0, dst);
        });
#endif
    contest.limit({type_size(row.dst), type_size(row.a), row.constants ? 0 : type_size(row.b),
                   row.constants == 2 ? 0 : type_size(row.c)});
}

} // namespace

void register_contests() {
#if defined(KIPX_BENCH_OPENCV)
    cv::setNumThreads(1);
#endif
    for (Size size : all_sizes)
        for (const Row &row : rows) register_row(row, size);
}
