// stats/extremes.cpp - least and greatest values, from the public function down to the fold.
#include "stats/extremes.h"

#include <kipx/stats.h>

#include <limits>

#include "core/stamp.h"
#include "stats/extreme_rows.h"
#include "stats/reading.h"

namespace kipx {

int32_t find_extremes(Call &call, kipx_vrange *ranges) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    Extremes states[fold_channels];
    for (Extremes &s : states) s = {infinity, -infinity};
    Folding how;
    how.set = active_set(call.flags);
    how.loop = extreme_rows_of(how.set)[numeric_type_of(call.src[0].type)];
    how.states = states, how.state_size = sizeof *states;
    how.blocks = false, how.interleaved = true;
    const Taken taken = fold(call, how);
    for (uint32_t i = 0; i < call.channels; ++i)
        if (taken.pixels[i] == 0) return KIPX_EEMPTY;
    for (uint32_t i = 0; i < call.channels; ++i) {
        bool none = states[i].low > states[i].high;
        constexpr double nan_value = std::numeric_limits<double>::quiet_NaN();
        ranges[i] = none ? kipx_vrange{nan_value, nan_value}
                         : kipx_vrange{states[i].low + 0.0, states[i].high + 0.0};
    }
    return 0;
}

namespace {

int32_t work_extremes(Call &c) {
    auto *ranges = *static_cast<kipx_vrange *const *>(c.params);
    int32_t code = admit_reading(c, ranges != nullptr);
    return code || no_work_asked(c) ? code : find_extremes(c, ranges);
}

} // namespace
} // namespace kipx

using namespace kipx;

#define KIPX_PASS_KIPX_TAIL_RANGES , ranges
KIPX_STAMP_R(minmax, Minmax, KIPX_TAIL_RANGES, one_reading, ranges, work_extremes)
