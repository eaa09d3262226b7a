// info_command.cpp - kipx info: one line per file; those that cannot be read are told on stderr.
#include "command.h"
#include "failure.h"
#include "image/orientation.h"
#include "image/values.h"
#include "options.h"

#include <algorithm>
#include <cstdio>
#include <memory>

namespace {

struct InfoArguments {
    std::vector<std::string> paths;
    uint32_t page = 1;
};

// What is worth telling besides the columns.
std::string remarks(const Picture &picture, const Statistics &range, bool as_stored) {
    std::string out;
    if (picture.cut) out += "  cut after the last page counted";
    if (picture.orientation != 1)
        out += as_stored ? fmt::format("  asks to be {}", turn_name(picture.orientation))
                         : fmt::format("  {}", turn_name(picture.orientation));
    if (range.nan > 0) out += fmt::format("  {} NaN", range.nan);
    if (range.infinite > 0) out += fmt::format("  {} infinite", range.infinite);
    return out;
}

void run_info(const Globals &globals, const InfoArguments &given) {
    size_t name_width = 4;
    for (const std::string &path : given.paths) name_width = std::max(name_width, path.size());
    bool headed = false, failed = false;
    for (const std::string &path : given.paths) {
        try {
            const Picture picture = globals.read(path, given.page);
            const Image &image = picture.image;
            const Statistics range = extremes(image);
            if (!headed)
                fmt::print("{:<{}}  {:>11}  {:<4}  {:>8}  {:>5}  {:>12}  {:>12}  {:>12}\n", "file",
                           name_width, "size", "type", "channels", "pages", "min", "max", "mean");
            headed = true;
            const int digits = is_integer(image.type()) ? 10 : 6;
            fmt::print("{:<{}}  {:>11}  {:<4}  {:>8}  {:>5}  {:>12.{}g}  {:>12.{}g}  {:>12.6g}{}\n",
                       path, name_width, fmt::format("{}x{}", image.width(), image.height()),
                       name_of(image.type()), image.channels(), picture.pages, range.least, digits,
                       range.greatest, digits, range.mean,
                       remarks(picture, range, globals.as_stored));
        } catch (const Failure &failure) {
            std::fflush(stdout);
            complain(failure.what());
            failed = true;
        }
    }
    if (failed) throw AlreadyTold();
}

} // namespace

void add_info_commands(CLI::App &app, const Globals &globals) {
    CLI::App *command = app.add_subcommand("info", "Sizes, types and values of image files");
    auto given = std::make_shared<InfoArguments>();
    command->add_option("FILE", given->paths, "Image files; - is standard input")
        ->required()
        ->type_name("");
    add_page_option(*command, given->page);
    command->footer("Example: kipx info cells/*.tif\n"
                    "Least, greatest and mean value are those of the finite values of the page.");
    command->callback([&globals, given] { run_info(globals, *given); });
}
