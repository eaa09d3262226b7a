/* kipx/firefly.h - removal of isolated outliers: hot pixels, sparks of a renderer.
 *
 * A pixel that exceeds every other pixel of its window by more than a threshold takes the largest of
 * them; all others stay as they are. The extended form also lifts a pixel that lies below every other
 * one, to the smallest. With thresholds of 0 that is conservative smoothing (R. D. Boyle, R. C. Thomas:
 * Computer Vision, A First Course, 1988).
 *
 * An outlier needs no neighbour like it: two hot pixels side by side shield each other. Positions
 * outside the source array do not count, nor does NaN; a pixel without another one in its window
 * stays, and so does a NaN.
 *
 * Source, destination, mask, region, planes and channels are as in kipx/filter.h, and so is the order
 * of the checks. shape: null for 5 x 5, else normalised; the anchor is the pixel that is judged.
 * Thresholds are at least 0 and may be infinite; negative ones and NaN are KIPX_EINVAL. Differences
 * are exact: in 64 bits for integers, in binary64 for f32. Types: u8, s16, s32, f32; others are
 * KIPX_ENOTSUP.
 */
#ifndef KIPX_FIREFLY_H
#define KIPX_FIREFLY_H

#include <kipx/filter.h>

KIPX_BEGIN

/* One threshold for all channels; bright outliers only, everywhere in the region. */
KIPX_API int32_t KipxFirefly(KipxXE *xe, uint64_t flags, const kipx_arr *src, const kipx_arr *dst,
                             const kipx_site *roi, const kipx_seshape *shape, double threshold);
/* A threshold per channel for bright and for dark outliers; a null pointer leaves those alone, but not
 * both may be null (KIPX_EINVAL). Where the mask is 0 the destination stays. */
KIPX_API int32_t KipxFireflyEx(KipxXE *xe, uint64_t flags, const kipx_arr *src, const kipx_arr *dst,
                               const kipx_arr *mask, const kipx_site *roi,
                               const kipx_seshape *shape, const double *bright, const double *dark);

KIPX_END

#endif
