// overlay.cpp - outlines, ellipses and numbers over a picture. See report.h.
#include "regions/report.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace {

struct Colour {
    uint8_t red, green, blue;
};

// Outline and ellipse of dark regions and of bright ones.
struct Palette {
    Colours name;
    const char *word;
    Colour outline[2], ellipse[2];
};

constexpr Palette palettes[] = {
    {Colours::blue_orange,
     "blue-orange",
     {{40, 140, 255}, {255, 120, 0}},
     {{150, 215, 255}, {255, 225, 120}}},
    {Colours::green_magenta,
     "green-magenta",
     {{0, 200, 60}, {230, 0, 220}},
     {{150, 255, 170}, {255, 170, 250}}},
    {Colours::cyan_yellow,
     "cyan-yellow",
     {{0, 225, 235}, {250, 225, 0}},
     {{170, 250, 255}, {255, 250, 170}}},
    {Colours::red_white,
     "red-white",
     {{235, 20, 30}, {255, 255, 255}},
     {{255, 160, 160}, {225, 225, 225}}},
};

// Regions of fewer pixels have a thin outline and no ellipse, which would hide them.
constexpr int32_t small_area = 300;

// The picture in RGB, without alpha.
Image backdrop(const Image &picture) {
    Image out({KIPX_U8, picture.width(), picture.height(), 3});
    const uint32_t channels = picture.channels();
    for (uint64_t i = 0; i < picture.pixels(); ++i)
        for (uint32_t c = 0; c < 3; ++c)
            out.data()[3 * i + c] = picture.data()[i * channels + (channels < 3 ? 0 : c)];
    return out;
}

// How much of the picture is nearly of one of the outline's hues, in a sample of its pixels. What is
// grey is near no hue, so that grey pictures keep the first palette.
uint64_t alike(const Image &picture, const Palette &palette) {
    const uint64_t step = std::max<uint64_t>(picture.pixels() / 20000, 1);
    uint64_t out = 0;
    for (uint64_t i = 0; i < picture.pixels(); i += step) {
        const uint8_t *pixel = picture.data() + 3 * i;
        const auto [least, most] = std::minmax({pixel[0], pixel[1], pixel[2]});
        if (most - least < 24) continue;
        for (const Colour &colour : palette.outline) {
            const auto [low, high] = std::minmax({colour.red, colour.green, colour.blue});
            if (high - low < 24) continue;
            const double scale = double(most - least) / (high - low);
            const double away = std::abs((colour.red - low) * scale - (pixel[0] - least)) +
                                std::abs((colour.green - low) * scale - (pixel[1] - least)) +
                                std::abs((colour.blue - low) * scale - (pixel[2] - least));
            out += away < 0.7 * (most - least);
        }
    }
    return out;
}

const Palette &palette_for(const Image &picture, Colours wanted) {
    const Palette *best = &palettes[0];
    uint64_t least = UINT64_MAX;
    for (const Palette &palette : palettes) {
        if (palette.name == wanted) return palette;
        if (const uint64_t share = alike(picture, palette); share < least) {
            least = share;
            best = &palette;
        }
    }
    return *best;
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
    const kipx_r2d_ellipse &ellipse = region.ellipse;
    const int points = std::clamp(int(ellipse.a * 8), 16, 20000);
    for (int i = 0; i < points; ++i) {
        const double at = 2 * std::numbers::pi * i / points;
        const double u = ellipse.a * std::cos(at), v = ellipse.b * std::sin(at);
        const double x = ellipse.x + u * ellipse.ux - v * ellipse.uy;
        const double y = ellipse.y + u * ellipse.uy + v * ellipse.ux;
        const double x0 = std::floor(x), y0 = std::floor(y), dx = x - x0, dy = y - y0;
        const auto column = int64_t(x0), row = int64_t(y0);
        blend(image, column, row, colour, (1 - dx) * (1 - dy) * 0.8);
        blend(image, column + 1, row, colour, dx * (1 - dy) * 0.8);
        blend(image, column, row + 1, colour, (1 - dx) * dy * 0.8);
        blend(image, column + 1, row + 1, colour, dx * dy * 0.8);
    }
}

// Holes of less than a twentieth of the region count as filled.
void draw_outline(Image &image, Raster &raster, const Region &region, Colour colour) {
    raster.fill_holes(size_t(region.area) / 20);
    const double part = region.area < small_area ? 0.5 : 0.9;
    for (uint32_t y = region.box.y0; y <= region.box.y1; ++y)
        for (uint32_t x = region.box.x0; x <= region.box.x1; ++x)
            if (raster.at_border(x, y)) blend(image, x, y, colour, part);
}

// Digits of 3 by 5 dots, a row in three bits.
constexpr std::array<uint16_t, 10> digit_shapes = {075557, 026227, 071747, 071717, 055711,
                                                   074717, 074757, 071122, 075757, 075717};

// A number with its middle at a place, white on black.
void draw_number(Image &image, int32_t number, double x, double y) {
    const std::string text = std::to_string(number);
    const auto left = int64_t(std::lround(x)) - 2 * int64_t(text.size());
    const auto top = int64_t(std::lround(y)) - 2;
    for (int64_t row = -1; row <= 5; ++row)
        for (int64_t column = -1; column < 4 * int64_t(text.size()); ++column)
            blend(image, left + column, top + row, {0, 0, 0}, 0.7);
    for (size_t i = 0; i < text.size(); ++i)
        for (int dot = 0; dot < 15; ++dot)
            if (digit_shapes[size_t(text[i] - '0')] >> (14 - dot) & 1)
                blend(image, left + 4 * int64_t(i) + dot % 3, top + dot / 3, {255, 255, 255}, 1);
}

} // namespace

std::vector<std::pair<std::string, Colours>> colour_words() {
    std::vector<std::pair<std::string, Colours>> out = {{"auto", Colours::chosen}};
    for (const Palette &palette : palettes) out.emplace_back(palette.word, palette.name);
    return out;
}

Image region_overlay(const Finder &finder, const Image &picture, const OverlayStyle &style) {
    Image out = backdrop(picture);
    const Palette &palette = palette_for(out, style.colours);
    Raster raster;
    std::vector<Place> places;
    for (const Region &region : finder.regions()) {
        finder.pixels(region, places);
        raster.set(region.box, places);
        draw_outline(out, raster, region, palette.outline[region.bright]);
    }
    for (const Region &region : finder.regions())
        if (region.area >= small_area) draw_ellipse(out, region, palette.ellipse[region.bright]);
    int32_t id = 0;
    for (const Region &region : finder.regions())
        if (++id; style.ids) draw_number(out, id, region.x, region.y);
    return out;
}
