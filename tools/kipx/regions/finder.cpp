// finder.cpp - see finder.h.
#include "regions/finder.h"

#include "failure.h"

#include <kipx/array.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

namespace {

constexpr uint32_t kept_flag = 1;

template<class State> State state_of(const KipxWTSregion *record, const KipxWTSFDs &feature) {
    State out;
    std::memcpy(&out, reinterpret_cast<const char *>(record) + feature.state_offset, sizeof out);
    return out;
}

KipxWTSregion *region_of(const KipxSTnode *node) {
    return static_cast<KipxWTSregion *>(node->data);
}

// What the detection took as the region's variation.
double variation_of(const KipxWTSregion *record, bool bright, int32_t delta) {
    const int32_t level = level_of(record, bright);
    for (const KipxSTnode *node = record->node->parent; node; node = node->parent) {
        const int32_t difference = std::abs(level_of(region_of(node), bright) - level);
        if (difference < delta) continue;
        return difference > delta ? 0
                                  : double(__KipxMSERregionVariationAbs(record, region_of(node)));
    }
    return 0;
}

// The part of an image that a region of interest covers.
kipx_site clipped(const Image &image, const RegionSettings &settings) {
    const kipx_arr arr = image.arr();
    kipx_site out = {};
    kipx_arr_siteof(&arr, &out);
    if (!settings.roi) return out;
    const Part &part = *settings.roi;
    const kipx_site roi = {{0, part.y, part.x, 0}, {1, part.height, part.width, 1}};
    if (!kipx_arr_adjorgetRoi(&arr, &out, &roi))
        fail("--roi: got {},{}, which lies outside the picture of {}x{}", part.x, part.y,
             image.width(), image.height());
    return out;
}

} // namespace

int32_t level_of(const KipxWTSregion *record, bool bright) {
    // Detection has put the levels of stable bright regions on the image's scale already.
    return bright && !(record->kept & kept_flag) ? 255 - record->level : record->level;
}

Image mask_of(const Image &given, const std::string &name, const GreyLevels &levels) {
    if (!given.data() && !levels.mask.data()) return {};
    Image out({KIPX_U8, levels.image.width(), levels.image.height(), 1});
    if (!given.data()) {
        std::copy(levels.mask.data(), levels.mask.data() + out.pixels(), out.data());
        return out;
    }
    if (given.width() != out.width() || given.height() != out.height())
        fail("--mask: got '{}' of {}x{}, expected the picture's {}x{}", name, given.width(),
             given.height(), out.width(), out.height());
    with_type(given.type(), [&](auto sample) {
        const auto *in = given.as<decltype(sample)>();
        for (uint64_t i = 0; i < given.elements(); ++i)
            if (double(in[i]) < 0 || double(in[i]) > 0) out.data()[i / given.channels()] = 255;
    });
    if (levels.mask.data())
        for (uint64_t i = 0; i < out.pixels(); ++i) out.data()[i] &= levels.mask.data()[i];
    return out;
}

double Region::eccentricity() const {
    return ellipse.a > 0 ? std::sqrt(1 - ellipse.b * ellipse.b / (ellipse.a * ellipse.a)) : 0;
}

Finder::Finder(const GreyLevels &levels, const Image *mask, const RegionSettings &settings)
    : settings_(settings), levels_(levels), mask_(mask && mask->data() ? mask : nullptr),
      site_(clipped(levels.image, settings)) {
    if (settings.limits_given) check_limits();
    KipxWTSMFinitFeatureDs(&features_[0], nullptr);
    KipxWTSPFinitFeatureDs(&features_[1], nullptr);
    // The fast store keeps the pixels itself.
    KipxWTSLSCinit(&context_.levelset, features_, settings.fast ? 1 : 2, nullptr, nullptr);
    context_.delta = settings.delta;
    context_.min_area_fraction = settings.min_area_fraction;
    context_.max_area_fraction = settings.max_area_fraction;
    context_.max_variation = settings.max_variation;
    context_.min_diversity = settings.min_diversity;
    context_.min_area_pixels = settings.min_area_pixels;
    context_.polarity = settings.dark && settings.bright ? 2 : settings.bright ? 1 : 0;
    context_.connectivity = settings.eight ? 1 : 0;
}

Finder::~Finder() { KipxMSERrelease(&context_); }

// The limits of areas leave something in a picture of this size.
void Finder::check_limits() const {
    const float greatest =
        std::floor(float(extent()) * settings_.max_area_fraction); // as the flood
    const int32_t least =
        settings_.min_area_fraction > 0 ? least_region : settings_.min_area_pixels;
    if (double(greatest) < least)
        fail("--max-area: got {}, which is {} of the {} pixels here, less than the least area of "
             "{}; "
             "expected limits that leave something",
             settings_.max_area_fraction, greatest, extent(), least);
}

void Finder::check(int32_t answer) const {
    if (answer == KIPX_EEMPTY) fail("the mask leaves no pixel to look at");
    if (answer == KIPX_EINVAL)
        fail("the library refuses {}x{} pixels; at most 65536 rows and columns and {} pixels are "
             "flooded",
             site_.extent[2], site_.extent[1], settings_.fast ? "2^27" : "2^28");
    check_answer(answer, "stable regions");
}

void Finder::find() {
    const kipx_arr src = levels_.image.arr();
    const kipx_arr mask = mask_ ? mask_->arr() : kipx_arr{};
    kipx_pos at = {};
    std::copy(site_.origin, site_.origin + 4, at.at);
    const auto form = settings_.fast ? KipxGenerateFMSERsEx : KipxGenerateMSERsEx;
    check(form(environment_.get(), 0, &src, mask_ ? &mask : nullptr, &site_, &at, &context_));
}

void Finder::describe() {
    const struct {
        bool bright;
        KipxSTB *builder;
        KipxWTSregion **entries;
        uint32_t count;
    } groups[] = {{false, context_.dark_builder, context_.dark, context_.dark_count},
                  {true, context_.bright_builder, context_.bright, context_.bright_count}};
    for (const auto &group : groups) {
        if (group.count == 0) continue;
        check(KipxGatherMSERsFeatures(group.builder, group.entries, group.count));
        for (uint32_t i = 0; i < group.count; ++i)
            regions_.push_back(measure(group.entries[i], group.bright));
    }
    sort_and_nest();
}

Region Finder::measure(KipxWTSregion *record, bool bright) {
    Region out = {};
    out.record = record;
    out.moments = state_of<KipxWTSMF>(record, features_[0]);
    out.bright = bright;
    out.level = record->level;
    out.area = record->area;
    out.variation = variation_of(record, bright, settings_.delta);
    out.parent = -1;
    out.box = Box{};
    out.x = kipx_mf_mx(&out.moments) + site_.origin[2];
    out.y = kipx_mf_my(&out.moments) + site_.origin[1];
    std::vector<Place> places;
    pixels(out, places);
    for (const Place &place : places) out.box.take(place);
    raster_.set(out.box, places);
    out.perimeter = raster_.perimeter();
    measure_shape(out);
    with_type(levels_.grey().type(), [&](auto sample) {
        using T = decltype(sample);
        measure_values<T>(out);
    });
    return out;
}

// Of every row the corners of its outermost pixels are on the hull, if any are.
void Finder::measure_shape(Region &region) const {
    const KipxWTSMF &m = region.moments;
    check(kipx_r2d_ellipse_from_moments(&region.ellipse, m.count, m.column, m.row, m.column_column,
                                        m.row_column, m.row_row));
    region.ellipse.x = region.x, region.ellipse.y = region.y;
    std::vector<kipx_2d_point> corners, hull;
    const Box &box = region.box;
    for (uint32_t y = box.y0; y <= box.y1; ++y) {
        uint32_t from = box.x0, to = box.x1 + 1;
        while (from < to && !raster_.inside(from, y)) ++from;
        if (from == to) continue;
        while (!raster_.inside(to - 1, y)) --to;
        for (const uint32_t x : {from, to})
            for (const uint32_t side : {y, y + 1}) corners.push_back({int32_t(x), int32_t(side)});
    }
    hull.resize(corners.size());
    const int32_t count = kipx_2d_points_least_rect(&region.rect, hull.data(), hull.size(),
                                                    corners.data(), corners.size());
    check(std::min(count, 0));
    check(kipx_2d_polygon_area(&region.hull_area, hull.data(), size_t(count)));
}

// In raster order, so that sums of floats do not depend on the flood's.
template<class T> void Finder::measure_values(Region &region) const {
    const Image &grey = levels_.grey();
    double sum = 0;
    bool first = true;
    for (uint32_t y = region.box.y0; y <= region.box.y1; ++y) {
        const T *row = reinterpret_cast<const T *>(grey.row(y));
        for (uint32_t x = region.box.x0; x <= region.box.x1; ++x) {
            if (!raster_.inside(x, y)) continue;
            const auto value = double(row[x]);
            if (first) {
                region.first = uint64_t(y) * grey.width() + x;
                region.least = region.greatest = value;
                first = false;
            }
            region.least = std::min(region.least, value);
            region.greatest = std::max(region.greatest, value);
            sum += value;
        }
    }
    region.mean = sum / region.area;
}

void Finder::pixels(const Region &region, std::vector<Place> &out) const {
    const auto area = uint32_t(region.area);
    out.resize(area);
    const uint32_t x0 = site_.origin[2], y0 = site_.origin[1];
    if (!settings_.fast) {
        const auto list = state_of<KipxWTSPF>(region.record, features_[1]);
        if (list.count != area) fail("stable regions: a pixel list is not complete");
        for (uint32_t i = 0; i < area; ++i)
            out[i] = {list.entries[i].column + x0, list.entries[i].row + y0};
        return;
    }
    KipxSTB *builder = region.bright ? context_.bright_builder : context_.dark_builder;
    pairs_.resize(size_t(area) * 2);
    kipx_fwtsr_fetch2D(KipxFWTSRESfrombuilder(builder), region.record, 0, area, pairs_.data());
    for (uint32_t i = 0; i < area; ++i) out[i] = {pairs_[2 * i + 1] + x0, pairs_[2 * i] + y0};
}

const KipxST *Finder::tree(bool bright) const {
    KipxSTB *builder = bright ? context_.bright_builder : context_.dark_builder;
    return builder ? __KipxSTBtree(builder) : nullptr;
}

namespace {

// The stable region around each region, by its place in the list, or -1.
std::vector<int32_t> parents_of(const std::vector<Region> &regions) {
    std::vector<std::pair<const KipxWTSregion *, int32_t>> places;
    for (size_t i = 0; i < regions.size(); ++i) places.emplace_back(regions[i].record, int32_t(i));
    std::sort(places.begin(), places.end());
    std::vector<int32_t> out;
    for (const Region &region : regions) {
        const KipxSTnode *node = region.record->node->parent;
        while (node && !(region_of(node)->kept & kept_flag)) node = node->parent;
        out.push_back(-1);
        if (!node) continue;
        const std::pair<const KipxWTSregion *, int32_t> wanted(region_of(node), 0);
        out.back() = std::lower_bound(places.begin(), places.end(), wanted)->second;
    }
    return out;
}

} // namespace

// Sorted by their first pixels, the larger one first where two share it, regions come after those
// around them. From there on each takes its place behind what its elder siblings hold.
void Finder::sort_and_nest() {
    std::sort(regions_.begin(), regions_.end(), [](const Region &a, const Region &b) {
        if (a.bright != b.bright) return b.bright;
        return a.first != b.first ? a.first < b.first : a.area > b.area;
    });
    const std::vector<int32_t> parents = parents_of(regions_);
    const size_t count = regions_.size();
    std::vector<int32_t> sizes(count, 1), places(count), next(count);
    for (size_t i = count; i-- > 0;)
        if (parents[i] >= 0) sizes[size_t(parents[i])] += sizes[i];
    int32_t free = 0;
    std::vector<Region> sorted(count);
    for (size_t i = 0; i < count; ++i) {
        int32_t &slot = parents[i] < 0 ? free : next[size_t(parents[i])];
        places[i] = slot;
        next[i] = slot + 1;
        slot += sizes[i];
        Region &region = sorted[size_t(places[i])] = regions_[i];
        if (parents[i] < 0) continue;
        region.parent = places[size_t(parents[i])];
        Region &outer = sorted[size_t(region.parent)];
        region.depth = outer.depth + 1;
        ++outer.children;
    }
    regions_ = std::move(sorted);
}
