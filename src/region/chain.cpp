#include "region/chain.h"

namespace kipx {

const KipxIFrecord *find_record(const void *chain, uint32_t tag, uint32_t least_size) {
    constexpr uint32_t step = alignof(void *);
    if (reinterpret_cast<uintptr_t>(chain) % step) return nullptr;
    auto *record = static_cast<const KipxIFrecord *>(chain);
    while (record && record->tag) {
        if (record->size < sizeof(KipxIFrecord) || record->size % step) return nullptr;
        if (record->tag == tag && record->size >= least_size) return record;
        record = reinterpret_cast<const KipxIFrecord *>(reinterpret_cast<const char *>(record) +
                                                        record->size);
    }
    return nullptr;
}

} // namespace kipx
