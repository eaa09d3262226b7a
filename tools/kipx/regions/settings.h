// settings.h - what the region commands can be told, and their texts on the command line.
//
// Gives    RegionSettings, the values that the library is called with; RegionArguments, the same as
//          texts; and add_region_options, which adds the options to a command.
// Promises a text that does not fit throws a Failure that names the option.
#pragma once

#include "regions/quantise.h"

#include <CLI/CLI.hpp>
#include <kipx/types.h>

#include <optional>
#include <string>

struct RegionSettings {
    int32_t delta = 5;
    int32_t min_area_pixels = 30;
    float min_area_fraction = 0;
    float max_area_fraction = 0.1f;
    float max_variation = 0.3f;
    float min_diversity = 0.3f;
    bool dark = true, bright = true;
    bool eight = true; // neighbours
    bool fast = false;
    Levels levels = Levels::automatic;
    std::optional<kipx_site> roi;
    std::string mask; // a file, or empty
};

struct RegionArguments {
    std::string delta, min_area_pixels, min_area, max_area, max_variation, min_diversity, polarity,
        connectivity, mask, roi, levels;
    bool fast = false;

    RegionSettings settings() const;
};

// The options of flooding: polarity, connectivity, mask, roi and levels.
void add_flood_options(CLI::App &command, RegionArguments &given);
// The options of stability besides.
void add_region_options(CLI::App &command, RegionArguments &given);
// Every setting that changes results, as a JSON object on one line; the fast form is none.
std::string settings_json(const RegionSettings &settings);
