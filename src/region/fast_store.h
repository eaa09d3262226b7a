// region/fast_store.h - what the fast flood needs of its result store.
//
// Gives    getting a store ready for an image, taking nodes, and throwing nodes away.
// Promises a store that cannot be made ready stays as it was.
// Owner    everything taken belongs to the store.
#pragma once

#include <kipx/fast_regions.h>

namespace kipx {

// Makes the store ready for an image of the extents in its fixed-up level-set context: room for the
// pixels and the first nodes, earlier regions gone, tree attached and empty. 0, KIPX_ENOMEM, or
// KIPX_EINVAL for a builder that is not initialised.
int32_t fast_store_prepare(KipxFWTSRES *store, const KipxWTSLSC &context);
// The next node, zero but for its links to its region and its number, feature states initialised.
// Null when the storage gives nothing.
KipxFWTSRESnode *fast_store_take(KipxFWTSRES *store);
// Destroys the feature states of all nodes and forgets the nodes; their room is used again.
void fast_store_forget(KipxFWTSRES *store);

} // namespace kipx
