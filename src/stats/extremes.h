// stats/extremes.h - least and greatest values of a call's first source.
#pragma once

#include <kipx/types.h>

#include "core/call.h"

namespace kipx {

// Types, channels and addresses are good. One range per channel, as kipx/stats.h says; KIPX_EEMPTY
// where the mask leaves a channel without an element, and then nothing is written. The call is used
// up.
int32_t find_extremes(Call &call, kipx_vrange *ranges);

} // namespace kipx
