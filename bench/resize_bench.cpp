// resize_bench.cpp - nearest-neighbour resizing. Sizes are those of the larger picture.
//
// The peer's own rule goes by left edges; its work is the same.
#include <kipx/resize.h>

#include <algorithm>

#include "support/contest.h"

#if defined(KIPX_BENCH_OPENCV)
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

using namespace kipx::bench;

struct Row {
    const char *name;
    uint32_t type, channels;
    uint32_t from, to; // in `whole` parts of the size
    uint32_t whole;
};
constexpr Row rows[] = {
    {"down 2 u8", KIPX_U8, 1, 2, 1, 2},     {"up 2 u8", KIPX_U8, 1, 1, 2, 2},
    {"down 3:2 u8", KIPX_U8, 1, 3, 2, 3},   {"up 2:3 u8", KIPX_U8, 1, 2, 3, 3},
    {"down 5 u8", KIPX_U8, 1, 5, 1, 5},     {"up 4 u8", KIPX_U8, 1, 1, 4, 4},
    {"down 2 u8 x 3", KIPX_U8, 3, 2, 1, 2}, {"up 2 u8 x 3", KIPX_U8, 3, 1, 2, 2},
    {"down 2 f32", KIPX_F32, 1, 2, 1, 2},   {"up 2 f32", KIPX_F32, 1, 1, 2, 2},
};

#if defined(KIPX_BENCH_OPENCV)
cv::Mat mat(const kipx_arr *a, const Row &row) {
    const int depth = row.type == KIPX_U8 ? CV_8U : CV_32F;
    return cv::Mat(static_cast<int>(a->volume[1]), static_cast<int>(a->volume[2]),
                   CV_MAKETYPE(depth, static_cast<int>(row.channels)), a->base, a->strides[1]);
}
#endif

void register_row(const Row &row, Size size) {
    const auto part = [=](uint32_t parts, int role) {
        return image(row.type, {size.width * parts / row.whole, size.height * parts / row.whole},
                     role, row.channels);
    };
    Contest contest("resize", row.name, size);
    contest.kipx([=] {
        return KipxResize(nullptr, 0, part(row.to, 0), part(row.from, 1), nullptr, nullptr);
    });
#if defined(KIPX_BENCH_OPENCV)
    contest.peer("OpenCV", [=] {
        cv::Mat dst = mat(part(row.to, 0), row);
        cv::resize(mat(part(row.from, 1), row), dst, dst.size(), 0, 0, cv::INTER_NEAREST);
    });
#endif
    // Of rows that are read all bytes count.
    const uint32_t pixel = type_size(row.type) * row.channels;
    contest.limit({row.to * row.to * pixel, std::min(row.from, row.to) * row.from * pixel},
                  row.whole);
}

} // namespace

void register_contests() {
#if defined(KIPX_BENCH_OPENCV)
    cv::setNumThreads(1);
#endif
    for (Size size : all_sizes)
        for (const Row &row : rows) register_row(row, size);
}
