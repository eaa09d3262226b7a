/* kipx/geometry.h - planar geometry: points, rectangles, quadrilaterals, circles, ellipses, polygons,
 * point sets and affine maps, in three forms.
 *
 * Gives    every record and function three times, from one list (kipx/geometry_ops.inc):
 *            kipx_2d_*    32-bit integer coordinates
 *            kipx_f2d_*   single precision
 *            kipx_r2d_*   double precision
 *          What is no integer by nature comes in double for the integer form: centroids, circles,
 *          ellipses, affine maps, mapped and clipped figures. So kipx_2d_circle is kipx_r2d_circle.
 *          Scalars (areas, lengths, angles) are double in every form.
 * Axes     x is the column and grows to the right, y the row and grows downwards. Integers are the
 *          centres of pixels: the pixel in row y, column x is the point (x, y), as in the moments of
 *          a region, and covers half a unit to all sides. A positive turn goes from the x axis to the
 *          y axis, which is clockwise on a screen.
 * Figures  are closed: what lies on the border belongs to them. The box of the pixels in columns a
 *          to b is [a, b], though b - a + 1 pixels lie in it.
 * Answers  0 or a count, else a negative code with nothing written:
 *            KIPX_EINVAL  a null or misaligned argument (a null array is fine when it has no
 *                         entries), more than KIPX_GEOMETRY_POINTS points, a capacity that is too
 *                         small, a coordinate that is NaN or infinite, a record that is no figure
 *            KIPX_EEMPTY  there is no answer because there is no point: no points, an empty
 *                         rectangle
 * Promises Turns, containment (that of ellipses aside), hulls and signs of areas are exact for all
 *          finite coordinates, however large, small or mixed. Areas of polygons are correctly rounded.
 *          Other results are computed in double, some with twice its precision, and rounded to the
 *          form at the end; one that its type cannot hold is infinite. The same bits on every
 *          machine: nothing but + - * / and square root is used, except in kipx_*_ellipse_angle.
 *          The three forms give the same results for the same small integers, but for the rounding of
 *          single precision.
 * Costs    linear time, but for hulls and what is built on them, n log n at worst. Nothing is
 *          allocated: where work memory is needed, the output array is it.
 * Owner    the caller owns everything. An output record may be one of the inputs. An output array may
 *          be the input array where that is said, else they must not overlap.
 */
#ifndef KIPX_GEOMETRY_H
#define KIPX_GEOMETRY_H

#include <kipx/types.h>

KIPX_BEGIN

/* The most points that a set or polygon may have. */
#define KIPX_GEOMETRY_POINTS ((size_t)0x1FFFFFFF)

/* Where a point lies, relative to a figure. */
enum { KIPX_OUTSIDE = 0, KIPX_BORDER = 1, KIPX_INSIDE = 2 };

/* Records made of coordinates:
 *   point  x, y
 *   rect   all (x, y) with x0 <= x <= x1 and y0 <= y <= y1; empty when x1 < x0 or y1 < y0
 *   quad   four corners in order, a polygon of four vertices
 */
#define KIPX_COORDINATE_RECORDS(form, T)                                                           \
    typedef struct kipx_##form##_point {                                                           \
        T x, y;                                                                                    \
    } kipx_##form##_point;                                                                         \
    typedef struct kipx_##form##_rect {                                                            \
        T x0, y0, x1, y1;                                                                          \
    } kipx_##form##_rect;                                                                          \
    typedef struct kipx_##form##_quad {                                                            \
        kipx_##form##_point at[4];                                                                 \
    } kipx_##form##_quad;                                                                          \
    KIPX_STATIC_ASSERT(sizeof(kipx_##form##_point) == 2 * sizeof(T), "point");                     \
    KIPX_STATIC_ASSERT(sizeof(kipx_##form##_rect) == 4 * sizeof(T), "rect");                       \
    KIPX_STATIC_ASSERT(sizeof(kipx_##form##_quad) == 8 * sizeof(T), "quad")

/* Records of real numbers:
 *   circle   all points at most radius away from (x, y); radius >= 0
 *   ellipse  centre (x, y), half axes a >= b >= 0; (ux, uy) is the unit vector along the longer one,
 *            with ux > 0, or ux = 0 and uy = 1. Where a = b the results of this family have (1, 0)
 *   affine   takes (x, y) to (xx x + xy y + x0, yx x + yy y + y0)
 * Axes are vectors rather than angles, so that nothing is lost in sines and arc tangents.
 */
#define KIPX_REAL_RECORDS(form, T)                                                                 \
    typedef struct kipx_##form##_circle {                                                          \
        T x, y, radius;                                                                            \
    } kipx_##form##_circle;                                                                        \
    typedef struct kipx_##form##_ellipse {                                                         \
        T x, y, a, b, ux, uy;                                                                      \
    } kipx_##form##_ellipse;                                                                       \
    typedef struct kipx_##form##_affine {                                                          \
        T xx, xy, x0, yx, yy, y0;                                                                  \
    } kipx_##form##_affine;                                                                        \
    KIPX_STATIC_ASSERT(sizeof(kipx_##form##_circle) == 3 * sizeof(T), "circle");                   \
    KIPX_STATIC_ASSERT(sizeof(kipx_##form##_ellipse) == 6 * sizeof(T), "ellipse");                 \
    KIPX_STATIC_ASSERT(sizeof(kipx_##form##_affine) == 6 * sizeof(T), "affine")

KIPX_COORDINATE_RECORDS(r2d, double);
KIPX_REAL_RECORDS(r2d, double);
KIPX_COORDINATE_RECORDS(f2d, float);
KIPX_REAL_RECORDS(f2d, float);
KIPX_COORDINATE_RECORDS(2d, int32_t);
typedef kipx_r2d_circle kipx_2d_circle;
typedef kipx_r2d_ellipse kipx_2d_ellipse;
typedef kipx_r2d_affine kipx_2d_affine;
#undef KIPX_COORDINATE_RECORDS
#undef KIPX_REAL_RECORDS

/* kipx_2d_point_distance (double *distance, const kipx_2d_point *a, const kipx_2d_point *b) and so
 * on: see kipx/geometry_ops.inc. */
#define KIPX_FIGURE(name, parameters, arguments) KIPX_API int32_t KIPX_OF_FORM(name) parameters;
#define KIPX_FORM r2d
#include <kipx/geometry_ops.inc>
#define KIPX_FORM f2d
#include <kipx/geometry_ops.inc>
#define KIPX_FORM 2d
#include <kipx/geometry_ops.inc>
#undef KIPX_FIGURE

KIPX_END

#endif
