// stats_bench.cpp - histograms, extrema, sums, deviations and counts: one contest per row and size.
//
// The peer's sums of floats are binary64, too, in the order of its own loop.
#include <kipx/stats.h>

#include "support/contest.h"
#include "support/opencv.h"

#if defined(KIPX_BENCH_OPENCV)
#include <opencv2/imgproc.hpp>
#endif

namespace {

using namespace kipx::bench;

struct Source {
    const char *name;
    uint32_t type, channels;
};
constexpr Source sources[] = {
    {"u8", KIPX_U8, 1},   {"u16", KIPX_U16, 1}, {"s16", KIPX_S16, 1},
    {"s32", KIPX_S32, 1}, {"f32", KIPX_F32, 1}, {"u8 x3", KIPX_U8, 3},
};

void register_source(const Source &row, Size size) {
    const auto array = [=] { return image(row.type, size, 1, row.channels); };
    const auto named = [&](const char *what) { return std::string(what) + " " + row.name; };
    Contest sum("stats", named("sum"), size), deviation("stats", named("deviation"), size),
        extrema("stats", named("extrema"), size), count("stats", named("count less"), size);
    sum.kipx([=] {
        double sums[4];
        return KipxSum(nullptr, 0, array(), nullptr, nullptr, nullptr, sums);
    });
    deviation.kipx([=] {
        double means[4], deviations[4];
        return KipxMean(nullptr, 0, array(), nullptr, nullptr, nullptr, means, deviations);
    });
    extrema.kipx([=] {
        kipx_vrange ranges[4];
        return KipxMinmax(nullptr, 0, array(), nullptr, nullptr, nullptr, ranges);
    });
    count.kipx([=] {
        const double values[4] = {99, 99, 99, 99};
        uint64_t counts[4];
        return KipxCountRelBox(nullptr, 0, array(), nullptr, nullptr, nullptr, 4, values, nullptr,
                               1, counts);
    });
#if defined(KIPX_BENCH_OPENCV)
    sum.peer("OpenCV", [=] {
        volatile double x = cv::sum(mat_of(array()))[0];
        (void)x;
    });
    deviation.peer("OpenCV", [=] {
        cv::Scalar mean, spread;
        cv::meanStdDev(mat_of(array()), mean, spread);
    });
    if (row.channels == 1)
        extrema.peer("OpenCV", [=] {
            double low, high;
            cv::minMaxLoc(mat_of(array()), &low, &high);
        });
#endif
    if (row.channels > 1) return;
    for (Contest *contest : {&sum, &deviation, &extrema, &count})
        contest->limit({0, type_size(row.type)});
}

// The bins are made once; their range is that of the values.
void register_histogram(const char *name, uint32_t type, float high, int32_t bins, Size size) {
    Contest contest("stats", name, size);
    contest.kipx([=, h = kipx_histogram{}]() mutable {
        if (!h.counts) {
            const kipx_vrange range = {0, static_cast<double>(high)};
            const int32_t code = __kipx_histogram__$n$xe(&h, 1, &range, &bins, type, environment());
            if (code < 0) return code;
        }
        h.total = 0; // counting adds
        return KipxHistogram(nullptr, 0, image(type, size, 1), nullptr, nullptr, nullptr, nullptr,
                             &h);
    });
#if defined(KIPX_BENCH_OPENCV)
    contest.peer("OpenCV", [=, counts = cv::Mat()]() mutable {
        const cv::Mat src = mat_of(image(type, size, 1));
        const float ends[] = {0, high + (type == KIPX_F32 ? 0.0f : 1.0f)}, *ranges = ends;
        const int channel = 0;
        cv::calcHist(&src, 1, &channel, cv::noArray(), counts, 1, &bins, &ranges);
    });
#endif
    contest.limit({0, type_size(type)});
}

} // namespace

void register_contests() {
    for (Size size : all_sizes) {
        for (const Source &row : sources) register_source(row, size);
        register_histogram("histogram u8", KIPX_U8, 255, 256, size);
        register_histogram("histogram u16 in 256", KIPX_U16, 65535, 256, size);
        register_histogram("histogram f32 in 384", KIPX_F32, 200, 384, size);
    }
}
