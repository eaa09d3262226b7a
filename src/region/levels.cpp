// region/levels.cpp - histograms and seeds of flooded images.
#include "region/levels.h"

#include <cstring>

namespace kipx {
namespace {

void count_row(const uint8_t *p, uint64_t step, uint32_t n, uint32_t counts[4][level_count]) {
    uint32_t x = 0;
    for (; x + 4 <= n; x += 4, p += 4 * step) {
        ++counts[0][p[0]];
        ++counts[1][p[step]];
        ++counts[2][p[2 * step]];
        ++counts[3][p[3 * step]];
    }
    for (; x < n; ++x, p += step) ++counts[0][*p];
}

void count_masked_row(const FloodImage &image, uint32_t y, uint32_t *counts) {
    const uint8_t *p = image.source.row_at(y), *m = image.mask.row_at(y);
    for (uint32_t x = 0; x < image.width; ++x)
        counts[p[x * image.source.pixel]] += m[x * image.mask.pixel] != 0;
}

} // namespace

uint64_t count_values(const FloodImage &image, uint32_t counts[level_count]) {
    uint32_t part[4][level_count];
    std::memset(part, 0, sizeof part);
    for (uint32_t y = 0; y < image.height; ++y) {
        if (image.mask.at)
            count_masked_row(image, y, part[0]);
        else
            count_row(image.source.row_at(y), image.source.pixel, image.width, part);
    }
    uint64_t total = 0;
    for (uint32_t v = 0; v < level_count; ++v) {
        counts[v] = part[0][v] + part[1][v] + part[2][v] + part[3][v];
        total += counts[v];
    }
    return total;
}

void values_to_levels(const FloodImage &image, const uint32_t values[level_count],
                      uint32_t levels[level_count]) {
    std::memset(levels, 0, level_count * sizeof *levels);
    for (uint32_t v = 0; v < level_count; ++v)
        levels[image.level_of(static_cast<uint8_t>(v))] += values[v];
}

bool settle_seed(FloodImage &image) {
    if (!image.masked_out(image.seed_row, image.seed_column)) return true;
    uint64_t at =
        next_pixel(image, 0, [&](uint32_t y, uint32_t x) { return !image.masked_out(y, x); });
    if (at == image.pixels()) return false;
    image.seed_row = static_cast<uint32_t>(at / image.width);
    image.seed_column = static_cast<uint32_t>(at % image.width);
    return true;
}

} // namespace kipx
