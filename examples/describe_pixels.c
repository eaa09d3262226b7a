/* describe_pixels.c - the shape of a region from its pixels: hull, least rectangle and ellipse.
 *
 * The region is a tilted bar, listed as pairs of row and column as a pixel feature lists them. Its
 * hull holds the corners of its outermost pixel centres; the least rectangle tells length and width;
 * the ellipse of its second moments tells where it points, without looking at the outline at all.
 */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <kipx/kipx.h>

enum { width = 120, height = 90 };

/* Pixels at most 30 along (4, 3) and 8 across from (60, 45). */
static size_t list_bar(uint32_t *pairs) {
    size_t n = 0;
    for (int row = 0; row < height; row++)
        for (int column = 0; column < width; column++) {
            int x = column - 60, y = row - 45;
            if (abs(4 * x + 3 * y) <= 5 * 30 && abs(4 * y - 3 * x) <= 5 * 8) {
                pairs[2 * n] = (uint32_t)row;
                pairs[2 * n + 1] = (uint32_t)column;
                n++;
            }
        }
    return n;
}

int main(void) {
    static uint32_t pairs[2 * width * height];
    static kipx_2d_point points[width * height], hull[width * height];
    const size_t n = list_bar(pairs);
    if (kipx_2d_points_from_pixels(points, n, pairs, n) < 0) return 1;

    kipx_r2d_quad rect; /* what integers lead to is real */
    const int32_t corners = kipx_2d_points_least_rect(&rect, hull, n, points, n);
    if (corners < 0) return 1;
    double hull_area, along, across;
    kipx_2d_polygon_area(&hull_area, hull, (size_t)corners);
    kipx_r2d_point_distance(&along, &rect.at[0], &rect.at[1]);
    kipx_r2d_point_distance(&across, &rect.at[1], &rect.at[2]);
    printf("%zu pixels, hull of %d corners with area %.1f\n", n, corners, hull_area);
    printf("least rectangle %.2f x %.2f, first side from (%.2f, %.2f) to (%.2f, %.2f)\n", along,
           across, rect.at[0].x, rect.at[0].y, rect.at[1].x, rect.at[1].y);

    kipx_2d_ellipse ellipse;
    double angle;
    if (kipx_2d_points_ellipse(&ellipse, points, n) < 0) return 1;
    kipx_2d_ellipse_angle(&angle, &ellipse);
    printf("ellipse about (%.2f, %.2f), half axes %.2f and %.2f, angle %.4f\n", ellipse.x,
           ellipse.y, ellipse.a, ellipse.b, angle);

    /* A map that turns the bar level, then its box. */
    kipx_2d_affine turn, level;
    const kipx_r2d_point centre = {ellipse.x, ellipse.y};
    kipx_r2d_quad upright;
    kipx_r2d_rect box;
    kipx_2d_affine_rotate(&turn, ellipse.ux, ellipse.uy, &centre);
    kipx_2d_affine_invert(&level, &turn);
    kipx_r2d_quad_map(&upright, &rect, &level);
    kipx_r2d_quad_box(&box, &upright);
    printf("turned level it lies from (%.2f, %.2f) to (%.2f, %.2f)\n", box.x0, box.y0, box.x1,
           box.y1);

    const int right = fabs(along - 60) < 1 && fabs(across - 16) < 1 && fabs(hull_area - 960) < 60 &&
                      fabs(angle - 0.6435) < 0.01 && fabs(ellipse.x - 60) < 1e-9 &&
                      fabs(box.x1 - box.x0 - along) < 0.5 && fabs(box.y1 - box.y0 - across) < 1;
    return right ? 0 : 1;
}
