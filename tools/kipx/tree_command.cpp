// tree_command.cpp - kipx tree: the tree of nested regions of an image, as text, JSON or SVG.
#include "command.h"
#include "failure.h"
#include "image/files.h"
#include "options.h"
#include "regions/finder.h"
#include "regions/icicle.h"

#include <cstdio>
#include <filesystem>
#include <memory>
#include <strings.h>

namespace {

struct Arguments {
    std::string file, output = "-", depth, smallest;
    RegionArguments regions;
};

enum class Form { text, svg, json };

Form form_of(const std::string &output) {
    if (output == "-") return Form::text;
    const std::string ending = std::filesystem::path(output).extension().string();
    if (strcasecmp(ending.c_str(), ".svg") == 0) return Form::svg;
    if (strcasecmp(ending.c_str(), ".json") == 0) return Form::json;
    fail("--output: got '", output, "', expected a name with the ending .svg or .json, or -");
}

void run(const Globals &globals, const Arguments &given) {
    RegionSettings settings = given.regions.settings();
    settings.fast = true; // the same tree, and no lists of pixels beside it
    const Form form = form_of(given.output);
    const auto depth =
        given.depth.empty() ? 8 : uint32_t(whole_number("--depth", given.depth, 0, 1000));
    if (form != Form::text && !given.depth.empty())
        fail("--depth: got '", given.depth, "', but it is for the text alone");
    int32_t smallest = given.smallest.empty()
                           ? 0
                           : int32_t(whole_number("--smallest", given.smallest, 1, INT32_MAX));
    Image mask;
    if (!settings.mask.empty()) mask = globals.load(settings.mask);
    const Image image = globals.load(given.file);
    const GreyLevels levels = grey_levels(image, settings.levels, given.file);
    const Image inside = mask_of(mask, settings.mask, levels);
    Finder finder(levels.image, &inside, settings);
    finder.find();
    std::vector<RegionTree> trees;
    for (const bool bright : {false, true})
        if (bright ? settings.bright : settings.dark)
            trees.push_back(tree_of(finder.tree(bright), bright));
    const std::string name = std::filesystem::path(given.file).filename().string();
    if (form == Form::json) return write_text(tree_json(trees, name, smallest), given.output);
    if (form == Form::svg)
        return write_text(icicle_svg(trees, name + ", " + describe(image.shape())), given.output);
    if (smallest == 0) smallest = int32_t(std::max<uint64_t>(finder.extent() / 1000, 16));
    for (const RegionTree &tree : trees) {
        std::printf("%s: %zu %s regions; shown from %d px on\n", given.file.c_str(),
                    tree.nodes.size(), tree.bright ? "bright" : "dark", smallest);
        std::fputs(tree_text(tree, depth, smallest).c_str(), stdout);
    }
}

} // namespace

void add_tree_command(CLI::App &app, const Globals &globals) {
    CLI::App *command = app.add_subcommand("tree", "Show the tree of nested regions of an image");
    auto given = std::make_shared<Arguments>();
    command->add_option("FILE", given->file, "Image file")->required();
    command
        ->add_option("-o,--output", given->output,
                     "A drawing (.svg), all regions for programs (.json), or - for text (default)")
        ->type_name("OUT");
    command->add_option("--depth", given->depth, "Text: how many branchings deep (default 8)")
        ->type_name("N")
        ->check(filled);
    command
        ->add_option(
            "--smallest", given->smallest,
            "Smallest region shown, pixels (default: a thousandth of the picture in texts, "
            "1 in JSON)")
        ->type_name("N")
        ->check(filled);
    add_region_options(*command, given->regions);
    command->footer(
        "Example: kipx tree cells.png -o tree.svg --polarity dark\n"
        "A line of the text is a branch: regions of which each has one other below it.\n"
        "Stable regions are told with the level at which they are.");
    command->callback([&globals, given] { run(globals, *given); });
}
