// compare_bench.cpp - comparisons, thresholds and tables of bytes: one contest per row and size.
//
// The peer's call is the one that computes the same: its comparisons and thresholds give 255 and 0,
// too; its threshold of f32 stays f32; its mean of a neighbourhood is rounded, and goes on at edges.
#include <kipx/threshold.h>

#include "support/contest.h"

#if defined(KIPX_BENCH_OPENCV)
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

using namespace kipx::bench;

constexpr double constants[4] = {100, 100, 100, 100}, high[4] = {255, 255, 255, 255}, low[4] = {};

struct Row {
    const char *name;
    uint32_t dst, src;
    enum { arrays, constant, threshold } kind;
};
constexpr Row rows[] = {
    {"compare u8", KIPX_U8, KIPX_U8, Row::arrays},
    {"compare s16", KIPX_U8, KIPX_S16, Row::arrays},
    {"compare f32", KIPX_U8, KIPX_F32, Row::arrays},
    {"compareC u8", KIPX_U8, KIPX_U8, Row::constant},
    {"compareC s16", KIPX_U8, KIPX_S16, Row::constant},
    {"compareC f32", KIPX_U8, KIPX_F32, Row::constant},
    {"threshold u8", KIPX_U8, KIPX_U8, Row::threshold},
    {"threshold s16", KIPX_S16, KIPX_S16, Row::threshold},
    {"threshold f32", KIPX_F32, KIPX_F32, Row::threshold},
};

#if defined(KIPX_BENCH_OPENCV)

cv::Mat mat(const kipx_arr *a) {
    const int depth = a->type == KIPX_U8 ? CV_8U : a->type == KIPX_S16 ? CV_16S : CV_32F;
    return cv::Mat(static_cast<int>(a->volume[1]), static_cast<int>(a->volume[2]), depth, a->base,
                   a->strides[1]);
}

void peer_call(const Row &row, const cv::Mat &a, const cv::Mat &b, cv::Mat &dst) {
    switch (row.kind) {
    case Row::arrays:
        return cv::compare(a, b, dst, cv::CMP_GT);
    case Row::constant:
        return cv::compare(a, 100, dst, cv::CMP_GT);
    case Row::threshold:
        cv::threshold(a, dst, 100, 255, cv::THRESH_BINARY);
    }
}

#endif

int32_t call(const Row &row, const kipx_arr *dst, const kipx_arr *a, const kipx_arr *b) {
    constexpr uint32_t greater = KIPX_CMPOP_GREATER;
    switch (row.kind) {
    case Row::arrays:
        return KipxCompare(environment(), 0, dst, a, b, nullptr, nullptr, nullptr, greater);
    case Row::constant:
        return KipxCompareC(environment(), 0, dst, a, constants, nullptr, nullptr, greater);
    default:
        return KipxECompareC(environment(), 0, dst, a, constants, nullptr, nullptr, greater, high,
                             low);
    }
}

// Descriptors and headers are made once.
void register_row(const std::string &name, const Row &row, Size size) {
    using Array = const kipx_arr *;
    Contest contest("compare", name, size);
    contest.kipx([=, dst = Array(), a = Array(), b = Array()]() mutable {
        if (!dst)
            dst = image(row.dst, size, 0), a = image(row.src, size, 1), b = image(row.src, size, 2);
        return call(row, dst, a, b);
    });
#if defined(KIPX_BENCH_OPENCV)
    contest.peer("OpenCV", [=, dst = cv::Mat(), a = cv::Mat(), b = cv::Mat()]() mutable {
        if (dst.empty())
            dst = mat(image(row.dst, size, 0)), a = mat(image(row.src, size, 1)),
            b = mat(image(row.src, size, 2));
        peer_call(row, a, b, dst);
    });
#endif
    contest.limit(
        {type_size(row.dst), type_size(row.src), row.kind == Row::arrays ? type_size(row.src) : 0});
}

// Thresholds that are found, or made from neighbourhoods.
void register_method(const std::string &name, kipx_thhmethod method, Size size) {
    Contest contest("compare", name, size);
    contest.kipx([=] {
        const KipxThresholdContext context{method,  KIPX_CMPOP_GREATER, nullptr, nullptr,
                                           nullptr, {15, 15, {}, 0}};
        return KipxThreshold(environment(), 0, image(KIPX_U8, size, 0), image(KIPX_U8, size, 1),
                             nullptr, nullptr, &context, nullptr, nullptr);
    });
#if defined(KIPX_BENCH_OPENCV)
    contest.peer("OpenCV", [=] {
        cv::Mat src = mat(image(KIPX_U8, size, 1)), dst = mat(image(KIPX_U8, size, 0));
        if (method == KIPX_THH_OTSU)
            cv::threshold(src, dst, 0, 255, cv::THRESH_OTSU);
        else
            cv::adaptiveThreshold(src, dst, 255, cv::ADAPTIVE_THRESH_MEAN_C, cv::THRESH_BINARY, 15,
                                  0);
    });
#endif
    contest.limit({1, 1});
}

void register_table(Size size) {
    Contest contest("compare", "256-entry table", size);
    contest.kipx([=] {
        static uint8_t table[256];
        for (uint32_t i = 0; i < 256; ++i) table[i] = static_cast<uint8_t>(i * 37 + 11);
        const kipx_arr *dst = image(KIPX_U8, size, 0), *src = image(KIPX_U8, size, 1);
        return kipx_xlat2d_u8(table, static_cast<uint8_t *>(dst->base), dst->strides + 1,
                              static_cast<const uint8_t *>(src->base), src->strides + 1, size.width,
                              size.height, 1);
    });
#if defined(KIPX_BENCH_OPENCV)
    contest.peer("OpenCV", [=] {
        static uint8_t table[256];
        for (uint32_t i = 0; i < 256; ++i) table[i] = static_cast<uint8_t>(i * 37 + 11);
        cv::Mat dst = mat(image(KIPX_U8, size, 0));
        cv::LUT(mat(image(KIPX_U8, size, 1)), cv::Mat(1, 256, CV_8U, table), dst);
    });
#endif
    contest.limit({1, 1});
}

} // namespace

void register_contests() {
    for (Size size : all_sizes) {
        for (const Row &row : rows) register_row(row.name, row, size);
        register_table(size);
        register_method("Otsu u8", KIPX_THH_OTSU, size);
        register_method("blur 15 u8", KIPX_THH_BLUR, size);
    }
    register_row("call compare u8", rows[0], {8, 8});
    register_row("call compareC u8", rows[3], {8, 8});
}
