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

// Pixels of the region that have a neighbour outside it, above, below, left or right.
class Outliner {
public:
    explicit Outliner(const Image &picture)
        : stride_(size_t(picture.width()) + 2), marks_(stride_ * (size_t(picture.height()) + 2)) {}

    void draw(Image &image, const std::vector<Place> &places, Colour colour) {
        ++mark_;
        for (const Place &place : places) marks_[at(place)] = mark_;
        for (const Place &place : places) {
            const uint32_t *mark = &marks_[at(place)];
            if (mark[-1] != mark_ || mark[1] != mark_ || mark[-std::ptrdiff_t(stride_)] != mark_ ||
                mark[stride_] != mark_)
                blend(image, place.x, place.y, colour, 0.9);
        }
    }

private:
    size_t at(const Place &place) const { return (place.y + size_t(1)) * stride_ + place.x + 1; }

    size_t stride_;
    std::vector<uint32_t> marks_; // the last region that each pixel, or the frame around, was in
    uint32_t mark_ = 0;
};

} // namespace

Image region_overlay(const Finder &finder, const Image &picture) {
    Image out = backdrop(picture);
    Outliner outliner(picture);
    std::vector<Place> places;
    for (const Region &region : finder.regions()) {
        finder.pixels(region, places);
        outliner.draw(out, places, region.bright ? bright_outline : dark_outline);
    }
    for (const Region &region : finder.regions())
        draw_ellipse(out, region, region.bright ? bright_ellipse : dark_ellipse);
    return out;
}
