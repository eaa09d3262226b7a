// geometry/ellipse.h - ellipses: from half axes, from second moments, under affine maps.
#pragma once

#include <numbers>

#include "geometry/points.h"

namespace kipx::geometry {

// Half axes with b <= a, a direction of unit length.
template<class Ellipse> bool good_ellipse(const Ellipse *e) {
    if (!good(e) || !(e->b >= 0) || !(e->a >= e->b)) return false;
    const double ux = e->ux, uy = e->uy;
    return std::fabs(ux * ux + uy * uy - 1) <= 0x1p-20;
}

// Half axes and the direction of the longer one.
struct Axes {
    double a, b;
    Vector u;
};

template<class Form> typename Form::Ellipse ellipse_of(Vector centre, Axes axes) {
    using Real = typename Form::Real;
    if (!(axes.b < axes.a)) axes.u = {1, 0};
    if (axes.u.x < 0 || (!(axes.u.x > 0) && axes.u.y < 0)) axes.u = -1 * axes.u;
    const Vector u = axes.u + Vector{0, 0}; // no negative zeros
    const auto middle = rounded<Form>(centre), along = rounded<Form>(u);
    return {middle.x, middle.y, static_cast<Real>(axes.a), static_cast<Real>(axes.b),
            along.x,  along.y};
}

// Larger eigenvalue of the symmetric matrix (xx, xy; xy, yy) and its direction.
struct Principal {
    double value;
    Vector u;
};

inline Principal principal(double xx, double xy, double yy) {
    const double half = 0.5 * (xx - yy), rest = length({half, xy});
    const Vector v = half >= 0 ? Vector{half + rest, xy} : Vector{xy, rest - half};
    const double size = length(v);
    return {0.5 * (xx + yy) + rest, size > 0 ? Vector{v.x / size, v.y / size} : Vector{1, 0}};
}

template<class Form>
int32_t ellipse_make(typename Form::Ellipse *ellipse, const typename Form::RealPoint *centre,
                     double ax, double ay, double across) {
    if (!given(ellipse) || !good(centre) || !finite(Vector{ax, ay}) || !finite(across) ||
        across < 0)
        return KIPX_EINVAL;
    const double along = length({ax, ay});
    if (!(along > 0) && across > 0) return KIPX_EINVAL;
    const Vector u = along > 0 ? Vector{ax / along, ay / along} : Vector{1, 0};
    const Axes axes = along < across ? Axes{across, along, {-u.y, u.x}} : Axes{along, across, u};
    *ellipse = ellipse_of<Form>(wide(*centre), axes);
    return 0;
}

inline Twofold scaled(Twofold a, double power) { return {a.value * power, a.tail * power}; }

// n times the sum of the products less the product of the sums.
inline Twofold central(double n, Twofold products, Twofold a, Twofold b) {
    return Twofold{n} * products - a * b;
}

// Half axes from the sums over n points.
inline Axes axes_of(double n, const Moments &sum) {
    Twofold xx = central(n, sum.xx, sum.x, sum.x), xy = central(n, sum.xy, sum.x, sum.y),
            yy = central(n, sum.yy, sum.y, sum.y);
    if (xx.value < 0) xx = {};
    if (yy.value < 0) yy = {};
    const double scale = scale_for(std::fmax(xx.value, yy.value));
    xx = scaled(xx, scale);
    xy = scaled(xy, scale);
    yy = scaled(yy, scale);
    const Principal larger = principal(xx.value, xy.value, yy.value);
    if (!(larger.value > 0)) return {0, 0, {1, 0}};
    // The product of the eigenvalues is the determinant, which loses nothing where one is small.
    double smaller = (xx * yy - xy * xy).value / larger.value;
    smaller = smaller > larger.value * 0x1p-90 ? std::fmin(smaller, larger.value) : 0;
    const double back = std::sqrt(1 / scale) * 2 / n;
    return {std::sqrt(larger.value) * back, std::sqrt(smaller) * back, larger.u};
}

template<class Form>
int32_t ellipse_from_moments(typename Form::Ellipse *ellipse, double n, double x, double y,
                             double xx, double xy, double yy) {
    if (!given(ellipse) || !(n >= 0)) return KIPX_EINVAL;
    const double numbers[] = {n, x, y, xx, xy, yy};
    for (const double number : numbers)
        if (!(std::fabs(number) <= 0x1p400)) return KIPX_EINVAL;
    if (!(n > 0)) return KIPX_EEMPTY;
    *ellipse = ellipse_of<Form>({x / n, y / n}, axes_of(n, {{x}, {y}, {xx}, {xy}, {yy}}));
    return 0;
}

template<class Form>
int32_t points_ellipse(typename Form::Ellipse *ellipse, const typename Form::Point *points,
                       size_t n) {
    if (!given(ellipse) || !given_array(points, n)) return KIPX_EINVAL;
    if (n == 0) return KIPX_EEMPTY;
    typename Form::Rect box;
    if (!bounds<Form>(points, n, box)) return KIPX_EINVAL;
    const Frame<Form> frame(box);
    const Moments sum = moments_of<Form>(points, n, box);
    const auto count = static_cast<double>(n);
    Axes axes = axes_of(count, sum);
    axes.a = frame.global(axes.a);
    axes.b = frame.global(axes.b);
    const auto centre = place_in<Form>(box, {sum.x.value / count, sum.y.value / count});
    *ellipse = ellipse_of<Form>(wide(centre), axes);
    return 0;
}

template<class Form> int32_t ellipse_area(double *area, const typename Form::Ellipse *ellipse) {
    if (!given(area) || !good_ellipse(ellipse)) return KIPX_EINVAL;
    *area = std::numbers::pi * ellipse->a * ellipse->b;
    return 0;
}

// 2 pi (a^2 - sum of 2^(k-1) c_k^2) / M, where a and b run to their mean M and c_k is what they
// differed by: c_0^2 = a^2 - b^2, c_k = (a_(k-1) - b_(k-1)) / 2. With a = 1, then times a.
template<class Form>
int32_t ellipse_perimeter(double *perimeter, const typename Form::Ellipse *ellipse) {
    if (!given(perimeter) || !good_ellipse(ellipse)) return KIPX_EINVAL;
    const double size = ellipse->a;
    double a = 1, b = size > 0 ? ellipse->b / size : 0, power = 0.5;
    if (!(b > 0)) {
        *perimeter = 4 * size;
        return 0;
    }
    double sum = power * (1 - b) * (1 + b);
    for (int step = 0; step < 64 && a - b > 0x1p-30 * a; step++) {
        const double c = 0.5 * (a - b), mean = 0.5 * (a + b);
        b = std::sqrt(a * b);
        a = mean;
        power *= 2;
        sum += power * c * c;
    }
    *perimeter = 2 * std::numbers::pi * (1 - sum) / (0.5 * (a + b)) * size;
    return 0;
}

template<class Form>
int32_t ellipse_box(typename Form::RealRect *box, const typename Form::Ellipse *ellipse) {
    if (!given(box) || !good_ellipse(ellipse)) return KIPX_EINVAL;
    const auto e = *ellipse;
    const double a = e.a, b = e.b, x = length({a * e.ux, b * e.uy}),
                 y = length({a * e.uy, b * e.ux});
    const auto low = rounded<Form>({e.x - x, e.y - y}), high = rounded<Form>({e.x + x, e.y + y});
    *box = {low.x, low.y, high.x, high.y};
    return 0;
}

template<class Form>
int32_t ellipse_contains(const typename Form::Ellipse *ellipse, const typename Form::Point *p) {
    if (!good_ellipse(ellipse) || !good(p)) return KIPX_EINVAL;
    const auto e = *ellipse;
    const Vector from = wide(*p) - Vector{e.x, e.y}, u = {e.ux, e.uy};
    const double along = std::fabs(dot(from, u)), across = std::fabs(cross(u, from));
    if (along > e.a || across > e.b) return KIPX_OUTSIDE;
    if (!(e.b > 0)) return KIPX_BORDER; // a segment or a point
    const Vector part = {along / e.a, across / e.b};
    const double square = dot(part, part);
    return square < 1 ? KIPX_INSIDE : square > 1 ? KIPX_OUTSIDE : KIPX_BORDER;
}

template<class Form> int32_t ellipse_angle(double *angle, const typename Form::Ellipse *ellipse) {
    if (!given(angle) || !good_ellipse(ellipse)) return KIPX_EINVAL;
    // A record of the caller's may point the other way.
    const double sign = ellipse->ux < 0 || (!(ellipse->ux > 0) && ellipse->uy < 0) ? -1 : 1;
    *angle = std::atan2(sign * ellipse->uy + 0, sign * ellipse->ux + 0);
    return 0;
}

// The ellipse of which p and q are conjugate half diameters.
inline Axes axes_of(Vector p, Vector q) {
    const double most = std::fmax(std::fmax(std::fabs(p.x), std::fabs(p.y)),
                                  std::fmax(std::fabs(q.x), std::fabs(q.y)));
    const double scale = scale_for(most);
    p = scale * p;
    q = scale * q;
    const Principal larger =
        principal(p.x * p.x + q.x * q.x, p.x * p.y + q.x * q.y, p.y * p.y + q.y * q.y);
    if (!(larger.value > 0)) return {0, 0, {1, 0}};
    const double a = std::sqrt(larger.value), b = std::fmin(a, std::fabs(cross(p, q)) / a);
    return {a / scale, b / scale, larger.u};
}

} // namespace kipx::geometry
