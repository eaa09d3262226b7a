// compare/otsu.h - Otsu's threshold of a call's first source.
#pragma once

#include <kipx/threshold.h>

#include "core/call.h"

namespace kipx {

struct OtsuGiven {
    double *thresholds; // per channel; those that are not selected stay
    const kipx_vrange *ranges;
    const int32_t *bins;
};

// 0, or what is wrong with types, channels and selection, flags aside.
int32_t admit_otsu(const Call &call);
// The call is admitted and has an environment. 0, or the code of whatever failed; thresholds are
// written at 0 alone. Scratch goes back in every case.
int32_t find_otsu(const Call &call, const OtsuGiven &given);

} // namespace kipx
