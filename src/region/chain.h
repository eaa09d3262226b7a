// region/chain.h - finding a record in a builder's chain of tagged records.
//
// Gives    the first record with a tag that is large enough for what the tag promises.
// Promises a null or misaligned chain, and one with sizes that cannot be, has no further records:
//          the search ends. What a chain says of its length is believed otherwise.
#pragma once

#include <kipx/features.h>
#include <kipx/tree.h>

namespace kipx {

const KipxIFrecord *find_record(const void *chain, uint32_t tag, uint32_t least_size);

// The records that this library knows; null when the builder's chain has none.
inline const KipxSTBIF *stbl_of(const KipxSTB *builder) {
    return reinterpret_cast<const KipxSTBIF *>(
        find_record(builder->interface_chain, KIPX_TAG_STBL, sizeof(KipxSTBIF)));
}
inline const KipxWTSIF *wtsl_of(const KipxSTB *builder) {
    return reinterpret_cast<const KipxWTSIF *>(
        find_record(builder->interface_chain, KIPX_TAG_WTSL, sizeof(KipxWTSIF)));
}

} // namespace kipx
