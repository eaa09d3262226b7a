// region/builder.h - what concrete builders and floods need of a builder beyond kipx/tree.h.
//
// Gives    the storage of a builder, and the one routine behind every node and region record.
// Costs    a bump of the storage and a zero fill.
// Owner    the block belongs to the builder's storage and goes with the next clear.
#pragma once

#include <kipx/tree.h>

namespace kipx {

// The storage of an initialised builder. Its own is opened inside it on first use and will be rolled
// back to that state; null when that fails.
ZuSMEMSTG *builder_storage(KipxSTB *builder);
// Zero-filled bytes from the builder's storage; alignment 0 means 16. Null when the storage gives
// nothing or builder is not initialised.
void *builder_alloc(KipxSTB *builder, size_t size, size_t alignment);

} // namespace kipx
