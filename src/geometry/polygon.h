// geometry/polygon.h - polygons as n vertices, and quadrilaterals as polygons of four.
#pragma once

#include "geometry/points.h"

namespace kipx::geometry {

// Calls edge (a, b) for every edge, the closing one first.
template<class Point, class Edge> void each_edge(const Point *vertices, size_t n, Edge edge) {
    for (size_t i = 0, before = n - 1; i < n; before = i++) edge(vertices[before], vertices[i]);
}

// Sum of term (a, b, lane) over the edges, as four interleaved sums, so that none waits for another.
template<class Point, class Term> Compensated edge_sum(const Point *vertices, size_t n, Term term) {
    Compensated sums[4];
    if (n == 0) return {};
    size_t i = 0;
    for (; i + 4 < n; i += 4)
        for (int k = 0; k < 4; k++) sums[k].add(term(vertices[i + k], vertices[i + k + 1], k));
    for (; i + 1 < n; i++) sums[0].add(term(vertices[i], vertices[i + 1], 0));
    sums[1].add(term(vertices[n - 1], vertices[0], 1));
    for (int k = 1; k < 4; k++) sums[0].add(sums[k].both());
    return sums[0];
}

template<class Form> bool all_finite(const typename Form::Point *points, size_t n) {
    typename Form::Rect box;
    return integer<Form> || n == 0 || bounds<Form>(points, n, box);
}

// The signed area, correctly rounded, and its sign, which is right also where the area underflows.
struct SignedArea {
    double value;
    int sign;
};

// Half the sum of the cross products of successive vertices.
template<class Form> SignedArea exact_area(const typename Form::Point *vertices, size_t n) {
    if constexpr (integer<Form>) {
        __int128 sum = 0; // 2^65 an edge at most
        each_edge(vertices, n, [&](auto a, auto b) {
            sum += static_cast<__int128>(int64_t{a.x} * b.y) - int64_t{a.y} * b.x;
        });
        return {static_cast<double>(sum) / 2, (sum > 0) - (sum < 0)};
    } else {
        ExactSum sum;
        each_edge(vertices, n, [&](auto a, auto b) {
            sum.add(a.x, b.y);
            sum.subtract(a.y, b.x);
        });
        return {sum.half(), sum.sign()};
    }
}

// The sum with an error bound first: where both ends of what it may be round alike, that is the result. Not
// so where coordinates are not finite, of which the sum is neither.
template<class Form> SignedArea signed_area(const typename Form::Point *vertices, size_t n) {
    if constexpr (!integer<Form>) {
        const auto product = [](double a, double b) {
            return unbounded<Form> ? two_product(a, b) : Twofold{a * b, 0};
        };
        double sizes[4] = {};
        const auto sum = edge_sum(vertices, n, [&](auto a, auto b, int lane) {
            const Twofold add = product(a.x, b.y), take = product(a.y, b.x);
            sizes[lane] += std::fabs(add.value) + std::fabs(take.value);
            return rounded_sum(add, -take);
        });
        // n terms, each once rounded; many times the bound, for what is rounded here, too.
        const double size = (sizes[0] + sizes[1]) + (sizes[2] + sizes[3]);
        const double error = size * 0x1p-100 * (double(n) * double(n)) + 0x1p-1000;
        const auto [value, tail] = sum.both();
        const double low = value + (tail - error), high = value + (tail + error);
        const bool alike = low >= high && std::fabs(low) > 0x1p-900 && size < 0x1p900;
        if (alike) return {low / 2, low > 0 ? 1 : -1};
        if (!all_finite<Form>(vertices, n)) return {NAN, 0};
    }
    return exact_area<Form>(vertices, n);
}

template<class Form>
int32_t polygon_signed_area(double *area, const typename Form::Point *vertices, size_t n) {
    if (!given(area) || !given_array(vertices, n)) return KIPX_EINVAL;
    const double found = signed_area<Form>(vertices, n).value;
    if (std::isnan(found)) return KIPX_EINVAL;
    *area = found;
    return 0;
}

template<class Form>
int32_t polygon_area(double *area, const typename Form::Point *vertices, size_t n) {
    const int32_t code = polygon_signed_area<Form>(area, vertices, n);
    if (code == 0) *area = std::fabs(*area);
    return code;
}

template<class Form>
int32_t polygon_perimeter(double *perimeter, const typename Form::Point *vertices, size_t n) {
    if (!given(perimeter) || !given_array(vertices, n)) return KIPX_EINVAL;
    double whole =
        edge_sum(vertices, n, [](auto a, auto b, int) { return span(wide(a), wide(b)); }).total();
    if constexpr (!integer<Form>) {
        if (!(whole < 0x1p500) && !all_finite<Form>(vertices, n)) return KIPX_EINVAL;
        // Squares have overflowed, or too many of them underflowed.
        if (unbounded<Form> && !(whole > 0x1p-400 && whole < 0x1p500))
            whole = edge_sum(vertices, n, [](auto a, auto b, int) {
                        return length(wide(b) - wide(a));
                    }).total();
        if (std::isnan(whole)) whole = HUGE_VAL;
    }
    *perimeter = whole;
    return 0;
}

// Centroid of the outline, local; the first vertex when it has no length.
template<class Form>
Vector outline_centroid(const Frame<Form> &frame, const typename Form::Point *vertices, size_t n) {
    Compensated whole, x, y;
    each_edge(vertices, n, [&](auto p, auto q) {
        const Vector a = frame.local(p), b = frame.local(q);
        const double weight = span(a, b);
        whole.add(weight);
        x.add(weight * (0.5 * (a.x + b.x)));
        y.add(weight * (0.5 * (a.y + b.y)));
    });
    if (!(whole.total() > 0)) return frame.local(vertices[0]);
    return {x.total() / whole.total(), y.total() / whole.total()};
}

// Centroid of the area, local: triangles from the corner of the box, weighted by their signed areas. Not
// finite when these sum to 0.
template<class Form>
Vector area_centroid(const typename Form::Rect &box, const typename Form::Point *vertices,
                     size_t n) {
    if constexpr (integer<Form>) {
        // Local coordinates are below 2^32 and not negative: 2^97 an edge at most, exactly.
        __int128 area = 0, x = 0, y = 0;
        each_edge(vertices, n, [&](auto p, auto q) {
            const int64_t ax = int64_t{p.x} - box.x0, ay = int64_t{p.y} - box.y0;
            const int64_t bx = int64_t{q.x} - box.x0, by = int64_t{q.y} - box.y0;
            const __int128 weight = static_cast<__int128>(ax) * by - static_cast<__int128>(ay) * bx;
            area += weight;
            x += weight * (ax + bx);
            y += weight * (ay + by);
        });
        const double whole = 3 * static_cast<double>(area);
        return {static_cast<double>(x) / whole, static_cast<double>(y) / whole};
    } else {
        const Frame<Form> frame(box);
        Twofold area, x, y;
        each_edge(vertices, n, [&](auto p, auto q) {
            const Vector a = frame.local(p), b = frame.local(q);
            const Twofold weight = two_product(a.x, b.y) - two_product(a.y, b.x);
            area = area + weight;
            x = x + weight * two_sum(a.x, b.x);
            y = y + weight * two_sum(a.y, b.y);
        });
        return {x.value / (3 * area.value), y.value / (3 * area.value)};
    }
}

template<class Form>
int32_t polygon_centroid(typename Form::RealPoint *centroid, const typename Form::Point *vertices,
                         size_t n) {
    if (!given(centroid) || !given_array(vertices, n)) return KIPX_EINVAL;
    if (n == 0) return KIPX_EEMPTY;
    typename Form::Rect box;
    if (!bounds<Form>(vertices, n, box)) return KIPX_EINVAL;
    Vector local = area_centroid<Form>(box, vertices, n);
    if (!finite(local) || signed_area<Form>(vertices, n).sign == 0)
        local = outline_centroid(Frame<Form>(box), vertices, n);
    *centroid = place_in<Form>(box, local);
    return 0;
}

// Counts the edges that cross the row of p to its right: upwards ones less downwards ones.
template<class Point> int32_t position(const Point *vertices, size_t n, const Point &p) {
    int64_t winding = 0;
    bool border = false;
    each_edge(vertices, n, [&](const Point &a, const Point &b) {
        if ((a.y < p.y && b.y < p.y) || (a.y > p.y && b.y > p.y)) return;
        if (a.x < p.x && b.x < p.x) return;
        const int side = turn(a, b, p);
        if (side == 0 && !(a.x > p.x && b.x > p.x)) border = true;
        if (a.y <= p.y && b.y > p.y && side > 0) winding++;
        if (b.y <= p.y && a.y > p.y && side < 0) winding--;
    });
    return border ? KIPX_BORDER : winding != 0 ? KIPX_INSIDE : KIPX_OUTSIDE;
}

template<class Form>
int32_t polygon_contains(const typename Form::Point *vertices, size_t n,
                         const typename Form::Point *p) {
    if (!good(p) || !given_array(vertices, n) || !all_finite<Form>(vertices, n)) return KIPX_EINVAL;
    return n ? position(vertices, n, *p) : KIPX_OUTSIDE;
}

// A closed outline whose turns all have one sign goes round once when its edges change between
// forwards (x, then y, growing) and backwards twice. Goes round once and along the first edge again.
template<class Point> bool convex(const Point *vertices, size_t n) {
    const Point *corner = nullptr, *before = vertices, *second = nullptr;
    bool positive = false, negative = false, forwards = false;
    int changes = 0;
    const auto vertex = [&](const Point &p) {
        if (equal(*before, p)) return;
        const bool way = before->x < p.x || (!(p.x < before->x) && before->y < p.y);
        if (corner) {
            changes += way != forwards;
            const int side = turn(*corner, *before, p);
            positive |= side > 0;
            negative |= side < 0;
        } else {
            second = &p;
        }
        forwards = way;
        corner = before;
        before = &p;
    };
    for (size_t i = 1; i < n; i++) vertex(vertices[i]);
    if (!second) return n > 0;
    vertex(vertices[0]);
    vertex(*second);
    return !(positive && negative) && changes <= 2;
}

template<class Form> int32_t polygon_convex(const typename Form::Point *vertices, size_t n) {
    if (!given_array(vertices, n) || !all_finite<Form>(vertices, n)) return KIPX_EINVAL;
    return convex(vertices, n);
}

template<class Form>
int32_t polygon_border_distance(double *distance, const typename Form::Point *vertices, size_t n,
                                const typename Form::Point *p) {
    if (!given(distance) || !good(p) || !given_array(vertices, n)) return KIPX_EINVAL;
    if (n == 0) return KIPX_EEMPTY;
    typename Form::Rect box;
    if (!bounds<Form>(vertices, n, box)) return KIPX_EINVAL;
    const typename Form::Point both[] = {{box.x0, box.y0}, {box.x1, box.y1}, *p};
    const auto frame = frame_of<Form>(both, 3);
    const Vector origin = frame.local(*p);
    double least = HUGE_VAL;
    each_edge(vertices, n, [&](auto a, auto b) {
        const auto found = nearest_to_origin(frame.local(a) - origin, frame.local(b) - origin);
        least = found.distance < least ? found.distance : least;
    });
    // Local coordinates of real numbers are rounded, which must not move a point off the outline.
    const bool on_it = !integer<Form> && position(vertices, n, *p) == KIPX_BORDER;
    *distance = on_it ? 0 : frame.global(least);
    return 0;
}

template<class Form>
int32_t polygon_distance(double *distance, const typename Form::Point *vertices, size_t n,
                         const typename Form::Point *p) {
    const int32_t code = polygon_border_distance<Form>(distance, vertices, n, p);
    if (code == 0 && position(vertices, n, *p) != KIPX_OUTSIDE) *distance = 0;
    return code;
}

// ---- quadrilaterals ----

template<class Form> int32_t quad_area(double *area, const typename Form::Quad *quad) {
    return given(quad) ? polygon_area<Form>(area, quad->at, 4) : KIPX_EINVAL;
}

template<class Form> int32_t quad_perimeter(double *perimeter, const typename Form::Quad *quad) {
    return given(quad) ? polygon_perimeter<Form>(perimeter, quad->at, 4) : KIPX_EINVAL;
}

template<class Form>
int32_t quad_centroid(typename Form::RealPoint *centroid, const typename Form::Quad *quad) {
    return given(quad) ? polygon_centroid<Form>(centroid, quad->at, 4) : KIPX_EINVAL;
}

template<class Form> int32_t quad_box(typename Form::Rect *box, const typename Form::Quad *quad) {
    return given(quad) ? points_box<Form>(box, quad->at, 4) : KIPX_EINVAL;
}

template<class Form>
int32_t quad_contains(const typename Form::Quad *quad, const typename Form::Point *p) {
    return given(quad) ? polygon_contains<Form>(quad->at, 4, p) : KIPX_EINVAL;
}

} // namespace kipx::geometry
