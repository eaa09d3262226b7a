// compare/otsu.cpp - Otsu's threshold, from the public function down to the criterion.
#include "compare/otsu.h"

#include <kipx/convert.h>

#include <cmath>
#include <limits>

#include "compare/roi.h"
#include "core/stamp.h"
#include "stats/extremes.h"
#include "stats/histogram.h"
#include "stats/reading.h"

namespace kipx {
namespace {

// The channels that bits 4 to 7 of the flags select.
uint32_t selected_channels(const Call &c) {
    const uint32_t all = (1u << c.channels) - 1, chosen = c.flags >> 4 & 15;
    return chosen ? chosen & all : all;
}

bool from_data(const kipx_vrange &r) { return std::isinf(r.low) || r.low > r.high; }

// The ranges of all channels; those that are not selected have the default one, which cannot fail.
int32_t settle_ranges(const Call &c, const kipx_vrange *given, uint32_t selected,
                      kipx_vrange *ranges) {
    const uint32_t type = c.src[0].type;
    bool look = false;
    for (uint32_t i = 0; i < c.channels; ++i) {
        const bool chosen = given && selected >> i & 1 && given[i].low == given[i].low;
        ranges[i] = chosen ? given[i] : default_range(type);
        look |= from_data(ranges[i]);
    }
    kipx_vrange extremes[fold_channels];
    if (look) {
        Call reading = c;
        if (int32_t code = find_extremes(reading, extremes)) return code;
    }
    for (uint32_t i = 0; i < c.channels; ++i) {
        if (from_data(ranges[i]))
            ranges[i] = extremes[i];
        else if (int32_t code = kipx_vrng_saturate(ranges + i, type))
            return code;
        // Of nothing but NaN the range is NaN, too.
        if (ranges[i].low != ranges[i].low) ranges[i] = default_range(type);
    }
    return 0;
}

int32_t work_otsu(Call &c) {
    const auto &given = *static_cast<const OtsuGiven *>(c.params);
    int32_t code = admit_otsu(c);
    if (code == 0) code = admit_reading(c, given.thresholds && c.xe);
    return code || no_work_asked(c) ? code : find_otsu(c, given);
}

} // namespace

int32_t admit_otsu(const Call &c) {
    if (!element_valid(c.src[0].type)) return KIPX_EINVAL;
    if (numeric_type_of(c.src[0].type) == numeric_type_count) return KIPX_ENOTSUP;
    if (c.channels < 1 || c.channels > fold_channels || !selected_channels(c)) return KIPX_EINVAL;
    const uint64_t rows = uint64_t{c.planes} * c.height;
    return rows <= INT32_MAX && rows * c.width <= INT32_MAX ? 0 : KIPX_EINVAL;
}

int32_t find_otsu(const Call &c, const OtsuGiven &given) {
    const uint32_t selected = selected_channels(c), type = c.src[0].type;
    kipx_vrange ranges[fold_channels];
    if (int32_t code = settle_ranges(c, given.ranges, selected, ranges)) return code;
    int32_t bins[fold_channels];
    for (uint32_t i = 0; i < c.channels; ++i)
        bins[i] = given.bins && selected >> i & 1 ? given.bins[i] : 0;
    kipx_histogram histograms[fold_channels];
    if (int32_t code = __kipx_histogram__$n$xe(histograms, c.channels, ranges, bins, type, c.xe))
        return code;
    Call reading = c;
    count_values_in_bins(reading, ranges, histograms);
    for (uint32_t i = 0; i < c.channels; ++i)
        if (selected >> i & 1)
            given.thresholds[i] = kipxa_calculate_threshold_otsu_f(histograms + i);
    kipx_hist_fini_$n$xe(histograms, c.channels, c.xe);
    return 0;
}

} // namespace kipx

using namespace kipx;

extern "C" {

double kipxa_calculate_threshold_otsu_f(const kipx_histogram *h) {
    constexpr double epsilon = 0x1p-23;
    if (!h || !h->counts || h->bins < 1) return std::numeric_limits<double>::quiet_NaN();
    const double low = static_cast<double>(h->low), width = static_cast<double>(h->width);
    auto value = [=](int32_t i) { return low + i * width; };
    int32_t first = 0;
    while (first < h->bins && h->counts[first] == 0) ++first;
    double above = 0; // the sum of values that are not in the lower class
    for (int32_t i = first; i < h->bins; ++i) above += h->counts[i] * value(i);
    double best = 0, threshold = low, count = 0, below = 0;
    int64_t remaining = h->total;
    for (int32_t i = first; i < h->bins; ++i) {
        if (h->counts[i] == 0) continue;
        remaining -= h->counts[i];
        if (remaining <= 0) break;
        const double moved = h->counts[i] * value(i), rest = static_cast<double>(remaining);
        count += h->counts[i], below += moved, above -= moved;
        const double apart = below / count - above / rest;
        const double sigma = rest * count * apart * apart;
        if (sigma - best > epsilon) best = sigma, threshold = value(i);
    }
    return threshold + width - epsilon;
}

double kipxa_calculate_threshold_otsu_i(const kipx_histogram *histogram) {
    return std::nearbyint(kipxa_calculate_threshold_otsu_f(histogram));
}

int32_t KipxComputeThresholdByOtsu(KipxXE *xe, uint64_t flags, const kipx_arr *src, const void *roi,
                                   const uint32_t *roi_extent KIPX_TAIL_OTSU) {
    const OtsuGiven given{thresholds, ranges, bins};
    kipx_site room;
    return travel(one_reading, {xe, flags, {nullptr, src}, region_of(roi, roi_extent, room), {}},
                  &given, work_otsu);
}

int32_t kipxa_compute_threshold_otsu(KIPX_ARRAY_READ, KIPX_ARRAY_SOURCE(src) KIPX_TAIL_OTSU) {
    return kipxa__compute_threshold_otsu(xe, flags, dims, extent, src_type, KIPX_START(src),
                                         thresholds, ranges, bins);
}

int32_t kipxa__compute_threshold_otsu(KIPX_TYPED_READ, KIPX_TYPED_SOURCE(src) KIPX_TAIL_OTSU) {
    const OtsuGiven record{thresholds, ranges, bins};
    KIPX_ENTER_FLAT(nullptr, 1, KIPX_NO_FLAT, record, work_otsu, KIPX_FLAT(src));
}
}
