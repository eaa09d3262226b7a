// region/level_stacks.h - the boundary of a flood: one stack a level, in one block of memory.
//
// Gives    push, take the newest of a level, and the next level that holds something.
// Promises constant time for each. A level never holds more than the pixels that there are of it;
//          so many slots it has, and nothing is checked.
// Owner    the memory is the caller's, one entry a pixel.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

#include "region/levels.h"

namespace kipx {

inline constexpr uint32_t no_level = level_count;

template<class Entry> struct LevelStacks {
    Entry *base[level_count], *top[level_count];
    uint64_t filled[level_count / 64]; // set for levels that hold something, and some that do not

    void carve(Entry *memory, const uint32_t levels[level_count]) {
        for (uint32_t k = 0; k < level_count; ++k) {
            base[k] = top[k] = memory;
            memory += levels[k];
        }
        std::memset(filled, 0, sizeof filled);
    }
    void push(uint32_t level, Entry entry) {
        *top[level]++ = entry;
        filled[level / 64] |= uint64_t{1} << level % 64;
    }
    bool empty(uint32_t level) const { return top[level] == base[level]; }
    // Of a level that is not empty.
    Entry newest(uint32_t level) const { return *(top[level] - 1); }
    Entry take(uint32_t level) { return *--top[level]; }
    // The lowest level above an emptied one that holds something, or no_level; none below it does.
    uint32_t next_after(uint32_t level) {
        uint32_t word = level / 64;
        uint64_t bits = filled[word] &= ~(uint64_t{1} << level % 64);
        while (!bits) {
            if (++word == level_count / 64) return no_level;
            bits = filled[word];
        }
        return word * 64 + static_cast<uint32_t>(std::countr_zero(bits));
    }
};

} // namespace kipx
