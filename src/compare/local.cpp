// compare/local.cpp - elements judged by the mean and the deviation of their neighbourhoods.
#include "compare/local.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "compare/tables.h"
#include "convert/convert.h"

namespace kipx {
namespace {

constexpr uint64_t most_elements = 65535; // sums of squares of s16, times their number, fit 63 bits

template<class T> void unpack_as(const char *at, uint64_t step, int32_t *values, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        T value;
        std::memcpy(&value, at + i * step, sizeof value);
        values[i] = value; // NOLINT(bugprone-signed-char-misuse): no characters
    }
}

// Whether a mean is judged by value n - offset n against the sum of n elements, all of 32 bits. Binary64
// gives the same answers: a mean that is no whole number is further from one than 2^-17, and a whole
// one, and its sum with the offset, are exact.
bool judged_whole(const Call &c, const LocalRule &rule) {
    const uint32_t type = c.src[0].type;
    if (rule.formula != Formula::mean || type == KIPX_S32) return false;
    const int64_t size = type == KIPX_U8 ? 255 : type == KIPX_S8 ? 128 : 32768;
    const int64_t most = INT32_MAX / (int64_t{rule.local.height} * rule.local.width) - size;
    for (uint32_t i = 0; rule.offsets && i < c.channels; ++i) {
        const double offset = rule.offsets[i];
        if (offset != std::nearbyint(offset) || !(std::fabs(offset) <= static_cast<double>(most)))
            return false;
    }
    return most >= 0;
}

} // namespace

int32_t admit_local(const LocalRule &rule, uint32_t type) {
    const bool means = rule.formula == Formula::mean;
    const bool taken = type == KIPX_U8 || type == KIPX_S8 || type == KIPX_S16;
    if (!taken && !(means && type == KIPX_S32)) return KIPX_ENOTSUP;
    const kipx_thhlocal &l = rule.local;
    if (l.height < 1 || l.width < 1 || uint64_t{l.height} * l.width > most_elements)
        return KIPX_EINVAL;
    return means || (l.range >= 0 && std::isfinite(l.range)) ? 0 : KIPX_EINVAL;
}

uint64_t LocalSums::scratch_bytes(const Call &c) {
    return uint64_t{c.width} *
               (c.channels * 2 * sizeof(int64_t) + 3 * sizeof(int64_t) + sizeof(int32_t)) +
           sizeof(int64_t);
}

LocalSums::LocalSums(const Call &plane, const LocalRule &rule, Set set, char *scratch)
    : call_(plane), rule_(rule), set_(set), above_((rule.local.height - 1) / 2),
      below_(rule.local.height / 2), left_(std::min((rule.local.width - 1) / 2, plane.width)),
      right_(std::min(rule.local.width / 2, plane.width)), width_(plane.width),
      widen_(convert_row_for(KIPX_S32, plane.src[0].type, set)), whole_(judged_whole(plane, rule)) {
    share_scratch(scratch);
    for (uint32_t c = 0; c < plane.channels; ++c)
        for (uint32_t y = 0; y < below_ && y < plane.height; ++y) take(y, c, false);
}

void LocalSums::share_scratch(char *scratch) {
    const size_t all = width_ * call_.channels;
    if (whole_) {
        whole_sum_ = reinterpret_cast<uint32_t *>(scratch);
        before_ = whole_sum_ + all;
        whole_columns_ = reinterpret_cast<int32_t *>(before_ + left_ + width_ + 1 + right_);
        values_ = whole_columns_ + width_;
        std::memset(whole_sum_, 0, (all + left_ + 1) * sizeof *whole_sum_);
        for (size_t x = 0; x < width_; ++x) whole_columns_[x] = static_cast<int32_t>(columns_at(x));
        return;
    }
    sum_ = reinterpret_cast<int64_t *>(scratch);
    square_ = sum_ + all, sums_ = square_ + all;
    squares_ = sums_ + width_, columns_ = squares_ + width_;
    values_ = reinterpret_cast<int32_t *>(columns_ + width_);
    std::memset(sum_, 0, 2 * all * sizeof *sum_);
    for (size_t x = 0; x < width_; ++x) columns_[x] = columns_at(x);
}

int64_t LocalSums::columns_at(uint64_t x) const {
    return static_cast<int64_t>(std::min<uint64_t>(x + right_ + 1, width_) -
                                (x > left_ ? x - left_ : 0));
}

void LocalSums::unpack(uint32_t row, uint32_t channel) {
    const Operand &s = call_.src[0];
    const char *at = s.at + row * s.row + channel * s.channel;
    if (s.pixel == s.size) return widen_({values_, {at}, width_, nullptr, Writing::cached});
    switch (s.type) {
    case KIPX_U8:
        return unpack_as<uint8_t>(at, s.pixel, values_, width_);
    case KIPX_S8:
        return unpack_as<int8_t>(at, s.pixel, values_, width_);
    case KIPX_S16:
        return unpack_as<int16_t>(at, s.pixel, values_, width_);
    default:
        return unpack_as<int32_t>(at, s.pixel, values_, width_);
    }
}

void LocalSums::take(uint32_t row, uint32_t channel, bool leaves) {
    unpack(row, channel);
    if (whole_)
        return whole_loops_of(set_)->columns(whole_sum_ + channel * width_, values_, width_,
                                             leaves);
    const bool squares = rule_.formula != Formula::mean;
    column_rows_of(set_)[squares]({sum_ + channel * width_,
                                   squares ? square_ + channel * width_ : nullptr, values_, width_,
                                   leaves});
}

// Sums over columns from left_ before to right_ behind each, of those that are there.
void LocalSums::slide(const int64_t *columns, int64_t *sums) const {
    int64_t sum = 0;
    for (size_t x = 0; x < std::min<size_t>(right_, width_); ++x) sum += columns[x];
    for (size_t x = 0; x < width_; ++x) {
        if (x + right_ < width_) sum += columns[x + right_];
        if (x > left_) sum -= columns[x - left_ - 1];
        sums[x] = sum;
    }
}

void LocalSums::add_up(const uint32_t *columns) {
    uint32_t *before = before_ + left_ + 1, sum = 0;
    for (size_t x = 0; x < width_; ++x) before[x] = sum += columns[x];
    for (size_t x = 0; x < right_; ++x) before[width_ + x] = sum;
}

void LocalSums::judge(uint8_t *passes, uint32_t channel, int64_t rows) {
    slide(sum_ + channel * width_, sums_);
    if (rule_.formula != Formula::mean) slide(square_ + channel * width_, squares_);
    for (uint32_t i = 0; i < rule_.count; ++i) {
        const uint32_t ordering = operator_of(rule_.cmpop[i]) - KIPX_CMPOP_LESS;
        local_rows_of(set_)[local_row_index(rule_.formula, ordering)](
            {passes, values_, sums_, squares_, columns_, rows, width_, offset(channel),
             rule_.local.k[i], rule_.local.range, i > 0});
    }
}

void LocalSums::judge_whole(uint8_t *passes, uint32_t channel, int32_t rows) {
    add_up(whole_sum_ + channel * width_);
    for (uint32_t i = 0; i < rule_.count; ++i)
        whole_loops_of(set_)->judge[operator_of(rule_.cmpop[i]) - KIPX_CMPOP_LESS](
            {passes, values_, whole_columns_, before_, rows, width_, left_ + right_ + 1,
             static_cast<int32_t>(offset(channel)), i > 0});
}

void LocalSums::next_row(uint8_t *passes) {
    const uint32_t y = row_++, height = call_.height;
    const int64_t rows = std::min<int64_t>(int64_t{y} + below_ + 1, height) -
                         std::max<int64_t>(int64_t{y} - above_, 0);
    for (uint32_t c = 0; c < call_.channels; ++c) {
        if (uint64_t{y} + below_ < height) take(y + below_, c, false);
        if (y > above_) take(y - above_ - 1, c, true);
        unpack(y, c);
        if (whole_)
            judge_whole(passes + c * width_, c, static_cast<int32_t>(rows));
        else
            judge(passes + c * width_, c, rows);
    }
}

} // namespace kipx
