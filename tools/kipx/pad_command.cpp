// pad_command.cpp - kipx pad: an image, or a part of one, continued beyond its edges.
#include "command.h"
#include "failure.h"
#include "options.h"

#include <kipx/convert.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>

namespace {

struct PadArguments {
    std::string file;
    Goal goal;
    int32_t kind = KIPX_BORDER_REPLICATE;
    std::vector<double> by, value;
    uint32_t page = 1;
    std::optional<Part> roi;
};

// left, top, right, bottom: from one number for all, from one across and one down, or from four.
std::array<uint32_t, 4> pad_widths(const std::vector<double> &by) {
    std::array<uint32_t, 4> out;
    for (size_t i = 0; i < by.size(); ++i)
        if (by[i] < 0 || by[i] > 1e9 || by[i] != std::floor(by[i]))
            fail("--by: got {}, expected whole numbers from 0 to 1000000000", by[i]);
    if (by.size() == 3)
        fail("--by: got 3 numbers, expected N, ACROSS,DOWN or LEFT,TOP,RIGHT,BOTTOM");
    for (size_t i = 0; i < out.size(); ++i) out[i] = uint32_t(by[i % by.size()]);
    return out;
}

Part pad_part(const PadArguments &given, const Image &image) {
    if (!given.roi) return {0, 0, image.width(), image.height()};
    const Part &part = *given.roi;
    if (uint64_t(part.x) + part.width > image.width() ||
        uint64_t(part.y) + part.height > image.height())
        fail("--roi: got {},{},{},{}, which reaches beyond {} of {}x{}", part.x, part.y, part.width,
             part.height, given.file, image.width(), image.height());
    return part;
}

void pad_run(const Globals &globals, const PadArguments &given) {
    check_goal(given.goal);
    if (!given.value.empty() && given.kind != KIPX_BORDER_CONST)
        fail("--value: got it without --border const, which alone has a value");
    const std::array<uint32_t, 4> by = pad_widths(given.by);
    const Image image = globals.load(given.file, given.page);
    const uint32_t channels = image.channels();
    const Part part = pad_part(given, image);
    std::array<double, 4> values = {};
    if (given.value.size() > 1 && given.value.size() != channels)
        fail("--value: got {} numbers, expected one, or one for each of {} channel{}",
             given.value.size(), channels, channels == 1 ? "" : "s");
    for (uint32_t i = 0; i < channels && !given.value.empty(); ++i)
        values[i] = given.value[i % given.value.size()];
    const uint64_t width = uint64_t(by[0]) + part.width + by[2],
                   height = uint64_t(by[1]) + part.height + by[3];
    if (width > INT32_MAX || height > INT32_MAX)
        fail("--by: the result would be {}x{}, more than {} pixels a side", width, height,
             INT32_MAX);
    Image result({image.type(), uint32_t(width), uint32_t(height), channels});
    const kipx_arr dst = result.arr(), src = image.arr();
    const kipx_pos at = {{0, part.y, part.x, 0}};
    const kipx_brparm border = {{0, -int32_t(by[1]), -int32_t(by[0]), 0},
                                {0, int32_t(by[3]), int32_t(by[2]), 0}};
    const kipx_site all = {{0, 0, 0, 0}, {1, uint32_t(height), uint32_t(width), channels}};
    Environment environment;
    check_answer(KipxCopyRMkb(environment.get(), 0, &dst, &src, &all, &at, &border, given.kind,
                              values.data()),
                 "pad");
    globals.store(result, given.goal, "pad");
}

} // namespace

void add_pad_commands(CLI::App &app, const Globals &globals) {
    CLI::App *command = app.add_subcommand("pad", "Continue an image beyond its edges");
    auto given = std::make_shared<PadArguments>();
    add_value(*command, "FILE", given->file, filled(), "", "Image file; - is standard input")
        ->required();
    add_goal_options(*command, given->goal, "Result");
    add_choice<int32_t>(*command, "--border", given->kind,
                        {{"replicate", KIPX_BORDER_REPLICATE},
                         {"wrap", KIPX_BORDER_WRAP},
                         {"reflect", KIPX_BORDER_REFLECT},
                         {"reflect101", KIPX_BORDER_REFLECT101},
                         {"const", KIPX_BORDER_CONST}},
                        "a b c d goes on as d d, as a b, as d c, as c b, or as a value");
    add_reals(*command, "--by", given->by, 1, 4, "N|X,Y|L,T,R,B",
              "Pixels to add: everywhere, across and down, or left, top, right and bottom; the "
              "picture's own size and more, too")
        ->required();
    add_reals(*command, "--value", given->value, 1, 4, "V[,V...]",
              "The value of a const border, or one per channel; 0 by default");
    add_part(
        *command, "--roi", given->roi,
        "Take this part only; the border then holds what lies around it, and goes on where the "
        "picture ends");
    add_page_option(*command, given->page);
    command->footer("Example: kipx pad tile.png -o wide.png --by 16 --border reflect101");
    command->callback([&globals, given] { pad_run(globals, *given); });
}
