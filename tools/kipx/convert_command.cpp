// convert_command.cpp - kipx convert: an image in other element types, scaled and shifted, or in
// another format alone.
#include "command.h"
#include "failure.h"
#include "image/values.h"
#include "options.h"

#include <kipx/convert.h>
#include <kipx/stats.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>

namespace {

struct ConvertArguments {
    std::string file;
    Goal goal;
    uint32_t type = 0, page = 1; // type 0: the file's own
    std::vector<double> scale, shift;
    bool stretch = false;
};

// What an image's values are multiplied by, and what is added, per channel.
struct Stretch {
    std::array<double, 4> scale, shift;
    bool none() const {
        return std::all_of(scale.begin(), scale.end(), [](double x) { return x == 1; }) &&
               std::all_of(shift.begin(), shift.end(), [](double x) { return x == 0; });
    }
};

std::array<double, 4> by_channel(const char *option, const std::vector<double> &given,
                                 double otherwise, uint32_t channels) {
    std::array<double, 4> out;
    out.fill(given.empty() ? otherwise : given[0]);
    if (given.size() <= 1) return out;
    if (given.size() != channels)
        fail("{}: got {} numbers, expected one, or one for each of {} channel{}", option,
             given.size(), channels, channels == 1 ? "" : "s");
    std::copy(given.begin(), given.end(), out.begin());
    return out;
}

// The least value to the least one of the type, the greatest to the greatest; of floating types to 0
// and 1. Of a picture of one value that value becomes the least.
Stretch full_stretch(const Image &image, uint32_t type, const std::string &path) {
    const Statistics range = extremes(image);
    if (range.count == 0) fail("--stretch: {} has no finite value", path);
    kipx_vrange ends = {0, 1};
    if (is_integer(type)) {
        ends = {-HUGE_VAL, HUGE_VAL};
        check_answer(kipx_vrng_saturate(&ends, type), "the range of a type");
    }
    const double room = range.greatest - range.least;
    const double scale = room > 0 ? (ends.high - ends.low) / room : 0;
    Stretch out;
    out.scale.fill(scale), out.shift.fill(ends.low - range.least * scale);
    return out;
}

// Values of a part from a bound on; NaN is in no order.
uint64_t count_from(const kipx_arr &image, const kipx_site &part, double bound) {
    constexpr int32_t greater_or_equal = 7;
    const std::array bounds = {bound, bound, bound, bound};
    std::array<uint64_t, 4> counts = {};
    check_answer(KipxCountRelBox(nullptr, 0, &image, nullptr, &part, nullptr, greater_or_equal,
                                 bounds.data(), nullptr, 1, counts.data()),
                 "counting");
    return counts[0] + counts[1] + counts[2] + counts[3];
}

// Values that an integer type does not hold once they are rounded, NaN among them. Part by part as
// binary64.
uint64_t values_beyond(const Image &image, uint32_t type, const Stretch &stretch) {
    if (!is_integer(type)) return 0;
    kipx_vrange ends = {-HUGE_VAL, HUGE_VAL};
    check_answer(kipx_vrng_saturate(&ends, type), "the range of a type");
    // Ties go to the even number: the greatest values are odd, the least ones even.
    const double first = ends.low - 0.5, behind = ends.high + 0.5;
    const uint32_t channels = image.channels();
    const uint32_t columns = std::min(image.width(), 1u << 20);
    const uint32_t rows = std::min(image.height(), std::max((1u << 20) / columns, 1u));
    Image wide({KIPX_F64, columns, rows, channels});
    const kipx_arr dst = wide.arr(), src = image.arr();
    uint64_t fitting = 0;
    for (uint32_t y = 0; y < image.height(); y += rows)
        for (uint32_t x = 0; x < image.width(); x += columns) {
            const kipx_pos at = {{0, y, x, 0}};
            const kipx_site here = {{0, 0, 0, 0},
                                    {1, std::min(rows, image.height() - y),
                                     std::min(columns, image.width() - x), channels}};
            check_answer(KipxVConvert(nullptr, 0, &dst, &src, &here, &at, stretch.scale.data(),
                                      stretch.shift.data()),
                         "conversion");
            fitting += count_from(dst, here, first) - count_from(dst, here, behind);
        }
    return image.elements() - fitting;
}

void convert_run(const Globals &globals, const ConvertArguments &given) {
    check_goal(given.goal);
    if (given.stretch && !(given.scale.empty() && given.shift.empty()))
        fail("--stretch: got it with {}, expected one of them",
             given.scale.empty() ? "--shift" : "--scale");
    const Image image = globals.load(given.file, given.page);
    const uint32_t type = given.type ? given.type : image.type();
    const Stretch stretch = given.stretch
                                ? full_stretch(image, type, given.file)
                                : Stretch{by_channel("--scale", given.scale, 1, image.channels()),
                                          by_channel("--shift", given.shift, 0, image.channels())};
    Image result({type, image.width(), image.height(), image.channels()});
    const kipx_arr dst = result.arr(), src = image.arr();
    check_answer(stretch.none() ? KipxConvert(nullptr, 0, &dst, &src, nullptr, nullptr, 1, 0)
                                : KipxVConvert(nullptr, 0, &dst, &src, nullptr, nullptr,
                                               stretch.scale.data(), stretch.shift.data()),
                 "convert");
    globals.store(result, given.goal, "convert");
    if (type == image.type() && stretch.none()) return;
    if (const uint64_t count = values_beyond(image, type, stretch))
        globals.note(fmt::format("convert: {} of {} values did not fit {} and were clipped", count,
                                 image.elements(), name_of(type)));
}

} // namespace

void add_convert_commands(CLI::App &app, const Globals &globals) {
    CLI::App *command =
        app.add_subcommand("convert", "Change element type, values or format of an image");
    auto given = std::make_shared<ConvertArguments>();
    add_value(*command, "FILE", given->file, filled(), "", "Image file; - is standard input")
        ->required();
    add_goal_options(*command, given->goal, "Result");
    add_choice<uint32_t>(*command, "--type", given->type,
                         {{"u8", KIPX_U8},
                          {"u16", KIPX_U16},
                          {"u32", KIPX_U32},
                          {"s8", KIPX_S8},
                          {"s16", KIPX_S16},
                          {"s32", KIPX_S32},
                          {"f32", KIPX_F32},
                          {"f64", KIPX_F64}},
                         "Element type of the result; by default the file's");
    add_reals(*command, "--scale", given->scale, 1, 4, "S[,S...]",
              "Multiply values by this, or the channels by as many numbers");
    add_reals(*command, "--shift", given->shift, 1, 4, "V[,V...]",
              "Then add this, or to the channels as many numbers");
    command->add_flag("--stretch", given->stretch,
                      "Spread the values over the whole type, of floating types from 0 to 1");
    add_page_option(*command, given->page);
    command->footer(
        "Example: kipx convert deep.tif -o view.png --type u8 --stretch\n"
        "Results are rounded to the nearest integer, ties to the even one, and stop at the ends of "
        "the type;\nhow many did is told on stderr. NaN becomes 0 in integers.");
    command->callback([&globals, given] { convert_run(globals, *given); });
}
