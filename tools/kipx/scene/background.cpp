// background.cpp - see background.h.
#include "scene/background.h"

#include <algorithm>
#include <numeric>
#include <vector>

namespace {

struct Tiles {
    uint32_t columns, rows;
    std::vector<int32_t> values; // in 1/16 of a step
};

// The middle of the nine values around a peak of the smoothed histogram, in 1/16.
int32_t most_frequent(const std::vector<uint32_t> &histogram) {
    constexpr int reach = 4;
    int best = 0;
    uint64_t most = 0;
    for (int value = 0; value < 256; ++value) {
        uint64_t sum = 0;
        for (int i = std::max(value - reach, 0); i <= std::min(value + reach, 255); ++i)
            sum += histogram[size_t(i)];
        if (sum > most) {
            most = sum;
            best = value;
        }
    }
    uint64_t weight = 0, moment = 0;
    for (int i = std::max(best - reach, 0); i <= std::min(best + reach, 255); ++i) {
        weight += histogram[size_t(i)];
        moment += uint64_t(histogram[size_t(i)]) * uint64_t(i) * 16;
    }
    return int32_t(moment / std::max<uint64_t>(weight, 1));
}

Tiles measure(const Image &picture, uint32_t channel) {
    const uint32_t side = std::max(std::max(picture.width(), picture.height()) / 12, 16u);
    Tiles tiles{std::max(picture.width() / side, 1u), std::max(picture.height() / side, 1u), {}};
    for (uint32_t row = 0; row < tiles.rows; ++row)
        for (uint32_t column = 0; column < tiles.columns; ++column) {
            std::vector<uint32_t> histogram(256);
            const auto bound = [](uint32_t i, uint32_t n, uint32_t size) {
                return uint32_t(uint64_t(size) * i / n);
            };
            for (uint32_t y = bound(row, tiles.rows, picture.height());
                 y < bound(row + 1, tiles.rows, picture.height()); ++y)
                for (uint32_t x = bound(column, tiles.columns, picture.width());
                     x < bound(column + 1, tiles.columns, picture.width()); ++x)
                    ++histogram[picture.row(y)[size_t(x) * picture.channels() + channel]];
            tiles.values.push_back(most_frequent(histogram));
        }
    return tiles;
}

// Every tile becomes what rule makes of the values in its neighbourhood.
template<class Rule> Tiles filtered(const Tiles &in, Rule &&rule) {
    Tiles out = in;
    for (uint32_t row = 0; row < in.rows; ++row)
        for (uint32_t column = 0; column < in.columns; ++column) {
            std::vector<int32_t> around;
            for (uint32_t r = row ? row - 1 : 0; r <= std::min(row + 1, in.rows - 1); ++r)
                for (uint32_t c = column ? column - 1 : 0;
                     c <= std::min(column + 1, in.columns - 1); ++c)
                    around.push_back(in.values[size_t(r) * in.columns + c]);
            out.values[size_t(row) * in.columns + column] = rule(around);
        }
    return out;
}

int32_t median(std::vector<int32_t> &values) {
    const auto middle = values.begin() + std::ptrdiff_t(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

int32_t mean(std::vector<int32_t> &values) {
    return std::accumulate(values.begin(), values.end(), 0) / int32_t(values.size());
}

// Between which two of n tiles along an axis a place lies, and how far, in 1/256; before the first
// and behind the last centre the line through the two nearest goes on.
struct Between {
    uint32_t low, high;
    int64_t part;
};

Between between(uint32_t at, uint32_t size, uint32_t n) {
    if (n == 1) return {0, 0, 0};
    const int64_t place = (int64_t(at) * 2 + 1) * n * 128 / size - 128;
    const auto low = uint32_t(std::clamp<int64_t>(place / 256, 0, n - 2));
    return {low, low + 1, place - int64_t(low) * 256};
}

} // namespace

Image estimated_background(const Image &picture) {
    Image out(picture.shape());
    for (uint32_t channel = 0; channel < picture.channels(); ++channel) {
        const Tiles tiles = filtered(filtered(measure(picture, channel), median), mean);
        for (uint32_t y = 0; y < picture.height(); ++y) {
            const Between v = between(y, picture.height(), tiles.rows);
            const int32_t *top = &tiles.values[size_t(v.low) * tiles.columns];
            const int32_t *bottom = &tiles.values[size_t(v.high) * tiles.columns];
            for (uint32_t x = 0; x < picture.width(); ++x) {
                const Between h = between(x, picture.width(), tiles.columns);
                const int64_t upper = top[h.low] * (256 - h.part) + top[h.high] * h.part;
                const int64_t lower = bottom[h.low] * (256 - h.part) + bottom[h.high] * h.part;
                const int64_t value = (upper * (256 - v.part) + lower * v.part + (1 << 19)) >> 20;
                out.row(y)[size_t(x) * picture.channels() + channel] =
                    uint8_t(std::clamp<int64_t>(value, 0, 255));
            }
        }
    }
    return out;
}
