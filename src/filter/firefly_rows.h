// filter/firefly_rows.h - what the row loop of outlier removal takes.
#pragma once

#include <cstddef>

#include "core/sets.h"

namespace kipx {

struct FireflyRow {
    void *dst;
    const void *source, *largest,
        *smallest;               // of the others; smallest above largest: there are none
    size_t n;                    // elements
    uint32_t channels;           // of adjacent elements
    const double *bright, *dark; // a threshold per channel, infinite for none
};
using FireflyLoop = void (*)(const FireflyRow &);

struct FireflySet {
    FireflyLoop loops[16]; // by type code
};
KIPX_SET_TABLES(FireflySet, firefly_sets, 1)

} // namespace kipx
