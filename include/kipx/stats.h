/* kipx/stats.h - histograms, extrema, sums and counts of arrays, channel by channel.
 *
 * Gives    KipxHistogram, which counts values in bins; KipxMinmax, the least and the greatest value;
 *          KipxSum and KipxMean, with the deviation; KipxCountRelBox, which counts in boxes.
 * Promises the same bits on every processor and for every layout. Elements outside the mask are passed
 *          over.
 * Costs    one pass over the region, no scratch; deviations take a second pass.
 * Owner    everything is the caller's; a histogram's counts are scratch of the environment where
 *          __kipx_histogram__$n$xe set it up.
 *
 * The public functions take
 *
 *   xe      the environment; may be null
 *   flags   KIPX_FLAG_*
 *   src     the array, of 1 to 4 channels and of 3 or 4 axes; all planes count as one
 *   mask    u8, of one channel or as many as src; as many axes as src, or 3 against 4. Elements count
 *           where it is not 0. Null counts all
 *   roi     region of src (null: all of it)
 *   maskAt  where the mask's region starts (null: at its origin)
 *
 * and return 0 or a negative code with nothing written. Results come one per channel of the region,
 * in order. The element types are u8, u16, u32, s8, s16, s32, f32 and f64; another valid type is
 * KIPX_ENOTSUP.
 */
#ifndef KIPX_STATS_H
#define KIPX_STATS_H

#include <kipx/prototypes.h>

#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdollar-in-identifier-extension"
#endif

KIPX_BEGIN

/* ---- histograms ---- */

/* Bin i holds the values from low + i * width on, up to the next bin. */
typedef struct kipx_histogram {
    float low;
    float width;      /* of a bin, above 0 */
    int32_t total;    /* samples counted */
    int32_t bins;     /* 1 or more */
    uint32_t *counts; /* one per bin */
} kipx_histogram;

/* Sets up n histograms for elements of a type, all counts 0, with scratch of the environment.
 *
 *   ranges  one per histogram; null, or a low end that is NaN: 0 to 255 for u8, s16 and s32, 0 to 1
 *           for every other type
 *   bins    one number per histogram; null, or a number below 2: 256 for u8, s16 and s32, 384 for
 *           every other type
 *
 * The width is (high - low) / bins; 1 where an integer type has as many whole numbers in the range as
 * there are bins, so that every value has a bin of its own; and for a range of a single value 1 for
 * integer types, 2^-23 times the value, or 2^-23 if that is more, for floating ones.
 * KIPX_EINVAL for a range that is infinite or has its high end below its low one, or that binary32
 * cannot hold; KIPX_ENOMEM, with nothing kept. */
KIPX_API int32_t __kipx_histogram__$n$xe(kipx_histogram *histograms, uint32_t n,
                                         const kipx_vrange *ranges, const int32_t *bins,
                                         uint32_t type, KipxXE *xe);
/* Gives the counts of n histograms back, the last one first, and clears the pointers. */
KIPX_API void kipx_hist_fini_$n$xe(kipx_histogram *histograms, uint32_t n, KipxXE *xe);

/* Adds the region's values to one histogram per channel, counts and total: several arrays may go into
 * one histogram. ranges, one per channel, tells which values count, both ends included, and whatever
 * lies behind the last bin then goes into it, the high end of a range first of all. Null counts what
 * lies in a bin. NaN never counts. KIPX_EINVAL where a total might pass 2^31 - 1, and for a histogram
 * without counts, without bins, or of a width that is not above 0. */
#define KIPX_TAIL_HISTOGRAM , const kipx_vrange *ranges, kipx_histogram *histograms
KIPX_DECLARE_SHAPE(R, histogram, Histogram, KIPX_TAIL_HISTOGRAM);

/* ---- extrema ---- */

/* The least and the greatest value of each channel; zeros are +0, and NaN is passed over. A channel that
 * holds nothing but NaN gives NaN for both. A mask without a pixel in the region is KIPX_EEMPTY. */
#define KIPX_TAIL_RANGES , kipx_vrange *ranges
KIPX_DECLARE_SHAPE(R, minmax, Minmax, KIPX_TAIL_RANGES);

/* ---- sums ---- */

/* The sum of each channel. Of integers it is exact in 64 bits and then rounded once to binary64; of
 * floating elements it is formed in binary64 in one fixed order, in pairs, so that its error grows with
 * the logarithm of their number. NaN makes it NaN. A mask without a pixel in the region is
 * KIPX_EEMPTY. */
#define KIPX_TAIL_SUMS , double *sums
KIPX_DECLARE_SHAPE(R, sum, Sum, KIPX_TAIL_SUMS);
/* The mean of each channel, its sum divided by its number of elements, and the standard deviation: the
 * root of the mean squared distance from the mean, of integers from their exact sum and the exact sum of
 * their squares. Either may be null. */
#define KIPX_TAIL_MEANS , double *means, double *deviations
KIPX_DECLARE_SHAPE(R, mean, Mean, KIPX_TAIL_MEANS);

/* ---- counts in boxes ---- */

/* Counts the elements that stand in a relation to their channel's value, in each of n boxes.
 *
 *   relation  3 equal to it, 4 less, 5 less or equal, 6 greater, 7 greater or equal, 8 not equal; the low
 *             four bits count. The numbers are compared as they are: below 2.5 are 2 and less. NaN is
 *             not equal to anything and in no other relation. Another relation is KIPX_EINVAL
 *   values    one per channel
 *   boxes     origins count from the region's first pixel; what lies outside the region is not counted,
 *             channel entries are not read, and with 3 axes a box has one plane. Null: the region, and n
 *             is 1 then. Boxes may overlap
 *   counts    n times as many as there are channels, box by box. An empty box has zeros
 */
#define KIPX_TAIL_BOXES                                                                            \
    , int32_t relation, const double *values, const kipx_site *boxes, uint32_t n_boxes,            \
        uint64_t *counts
KIPX_DECLARE_SHAPE(R, countrelbox, CountRelBox, KIPX_TAIL_BOXES);

KIPX_END

#if defined(__clang__)
#pragma clang diagnostic pop
#endif

#endif
