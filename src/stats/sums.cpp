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
    how.blocks = loop == sum_squares || is_floating(c.src[0].type);
    how.interleaved = true;
    return fold(copy, how);
}

double one_nan(double x) { return x == x ? x : std::numeric_limits<double>::quiet_NaN(); }

double sum_of(const SumState &s, uint32_t type) {
    if (is_floating(type)) return one_nan(total_of(s.paired));
    return type >= KIPX_S8 ? static_cast<double>(static_cast<int64_t>(s.whole))
                           : static_cast<double>(s.whole);
}

// The sums of a call of good types, channels and addresses; KIPX_EEMPTY where the mask leaves a
// channel without an element.
int32_t find_sums(const Call &c, Taken &taken, double *sums) {
    SumState states[fold_channels] = {};
    taken = fold_sums(c, sum_elements, states);
    for (uint32_t i = 0; i < c.channels; ++i)
        if (taken.pixels[i] == 0) return KIPX_EEMPTY;
    for (uint32_t i = 0; i < c.channels; ++i) sums[i] = sum_of(states[i], c.src[0].type);
    return 0;
}

void find_deviations(const Call &c, const Taken &taken, const double *means, double *deviations) {
    SumState states[fold_channels] = {};
    for (uint32_t i = 0; i < c.channels; ++i) states[i].mean = means[i];
    fold_sums(c, sum_squares, states);
    for (uint32_t i = 0; i < c.channels; ++i)
        deviations[i] =
            one_nan(std::sqrt(total_of(states[i].paired) / static_cast<double>(taken.pixels[i])));
}

struct MeanGiven {
    double *means, *deviations;
    MeanGiven(double *m, double *d) : means(m), deviations(d) {}
};

int32_t work_sum(Call &c) {
    double *out = *static_cast<double *const *>(c.params), sums[fold_channels];
    int32_t code = admit_reading(c, out != nullptr);
    if (code || no_work_asked(c)) return code;
    Taken taken;
    code = find_sums(c, taken, sums);
    for (uint32_t i = 0; code == 0 && i < c.channels; ++i) out[i] = sums[i];
    return code;
}

int32_t work_mean(Call &c) {
    const auto &given = *static_cast<const MeanGiven *>(c.params);
    int32_t code = admit_reading(c, given.means || given.deviations);
    if (code || no_work_asked(c)) return code;
    Taken taken;
    double means[fold_channels];
    if (int32_t failure = find_sums(c, taken, means)) return failure;
    for (uint32_t i = 0; i < c.channels; ++i) means[i] /= static_cast<double>(taken.pixels[i]);
    if (given.deviations) find_deviations(c, taken, means, given.deviations);
    for (uint32_t i = 0; given.means && i < c.channels; ++i) given.means[i] = means[i];
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
