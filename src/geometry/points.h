// geometry/points.h - points, segments, and what a point set has without its hull.
#pragma once

#include "geometry/forms.h"

namespace kipx::geometry {

template<class Form> Frame<Form> frame_of(const typename Form::Point *points, size_t n) {
    typename Form::Rect box;
    bounds<Form>(points, n, box);
    return Frame<Form>(box);
}

// What lies nearest to the origin on the segment from a to b: the ends, or how far along it is.
struct Nearest {
    double along; // 0 at a, 1 at b
    double distance;
};

inline Nearest nearest_to_origin(Vector a, Vector b) {
    const Vector edge = b - a;
    const double square = dot(edge, edge), reach = -dot(a, edge);
    if (!(reach > 0)) return {0, length(a)};
    if (reach >= square) return {1, length(b)};
    return {reach / square, std::fabs(cross(a, b)) / std::sqrt(square)};
}

// Is p on the segment? Exact.
template<class Point> bool on_segment(const Point &a, const Point &b, const Point &p) {
    const bool beside = (p.x < a.x && p.x < b.x) || (p.x > a.x && p.x > b.x) ||
                        (p.y < a.y && p.y < b.y) || (p.y > a.y && p.y > b.y);
    return !beside && turn(a, b, p) == 0;
}

template<class Form>
int32_t point_distance(double *distance, const typename Form::Point *a,
                       const typename Form::Point *b) {
    if (!given(distance) || !good(a, b)) return KIPX_EINVAL;
    const typename Form::Point both[] = {*a, *b};
    const auto frame = frame_of<Form>(both, 2);
    *distance = frame.global(span(frame.local(*a), frame.local(*b)));
    return 0;
}

template<class Form>
int32_t point_side(int32_t *side, const typename Form::Point *a, const typename Form::Point *b,
                   const typename Form::Point *p) {
    if (!given(side) || !good(a, b, p)) return KIPX_EINVAL;
    *side = turn(*a, *b, *p);
    return 0;
}

template<class Form>
int32_t segment_distance(double *distance, const typename Form::Point *a,
                         const typename Form::Point *b, const typename Form::Point *p) {
    if (!given(distance) || !good(a, b, p)) return KIPX_EINVAL;
    const typename Form::Point all[] = {*a, *b, *p};
    const auto frame = frame_of<Form>(all, 3);
    const Vector origin = frame.local(*p);
    const auto nearest = nearest_to_origin(frame.local(*a) - origin, frame.local(*b) - origin);
    *distance = on_segment(*a, *b, *p) ? 0 : frame.global(nearest.distance);
    return 0;
}

template<class Form>
int32_t segment_nearest(typename Form::RealPoint *result, const typename Form::Point *a,
                        const typename Form::Point *b, const typename Form::Point *p) {
    if (!given(result) || !good(a, b, p)) return KIPX_EINVAL;
    const typename Form::Point all[] = {*a, *b, *p};
    const auto frame = frame_of<Form>(all, 3);
    const Vector from = frame.local(*a), to = frame.local(*b), origin = frame.local(*p);
    const double along = nearest_to_origin(from - origin, to - origin).along;
    const Vector nearest = along <= 0   ? wide(*a)
                           : along >= 1 ? wide(*b)
                                        : frame.global(from + along * (to - from));
    *result = rounded<Form>(nearest);
    return 0;
}

template<class Form>
int32_t points_box(typename Form::Rect *box, const typename Form::Point *points, size_t n) {
    if (!given(box) || !given_array(points, n)) return KIPX_EINVAL;
    if (n == 0) return KIPX_EEMPTY;
    typename Form::Rect result;
    if (!bounds<Form>(points, n, result)) return KIPX_EINVAL;
    *box = result;
    return 0;
}

// Sums over local coordinates.
struct Moments {
    Twofold x, y, xx, xy, yy;
};

inline Twofold twofold(__int128 number) {
    const double value = static_cast<double>(number);
    return {value, static_cast<double>(number - static_cast<__int128>(value))};
}

// The sums of the points of a box; of whole numbers, exactly: 2^64 a point, 2^93 all.
template<class Form>
Moments moments_of(const typename Form::Point *points, size_t n, const typename Form::Rect &box) {
    if constexpr (integer<Form>) {
        int64_t x = 0, y = 0;
        unsigned __int128 xx = 0, xy = 0, yy = 0;
        for (size_t i = 0; i < n; i++) {
            const int64_t px = int64_t{points[i].x} - box.x0, py = int64_t{points[i].y} - box.y0;
            const auto ux = static_cast<uint64_t>(px), uy = static_cast<uint64_t>(py);
            x += px;
            y += py;
            xx += ux * ux;
            xy += ux * uy;
            yy += uy * uy;
        }
        const auto sum = [](auto whole) { return twofold(static_cast<__int128>(whole)); };
        return {sum(x), sum(y), sum(xx), sum(xy), sum(yy)};
    } else {
        const Frame<Form> frame(box);
        Moments sum;
        for (size_t i = 0; i < n; i++) {
            const Vector p = frame.local(points[i]);
            sum.x = sum.x + Twofold{p.x};
            sum.y = sum.y + Twofold{p.y};
            sum.xx = sum.xx + two_product(p.x, p.x);
            sum.xy = sum.xy + two_product(p.x, p.y);
            sum.yy = sum.yy + two_product(p.y, p.y);
        }
        return sum;
    }
}

// The global place of a local one, no further out than the box.
template<class Form>
typename Form::RealPoint place_in(const typename Form::Rect &box, Vector local) {
    const Vector v = Frame<Form>(box).global(local);
    return rounded<Form>({between(box.x0, v.x, box.x1), between(box.y0, v.y, box.y1)});
}

template<class Form>
int32_t points_centroid(typename Form::RealPoint *centroid, const typename Form::Point *points,
                        size_t n) {
    if (!given(centroid) || !given_array(points, n)) return KIPX_EINVAL;
    if (n == 0) return KIPX_EEMPTY;
    typename Form::Rect box;
    if (!bounds<Form>(points, n, box)) return KIPX_EINVAL;
    const Frame<Form> frame(box);
    Compensated x, y;
    for (size_t i = 0; i < n; i++) {
        const Vector p = frame.local(points[i]);
        x.add(p.x);
        y.add(p.y);
    }
    const auto count = static_cast<double>(n);
    *centroid = place_in<Form>(box, {x.total() / count, y.total() / count});
    return 0;
}

// ---- from form to form ----

// To nearest, ties to even, saturated.
template<class Coordinate> Coordinate converted(double number) {
    if constexpr (std::is_integral_v<Coordinate>) {
        constexpr double bias = 0x1.8p52; // one in the last place is 1
        const double whole = (between(INT32_MIN, number, INT32_MAX) + bias) - bias;
        return static_cast<Coordinate>(whole);
    } else {
        return static_cast<Coordinate>(number);
    }
}

template<class Form, class Source>
int32_t points_from(typename Form::Point *points, size_t capacity, const Source *source, size_t n) {
    if (!given_array(points, n) || !given_array(source, n) || capacity < n) return KIPX_EINVAL;
    for (size_t i = 0; i < n; i++)
        if (!finite(source[i])) return KIPX_EINVAL;
    using Coordinate = typename Form::Coordinate;
    for (size_t i = 0; i < n; i++) {
        const Vector p = wide(source[i]);
        points[i] = {converted<Coordinate>(p.x), converted<Coordinate>(p.y)};
    }
    return static_cast<int32_t>(n);
}

template<class Form>
int32_t points_from_2d(typename Form::Point *points, size_t capacity, const kipx_2d_point *source,
                       size_t n) {
    return points_from<Form>(points, capacity, source, n);
}

template<class Form>
int32_t points_from_f2d(typename Form::Point *points, size_t capacity, const kipx_f2d_point *source,
                        size_t n) {
    return points_from<Form>(points, capacity, source, n);
}

template<class Form>
int32_t points_from_r2d(typename Form::Point *points, size_t capacity, const kipx_r2d_point *source,
                        size_t n) {
    return points_from<Form>(points, capacity, source, n);
}

template<class Form>
int32_t points_from_pixels(typename Form::Point *points, size_t capacity, const uint32_t *pairs,
                           size_t n) {
    if (!given_array(points, n) || !given_array(pairs, n) || capacity < n) return KIPX_EINVAL;
    uint32_t all = 0;
    for (size_t i = 0; i < 2 * n; i++) all |= pairs[i];
    if (all > INT32_MAX) return KIPX_EINVAL;
    using Coordinate = typename Form::Coordinate;
    for (size_t i = 0; i < n; i++)
        points[i] = {static_cast<Coordinate>(pairs[2 * i + 1]),
                     static_cast<Coordinate>(pairs[2 * i])};
    return static_cast<int32_t>(n);
}

} // namespace kipx::geometry
