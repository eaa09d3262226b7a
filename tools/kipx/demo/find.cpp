// find.cpp - the steps from a picture to its stable regions. See steps.h.
#include "batch/marker.h"
#include "demo/steps.h"
#include "failure.h"
#include "image/output.h"
#include "regions/icicle.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <map>

namespace {

namespace fs = std::filesystem;

Done find_regions(State &state) {
    const std::string &name = state.settings.mask;
    Image given;
    if (!name.empty())
        given = state.globals.load(name, state.globals.page_beside(name, state.given.page));
    state.mask = mask_of(given, name, state.levels);
    state.finder = std::make_unique<Finder>(state.levels, &state.mask, state.settings);
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
    return {pixels, fmt::format("{} dark and {} bright regions, moments and pixels gathered",
                                regions.size() - size_t(bright), bright)};
}

Done draw(State &state) {
    const Finder &finder = *state.finder;
    state.csv = regions_csv(finder, state.levels, state.origin);
    state.json = regions_json(finder, state.levels, state.origin, state.settings);
    state.labels = region_labels(finder);
    state.overlay = region_overlay(finder, state.picture, state.given.style);
    std::vector<RegionTree> trees;
    size_t nodes = 0;
    for (const bool bright : {false, true}) {
        if (!finder.tree(bright)) continue;
        trees.push_back(tree_of(finder, bright));
        nodes += trees.back().nodes.size();
    }
    state.svg = icicle_svg(trees, state.origin.file);
    return {state.picture.pixels(),
            fmt::format("outlines, ellipses, and the trees of {} nested regions", nodes)};
}

Done write_all(State &state) {
    const fs::path folder = state.given.folder;
    make_folder(state.given.folder);
    state.pictures.emplace_back("labels.tif", &state.labels);
    state.pictures.emplace_back("overlay.png", &state.overlay);
    std::string names;
    std::vector<std::string> written;
    const auto next = [&](const std::string &name) {
        names += " " + name;
        written.push_back((folder / name).string());
        return written.back();
    };
    for (const auto &[name, image] : state.pictures)
        write_image(*image, {next(name), "", name == "labels.tif" || name == "truth.tif"});
    write_text(state.csv, next("regions.csv"));
    write_text(state.json, next("regions.json"));
    write_text(state.svg, next("tree.svg"));
    Marker(demo_note(folder.string()), state.origin.file).write(written, nullptr);
    return {state.picture.pixels() * state.pictures.size(), state.given.folder + ":" + names};
}

Done check_pictures(State &state) {
    for (const auto &[name, image] : state.pictures) {
        const std::string path = (fs::path(state.given.folder) / name).string();
        const Image again = read_picture(path, {state.globals.max_pixels, 1, true}).image;
        if (again.type() != image->type() || again.bytes() != image->bytes() ||
            std::memcmp(again.data(), image->data(), image->bytes()) != 0)
            fail("{}: what was read back differs from what was written", path);
    }
    return {state.picture.pixels() * state.pictures.size(),
            fmt::format("all {} pictures hold the same bytes", state.pictures.size())};
}

constexpr Step steps_to_regions[] = {
    {"find stable regions", find_regions},
    {"measure them", measure},
    {"draw", draw},
    {"write", write_all},
    {"read back and compare", check_pictures},
};

} // namespace

const std::span<const Step> region_steps = steps_to_regions;

std::string demo_note(const std::string &folder) {
    return (fs::path(folder) / "demo.done").string();
}

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
