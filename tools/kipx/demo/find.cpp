// find.cpp - the steps from a picture to its stable regions. See steps.h.
#include "demo/steps.h"
#include "failure.h"
#include "image/files.h"
#include "regions/icicle.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <map>

namespace {

namespace fs = std::filesystem;

std::string source_name(const State &state) {
    if (state.given.image.empty())
        return "scene " + state.given.size + ", seed " + state.given.seed;
    return fs::path(state.given.image).filename().string();
}

Done find_regions(State &state) {
    Image given;
    if (!state.settings.mask.empty()) given = state.globals.load(state.settings.mask);
    state.mask = mask_of(given, state.settings.mask, state.levels);
    state.finder = std::make_unique<Finder>(state.levels.image, &state.mask, state.settings);
    const auto start = std::chrono::steady_clock::now();
    state.finder->find();
    state.find_seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return {state.finder->extent(), "KipxGenerateFMSERs, from dark to bright and back"};
}

Done measure(State &state) {
    state.finder->describe();
    const auto &regions = state.finder->regions();
    const auto bright =
        std::count_if(regions.begin(), regions.end(), [](const Region &r) { return r.bright; });
    uint64_t pixels = 0;
    for (const Region &region : regions) pixels += uint64_t(region.area);
    return {pixels, std::to_string(regions.size() - size_t(bright)) + " dark and " +
                        std::to_string(bright) + " bright regions, moments and pixels gathered"};
}

Done draw(State &state) {
    const Finder &finder = *state.finder;
    state.csv = regions_csv(finder, state.levels);
    state.json = regions_json(finder, state.levels, source_name(state), state.picture.shape(),
                              state.settings);
    state.labels = region_labels(finder, state.levels.image);
    state.overlay = region_overlay(finder, state.picture);
    std::vector<RegionTree> trees;
    size_t nodes = 0;
    for (const bool bright : {false, true}) {
        if (!finder.tree(bright)) continue;
        trees.push_back(tree_of(finder.tree(bright), bright));
        nodes += trees.back().nodes.size();
    }
    state.svg = icicle_svg(trees, source_name(state));
    return {state.picture.pixels(),
            "outlines, ellipses, and the trees of " + std::to_string(nodes) + " nested regions"};
}

using Text = std::pair<const char *, const std::string *>;

// Nothing is written when one of the results would replace what was read.
void check_results(const State &state, std::span<const Text> texts) {
    std::vector<std::string> names;
    for (const auto &[name, image] : state.pictures) names.push_back(name);
    for (const auto &[name, text] : texts) names.push_back(name);
    for (const std::string &name : names) {
        const fs::path result = fs::path(state.given.folder) / name;
        std::error_code error; // one of the two is not there, or none was given
        for (const std::string &input : {state.given.image, state.settings.mask})
            if (fs::equivalent(result, input, error))
                fail("--output: got '", state.given.folder, "', expected a folder where ", name,
                     " is not the picture or mask that is read");
    }
}

Done write_all(State &state) {
    std::error_code error;
    const fs::path folder = state.given.folder;
    const Text texts[] = {
        {"regions.csv", &state.csv}, {"regions.json", &state.json}, {"tree.svg", &state.svg}};
    fs::create_directories(folder, error);
    if (error) fail(state.given.folder, ": cannot make this folder: ", error.message());
    state.pictures.emplace_back("labels.tif", &state.labels);
    state.pictures.emplace_back("overlay.png", &state.overlay);
    check_results(state, texts);
    std::string names;
    for (const auto &[name, image] : state.pictures) {
        names += " " + name;
        write_image(*image, (folder / name).string());
    }
    for (const auto &[name, text] : texts) {
        names += std::string(" ") + name;
        write_text(*text, (folder / name).string());
    }
    return {state.picture.pixels() * state.pictures.size(), state.given.folder + ":" + names};
}

Done check_pictures(State &state) {
    for (const auto &[name, image] : state.pictures) {
        const std::string path = (fs::path(state.given.folder) / name).string();
        const Image again = read_image(path, state.globals.pixel_limit());
        if (again.type() != image->type() || again.bytes() != image->bytes() ||
            std::memcmp(again.data(), image->data(), image->bytes()) != 0)
            fail(path, ": what was read back differs from what was written");
    }
    return {state.picture.pixels() * state.pictures.size(),
            "all " + std::to_string(state.pictures.size()) + " pictures hold the same bytes"};
}

constexpr Step table[] = {
    {"find stable regions", find_regions},
    {"measure them", measure},
    {"draw", draw},
    {"write", write_all},
    {"read back and compare", check_pictures},
};

} // namespace

const std::span<const Step> region_steps = table;

Found found_cells(const State &state) {
    const auto *truth = state.truth.as<int32_t>();
    std::map<int32_t, uint64_t> sizes;
    for (uint64_t i = 0; i < state.truth.pixels(); ++i)
        if (truth[i]) ++sizes[truth[i]];
    std::map<int32_t, double> best;
    std::vector<Place> places;
    for (const Region &region : state.finder->regions()) {
        state.finder->pixels(region, places);
        std::map<int32_t, uint64_t> common;
        for (const Place &place : places)
            ++common[truth[size_t(place.y) * state.truth.width() + place.x]];
        for (const auto &[cell, count] : common) {
            if (cell == 0) continue;
            const uint64_t either = sizes[cell] + places.size() - count;
            double &overlap = best[cell];
            overlap = std::max(overlap, double(count) / double(either));
        }
    }
    Found out = {uint32_t(sizes.size()), 0, 0};
    for (const auto &[cell, overlap] : best) {
        if (overlap <= 0.5) continue;
        ++out.found;
        out.mean_overlap += overlap;
    }
    out.mean_overlap /= std::max(out.found, 1u);
    return out;
}
