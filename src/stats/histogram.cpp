// stats/histogram.cpp - histograms, from the public functions down to the fold.
#include "stats/histogram.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include <kipx/convert.h>

#include "core/stamp.h"
#include "stats/histogram_rows.h"
#include "stats/reading.h"

namespace kipx {
namespace {

// Up to so many bins are counted in several tables on the stack.
constexpr uint32_t table_bins = 1024, table_count = 8;

bool has_byte_range(uint32_t type) {
    return type == KIPX_U8 || type == KIPX_S16 || type == KIPX_S32;
}

// ---- set-up ----

float width_of_bins(const kipx_vrange &range, int32_t bins, uint32_t type) {
    const double span = range.high - range.low;
    const bool floats = is_floating(type);
    if (span == 0)
        return floats ? std::max(1.0f, std::fabs(static_cast<float>(range.low))) * 0x1p-23f : 1.0f;
    const bool whole =
        range.low == std::nearbyint(range.low) && range.high == std::nearbyint(range.high);
    if (!floats && whole && span + 1 == bins) return 1.0f;
    return static_cast<float>(span / bins);
}

bool set_up(kipx_histogram &h, const kipx_vrange &range, int32_t bins, uint32_t type) {
    h = {static_cast<float>(range.low), width_of_bins(range, bins, type), 0, bins, nullptr};
    return range.low <= range.high && std::isfinite(h.low) && std::isfinite(h.width) && h.width > 0;
}

// ---- counting ----

BinRule rule_of(const kipx_histogram &h, const kipx_vrange *range, uint32_t type) {
    BinRule r{};
    r.low = static_cast<double>(h.low), r.width = static_cast<double>(h.width);
    r.bins = static_cast<uint32_t>(h.bins);
    const double end = r.low + r.width * h.bins;
    r.least = range ? range->low : r.low;
    r.most = range ? range->high : std::nextafter(end, -std::numeric_limits<double>::infinity());

    kipx_vrange held = {r.least, r.most};
    kipx_vrng_saturate(&held, type);
    const double first = std::ceil(held.low), last = std::floor(held.high);
    r.direct = !is_floating(type) && r.width == 1 && r.low == std::nearbyint(r.low) &&
               first <= last && first >= r.low && last < end;
    if (r.direct) {
        r.first = static_cast<uint32_t>(static_cast<int64_t>(first));
        r.span = static_cast<uint32_t>(last - first);
        r.offset = static_cast<uint32_t>(first - r.low);
    }
    return r;
}

// As the row loops do.
uint32_t bin_of(const BinRule &r, double value) {
    if (!(value >= r.least && value <= r.most)) return r.bins;
    if (r.direct) return static_cast<uint32_t>(value - r.low);
    const double t = (value - r.low) / r.width, last = r.bins - 1;
    return static_cast<uint32_t>(t > 0 ? std::min(t, last) : 0);
}

void add(kipx_histogram &h, uint32_t bin, uint32_t count) {
    h.counts[bin] += count;
    h.total += static_cast<int32_t>(count);
}

// Counted by value first, and then each value by its bin.
void count_by_value(Call &call, const BinRule *rules, kipx_histogram *histograms) {
    const uint32_t channels = call.channels, tables = tables_of(channels);
    const bool is_signed = call.src[0].type == KIPX_S8;
    ByteCounts counts;
    std::memset(&counts, 0, sizeof counts);
    Folding how;
    how.set = active_set(call.flags);
    how.loop = histogram_rows_of(how.set)[channels == 1 ? count_bytes : count_bytes_of_channels];
    how.states = &counts, how.state_size = tables * sizeof *counts.table;
    how.blocks = false, how.interleaved = true;
    fold(call, how);
    for (uint32_t c = 0; c < channels; ++c)
        for (uint32_t byte = 0; byte < 256; ++byte) {
            uint32_t count = 0;
            for (uint32_t k = 0; k < tables; ++k) count += counts.table[c * tables + k][byte];
            if (count == 0) continue;
            const int32_t value =
                is_signed ? static_cast<int8_t>(byte) : static_cast<int32_t>(byte);
            if (uint32_t bin = bin_of(rules[c], value); bin < rules[c].bins)
                add(histograms[c], bin, count);
        }
}

// Tables of their own for histograms of few bins; else the histogram's counts.
void count_by_bin(Call &call, const BinRule *rules, kipx_histogram *histograms) {
    const uint32_t channels = call.channels, tables = channels == 1 ? 4 : 2;
    uint32_t table[table_count][table_bins + 1];
    BinCounts states[fold_channels];
    for (uint32_t c = 0; c < channels; ++c) {
        const uint32_t bins = rules[c].bins;
        const bool few = bins <= table_bins;
        states[c] = {rules[c], few ? table[c * tables] : histograms[c].counts, few ? tables : 1,
                     table_bins + 1, 0};
        for (uint32_t k = 0; few && k < tables; ++k)
            std::memset(table[c * tables + k], 0, (bins + 1) * sizeof(uint32_t));
    }
    Folding how;
    how.set = active_set(call.flags);
    how.loop = histogram_rows_of(how.set)[count_bins + numeric_type_of(call.src[0].type)];
    how.states = states, how.state_size = sizeof *states;
    how.blocks = false, how.interleaved = false;
    fold(call, how);
    for (uint32_t c = 0; c < channels; ++c) {
        histograms[c].total += static_cast<int32_t>(states[c].counted);
        for (uint32_t bin = 0; states[c].tables > 1 && bin < rules[c].bins; ++bin)
            for (uint32_t k = 0; k < tables; ++k)
                add(histograms[c], bin, states[c].table[k * states[c].stride + bin]);
    }
}

bool countable(const kipx_histogram &h, uint64_t pixels) {
    return h.counts && h.bins > 0 && h.width > 0 && std::isfinite(h.width) &&
           std::isfinite(h.low) && h.total >= 0 &&
           pixels <= static_cast<uint64_t>(INT32_MAX - h.total);
}

// Whether the histograms of a call, of a good number of channels, take its pixels.
bool all_countable(const Call &c, const kipx_histogram *histograms) {
    if (!histograms || c.channels > fold_channels) return false;
    const uint64_t rows = uint64_t{c.planes} * c.height;
    if (rows > INT32_MAX) return false;
    for (uint32_t i = 0; i < c.channels; ++i)
        if (!countable(histograms[i], rows * c.width)) return false;
    return true;
}

struct HistogramGiven {
    const kipx_vrange *ranges;
    kipx_histogram *histograms;
    HistogramGiven(const kipx_vrange *r, kipx_histogram *h) : ranges(r), histograms(h) {}
};

int32_t work_histogram(Call &c) {
    const auto &given = *static_cast<const HistogramGiven *>(c.params);
    int32_t code = admit_reading(c, all_countable(c, given.histograms));
    if (code == 0 && !no_work_asked(c)) count_values_in_bins(c, given.ranges, given.histograms);
    return code;
}

} // namespace

void count_values_in_bins(Call &call, const kipx_vrange *ranges, kipx_histogram *histograms) {
    const uint32_t type = call.src[0].type;
    BinRule rules[fold_channels];
    for (uint32_t c = 0; c < call.channels; ++c)
        rules[c] = rule_of(histograms[c], ranges ? ranges + c : nullptr, type);
    if (call.src[0].size == 1)
        count_by_value(call, rules, histograms);
    else
        count_by_bin(call, rules, histograms);
}

kipx_vrange default_range(uint32_t type) { return {0, has_byte_range(type) ? 255.0 : 1.0}; }
int32_t default_bins(uint32_t type) { return has_byte_range(type) ? 256 : 384; }

} // namespace kipx

using namespace kipx;

extern "C" {

int32_t __kipx_histogram__$n$xe(kipx_histogram *histograms, uint32_t n, const kipx_vrange *ranges,
                                const int32_t *bins, uint32_t type, KipxXE *xe) {
    if (!element_valid(type) || !histograms || !xe) return KIPX_EINVAL;
    for (uint32_t i = 0; i < n; ++i) {
        const bool given = ranges && ranges[i].low == ranges[i].low;
        const int32_t count = bins && bins[i] >= 2 ? bins[i] : default_bins(type);
        if (!set_up(histograms[i], given ? ranges[i] : default_range(type), count, type))
            return KIPX_EINVAL;
    }
    for (uint32_t i = 0; i < n; ++i) {
        const size_t bytes = static_cast<size_t>(histograms[i].bins) * sizeof(uint32_t);
        histograms[i].counts = static_cast<uint32_t *>(KipxXEalloca(xe, bytes, 64));
        if (!histograms[i].counts) return kipx_hist_fini_$n$xe(histograms, i, xe), KIPX_ENOMEM;
        std::memset(histograms[i].counts, 0, bytes);
    }
    return 0;
}

void kipx_hist_fini_$n$xe(kipx_histogram *histograms, uint32_t n, KipxXE *xe) {
    for (uint32_t i = n; histograms && i-- > 0;) {
        KipxXEfreea(xe, histograms[i].counts);
        histograms[i].counts = nullptr;
    }
}

#define KIPX_PASS_KIPX_TAIL_HISTOGRAM , ranges, histograms
KIPX_STAMP_R(histogram, Histogram, KIPX_TAIL_HISTOGRAM, one_reading,
             HistogramGiven(ranges, histograms), work_histogram)
}
