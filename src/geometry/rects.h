// geometry/rects.h - rectangles with sides along the axes.
#pragma once

#include "geometry/forms.h"

namespace kipx::geometry {

template<class Number> Number smaller(Number a, Number b) { return b < a ? b : a; }
template<class Number> Number larger(Number a, Number b) { return a < b ? b : a; }

template<class Form>
int32_t rect_span(typename Form::Rect *rect, const typename Form::Point *a,
                  const typename Form::Point *b) {
    if (!given(rect) || !good(a, b)) return KIPX_EINVAL;
    *rect = {smaller(a->x, b->x), smaller(a->y, b->y), larger(a->x, b->x), larger(a->y, b->y)};
    return 0;
}

// Entries 1 and 2 of a site are its rows and columns, read as signed numbers.
template<class Form> int32_t rect_from_site(typename Form::Rect *rect, const kipx_site *site) {
    if (!given(rect) || !given(site)) return KIPX_EINVAL;
    int64_t first[2], last[2];
    for (int i = 0; i < 2; i++) {
        const auto extent = static_cast<int32_t>(site->extent[2 - i]);
        if (extent < 1) return KIPX_EEMPTY;
        first[i] = static_cast<int32_t>(site->origin[2 - i]);
        last[i] = first[i] + extent - 1;
    }
    if (last[0] > INT32_MAX || last[1] > INT32_MAX) return KIPX_EINVAL;
    using Coordinate = typename Form::Coordinate;
    *rect = {static_cast<Coordinate>(first[0]), static_cast<Coordinate>(first[1]),
             static_cast<Coordinate>(last[0]), static_cast<Coordinate>(last[1])};
    return 0;
}

template<class Form> int32_t rect_site(kipx_site *site, const typename Form::Rect *rect) {
    if (!given(site) || !good(rect)) return KIPX_EINVAL;
    if (empty(*rect)) return KIPX_EEMPTY;
    // Halves beyond 2^52 are whole.
    const double first[] = {std::ceil(double(rect->x0)), std::ceil(double(rect->y0))};
    const double last[] = {std::floor(double(rect->x1)), std::floor(double(rect->y1))};
    if (last[0] < first[0] || last[1] < first[1]) return KIPX_EEMPTY;
    kipx_site result = {{0, 0, 0, 0}, {INT32_MAX, 0, 0, INT32_MAX}};
    for (int i = 0; i < 2; i++) {
        if (first[i] < INT32_MIN || last[i] > INT32_MAX || last[i] - first[i] >= INT32_MAX)
            return KIPX_EINVAL;
        result.origin[2 - i] = static_cast<uint32_t>(static_cast<int32_t>(first[i]));
        result.extent[2 - i] = static_cast<uint32_t>(last[i] - first[i]) + 1;
    }
    *site = result;
    return 0;
}

template<class Form> int32_t rect_area(double *area, const typename Form::Rect *rect) {
    if (!given(area) || !good(rect)) return KIPX_EINVAL;
    if constexpr (integer<Form>) {
        const __int128 width = static_cast<int64_t>(rect->x1) - rect->x0;
        *area = empty(*rect) ? 0 : static_cast<double>(width * (int64_t{rect->y1} - rect->y0));
    } else {
        const double width = double(rect->x1) - rect->x0, height = double(rect->y1) - rect->y0;
        *area = empty(*rect) ? 0 : width * height;
    }
    return 0;
}

template<class Form> int32_t rect_perimeter(double *perimeter, const typename Form::Rect *rect) {
    if (!given(perimeter) || !good(rect)) return KIPX_EINVAL;
    const double width = double(rect->x1) - rect->x0, height = double(rect->y1) - rect->y0;
    *perimeter = empty(*rect) ? 0 : 2 * (width + height);
    return 0;
}

template<class Form>
int32_t rect_centroid(typename Form::RealPoint *centroid, const typename Form::Rect *rect) {
    if (!given(centroid) || !good(rect)) return KIPX_EINVAL;
    if (empty(*rect)) return KIPX_EEMPTY;
    // A sum of two halves overflows never and is rounded once, but for the smallest numbers.
    *centroid = rounded<Form>({0.5 * rect->x0 + 0.5 * rect->x1, 0.5 * rect->y0 + 0.5 * rect->y1});
    return 0;
}

template<class Form>
int32_t rect_contains(const typename Form::Rect *rect, const typename Form::Point *p) {
    if (!good(rect, p)) return KIPX_EINVAL;
    if (p->x < rect->x0 || p->x > rect->x1 || p->y < rect->y0 || p->y > rect->y1)
        return KIPX_OUTSIDE;
    const bool within = p->x > rect->x0 && p->x < rect->x1 && p->y > rect->y0 && p->y < rect->y1;
    return within ? KIPX_INSIDE : KIPX_BORDER;
}

template<class Form>
int32_t rect_covers(const typename Form::Rect *rect, const typename Form::Rect *inner) {
    if (!good(rect, inner)) return KIPX_EINVAL;
    return empty(*inner) || (rect->x0 <= inner->x0 && inner->x1 <= rect->x1 &&
                             rect->y0 <= inner->y0 && inner->y1 <= rect->y1);
}

template<class Form>
int32_t rect_intersect(typename Form::Rect *rect, const typename Form::Rect *a,
                       const typename Form::Rect *b) {
    if (!given(rect) || !good(a, b)) return KIPX_EINVAL;
    *rect = {larger(a->x0, b->x0), larger(a->y0, b->y0), smaller(a->x1, b->x1),
             smaller(a->y1, b->y1)};
    return !empty(*rect);
}

template<class Form>
int32_t rect_unite(typename Form::Rect *rect, const typename Form::Rect *a,
                   const typename Form::Rect *b) {
    if (!given(rect) || !good(a, b)) return KIPX_EINVAL;
    if (empty(*a) || empty(*b))
        *rect = empty(*a) ? *b : *a;
    else
        *rect = {smaller(a->x0, b->x0), smaller(a->y0, b->y0), larger(a->x1, b->x1),
                 larger(a->y1, b->y1)};
    return !empty(*rect);
}

template<class Form>
int32_t rect_grow(typename Form::Rect *grown, const typename Form::Rect *rect,
                  typename Form::Coordinate dx, typename Form::Coordinate dy) {
    if (!given(grown) || !good(rect) || !finite(dx) || !finite(dy)) return KIPX_EINVAL;
    if (empty(*rect)) return KIPX_EEMPTY;
    using Coordinate = typename Form::Coordinate;
    // Exact in double for integers, and rounded once for single precision.
    const double sides[] = {double(rect->x0) - dx, double(rect->y0) - dy, double(rect->x1) + dx,
                            double(rect->y1) + dy};
    for (const double side : sides)
        if (integer<Form> ? side < INT32_MIN || side > INT32_MAX
                          : !finite(static_cast<typename Form::Real>(side)))
            return KIPX_EINVAL;
    *grown = {static_cast<Coordinate>(sides[0]), static_cast<Coordinate>(sides[1]),
              static_cast<Coordinate>(sides[2]), static_cast<Coordinate>(sides[3])};
    return !empty(*grown);
}

template<class Form> typename Form::Quad corners(const typename Form::Rect &r) {
    return {{{r.x0, r.y0}, {r.x1, r.y0}, {r.x1, r.y1}, {r.x0, r.y1}}};
}

template<class Form> int32_t rect_quad(typename Form::Quad *quad, const typename Form::Rect *rect) {
    if (!given(quad) || !good(rect)) return KIPX_EINVAL;
    if (empty(*rect)) return KIPX_EEMPTY;
    *quad = corners<Form>(*rect);
    return 0;
}

} // namespace kipx::geometry
