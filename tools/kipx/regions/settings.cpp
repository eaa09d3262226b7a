// settings.cpp - see settings.h.
#include "regions/settings.h"

#include "failure.h"
#include "options.h"
#include "regions/text.h"

#include <cstdio>

namespace {

// A fraction from least to greatest; an empty text leaves the value.
void take(float &value, const char *option, const std::string &text, double least,
          double greatest) {
    if (!text.empty()) value = float(real_number(option, text, least, greatest));
}

void take(int32_t &value, const char *option, const std::string &text, int32_t least,
          int32_t greatest) {
    if (!text.empty()) value = int32_t(whole_number(option, text, least, greatest));
}

kipx_site site(const std::vector<uint32_t> &numbers) {
    kipx_site out = {};
    out.origin[1] = numbers[1];
    out.origin[2] = numbers[0];
    out.extent[0] = 1;
    out.extent[1] = numbers[3];
    out.extent[2] = numbers[2];
    out.extent[3] = 1;
    return out;
}

} // namespace

RegionSettings RegionArguments::settings() const {
    RegionSettings out;
    take(out.delta, "--delta-levels", delta, 1, 255);
    take(out.min_area_pixels, "--min-area-px", min_area_pixels, 1, INT32_MAX);
    take(out.min_area_fraction, "--min-area", min_area, 0, 1);
    take(out.max_area_fraction, "--max-area", max_area, 0, 1);
    take(out.max_variation, "--max-variation", max_variation, 0, 1);
    take(out.min_diversity, "--min-diversity", min_diversity, 0, 1);
    if (!polarity.empty()) {
        const int chosen =
            choice<int>("--polarity", polarity, {{"dark", 1}, {"bright", 2}, {"both", 3}});
        out.dark = chosen & 1;
        out.bright = chosen & 2;
    }
    if (!connectivity.empty())
        out.eight = choice<bool>("--connectivity", connectivity, {{"4", false}, {"8", true}});
    if (!levels.empty())
        out.levels = choice<Levels>(
            "--levels", levels,
            {{"auto", Levels::automatic}, {"linear", Levels::linear}, {"equal", Levels::equal}});
    if (!roi.empty()) {
        const auto box = numbers("--roi", roi, ',', 4, "x,y,w,h");
        if (box[2] == 0 || box[3] == 0)
            fail("--roi: got '", roi, "', expected a width and a height of at least 1");
        out.roi = site(box);
    }
    out.mask = mask;
    out.fast = fast;
    return out;
}

void add_flood_options(CLI::App &command, RegionArguments &given) {
    command
        .add_option("--polarity", given.polarity,
                    "Regions darker or brighter than what is around them")
        ->type_name("dark|bright|both")
        ->check(filled);
    command
        .add_option("--connectivity", given.connectivity, "Neighbours of a pixel: 8 (default) or 4")
        ->type_name("4|8")
        ->check(filled);
    command.add_option("--mask", given.mask, "Pixels that are 0 in this image do not count")
        ->type_name("FILE")
        ->check(filled);
    command.add_option("--roi", given.roi, "Look at this part of the image only")
        ->type_name("x,y,w,h")
        ->check(filled);
    command
        .add_option("--levels", given.levels,
                    "How images of more than 8 bits become 256 levels: linear, equal shares of "
                    "pixels, or auto (default): whichever keeps the values apart, linear rather")
        ->type_name("auto|linear|equal")
        ->check(filled);
}

void add_region_options(CLI::App &command, RegionArguments &given) {
    const RegionSettings standard;
    const auto with_default = [](const char *text, double value) {
        char number[32];
        std::snprintf(number, sizeof number, " (default %.3g)", value);
        return std::string(text) + number;
    };
    command
        .add_option("--delta-levels", given.delta,
                    with_default("Levels over which the area is compared", standard.delta))
        ->type_name("N")
        ->check(filled);
    auto *pixels = command
                       .add_option("--min-area-px", given.min_area_pixels,
                                   with_default("Smallest region, pixels; 16 at least",
                                                standard.min_area_pixels))
                       ->type_name("N")
                       ->check(filled);
    command
        .add_option("--min-area", given.min_area,
                    "Smallest region, as a fraction of the picture or --roi; 16 pixels at least")
        ->type_name("FRAC")
        ->check(filled)
        ->excludes(pixels);
    command
        .add_option(
            "--max-area", given.max_area,
            with_default("Largest region, as a fraction", double(standard.max_area_fraction)))
        ->type_name("FRAC")
        ->check(filled);
    command
        .add_option(
            "--max-variation", given.max_variation,
            with_default("Largest relative growth over N levels", double(standard.max_variation)))
        ->type_name("V")
        ->check(filled);
    command
        .add_option("--min-diversity", given.min_diversity,
                    with_default("Smallest relative difference of area between nested regions",
                                 double(standard.min_diversity)))
        ->type_name("V")
        ->check(filled);
    add_flood_options(command, given);
}

std::string settings_json(const RegionSettings &settings) {
    static constexpr const char *levels[] = {"auto", "linear", "equal"};
    std::string out;
    append(out, "{\"delta_levels\": %d, ", settings.delta);
    if (settings.min_area_fraction > 0)
        append(out, "\"min_area\": %.7g, ", double(settings.min_area_fraction));
    else
        append(out, "\"min_area_px\": %d, ", settings.min_area_pixels);
    append(out, "\"max_area\": %.7g, \"max_variation\": %.7g, \"min_diversity\": %.7g, ",
           double(settings.max_area_fraction), double(settings.max_variation),
           double(settings.min_diversity));
    append(out, "\"polarity\": \"%s\", \"connectivity\": %d, \"levels\": \"%s\", \"mask\": ",
           settings.dark && settings.bright ? "both"
           : settings.dark                  ? "dark"
                                            : "bright",
           settings.eight ? 8 : 4, levels[int(settings.levels)]);
    out += settings.mask.empty() ? "null" : json_text(settings.mask);
    out += ", \"roi\": ";
    if (settings.roi)
        append(out, "[%u, %u, %u, %u]}", settings.roi->origin[2], settings.roi->origin[1],
               settings.roi->extent[2], settings.roi->extent[1]);
    else
        out += "null}";
    return out;
}
