// geometry_test.cpp - planar geometry in its three forms against definitions: hulls by the turns of
// their sides, containment by exact crossings, circles and rectangles by all pairs and triples, cut
// areas by integrals. What depends on a model is shown to notice a planted fault.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <tuple>
#include <vector>

#include "geometry/forms.h"
#include "support/rng.h"

namespace {

using kipx::geometry::wide;
using kipx::test::Rng;
using Real = long double;
using V = kipx_r2d_point;

// The functions of each form, stamped from the list, as static members.
#define KIPX_FIGURE(name, parameters, arguments)                                                   \
    static int32_t name parameters { return KIPX_OF_FORM(name) arguments; }
struct Whole : kipx::geometry::Form_2d {
#define KIPX_FORM 2d
#include <kipx/geometry_ops.inc>
};
struct Single : kipx::geometry::Form_f2d {
#define KIPX_FORM f2d
#include <kipx/geometry_ops.inc>
};
struct Double : kipx::geometry::Form_r2d {
#define KIPX_FORM r2d
#include <kipx/geometry_ops.inc>
};
#undef KIPX_FIGURE

template<class Form> class Geometry : public testing::Test {};
using Forms = testing::Types<Whole, Single, Double>;
TYPED_TEST_SUITE(Geometry, Forms);

template<class Form> using Points = std::vector<typename Form::Point>;

// Random points on a small grid: many duplicates, many on a line, sometimes all of them.
template<class Form> Points<Form> grid_points(Rng &rng, size_t n, int64_t side) {
    const bool flat = rng.one_in(8), same = rng.one_in(30);
    Points<Form> points(n);
    for (auto &p : points) {
        const int64_t x = same ? 3 : rng.between(0, side), y = same ? 4 : rng.between(0, side);
        p = {static_cast<typename Form::Coordinate>(x),
             static_cast<typename Form::Coordinate>(flat ? 2 * x : y)};
    }
    return points;
}

// How closely results of a form agree with a model in long double.
template<class Form> constexpr Real tolerance = sizeof(typename Form::Real) == 4 ? 1e-6L : 1e-14L;

template<class P> Real turn(const P &a, const P &b, const P &c) {
    return (Real(b.x) - a.x) * (Real(c.y) - a.y) - (Real(b.y) - a.y) * (Real(c.x) - a.x);
}
template<class P, class Q> Real apart(const P &a, const Q &b) {
    return std::hypot(Real(a.x) - b.x, Real(a.y) - b.y);
}

// ---- every function of the list: bad arguments ----

alignas(16) unsigned char samples[12][128]; // one for each argument

// The first number of a record, and what it is filled with, so that every function of the list succeeds:
// points of a triangle, and figures near by.
template<class R> auto first_number(R *r) {
    if constexpr (requires { r->origin; })
        return std::tuple(r->origin, "02301451");
    else if constexpr (requires { r->at; })
        return std::tuple(&r->at[0].x, "00404303");
    else if constexpr (requires { r->xx; })
        return std::tuple(&r->xx, "201031");
    else if constexpr (requires { r->ux; })
        return std::tuple(&r->x, "112110");
    else if constexpr (requires { r->radius; })
        return std::tuple(&r->x, "112");
    else if constexpr (requires { r->x0; })
        return std::tuple(&r->x0, "0055");
    else if constexpr (requires { r->x; })
        return std::tuple(&r->x, "004003");
    else
        return std::tuple(r, "004003");
}

// An argument without its type, so that one judge does for every function.
struct Argument {
    bool record = false, input = false; // a pointer, and to what is only read
    bool count = false;                 // a size
    size_t real = 0;                    // bytes of a real number; 0: whole numbers
    void (*fill)(void *record) = nullptr;
    void *address = nullptr;
    double value = 3; // counts, capacities and amounts
};
template<class A> Argument argument() {
    Argument a;
    a.record = std::is_pointer_v<A>;
    if constexpr (std::is_pointer_v<A>) {
        using Record = std::remove_const_t<std::remove_pointer_t<A>>;
        using Number = std::remove_pointer_t<
            std::remove_reference_t<decltype(std::get<0>(first_number<Record>({})))>>;
        a.input = std::is_const_v<std::remove_pointer_t<A>>;
        a.real = std::is_floating_point_v<Number> ? sizeof(Number) : 0;
        a.fill = [](void *record) {
            auto [number, digits] = first_number(static_cast<Record *>(record));
            while (*digits) *number++ = Number(*digits++ - '0');
        };
    } else {
        a.count = std::is_same_v<A, size_t>;
        a.real = std::is_floating_point_v<A> ? sizeof(A) : 0;
    }
    return a;
}
template<class A> A passed(const Argument &a) {
    if constexpr (std::is_pointer_v<A>)
        return static_cast<A>(a.address);
    else
        return A(a.value);
}

enum Harm { null, skewed, not_finite, too_many };
// Does one harm to one argument; false when it does not apply to it.
bool harm(Argument &a, Harm kind) {
    if (!a.record) {
        a.value = a.real ? NAN : KIPX_GEOMETRY_POINTS + 1.0;
        return a.real ? kind == not_finite : kind == too_many && a.count;
    }
    const float single = INFINITY;
    const double full = INFINITY;
    auto *bytes = static_cast<unsigned char *>(a.address);
    if (kind == null) a.address = nullptr;
    if (kind == skewed) a.address = bytes + 1;
    if (kind < not_finite) return true;
    if (kind != not_finite || !a.input || !a.real) return false;
    memcpy(bytes + a.real, a.real == 4 ? static_cast<const void *>(&single) : &full, a.real);
    return true;
}

void refuse(const std::string &name, const std::vector<Argument> &taken,
            const std::function<int32_t(const Argument *)> &function) {
    const auto fresh = [&] {
        auto arguments = taken;
        for (size_t i = 0; i < arguments.size(); i++)
            if (arguments[i].record) {
                memset(samples[i], 0x77, sizeof samples[i]);
                arguments[i].fill(arguments[i].address = samples[i]);
            }
        return arguments;
    };
    EXPECT_GE(function(fresh().data()), 0) << name;
    for (const Harm kind : {null, skewed, not_finite, too_many})
        for (size_t which = 0; which < taken.size(); which++) {
            auto bad = fresh();
            if (!harm(bad[which], kind)) continue;
            // A rotation may have no centre, and an output's capacity be as large as it likes.
            if (kind == null && which == 3 && name == "affine_rotate") continue;
            if (kind == too_many && which && !taken[which - 1].input) continue;
            unsigned char before[128];
            memcpy(before, samples[0], sizeof before);
            EXPECT_EQ(function(bad.data()), KIPX_EINVAL)
                << name << ", argument " << which << ", harm " << kind;
            EXPECT_EQ(memcmp(before, samples[0], sizeof before), 0) << name;
        }
}
template<class... A> void refuse(const char *name, int32_t (*function)(A...)) {
    refuse(name, {argument<A>()...}, [function](const Argument *a) {
        return [&]<size_t... i>(std::index_sequence<i...>) { return function(passed<A>(a[i])...); }
        (std::index_sequence_for<A...>{});
    });
}

TEST(GeometryList, BadArgumentsAreRefusedAndNothingIsWritten) {
#define KIPX_FIGURE(name, parameters, arguments) refuse(#name, KIPX_OF_FORM(name));
#define KIPX_FORM 2d
#include <kipx/geometry_ops.inc>
#define KIPX_FORM f2d
#include <kipx/geometry_ops.inc>
#define KIPX_FORM r2d
#include <kipx/geometry_ops.inc>
#undef KIPX_FIGURE
}

// ---- turns, areas, containment ----

// Near-collinear triples of whole numbers below 2^53, as they are and moved to the ends of the range of
// exponents, against 128-bit integers.
TEST(GeometryExact, TurnsAtAllMagnitudes) {
    Rng rng(3);
    int naive_wrong = 0;
    for (int round = 0; round < 20000; round++) {
        const int64_t limit = int64_t{1} << rng.between(2, 50);
        int64_t n[6];
        for (auto &v : n) v = rng.between(-limit, limit);
        const int64_t k = rng.between(-3, 3); // c near a + k (b - a)
        n[4] = n[0] + k * (n[2] - n[0]) / 2 + rng.between(-1, 1);
        n[5] = n[1] + k * (n[3] - n[1]) / 2 + rng.between(-1, 1);
        const __int128 left = __int128(n[2] - n[0]) * (n[5] - n[1]);
        const __int128 right = __int128(n[3] - n[1]) * (n[4] - n[0]);
        const int expected = (left > right) - (left < right);
        for (const int power : {0, -1074, 969, -540}) {
            V p[3];
            for (int i = 0; i < 6; i++)
                (i % 2 ? p[i / 2].y : p[i / 2].x) = std::ldexp(double(n[i]), power);
            int32_t side = 9;
            ASSERT_EQ(kipx_r2d_point_side(&side, &p[0], &p[1], &p[2]), 0);
            ASSERT_EQ(side, expected) << round << " at 2^" << power;
            const double naive =
                (p[1].x - p[0].x) * (p[2].y - p[0].y) - (p[1].y - p[0].y) * (p[2].x - p[0].x);
            naive_wrong += ((naive > 0) - (naive < 0)) != expected;
        }
    }
    EXPECT_GT(naive_wrong, 1000); // the cases are hard
}

// Numbers of very unlike size, where no intermediate format suffices.
TEST(GeometryExact, TurnsOfUnlikeNumbers) {
    const double tiny = 0x1p-1074, huge = 0x1.fffffffffffffp1023;
    const struct {
        V a, b, c;
        int side;
    } rows[] = {{{0, 0}, {huge, huge}, {1, 1}, 0},
                {{0, 0}, {huge, huge}, {1, 1 + 0x1p-52}, 1},
                {{-huge, -huge}, {huge, huge}, {tiny, 0}, -1},
                {{-huge, -huge}, {huge, huge}, {0, tiny}, 1},
                {{-huge, 0}, {huge, tiny}, {0, tiny}, 1},
                {{tiny, tiny}, {huge, 1}, {huge, 1}, 0},
                {{tiny, 0}, {2 * tiny, tiny}, {3 * tiny, 2 * tiny}, 0},
                {{1e-300, 1e-300}, {1e300, 1e300}, {-1, -1}, 0}};
    for (const auto &row : rows) {
        const V *p[] = {&row.a, &row.b, &row.c};
        for (int i = 0; i < 6; i++) { // all orders
            const int x = i % 3, y = (x + 1 + i / 3) % 3, z = 3 - x - y;
            int32_t side = 9;
            kipx_r2d_point_side(&side, p[x], p[y], p[z]);
            EXPECT_EQ(side, i < 3 ? row.side : -row.side) << &row - rows;
        }
    }
}

// Correct rounding of areas: twice an area of whole numbers fits in 128 bits.
TEST(GeometryExact, AreasAreRoundedOnce) {
    Rng rng(4);
    for (int round = 0; round < 3000; round++) {
        const bool single = round % 2;
        const int64_t limit = int64_t{1} << rng.between(3, single ? 24 : 52);
        std::vector<V> p(rng.between(1, 30));
        std::vector<kipx_f2d_point> q(p.size());
        __int128 twice = 0;
        for (auto &v : p) v = {double(rng.between(-limit, limit)), double(rng.between(0, limit))};
        for (size_t i = 0; i < p.size(); i++) {
            const V a = p[i], b = p[(i + 1) % p.size()];
            twice += __int128(a.x) * __int128(b.y) - __int128(a.y) * __int128(b.x);
        }
        const int power = static_cast<int>(single ? rng.between(-120, 60) : rng.between(-400, 400));
        for (auto &v : p) v = {std::ldexp(v.x, power), std::ldexp(v.y, power)};
        kipx_f2d_points_from_r2d(q.data(), q.size(), p.data(), p.size());
        double area = 0;
        ASSERT_EQ(single ? kipx_f2d_polygon_signed_area(&area, q.data(), q.size())
                         : kipx_r2d_polygon_signed_area(&area, p.data(), p.size()),
                  0);
        ASSERT_EQ(area, std::ldexp(double(twice), 2 * power - 1)) << round;
    }
}

// Where a point lies, by the edges that a ray to a far place crosses that is on no grid line.
template<class P> int position_model(const std::vector<P> &polygon, P p) {
    const V far = {100003, 1000}, from = wide(p);
    int winding = 0;
    for (size_t i = 0; i < polygon.size(); i++) {
        const V a = wide(polygon[i]), b = wide(polygon[(i + 1) % polygon.size()]);
        if (apart(a, from) + apart(from, b) <= apart(a, b) + 1e-9L) return KIPX_BORDER;
        const bool crosses = (turn(from, far, a) > 0) != (turn(from, far, b) > 0) &&
                             (turn(a, b, from) > 0) != (turn(a, b, far) > 0);
        if (crosses) winding += turn(a, b, from) > 0 ? 1 : -1;
    }
    return winding ? KIPX_INSIDE : KIPX_OUTSIDE;
}

// Signed area of the part of the polygon in the rectangle: for each edge, the height of the rectangle's
// part under it, integrated over its columns in the rectangle.
template<class P> Real cut_area(const std::vector<P> &polygon, V low, V high) {
    Real sum = 0;
    for (size_t i = 0; i < polygon.size(); i++) {
        const P a = polygon[i], b = polygon[(i + 1) % polygon.size()];
        if (a.x == b.x) continue;
        const Real slope = (Real(b.y) - a.y) / (Real(b.x) - a.x);
        const auto y_at = [&](Real x) { return a.y + (x - a.x) * slope; };
        std::vector<Real> x = {std::clamp<Real>(a.x, low.x, high.x),
                               std::clamp<Real>(b.x, low.x, high.x)};
        for (const double y : {low.y, high.y}) {
            const Real at = slope == 0 ? x[0] : a.x + (y - a.y) / slope;
            x.push_back(std::clamp(at, std::min(x[0], x[1]), std::max(x[0], x[1])));
        }
        std::sort(x.begin(), x.end());
        Real part = 0;
        for (int k = 0; k < 3; k++) {
            const Real y = std::clamp<Real>(y_at((x[k] + x[k + 1]) / 2), low.y, high.y);
            part += (x[k + 1] - x[k]) * (y - low.y);
        }
        sum -= b.x > a.x ? part : -part;
    }
    return sum;
}

TYPED_TEST(Geometry, PolygonsContainAndAreCut) {
    using F = TypeParam;
    Rng rng(5);
    int border = 0, faults = 0;
    for (int round = 0; round < 6000; round++) {
        const auto polygon = grid_points<F>(rng, size_t(rng.between(1, 9)), 8);
        const size_t n = polygon.size();
        const auto spot = grid_points<F>(rng, 3, 8);
        const int model = position_model(polygon, spot[0]);
        ASSERT_EQ(F::polygon_contains(polygon.data(), n, &spot[0]), model) << round;
        border += model == KIPX_BORDER;
        faults += model != position_model(polygon, {spot[0].x + 1, spot[0].y});

        typename F::Rect rect;
        F::rect_span(&rect, &spot[1], &spot[2]);
        const int32_t count = F::polygon_clip(nullptr, 0, polygon.data(), n, &rect);
        ASSERT_GE(count, 0);
        ASSERT_LE(count, int32_t(4 * n));
        std::vector<typename F::RealPoint> cut(size_t(count) + 1, {77, 77});
        ASSERT_EQ(
            F::polygon_clip(cut.data(), size_t(count) - (count > 1), polygon.data(), n, &rect),
            count > 1 ? KIPX_EINVAL : count);
        ASSERT_EQ(F::polygon_clip(cut.data(), count, polygon.data(), n, &rect), count);
        ASSERT_EQ(cut.back().x, 77);
        cut.pop_back();
        for (const auto &p : cut)
            ASSERT_TRUE(p.x >= rect.x0 && p.x <= rect.x1 && p.y >= rect.y0 && p.y <= rect.y1);
        Real area = 0;
        for (size_t i = 0; i < cut.size(); i++)
            area += turn(V{0, 0}, wide(cut[i]), wide(cut[(i + 1) % cut.size()])) / 2;
        const Real expected = cut_area(polygon, {double(rect.x0), double(rect.y0)},
                                       {double(rect.x1), double(rect.y1)});
        ASSERT_NEAR(double(area), double(expected), double(300 * tolerance<F>)) << round;
    }
    EXPECT_GT(border, 300);
    EXPECT_GT(faults, 300);
}

// ---- hulls and what encloses ----

// The hull by its definition: vertices are points in the order promised, every turn is positive, and
// no point lies outside any side.
template<class P> bool is_hull(const std::vector<P> &hull, const std::vector<P> &points) {
    const size_t h = hull.size();
    const auto less = [](P a, P b) { return std::tie(a.x, a.y) < std::tie(b.x, b.y); };
    if (h == 0 || less(*std::min_element(points.begin(), points.end(), less), hull[0]))
        return false;
    for (size_t i = 0; i < h; i++) {
        const P a = hull[i], b = hull[(i + 1) % h];
        const auto same = [&](P p) { return p.x == a.x && p.y == a.y; };
        if (std::none_of(points.begin(), points.end(), same)) return false;
        if (h > 2 && turn(a, b, hull[(i + 2) % h]) <= 0) return false;
        for (const P p : points) {
            if (h == 1 ? !same(p) : turn(a, b, p) < 0) return false;
            if (h == 2 && apart(a, p) > apart(a, b)) return false;
        }
    }
    return h != 2 || less(hull[0], hull[1]);
}

TYPED_TEST(Geometry, HullsByDefinition) {
    using F = TypeParam;
    Rng rng(6);
    for (int round = 0; round < 1200; round++) {
        const size_t n = round < 1000 ? 1 + rng.below(12) : 33 + rng.below(3000);
        // Wide grids are sorted, narrow ones collected by columns.
        auto points = grid_points<F>(rng, n, round % 3 ? rng.between(1, 9) : 1 << rng.below(22));
        if (round % 7 == 0) // thin the corners out: a disc drops less at once
            for (auto &p : points) p.x = (p.x + p.y) / 2, p.y = (p.y + points[0].y) / 2;
        auto hull = points;
        std::vector<typename F::Point> out(n + 1, {77, 77});
        const int32_t count = F::points_hull(out.data(), n, points.data(), n);
        ASSERT_GT(count, 0);
        ASSERT_EQ(out[n].x, 77);
        out.resize(size_t(count));
        ASSERT_TRUE(is_hull(out, points)) << round;
        ASSERT_EQ(F::points_hull(hull.data(), n, hull.data(), n), count) << "in place";
        ASSERT_EQ(memcmp(hull.data(), out.data(), out.size() * sizeof out[0]), 0) << "in place";
        ASSERT_EQ(F::polygon_convex(out.data(), out.size()), 1);
        if (count > 3) { // planted: two vertices exchanged, one missing
            std::swap(out[1], out[2]);
            ASSERT_FALSE(is_hull(out, points));
            ASSERT_EQ(F::polygon_convex(out.data(), out.size()), 0);
            out.erase(out.begin() + 1);
            ASSERT_FALSE(is_hull(out, points));
            ASSERT_EQ(F::polygon_convex(out.data(), out.size()), 1); // convex all the same
        }
        EXPECT_EQ(F::points_hull(out.data(), n - 1, points.data(), n), KIPX_EINVAL);
        if (n > 2) {
            EXPECT_EQ(F::points_hull(&points[1], n, &points[0], n - 1), KIPX_EINVAL);
        }
    }
    typename F::Point star[5] = {
        {0, 0}, {4, 3}, {-1, 3}, {3, 0}, {1, 5}}; // turns one way, twice round
    EXPECT_EQ(F::polygon_convex(star, 5), 0);
    EXPECT_EQ(F::points_hull(nullptr, 0, nullptr, 0), 0);
}

// Radius of the smallest circle through two or three of the points that holds all.
template<class P> Real circle_model(const std::vector<P> &points) {
    Real best = points.size() == 1 ? 0 : HUGE_VALL;
    const auto consider = [&](Real x, Real y) {
        Real most = 0;
        for (const P p : points) most = std::max(most, std::hypot(p.x - x, p.y - y));
        best = std::min(best, most);
    };
    for (const P a : points)
        for (const P b : points) {
            consider((Real(a.x) + b.x) / 2, (Real(a.y) + b.y) / 2);
            for (const P c : points) {
                const Real twice = 2 * turn(a, b, c), bx = Real(b.x) - a.x, by = Real(b.y) - a.y;
                const Real cx = Real(c.x) - a.x, cy = Real(c.y) - a.y;
                if (twice == 0) continue;
                const Real bb = bx * bx + by * by, cc = cx * cx + cy * cy;
                consider(a.x + (cy * bb - by * cc) / twice, a.y + (bx * cc - cx * bb) / twice);
            }
        }
    return best;
}

// Least area of a rectangle along the line through any two points.
template<class P> Real rect_model(const std::vector<P> &points) {
    Real best = HUGE_VALL;
    for (const P a : points)
        for (const P b : points) {
            const Real ex = Real(b.x) - a.x, ey = Real(b.y) - a.y;
            if (ex == 0 && ey == 0) continue;
            Real least[2] = {HUGE_VALL, HUGE_VALL}, most[2] = {-HUGE_VALL, -HUGE_VALL};
            for (const P p : points) {
                const Real at[] = {p.x * ex + p.y * ey, p.y * ex - p.x * ey};
                for (int i = 0; i < 2; i++) {
                    least[i] = std::min(least[i], at[i]);
                    most[i] = std::max(most[i], at[i]);
                }
            }
            best =
                std::min(best, (most[0] - least[0]) * (most[1] - least[1]) / (ex * ex + ey * ey));
        }
    return best == HUGE_VALL ? 0 : best;
}

TYPED_TEST(Geometry, SmallestCirclesAndRectangles) {
    using F = TypeParam;
    Rng rng(7);
    int noticed = 0;
    for (int round = 0; round < 600; round++) {
        const auto points = grid_points<F>(rng, 1 + rng.below(11),
                                           round % 2 ? rng.between(1, 9) : 1 << rng.below(20));
        const size_t n = points.size();
        const Real size = rect_model(points), radius = circle_model(points);
        typename F::Circle circle;
        ASSERT_EQ(F::points_circle(&circle, points.data(), n), 0);
        ASSERT_LE(circle.radius, radius * (1 + 4 * tolerance<F>)) << round;
        for (const auto &p : points)
            ASSERT_NE(F::circle_contains(&circle, &p), KIPX_OUTSIDE) << round;
        auto less = circle;
        less.radius *= typename F::Real(1 - 8 * tolerance<F>);
        int outside = 0;
        for (const auto &p : points) outside += F::circle_contains(&less, &p) == KIPX_OUTSIDE;
        noticed += outside > 0;

        typename F::RealQuad quad;
        std::vector<typename F::Point> hull(n);
        ASSERT_GT(F::points_least_rect(&quad, hull.data(), n, points.data(), n), 0);
        const Real long_side = apart(quad.at[0], quad.at[1]), side = apart(quad.at[1], quad.at[2]);
        const Real reach = long_side + side + 1, close = 30 * tolerance<F> * reach * reach;
        ASSERT_GE(long_side, side * (1 - 30 * tolerance<F>));
        ASSERT_NEAR(double(long_side * side), double(size), double(close)) << round;
        for (int i = 0; i < 4; i++) // right angles, all points to the same side
            for (const auto &p : points)
                ASSERT_GE(turn(wide(quad.at[i]), wide(quad.at[(i + 1) % 4]), wide(p)), -close);
    }
    EXPECT_GT(noticed, 400);
    typename F::RealQuad quad;
    const typename F::Point bent[] = {{0, 0}, {4, 0}, {1, 1}, {0, 4}};
    EXPECT_EQ(F::polygon_least_rect(&quad, bent, 4), KIPX_EINVAL);
}

// ---- distances, rectangles ----

TYPED_TEST(Geometry, DistancesFromPolygons) {
    using F = TypeParam;
    Rng rng(8);
    for (int round = 0; round < 2000; round++) {
        const auto polygon = grid_points<F>(rng, 1 + rng.below(6), 9);
        const auto p = grid_points<F>(rng, 1, 9)[0];
        const size_t n = polygon.size();
        Real least = HUGE_VALL;
        for (size_t i = 0; i < n; i++) {
            const auto a = polygon[i], b = polygon[(i + 1) % n];
            const Real ex = Real(b.x) - a.x, ey = Real(b.y) - a.y, square = ex * ex + ey * ey;
            const Real along = (p.x - Real(a.x)) * ex + (p.y - Real(a.y)) * ey;
            const Real t = square > 0 ? std::clamp(along / square, Real(0), Real(1)) : 0;
            const Real model = std::hypot(a.x + t * ex - p.x, a.y + t * ey - p.y);
            least = std::min(least, model);
            double distance = -1;
            typename F::RealPoint nearest;
            ASSERT_EQ(F::segment_distance(&distance, &a, &b, &p), 0);
            ASSERT_EQ(F::segment_nearest(&nearest, &a, &b, &p), 0);
            ASSERT_NEAR(distance, double(model), 1e-14) << round;
            ASSERT_LE(apart(nearest, V{double(a.x + t * ex), double(a.y + t * ey)}),
                      9 * tolerance<F>);
            ASSERT_EQ(F::point_distance(&distance, &a, &p), 0);
            ASSERT_NEAR(distance, double(apart(a, p)), 1e-15 * distance);
        }
        double border = -1, distance = -1;
        ASSERT_EQ(F::polygon_border_distance(&border, polygon.data(), n, &p), 0);
        ASSERT_EQ(F::polygon_distance(&distance, polygon.data(), n, &p), 0);
        ASSERT_NEAR(border, double(least), 1e-14) << round;
        const int where = F::polygon_contains(polygon.data(), n, &p);
        ASSERT_EQ(border == 0, where == KIPX_BORDER) << round;
        ASSERT_EQ(distance, where == KIPX_OUTSIDE ? border : 0);
    }
}

// A rectangle of whole numbers is the set of the whole points in it, for all rectangles with sides from
// 0 to 3, empty ones included.
TYPED_TEST(Geometry, RectanglesAreSetsOfPoints) {
    using F = TypeParam;
    using Set = uint16_t; // bit 4 y + x
    const auto set = [](const typename F::Rect &r) {
        Set s = 0;
        for (int i = 0; i < 16; i++)
            if (r.x0 <= i % 4 && i % 4 <= r.x1 && r.y0 <= i / 4 && i / 4 <= r.y1) s |= Set(1 << i);
        return s;
    };
    std::vector<typename F::Rect> all;
    using C = typename F::Coordinate;
    for (int i = 0; i < 256; i++)
        all.push_back({C(i & 3), C(i >> 2 & 3), C(i >> 4 & 3), C(i >> 6 & 3)});
    for (const auto &a : all) {
        const Set in_a = set(a);
        const auto width = a.x1 - a.x0, height = a.y1 - a.y0;
        double area = -1, length = -1;
        F::rect_area(&area, &a);
        F::rect_perimeter(&length, &a);
        ASSERT_TRUE(in_a ? area == width * height && length == 2 * (width + height)
                         : area == 0 && length == 0);
        for (const auto &b : all) {
            typename F::Rect both, around;
            const Set in_b = set(b);
            ASSERT_EQ(F::rect_intersect(&both, &a, &b), (in_a & in_b) != 0);
            ASSERT_EQ(set(both), in_a & in_b);
            ASSERT_EQ(F::rect_covers(&a, &b), (in_b & ~in_a) == 0);
            ASSERT_EQ(F::rect_unite(&around, &a, &b), (in_a | in_b) != 0);
            ASSERT_TRUE(F::rect_covers(&around, &a) && F::rect_covers(&around, &b));
        }
        typename F::RealPoint middle;
        typename F::Rect back = a;
        typename F::Quad quad;
        kipx_site site = {};
        const int32_t answer = in_a ? 0 : KIPX_EEMPTY;
        ASSERT_EQ(F::rect_centroid(&middle, &a), answer);
        ASSERT_EQ(F::rect_site(&site, &a), answer);
        ASSERT_EQ(F::rect_from_site(&back, &site), answer);
        ASSERT_EQ(F::rect_quad(&quad, &a), answer);
        ASSERT_EQ(F::rect_grow(&back, &back, C(1), C(1)), in_a ? 1 : KIPX_EEMPTY);
        if (!in_a) continue;
        ASSERT_TRUE(2 * middle.x == a.x0 + a.x1 && 2 * middle.y == a.y0 + a.y1);
        ASSERT_EQ(site.extent[1] * site.extent[2], unsigned(__builtin_popcount(in_a)));
        ASSERT_EQ(F::rect_grow(&back, &back, C(-1), C(-1)), 1);
        ASSERT_EQ(set(back), in_a);
        ASSERT_EQ(F::rect_grow(&back, &a, C(-1), C(-1)), width >= 2 && height >= 2);
        for (int i = 0; i < 16; i++) {
            const typename F::Point p = {C(i % 4), C(i / 4)};
            ASSERT_EQ(F::rect_contains(&a, &p) != KIPX_OUTSIDE, in_a >> i & 1);
            ASSERT_EQ(F::rect_contains(&a, &p), F::quad_contains(&quad, &p));
        }
    }
}

TEST(GeometryLimits, WholeNumbersAtTheEndsOfTheirRange) {
    constexpr int32_t low = INT32_MIN, high = INT32_MAX;
    const kipx_2d_point square[] = {{low, low}, {high, low}, {high, high}, {low, high}, {0, 0}};
    kipx_2d_point hull[5];
    EXPECT_EQ(kipx_2d_points_hull(hull, 5, square, 5), 4);
    double area = 0, distance = 0;
    kipx_2d_polygon_area(&area, square, 4);
    EXPECT_EQ(area, 4294967295.0 * 4294967295.0);
    kipx_2d_point_distance(&distance, &square[0], &square[2]);
    EXPECT_DOUBLE_EQ(distance, 4294967295.0 * std::sqrt(2));
    kipx_r2d_point c;
    kipx_2d_polygon_centroid(&c, square, 4);
    EXPECT_TRUE(c.x == -0.5 && c.y == -0.5);
    kipx_2d_circle circle;
    kipx_2d_points_circle(&circle, square, 5);
    EXPECT_DOUBLE_EQ(circle.radius, distance / 2);
    kipx_2d_rect all;
    kipx_site site;
    kipx_2d_points_box(&all, square, 4);
    EXPECT_EQ(kipx_2d_rect_grow(&all, &all, 1, 0), KIPX_EINVAL);
    EXPECT_EQ(kipx_2d_rect_site(&site, &all), KIPX_EINVAL);
    const kipx_r2d_point far[] = {{1e300, -1e300}, {0.5, 1.5}, {2147483647.5, -2147483648.5}};
    const int32_t expected[] = {high, low, 0, 2, high, low};
    ASSERT_EQ(kipx_2d_points_from_r2d(hull, 5, far, 3), 3);
    EXPECT_EQ(memcmp(hull, expected, sizeof expected), 0);
    const uint32_t pixels[] = {7, 9, 1, 0x80000000u};
    EXPECT_EQ(kipx_2d_points_from_pixels(hull, 2, pixels, 2), KIPX_EINVAL);
    EXPECT_EQ(kipx_2d_points_from_pixels(hull, 2, pixels, 1), 1);
    EXPECT_TRUE(hull[0].x == 9 && hull[0].y == 7);
}

// ---- ellipses, maps, and the forms against each other ----

// The central second moments of a filled ellipse, times 4.
template<class E> std::array<Real, 3> shape(const E &e) {
    const Real aa = Real(e.a) * e.a, bb = Real(e.b) * e.b, ux = e.ux, uy = e.uy;
    return {aa * ux * ux + bb * uy * uy, (aa - bb) * ux * uy, aa * uy * uy + bb * ux * ux};
}

TYPED_TEST(Geometry, EllipsesFromMomentsAndUnderMaps) {
    using F = TypeParam;
    using R = typename F::Real;
    Rng rng(9);
    for (int round = 0; round < 500; round++) {
        auto points = grid_points<F>(rng, 1 + rng.below(40), rng.between(1, 30));
        const size_t n = points.size();
        Real x = 0, y = 0, xx = 0, xy = 0, yy = 0;
        for (const auto &p : points) {
            x += p.x, y += p.y;
            xx += Real(p.x) * p.x, xy += Real(p.x) * p.y, yy += Real(p.y) * p.y;
        }
        typename F::Ellipse e, m;
        ASSERT_EQ(F::points_ellipse(&e, points.data(), n), 0);
        ASSERT_EQ(F::ellipse_from_moments(&m, double(n), double(x), double(y), double(xx),
                                          double(xy), double(yy)),
                  0);
        x /= n, y /= n;
        const Real moments[] = {xx / n - x * x, xy / n - x * y, yy / n - y * y};
        const Real close = 100 * tolerance<F> * (moments[0] + moments[2] + 1);
        for (int i = 0; i < 3; i++)
            ASSERT_LE(std::fabs(shape(e)[i] - 4 * moments[i]), close) << round;
        ASSERT_LE(apart(e, V{double(x), double(y)}) + apart(e, m), close);
        ASSERT_LE(apart(V{e.a, e.b}, V{m.a, m.b}), close);
        ASSERT_TRUE(e.a >= e.b && e.b >= 0 && (e.ux > 0 || (e.ux == 0 && e.uy == 1))) << round;
        const bool on_a_line = moments[0] * moments[2] - moments[1] * moments[1] < 1e-12L;
        ASSERT_EQ(e.b == 0, on_a_line) << round;
        double angle = 9, perimeter = 0;
        ASSERT_EQ(F::ellipse_angle(&angle, &e), 0);
        ASSERT_LE(apart(V{std::cos(angle), std::sin(angle)}, V{e.ux, e.uy}), 1e-6);

        // A map L takes the moments S to L S L'.
        const typename F::Affine map = {R(rng.between(-3, 3)), R(1.5), R(4), R(-0.5),
                                        R(rng.between(1, 3)),  R(-7)};
        typename F::Affine back, one;
        ASSERT_EQ(F::affine_invert(&back, &map), 0);
        ASSERT_EQ(F::affine_compose(&one, &map, &back), 0);
        ASSERT_LE(apart(V{one.xx, one.yy}, V{1, 1}) + apart(V{one.xy, one.yx}, V{one.x0, one.y0}),
                  100 * tolerance<F>);
        ASSERT_EQ(F::ellipse_map(&m, &e, &map), 0);
        const auto [sxx, sxy, syy] = shape(e);
        const Real mapped[] = {
            map.xx * map.xx * sxx + 2 * map.xx * map.xy * sxy + map.xy * map.xy * syy,
            map.xx * map.yx * sxx + (map.xx * map.yy + map.xy * map.yx) * sxy +
                map.xy * map.yy * syy,
            map.yx * map.yx * sxx + 2 * map.yx * map.yy * sxy + map.yy * map.yy * syy};
        for (int i = 0; i < 3; i++)
            ASSERT_LE(std::fabs(shape(m)[i] - mapped[i]), 30 * close) << round;
        ASSERT_LE(std::fabs(m.x - (map.xx * Real(e.x) + map.xy * e.y + map.x0)), close);
        typename F::RealRect box;
        ASSERT_EQ(F::ellipse_box(&box, &m), 0);
        ASSERT_NEAR(box.y1 - m.y, double(std::sqrt(shape(m)[2])), 1e-4);
        double length = 0;
        for (int i = 0; i < 1000; i++)
            length += std::hypot(m.a * std::sin(i * M_PI / 500), m.b * std::cos(i * M_PI / 500));
        length *= M_PI / 500;
        ASSERT_EQ(F::ellipse_perimeter(&perimeter, &m), 0);
        ASSERT_NEAR(perimeter, length, 1e-4 * length) << m.a << ' ' << m.b;
    }
}

// One set of whole points through everything, in double: what the other two forms give is the same, bits
// included, but rounded to single precision; and what double gives of the points times a power of two is
// the same times that power, to the ends of the range.
template<class F> std::vector<double> everything(const std::vector<V> &source, double scale) {
    const size_t n = source.size();
    std::vector<V> scaled(n);
    for (size_t i = 0; i < n; i++) scaled[i] = {source[i].x * scale, source[i].y * scale};
    Points<F> p(n), hull(n);
    F::points_from_r2d(p.data(), n, scaled.data(), n);
    std::vector<double> out;
    const auto keep = [&](const auto &record) {
        const auto *number = std::get<0>(first_number(&record));
        for (size_t i = 0; i < sizeof record / sizeof *number; i++)
            out.push_back(number[i] / scale);
    };
    typename F::Circle circle;
    typename F::RealQuad quad;
    typename F::RealPoint point;
    typename F::Ellipse ellipse;
    V lengths = {};
    typename F::Rect rect;
    F::points_circle(&circle, p.data(), n), keep(circle);
    const int32_t h = F::points_least_rect(&quad, hull.data(), n, p.data(), n);
    keep(quad);
    for (int32_t i = 0; i < h; i++) keep(hull[size_t(i)]);
    F::points_centroid(&point, p.data(), n), keep(point);
    F::polygon_centroid(&point, p.data(), n), keep(point);
    F::segment_nearest(&point, &p[0], &p[1], &p[2]), keep(point);
    F::points_ellipse(&ellipse, p.data(), n), keep(ellipse);
    for (int i = 0; i < 2; i++) out.end()[i - 2] *= scale; // a unit vector
    F::polygon_border_distance(&lengths.x, p.data() + 1, n - 1, &p[0]);
    F::polygon_perimeter(&lengths.y, p.data(), n), keep(lengths);
    F::rect_span(&rect, &p[0], &p[1]);
    std::vector<typename F::RealPoint> cut(4 * n);
    cut.resize(size_t(F::polygon_clip(cut.data(), 4 * n, p.data(), n, &rect)));
    for (const auto &v : cut)
        if (sizeof v.x == 8) keep(v); // in single precision more vertices may coincide
    return out;
}

TEST(GeometryForms, AgreeOnWholeNumbersAndAtAllScales) {
    Rng rng(10);
    for (int round = 0; round < 300; round++) {
        const auto points = grid_points<Double>(rng, 3 + rng.below(20), rng.between(1, 200));
        const auto expected = everything<Double>(points, 1);
        ASSERT_EQ(everything<Whole>(points, 1), expected) << round;
        auto single = everything<Single>(points, 1);
        ASSERT_GT(single.size(), 20u);
        for (size_t i = 0; i < single.size(); i++)
            ASSERT_NEAR(single[i], expected[i], 1e-6 * std::fabs(expected[i]) + 1e-6)
                << round << ' ' << i;
        for (const double scale : {0x1p1010, 0x1p-1015, 0x1p520, 0x1p-530, 0x1p-60})
            ASSERT_EQ(everything<Double>(points, scale), expected) << round << " times " << scale;
    }
}

TYPED_TEST(Geometry, MapsFromPoints) {
    using F = TypeParam;
    Rng rng(11);
    for (int round = 0; round < 500; round++) {
        const auto p = grid_points<F>(rng, 6, 20);
        typename F::Affine map, turned;
        const bool flat = turn(p[0], p[1], p[2]) == 0;
        ASSERT_EQ(F::affine_from_points(&map, &p[0], &p[3]), flat ? KIPX_EINVAL : 0);
        if (flat) continue;
        typename F::RealPoint image[3], about = {2, -5};
        ASSERT_EQ(F::points_map(image, 3, p.data(), 3, &map), 3);
        for (int i = 0; i < 3; i++)
            ASSERT_NEAR(double(apart(image[i], p[size_t(i) + 3])), 0, double(2e4 * tolerance<F>))
                << round;
        ASSERT_EQ(F::affine_rotate(&turned, 0, 8, &about), 0); // the x axis becomes the y axis
        ASSERT_EQ(F::points_map(image, 1, p.data(), 1, &turned), 1);
        ASSERT_TRUE(image[0].x == -3 - p[0].y && image[0].y == p[0].x - 7);
    }
    const typename F::Affine singular = {1, 2, 0, 2, 4, 0};
    typename F::Affine inverse;
    EXPECT_EQ(F::affine_invert(&inverse, &singular), KIPX_EINVAL);
}

} // namespace
