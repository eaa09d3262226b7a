// geometry/hull.h - convex hulls, and the least rectangle that turns around them.
//
// A hull is found in the output array alone. Points that cannot be vertices are dropped by a
// rectangle and an octagon inside the hull, the others split by the line between the two ends and sorted along it:
// one chain below, one above (Andrew, 1979), popped as they are read, so that the stack never
// overtakes what is still to come. Whole numbers that crowd in few columns are not sorted: the lowest
// and highest point of each column are collected instead, in linear time.
#pragma once

#include <algorithm>

#include "geometry/polygon.h"

namespace kipx::geometry {

// The hull in the making: a stack over an array, its vertices so far in a positive turn.
template<class Point> class Chain {
public:
    explicit Chain(Point *points) : points_(points) {}

    // Drops what a new point makes superfluous, back to the start of the chain.
    void take(Point p) {
        while (count_ > floor_ && turn(points_[count_ - 2], points_[count_ - 1], p) <= 0) count_--;
        points_[count_++] = p;
    }
    // The last point stays: the upper chain starts there.
    void begin_upper() { floor_ = count_; }
    size_t close() {
        while (count_ > floor_ && turn(points_[count_ - 2], points_[count_ - 1], points_[0]) <= 0)
            count_--;
        return count_;
    }

private:
    Point *points_;
    size_t count_ = 0, floor_ = 1;
};

// Order along x, and of equal x along y.
struct Before {
    template<class Point> bool operator()(const Point &a, const Point &b) const {
        return a.x < b.x || (!(b.x < a.x) && a.y < b.y);
    }
};

// What lies inside the hull for certain: a rectangle and an octagon.
template<class Form> class Inside {
public:
    using Point = typename Form::Point;

    // Finds the points that are furthest in eight directions.
    Inside(const Point *points, size_t n, const typename Form::Rect &box)
        : corner_(wide(Point{box.x0, box.y0})) {
        enum { right, right_down, down, left_down, left, left_up, up, right_up };
        Point far[8];
        std::fill(far, far + 8, points[0]);
        double sums[2] = {HUGE_VAL, -HUGE_VAL}, differences[2] = {HUGE_VAL, -HUGE_VAL};
        for (size_t i = 0; i < n; i++) {
            const Point p = points[i];
            const double s = double(p.x) + p.y, d = double(p.x) - p.y;
            if (s < sums[0]) sums[0] = s, far[left_up] = p;
            if (s > sums[1]) sums[1] = s, far[right_down] = p;
            if (d < differences[0]) differences[0] = d, far[left_down] = p;
            if (d > differences[1]) differences[1] = d, far[right_up] = p;
            if (!(p.x > box.x0)) far[left] = p;
            if (!(p.x < box.x1)) far[right] = p;
            if (!(p.y > box.y0)) far[up] = p;
            if (!(p.y < box.y1)) far[down] = p;
        }
        // From any place in it, one of the diagonal points lies in each quadrant.
        rect_ = {std::max(far[left_up].x, far[left_down].x),
                 std::max(far[left_up].y, far[right_up].y),
                 std::min(far[right_down].x, far[right_up].x),
                 std::min(far[right_down].y, far[left_down].y)};
        // Seen from a place to the same side of all its edges, an outline turns round it. The margin
        // exceeds what rounding loses.
        const Vector size = wide(Point{box.x1, box.y1}) - corner_;
        for (int i = 0; i < 8; i++) {
            const Vector a = wide(far[i]) - corner_, b = wide(far[(i + 1) % 8]) - corner_;
            x_[i] = a.y - b.y;
            y_[i] = b.x - a.x;
            least_[i] = x_[i] * a.x + y_[i] * a.y + size.x * size.y * 0x1p-48 + 0x1p-1060;
            if (equal(a, b)) least_[i] = -HUGE_VAL; // no side
        }
    }
    bool rect_holds(Point p) const {
        return (p.x > rect_.x0) & (p.x < rect_.x1) & (p.y > rect_.y0) & (p.y < rect_.y1);
    }
    bool octagon_holds(Point p) const {
        const Vector v = wide(p) - corner_;
        bool inside = true;
        for (int i = 0; i < 8; i++) inside &= x_[i] * v.x + y_[i] * v.y > least_[i];
        return inside;
    }

private:
    Vector corner_;
    typename Form::Rect rect_;
    double x_[8], y_[8], least_[8]; // inside: x_ x + y_ y > least_
};

// Copies the points that may be vertices; returns their number.
template<class Form>
size_t survivors(typename Form::Point *out, const typename Form::Point *points, size_t n,
                 const typename Form::Rect &box) {
    // Adding 0 leaves no negative zeros: equal points have the same bits.
    const auto clean = [](auto p) { return typename Form::Point{p.x + 0, p.y + 0}; };
    constexpr size_t few = 32; // not worth a look
    if (n <= few || !(box.x0 < box.x1) || !(box.y0 < box.y1)) {
        for (size_t i = 0; i < n; i++) out[i] = clean(points[i]);
        return n;
    }
    const Inside<Form> inside(points, n, box);
    size_t some = 0, left = 0;
    for (size_t i = 0; i < n; i++) {
        const auto p = points[i];
        out[some] = clean(p);
        some += !inside.rect_holds(p);
    }
    if (some < 512) return some; // sorted as fast as looked at
    for (size_t i = 0; i < some; i++) {
        const auto p = out[i];
        out[left] = p;
        left += !inside.octagon_holds(p);
    }
    return left;
}

// The hull of m >= 1 points, in place.
template<class Form> size_t sorted_hull(typename Form::Point *points, size_t m) {
    using Point = typename Form::Point;
    const auto [low, high] = std::minmax_element(points, points + m, Before{});
    const Point first = *low, last = *high;
    if (equal(first, last)) {
        points[0] = first;
        return 1;
    }
    // Below the line from first to last, then above it; what lies on it is no vertex.
    Point *below = points, *above = points + m;
    for (Point *p = points; p < above;) {
        const int side = turn(first, last, *p);
        if (side < 0)
            std::swap(*below++, *p++);
        else if (side > 0)
            std::swap(*p, *--above);
        else
            p++;
    }
    // The gap holds first and last, at least.
    std::sort(points, below, Before{});
    std::sort(above, points + m, [](const Point &a, const Point &b) { return Before{}(b, a); });
    const size_t lower = static_cast<size_t>(below - points);
    std::move_backward(points, below, below + 1);
    Chain<Point> chain(points);
    chain.take(first);
    for (size_t i = 1; i <= lower; i++) chain.take(points[i]);
    chain.take(last);
    chain.begin_upper();
    for (const Point *p = above; p < points + m; p++) chain.take(*p);
    return chain.close();
}

// The hull of whole points in at most n / 3 columns. The columns' ends lie at the back of the output,
// out of the way of the chains: 2 (columns) vertices at most grow from the front.
inline size_t column_hull(kipx_2d_point *out, const kipx_2d_point *points, size_t n,
                          const kipx_2d_rect &box) {
    const auto columns = static_cast<size_t>(int64_t{box.x1} - box.x0 + 1);
    kipx_2d_point *ends = out + (n - columns); // x the least, y the greatest y
    for (size_t i = 0; i < columns; i++) ends[i] = {INT32_MAX, INT32_MIN};
    for (size_t i = 0; i < n; i++) {
        kipx_2d_point &end = ends[static_cast<size_t>(int64_t{points[i].x} - box.x0)];
        end.x = std::min(end.x, points[i].y);
        end.y = std::max(end.y, points[i].y);
    }
    Chain<kipx_2d_point> chain(out);
    const auto column = [&](size_t i) { return static_cast<int32_t>(box.x0 + int64_t(i)); };
    for (size_t i = 0; i < columns; i++)
        if (ends[i].x <= ends[i].y) chain.take({column(i), ends[i].x});
    chain.begin_upper();
    for (size_t i = columns; i-- > 0;)
        if (ends[i].x <= ends[i].y) chain.take({column(i), ends[i].y});
    return chain.close();
}

// Do n points and n points share bytes?
template<class Point> bool overlap(const Point *a, const Point *b, size_t n) {
    const auto x = reinterpret_cast<uintptr_t>(a), y = reinterpret_cast<uintptr_t>(b);
    return (x < y ? y - x : x - y) < n * sizeof(Point);
}

template<class Form>
int32_t points_hull(typename Form::Point *hull, size_t capacity, const typename Form::Point *points,
                    size_t n) {
    if (!given_array(points, n) || !given_array(hull, n) || capacity < n) return KIPX_EINVAL;
    if (n == 0) return 0;
    const bool in_place = hull == points;
    typename Form::Rect box;
    if ((!in_place && overlap<typename Form::Point>(hull, points, n)) ||
        !bounds<Form>(points, n, box))
        return KIPX_EINVAL;
    if constexpr (integer<Form>) {
        // A single column is left to the other way, which drops equal points.
        const int64_t width = int64_t{box.x1} - box.x0;
        if (!in_place && width > 0 && width < static_cast<int64_t>(n / 3))
            return static_cast<int32_t>(column_hull(hull, points, n, box));
    }
    const size_t left = survivors<Form>(hull, points, n, box);
    return static_cast<int32_t>(sorted_hull<Form>(hull, left));
}

// ---- the least rectangle ----

// The vertices of a convex polygon in a positive turn, over and over, relative to a frame.
template<class Form> struct Turning {
    const Frame<Form> &frame;
    const typename Form::Point *vertices;
    size_t n;
    bool reversed;

    Vector at(size_t i) const { // i below 3 n
        for (int round = 0; round < 2; round++) i = i >= n ? i - n : i;
        return frame.local(vertices[reversed ? n - 1 - i : i]);
    }
};

// A vertex and the edge that leaves it.
template<class Form> class Caliper {
public:
    explicit Caliper(const Turning<Form> &polygon) : polygon_(polygon) { go_to(0); }
    void go_to(size_t i) {
        i_ = i;
        at_ = polygon_.at(i);
        next_ = polygon_.at(i + 1);
    }
    void step() {
        at_ = next_;
        next_ = polygon_.at(++i_ + 1);
    }
    size_t index() const { return i_; }
    Vector at() const { return at_; }
    Vector edge() const { return next_ - at_; }

private:
    const Turning<Form> &polygon_;
    size_t i_ = 0;
    Vector at_, next_;
};

// A rectangle on an edge: from its first vertex along the edge from least to most, and so high, all
// times the edge's length.
struct OnEdge {
    Vector from, edge;
    double least, most, high, area;
};

// Rounded: within 2^-52 of the product of the lengths, which is all that a rectangle needs.
inline double plain_cross(Vector a, Vector b) { return a.x * b.y - a.y * b.x; }

// The calipers (Shamos, 1978): the vertices that are furthest along the edge, away from it and back
// move on as the edge does.
template<class Form> OnEdge least_on_edge(const Turning<Form> &polygon) {
    const size_t n = polygon.n;
    Caliper<Form> base(polygon), right(polygon), top(polygon), left(polygon);
    OnEdge best = {base.at(), {0, 0}, 0, 0, 0, HUGE_VAL};
    for (size_t i = 0; i < n; i++, base.step()) {
        const Vector from = base.at(), edge = base.edge();
        if (equal(edge, Vector{0, 0})) continue;
        if (right.index() < i + 1) right.go_to(i + 1);
        while (right.index() + 1 < i + n && dot(edge, right.edge()) >= 0) right.step();
        if (top.index() < right.index()) top.go_to(right.index());
        while (top.index() + 1 < i + n && plain_cross(edge, top.edge()) >= 0) top.step();
        if (left.index() < top.index()) left.go_to(top.index());
        while (left.index() < i + n && dot(edge, left.edge()) <= 0) left.step();
        OnEdge rect = {from,
                       edge,
                       dot(edge, left.at() - from),
                       dot(edge, right.at() - from),
                       plain_cross(edge, top.at() - from),
                       0};
        rect.area = (rect.most - rect.least) * rect.high / dot(edge, edge);
        if (rect.area < best.area) best = rect;
    }
    return best;
}

// For a convex polygon of at least one vertex with finite coordinates; reversed: in a negative turn.
template<class Form>
typename Form::RealQuad least_rect(const typename Form::Point *vertices, size_t n, bool reversed) {
    typename Form::Rect box;
    bounds<Form>(vertices, n, box);
    const Frame<Form> frame(box);
    const OnEdge r = least_on_edge(Turning<Form>{frame, vertices, n, reversed});
    const double square = dot(r.edge, r.edge);
    const Vector normal = {-r.edge.y, r.edge.x};
    // Products before quotients: corners that are representable come out exactly more often.
    const auto part = [&](Vector v, double times) {
        return square > 0 ? Vector{v.x * times / square, v.y * times / square} : Vector{0, 0};
    };
    const Vector a = r.from + part(r.edge, r.least), b = r.from + part(r.edge, r.most);
    const Vector up = part(normal, r.high);
    const Vector around[] = {a, b, b + up, a + up};
    const int start = r.high > r.most - r.least; // the second side is longer
    typename Form::RealQuad quad;
    for (int i = 0; i < 4; i++) quad.at[i] = rounded<Form>(frame.global(around[(start + i) % 4]));
    return quad;
}

template<class Form>
int32_t polygon_least_rect(typename Form::RealQuad *quad, const typename Form::Point *vertices,
                           size_t n) {
    if (!given(quad) || !given_array(vertices, n)) return KIPX_EINVAL;
    if (n == 0) return KIPX_EEMPTY;
    typename Form::Rect box;
    if (!bounds<Form>(vertices, n, box) || !convex(vertices, n)) return KIPX_EINVAL;
    *quad = least_rect<Form>(vertices, n, signed_area<Form>(vertices, n).sign < 0);
    return 0;
}

template<class Form>
int32_t points_least_rect(typename Form::RealQuad *quad, typename Form::Point *hull,
                          size_t capacity, const typename Form::Point *points, size_t n) {
    if (!given(quad)) return KIPX_EINVAL;
    const int32_t count = points_hull<Form>(hull, capacity, points, n);
    if (count == 0) return KIPX_EEMPTY;
    if (count > 0) *quad = least_rect<Form>(hull, static_cast<size_t>(count), false);
    return count;
}

} // namespace kipx::geometry
