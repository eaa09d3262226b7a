// overlay.cpp - outlines and ellipses over a picture. See report.h.
#include "regions/report.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

struct Colour {
    uint8_t red, green, blue;
};

constexpr Colour dark_outline = {40, 140, 255}, bright_outline = {255, 120, 0};
constexpr Colour dark_ellipse = {150, 215, 255}, bright_ellipse = {255, 225, 120};

// The picture in RGB, without alpha.
Image backdrop(const Image &picture) {
    Image out({KIPX_U8, picture.width(), picture.height(), 3});
    const uint32_t channels = picture.channels();
    for (uint64_t i = 0; i < picture.pixels(); ++i)
        for (uint32_t c = 0; c < 3; ++c)
            out.data()[3 * i + c] = picture.data()[i * channels + (channels < 3 ? 0 : c)];
    return out;
}

void blend(Image &image, int64_t x, int64_t y, Colour colour, double part) {
    if (x < 0 || y < 0 || x >= image.width() || y >= image.height()) return;
    uint8_t *pixel = image.row(uint32_t(y)) + 3 * x;
    const uint8_t wanted[] = {colour.red, colour.green, colour.blue};
    for (int c = 0; c < 3; ++c)
        pixel[c] = uint8_t(std::lround(pixel[c] + (wanted[c] - pixel[c]) * part));
}

// Half a pixel wide and smooth: each point is spread over the four pixels around it.
void draw_ellipse(Image &image, const Region &region, Colour colour) {
    const Ellipse ellipse = ellipse_of(region.moments);
    const double c = std::cos(ellipse.angle), s = std::sin(ellipse.angle);
    const int points = std::clamp(int(ellipse.along * 8), 16, 20000);
    for (int i = 0; i < points; ++i) {
        const double at = 2 * std::numbers::pi * i / points;
        const double u = ellipse.along * std::cos(at), v = ellipse.across * std::sin(at);
        const double x = region.x + u * c - v * s, y = region.y + u * s + v * c;
        const double x0 = std::floor(x), y0 = std::floor(y), dx = x - x0, dy = y - y0;
        const auto column = int64_t(x0), row = int64_t(y0);
        blend(image, column, row, colour, (1 - dx) * (1 - dy) * 0.8);
        blend(image, column + 1, row, colour, dx * (1 - dy) * 0.8);
        blend(image, column, row + 1, colour, (1 - dx) * dy * 0.8);
        blend(image, column + 1, row + 1, colour, dx * dy * 0.8);
    }
}

// Outlines of regions. Holes of less than a twentieth of the region count as filled: in noisy
// pictures regions are full of them.
class Outliner {
public:
    void draw(Image &image, const Region &region, const std::vector<Place> &places, Colour colour) {
        box_ = region.box;
        stride_ = size_t(box_.x1 - box_.x0) + 3;
        cells_.assign(stride_ * (size_t(box_.y1 - box_.y0) + 3), outside);
        for (const Place &place : places) cells_[at(place)] = inside;
        fill_holes(places.size() / 20);
        for (const Place &place : places) {
            const uint8_t *cell = &cells_[at(place)];
            if (cell[-1] == around || cell[1] == around ||
                cell[-std::ptrdiff_t(stride_)] == around || cell[stride_] == around)
                blend(image, place.x, place.y, colour, 0.9);
        }
    }

private:
    enum Cell : uint8_t { outside, inside, around }; // around: outside and no small hole

    size_t at(const Place &place) const {
        return (place.y - box_.y0 + size_t(1)) * stride_ + (place.x - box_.x0) + 1;
    }

    // The frame of the box is outside, so that what lies around the region is one part, and the
    // first; every other part is a hole.
    void fill_holes(size_t limit) {
        for (size_t start = 0; start < cells_.size(); ++start) {
            if (cells_[start] != outside) continue;
            part_.assign(1, start);
            cells_[start] = around;
            for (size_t i = 0; i < part_.size(); ++i) {
                const size_t cell = part_[i], column = cell % stride_;
                if (column > 0) take(cell - 1);
                if (column + 1 < stride_) take(cell + 1);
                if (cell >= stride_) take(cell - stride_);
                if (cell + stride_ < cells_.size()) take(cell + stride_);
            }
            if (start == 0 || part_.size() > limit) continue;
            for (const size_t cell : part_) cells_[cell] = inside;
        }
    }

    void take(size_t cell) {
        if (cells_[cell] != outside) return;
        cells_[cell] = around;
        part_.push_back(cell);
    }

    Box box_;
    size_t stride_ = 0;
    std::vector<uint8_t> cells_; // the region's box with a frame of one pixel
    std::vector<size_t> part_;
};

} // namespace

Image region_overlay(const Finder &finder, const Image &picture) {
    Image out = backdrop(picture);
    Outliner outliner;
    std::vector<Place> places;
    for (const Region &region : finder.regions()) {
        finder.pixels(region, places);
        outliner.draw(out, region, places, region.bright ? bright_outline : dark_outline);
    }
    for (const Region &region : finder.regions())
        draw_ellipse(out, region, region.bright ? bright_ellipse : dark_ellipse);
    return out;
}
