// matrix_bench.cpp - small matrix products. A pixel counts once, whatever its channels.
//
// The peer transforms colours; bytes by a table or in fixed point, with results that may be off by one. For a
// matrix at every pixel it has small matrices of binary32, and the caller's loop.
#include <kipx/matrix.h>

#include "support/contest.h"
#include "support/opencv.h"

namespace {

using namespace kipx::bench;

constexpr double numbers[9] = {0.299, 0.587, 0.114, -0.169, -0.331, 0.5, 0.5, -0.419, -0.081};
constexpr double addends[3] = {0, 128, 128};

struct Row {
    const char *name;
    uint32_t type, rows;
};
constexpr Row rows[] = {{"colours u8", KIPX_U8, 3},
                        {"grey u8", KIPX_U8, 1},
                        {"colours s16", KIPX_S16, 3},
                        {"colours f32", KIPX_F32, 3}};

void register_row(const Row &row, Size size) {
    Contest contest("matrix", row.name, size);
    contest.kipx([=] {
        return KipxMulMV_n(nullptr, 0, image(row.type, size, 0, row.rows),
                           image(row.type, size, 1, 3), numbers, addends, nullptr, nullptr, 0, 0);
    });
#if defined(KIPX_BENCH_OPENCV)
    contest.peer("OpenCV", [=] {
        cv::Mat_<double> m(static_cast<int>(row.rows), 4);
        for (int i = 0; i < m.rows; i++)
            for (int k = 0; k < 4; k++) m(i, k) = k < 3 ? numbers[3 * i + k] : addends[i];
        cv::Mat dst = mat_of(image(row.type, size, 0, row.rows));
        cv::transform(mat_of(image(row.type, size, 1, 3)), dst, m);
    });
#endif
    contest.limit({row.rows * type_size(row.type), 3 * type_size(row.type)});
}

#if defined(KIPX_BENCH_OPENCV)
// The product of what stands at every place, by the peer's small matrices.
template<class A, class B> void by_matx(const kipx_arr *dst, const kipx_arr *a, const kipx_arr *b) {
    const size_t n = size_t{b->volume[1]} * b->volume[2];
    const auto *left = static_cast<const float *>(a->base);
    const auto *right = static_cast<const float *>(b->base);
    auto *to = static_cast<float *>(dst->base);
    for (size_t i = 0; i < n; i++) {
        const auto product = A(left + i * A::channels) * B(right + i * B::channels);
        __builtin_memcpy(to + i * B::channels, product.val, sizeof product.val);
    }
}
#endif

// A matrix at every pixel.
void register_products(Size size) {
    const auto f32 = [=](uint32_t wide, int role, uint32_t channels) {
        return image(KIPX_F32, {size.width * wide, size.height}, role, channels);
    };
    Contest vectors("matrix", "3x3 times vectors f32", size), matrices("matrix", "2x2 f32", size);
    vectors.kipx([=] {
        return KipxMulMV(nullptr, 0, f32(1, 0, 3), f32(3, 1, 3), f32(1, 2, 3), nullptr, nullptr,
                         nullptr, 0, 0);
    });
    matrices.kipx([=] {
        return KipxMulMM(nullptr, 0, f32(1, 0, 4), f32(1, 1, 4), f32(1, 2, 4), nullptr, nullptr,
                         nullptr, 0, 2);
    });
#if defined(KIPX_BENCH_OPENCV)
    vectors.peer("OpenCV", [=] {
        by_matx<cv::Matx33f, cv::Vec3f>(f32(1, 0, 3), f32(3, 1, 3), f32(1, 2, 3));
    });
    matrices.peer("OpenCV", [=] {
        by_matx<cv::Matx22f, cv::Matx22f>(f32(1, 0, 4), f32(1, 1, 4), f32(1, 2, 4));
    });
#endif
    vectors.limit({12, 36, 12});
    matrices.limit({16, 16, 16});
}

} // namespace

void register_contests() {
#if defined(KIPX_BENCH_OPENCV)
    cv::setNumThreads(1);
#endif
    for (Size size : all_sizes) {
        for (const Row &row : rows) register_row(row, size);
        register_products(size);
    }
}
