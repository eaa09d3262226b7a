// region_bench.cpp - trees and stable regions, both forms, against OpenCV's and VLFeat's detectors.
//
// Contests are named region/<work> <picture>/<size>: the tree alone, and stable regions that are
// dark, bright, or both, with the same limits for everybody. plain:standard is the flood through
// the builder, vector:fast the fast form. Everybody finds regions and their pixels: here these lie
// in the store or are gathered later, the peers list them (VLFeat: seeds only). VLFeat runs at 512
// alone, at larger sizes it takes seconds.
//
// Counters: ns/pixel; B/pixel, the most that was drawn from the environment at once; and formula,
// the 8 bytes and one bit a pixel that the standard flood's scratch amounts to, to compare it with.
#include <algorithm>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <kipx/mser.h>
#include <kipx/watershed.h>

#include "support/contest.h"
#include "support/images.h"
#include "support/photograph.h"

#if defined(KIPX_BENCH_OPENCV)
#include <opencv2/core.hpp>
#include <opencv2/features2d.hpp>
#endif
#if defined(KIPX_BENCH_VLFEAT)
extern "C" {
#include <vl/mser.h>
}
#endif

namespace {

using kipx::bench::Size;

constexpr int delta = 5, least_area = 60, most_area = 144000;
constexpr float most_variation = 0.25f, least_diversity = 0.2f;

// ---- pictures, in integers ----

using Pixels = std::vector<uint8_t>;

uint32_t mixed(uint32_t x) {
    x = (x ^ x >> 16) * 0x7FEB352Du;
    x = (x ^ x >> 15) * 0x846CA68Bu;
    return x ^ x >> 16;
}

// Mean of three neighbours along the rows or down the columns.
void smooth(Pixels &p, Size s, size_t step) {
    Pixels before = p;
    size_t n = size_t{s.width} * s.height;
    for (size_t i = step; i + step < n; ++i)
        p[i] = static_cast<uint8_t>((before[i - step] + before[i] + before[i + step]) / 3);
}

// Disks of all sizes and shades on a slope, blurred, with noise of a few levels.
Pixels scene(Size s) {
    Pixels p(size_t{s.width} * s.height);
    for (size_t i = 0; i < p.size(); ++i)
        p[i] =
            static_cast<uint8_t>(90 + 60 * (i % s.width) / s.width + 30 * (i / s.width) / s.height);
    uint32_t disks = static_cast<uint32_t>(p.size() / 1500);
    for (uint32_t d = 0; d < disks; ++d) {
        int cx = static_cast<int>(mixed(4 * d) % s.width);
        int cy = static_cast<int>(mixed(4 * d + 1) % s.height);
        int r = 4 + static_cast<int>(mixed(4 * d + 2) % 18);
        int shade = static_cast<int>(mixed(4 * d + 3) % 256);
        for (int y = std::max(0, cy - r);
             y <= std::min<int>(static_cast<int>(s.height) - 1, cy + r); ++y)
            for (int x = std::max(0, cx - r);
                 x <= std::min<int>(static_cast<int>(s.width) - 1, cx + r); ++x)
                if ((x - cx) * (x - cx) + (y - cy) * (y - cy) <= r * r) {
                    uint8_t &v = p[static_cast<size_t>(y) * s.width + static_cast<size_t>(x)];
                    v = static_cast<uint8_t>((v + 3 * shade) / 4);
                }
    }
    smooth(p, s, 1);
    smooth(p, s, s.width);
    for (uint32_t i = 0; i < p.size(); ++i) {
        uint32_t m = mixed(i);
        int noise = static_cast<int>((m & 7) + (m >> 3 & 7) + (m >> 6 & 7) + (m >> 9 & 7)) - 14;
        p[i] = static_cast<uint8_t>(std::clamp(p[i] + noise, 0, 255));
    }
    return p;
}

Pixels noise(Size s) {
    Pixels p(size_t{s.width} * s.height);
    for (uint32_t i = 0; i < p.size(); ++i) p[i] = static_cast<uint8_t>(mixed(i) >> 11);
    return p;
}

Pixels constant(Size s) { return Pixels(size_t{s.width} * s.height, 100); }

Pixels checkerboard(Size s) {
    Pixels p(size_t{s.width} * s.height);
    for (size_t i = 0; i < p.size(); ++i) p[i] = (i % s.width + i / s.width) % 2 ? 200 : 50;
    return p;
}

// A dark path of one pixel that winds inwards between bright walls.
Pixels spiral(Size s) {
    Pixels p(size_t{s.width} * s.height, 255);
    int left = 0, top = 0, right = static_cast<int>(s.width) - 1,
        bottom = static_cast<int>(s.height) - 1;
    int x = 0, y = 0, dx = 1, dy = 0;
    auto dark = [&] { p[static_cast<size_t>(y) * s.width + static_cast<size_t>(x)] = 0; };
    dark();
    while (left <= right && top <= bottom) {
        int end = dx ? (dx > 0 ? right - x : x - left) : (dy > 0 ? bottom - y : y - top);
        for (int i = 0; i < end; ++i) x += dx, y += dy, dark();
        if (dx > 0)
            top += 2;
        else if (dy > 0)
            right -= 2;
        else if (dx < 0)
            bottom -= 2;
        else
            left += 2;
        int turned = dx;
        dx = -dy;
        dy = turned;
        if (end <= 0) break;
    }
    return p;
}

struct Picture {
    const char *name;
    Pixels (*make)(Size);
};
const Picture pictures[] = {
    {"scene", scene},       {"photograph", kipx::bench::photograph}, {"noise", noise},
    {"constant", constant}, {"checkerboard", checkerboard},          {"spiral", spiral}};

// Made when a contestant first runs, and kept while the same picture is asked for.
const Pixels &picture(const Picture &which, Size s, bool negative) {
    static std::string kept;
    static Pixels both[2];
    std::string name = which.name + std::to_string(s.width);
    if (name != kept) {
        both[0] = both[1] = which.make(s);
        for (uint8_t &v : both[1]) v = static_cast<uint8_t>(255 - v);
        kept = name;
    }
    return both[negative];
}

kipx_arr describe(const Pixels &p, Size s) {
    kipx_arr arr{};
    arr.volume[0] = arr.volume[3] = 1;
    arr.volume[1] = s.height;
    arr.volume[2] = arr.strides[1] = s.width;
    arr.strides[2] = arr.strides[3] = 1;
    arr.naxes = 3;
    arr.type = KIPX_U8;
    arr.base = const_cast<uint8_t *>(p.data());
    return arr;
}

// ---- contestants ----

enum Work { tree, dark, bright, both };
const char *const work_names[] = {"tree", "mser dark", "mser bright", "mser both"};

int32_t flood(KipxXE *xe, const kipx_arr &arr, bool fast) {
    KipxWTSLSC levelset{};
    KipxWatershedContext w{};
    w.levelset = &levelset;
    ZuSMEMSTG *stack = KipxXEmmstack(xe);
    w.builder = fast
                    ? reinterpret_cast<KipxSTB *>(KipxFWTSRESopen(nullptr, nullptr, nullptr, stack))
                    : KipxWTSTBopen(nullptr, nullptr, nullptr, stack);
    int32_t code = KipxWatershed(xe, fast ? KIPX_FLAG_FAST : 0, &arr, nullptr, &w);
    KipxSTBclose(w.builder, 0);
    return code;
}

int32_t kipx_regions(KipxXE *xe, const kipx_arr &arr, Work work, bool fast) {
    KipxMSERContext c{};
    c.delta = delta;
    c.min_area_pixels = least_area;
    c.max_area_fraction = static_cast<float>(most_area) /
                          (static_cast<float>(arr.volume[1]) * static_cast<float>(arr.volume[2]));
    c.max_variation = most_variation;
    c.min_diversity = least_diversity;
    c.polarity = static_cast<uint16_t>(work - dark);
    int32_t code = (fast ? KipxGenerateFMSERs : KipxGenerateMSERs)(xe, 0, &arr, nullptr, &c);
    benchmark::DoNotOptimize(c.list.count);
    KipxMSERrelease(&c);
    return code;
}

void run_kipx(benchmark::State &state, const Picture &which, Size size, Work work, bool fast) {
    kipx_arr arr = describe(picture(which, size, false), size);
    double pixels = static_cast<double>(size.width) * size.height;
    KipxXE xe{};
    KipxXEinit(&xe, nullptr);
    kipx_set_simd(fast ? KIPX_SIMD_BEST : KIPX_SIMD_OFF);
    for (auto step : state) {
        (void)step;
        int32_t code = work == tree ? flood(&xe, arr, fast) : kipx_regions(&xe, arr, work, fast);
        if (code < 0) {
            state.SkipWithError(("the call answers " + std::to_string(code)).c_str());
            break;
        }
    }
    state.counters["B/pixel"] = static_cast<double>(ZuSMEMSTGpeak(xe.stack)) / pixels;
    state.counters["formula"] = 8.125;
    KipxXEfini(&xe);
}

#if defined(KIPX_BENCH_OPENCV)
// Its second pass alone looks from bright to dark; for dark regions it gets the negative.
void run_opencv(benchmark::State &state, const Picture &which, Size size, Work work) {
    const Pixels &p = picture(which, size, work == dark);
    cv::setNumThreads(1);
    cv::Mat image(static_cast<int>(size.height), static_cast<int>(size.width), CV_8U,
                  const_cast<uint8_t *>(p.data()));
    auto detector = cv::MSER::create(delta, least_area, most_area, most_variation, least_diversity);
    detector->setPass2Only(work != both);
    for (auto step : state) {
        (void)step;
        std::vector<std::vector<cv::Point>> regions;
        std::vector<cv::Rect> boxes;
        detector->detectRegions(image, regions, boxes);
        benchmark::DoNotOptimize(regions.size());
    }
}
#endif

#if defined(KIPX_BENCH_VLFEAT)
void run_vlfeat(benchmark::State &state, const Picture &which, Size size, Work work) {
    int dims[2] = {static_cast<int>(size.width), static_cast<int>(size.height)};
    double pixels = static_cast<double>(size.width) * size.height;
    for (auto step : state) {
        (void)step;
        for (bool negative : {false, true}) {
            if (work == (negative ? dark : bright)) continue;
            VlMserFilt *filter = vl_mser_new(2, dims);
            vl_mser_set_delta(filter, delta);
            vl_mser_set_min_area(filter, least_area / pixels);
            vl_mser_set_max_area(filter, std::min(1., most_area / pixels));
            vl_mser_set_max_variation(filter, static_cast<double>(most_variation));
            vl_mser_set_min_diversity(filter, static_cast<double>(least_diversity));
            vl_mser_process(filter, picture(which, size, negative).data());
            benchmark::DoNotOptimize(vl_mser_get_regions_num(filter));
            vl_mser_delete(filter);
        }
    }
}
#endif

void add(const std::string &contest, const char *name, Size size,
         std::function<void(benchmark::State &)> run) {
    double pixels = static_cast<double>(size.width) * size.height;
    auto timed = [run = std::move(run), pixels](benchmark::State &state) {
        run(state);
        using benchmark::Counter;
        state.counters["Mpixel/s"] = Counter(pixels / 1e6, Counter::kIsIterationInvariantRate);
        state.counters["ns/pixel"] =
            Counter(pixels / 1e9, Counter::kIsIterationInvariantRate | Counter::kInvert);
    };
    benchmark::RegisterBenchmark((contest + name).c_str(), std::move(timed))
        ->Unit(benchmark::kMillisecond);
}

} // namespace

void register_contests() {
    for (Size size : kipx::bench::all_sizes)
        for (const Picture &which : pictures)
            for (Work work : {tree, dark, bright, both}) {
                if (which.make == kipx::bench::photograph && !kipx::bench::have_photograph())
                    continue;
                std::string contest = std::string("region/") + work_names[work] + ' ' + which.name +
                                      '/' + std::to_string(size.width) + 'x' +
                                      std::to_string(size.height) + '/';
                using State = benchmark::State;
                add(contest, "plain:standard", size, [&which, size, work](State &state) {
                    run_kipx(state, which, size, work, false);
                });
                add(contest, "vector:fast", size, [&which, size, work](State &state) {
                    run_kipx(state, which, size, work, true);
                });
                if (work == tree) continue;
#if defined(KIPX_BENCH_OPENCV)
                add(contest, "peer:OpenCV", size,
                    [&which, size, work](State &state) { run_opencv(state, which, size, work); });
#endif
#if defined(KIPX_BENCH_VLFEAT)
                if (size.width <= 512)
                    add(contest, "peer:VLFeat", size, [&which, size, work](State &state) {
                        run_vlfeat(state, which, size, work);
                    });
#endif
            }
}
