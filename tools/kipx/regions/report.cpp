// report.cpp - see report.h: the texts and the labels.
#include "regions/report.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>

namespace {

// Begins as an object or an array: one that is null and becomes either is left broken when memory
// fails on the way.
using Json = nlohmann::ordered_json;

constexpr double degrees = 180 / std::numbers::pi;

// The value at which the region ends: the last one inside.
double end_value(const Region &region, const GreyLevels &levels) {
    return (region.bright ? levels.least : levels.greatest)[size_t(region.level)];
}

const char *polarity(const Region &region) { return region.bright ? "bright" : "dark"; }

double angle_of(const kipx_r2d_ellipse &ellipse) {
    double angle = 0;
    kipx_r2d_ellipse_angle(&angle, &ellipse);
    return angle * degrees;
}

// Of the rectangle; the angle of its longer sides, above -90 and up to 90 degrees.
struct LeastRect {
    double length, width, angle;

    explicit LeastRect(const kipx_r2d_quad &quad) {
        const kipx_r2d_point *at = quad.at;
        const double dx = at[1].x - at[0].x, dy = at[1].y - at[0].y;
        length = std::hypot(dx, dy), width = std::hypot(at[2].x - at[1].x, at[2].y - at[1].y);
        const bool turned = dx < 0 || (!(dx > 0) && dy < 0);
        angle = std::atan2(turned ? -dy : dy, turned ? -dx : dx) * degrees;
    }
};

// With as many digits as the table has.
double six_digits(double value) {
    return std::abs(value) < 1e9 ? std::round(value * 1e6) / 1e6 : value;
}

std::string dump(const Json &value) {
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

} // namespace

std::string json_lines(const Json &record) {
    std::string out = "{";
    for (const auto &[key, value] : record.items()) {
        out += (out.size() > 1 ? ",\n  " : "\n  ") + dump(key) + ": ";
        if (!value.is_array() || value.empty() || !value.front().is_object()) {
            out += dump(value);
            continue;
        }
        const char *separator = "[\n    ";
        for (const Json &part : value) {
            out += separator + dump(part);
            separator = ",\n    ";
        }
        out += "\n  ]";
    }
    return out + "\n}\n";
}

std::string csv_field(const std::string &text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string out = "\"";
    for (const char c : text) out.append(c == '"' ? 2 : 1, c);
    return out + '"';
}

std::string regions_csv(const Finder &finder, const GreyLevels &levels, const Origin &origin) {
    std::string out =
        "file,page,id,polarity,level,value,area,variation,parent,children,depth,x,y,mxx,mxy,myy,"
        "angle,half_axis_long,half_axis_short,box_x,box_y,box_width,box_height,eccentricity,"
        "perimeter,hull_area,solidity,rect_length,rect_width,rect_angle,intensity_mean,"
        "intensity_min,intensity_max\n";
    const std::string lead = fmt::format("{},{}", csv_field(origin.file), origin.page);
    int32_t id = 0;
    for (const Region &region : finder.regions()) {
        const LeastRect rect(region.rect);
        const Box &box = region.box;
        auto to = std::back_inserter(out);
        fmt::format_to(to, "{},{},{},{},{:.10g},{},{:.6f},{},{},{},", lead, ++id, polarity(region),
                       region.level, end_value(region, levels), region.area, region.variation,
                       region.parent + 1, region.children, region.depth);
        fmt::format_to(to, "{:.6f},{:.6f},{:.6f},{:.6f},{:.6f},{:.6f},{:.6f},{:.6f},", region.x,
                       region.y, kipx_mf_Mxx(&region.moments), kipx_mf_Mxy(&region.moments),
                       kipx_mf_Myy(&region.moments), angle_of(region.ellipse), region.ellipse.a,
                       region.ellipse.b);
        fmt::format_to(to, "{},{},{},{},{:.6f},{:.6f},{:.10g},{:.6f},{:.6f},{:.6f},{:.6f},", box.x0,
                       box.y0, box.width(), box.height(), region.eccentricity(), region.perimeter,
                       region.hull_area, region.solidity(), rect.length, rect.width, rect.angle);
        fmt::format_to(to, "{:.10g},{:.10g},{:.10g}\n", region.mean, region.least, region.greatest);
    }
    return out;
}

namespace {

Json box_json(const Box &box) { return {box.x0, box.y0, box.width(), box.height()}; }

Json measures(const Region &region, size_t id, const GreyLevels &levels) {
    const LeastRect rect(region.rect);
    return {{"id", id},
            {"level", region.level},
            {"value", end_value(region, levels)},
            {"area", region.area},
            {"variation", six_digits(region.variation)},
            {"centroid", {six_digits(region.x), six_digits(region.y)}},
            {"moments",
             {{"xx", six_digits(kipx_mf_Mxx(&region.moments))},
              {"xy", six_digits(kipx_mf_Mxy(&region.moments))},
              {"yy", six_digits(kipx_mf_Myy(&region.moments))}}},
            {"angle", six_digits(angle_of(region.ellipse))},
            {"half_axes", {six_digits(region.ellipse.a), six_digits(region.ellipse.b)}},
            {"eccentricity", six_digits(region.eccentricity())},
            {"perimeter", six_digits(region.perimeter)},
            {"hull_area", region.hull_area},
            {"solidity", six_digits(region.solidity())},
            {"least_rect",
             {{"length", six_digits(rect.length)},
              {"width", six_digits(rect.width)},
              {"angle", six_digits(rect.angle)}}},
            {"intensity",
             {{"mean", six_digits(region.mean)}, {"min", region.least}, {"max", region.greatest}}},
            {"box", box_json(region.box)}};
}

// Regions come after those around them, so that the last of them can be closed first.
Json group(const Finder &finder, const GreyLevels &levels, bool bright) {
    const auto &regions = finder.regions();
    std::vector<Json> records(regions.size(), Json::array()); // of those in each
    Json out = Json::array();
    for (size_t i = regions.size(); i-- > 0;) {
        const Region &region = regions[i];
        if (region.bright != bright) continue;
        Json record = measures(region, i + 1, levels);
        std::reverse(records[i].begin(), records[i].end());
        record["children"] = std::move(records[i]);
        (region.parent < 0 ? out : records[size_t(region.parent)]).push_back(std::move(record));
    }
    std::reverse(out.begin(), out.end());
    return out;
}

Json image_json(const Origin &origin) {
    Json out = {{"file", origin.file}, {"page", origin.page}, {"pages", origin.pages}};
    out["sha256"] = nullptr;
    if (!origin.hash.empty()) out["sha256"] = origin.hash;
    out["width"] = origin.shape.width;
    out["height"] = origin.shape.height;
    out["channels"] = origin.shape.channels;
    out["type"] = name_of(origin.shape.type);
    return out;
}

} // namespace

std::string regions_json(const Finder &finder, const GreyLevels &levels, const Origin &origin,
                         const RegionSettings &settings) {
    Json out = Json::object();
    out["kipx"] = KIPX_VERSION;
    out["image"] = image_json(origin);
    out["levels"] = {{"values", levels.values},
                     {"kept", levels.used},
                     {"lost", levels.lost()},
                     {"how", levels.way}};
    out["settings"] = settings_json(settings);
    out["dark"] = group(finder, levels, false);
    out["bright"] = group(finder, levels, true);
    return json_lines(out);
}

namespace {

// Calls what(region, id) with every region's raster filled.
template<class What> void each_raster(const Finder &finder, What &&what) {
    Raster raster;
    std::vector<Place> places;
    size_t id = 0;
    for (const Region &region : finder.regions()) {
        finder.pixels(region, places);
        raster.set(region.box, places);
        what(region, ++id, raster);
    }
}

Json ring_json(const Ring &ring) {
    Json out = Json::array();
    for (const Place &corner : ring) out.push_back({corner.x, corner.y});
    out.push_back(out.front()); // closed
    return out;
}

Json geometry(const Raster &raster) {
    Json polygons = Json::array();
    for (const Polygon &polygon : raster.polygons()) {
        Json rings = Json::array({ring_json(polygon.outer)});
        for (const Ring &hole : polygon.holes) rings.push_back(ring_json(hole));
        polygons.push_back(std::move(rings));
    }
    const bool single = polygons.size() == 1;
    return {{"type", single ? "Polygon" : "MultiPolygon"},
            {"coordinates", single ? polygons.front() : polygons}};
}

} // namespace

std::string regions_runs(const Finder &finder, const Origin &origin) {
    const Extent size = finder.size();
    Json out = Json::object();
    out["info"] = {{"description", "stable regions, kipx " KIPX_VERSION}};
    out["images"] = Json::array(
        {{{"id", 1}, {"file_name", origin.file}, {"width", size.width}, {"height", size.height}}});
    out["categories"] = {{{"id", 1}, {"name", "dark"}}, {{"id", 2}, {"name", "bright"}}};
    Json &annotations = out["annotations"] = Json::array();
    each_raster(finder, [&](const Region &region, size_t id, const Raster &raster) {
        Json runs = {{"size", {size.height, size.width}}, {"counts", raster.runs(size)}};
        annotations.push_back({{"id", id},
                               {"image_id", 1},
                               {"category_id", region.bright ? 2 : 1},
                               {"area", region.area},
                               {"bbox", box_json(region.box)},
                               {"iscrowd", 1},
                               {"segmentation", std::move(runs)}});
    });
    return json_lines(out);
}

std::string regions_outlines(const Finder &finder) {
    Json out = Json::object();
    out["type"] = "FeatureCollection";
    Json &features = out["features"] = Json::array();
    each_raster(finder, [&](const Region &region, size_t id, const Raster &raster) {
        Json properties = {{"polarity", polarity(region)},
                           {"area", region.area},
                           {"level", region.level},
                           {"parent", region.parent + 1}};
        features.push_back({{"type", "Feature"},
                            {"id", id},
                            {"properties", std::move(properties)},
                            {"geometry", geometry(raster)}});
    });
    return json_lines(out);
}

Image region_labels(const Finder &finder) {
    const auto &regions = finder.regions();
    std::vector<size_t> order(regions.size());
    std::iota(order.begin(), order.end(), size_t(0));
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t a, size_t b) { return regions[a].area > regions[b].area; });
    Image out({KIPX_S32, finder.size().width, finder.size().height, 1});
    std::vector<Place> places;
    for (const size_t i : order) {
        finder.pixels(regions[i], places);
        for (const Place &place : places)
            out.as<int32_t>()[size_t(place.y) * out.width() + place.x] = int32_t(i) + 1;
    }
    return out;
}
