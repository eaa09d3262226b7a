/* kipx/sepfilter.h - weighted sums over rectangles whose weights are products: separable and
 * Gaussian filters.
 *
 * The weight of a position is its row's weight times its column's. Weights are applied as stored
 * (correlation): the first of a vector belongs to the topmost row, the leftmost column. Sources,
 * destinations, masks, regions, planes and channels are as in kipx/filter.h; positions outside the
 * source array are its nearest pixel, or what bits 8-11 of flags say (KIPX_FLAG_BORDER).
 *
 * Values: along the row first, then down the column, each sum from its first term on, in binary64
 * for integers, then rounded to nearest even and saturated; NaN becomes the lowest value. For f32,
 * weights are rounded to binary32 and sums formed in binary32, in the same order; a NaN is always the
 * quiet NaN 0x7fc00000.
 *
 * Types: u8, s16, s32, f32. Any other is KIPX_EINVAL. Checks come in the order of kipx/filter.h.
 */
#ifndef KIPX_SEPFILTER_H
#define KIPX_SEPFILTER_H

#include <kipx/filter.h>

KIPX_BEGIN

/* A rectangle and its weights: as many per dimension as the rectangle is long, 1 for a null pointer
 * of the planes, which are not applied. The caller owns the vectors. */
typedef struct kipx_sepkernel {
    kipx_seshape shape;
    const double *weights[3]; /* planes, rows, columns */
} kipx_sepkernel;

/* Sizes below 1, an anchor outside, and null weights of rows or columns are KIPX_EINVAL; nothing is
 * normalised. 1 x 1 copies, whatever the two weights are. */
KIPX_API int32_t KipxSepFilter(KipxXE *xe, uint64_t flags, const kipx_arr *src, const kipx_arr *dst,
                               const kipx_arr *mask, const kipx_site *roi,
                               const kipx_sepkernel *kernel);

/* The shape is normalised as in KipxFilter, so that 1 x 1 and null are 5 x 5. sigmas: null, or one
 * per spatial dimension of the source, outermost first (2 for 3 axes, 3 for 4); see
 * kipx_adjustgaussigmas. A NaN among the sigmas, and weights that are not finite, are KIPX_EINVAL. */
KIPX_API int32_t KipxGaussianFilter(KipxXE *xe, uint64_t flags, const kipx_arr *src,
                                    const kipx_arr *dst, const kipx_arr *mask, const kipx_site *roi,
                                    const kipx_seshape *shape, const double *sigmas);

/* ---- sigmas and weights; dims: the low four bits are the axes, channels included ---- */

/* One sigma per spatial dimension into sigmas: the given one; where that is 0 the last one before it
 * that is not, or the first one after. Without any that is not 0, of a dimension of extent k:
 * ((k - 1) * 0.5 - 1) * 0.3 + 0.8. Returns sigmas. */
KIPX_API double *kipx_adjustgaussigmas(kipx_dims dims, double *sigmas, const kipx_seshape *shape,
                                       const double *given);
/* Fills the vectors that the kernel points to; those at null are left out. */
KIPX_API void kipx_computegauskernel(kipx_dims dims, const kipx_sepkernel *kernel,
                                     const double *sigmas);
/* The same for n dimensions, one entry of each vector per dimension. */
KIPX_API void kipx__computegauskernel(uint32_t n, double *const *weights, const int32_t *anchors,
                                      const int32_t *extents, const double *sigmas);
/* weights[i] = exp (-x * x / (2 * sigma * sigma)), x = i - anchor, divided by their sum. x * x is
 * formed in 32 bits and wraps. */
KIPX_API void kipx__computegauskernel1(double *weights, int32_t anchor, int32_t extent,
                                       double sigma);

/* ---- one slice: source, destination, and a mask where there is one; the context says the rest ---- */

typedef struct kipx_sepfilter_args {
    kipx_sepkernel kernel; /* normalised */
    kipx_brshape room;     /* how far the source array reaches beyond the region */
} kipx_sepfilter_args;
KIPX_API KIPX_SLICE(KipxTGAsepfilter);
/* The same: by then a Gaussian filter is a separable one. */
KIPX_API KIPX_SLICE(KipxTGAgaussianfilter);

/* ---- flat levels: operands as in kipx/filter.h ---- */

KIPX_API int32_t kipxa_sepfilter(KIPX_FILTER_ORIGINS, const kipx_sepkernel *kernel);
KIPX_API int32_t kipxa_esepfilter(KIPX_FILTER_ORIGINS, KIPX_FILTER_MASK,
                                  const kipx_sepkernel *kernel);
KIPX_API int32_t kipxa__sepfilter(KIPX_FILTER_OPERANDS, const kipx_sepkernel *kernel);
KIPX_API int32_t kipxa__esepfilter(KIPX_FILTER_OPERANDS, const void *mask,
                                   const uint32_t *mask_strides, const kipx_sepkernel *kernel);
/* With sigmas in the place of weights; the shape is taken as it is. */
KIPX_API int32_t kipxa_gaussianfilter(KIPX_FILTER_ORIGINS, const kipx_seshape *shape,
                                      const double *sigmas);
KIPX_API int32_t kipxa_egaussianfilter(KIPX_FILTER_ORIGINS, KIPX_FILTER_MASK,
                                       const kipx_seshape *shape, const double *sigmas);
KIPX_API int32_t kipxa__filter_gaussian(KIPX_FILTER_OPERANDS, const kipx_seshape *shape,
                                        const double *sigmas);
KIPX_API int32_t kipxa__efilter_gaussian(KIPX_FILTER_OPERANDS, const void *mask,
                                         const uint32_t *mask_strides, const kipx_seshape *shape,
                                         const double *sigmas);

/* ---- kernels: KIPX_EAGAIN with KIPX_FLAG_PROBE, 0 without work with KIPX_FLAG_PREPARE ---- */

#define KIPX_SEPFILTER_KERNELS(X)                                                                  \
    X(1, u8) X(1, s16) X(1, s32) X(1, f32) X(3, u8) X(3, s16) X(3, s32) X(3, f32)
#define KIPX_DECLARE_SEPFILTER(c, T)                                                               \
    KIPX_API int32_t kipxa__sepfilter_c##c##_##T(                                                  \
        KipxXE *xe, uint64_t flags, kipx_dims dims, const uint32_t *volume, void *dst,             \
        const uint32_t *dst_strides, const void *src, const uint32_t *src_strides,                 \
        const kipx_sepkernel *kernel);
KIPX_SEPFILTER_KERNELS(KIPX_DECLARE_SEPFILTER)
#undef KIPX_DECLARE_SEPFILTER

KIPX_END

#endif
