// settings.cpp - see settings.h.
#include "regions/settings.h"

#include "failure.h"
#include "options.h"

#include <nlohmann/json.hpp>

namespace {

Choices<Levels> level_words() {
    return {{"auto", Levels::automatic}, {"linear", Levels::linear}, {"equal", Levels::equal}};
}

const char *polarity_word(const RegionSettings &settings) {
    return settings.dark && settings.bright ? "both" : settings.dark ? "dark" : "bright";
}

// A float as its shortest decimal, not as the binary64 next to it.
double decimal(float value) { return std::stod(fmt::format("{}", value)); }

} // namespace

void RegionSettings::settle(const Globals &globals, const CLI::App &command) {
    limits_given =
        command.count("--min-area-px") + command.count("--min-area") + command.count("--max-area") >
        0;
    if (min_area_fraction > max_area_fraction)
        fail("--min-area: got {}, more than --max-area {}; expected no more", min_area_fraction,
             max_area_fraction);
    if (min_area_pixels >= least_region) return;
    globals.note(fmt::format("--min-area-px: got {}, taken as {}, which every region has",
                             min_area_pixels, least_region));
    min_area_pixels = least_region;
}

void add_region_options(CLI::App &command, RegionSettings &settings) {
    const auto fraction = [&](const char *name, float &value, const CLI::Validator &validator,
                              const char *form, const char *help) {
        return add_value(command, name, value, validator, form, help);
    };
    add_value(command, "--delta-levels", settings.delta, whole(1, 255), "N",
              "Levels over which the area is compared")
        ->capture_default_str();
    auto *pixels = add_value(command, "--min-area-px", settings.min_area_pixels,
                             whole(1, INT32_MAX), "N", "Smallest region, pixels; 16 at least")
                       ->capture_default_str();
    fraction("--min-area", settings.min_area_fraction, above(0, 1), "FRAC",
             "Smallest region, as a fraction of the picture or --roi; 16 pixels at least")
        ->excludes(pixels);
    fraction("--max-area", settings.max_area_fraction, above(0, 1), "FRAC",
             "Largest region, as a fraction")
        ->capture_default_str();
    fraction("--max-variation", settings.max_variation, real(0, 1), "V",
             "Largest relative growth over N levels")
        ->capture_default_str();
    fraction("--min-diversity", settings.min_diversity, real(0, 1), "V",
             "Smallest relative difference of area between nested regions")
        ->capture_default_str();
    const auto polarity = [&settings](const std::string &word) {
        settings.dark = word != "bright";
        settings.bright = word != "dark";
    };
    command
        .add_option_function<std::string>("--polarity", polarity,
                                          "Regions darker or brighter than what is around them")
        ->check(word_of({"dark", "bright", "both"}))
        ->type_name("dark|bright|both")
        ->default_str("both");
    add_choice(command, "--connectivity", settings.eight, {{"4", false}, {"8", true}},
               "Neighbours of a pixel");
    add_value(command, "--mask", settings.mask, filled(), "FILE",
              "Pixels that are 0 in this image do not count");
    add_part(command, "--roi", settings.roi, "Look at this part of the image only");
    add_choice(
        command, "--levels", settings.levels, level_words(),
        "How images of more than 8 bits become 256 levels: linear, equal shares of pixels, or "
        "whichever keeps the values apart, linear rather");
}

nlohmann::ordered_json settings_json(const RegionSettings &settings) {
    auto out = nlohmann::ordered_json::object();
    out["delta_levels"] = settings.delta;
    if (settings.min_area_fraction > 0)
        out["min_area"] = decimal(settings.min_area_fraction);
    else
        out["min_area_px"] = settings.min_area_pixels;
    out["max_area"] = decimal(settings.max_area_fraction);
    out["max_variation"] = decimal(settings.max_variation);
    out["min_diversity"] = decimal(settings.min_diversity);
    out["polarity"] = polarity_word(settings);
    out["connectivity"] = settings.eight ? 8 : 4;
    for (const auto &[word, levels] : level_words())
        if (levels == settings.levels) out["levels"] = word;
    out["mask"] = nullptr;
    if (!settings.mask.empty()) out["mask"] = settings.mask;
    out["roi"] = nullptr;
    if (const auto &roi = settings.roi) out["roi"] = {roi->x, roi->y, roi->width, roi->height};
    return out;
}
