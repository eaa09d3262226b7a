// region/flood_state.h - what the standard flood keeps in mind.
//
// Gives    components and the entries of their stack, the boundary's entries, the reached mask,
//          steps to neighbours.
// Owner    the flood takes the memory; these records only divide it.
#pragma once

#include <cstring>

#include <kipx/watershed.h>

#include "region/levels.h"

namespace kipx {

inline constexpr uint32_t buffered = 16; // pixels a component holds before it becomes a region
inline constexpr int32_t bottom_level = 0x7fffffff;
inline constexpr int32_t join_level =
    bottom_level - 1; // what separated parts hang on, while flooding

// A component without a region.
struct Component {
    uint32_t pixel;
    int32_t level;
    uint32_t count;
    uint32_t pairs[2 * buffered];
};

// An entry of the component stack: a component whose pixels are buffered, or a region. The other one
// is null.
struct Entry {
    Component *component;
    KipxWTSregion *region;
    bool is_buffered() const { return component != nullptr; }
    int32_t level() const { return component ? component->level : region->level; }
};

// Boundary entries: where a pixel is, and the neighbour to go on with.
struct Waiting {
    uint64_t word;
    static Waiting of(uint32_t index, uint32_t edge, uint32_t row, uint32_t column) {
        return {index | uint64_t{edge} << 28 | uint64_t{column} << 32 | uint64_t{row} << 48};
    }
    uint32_t index() const { return static_cast<uint32_t>(word) & 0x0fffffff; }
    uint32_t edge() const { return static_cast<uint32_t>(word >> 28) & 15; }
    uint32_t column() const { return static_cast<uint32_t>(word >> 32) & 0xffff; }
    uint32_t row() const { return static_cast<uint32_t>(word >> 48); }
};

// One bit a pixel, with set bits before the first row and after the last.
struct ReachedMask {
    uint8_t *bits; // of pixel 0
    static uint64_t margin(uint32_t width) { return (uint64_t{width} + 9) / 8; }
    static uint64_t size(const FloodImage &image) {
        return 2 * margin(image.width) + (image.pixels() + 7) / 8;
    }
    bool test(int64_t i) const { return bits[i >> 3] >> (i & 7) & 1; }
    void set(int64_t i) { bits[i >> 3] = static_cast<uint8_t>(bits[i >> 3] | 1 << (i & 7)); }
    // Clears the pixels inside the mask.
    void prepare(uint8_t *memory, const FloodImage &image) {
        uint64_t n = image.pixels();
        std::memset(memory, 0xff, size(image));
        bits = memory + margin(image.width);
        if (image.mask.at) {
            uint64_t i = 0;
            for (uint32_t y = 0; y < image.height; ++y)
                for (uint32_t x = 0; x < image.width; ++x, ++i)
                    if (!image.masked_out(y, x))
                        bits[i >> 3] = static_cast<uint8_t>(bits[i >> 3] & ~(1 << (i & 7)));
        } else {
            std::memset(bits, 0, n / 8);
            if (n % 8) bits[n / 8] = static_cast<uint8_t>(0xff << n % 8);
        }
    }
};

// A step to a neighbour.
struct Edge {
    int32_t index, row, column;
    int64_t address;
};

struct FloodScratch {
    uint8_t small[64]; // the reached mask of a small image
    uint8_t *mask;
    Waiting *boundary;
    Entry *entries;
    Component *pool;
    uint32_t slots; // entries and pool records
};

} // namespace kipx
