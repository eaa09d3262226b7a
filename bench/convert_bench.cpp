// convert_bench.cpp - conversion, copy, fill and borders: one contest per row and size.
#include <kipx/convert.h>

#include "support/contest.h"
#include "support/opencv.h"

#if defined(KIPX_BENCH_OPENCV)
#include <opencv2/imgproc.hpp>
#endif

namespace {

using namespace kipx::bench;

struct Conversion {
    const char *name;
    uint32_t dst, src;
    double scale, shift;
};
constexpr Conversion conversions[] = {
    {"u8 to s16", KIPX_S16, KIPX_U8, 1, 0},
    {"u8 to f32", KIPX_F32, KIPX_U8, 1, 0},
    {"u16 to u8", KIPX_U8, KIPX_U16, 1, 0},
    {"s16 to u8", KIPX_U8, KIPX_S16, 1, 0},
    {"s32 to u8", KIPX_U8, KIPX_S32, 1, 0},
    {"s32 to f32", KIPX_F32, KIPX_S32, 1, 0},
    {"f32 to u8", KIPX_U8, KIPX_F32, 1, 0},
    {"f32 to s16", KIPX_S16, KIPX_F32, 1, 0},
    {"f32 to s32", KIPX_S32, KIPX_F32, 1, 0},
    {"f64 to f32", KIPX_F32, KIPX_F64, 1, 0},
    {"u8 to u8 scaled", KIPX_U8, KIPX_U8, 0.7, 20},
    {"u8 to f32 scaled", KIPX_F32, KIPX_U8, 1.0 / 255, 0},
    {"u16 to u8 scaled", KIPX_U8, KIPX_U16, 1.0 / 257, 0},
    {"f32 to u8 scaled", KIPX_U8, KIPX_F32, 255, 0},
};

void register_conversion(const Conversion &row, Size size) {
    Contest contest("convert", row.name, size);
    contest.kipx([=] {
        return KipxConvert(environment(), 0, image(row.dst, size, 0), image(row.src, size, 1),
                           nullptr, nullptr, row.scale, row.shift);
    });
#if defined(KIPX_BENCH_OPENCV)
    contest.peer("OpenCV", [=] {
        cv::Mat dst = mat_of(image(row.dst, size, 0));
        mat_of(image(row.src, size, 1)).convertTo(dst, depth_of(row.dst), row.scale, row.shift);
    });
#endif
    contest.limit({type_size(row.dst), type_size(row.src)});
}

constexpr double values[4] = {12, 13, 14, 15};

void register_copy(uint32_t type, Size size) {
    Contest copy("convert", std::string("copy ") + type_name(type), size),
        fill("convert", std::string("fill ") + type_name(type), size);
    copy.kipx([=] {
        return KipxCopy(environment(), 0, image(type, size, 0), image(type, size, 1), nullptr,
                        nullptr);
    });
    fill.kipx([=] { return KipxFill(environment(), 0, image(type, size, 0), values, nullptr); });
#if defined(KIPX_BENCH_OPENCV)
    copy.peer("OpenCV", [=] {
        cv::Mat dst = mat_of(image(type, size, 0));
        mat_of(image(type, size, 1)).copyTo(dst);
    });
    fill.peer("OpenCV", [=] { mat_of(image(type, size, 0)).setTo(cv::Scalar(12)); });
#endif
    copy.limit({type_size(type), type_size(type)});
    fill.limit({type_size(type)});
}

void register_masked(Size size) {
    Contest copy("convert", "copy u8 masked", size), fill("convert", "fill u8 masked", size);
    const auto u8 = [=](int role) { return image(KIPX_U8, size, role); };
    copy.kipx([=] {
        return KipxCopyEx(environment(), 0, u8(0), u8(1), u8(2), nullptr, nullptr, nullptr);
    });
    fill.kipx([=] { return KipxFillEx(environment(), 0, u8(0), u8(2), values, nullptr, nullptr); });
#if defined(KIPX_BENCH_OPENCV)
    copy.peer("OpenCV", [=] {
        cv::Mat dst = mat_of(u8(0));
        mat_of(u8(1)).copyTo(dst, mat_of(u8(2)));
    });
    fill.peer("OpenCV", [=] { mat_of(u8(0)).setTo(cv::Scalar(12), mat_of(u8(2))); });
#endif
    copy.limit({1, 1, 1, 1});
    fill.limit({1, 1, 1});
}

struct Border {
    const char *name;
    int32_t kind;
    uint32_t type, channels;
    int32_t width;
};
constexpr Border borders[] = {
    {"border replicate u8", KIPX_BORDER_REPLICATE, KIPX_U8, 1, 8},
    {"border reflect101 u8", KIPX_BORDER_REFLECT101, KIPX_U8, 1, 8},
    {"border wrap u8", KIPX_BORDER_WRAP, KIPX_U8, 1, 8},
    {"border const u8", KIPX_BORDER_CONST, KIPX_U8, 1, 8},
    {"border reflect u8 x3", KIPX_BORDER_REFLECT, KIPX_U8, 3, 8},
    {"border replicate f32", KIPX_BORDER_REPLICATE, KIPX_F32, 1, 8},
    {"border reflect101 u8 of 64", KIPX_BORDER_REFLECT101, KIPX_U8, 1, 64},
};

#if defined(KIPX_BENCH_OPENCV)
int border_of(int32_t kind) {
    switch (kind) {
    case KIPX_BORDER_CONST:
        return cv::BORDER_CONSTANT;
    case KIPX_BORDER_REPLICATE:
        return cv::BORDER_REPLICATE;
    case KIPX_BORDER_WRAP:
        return cv::BORDER_WRAP;
    case KIPX_BORDER_REFLECT:
        return cv::BORDER_REFLECT;
    default:
        return cv::BORDER_REFLECT_101;
    }
}
#endif

// The size is the source's.
void register_border(const Border &row, Size size) {
    const uint32_t twice = 2 * static_cast<uint32_t>(row.width);
    const Size outer{size.width + twice, size.height + twice};
    Contest contest("convert", row.name, size);
    contest.kipx([=] {
        const kipx_brparm border = {{0, -row.width, -row.width, 0}, {0, row.width, row.width, 0}};
        return KipxCopyMkb(environment(), 0, image(row.type, outer, 0, row.channels),
                           image(row.type, size, 1, row.channels), nullptr, nullptr, &border,
                           row.kind, values);
    });
#if defined(KIPX_BENCH_OPENCV)
    contest.peer("OpenCV", [=] {
        cv::Mat dst = mat_of(image(row.type, outer, 0, row.channels));
        cv::copyMakeBorder(mat_of(image(row.type, size, 1, row.channels)), dst, row.width,
                           row.width, row.width, row.width, border_of(row.kind), cv::Scalar(12));
    });
#endif
    const uint32_t bytes = type_size(row.type) * row.channels;
    if (row.channels == 1) contest.limit({bytes, bytes});
}

} // namespace

void register_contests() {
    for (Size size : all_sizes) {
        for (const Conversion &row : conversions) register_conversion(row, size);
        for (uint32_t type : {KIPX_U8, KIPX_F32}) register_copy(type, size);
        register_masked(size);
        for (const Border &row : borders) register_border(row, size);
    }
}
