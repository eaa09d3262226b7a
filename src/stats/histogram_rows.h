// stats/histogram_rows.h - the fold loops of histograms.
//
// Gives    two ways of counting bytes, by their values: one channel in several tables, so that equal
//          neighbours do not wait for each other, or several channels in a few tables each; and for
//          every type a loop that finds each element's bin and counts it.
#pragma once

#include "core/fold.h"
#include "core/numeric.h"
#include "core/sets.h"

namespace kipx {

inline constexpr uint32_t byte_tables = 9; // one channel uses 8, three channels 3 each
struct ByteCounts {
    uint32_t table[byte_tables][256];
};
// Tables that a channel of several has; a run of one channel uses the first two of them.
inline constexpr uint32_t tables_of(uint32_t channels) {
    return channels == 1 ? 8 : channels == 2 ? 4 : channels == 3 ? 3 : 2;
}

// Bin 0 begins at low. Values from least to most count; those before the first bin go into it, those
// behind the last into that one.
struct BinRule {
    double low, width, least, most;
    uint32_t bins;
    // Whole numbers of the type with bins of their own: value first + d, d <= span, is bin
    // offset + d.
    bool direct;
    uint32_t first, span, offset;
};

// Of one channel. Several tables are used in turn and have a bin behind the last one, for elements that
// do not count. One table has no such bin, and `counted` goes with it.
struct BinCounts {
    BinRule rule;
    uint32_t *table;
    uint32_t tables; // 1, 2 or 4
    uint32_t stride; // entries from table to table
    uint64_t counted;
};

// Of the table of loops; one loop per type begins at count_bins.
inline constexpr uint32_t count_bytes = 0, count_bytes_of_channels = 1, count_bins = 2;
inline constexpr uint32_t histogram_row_count = count_bins + numeric_type_count;
KIPX_SET_TABLES(FoldLoop, histogram_rows, histogram_row_count)

} // namespace kipx
