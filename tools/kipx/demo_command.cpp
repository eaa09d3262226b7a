// demo_command.cpp - kipx demo: the main job, the stable regions of a picture, step by step, each
// timed. Without a picture one is made first.
#include "command.h"
#include "demo/steps.h"
#include "failure.h"
#include "options.h"
#include "report/terminal.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>

namespace {

constexpr int largest_cell = 6000; // pixels; few of the scene's cells have more

void take(const Steps &table, State &state, std::span<const Step> steps) {
    using Clock = std::chrono::steady_clock;
    for (const Step &step : steps) {
        const auto start = Clock::now();
        const Done done = step.work(state);
        table.row(step.name, std::chrono::duration<double>(Clock::now() - start).count(),
                  done.pixels, done.note);
    }
}

void tell(const State &state) {
    const auto &regions = state.finder->regions();
    size_t bright = 0;
    for (const Region &region : regions) bright += region.bright;
    std::printf(
        "\n%zu stable regions, %zu dark (blue) and %zu bright (orange), found in %s ms: %s "
        "Mpixel/s\n",
        regions.size(), regions.size() - bright, bright,
        rounded(state.find_seconds * 1e3, 1).c_str(),
        rounded(double(state.finder->extent()) / 1e6 / std::max(state.find_seconds, 1e-9), 1)
            .c_str());
    if (state.given.image.empty()) {
        const Found found = found_cells(state);
        std::printf(
            "the scene's truth: %u of %u cells (%u %%) are found by a stable region with an "
            "overlap above a half, mean overlap %s\n",
            found.found, found.cells, found.found * 100 / std::max(found.cells, 1u),
            rounded(found.mean_overlap, 2).c_str());
        std::printf("noise against the true light: one frame %s, mean of %u %s steps rms\n",
                    rounded(noise_of(state.frames[0], state.light), 2).c_str(), state.frame_count,
                    rounded(noise_of(state.mean, state.light), 2).c_str());
    }
    const std::filesystem::path folder = state.given.folder;
    std::printf("look at %s and %s\n", (folder / "overlay.png").string().c_str(),
                (folder / "tree.svg").string().c_str());
    show(state.overlay);
}

// The folder is there or can be made; so a name that cannot be one is told before the work.
void check_folder(const std::string &folder) {
    std::error_code error;
    std::filesystem::path path = std::filesystem::absolute(folder);
    while (path.has_relative_path() && !std::filesystem::exists(path, error))
        path = path.parent_path();
    if (!std::filesystem::is_directory(path, error))
        fail(folder, ": cannot make this folder: ", path.string(), " is something else");
}

void run(const Globals &globals, const DemoArguments &given) {
    check_folder(given.folder);
    const auto log_count =
        choice<int>("--frames", given.frames,
                    {{"2", 1}, {"4", 2}, {"8", 3}, {"16", 4}, {"32", 5}, {"64", 6}, {"128", 7}});
    State state(globals, given);
    state.settings = given.regions.settings();
    state.frame_count = uint32_t(1) << log_count;
    state.settings.fast = true;
    const Steps table(globals.quiet);
    table.head();
    take(table, state, given.image.empty() ? scene_steps : file_steps);
    // Of the scene single cells are wanted, not heaps of them.
    if (given.image.empty() && given.regions.max_area.empty())
        state.settings.max_area_fraction =
            std::min(float(largest_cell) / float(state.light.pixels()), 1.0f);
    take(table, state, region_steps);
    if (!globals.quiet) tell(state);
}

} // namespace

void add_demo_command(CLI::App &app, const Globals &globals) {
    CLI::App *command =
        app.add_subcommand("demo", "Find the stable regions of a picture, step by step");
    auto given = std::make_shared<DemoArguments>();
    command
        ->add_option("IMAGE", given->image,
                     "A picture of yours; otherwise a scene of cells is made")
        ->check(filled);
    command->add_option("-o,--output", given->folder, "Folder for the results (default demo)")
        ->type_name("DIR")
        ->check(filled);
    command
        ->add_option("--frames", given->frames,
                     "Noisy frames of the scene, not with IMAGE (default 16)")
        ->type_name("2|4|...|128");
    command
        ->add_option("--size", given->size, "Size of the scene, not with IMAGE (default 1920x1080)")
        ->type_name("WxH");
    command->add_option("--seed", given->seed, "Seed of the scene, not with IMAGE (default 1)")
        ->type_name("N");
    add_region_options(*command, given->regions);
    command->footer(
        "Example: kipx demo photo.jpg -o out\n"
        "Of the scene, where --max-area is not given, regions of up to 6000 pixels are\n"
        "found.");
    command->callback([&globals, command, given] {
        for (const char *option : {"--frames", "--size", "--seed"})
            if (!given->image.empty() && command->count(option) > 0)
                fail(option, ": got it with the picture '", given->image,
                     "', expected it without IMAGE, for the scene alone");
        run(globals, *given);
    });
}
