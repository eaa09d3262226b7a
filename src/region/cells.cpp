// region/cells.cpp - getting a block of pixels ready for the fast flood.
#include "region/cells.h"

#include <algorithm>
#include <cstring>

namespace kipx {

namespace {

// Fills all border cells.
template<class Cell> void set_borders(const Block<Cell> &block, uint32_t code) {
    uint32_t gap = block.stride - block.width;
    Cell *row = block.at - block.stride;
    for (int64_t x = -1; x < int64_t{block.stride}; ++x) row[x] = static_cast<Cell>(code);
    for (uint32_t y = 0; y < block.height; ++y) {
        row += block.stride;
        for (uint32_t x = 0; x < gap; ++x) row[block.width + x] = static_cast<Cell>(code);
    }
    row += block.stride;
    for (uint32_t x = 0; x < block.stride; ++x) row[x] = static_cast<Cell>(code);
}

} // namespace

template<class Cell>
void fill_cells(const Block<Cell> &block, const FloodImage &image, uint32_t top, uint32_t left) {
    uint32_t invert = image.invert, shift = image.shift;
    if (shift > 7) invert = 0, shift = 8;
    // Copies, for a store to a cell might change what references lead to.
    const uint32_t height = block.height, width = block.width;
    const uint64_t step = image.source.pixel;
    for (uint32_t y = 0; y < height; ++y) {
        Cell *cells = block.at + uint64_t{y} * block.stride;
        const uint8_t *p = image.source.row_at(top + y) + left * step;
        if (step == 1 && shift == 0)
            for (uint32_t x = 0; x < width; ++x)
                cells[x] = static_cast<Cell>(p[x] ^ static_cast<uint8_t>(invert));
        else if (step == 1)
            for (uint32_t x = 0; x < width; ++x)
                cells[x] = static_cast<Cell>((p[x] ^ invert) >> shift);
        else
            for (uint32_t x = 0; x < width; ++x)
                cells[x] = static_cast<Cell>((p[x * step] ^ invert) >> shift);
        if (!image.mask.at) continue;
        for (uint32_t x = 0; x < width; ++x)
            if (image.masked_out(top + y, left + x)) cells[x] = static_cast<Cell>(reached<Cell>);
    }
}

void raise_pits(const Block<uint8_t> &block, Set set, uint8_t *line) {
    constexpr int passes = 2;
    // What lies beyond the border is lower than everything: no pit at the border is closed.
    uint8_t *nothing = line + block.width + 2 * pit_slack + pit_slack;
    line += pit_slack;
    std::memset(nothing - pit_slack, 0, block.width + 2 * pit_slack);
    set_borders(block, 0);
    PitRow raise = pit_rows_of(set)[0];
    int64_t height = block.height;
    auto row_at = [&](int64_t y) {
        return y < -1 || y > height ? nothing : block.at + y * int64_t{block.stride};
    };
    for (int pass = 0; pass < passes; ++pass)
        for (int64_t y = 0; y < height; ++y) {
            const uint8_t *rows[7];
            for (int64_t k = 0; k < 7; ++k) rows[k] = row_at(y + k - 3);
            raise(line, rows, block.width);
            std::memcpy(row_at(y), line, block.width);
        }
}

namespace {

// How many pixels are like the one before, like the last but one alone, and far from both.
struct Likeness {
    uint64_t next = 0, second = 0, none = 0;
};

// Counts n pixels, p (0) and p (1) being those before the first. In bytes, so that sixteen and more are
// looked at at once; n is 255 at most.
template<class At> void compare(At p, uint32_t n, Likeness &sum) {
    constexpr uint8_t far = 32;
    uint8_t next = 0, second = 0, none = 0;
    auto distance = [](uint8_t a, uint8_t b) {
        return static_cast<uint8_t>(a > b ? a - b : b - a);
    };
    for (uint32_t x = 0; x < n; ++x) {
        const uint8_t here = p(x + 2), to_next = distance(here, p(x + 1)),
                      to_second = distance(here, p(x));
        next = static_cast<uint8_t>(next + (to_next == 0));
        second = static_cast<uint8_t>(second + ((to_second == 0) & (to_next != 0)));
        none = static_cast<uint8_t>(none + ((to_next > far) & (to_second > far)));
    }
    sum.next += next, sum.second += second, sum.none += none;
}

} // namespace

Look look_of(const FloodImage &image, const Extent &part) {
    constexpr uint32_t stretch = 240;
    const uint64_t step = image.source.pixel;
    Likeness sum;
    uint64_t seen = 0;
    for (uint32_t y = 0; y < part.height; y += 8, seen += part.width)
        for (uint32_t x = 0; x + 2 < part.width; x += stretch) {
            const uint8_t *p = image.source.row_at(part.top + y) + (part.left + x) * step;
            const uint32_t n = std::min(part.width - 2 - x, stretch);
            if (step == 1)
                compare([=](uint32_t k) { return p[k]; }, n, sum);
            else
                compare([=](uint32_t k) { return p[k * step]; }, n, sum);
        }
    if (8 * sum.next >= 3 * seen) return Look::flat;
    if (2 * sum.second >= seen) return Look::woven;
    if (6 * sum.next >= seen) return Look::calm;
    return 2 * sum.none >= seen ? Look::busy : Look::soft;
}

namespace {

// Whether one of n pixels has that value.
bool any_of(const uint8_t *p, uint64_t step, uint32_t n, uint32_t value) {
    if (step == 1) return std::memchr(p, static_cast<int>(value), n) != nullptr;
    bool any = false;
    for (uint32_t k = 0; k < n; ++k) any |= p[k * step] == value;
    return any;
}

} // namespace

bool has_walls(const FloodImage &image) {
    const uint32_t wall = reached<uint8_t> ^ image.invert;
    for (uint32_t y = 0; y < image.height && image.shift == 0; ++y)
        if (any_of(image.source.row_at(y), image.source.pixel, image.width, wall)) return true;
    return false;
}

uint32_t *number_walls(const FloodImage &image, const Extent &part, uint32_t stride,
                       uint32_t *list) {
    if (image.shift > 0) return list; // no level is that high
    constexpr uint32_t stretch = 64;
    const uint32_t wall = reached<uint8_t> ^ image.invert, right = part.left + part.width;
    const uint64_t step = image.source.pixel;
    for (uint32_t y = part.top; y < part.top + part.height; ++y)
        for (uint32_t x = part.left; x < right; x += stretch) {
            const uint8_t *p = image.source.row_at(y) + x * step;
            uint32_t n = right - x < stretch ? right - x : stretch;
            if (!any_of(p, step, n, wall)) continue;
            for (uint32_t k = 0; k < n; ++k) {
                *list = y * stride + x + k;
                list += p[k * step] == wall;
            }
        }
    return list;
}

template<class Cell> void close_borders(const Block<Cell> &block, CellCounts &counts) {
    set_borders(block, reached<Cell>);
    // Eight cells that are those before once more are counted with these: a counter that is incremented
    // again and again would wait for itself.
    constexpr uint32_t batch = 8;
    uint32_t part[4][level_count + 1] = {};
    for (uint32_t y = 0; y < block.height; ++y) {
        const Cell *c = block.at + uint64_t{y} * block.stride, *const end = c + block.width;
        while (end - c >= batch) {
            uint32_t times = 0;
            do ++times, c += batch;
            while (end - c >= batch && std::memcmp(c - batch, c, batch * sizeof *c) == 0);
            for (uint32_t k = 0; k < batch; ++k) part[k % 4][(c - batch)[k]] += times;
        }
        for (; c < end; ++c) ++part[0][*c];
    }
    for (uint32_t v = 0; v <= level_count; ++v)
        counts.of[v] = part[0][v] + part[1][v] + part[2][v] + part[3][v];
}

template void fill_cells(const Block<uint8_t> &, const FloodImage &, uint32_t, uint32_t);
template void fill_cells(const Block<uint16_t> &, const FloodImage &, uint32_t, uint32_t);
template void close_borders(const Block<uint8_t> &, CellCounts &);
template void close_borders(const Block<uint16_t> &, CellCounts &);

} // namespace kipx
