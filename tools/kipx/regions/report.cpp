// report.cpp - see report.h: the texts and the labels.
#include "regions/report.h"

#include "regions/text.h"

#include <algorithm>
#include <numbers>
#include <numeric>

namespace {

constexpr double degrees = 180 / std::numbers::pi;

// The value at which the region ends: the last one inside.
double end_value(const Region &region, const GreyLevels &levels) {
    return (region.bright ? levels.least : levels.greatest)[size_t(region.level)];
}

const char *polarity(const Region &region) { return region.bright ? "bright" : "dark"; }

void append_measures(std::string &out, const Region &region, const GreyLevels &levels) {
    const Ellipse ellipse = ellipse_of(region.moments);
    const Box &box = region.box;
    append(out, "\"level\": %d, \"value\": %s, \"area\": %d, \"variation\": %.6f,", region.level,
           json_number(end_value(region, levels)).c_str(), region.area, region.variation);
    append(out, " \"centroid\": [%.6f, %.6f], \"moments\": {\"xx\": %.6f, \"xy\": %.6f, ", region.x,
           region.y, kipx_mf_Mxx(&region.moments), kipx_mf_Mxy(&region.moments));
    append(out, "\"yy\": %.6f}, \"angle\": %.6f, \"half_axes\": [%.6f, %.6f],",
           kipx_mf_Myy(&region.moments), ellipse.angle * degrees, ellipse.along, ellipse.across);
    append(out, " \"box\": [%u, %u, %u, %u]", box.x0, box.y0, box.x1 - box.x0 + 1,
           box.y1 - box.y0 + 1);
}

} // namespace

std::string regions_csv(const Finder &finder, const GreyLevels &levels) {
    std::string out = "id,polarity,level,value,area,variation,parent,children,depth,x,y,mxx,mxy,"
                      "myy,angle,half_axis_long,half_axis_short,box_x,box_y,box_width,box_height\n";
    int32_t id = 0;
    for (const Region &region : finder.regions()) {
        const Ellipse ellipse = ellipse_of(region.moments);
        const Box &box = region.box;
        append(out, "%d,%s,%d,%.10g,%d,%.6f,%d,%u,%u,", ++id, polarity(region), region.level,
               end_value(region, levels), region.area, region.variation, region.parent + 1,
               region.children, region.depth);
        append(out, "%.6f,%.6f,%.6f,%.6f,%.6f,%.6f,", region.x, region.y,
               kipx_mf_Mxx(&region.moments), kipx_mf_Mxy(&region.moments),
               kipx_mf_Myy(&region.moments), ellipse.angle * degrees);
        append(out, "%.6f,%.6f,%u,%u,%u,%u\n", ellipse.along, ellipse.across, box.x0, box.y0,
               box.x1 - box.x0 + 1, box.y1 - box.y0 + 1);
    }
    return out;
}

namespace {

// The list is in the order of a walk: what is deeper than its forerunner is nested in it.
void append_group(std::string &out, const Finder &finder, const GreyLevels &levels, bool bright) {
    const auto &regions = finder.regions();
    uint32_t open = 0; // regions whose lists of children are being written
    bool first = true;
    out += "[";
    for (size_t i = 0; i < regions.size(); ++i) {
        const Region &region = regions[i];
        if (region.bright != bright) continue;
        for (; open > region.depth; --open) out += "]}";
        out += first ? "\n" : ",\n";
        out.append(4 + 2 * size_t(region.depth), ' ');
        append(out, "{\"id\": %zu, ", i + 1);
        append_measures(out, region, levels);
        out += ", \"children\": [";
        ++open;
        first = region.children > 0;
    }
    for (; open > 0; --open) out += "]}";
    out += "]";
}

} // namespace

std::string regions_json(const Finder &finder, const GreyLevels &levels, const std::string &source,
                         const Shape &shape, const RegionSettings &settings) {
    std::string out = "{\n  \"image\": {\"file\": " + json_text(source);
    append(out, ", \"width\": %u, \"height\": %u, \"channels\": %u, \"type\": \"%s\"},\n",
           shape.width, shape.height, shape.channels, name_of(shape.type));
    append(out, "  \"levels\": {\"values\": %llu, \"kept\": %llu, \"lost\": %llu, \"how\": ",
           static_cast<unsigned long long>(levels.values),
           static_cast<unsigned long long>(levels.used),
           static_cast<unsigned long long>(levels.lost()));
    out += json_text(levels.way) + "},\n  \"settings\": " + settings_json(settings);
    out += ",\n  \"dark\": ";
    append_group(out, finder, levels, false);
    out += ",\n  \"bright\": ";
    append_group(out, finder, levels, true);
    return out + "\n}\n";
}

Image region_labels(const Finder &finder, const Image &levels) {
    const auto &regions = finder.regions();
    std::vector<size_t> order(regions.size());
    std::iota(order.begin(), order.end(), size_t(0));
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t a, size_t b) { return regions[a].area > regions[b].area; });
    Image out({KIPX_S32, levels.width(), levels.height(), 1});
    std::vector<Place> places;
    for (const size_t i : order) {
        finder.pixels(regions[i], places);
        for (const Place &place : places)
            out.as<int32_t>()[size_t(place.y) * out.width() + place.x] = int32_t(i) + 1;
    }
    return out;
}
