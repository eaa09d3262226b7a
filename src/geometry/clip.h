// geometry/clip.h - the part of a polygon in a rectangle.
//
// Four cuts in a row, one for each side; every vertex runs through all of them at once, so that no
// polygon is stored in between. A cut passes on what lies within and where the outline crosses its
// line; in double, in which every form is exact.
//
// Of n edges, a cut leaves n pieces at most and adds one edge for every two crossings. Only pieces of
// edges cross the left and the right line, so n vertices are added at most; only these pieces and the
// n edges along those two lines cross the others: 4 n in all.
#pragma once

#include "geometry/polygon.h"

namespace kipx::geometry {

// Vertices without repetitions, counted beyond the capacity but not stored.
template<class Form> struct Clipped {
    using Point = typename Form::RealPoint;
    Point *out;
    size_t capacity, count = 0;
    Point first = {}, last = {};

    void take(Vector v) {
        const Point p = rounded<Form>(v);
        if (count > 0 && equal(p, last)) return;
        if (count == 0) first = p;
        if (count < capacity) out[count] = p;
        last = p;
        count++;
    }
    void close() {
        if (count > 1 && equal(first, last)) count--;
    }
};

// Where the edge crosses the line, from its end with the smaller coordinate, so that an edge and its
// reverse cross at the same place. Both from low to high or high to low, never further.
inline double crossing(double line, double from, double to, double value_from, double value_to) {
    if (to < from) return crossing(line, to, from, value_to, value_from);
    const double rise = value_to - value_from;
    double value;
    if (finite(rise) && finite(to - from)) {
        value = value_from + rise * ((line - from) / (to - from));
    } else {
        const double part = (0.5 * line - 0.5 * from) / (0.5 * to - 0.5 * from);
        value = value_from * (1 - part) + value_to * part;
    }
    return rise < 0 ? between(value_to, value, value_from) : between(value_from, value, value_to);
}

template<class Form> class Clipper {
public:
    Clipper(const typename Form::Rect &rect, Clipped<Form> &out)
        : lines_{double(rect.x0), double(rect.x1), double(rect.y0), double(rect.y1)}, out_(out) {}

    // Left, right, upper, lower side; behind them the output.
    template<int side = 0> void take(Vector p) {
        if constexpr (side == 4) {
            out_.take(p);
        } else {
            Cut &cut = cuts_[side];
            const bool in = within<side>(p);
            if (!cut.started)
                cut = {true, in, in, p, p};
            else
                edge<side>(p, in);
            if (in) take<side + 1>(p);
            cut.last = p;
            cut.last_in = in;
        }
    }
    template<int side = 0> void close() {
        if constexpr (side == 4) {
            out_.close();
        } else {
            if (cuts_[side].started) edge<side>(cuts_[side].first, cuts_[side].first_in);
            close<side + 1>();
        }
    }

private:
    struct Cut {
        bool started = false, first_in = false, last_in = false;
        Vector first = {}, last = {};
    };

    template<int side> bool within(Vector p) const {
        const double value = side < 2 ? p.x : p.y;
        return side % 2 ? value <= lines_[side] : value >= lines_[side];
    }
    template<int side> void edge(Vector p, bool in) {
        const Cut &cut = cuts_[side];
        if (in == cut.last_in) return;
        const double line = lines_[side];
        const Vector q = cut.last;
        if constexpr (side < 2)
            take<side + 1>({line, crossing(line, q.x, p.x, q.y, p.y)});
        else
            take<side + 1>({crossing(line, q.y, p.y, q.x, p.x), line});
    }

    double lines_[4];
    Cut cuts_[4];
    Clipped<Form> &out_;
};

template<class Form>
size_t clip(typename Form::RealPoint *out, size_t capacity, const typename Form::Point *vertices,
            size_t n, const typename Form::Rect &rect) {
    Clipped<Form> clipped = {out, capacity};
    Clipper<Form> clipper(rect, clipped);
    for (size_t i = 0; i < n; i++) clipper.take(wide(vertices[i]));
    clipper.close();
    return clipped.count;
}

template<class Form>
int32_t polygon_clip(typename Form::RealPoint *clipped, size_t capacity,
                     const typename Form::Point *vertices, size_t n,
                     const typename Form::Rect *rect) {
    if (!good(rect) || !given_array(vertices, n) || (capacity > 0 && !given(clipped)) ||
        !all_finite<Form>(vertices, n))
        return KIPX_EINVAL;
    if (n == 0 || empty(*rect)) return 0;
    const bool counting = !clipped && capacity == 0;
    if (counting || capacity < 4 * n) {
        const size_t count = clip<Form>(nullptr, 0, vertices, n, *rect);
        if (counting) return static_cast<int32_t>(count);
        if (capacity < count) return KIPX_EINVAL;
    }
    return static_cast<int32_t>(clip<Form>(clipped, capacity, vertices, n, *rect));
}

} // namespace kipx::geometry
