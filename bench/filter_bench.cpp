// filter_bench.cpp - operations over a window: one contest per row of the table and size.
//
// The peer's borders are ours: beyond the image nothing counts for minimum and maximum, and the
// nearest pixel does for means. Its means of even sums round the other way, its hats and openings are
// made of whole images.
#include <kipx/filter.h>

#include "support/contest.h"

#if defined(KIPX_BENCH_OPENCV)
#include <opencv2/imgproc.hpp>
#endif

namespace {

using namespace kipx::bench;

struct Row {
    const char *name;
    uint32_t kind, type, channels;
    int32_t side; // of the square
};

constexpr Row rows[] = {
    {"min u8 3", KIPX_FILTER_MIN, KIPX_U8, 1, 3},
    {"min u8 5", KIPX_FILTER_MIN, KIPX_U8, 1, 5},
    {"min u8 15", KIPX_FILTER_MIN, KIPX_U8, 1, 15},
    {"min u8 31", KIPX_FILTER_MIN, KIPX_U8, 1, 31},
    {"min u8 101", KIPX_FILTER_MIN, KIPX_U8, 1, 101},
    {"min s16 3", KIPX_FILTER_MIN, KIPX_S16, 1, 3},
    {"min s16 15", KIPX_FILTER_MIN, KIPX_S16, 1, 15},
    {"min f32 3", KIPX_FILTER_MIN, KIPX_F32, 1, 3},
    {"min f32 15", KIPX_FILTER_MIN, KIPX_F32, 1, 15},
    {"min u8 x 3 5", KIPX_FILTER_MIN, KIPX_U8, 3, 5},
    {"min u8 x 3 15", KIPX_FILTER_MIN, KIPX_U8, 3, 15},
    {"open u8 5", KIPX_FILTER_OPEN, KIPX_U8, 1, 5},
    {"open u8 15", KIPX_FILTER_OPEN, KIPX_U8, 1, 15},
    {"top-hat u8 15", KIPX_FILTER_TOPHAT, KIPX_U8, 1, 15},
    {"top-hat u8 101", KIPX_FILTER_TOPHAT, KIPX_U8, 1, 101},
    {"box u8 3", KIPX_FILTER_BOX, KIPX_U8, 1, 3},
    {"box u8 5", KIPX_FILTER_BOX, KIPX_U8, 1, 5},
    {"box u8 15", KIPX_FILTER_BOX, KIPX_U8, 1, 15},
    {"box u8 31", KIPX_FILTER_BOX, KIPX_U8, 1, 31},
    {"box s16 5", KIPX_FILTER_BOX, KIPX_S16, 1, 5},
    {"box f32 5", KIPX_FILTER_BOX, KIPX_F32, 1, 5},
};

#if defined(KIPX_BENCH_OPENCV)

int depth(uint32_t type) { return type == KIPX_U8 ? CV_8U : type == KIPX_S16 ? CV_16S : CV_32F; }

cv::Mat mat(const kipx_arr *a) {
    return cv::Mat(static_cast<int>(a->volume[1]), static_cast<int>(a->volume[2]),
                   CV_MAKETYPE(depth(a->type), static_cast<int>(a->volume[3])), a->base,
                   a->strides[1]);
}

void peer_call(const Row &row, const cv::Mat &src, cv::Mat &dst) {
    const cv::Size size(row.side, row.side);
    const cv::Mat element = cv::getStructuringElement(cv::MORPH_RECT, size);
    switch (row.kind) {
    case KIPX_FILTER_MIN:
        cv::erode(src, dst, element);
        break;
    case KIPX_FILTER_OPEN:
        cv::morphologyEx(src, dst, cv::MORPH_OPEN, element);
        break;
    case KIPX_FILTER_TOPHAT:
        cv::morphologyEx(src, dst, cv::MORPH_TOPHAT, element);
        break;
    default:
        cv::blur(src, dst, size, {-1, -1}, cv::BORDER_REPLICATE);
    }
}

#endif

int32_t call(const Row &row, const kipx_arr *src, const kipx_arr *dst) {
    kipx_seshape shape;
    return KipxFilter(environment(), 0, src, dst, nullptr, nullptr, row.kind,
                      __kipx_seshape__$g2(&shape, row.side, row.side));
}

void register_row(const Row &row, Size size) {
    Contest contest("filter", row.name, size);
    contest.kipx([=] {
        return call(row, image(row.type, size, 1, row.channels),
                    image(row.type, size, 0, row.channels));
    });
#if defined(KIPX_BENCH_OPENCV)
    contest.peer("OpenCV", [=] {
        cv::Mat dst = mat(image(row.type, size, 0, row.channels));
        peer_call(row, mat(image(row.type, size, 1, row.channels)), dst);
    });
#endif
    const uint32_t bytes = type_size(row.type) * row.channels;
    contest.limit({bytes, bytes});
}

// What a call costs when there is next to nothing to do: descriptors and headers are kept.
void register_small_call() {
    constexpr Size size{8, 8};
    constexpr Row row = {"call min u8 3", KIPX_FILTER_MIN, KIPX_U8, 1, 3};
    Contest contest("filter", row.name, size);
    using Array = const kipx_arr *;
    contest.kipx([=, dst = Array(), src = Array()]() mutable {
        if (!dst) dst = image(row.type, size, 0), src = image(row.type, size, 1);
        return call(row, src, dst);
    });
#if defined(KIPX_BENCH_OPENCV)
    contest.peer("OpenCV", [=, dst = cv::Mat(), src = cv::Mat()]() mutable {
        if (dst.empty()) dst = mat(image(row.type, size, 0)), src = mat(image(row.type, size, 1));
        peer_call(row, src, dst);
    });
#endif
    contest.limit({1, 1});
}

} // namespace

void register_contests() {
#if defined(KIPX_BENCH_OPENCV)
    cv::setNumThreads(1);
#endif
    for (Size size : all_sizes)
        for (const Row &row : rows) register_row(row, size);
    register_small_call();
}
