// region/level_queues.h - the boundary of a fast flood: one queue or stack a level, in one block of memory.
//
// Gives    lists that grow at their end. Queues are read from the front by the flood itself, stacks
//          taken from at the end; and the next level that holds something.
// Promises a level never holds more than the pixels that there are of it; so many slots it has, in
//          one row, and nothing is checked. The code `top` is a level too: what joins it is lost.
// Costs    constant time for each; a search looks at every level on its way, or, where every push has
//          been noted, at those that hold something.
// Owner    the memory is the caller's: queue_slots of them.
#pragma once

#include <bit>
#include <cstdint>

namespace kipx {

// Slots for so many pixels: one more may be read, though it means nothing.
inline uint64_t queue_slots(uint64_t pixels) { return pixels + 1; }

template<class Index, uint32_t top> struct LevelQueues {
    Index *tail[top + 1], *head[top + 1];
    Index lost[8];
    uint64_t noted[top / 64 +
                   1]; // set for noted levels that hold something, and perhaps the one in hand

    void carve(Index *memory, const uint32_t *counts) {
        for (uint32_t k = 0; k < top; ++k) {
            head[k] = tail[k] = memory;
            memory += counts[k];
        }
        forget_lost();
        head[top] = nullptr; // ends every search
        for (uint64_t &word : noted) word = 0;
    }
    void push(uint32_t level, uint32_t pixel) { *tail[level]++ = static_cast<Index>(pixel); }
    // After a push. Every push is noted or none is.
    void note(uint32_t level) { noted[level / 64] |= uint64_t{1} << level % 64; }
    bool empty(uint32_t level) const { return head[level] == tail[level]; }
    // Of a stack that is not empty.
    uint32_t take(uint32_t level) { return *--tail[level]; }
    // After at most eight pushes to the top.
    void forget_lost() { tail[top] = lost; }
    // The lowest level above this one that holds something, or top.
    uint32_t next_after(uint32_t level) const {
        do ++level;
        while (head[level] == tail[level]);
        return level;
    }
    // The same, above an emptied level below which nothing waits.
    uint32_t next_noted_after(uint32_t level) {
        uint32_t word = level / 64;
        uint64_t bits = noted[word] &= ~(uint64_t{1} << level % 64);
        while (!bits) {
            if (++word > (top - 1) / 64) return top;
            bits = noted[word];
        }
        return word * 64 + static_cast<uint32_t>(std::countr_zero(bits));
    }
};

} // namespace kipx
