// region/gather.h - completing the feature states of regions with those nested in them.
//
// Promises a complete state is not touched; a state that cannot have its memory is not touched
//          either and is reported.
// Owner    states keep what they gathered; the list is only read.
#pragma once

#include <kipx/features.h>

namespace kipx {

// 0; KIPX_EINVAL for a null in the list, nothing gathered; KIPX_ENOMEM. Marks listed regions in bit
// 31 of their kept word while it runs.
int32_t gather_nested(const KipxWTSLSC &context, KipxWTSregion *const *regions, uint64_t count);

} // namespace kipx
