// stats/sums.cpp - sums, means and deviations, from the public functions down to the fold.
#include <kipx/stats.h>

#include <cmath>
#include <limits>

#include "core/stamp.h"
#include "stats/reading.h"
#include "stats/sum_rows.h"

namespace kipx {
namespace {

// Folds one loop over the call, which stays as it is.
Taken fold_sums(const Call &c, SumLoop loop, SumState *states) {
    Call copy = c;
    const uint32_t type = numeric_type_of(c.src[0].type);
    Folding how;
    how.set = active_set(c.flags);
    how.loop = sum_rows_of(how.set)[loop * numeric_type_count + type];
    how.states = states, how.state_size = sizeof *states;
    how.blocks = is_floating(c.src[0].type);
    how.interleaved = true;
    return fold(copy, how);
}

double one_nan(double x) { return x == x ? x : std::numeric_limits<double>::quiet_NaN(); }

double sum_of(const SumState &s, uint32_t type) {
    if (is_floating(type)) return one_nan(total_of(s.paired));
    return type >= KIPX_S8 ? static_cast<double>(static_cast<int64_t>(s.whole))
                           : static_cast<double>(s.whole);
}

// The sums that a loop takes of a call of good types, channels and addresses; KIPX_EEMPTY where the
// mask leaves a channel without an element.
int32_t find_sums(const Call &c, SumLoop loop, Taken &taken, SumState *states) {
    taken = fold_sums(c, loop, states);
    for (uint32_t i = 0; i < c.channels; ++i)
        if (taken.pixels[i] == 0) return KIPX_EEMPTY;
    return 0;
}

// n^2 times the variance of integers, n sum (x^2) - (sum x)^2, is exact in 128 bits: there are fewer
// than 2^32 elements, of 64 bits their squares.
double whole_deviation(const SumState &s, uint32_t type, uint64_t n) {
    using Whole = unsigned __int128;
    const bool negative = type >= KIPX_S8 && static_cast<int64_t>(s.whole) < 0;
    const Whole sum = negative ? uint64_t{0} - s.whole : s.whole;
    const Whole squares = Whole{s.squares[0]} + (Whole{s.squares[1]} << 32);
    return std::sqrt(static_cast<double>(n * squares - sum * sum)) / static_cast<double>(n);
}

void find_deviations(const Call &c, const Taken &taken, SumState *states, double *deviations) {
    if (is_floating(c.src[0].type)) fold_sums(c, sum_squares, states);
    for (uint32_t i = 0; i < c.channels; ++i) {
        const auto n = static_cast<double>(taken.pixels[i]);
        deviations[i] = is_floating(c.src[0].type)
                            ? one_nan(std::sqrt(total_of(states[i].paired) / n))
                            : whole_deviation(states[i], c.src[0].type, taken.pixels[i]);
    }
}

struct MeanGiven {
    double *means, *deviations;
    MeanGiven(double *m, double *d) : means(m), deviations(d) {}
};

int32_t work_sum(Call &c) {
    double *out = *static_cast<double *const *>(c.params);
    int32_t code = admit_reading(c, out != nullptr);
    if (code || no_work_asked(c)) return code;
    SumState states[fold_channels] = {};
    Taken taken;
    code = find_sums(c, sum_elements, taken, states);
    for (uint32_t i = 0; code == 0 && i < c.channels; ++i)
        out[i] = sum_of(states[i], c.src[0].type); // NOLINT(clang-analyzer-core.NullDereference)
    return code;
}

int32_t work_mean(Call &c) {
    const auto &given = *static_cast<const MeanGiven *>(c.params);
    int32_t code = admit_reading(c, given.means || given.deviations);
    if (code || no_work_asked(c)) return code;
    SumState states[fold_channels] = {};
    Taken taken;
    // Squares of integers come with the sums, those of distances after the means.
    const bool squares = given.deviations && !is_floating(c.src[0].type);
    if (int32_t failure = find_sums(c, squares ? sum_squares : sum_elements, taken, states))
        return failure;
    for (uint32_t i = 0; i < c.channels; ++i) {
        const double mean = sum_of(states[i], c.src[0].type) / static_cast<double>(taken.pixels[i]);
        if (given.means) given.means[i] = mean;
        states[i].mean = mean, states[i].paired.count = 0; // of the sums; now for the distances
    }
    if (given.deviations) find_deviations(c, taken, states, given.deviations);
    return 0;
}

} // namespace
} // namespace kipx

using namespace kipx;

extern "C" {
#define KIPX_PASS_KIPX_TAIL_SUMS , sums
#define KIPX_PASS_KIPX_TAIL_MEANS , means, deviations
KIPX_STAMP_R(sum, Sum, KIPX_TAIL_SUMS, one_reading, sums, work_sum)
KIPX_STAMP_R(mean, Mean, KIPX_TAIL_MEANS, one_reading, MeanGiven(means, deviations), work_mean)
}
