// steps.h - what the demo does, as tables of steps that hand their results on.
//
// Gives    State, which the steps share; scene_steps, which make the demo's own picture: a scene seen
//          by a noisy camera, averaged, its background taken away; file_steps, which read a picture
//          instead; region_steps, which find its stable regions, draw and write them.
// Costs    a State holds every picture until it goes: some 40 bytes a pixel beside the frames.
#pragma once

#include "command.h"
#include "regions/report.h"

#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

struct DemoArguments {
    std::string image, folder = "demo";
    uint32_t frames = 16, page = 1;
    Extent size = {1920, 1080};
    uint64_t seed = 1;
    OverlayStyle style;
    RegionSettings settings;
};

struct State {
    State(const Globals &all, const DemoArguments &arguments) : globals(all), given(arguments) {}

    const Globals &globals;
    const DemoArguments &given;
    RegionSettings settings;
    Environment environment;
    Image light; // what the camera looks at
    Image truth; // labels of the scene's cells
    std::vector<Image> frames;
    Image mean, background, difference, flat;
    std::vector<std::pair<std::string, const Image *>> pictures; // file names and what they hold
    Origin origin;

    Image picture; // what regions are found in
    GreyLevels levels;
    Image mask;
    std::unique_ptr<Finder> finder;
    double find_seconds = 0;
    Image labels, overlay;
    std::string csv, json, svg;
};

// What a step worked on, for its rate (0: none), and what it has to say.
struct Done {
    uint64_t pixels;
    std::string note;
};

struct Step {
    const char *name;
    Done (*work)(State &state);
};

extern const std::span<const Step> scene_steps, file_steps, region_steps;

// All files that a demo may write, and its note of those that it did write.
inline constexpr const char *demo_files[] = {
    "frame.png",  "mean.png",    "background.png", "flat.png",     "difference.tif", "truth.tif",
    "labels.tif", "overlay.png", "regions.csv",    "regions.json", "tree.svg"};
std::string demo_note(const std::string &folder);

// Root of the mean squared difference to the light, in steps of 8 bits.
double noise_of(const Image &picture, const Image &light);

// The scene's cells that a stable region finds: one that has more than half in common with the cell,
// counted in pixels of either.
struct Found {
    uint32_t cells, found;
    double mean_overlap; // of those found
};
Found found_cells(const State &state);
