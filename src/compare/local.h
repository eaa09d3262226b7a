// compare/local.h - elements judged by the mean and the deviation of their neighbourhoods.
//
// Gives    LocalRule, what a local threshold is; LocalSums, which judges a plane row by row.
// Promises no element is read that is not of the region; sums are exact.
// Costs    a row is taken in once and let go once, whatever the neighbourhood's size; scratch of 16
//          bytes per element of a row and 29 per pixel of it, and a few, the caller's. Means of short
//          integers, with whole offsets, are judged in 32 bits without a division.
#pragma once

#include <kipx/threshold.h>

#include "compare/local_rows.h"
#include "core/call.h"
#include "core/run.h"
#include "core/simd.h"

namespace kipx {

struct LocalRule {
    kipx_thhlocal local;
    Formula formula;
    uint32_t count; // comparisons, 1 or 2: both must hold
    kipx_cmpop cmpop[2];
    const double *offsets; // per channel, null for none
};

// 0, or what is wrong with the rule for elements of a type.
int32_t admit_local(const LocalRule &rule, uint32_t type);

class LocalSums {
public:
    static uint64_t scratch_bytes(const Call &call);
    // One plane, of a type that is admitted. Scratch is aligned to 64 bytes and outlives the work.
    LocalSums(const Call &plane, const LocalRule &rule, Set set, char *scratch);
    // Judges the next row, from the first one on: channel by channel, width bytes each.
    void next_row(uint8_t *passes);

private:
    void share_scratch(char *scratch);
    void take(uint32_t row, uint32_t channel, bool leaves);
    void unpack(uint32_t row, uint32_t channel);
    void slide(const int64_t *columns, int64_t *sums) const;
    void add_up(const uint32_t *columns);
    void judge(uint8_t *passes, uint32_t channel, int64_t rows);
    void judge_whole(uint8_t *passes, uint32_t channel, int32_t rows);
    double offset(uint32_t channel) const { return rule_.offsets ? rule_.offsets[channel] : 0; }
    int64_t columns_at(uint64_t x) const; // of the neighbourhood of column x

    const Call &call_;
    const LocalRule &rule_;
    Set set_;
    uint32_t above_, below_, left_, right_; // of a neighbourhood, the centre not counted
    uint32_t row_ = 0;
    size_t width_;
    RowLoop widen_;                       // adjacent elements to s32
    bool whole_;                          // in 32 bits
    int64_t *sum_, *square_;              // per column, channel by channel
    int64_t *sums_, *squares_, *columns_; // of a row's neighbourhoods
    int32_t *values_;
    // Of 32 bits: sums per column; of all columns before, from left_ before the first one to right_
    // behind the last, modulo 2^32; and columns of the neighbourhoods.
    uint32_t *whole_sum_, *before_;
    int32_t *whole_columns_;
};

} // namespace kipx
