// scene.cpp - see scene.h.
//
// The depth of a place in a cell is 65536 in its centre, 0 on the outline and negative outside:
// 65536 * (1 - squared elliptic distance). A field of smooth noise bends all outlines. A place
// belongs to the cell in which it lies deepest, so that touching cells share a border line.
#include "scene/scene.h"

#include "scene/noise.h"

#include <algorithm>
#include <numeric>

namespace {

constexpr int32_t full_depth = 65536;
constexpr int32_t far_outside = -2 * full_depth;
constexpr uint32_t band_rows = 32;
constexpr int32_t light_per_step = 64; // sixteenths of a photon in a step of 8 bits

// 0 to 256 as value goes from 0 to end, without a crease.
int32_t ramp(int64_t value, int64_t end) {
    if (value <= 0) return 0;
    if (value >= end) return 256;
    const int64_t t = value * 256 / end;
    return int32_t((t * t * (768 - 2 * t)) >> 16);
}

// What dust does to the light at a pixel, in 1/256: one block of 64x64 pixels in eight has a grain.
int32_t dust_at(uint64_t key, uint32_t x, uint32_t y) {
    Random random(key ^ (uint64_t(y / 64) << 32 | x / 64));
    if (random.below(8) != 0) return 0;
    const int32_t radius = random.between(20, 44);
    const int32_t dx = int32_t(x % 64 * 16) - random.between(radius, 1008 - radius);
    const int32_t dy = int32_t(y % 64 * 16) - random.between(radius, 1008 - radius);
    const int32_t gain = random.below(3) == 0 ? -110 : random.between(90, 230);
    return gain * ramp(radius * radius - dx * dx - dy * dy, radius * radius) / 256;
}

int shift_of(uint32_t pixels) {
    int shift = 4;
    while ((uint32_t(1) << (shift - 4)) < pixels) ++shift;
    return shift;
}

int64_t sixteenths(uint32_t at) { return int64_t(at) * 16 + 8; }

} // namespace

// Rows y0 to y0 + rows of the picture: the deepest and second deepest cell of every place.
struct Scene::Band {
    uint32_t y0 = 0, rows = 0;
    std::vector<int32_t> first, second;
    std::vector<uint32_t> cell;
    std::vector<int16_t> bend_x, bend_y;
};

Scene::Scene(const SceneOptions &options) : options_(options) {
    const uint64_t area = uint64_t(options.width) * options.height;
    if (options_.cells == 0) options_.cells = uint32_t(std::max<uint64_t>(area / 3600, 1));
    pitch_ = std::clamp<uint32_t>(root(area * 10 / (17 * uint64_t(options_.cells))), 6, 1024);
    warp_shift_ = shift_of(std::max<uint32_t>(pitch_ * 2 / 3, 2));
    place_cells();
}

// One slot per square of the pitch; the cells go to the slots where a smooth field and chance are
// highest, which makes clusters and clearings.
void Scene::place_cells() {
    const uint32_t columns = std::max(options_.width / pitch_, 1u);
    const uint32_t rows = std::max(options_.height / pitch_, 1u);
    const uint32_t slots = columns * rows;
    std::vector<int32_t> scores(slots);
    std::vector<uint32_t> order(slots);
    std::iota(order.begin(), order.end(), 0u);
    const uint64_t field = mixed(options_.seed ^ 0x636C7573);
    for (uint32_t slot = 0; slot < slots; ++slot) {
        Random random(mixed(field + 1) ^ slot);
        const int64_t x = int64_t(slot % columns) * 16, y = int64_t(slot / columns) * 16;
        scores[slot] = lattice_noise(field, x, y, 6) * 2 + random.between(0, 65535);
    }
    const uint32_t count = std::min(options_.cells, slots);
    std::nth_element(order.begin(), order.begin() + (count - 1), order.end(),
                     [&](uint32_t a, uint32_t b) {
                         return scores[a] != scores[b] ? scores[a] > scores[b] : a < b;
                     });
    std::sort(order.begin(), order.begin() + count);
    row_starts_.assign(rows + 1, 0);
    cells_.reserve(count);
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t column = order[i] % columns, row = order[i] / columns;
        const uint32_t shifted = 4 * column + (row % 2 ? 3 : 1); // every other row by half a slot
        cells_.push_back(make_cell(
            order[i], int64_t(options_.width) * 16 * shifted / (int64_t(4) * columns),
            int64_t(options_.height) * 16 * (int64_t(2) * row + 1) / (int64_t(2) * rows)));
        ++row_starts_[row + 1];
    }
    std::partial_sum(row_starts_.begin(), row_starts_.end(), row_starts_.begin());
}

Scene::Cell Scene::make_cell(uint64_t slot, int64_t x, int64_t y) const {
    Random random(mixed(options_.seed ^ 0x63656C6C) ^ slot);
    const int32_t unit = int32_t(pitch_) * 16;
    Cell cell = {};
    cell.x = x + random.between(-unit * 28 / 100, unit * 28 / 100);
    cell.y = y + random.between(-unit * 28 / 100, unit * 28 / 100);
    cell.across = unit * random.between(38, 60) / 100;
    cell.along = cell.across * random.between(100, 155) / 100;
    int32_t i = 0, j = 0;
    while (i == 0 && j == 0) {
        i = random.between(-1000, 1000);
        j = random.between(-1000, 1000);
    }
    const auto length = int32_t(root(uint64_t(int64_t(i) * i + int64_t(j) * j)));
    cell.cosine = i * 32768 / length;
    cell.sine = j * 32768 / length;
    cell.along_scale = (int64_t(1) << 40) / (int64_t(cell.along) * cell.along);
    cell.across_scale = (int64_t(1) << 40) / (int64_t(cell.across) * cell.across);
    cell.edge = std::min<int32_t>(full_depth * 16 * 5 / cell.across, 50000);
    const bool dark = random.below(100) < 34;
    cell.contrast = dark ? random.between(-150, -95) : random.between(110, 300);
    cell.nucleus_x = random.between(-cell.along / 5, cell.along / 5);
    cell.nucleus_y = random.between(-cell.across / 5, cell.across / 5);
    cell.nucleus_scale = random.between(36, 50);
    cell.nucleus_contrast = dark ? random.between(30, 70) : random.between(60, 130);
    return cell;
}

int32_t Scene::illumination_at(uint32_t x, uint32_t y) const {
    // Distances from a point off the middle, in 1/1024 of the longer side.
    const int64_t side = std::max(options_.width, options_.height);
    const int64_t dx = (int64_t(x) * 1024 - int64_t(options_.width) * 430) / side;
    const int64_t dy = (int64_t(y) * 1024 - int64_t(options_.height) * 560) / side;
    const int64_t falling = 1024 - (dx * dx + dy * dy) * 860 / (1024 * 1024) * 2;
    const int64_t light = 88 * light_per_step * falling * 1024 / (1024 * 1024) + dx * 2;
    return int32_t(std::max<int64_t>(light, 10 * light_per_step));
}

void Scene::add_depth(Band &band, uint32_t index) const {
    const Cell &cell = cells_[index];
    const int64_t reach = cell.along * 3 / 2 + int64_t(pitch_) * 6;
    const int64_t x_begin = std::max<int64_t>((cell.x - reach) >> 4, 0);
    const int64_t x_end = std::min<int64_t>((cell.x + reach) >> 4, options_.width);
    const int64_t y_begin = std::max<int64_t>((cell.y - reach) >> 4, band.y0);
    const int64_t y_end = std::min<int64_t>((cell.y + reach) >> 4, band.y0 + band.rows);
    for (int64_t y = y_begin; y < y_end; ++y)
        for (int64_t x = x_begin; x < x_end; ++x) {
            const size_t at = size_t(y - band.y0) * options_.width + size_t(x);
            const int64_t dx = sixteenths(uint32_t(x)) - cell.x + band.bend_x[at];
            const int64_t dy = sixteenths(uint32_t(y)) - cell.y + band.bend_y[at];
            const int64_t u = (dx * cell.cosine + dy * cell.sine) >> 15;
            const int64_t v = (dy * cell.cosine - dx * cell.sine) >> 15;
            const int64_t distance = (u * u * cell.along_scale + v * v * cell.across_scale) >> 24;
            if (distance >= full_depth - far_outside) continue;
            const auto depth = int32_t(full_depth - distance);
            if (depth > band.first[at]) {
                band.second[at] = band.first[at];
                band.first[at] = depth;
                band.cell[at] = index;
            } else if (depth > band.second[at]) {
                band.second[at] = depth;
            }
        }
}

void Scene::find_depths(Band &band) const {
    const size_t count = size_t(band.rows) * options_.width;
    band.first.assign(count, far_outside);
    band.second.assign(count, far_outside);
    band.cell.assign(count, 0);
    band.bend_x.resize(count);
    band.bend_y.resize(count);
    const uint64_t field = mixed(options_.seed ^ 0x62656E64);
    const auto amplitude = int32_t(pitch_ * 16 * 14 / 100);
    for (uint32_t y = 0; y < band.rows; ++y)
        for (uint32_t x = 0; x < options_.width; ++x) {
            const size_t at = size_t(y) * options_.width + x;
            const int64_t px = sixteenths(x), py = sixteenths(band.y0 + y);
            band.bend_x[at] =
                int16_t(lattice_noise(field, px, py, warp_shift_) * amplitude / 32768);
            band.bend_y[at] =
                int16_t(lattice_noise(field + 1, px, py, warp_shift_) * amplitude / 32768);
        }
    // Cells stand at most half a slot and their reach from their row of slots: three rows each way.
    const auto rows = int64_t(row_starts_.size()) - 1;
    const int64_t begin = int64_t(band.y0) * rows / options_.height - 3;
    const int64_t end = int64_t(band.y0 + band.rows) * rows / options_.height + 4;
    const uint32_t first = row_starts_[size_t(std::clamp<int64_t>(begin, 0, rows))];
    const uint32_t last = row_starts_[size_t(std::clamp<int64_t>(end, 0, rows))];
    for (uint32_t index = first; index < last; ++index) add_depth(band, index);
}

bool Scene::inside(const Band &band, size_t at) const {
    return !cells_.empty() && band.first[at] >= cells_[band.cell[at]].edge / 2;
}

int32_t Scene::light_at(const Band &band, size_t at, uint32_t x, uint32_t y) const {
    const int64_t px = sixteenths(x), py = sixteenths(y);
    const uint64_t grain = mixed(options_.seed ^ 0x67726169);
    const int32_t haze = lattice_noise(grain, px, py, warp_shift_ + 2) / 2048;
    const int32_t dust = dust_at(mixed(options_.seed ^ 0x64757374), x, y);
    const int64_t light = int64_t(illumination_at(x, y)) * (512 + haze + dust * 2) / 512;
    const int32_t depth = band.first[at];
    if (cells_.empty() || depth <= far_outside) return int32_t(light);
    const Cell &cell = cells_[band.cell[at]];
    if (depth <= 0) { // the halo that a phase plate leaves around a cell
        const int32_t halo = ramp(depth + cell.edge * 2, cell.edge * 2);
        return int32_t(light + light * halo * (cell.contrast < 0 ? 26 : 8) / 65536);
    }
    // The body: fades in over the edge, higher in the middle, with a furrow towards a neighbour.
    const int32_t fade = ramp(depth, cell.edge);
    const int32_t furrow = ramp(int64_t(depth) - band.second[at], cell.edge);
    const int32_t dome = 168 + 88 * (depth >> 8) / 256;
    const int32_t coarse = lattice_noise(grain + 1, px, py, std::max(warp_shift_ - 1, 5));
    const int32_t fine = lattice_noise(grain + 2, px, py, std::max(warp_shift_ - 3, 5));
    const int32_t texture = 256 + (coarse * 3 + fine * 7) / 4096;
    int64_t gain = int64_t(cell.contrast) * fade * dome / 65536 * texture / 256 *
                   (120 + furrow * 136 / 256) / 256;
    // The nucleus: the same ellipse, smaller and off the middle, with darker spots.
    const int64_t dx = px - cell.x + band.bend_x[at] / 2, dy = py - cell.y + band.bend_y[at] / 2;
    const int64_t u = ((dx * cell.cosine + dy * cell.sine) >> 15) - cell.nucleus_x;
    const int64_t v = ((dy * cell.cosine - dx * cell.sine) >> 15) - cell.nucleus_y;
    const int64_t size = int64_t(cell.nucleus_scale) * cell.nucleus_scale;
    const int64_t away =
        (u * u * cell.along_scale + v * v * cell.across_scale) / size * 10000 >> 24;
    const int32_t nucleus = ramp(full_depth - away, std::min(cell.edge * 2, full_depth));
    const int32_t spots = 256 - ramp(fine - 9000, 9000) * 100 / 256;
    gain += int64_t(cell.nucleus_contrast) * nucleus / 256 * spots / 256 * fade / 256;
    return int32_t(std::clamp<int64_t>(light + light * gain / 256, 0, UINT16_MAX));
}

Image Scene::light(Image *labels) const {
    Image out({KIPX_U16, options_.width, options_.height, 1});
    if (labels) *labels = Image({KIPX_S32, options_.width, options_.height, 1});
    Band band;
    for (uint32_t y0 = 0; y0 < options_.height; y0 += band_rows) {
        band.y0 = y0;
        band.rows = std::min(band_rows, options_.height - y0);
        find_depths(band);
        const size_t count = size_t(band.rows) * options_.width,
                     start = size_t(y0) * options_.width;
        for (size_t at = 0; at < count; ++at) {
            const auto x = uint32_t(at % options_.width), y = y0 + uint32_t(at / options_.width);
            out.as<uint16_t>()[start + at] = uint16_t(light_at(band, at, x, y));
            if (labels && inside(band, at))
                labels->as<int32_t>()[start + at] = int32_t(band.cell[at]) + 1;
        }
    }
    return out;
}

Image Scene::illumination() const {
    Image out({KIPX_U16, options_.width, options_.height, 1});
    for (uint32_t y = 0; y < options_.height; ++y)
        for (uint32_t x = 0; x < options_.width; ++x)
            out.as<uint16_t>()[size_t(y) * options_.width + x] = uint16_t(illumination_at(x, y));
    return out;
}

namespace {

constexpr int32_t read_noise = 6 * 16; // deviation, in sixteenths of a photon

template<class Value> Image camera(const Image &light, Value &&value) {
    Image out({KIPX_U8, light.width(), light.height(), light.channels()});
    const auto *in = light.as<uint16_t>();
    for (uint64_t i = 0; i < light.elements(); ++i) {
        const int32_t charge = std::clamp(value(i, int32_t(in[i])), 0, int32_t(UINT16_MAX));
        out.data()[i] = uint8_t(std::min((charge + light_per_step / 2) / light_per_step, 255));
    }
    return out;
}

} // namespace

Image noisy_frame(const Image &light, uint64_t key) {
    const uint64_t start = mixed(key ^ 0x6672616D65);
    return camera(light, [start](uint64_t i, int32_t expected) {
        Random random(start + i);
        const int32_t arrived = photons(random, expected); // before the draw for the read-out
        return arrived * 16 + normal(random) * read_noise / 256;
    });
}

Image exposed(const Image &light) {
    return camera(light, [](uint64_t, int32_t expected) { return expected; });
}

uint64_t frame_key(uint64_t seed, uint64_t number) { return mixed(seed) + number; }
