// geometry/forms.h - the three forms as types, and what all functions of the room share: checks of
// arguments, numbers in and out, boxes, and frames in which nothing overflows.
//
// Bodies of the room are templates over a Form and work in double (Vector) once they leave the exact
// tests; results are rounded to the form at the end.
#pragma once

#include <cmath>
#include <cstring>
#include <type_traits>

#include <kipx/geometry.h>

#include "geometry/exact.h"

namespace kipx::geometry {

using Vector = kipx_r2d_point;

// Types of a form; Form::Real is the form of results that are no integers by nature.
#define KIPX_FORM_TYPES(form, T, real)                                                             \
    struct Form_##form {                                                                           \
        using Coordinate = T;                                                                      \
        using Point = kipx_##form##_point;                                                         \
        using Rect = kipx_##form##_rect;                                                           \
        using Quad = kipx_##form##_quad;                                                           \
        using Circle = kipx_##form##_circle;                                                       \
        using Ellipse = kipx_##form##_ellipse;                                                     \
        using Affine = kipx_##form##_affine;                                                       \
        using Real = decltype(kipx_##real##_point::x);                                             \
        using RealPoint = kipx_##real##_point;                                                     \
        using RealRect = kipx_##real##_rect;                                                       \
        using RealQuad = kipx_##real##_quad;                                                       \
    };
KIPX_FORM_TYPES(2d, int32_t, r2d)
KIPX_FORM_TYPES(f2d, float, f2d)
KIPX_FORM_TYPES(r2d, double, r2d)
#undef KIPX_FORM_TYPES

template<class Form> constexpr bool integer = std::is_integral_v<typename Form::Coordinate>;
// Only double can leave the range in which squares and products of four can be formed.
template<class Form> constexpr bool unbounded = std::is_same_v<typename Form::Coordinate, double>;

// ---- checks ----

template<class T> bool given(const T *record) {
    return record && reinterpret_cast<uintptr_t>(record) % alignof(T) == 0;
}
template<class A, class... Rest> bool given(const A *first, const Rest *...rest) {
    return given(first) && (given(rest) && ...);
}
// An array of n entries.
template<class T> bool given_array(const T *array, size_t n) {
    return n <= KIPX_GEOMETRY_POINTS && (n == 0 || given(array));
}

// A number is finite, or all numbers of a record.
template<class Record> bool finite(const Record &r) {
    if constexpr (std::is_arithmetic_v<Record>)
        return r - r == 0;
    else if constexpr (requires { r.at; })
        return finite(r.at[0]) && finite(r.at[1]) && finite(r.at[2]) && finite(r.at[3]);
    else if constexpr (requires { r.xx; })
        return finite(r.xx) && finite(r.xy) && finite(r.x0) && finite(r.yx) && finite(r.yy) &&
               finite(r.y0);
    else if constexpr (requires { r.ux; })
        return finite(r.x) && finite(r.y) && finite(r.a) && finite(r.b) && finite(r.ux) &&
               finite(r.uy);
    else if constexpr (requires { r.radius; })
        return finite(r.x) && finite(r.y) && finite(r.radius);
    else if constexpr (requires { r.x0; })
        return finite(r.x0) && finite(r.y0) && finite(r.x1) && finite(r.y1);
    else
        return finite(r.x) && finite(r.y);
}

// Pointers to records of finite numbers.
template<class... Records> bool good(const Records *...records) {
    return given(records...) && (finite(*records) && ...);
}

template<class Rect> bool empty(const Rect &rect) { return rect.x1 < rect.x0 || rect.y1 < rect.y0; }

// ---- numbers ----

template<class Point> Vector wide(const Point &p) {
    return {static_cast<double>(p.x), static_cast<double>(p.y)};
}
inline Vector operator+(Vector a, Vector b) { return {a.x + b.x, a.y + b.y}; }
inline Vector operator-(Vector a, Vector b) { return {a.x - b.x, a.y - b.y}; }
inline Vector operator*(double k, Vector a) { return {k * a.x, k * a.y}; }
inline double dot(Vector a, Vector b) { return a.x * b.x + a.y * b.y; }
inline double cross(Vector a, Vector b) { return difference_of_products(a.x, b.y, a.y, b.x).value; }

template<class Point> bool equal(const Point &a, const Point &b) {
    return !(a.x < b.x || b.x < a.x || a.y < b.y || b.y < a.y);
}

template<class Form> typename Form::RealPoint rounded(Vector v) {
    using Real = typename Form::Real;
    return {static_cast<Real>(v.x), static_cast<Real>(v.y)};
}

inline double between(double low, double value, double high) {
    return value < low ? low : value > high ? high : value;
}

// 2^-e with e the exponent of the number, from 2^-1000 to 2^1000; 1 for 0.
inline double scale_for(double number) {
    uint64_t bits;
    memcpy(&bits, &number, sizeof bits);
    const auto field = static_cast<int64_t>(bits >> 52 & 0x7FF);
    int64_t e = number < 0 || number > 0 ? field - 1023 : 0;
    e = e > 1000 ? 1000 : e < -1000 ? -1000 : e;
    bits = static_cast<uint64_t>(1023 - e) << 52;
    double scale;
    memcpy(&scale, &bits, sizeof scale);
    return scale;
}

// Length of a vector; no overflow and no underflow unless the length itself does.
inline double length(Vector v) {
    const double x = std::fabs(v.x), y = std::fabs(v.y), most = x > y ? x : y;
    if (most > 0x1p-400 && most < 0x1p400) return std::sqrt(x * x + y * y);
    const double scale = scale_for(most);
    const Vector small = scale * Vector{x, y};
    return std::sqrt(dot(small, small)) / scale;
}

// Distance of local points: there neither overflow nor underflow matters.
inline double span(Vector a, Vector b) {
    const Vector v = b - a;
    return std::sqrt(dot(v, v));
}

// Sign of the turn a, b, c. Exact.
template<class Point> int turn(const Point &a, const Point &b, const Point &c) {
    if constexpr (std::is_integral_v<decltype(a.x)>) {
        const auto minus = [](int64_t p, int64_t q) { return p - q; };
        const __int128 left = static_cast<__int128>(minus(b.x, a.x)) * minus(c.y, a.y);
        const __int128 right = static_cast<__int128>(minus(b.y, a.y)) * minus(c.x, a.x);
        return (left > right) - (left < right);
    } else {
        return sign_of({b.x, a.x}, {c.y, a.y}, {b.y, a.y}, {c.x, a.x});
    }
}

// ---- boxes and frames ----

// The box of n >= 1 points; false when a coordinate is not finite. Two points go side by side.
template<class Form>
bool bounds(const typename Form::Point *points, size_t n, typename Form::Rect &box) {
    using Coordinate = typename Form::Coordinate;
    Coordinate least[4], most[4];
    double bad[4] = {};
    const size_t last = n - 1;
    for (int lane = 0; lane < 4; lane++)
        least[lane] = most[lane] = lane % 2 ? points[0].y : points[0].x;
    const auto take = [&](int lane, Coordinate value) {
        least[lane] = value < least[lane] ? value : least[lane];
        most[lane] = value > most[lane] ? value : most[lane];
        if constexpr (!integer<Form>) bad[lane] += value * 0; // NaN if it is infinite or NaN
    };
    for (size_t i = 0; i < last; i += 2) {
        take(0, points[i].x);
        take(1, points[i].y);
        take(2, points[i + 1].x);
        take(3, points[i + 1].y);
    }
    take(0, points[last].x);
    take(1, points[last].y);
    const auto less = [](Coordinate a, Coordinate b) { return a < b ? a : b; };
    const auto more = [](Coordinate a, Coordinate b) { return a > b ? a : b; };
    // Adding 0 leaves no negative zero.
    box = {less(least[0], least[2]) + 0, less(least[1], least[3]) + 0, more(most[0], most[2]) + 0,
           more(most[1], most[3]) + 0};
    return bad[0] + bad[1] + bad[2] + bad[3] == 0;
}

// Coordinates relative to a corner of a box and, where they are very large or small, scaled by a power
// of two. Local coordinates of real points have lost 2^-53 of the box at most, those of
// whole numbers nothing.
template<class Form> class Frame {
public:
    explicit Frame(const typename Form::Rect &box) {
        if constexpr (unbounded<Form>) {
            const double half = std::fmax(box.x1 / 2 - box.x0 / 2, box.y1 / 2 - box.y0 / 2);
            const double extent = std::fmax(box.x1 - box.x0, box.y1 - box.y0);
            if (half > 0x1p200) {
                before_ = scale_for(half);
                before_back_ = 1 / before_;
            } else if (extent > 0 && extent < 0x1p-200) {
                after_ = scale_for(extent);
                after_back_ = 1 / after_;
            }
        }
        corner_ = before_ * Vector{static_cast<double>(box.x0), static_cast<double>(box.y0)};
    }
    template<class Point> Vector local(const Point &p) const {
        if constexpr (unbounded<Form>)
            return after_ * (before_ * wide(p) - corner_);
        else
            return wide(p) - corner_;
    }
    Vector global(Vector v) const { return before_back_ * (after_back_ * v + corner_); }
    double global(double distance) const { return before_back_ * (after_back_ * distance); }

private:
    Vector corner_;
    double before_ = 1, after_ = 1, before_back_ = 1, after_back_ = 1;
};

} // namespace kipx::geometry
