// region/levels.h - the image that a flood sees: where its pixels are and how they become levels.
//
// Gives    the view of a one-channel u8 region with an optional mask, and its histogram of levels.
// Promises only pixels and mask bytes of the region are read. A level is the value, subtracted from
//          255 for the bright-to-dark polarity, and shifted right; shifts of 8 and more give 0.
// Costs    the histogram is one pass over the image, four counters a level against repeated values.
// Owner    the view borrows the arrays.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kipx {

inline constexpr uint32_t level_count = 256;

struct Plane {
    const uint8_t *at = nullptr; // first pixel; null for no mask
    uint64_t row = 0, pixel = 0; // bytes from row to row, from pixel to pixel
    const uint8_t *row_at(uint32_t y) const { return at + y * row; }
};

struct FloodImage {
    Plane source, mask;
    uint32_t height = 0, width = 0;
    uint32_t invert = 0; // 255 to flood from bright to dark, else 0
    uint32_t shift = 0;
    uint32_t seed_row = 0, seed_column = 0;
    bool eight = false; // 8-connectivity

    uint64_t pixels() const { return uint64_t{height} * width; }
    uint32_t level_of(uint8_t value) const { return shift > 7 ? 0 : (value ^ invert) >> shift; }
    uint32_t level_at(uint32_t y, uint32_t x) const {
        return level_of(source.row_at(y)[x * source.pixel]);
    }
    bool masked_out(uint32_t y, uint32_t x) const {
        return mask.at && mask.row_at(y)[x * mask.pixel] == 0;
    }
};

// Pixels of each value (not level) inside the mask; returns how many there are in all.
uint64_t count_values(const FloodImage &image, uint32_t counts[level_count]);
// The same by level, from the counts by value.
void values_to_levels(const FloodImage &image, const uint32_t values[level_count],
                      uint32_t levels[level_count]);
// Moves a seed that the mask leaves out to the first pixel inside it, in raster order; false when
// there is none.
bool settle_seed(FloodImage &image);
// The first pixel from linear index `from` on, in raster order, for which wanted(row, column)
// holds; pixels() when there is none.
template<class Wanted> uint64_t next_pixel(const FloodImage &image, uint64_t from, Wanted wanted) {
    uint32_t y = static_cast<uint32_t>(from / image.width);
    uint32_t x = static_cast<uint32_t>(from % image.width);
    for (; y < image.height; ++y, x = 0)
        for (; x < image.width; ++x)
            if (wanted(y, x)) return uint64_t{y} * image.width + x;
    return image.pixels();
}

} // namespace kipx
