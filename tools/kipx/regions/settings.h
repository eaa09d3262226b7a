// settings.h - what the region commands can be told.
//
// Gives    RegionSettings, the values that the library is called with; add_region_options, which
//          lets a command line set them; and their record.
// Promises limits that can admit no region are refused, with the option that is to blame.
#pragma once

#include "command.h"
#include "image/place.h"
#include "regions/quantise.h"

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <string>

// A region has this many pixels at least, whatever is asked for.
inline constexpr int32_t least_region = 16;

struct RegionSettings {
    int32_t delta = 5;
    int32_t min_area_pixels = 30;
    float min_area_fraction = 0; // where not 0, it counts instead
    float max_area_fraction = 0.1f;
    float max_variation = 0.3f;
    float min_diversity = 0.3f;
    bool dark = true, bright = true;
    bool eight = true; // neighbours
    bool fast = false;
    bool limits_given = false; // of areas: then a picture that they leave nothing of is refused
    Levels levels = Levels::automatic;
    std::optional<Part> roi;
    std::string mask; // a file, or empty

    // After the options are in: refuses areas that exclude each other, and raises a least area below
    // that of any region, with a note.
    void settle(const Globals &globals, const CLI::App &command);
};

void add_region_options(CLI::App &command, RegionSettings &settings);
// Every setting that changes results; the fast form is none.
nlohmann::ordered_json settings_json(const RegionSettings &settings);
