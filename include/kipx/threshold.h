/* kipx/threshold.h - thresholds: found by Otsu's criterion, given, or made from each neighbourhood.
 *
 * Gives    KipxComputeThresholdByOtsu, which finds a threshold per channel; KipxThreshold, which
 *          marks the elements that pass one, by one of four methods; and the same with two
 *          thresholds, or with thresholds from mean and deviation, at the array level.
 * Promises a threshold is the number that it is: u8 elements greater than 99.5 are those from 100 on,
 *          and none is greater than 300. With a NaN, in the image or as threshold, nothing passes.
 *          The same bits on every processor.
 * Owner    everything is the caller's; scratch comes from the environment and goes back to it.
 *
 * Arguments are those of kipx/compare.h: the region in dst and src alike, results as masks or values,
 * element types and codes. Besides, KIPX_ENOMEM where the environment gives no scratch, and
 * KIPX_EINVAL where scratch is needed and there is no environment.
 */
#ifndef KIPX_THRESHOLD_H
#define KIPX_THRESHOLD_H

#include <kipx/compare.h>
#include <kipx/stats.h>

KIPX_BEGIN

/* Methods, in the low four bits. */
typedef uint32_t kipx_thhmethod;
enum {
    KIPX_THH_IMMEDIATE = 0, /* thresholds are given */
    KIPX_THH_OTSU = 3,      /* found by Otsu's criterion */
    KIPX_THH_USTO = 4, /* the same, turned round: what does not pass Otsu's threshold is marked */
    KIPX_THH_BLUR = 5  /* the mean of each element's neighbourhood */
};

/* "null(immediate)-threshold-method", "otsu-threshold-method", "usto-threshold-method",
 * "blur-threshold-method"; "unknown-threshold-method" for every other method. */
KIPX_API const char *kipx_thhmethod_str(kipx_thhmethod method);

/* ---- Otsu's threshold ---- */

/* The threshold that splits a histogram into two classes whose means are furthest apart, measured by
 * n0 n1 (m0 - m1)^2 with counts n and means m (N. Otsu, A threshold selection method from gray-level
 * histograms, IEEE Transactions on Systems, Man and Cybernetics 9, 1979, pages 62-66).
 *
 * It is the upper edge of the lower class's last bin, less 2^-23: values up to it are the lower class.
 * A bin's value is low + i width. A split wins when it is better by more than 2^-23, so that of equal
 * ones the lowest does. One value alone gives the upper edge of the first bin, and so does a histogram
 * without counts; a record without bins gives NaN. */
KIPX_API double kipxa_calculate_threshold_otsu_f(const kipx_histogram *histogram);
/* The same, rounded to the nearest whole number, ties to even. */
KIPX_API double kipxa_calculate_threshold_otsu_i(const kipx_histogram *histogram);

/* Otsu's threshold of channels of the region, all planes taken together.
 *
 *   flags       bits 4 to 7 select channels of the region, 0 for all of them; bits of channels that it
 *               does not have count for nothing, and KIPX_EINVAL where no other is set
 *   thresholds  one per channel; those of channels that are not selected stay
 *   ranges      values that count, one range per channel, null for none:
 *                 low NaN               0 to 255 for u8, s16, s32, and 0 to 1 for other types
 *                 low infinite, or      from the least to the greatest value of the region
 *                 above high
 *                 else                  clipped to what the type holds
 *   bins        bins per channel; null, or below 2: 256 for u8, s16, s32, and 384 for other types
 *   xe          needed: the histograms are its scratch
 *
 * Elements are u8, u16, u32, s8, s16, s32, f32 or f64. Values outside a range, and NaN, take no part.
 * KIPX_EINVAL for a range that ends infinite, in a NaN or beyond binary32, and for 2^31 pixels and
 * more. */
#define KIPX_TAIL_OTSU , double *thresholds, const kipx_vrange *ranges, const int32_t *bins
KIPX_API int32_t KipxComputeThresholdByOtsu(KipxXE *xe, uint64_t flags, const kipx_arr *src,
                                            const void *roi,
                                            const uint32_t *roi_extent KIPX_TAIL_OTSU);
KIPX_API int32_t kipxa_compute_threshold_otsu(KIPX_ARRAY_READ,
                                              KIPX_ARRAY_SOURCE(src) KIPX_TAIL_OTSU);
KIPX_API int32_t kipxa__compute_threshold_otsu(KIPX_TYPED_READ,
                                               KIPX_TYPED_SOURCE(src) KIPX_TAIL_OTSU);

/* ---- thresholds made from neighbourhoods ---- */

/* Where the elements of a neighbourhood lie: a rectangle around each, clipped to the region, in its own
 * channel and plane. m is their mean, s their deviation, the root of the mean square distance from m.
 *
 *   range 0      T = m + k s                     (W. Niblack, An introduction to digital image
 *                                                processing, 1986)
 *   range above  T = m (1 + k (s / range - 1))   (J. Sauvola, M. Pietikainen, Adaptive document image
 *                                                binarization, Pattern Recognition 33, 2000), with k
 *                                                about 0.3 and the range 128 for bytes
 *
 * Sums are exact and each operation is rounded once, in binary64: S / n is m, sqrt (n Q - S S) / n is s,
 * with sums S of values and Q of squares. Elements are u8, s8 or s16, and for means alone s32; other
 * types are KIPX_ENOTSUP. The destination must not be the source (KIPX_EINVAL). */
typedef struct kipx_thhlocal {
    uint32_t height, width; /* 1 and more, 65535 elements at most. Of an even side the centre is the
                             * element before the middle */
    double k[2];            /* of the first and the second threshold */
    double range;           /* 0 or above */
} kipx_thhlocal;

/* ---- applying thresholds ---- */

typedef struct KipxThresholdContext {
    kipx_thhmethod method;
    kipx_cmpop
        cmpop; /* an element passes when it is <cmpop> the threshold: 4 to 7; 0 for greater */
    double
        *thresholds; /* one per channel. Immediate: the thresholds. Otsu, usto: receives them, null
                         * for not wanted. Blur: what is added to the means, null for nothing */
    const kipx_vrange *ranges; /* Otsu, usto: as in KipxComputeThresholdByOtsu */
    const int32_t *bins;
    kipx_thhlocal local; /* blur: the neighbourhood; k and range are not looked at */
} KipxThresholdContext;

/* Marks what passes: all bits of an element, or true_values where it passes and false_values where it
 * does not, null and markers as in KipxECompare. With 4 axes Otsu's threshold is one for all planes.
 * Blur compares with the mean of the neighbourhood plus a number (P. D. Wellner, Adaptive thresholding
 * for the DigitalDesk, 1993, with the neighbourhood of D. Bradley, G. Roth, Adaptive thresholding using
 * the integral image, 2007). */
KIPX_API int32_t KipxThreshold(KipxXE *xe, uint64_t flags, const kipx_arr *dst, const kipx_arr *src,
                               const void *roi, const uint32_t *roi_extent,
                               const KipxThresholdContext *context, const double *true_values,
                               const double *false_values);

/* The array level: masks, chosen values, and chosen values by one method whatever the context says. */
#define KIPX_TAIL_METHOD , const KipxThresholdContext *context
#define KIPX_TAIL_MARKED , const double *true_values, const double *false_values
KIPX_API KIPX_ARRAY_1(kipxa_threshold, KIPX_TAIL_METHOD);
KIPX_API KIPX_ARRAY_1(kipxa_ethreshold, KIPX_TAIL_METHOD KIPX_TAIL_MARKED);
KIPX_API KIPX_ARRAY_1(kipxa_ethreshold_otsu, KIPX_TAIL_METHOD KIPX_TAIL_MARKED);
KIPX_API KIPX_ARRAY_1(kipxa_ethreshold_usto, KIPX_TAIL_METHOD KIPX_TAIL_MARKED);
KIPX_API KIPX_ARRAY_1(kipxa_ethreshold_blur, KIPX_TAIL_METHOD KIPX_TAIL_MARKED);

/* The same threshold everywhere, one per channel; _n2: both comparisons must hold, so that less or equal
 * one and greater another mark the band between them. */
KIPX_API KIPX_ARRAY_1(kipxa_sheer_threshold_n1, , const double *thresholds,
                      kipx_cmpop cmpop KIPX_TAIL_MARKED);
KIPX_API KIPX_ARRAY_1(kipxa_sheer_threshold_n2, , const double *thresholds, kipx_cmpop cmpop,
                      const double *thresholds2, kipx_cmpop cmpop2 KIPX_TAIL_MARKED);
/* Niblack's and Sauvola's threshold; _n2: two of them, with k[0] and k[1], and both comparisons must
 * hold. */
KIPX_API KIPX_ARRAY_1(kipxa_adaptive_threshold_n1, , const kipx_thhlocal *local,
                      kipx_cmpop cmpop KIPX_TAIL_MARKED);
KIPX_API KIPX_ARRAY_1(kipxa_adaptive_threshold_n2, , const kipx_thhlocal *local, kipx_cmpop cmpop,
                      kipx_cmpop cmpop2 KIPX_TAIL_MARKED);

KIPX_END

#endif
