// info_command.cpp - kipx info: one line per file.
#include "command.h"
#include "failure.h"

#include <algorithm>
#include <cstdio>
#include <memory>

namespace {

void print_info(const Globals &globals, const std::string &path, size_t name_width) {
    const Image image = globals.load(path);
    const Extremes range = extremes(image);
    const std::string size = std::to_string(image.width()) + "x" + std::to_string(image.height());
    const int digits = is_integer(image.type()) ? 10 : 6;
    std::printf("%-*s  %11s  %-4s  %8u  %12.*g  %12.*g  %12.6g%s\n", int(name_width), path.c_str(),
                size.c_str(), name_of(image.type()), image.channels(), digits, range.least, digits,
                range.greatest, range.mean, range.has_nan ? "  (has NaN)" : "");
}

void run(const Globals &globals, const std::vector<std::string> &paths) {
    size_t width = 4;
    for (const std::string &path : paths) width = std::max(width, path.size());
    std::printf("%-*s  %11s  %-4s  %8s  %12s  %12s  %12s\n", int(width), "file", "size", "type",
                "channels", "min", "max", "mean");
    for (const std::string &path : paths) print_info(globals, path, width);
}

} // namespace

void add_info_command(CLI::App &app, const Globals &globals) {
    CLI::App *command = app.add_subcommand("info", "Sizes, types and values of image files");
    auto paths = std::make_shared<std::vector<std::string>>();
    command->add_option("FILE", *paths, "Image files")->required();
    command->callback([&globals, paths] { run(globals, *paths); });
}
