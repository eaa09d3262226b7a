// scene_command.cpp - kipx scene: our own micrograph, with its truth.
#include "command.h"
#include "failure.h"
#include "image/files.h"
#include "options.h"
#include "scene/noise.h"
#include "scene/scene.h"

#include <filesystem>
#include <map>
#include <memory>

namespace {

struct Arguments {
    std::string output, size = "960x640", seed = "1", cells, depth = "8", frames, truth, clean,
                        background;
    bool no_noise = false;
};

// "scene.png" and 7 of 120 make "scene-007.png".
std::string numbered(const std::string &path, int64_t number, int64_t count) {
    const std::filesystem::path whole(path);
    std::string digits = std::to_string(number);
    digits.insert(0, std::max<size_t>(std::to_string(count).size(), 2) - digits.size(), '0');
    const std::string name = whole.stem().string() + "-" + digits + whole.extension().string();
    return (whole.parent_path() / name).string();
}

SceneOptions scene_options(const Globals &globals, const Arguments &given) {
    const auto size = numbers("--size", given.size, 'x', 2, "WIDTHxHEIGHT", 1);
    SceneOptions options;
    options.width = size[0];
    options.height = size[1];
    const uint64_t pixels = uint64_t(options.width) * options.height;
    if (pixels > globals.pixel_limit())
        fail("--size: got '", given.size, "', which is more than --max-pixels ",
             globals.pixel_limit());
    options.seed = uint64_t(whole_number("--seed", given.seed, 0, INT64_MAX));
    if (!given.cells.empty())
        options.cells = uint32_t(
            whole_number("--cells", given.cells, 1, int64_t(std::max<uint64_t>(pixels / 64, 1))));
    return options;
}

// Every output can be written, and none of them would replace another.
void check_outputs(const Arguments &given, int64_t frames) {
    std::vector<std::string> paths;
    if (frames == 0) paths.push_back(given.output);
    for (int64_t i = 1; i <= frames; ++i) paths.push_back(numbered(given.output, i, frames));
    check_output(given.output);
    for (const std::string *path : {&given.truth, &given.clean, &given.background}) {
        if (path->empty()) continue;
        check_output(*path);
        paths.push_back(*path);
    }
    std::map<std::string, std::string> owners; // absolute: a name alone may not exist yet
    for (const std::string &path : paths) {
        const auto place = std::filesystem::weakly_canonical(std::filesystem::absolute(path));
        const auto [owner, fresh] = owners.emplace(place.string(), path);
        if (!fresh)
            fail("scene: got '", owner->second, "' and '", path,
                 "', expected outputs that do not replace each other");
    }
}

void run(const Globals &globals, const Arguments &given) {
    const SceneOptions options = scene_options(globals, given);
    const uint32_t type =
        choice<uint32_t>("--depth", given.depth, {{"8", KIPX_U8}, {"16", KIPX_U16}});
    const int64_t frames =
        given.frames.empty() ? 0 : whole_number("--frames", given.frames, 1, 100000);
    check_outputs(given, frames);
    const Scene scene(options);
    Image labels;
    const Image light = scene.light(given.truth.empty() ? nullptr : &labels);
    const auto store_frame = [&](const std::string &path, uint64_t number) {
        const Image frame = given.no_noise ? exposed(light, type)
                                           : noisy_frame(light, mixed(options.seed) + number, type);
        globals.store(frame, path, std::to_string(scene.cells()) + " cells");
    };
    if (frames == 0) store_frame(given.output, 0);
    for (int64_t i = 1; i <= frames; ++i)
        store_frame(numbered(given.output, i, frames), uint64_t(i - 1));
    if (!given.clean.empty()) globals.store(exposed(light, type), given.clean, "without noise");
    if (!given.background.empty())
        globals.store(exposed(scene.illumination(), type), given.background, "background");
    if (!given.truth.empty()) globals.store(labels, given.truth, "labels");
}

} // namespace

void add_scene_command(CLI::App &app, const Globals &globals) {
    CLI::App *command = app.add_subcommand("scene", "Make a micrograph of cells with known truth");
    auto given = std::make_shared<Arguments>();
    command->add_option("-o,--output", given->output, "The picture")->required()->type_name("OUT");
    command->add_option("--size", given->size, "Width and height (default 960x640)")
        ->type_name("WxH");
    command->add_option("--seed", given->seed, "Another seed, another scene (default 1)")
        ->type_name("N");
    command->add_option("--cells", given->cells, "How many cells (default one per 3600 pixels)")
        ->type_name("N")
        ->check(filled);
    command->add_option("--depth", given->depth, "Bits of a pixel: 8 (default) or 16")
        ->type_name("8|16");
    command
        ->add_option("--frames", given->frames,
                     "Take N frames: OUT with -01, -02 ... before its ending")
        ->type_name("N")
        ->check(filled);
    command->add_option("--truth", given->truth, "Write the cells' labels, 0 for none (s32)")
        ->type_name("LABELS.tif")
        ->check(filled);
    command->add_option("--clean", given->clean, "Write the picture without noise")
        ->type_name("FILE")
        ->check(filled);
    command->add_option("--background", given->background, "Write the light without cells")
        ->type_name("FILE")
        ->check(filled);
    command->add_flag("--no-noise", given->no_noise, "A camera without noise");
    command->footer(
        "Example: kipx scene -o cells.png --size 1920x1080 --seed 7 --truth labels.tif\n"
        "The same options give the same bytes on every machine.");
    command->callback([&globals, given] { run(globals, *given); });
}
