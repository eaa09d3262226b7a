// scene_command.cpp - kipx scene: a made micrograph with known truth, to try things on.
#include "command.h"
#include "failure.h"
#include "options.h"
#include "scene/scene.h"

#include <filesystem>
#include <map>
#include <memory>

namespace {

struct SceneArguments {
    Goal goal;
    std::string truth, background;
    Extent size = {960, 640};
    uint64_t seed = 1;
    uint32_t cells = 0, frames = 0; // 0: by the size; one frame under the name itself
};

// "scene.png" and 7 of 120 make "scene-007.png".
Goal numbered(const Goal &goal, uint32_t number, uint32_t count) {
    const std::filesystem::path whole(goal.path);
    const size_t places = std::max<size_t>(std::to_string(count).size(), 2);
    const std::string name = fmt::format("{}-{:0{}}{}", whole.stem().string(), number, places,
                                         whole.extension().string());
    return {(whole.parent_path() / name).string(), goal.format};
}

// Every output can be written, and none of them would replace another.
void check_outputs(const std::vector<Goal> &goals) {
    std::map<std::string, std::string> owners; // absolute: a name alone may not exist yet
    for (const Goal &goal : goals) {
        check_goal(goal);
        const auto place = std::filesystem::weakly_canonical(std::filesystem::absolute(goal.path));
        const auto [owner, fresh] = owners.emplace(place.string(), goal.path);
        if (!fresh)
            fail("scene: got '{}' and '{}', expected outputs that do not replace each other",
                 owner->second, goal.path);
    }
}

void run_scene(const Globals &globals, const SceneArguments &given) {
    const uint64_t pixels = uint64_t(given.size.width) * given.size.height;
    if (pixels > globals.max_pixels)
        fail("--size: got {}x{}, which is more than --max-pixels {}", given.size.width,
             given.size.height, globals.max_pixels);
    if (given.cells > std::max<uint64_t>(pixels / 64, 1))
        fail("--cells: got {}, expected no more than one for 64 pixels", given.cells);
    std::vector<Goal> frames;
    if (given.frames == 0) frames.push_back(given.goal);
    for (uint32_t i = 1; i <= given.frames; ++i)
        frames.push_back(numbered(given.goal, i, given.frames));
    std::vector<Goal> goals = frames;
    const Goal truth = {given.truth, "", true}, background = {given.background, ""};
    if (!given.truth.empty()) goals.push_back(truth);
    if (!given.background.empty()) goals.push_back(background);
    check_outputs(goals);

    const Scene scene({given.size.width, given.size.height, given.seed, given.cells});
    Image labels;
    const Image light = scene.light(given.truth.empty() ? nullptr : &labels);
    for (size_t i = 0; i < frames.size(); ++i)
        globals.store(noisy_frame(light, frame_key(given.seed, i)), frames[i],
                      fmt::format("{} cells", scene.cells()));
    if (!given.background.empty())
        globals.store(exposed(scene.illumination()), background, "background");
    if (!given.truth.empty()) globals.store(labels, truth, "labels");
}

} // namespace

void add_scene_commands(CLI::App &app, const Globals &globals) {
    CLI::App *command = app.add_subcommand("scene", "Make a micrograph of cells with known truth");
    auto given = std::make_shared<SceneArguments>();
    add_goal_options(*command, given->goal, "The picture");
    add_extent(*command, "--size", given->size, "Width and height");
    add_value(*command, "--seed", given->seed, whole(0, INT64_MAX), "N",
              "Another seed, another scene")
        ->capture_default_str();
    add_value(*command, "--cells", given->cells, whole(1, INT32_MAX), "N",
              "How many cells; by default one per 3600 pixels");
    add_value(*command, "--frames", given->frames, whole(1, 100000), "N",
              "Take N frames: OUT with -01, -02 ... before its ending");
    add_value(*command, "--truth", given->truth, filled(), "LABELS.tif",
              "Write the cells' labels, 0 for none (s32)");
    add_value(*command, "--background", given->background, filled(), "FILE",
              "Write the light without cells");
    command->footer(
        "Example: kipx scene -o cells.png --size 1920x1080 --seed 7 --truth labels.tif\n"
        "The same options give the same bytes on every machine.");
    command->callback([&globals, given] { run_scene(globals, *given); });
}
