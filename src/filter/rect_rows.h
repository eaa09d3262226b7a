// filter/rect_rows.h - what the row loops of minimum and maximum over rectangles take.
//
// Two loops: along a row, the smallest (largest) of each element's neighbours to the left and right;
// and down the columns of such rows, a group of results at a time. Whatever all windows of the group
// share is united once, what lies above it from the bottom up, what lies below from the top down:
// three comparisons an element for any height, and the logarithm of the width along the row.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/element.h"
#include "core/sets.h"
#include "core/window.h"

namespace kipx {

// Along a row: a window is the union of shorter ones, each a power of two wide. loads read them at
// their places; stages double them, the vector before shifted over the one at hand. at[i] and shift
// are bytes.
struct Along {
    uint32_t loads, byte_stages, word_stages;
    ptrdiff_t at[4];
    uint8_t shift[8];  // byte stages first
    size_t primes;     // vectors before the first that stages look back at
    size_t looks_back; // sum of the shifts
};

struct AlongRows {
    const Along *along;
    Band band;
    Pieces pieces;
    char *out; // result rows, whole vectors of them where there is room
    ptrdiff_t step;
    size_t bytes; // of a row
};

struct DownRows {
    const char *const *rows; // group + height - 1 of them
    size_t height, group;    // group at most height
    char *out;
    ptrdiff_t step;
    size_t bytes;
    char *scratch; // group times down_width vectors
};
inline constexpr size_t down_width = 4;

struct RectLoops {
    void (*along)(const AlongRows &);
    void (*down)(const DownRows &);
    // row[x] becomes the union of the windows at x and x + shift, for `bytes` of x.
    void (*unite)(char *row, size_t shift, size_t bytes);
    const void *neutral; // an element that never wins
};

#define KIPX_RECT_TYPES(ROW, ...)                                                                  \
    ROW(u8, __VA_ARGS__)                                                                           \
    ROW(s16, __VA_ARGS__)                                                                          \
    ROW(s32, __VA_ARGS__)                                                                          \
    ROW(f32, __VA_ARGS__)                                                                          \
    ROW(u16, __VA_ARGS__) ROW(s8, __VA_ARGS__) ROW(u32, __VA_ARGS__) ROW(f64, __VA_ARGS__)

enum class Rank : uint32_t { smallest, largest };

struct RectSet {
    size_t vector_bytes;
    RectLoops loops[16][2]; // by type code and rank
};

KIPX_SET_TABLES(RectSet, rect_sets, 1)

} // namespace kipx
