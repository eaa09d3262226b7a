// tree_command.cpp - kipx tree: the tree of nested regions of an image, as text, JSON or SVG.
#include "command.h"
#include "failure.h"
#include "image/output.h"
#include "options.h"
#include "regions/icicle.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <strings.h>

namespace {

enum class Form { by_name, text, svg, json };

struct TreeArguments {
    std::string file, output = "-";
    Form form = Form::by_name;
    uint32_t depth = 8, page = 1;
    int32_t smallest = 0; // 0: by the form
    RegionSettings settings;
};

Form form_of(const TreeArguments &given) {
    if (given.form != Form::by_name) return given.form;
    if (given.output == "-") return Form::text;
    const std::string ending = std::filesystem::path(given.output).extension().string();
    if (strcasecmp(ending.c_str(), ".svg") == 0) return Form::svg;
    if (strcasecmp(ending.c_str(), ".json") == 0) return Form::json;
    fail("--output: got '{}', expected a name with one of the endings .svg .json, or -",
         given.output);
}

std::string text_of(const std::vector<RegionTree> &trees, const TreeArguments &given,
                    uint64_t extent) {
    const auto standard = int32_t(std::max<uint64_t>(extent / 1000, least_region));
    const int32_t smallest = given.smallest ? given.smallest : standard;
    std::string out;
    for (const RegionTree &tree : trees) {
        out += fmt::format("{}: {} {} regions; shown from {} px on\n", given.file,
                           tree.nodes.size(), tree.bright ? "bright" : "dark", smallest);
        out += tree_text(tree, given.depth, smallest);
    }
    return out;
}

void run_tree(const Globals &globals, const CLI::App &command, TreeArguments &given) {
    given.settings.settle(globals, command);
    given.settings.fast = true; // the same tree, and no lists of pixels beside it
    const Form form = form_of(given);
    if (form != Form::text && command.count("--depth") > 0)
        fail("--depth: got {}, expected it for the text alone", given.depth);
    if (form == Form::svg && given.smallest > 0)
        fail("--smallest: got {}, expected it for text or JSON", given.smallest);
    if (given.output != "-") Output probe(given.output);
    const std::string &mask_name = given.settings.mask;
    Image mask;
    if (!mask_name.empty())
        mask = globals.load(mask_name, globals.page_beside(mask_name, given.page));
    const Image image = globals.load(given.file, given.page);
    const GreyLevels levels = grey_levels(image, given.settings.levels, given.file);
    const Image inside = mask_of(mask, mask_name, levels);
    Finder finder(levels, &inside, given.settings);
    finder.find();
    finder.describe();
    std::vector<RegionTree> trees;
    for (const bool bright : {false, true})
        if (bright ? given.settings.bright : given.settings.dark)
            trees.push_back(tree_of(finder, bright));
    const std::string name = std::filesystem::path(given.file).filename().string();
    write_text(form == Form::json  ? tree_json(trees, name, given.smallest)
               : form == Form::svg ? icicle_svg(trees, name + ", " + describe(image.shape()))
                                   : text_of(trees, given, finder.extent()),
               given.output);
}

} // namespace

void add_tree_commands(CLI::App &app, const Globals &globals) {
    CLI::App *command = app.add_subcommand("tree", "Show the tree of nested regions of an image");
    auto given = std::make_shared<TreeArguments>();
    add_value(*command, "FILE", given->file, filled(), "", "Image file; - is standard input")
        ->required();
    add_value(*command, "-o,--output", given->output, filled(), "OUT",
              "A drawing (.svg) or all regions for programs (.json); - is standard output")
        ->capture_default_str();
    add_choice(*command, "--format", given->form,
               {{"text", Form::text}, {"svg", Form::svg}, {"json", Form::json}},
               "The kind of output, whatever the name's ending; text by default for -");
    add_value(*command, "--depth", given->depth, whole(0, 1000), "N",
              "Text: how many branchings deep")
        ->capture_default_str();
    add_value(*command, "--smallest", given->smallest, whole(1, INT32_MAX), "N",
              "Smallest region shown, pixels; by default a thousandth of the picture in texts, "
              "1 in JSON");
    add_page_option(*command, given->page);
    add_region_options(*command, given->settings);
    command->footer(
        "Example: kipx tree cells.png -o tree.svg --polarity dark\n"
        "A line of the text is a branch: regions of which each has one other below it.\n"
        "Stable regions are told with the level at which they are and their number in tables.");
    command->callback([&globals, command, given] { run_tree(globals, *command, *given); });
}
