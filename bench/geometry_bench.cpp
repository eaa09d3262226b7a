// geometry_bench.cpp - hulls and what encloses point sets, polygons cut and asked, against OpenCV.
//
// Sets: points drawn evenly from a square (few of them are corners of anything) and from a disc (many
// lie near the hull), the pixels of a disc in raster order, as regions give them, and points around a
// circle, in order, which are all on the hull. Millions of points (polygons: vertices) a second. The
// peer's hull works in integers and single precision only; its circle in single precision; it cuts
// convex polygons only.
#include <benchmark/benchmark.h>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include <kipx/geometry.h>

#if defined(KIPX_BENCH_OPENCV)
#include <opencv2/imgproc.hpp>
#endif

namespace {

uint64_t mixed(uint64_t x) {
    x = (x ^ x >> 32) * 0xD6E8FEB86659FD93u;
    x = (x ^ x >> 32) * 0xD6E8FEB86659FD93u;
    return x ^ x >> 32;
}

using Whole = std::vector<kipx_2d_point>;

Whole square(size_t n) {
    Whole points;
    for (uint64_t i = 1; points.size() < n; i++)
        points.push_back({int32_t(mixed(i) % 1000003), int32_t(mixed(i << 32) % 1000003)});
    return points;
}
Whole disc(size_t n) {
    Whole points;
    for (uint64_t i = 1; points.size() < n; i++) {
        const int64_t x = int64_t(mixed(i) % 2000003) - 1000001;
        const int64_t y = int64_t(mixed(i << 32) % 2000003) - 1000001;
        if (x * x + y * y <= 1000000000000) points.push_back({int32_t(x), int32_t(y)});
    }
    return points;
}
Whole pixels(size_t n) {
    const auto radius = int64_t(std::sqrt(double(n) / M_PI));
    Whole points;
    for (int64_t y = -radius; y <= radius; y++)
        for (int64_t x = -radius; x <= radius; x++)
            if (x * x + y * y <= radius * radius)
                points.push_back({int32_t(x + 5000), int32_t(y + 5000)});
    return points;
}
Whole circle(size_t n) {
    Whole points;
    for (size_t i = 0; i < n; i++) {
        const double angle = 2 * M_PI * double(i) / double(n);
        points.push_back({int32_t(1e8 * std::cos(angle)), int32_t(1e8 * std::sin(angle))});
    }
    return points;
}

// A set in all the forms that contestants take. The peer's points have the same layout.
struct Set {
    Whole whole;
    std::vector<kipx_f2d_point> single;
    std::vector<kipx_r2d_point> real;
    size_t n() const { return whole.size(); }
#if defined(KIPX_BENCH_OPENCV)
    cv::Mat whole_mat() const { return cv::Mat(int(n()), 1, CV_32SC2, (void *)whole.data()); }
    cv::Mat single_mat() const { return cv::Mat(int(n()), 1, CV_32FC2, (void *)single.data()); }
#endif
};

const Set &set_of(Whole (*make)(size_t), size_t n) {
    static std::vector<std::pair<std::pair<Whole (*)(size_t), size_t>, Set *>> known;
    for (const auto &[key, set] : known)
        if (key == std::pair(make, n)) return *set;
    auto *set = new Set{make(n), {}, {}};
    set->single.resize(set->n());
    set->real.resize(set->n());
    kipx_f2d_points_from_2d(set->single.data(), set->n(), set->whole.data(), set->n());
    kipx_r2d_points_from_2d(set->real.data(), set->n(), set->whole.data(), set->n());
    known.push_back({{make, n}, set});
    return *set;
}

// Room for every result.
template<class Point> Point *room() {
    static std::vector<Point> points(1 << 18);
    return points.data();
}
constexpr size_t all = 1 << 18;

using Call = int32_t (*)(const Set &);
struct Contestant {
    const char *operation, *name;
    Call call;
};

// Results nobody reads.
double number;
kipx_r2d_quad quad;
kipx_f2d_quad single_quad;
kipx_r2d_circle circle_found;
kipx_f2d_circle single_circle;
kipx_r2d_ellipse ellipse;
kipx_f2d_ellipse single_ellipse;
kipx_r2d_point centre;
constexpr kipx_2d_rect window = {-80000000, -50000000, 90000000, 70000000};
constexpr kipx_f2d_rect single_window = {-8e7f, -5e7f, 9e7f, 7e7f};
constexpr kipx_2d_point spot = {100, 77};

#define OURS(operation, points, call)                                                              \
    {                                                                                              \
        operation, "kipx", [](const Set &s) {                                                      \
            const auto *p = s.points.data();                                                       \
            const size_t n = s.points.size();                                                      \
            return call;                                                                           \
        }                                                                                          \
    }
#if defined(KIPX_BENCH_OPENCV)
#define PEER(operation, points, work)                                                              \
    , {                                                                                            \
        operation, "peer:OpenCV", [](const Set &s) {                                               \
            const cv::Mat p = s.points##_mat();                                                    \
            work;                                                                                  \
            return 0;                                                                              \
        }                                                                                          \
    }
#else
#define PEER(operation, points, work)
#endif

const Contestant SETS[] = {
    OURS("hull 2d", whole, kipx_2d_points_hull(room<kipx_2d_point>(), all, p, n)),
    OURS("hull f2d", single, kipx_f2d_points_hull(room<kipx_f2d_point>(), all, p, n)),
    OURS("hull r2d", real, kipx_r2d_points_hull(room<kipx_r2d_point>(), all, p, n)),
    OURS("circle 2d", whole, kipx_2d_points_circle(&circle_found, p, n)),
    OURS("circle f2d", single, kipx_f2d_points_circle(&single_circle, p, n)),
    OURS("circle r2d", real, kipx_r2d_points_circle(&circle_found, p, n)),
    OURS("least rect 2d", whole,
         kipx_2d_points_least_rect(&quad, room<kipx_2d_point>(), all, p, n)),
    OURS("least rect f2d", single,
         kipx_f2d_points_least_rect(&single_quad, room<kipx_f2d_point>(), all, p, n)),
    OURS("ellipse 2d", whole, kipx_2d_points_ellipse(&ellipse, p, n)),
    OURS("ellipse f2d", single, kipx_f2d_points_ellipse(&single_ellipse, p, n))
        PEER("hull 2d", whole, std::vector<cv::Point> out; cv::convexHull(p, out))
            PEER("hull f2d", single, std::vector<cv::Point2f> out; cv::convexHull(p, out)) PEER(
                "circle 2d", whole, cv::Point2f c; float r; cv::minEnclosingCircle(p, c, r))
                PEER("circle f2d", single, cv::Point2f c; float r; cv::minEnclosingCircle(p, c, r))
                    PEER("least rect 2d", whole, benchmark::DoNotOptimize(cv::minAreaRect(p))) PEER(
                        "least rect f2d", single, benchmark::DoNotOptimize(cv::minAreaRect(p)))};

const Contestant POLYGONS[] = {
    OURS("clip 2d", whole, kipx_2d_polygon_clip(room<kipx_r2d_point>(), all, p, n, &window)),
    OURS("clip f2d", single,
         kipx_f2d_polygon_clip(room<kipx_f2d_point>(), all, p, n, &single_window)),
    OURS("area 2d", whole, kipx_2d_polygon_area(&number, p, n)),
    OURS("area f2d", single, kipx_f2d_polygon_area(&number, p, n)),
    OURS("contains 2d", whole, kipx_2d_polygon_contains(p, n, &spot)),
    OURS("centroid 2d", whole, kipx_2d_polygon_centroid(&centre, p, n)),
    OURS("perimeter 2d", whole, kipx_2d_polygon_perimeter(&number, p, n))
        PEER("clip f2d", single,
             const std::vector<cv::Point2f> box(
                 {{-8e7f, -5e7f}, {9e7f, -5e7f}, {9e7f, 7e7f}, {-8e7f, 7e7f}});
             std::vector<cv::Point2f> out; cv::intersectConvexConvex(p, box, out))
            PEER("area 2d", whole, benchmark::DoNotOptimize(cv::contourArea(p)))
                PEER("area f2d", single, benchmark::DoNotOptimize(cv::contourArea(p)))
                    PEER("contains 2d", whole,
                         benchmark::DoNotOptimize(cv::pointPolygonTest(p, {100, 77}, false)))
                        PEER("centroid 2d", whole, benchmark::DoNotOptimize(cv::moments(p)))
                            PEER("perimeter 2d", whole,
                                 benchmark::DoNotOptimize(cv::arcLength(p, true)))};

void add(const Contestant &contestant, const char *kind, Whole (*make)(size_t), size_t n) {
    const std::string name = std::string("geometry/") + contestant.operation + " " + kind + "/" +
                             std::to_string(n) + "/" + contestant.name;
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State &state) {
        const Set &set = set_of(make, n);
        if (contestant.call(set) < 0) state.SkipWithError("refused");
        for (auto step : state) {
            (void)step;
            benchmark::DoNotOptimize(contestant.call(set));
            benchmark::ClobberMemory();
        }
        state.SetItemsProcessed(int64_t(state.iterations() * set.n()));
    });
}

const bool registered = [] {
    for (const size_t n : {100, 10000, 200000})
        for (const Contestant &contestant : SETS) {
            add(contestant, "of a square", square, n);
            add(contestant, "of a disc", disc, n);
            add(contestant, "of pixels", pixels, n);
        }
    for (const size_t n : {10, 100, 10000}) {
        for (const Contestant &contestant : SETS) add(contestant, "of a circle", circle, n);
        for (const Contestant &contestant : POLYGONS) add(contestant, "of a circle", circle, n);
    }
    return true;
}();

} // namespace
