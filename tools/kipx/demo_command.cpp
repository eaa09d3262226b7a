// demo_command.cpp - kipx demo: the main job, the stable regions of a picture, step by step, each
// timed. Without a picture one is made first.
#include "batch/marker.h"
#include "command.h"
#include "demo/steps.h"
#include "failure.h"
#include "image/output.h"
#include "options.h"
#include "report/terminal.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>

namespace {

constexpr int largest_cell = 6000; // pixels; few of the scene's cells have more

void take(Steps &table, State &state, std::span<const Step> steps) {
    using Clock = std::chrono::steady_clock;
    for (const Step &step : steps) {
        const auto start = Clock::now();
        const Done done = step.work(state);
        table.row(step.name, std::chrono::duration<double>(Clock::now() - start).count(),
                  done.pixels, done.note);
    }
}

void tell(Steps &table, const State &state) {
    const auto &regions = state.finder->regions();
    size_t bright = 0;
    for (const Region &region : regions) bright += region.bright;
    table.say("");
    table.say(
        fmt::format("{} stable regions, {} dark and {} bright, found in {:.1f} ms: {:.1f} Mpixel/s",
                    regions.size(), regions.size() - bright, bright, state.find_seconds * 1e3,
                    double(state.finder->extent()) / 1e6 / std::max(state.find_seconds, 1e-9)));
    if (state.given.image.empty()) {
        const Found found = found_cells(state);
        table.say(fmt::format(
            "the scene's truth: {} of {} cells ({} %) are found by a stable region with "
            "an overlap above a half, mean overlap {:.2f}",
            found.found, found.cells, found.found * 100 / std::max(found.cells, 1u),
            found.mean_overlap));
        table.say(fmt::format(
            "noise against the true light: one frame {:.2f}, mean of {} {:.2f} steps rms",
            noise_of(state.frames[0], state.light), state.frames.size(),
            noise_of(state.mean, state.light)));
    }
    const std::filesystem::path folder = state.given.folder;
    table.say(fmt::format("look at {} and {}", (folder / "overlay.png").string(),
                          (folder / "tree.svg").string()));
}

// Everything that can be refused is, before the work; then the last demo's results go, unless they
// were changed.
void prepare_folder(const DemoArguments &given) {
    check_folder(given.folder);
    std::error_code error; // one of the two is not there, or none was given
    for (const char *name : demo_files) {
        const std::string result = (std::filesystem::path(given.folder) / name).string();
        for (const std::string &input : {given.image, given.settings.mask})
            if (std::filesystem::equivalent(result, input, error))
                fail("--output: got '{}', expected a folder where {} is not the picture or mask "
                     "that is "
                     "read",
                     given.folder, name);
        if (std::filesystem::exists(result, error)) Output probe(result);
    }
    for (const std::string &input : {given.image, given.settings.mask})
        if (!input.empty()) Source probe(input, {});
    sweep(given.folder);
    Marker(demo_note(given.folder), nullptr).remove(true);
}

void run_demo(const Globals &globals, const CLI::App &command, DemoArguments &given) {
    for (const char *option : {"--frames", "--size", "--seed"})
        if (!given.image.empty() && command.count(option) > 0)
            fail("{}: got it with the picture '{}', expected it without IMAGE, for the scene alone",
                 option, given.image);
    if (given.image.empty() && command.count("--page") > 0)
        fail("--page: got {}, expected it with IMAGE", given.page);
    given.settings.settle(globals, command);
    given.settings.fast = true;
    prepare_folder(given);
    State state(globals, given);
    state.settings = given.settings;
    Steps table(globals.quiet);
    take(table, state, given.image.empty() ? scene_steps : file_steps);
    // Of the scene single cells are wanted, not heaps of them.
    if (given.image.empty() && command.count("--max-area") == 0)
        state.settings.max_area_fraction =
            std::min(float(largest_cell) / float(state.light.pixels()), 1.0f);
    take(table, state, region_steps);
    if (globals.quiet) return;
    tell(table, state);
    show(state.overlay, table.lines());
}

} // namespace

void add_demo_commands(CLI::App &app, const Globals &globals) {
    CLI::App *command =
        app.add_subcommand("demo", "Find the stable regions of a picture, step by step");
    auto given = std::make_shared<DemoArguments>();
    add_value(*command, "IMAGE", given->image, filled(), "",
              "A picture of yours; otherwise a scene of cells is made");
    add_value(*command, "-o,--output", given->folder, filled(), "DIR", "Folder for the results")
        ->capture_default_str();
    add_choice<uint32_t>(
        *command, "--frames", given->frames,
        {{"2", 2}, {"4", 4}, {"8", 8}, {"16", 16}, {"32", 32}, {"64", 64}, {"128", 128}},
        "Noisy frames of the scene, not with IMAGE");
    add_extent(*command, "--size", given->size, "Size of the scene, not with IMAGE");
    add_value(*command, "--seed", given->seed, whole(0, INT64_MAX), "N",
              "Seed of the scene, not with IMAGE")
        ->capture_default_str();
    add_page_option(*command, given->page);
    command->add_flag("--ids", given->style.ids, "Number the regions in the overlay");
    add_region_options(*command, given->settings);
    command->footer(
        "Example: kipx demo photo.jpg -o out\n"
        "Of the scene, where --max-area is not given, regions of up to 6000 pixels are\n"
        "found.");
    command->callback([&globals, command, given] { run_demo(globals, *command, *given); });
}
