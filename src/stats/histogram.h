// stats/histogram.h - counts of a call's first source in bins.
#pragma once

#include <kipx/stats.h>

#include "core/call.h"

namespace kipx {

// Types, channels, addresses and histograms are good. One histogram per channel, and one range where
// ranges are given; as kipx/stats.h says. The call is used up.
void count_values_in_bins(Call &call, const kipx_vrange *ranges, kipx_histogram *histograms);

// What a channel without a range or a number of bins gets.
kipx_vrange default_range(uint32_t type);
int32_t default_bins(uint32_t type);

} // namespace kipx
