// filter/rect_rows.h - what the row loops of minimum and maximum over rectangles take.
//
// Two loops: along rows, the smallest (largest) of what lies at a few places from each element on;
// and down the columns of such rows, a group of results at a time. Whatever all windows of the group
// share is united once, what lies above it from the bottom up, what lies below from the top down:
// three comparisons an element for any height.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/element.h"
#include "core/sets.h"
#include "core/window.h"

namespace kipx {

// Along rows: a window is first the union of what lies at a few places, byte 0 of a row being its
// first result's. Then it may grow in registers, by the window that ends `shift` bytes before it:
// `words` times by whole words, and once more by any number of bytes.
inline constexpr size_t most_loads = 5, most_words = 4, growing_loads = 4;
struct AlongRows {
    Band band;
    Span there;               // of the band's rows; whatever lies beyond it does not count
    size_t loads;             // 1 to most_loads; growing_loads where windows grow
    ptrdiff_t at[most_loads]; // ascending
    bool grows;
    size_t words, shift[most_words + 1]; // at most a vector each; the last 0 to stay as it is
    size_t before;                       // vectors ahead of the first, which growing looks back at
    ptrdiff_t ahead; // how far ahead lies what is to be read soon; 0 for nothing
    char *out;
    ptrdiff_t step;
    size_t bytes; // of a result row
};

// Down the columns: of rows that hold windows, or of such as square ones of 3 or 5 are made of; then
// loads says 3 or 5, and group is height.
struct DownRows {
    const char *const *rows; // results + height - 1 of them
    size_t height, group;    // group at most height
    size_t results;
    Span there;
    size_t loads;
    ptrdiff_t at[most_loads];
    ptrdiff_t ahead; // how far ahead of a row lies what is to be read soon
    char *out;
    ptrdiff_t step;
    size_t bytes;
    char *scratch; // group times down_width vectors
};
inline constexpr size_t down_width = 4;

struct RectLoops {
    void (*along)(const AlongRows &);
    void (*down)(const DownRows &);
    bool square; // down takes square windows
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
    size_t grows;           // bytes that a window can grow by at once; 0 for none
    RectLoops loops[16][2]; // by type code and rank
};

KIPX_SET_TABLES(RectSet, rect_sets, 1)

} // namespace kipx
