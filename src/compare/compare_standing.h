// compare/compare_standing.h - where a row of a comparison stands. For row files only.
#pragma once

#include "compare/compare_rows.h"
#include "core/lanes.h"

namespace kipx::KIPX_SET {

struct Standing {
    char *dst;
    const char *src[most_sources];
    size_t step[most_sources]; // from one block to the next; 0 for a source that repeats itself

    // By a block of pattern_length elements.
    template<class D, bool chosen> void advance() {
        dst += pattern_length * sizeof(D);
        for (uint32_t i = 0; i < (chosen ? 4 : 2); ++i) src[i] += step[i];
    }
};

template<class D, class S, bool chosen> inline Standing standing_of(const Run &run) {
    const bool *repeats = static_cast<const CompareRow *>(run.params)->repeats;
    Standing at{static_cast<char *>(run.dst), {}, {}};
    for (uint32_t i = 0; i < (chosen ? 4 : 2); ++i) {
        at.src[i] = static_cast<const char *>(run.src[i]);
        at.step[i] = repeats[i] ? 0 : pattern_length * (i < 2 ? sizeof(S) : sizeof(D));
    }
    return at;
}

// The lines that a later block reads and writes.
template<class D, class S>
[[gnu::always_inline]] inline void prefetch(const Standing &at, bool streamed) {
    for (uint32_t k = 0; k < 2; ++k)
        if (at.step[k]) prefetch_lines<pattern_length * sizeof(S)>(at.src[k] + read_ahead);
    if (!streamed) prefetch_lines<pattern_length * sizeof(D)>(at.dst + write_ahead);
}

} // namespace kipx::KIPX_SET
