// geometry/affine.h - affine maps and the images of figures under them.
#pragma once

#include "geometry/ellipse.h"
#include "geometry/rects.h"

namespace kipx::geometry {

// A map in double.
using Map = kipx_r2d_affine;

template<class Affine> Map wide_map(const Affine &m) {
    return {m.xx, m.xy, m.x0, m.yx, m.yy, m.y0};
}

inline Vector turned(const Map &m, Vector v) {
    return {m.xx * v.x + m.xy * v.y, m.yx * v.x + m.yy * v.y};
}
inline Vector mapped(const Map &m, Vector v) { return turned(m, v) + Vector{m.x0, m.y0}; }

// Stores a map, unless a number is beyond the form's.
template<class Form> int32_t store(typename Form::Affine *map, const Map &m) {
    using Real = typename Form::Real;
    const typename Form::Affine result = {static_cast<Real>(m.xx), static_cast<Real>(m.xy),
                                          static_cast<Real>(m.x0), static_cast<Real>(m.yx),
                                          static_cast<Real>(m.yy), static_cast<Real>(m.y0)};
    if (!finite(result)) return KIPX_EINVAL;
    *map = result;
    return 0;
}

template<class Form> int32_t affine_identity(typename Form::Affine *map) {
    return given(map) ? store<Form>(map, {1, 0, 0, 0, 1, 0}) : KIPX_EINVAL;
}

template<class Form> int32_t affine_translate(typename Form::Affine *map, double dx, double dy) {
    return given(map) ? store<Form>(map, {1, 0, dx, 0, 1, dy}) : KIPX_EINVAL;
}

template<class Form> int32_t affine_scale(typename Form::Affine *map, double sx, double sy) {
    return given(map) ? store<Form>(map, {sx, 0, 0, 0, sy, 0}) : KIPX_EINVAL;
}

template<class Form>
int32_t affine_rotate(typename Form::Affine *map, double dx, double dy,
                      const typename Form::RealPoint *about) {
    if (!given(map) || !finite(Vector{dx, dy}) || (about && !good(about))) return KIPX_EINVAL;
    const double size = length({dx, dy});
    if (!(size > 0)) return KIPX_EINVAL;
    const double c = dx / size, s = dy / size;
    const Vector fixed = about ? wide(*about) : Vector{0, 0};
    return store<Form>(map, {c, -s, fixed.x - (c * fixed.x - s * fixed.y), s, c,
                             fixed.y - (s * fixed.x + c * fixed.y)});
}

template<class Form>
int32_t affine_from_points(typename Form::Affine *map, const typename Form::Point *from,
                           const typename Form::Point *to) {
    if (!given(map) || !given(from, to)) return KIPX_EINVAL;
    for (int i = 0; i < 3; i++)
        if (!finite(from[i]) || !finite(to[i])) return KIPX_EINVAL;
    if (turn(from[0], from[1], from[2]) == 0) return KIPX_EINVAL;
    const Vector p = wide(from[1]) - wide(from[0]), q = wide(from[2]) - wide(from[0]);
    const Vector u = wide(to[1]) - wide(to[0]), v = wide(to[2]) - wide(to[0]);
    const double area = cross(p, q);
    const auto solve = [&](double a, double b) { // takes p to a and q to b
        return Vector{difference_of_products(a, q.y, b, p.y).value / area,
                      difference_of_products(b, p.x, a, q.x).value / area};
    };
    const Vector x = solve(u.x, v.x), y = solve(u.y, v.y);
    const Vector o = wide(from[0]);
    return store<Form>(map, {x.x, x.y, to[0].x - dot(x, o), y.x, y.y, to[0].y - dot(y, o)});
}

template<class Form>
int32_t affine_compose(typename Form::Affine *map, const typename Form::Affine *first,
                       const typename Form::Affine *then) {
    if (!given(map) || !good(first, then)) return KIPX_EINVAL;
    const Map a = wide_map(*first), b = wide_map(*then);
    const Vector x = turned(b, {a.xx, a.yx}), y = turned(b, {a.xy, a.yy});
    const Vector o = mapped(b, {a.x0, a.y0});
    return store<Form>(map, {x.x, y.x, o.x, x.y, y.y, o.y});
}

template<class Form>
int32_t affine_invert(typename Form::Affine *inverse, const typename Form::Affine *map) {
    if (!given(inverse) || !good(map)) return KIPX_EINVAL;
    const Map m = wide_map(*map);
    if (sign_of({m.xx, 0}, {m.yy, 0}, {m.xy, 0}, {m.yx, 0}) == 0) return KIPX_EINVAL;
    const double det = cross({m.xx, m.yx}, {m.xy, m.yy});
    const double xx = m.yy / det, xy = -m.xy / det, yx = -m.yx / det, yy = m.xx / det;
    return store<Form>(inverse,
                       {xx, xy, difference_of_products(m.xy, m.y0, m.yy, m.x0).value / det, yx, yy,
                        difference_of_products(m.yx, m.x0, m.xx, m.y0).value / det});
}

template<class Form>
int32_t points_map(typename Form::RealPoint *result, size_t capacity,
                   const typename Form::Point *points, size_t n, const typename Form::Affine *map) {
    if (!good(map) || !given_array(result, n) || !given_array(points, n) || capacity < n)
        return KIPX_EINVAL;
    for (size_t i = 0; i < n; i++)
        if (!finite(points[i])) return KIPX_EINVAL;
    const Map m = wide_map(*map);
    for (size_t i = 0; i < n; i++) result[i] = rounded<Form>(mapped(m, wide(points[i])));
    return static_cast<int32_t>(n);
}

template<class Form>
int32_t quad_map(typename Form::RealQuad *result, const typename Form::Quad *quad,
                 const typename Form::Affine *map) {
    if (!given(result) || !good(quad, map)) return KIPX_EINVAL;
    const auto corners = *quad;
    points_map<Form>(result->at, 4, corners.at, 4, map);
    return 0;
}

template<class Form>
int32_t rect_map(typename Form::RealQuad *quad, const typename Form::Rect *rect,
                 const typename Form::Affine *map) {
    typename Form::Quad own;
    const int32_t code = rect_quad<Form>(&own, rect);
    return code < 0 ? code : quad_map<Form>(quad, &own, map);
}

template<class Form>
int32_t circle_map(typename Form::Ellipse *ellipse, const typename Form::Circle *circle,
                   const typename Form::Affine *map) {
    if (!given(ellipse) || !good(circle, map) || !(circle->radius >= 0)) return KIPX_EINVAL;
    const Map m = wide_map(*map);
    const double r = circle->radius;
    *ellipse = ellipse_of<Form>(mapped(m, wide(*circle)),
                                axes_of(r * Vector{m.xx, m.yx}, r * Vector{m.xy, m.yy}));
    return 0;
}

template<class Form>
int32_t ellipse_map(typename Form::Ellipse *result, const typename Form::Ellipse *ellipse,
                    const typename Form::Affine *map) {
    if (!given(result) || !good_ellipse(ellipse) || !good(map)) return KIPX_EINVAL;
    const Map m = wide_map(*map);
    const Vector u = {ellipse->ux, ellipse->uy};
    const Vector along = turned(m, ellipse->a * u),
                 across = turned(m, ellipse->b * Vector{-u.y, u.x});
    *result = ellipse_of<Form>(mapped(m, wide(*ellipse)), axes_of(along, across));
    return 0;
}

} // namespace kipx::geometry
