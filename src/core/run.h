// core/run.h - what a row loop is handed. For row files, too.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kipx {

// Sources that an operation may have.
inline constexpr uint32_t most_sources = 4;

// Elements of a repeating row that a loop reads over and over, if it is of the kind that repeats for
// itself: whole vectors, and whole pixels of 1 to 4 channels.
inline constexpr uint32_t pattern_length = 192;

// How a row loop is to write. streamed: dst is aligned to 64 bytes, n elements are whole lines of
// 64 bytes, and the loop may write them past the cache; the rows see to their order with later
// stores.
enum class Writing : uint32_t { cached, streamed };

// n adjacent elements of every operand; sources that an operation does not have are null. params is
// the family's own.
struct Run {
    void *dst;
    const void *src[most_sources];
    size_t n;
    const void *params;
    Writing writing;
};

// By value: behind a reference, a store of bytes might change n, and nothing would vectorise.
using RowLoop = void (*)(Run run);

} // namespace kipx
