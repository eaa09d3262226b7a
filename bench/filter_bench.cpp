// filter_bench.cpp - operations over a window: one contest per row of the table and size.
//
// The peer's borders are ours: beyond the image nothing counts for minimum and maximum, and the
// nearest pixel does for means. Its means of even sums round the other way, its hats and openings are
// made of whole images.
#include <kipx/morph.h>
#include <kipx/sepfilter.h>

#include <memory>
#include <vector>

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

// ---- elements of any form ----

struct ElementRow {
    const char *name;
    uint32_t op, type;
    int side;
    bool disk; // else a cross
};
constexpr ElementRow element_rows[] = {
    {"erode u8 cross 3", KIPX_MORPH_ERODE, KIPX_U8, 3, false},
    {"erode u8 disk 7", KIPX_MORPH_ERODE, KIPX_U8, 7, true},
    {"erode u8 disk 15", KIPX_MORPH_ERODE, KIPX_U8, 15, true},
    {"erode f32 disk 15", KIPX_MORPH_ERODE, KIPX_F32, 15, true},
    {"open u8 disk 15", KIPX_MORPH_OPEN, KIPX_U8, 15, true},
};

struct Element {
    std::vector<unsigned char> members;
    kipx_strel strel{};
    explicit Element(const ElementRow &row) : members(size_t(row.side) * row.side) {
        const int n = row.side, middle = n / 2;
        for (int y = 0; y < n; ++y)
            for (int x = 0; x < n; ++x) {
                const int dy = y - middle, dx = x - middle;
                const bool in = row.disk ? 4 * (dy * dy + dx * dx) <= n * n : dy == 0 || dx == 0;
                members[size_t(y) * n + x] = in;
            }
        strel.anchor[1] = strel.anchor[2] = middle;
        kipx_arr &m = strel.mask;
        m.naxes = 3, m.type = KIPX_U8, m.base = members.data();
        m.volume[0] = m.volume[3] = m.strides[2] = m.strides[3] = 1;
        m.volume[1] = m.volume[2] = m.strides[1] = uint32_t(n);
    }
};

void register_element(const ElementRow &row, Size size) {
    Contest contest("filter", row.name, size);
    const auto element = std::make_shared<const Element>(row);
    contest.kipx([=] {
        return KipxMorphop(environment(), 0, image(row.type, size, 1), image(row.type, size, 0),
                           nullptr, nullptr, row.op, &element->strel);
    });
#if defined(KIPX_BENCH_OPENCV)
    contest.peer("OpenCV", [=] {
        const cv::Mat mask(row.side, row.side, CV_8U,
                           const_cast<unsigned char *>(element->members.data()));
        cv::Mat dst = mat(image(row.type, size, 0));
        cv::morphologyEx(mat(image(row.type, size, 1)), dst,
                         row.op == KIPX_MORPH_OPEN ? cv::MORPH_OPEN : cv::MORPH_ERODE, mask);
    });
#endif
    contest.limit({type_size(row.type), type_size(row.type)});
}

// ---- weighted sums ----

struct SumRow {
    const char *name;
    uint32_t type;
    int side;
    bool gauss; // else weights of no particular kind
};
constexpr SumRow sum_rows[] = {
    {"gauss u8 3", KIPX_U8, 3, true},   {"gauss u8 5", KIPX_U8, 5, true},
    {"gauss u8 7", KIPX_U8, 7, true},   {"gauss u8 15", KIPX_U8, 15, true},
    {"gauss f32 5", KIPX_F32, 5, true}, {"separable u8 5", KIPX_U8, 5, false},
};
constexpr double weights[] = {0.11, 0.27, 0.31, 0.2, 0.11};

void register_sum(const SumRow &row, Size size) {
    Contest contest("filter", row.name, size);
    contest.kipx([=] {
        kipx_sepkernel kernel{{}, {nullptr, weights, weights}};
        __kipx_seshape__$g2(&kernel.shape, row.side, row.side);
        const kipx_arr *src = image(row.type, size, 1), *dst = image(row.type, size, 0);
        return row.gauss ? KipxGaussianFilter(environment(), 0, src, dst, nullptr, nullptr,
                                              &kernel.shape, nullptr)
                         : KipxSepFilter(environment(), 0, src, dst, nullptr, nullptr, &kernel);
    });
#if defined(KIPX_BENCH_OPENCV)
    contest.peer("OpenCV", [=] {
        cv::Mat dst = mat(image(row.type, size, 0)), src = mat(image(row.type, size, 1));
        const cv::Mat w(1, 5, CV_64F, const_cast<double *>(weights));
        if (row.gauss)
            cv::GaussianBlur(src, dst, {row.side, row.side}, 0, 0, cv::BORDER_REPLICATE);
        else
            cv::sepFilter2D(src, dst, -1, w, w, {-1, -1}, 0, cv::BORDER_REPLICATE);
    });
#endif
    contest.limit({type_size(row.type), type_size(row.type)});
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
    for (Size size : all_sizes) {
        for (const Row &row : rows) register_row(row, size);
        for (const ElementRow &row : element_rows) register_element(row, size);
        for (const SumRow &row : sum_rows) register_sum(row, size);
    }
    register_small_call();
}
