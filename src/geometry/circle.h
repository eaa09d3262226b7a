// geometry/circle.h - circles, and the smallest one around a point set.
//
// The search keeps a circle and the two or three points that hold it, looks for the point furthest
// from its centre, and lets that one hold, too (after Gaertner, 1999). Every step makes the circle
// larger, or is the last. A handful of passes over the points do, whatever their order and number.
#pragma once

#include <numbers>

#include "geometry/points.h"

namespace kipx::geometry {

template<class Circle> bool good_circle(const Circle *circle) {
    return good(circle) && circle->radius >= 0;
}

template<class Form> int32_t circle_area(double *area, const typename Form::Circle *circle) {
    if (!given(area) || !good_circle(circle)) return KIPX_EINVAL;
    *area = std::numbers::pi * circle->radius * circle->radius;
    return 0;
}

template<class Form>
int32_t circle_perimeter(double *perimeter, const typename Form::Circle *circle) {
    if (!given(perimeter) || !good_circle(circle)) return KIPX_EINVAL;
    *perimeter = 2 * std::numbers::pi * circle->radius;
    return 0;
}

template<class Form>
int32_t circle_box(typename Form::RealRect *box, const typename Form::Circle *circle) {
    if (!given(box) || !good_circle(circle)) return KIPX_EINVAL;
    const auto [x, y, radius] = *circle;
    *box = {x - radius, y - radius, x + radius, y + radius};
    return 0;
}

template<class Circle, class Point> int32_t position(const Circle &circle, const Point &p) {
    const int sign = sign_of_distance(double(p.x), double(p.y), circle.x, circle.y, circle.radius);
    return sign < 0 ? KIPX_INSIDE : sign == 0 ? KIPX_BORDER : KIPX_OUTSIDE;
}

template<class Form>
int32_t circle_contains(const typename Form::Circle *circle, const typename Form::Point *p) {
    if (!good_circle(circle) || !good(p)) return KIPX_EINVAL;
    return position(*circle, *p);
}

// ---- the smallest circle around points ----

struct Support {
    Vector centre = {};
    double square = -1; // of the radius
    int count = 0;
    Vector held[3] = {};
};

// Centre of the circle through the origin, a and b; not finite when they are on a line.
inline Vector circumcentre(Vector a, Vector b) {
    const double twice = 2 * cross(a, b), aa = dot(a, a), bb = dot(b, b);
    return {difference_of_products(b.y, aa, a.y, bb).value / twice,
            difference_of_products(a.x, bb, b.x, aa).value / twice};
}

// The smallest circle around the points that hold and p, which holds it. Each circle through p and
// one or two others is made large enough for all, and the smallest of them taken; so nothing depends
// on whether a point is within by a hair.
inline Support support_with(const Support &old, Vector p) {
    Support best;
    const auto consider = [&](Support candidate) {
        const auto reach = [&](Vector q) {
            return dot(q - candidate.centre, q - candidate.centre);
        };
        candidate.square = reach(p);
        for (int i = 0; i < old.count; i++)
            candidate.square = std::fmax(candidate.square, reach(old.held[i]));
        if (finite(candidate.centre) && (best.count == 0 || candidate.square < best.square))
            best = candidate;
    };
    if (old.count == 0) consider({p, 0, 1, {p}});
    for (int i = 0; i < old.count; i++) {
        const Vector q = old.held[i];
        consider({0.5 * (p + q), 0, 2, {p, q}});
        for (int k = 0; k < i; k++)
            consider({p + circumcentre(q - p, old.held[k] - p), 0, 3, {p, q, old.held[k]}});
    }
    return best;
}

// Squared distances of points from a place, a block at a time.
template<class Form> class Reach {
public:
    static constexpr size_t block = 64;
    Reach(const Frame<Form> &frame, const typename Form::Point *points, Vector from)
        : frame_(frame), points_(points), from_(from) {}

    double square(size_t i) const {
        const Vector v = frame_.local(points_[i]) - from_;
        return dot(v, v);
    }
    // The greatest of the squares from start to end, a block at most.
    double most(size_t start, size_t end) const {
        constexpr size_t lanes = 8;
        double squares[block], far[lanes] = {};
        for (size_t i = start; i < end; i++) squares[i - start] = square(i);
        for (size_t i = end - start; i % lanes; i++) squares[i] = 0;
        for (size_t i = 0; i < end - start; i += lanes)
            for (size_t lane = 0; lane < lanes; lane++)
                far[lane] = squares[i + lane] > far[lane] ? squares[i + lane] : far[lane];
        double most = far[0];
        for (const double s : far) most = s > most ? s : most;
        return most;
    }

private:
    const Frame<Form> &frame_;
    const typename Form::Point *points_;
    Vector from_;
};

// Calls visit (start, end, greatest square) for every block.
template<class Form, class Visit> void each_block(const Reach<Form> &reach, size_t n, Visit visit) {
    for (size_t start = 0; start < n; start += reach.block) {
        const size_t end = start + reach.block < n ? start + reach.block : n;
        visit(start, end, reach.most(start, end));
    }
}

struct Far {
    size_t index;
    double square;
};

// The point furthest away, the first of several.
template<class Form> Far furthest(const Reach<Form> &reach, size_t n) {
    Far far = {0, -1};
    each_block(reach, n, [&](size_t start, size_t, double most) {
        if (most > far.square) far = {start, most};
    });
    while (reach.square(far.index) < far.square) far.index++;
    return far;
}

template<class Form>
Support smallest_circle(const Frame<Form> &frame, const typename Form::Point *points, size_t n) {
    Support circle = support_with({}, frame.local(points[0]));
    for (;;) {
        const Far far = furthest(Reach<Form>(frame, points, circle.centre), n);
        if (far.square <= circle.square) return circle;
        const Support larger = support_with(circle, frame.local(points[far.index]));
        if (larger.square <= circle.square) return circle;
        circle = larger;
    }
}

template<class Real> Real next_up(Real number) { return std::nextafter(number, Real(HUGE_VAL)); }

template<class Form>
int32_t points_circle(typename Form::Circle *circle, const typename Form::Point *points, size_t n) {
    if (!given(circle) || !given_array(points, n)) return KIPX_EINVAL;
    if (n == 0) return KIPX_EEMPTY;
    typename Form::Rect box;
    if (!bounds<Form>(points, n, box)) return KIPX_EINVAL;
    const Frame<Form> frame(box);
    const Support found = smallest_circle(frame, points, n);
    // The radius is taken from the centre as it is stored, and goes up until every point is within. Only
    // those can be beyond it that are as far as the furthest one but for rounding.
    const auto centre = place_in<Form>(box, found.centre);
    const Vector from = frame.local(centre);
    const Reach<Form> reach(frame, points, from);
    const double most = equal(from, found.centre) ? found.square : furthest(reach, n).square;
    const double near = most * (1 - 0x1p-40);
    const double radius = frame.global(std::sqrt(most));
    typename Form::Circle result = {centre.x, centre.y, static_cast<typename Form::Real>(radius)};
    each_block(reach, n, [&](size_t start, size_t end, double furthest_here) {
        if (furthest_here < near || !finite(result.radius)) return;
        for (size_t i = start; i < end; i++)
            while (reach.square(i) >= near && position(result, points[i]) == KIPX_OUTSIDE)
                result.radius = next_up(result.radius);
    });
    *circle = result;
    return 0;
}

} // namespace kipx::geometry
