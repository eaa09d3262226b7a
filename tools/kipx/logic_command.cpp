// logic_command.cpp - kipx and, or, xor, not: the bits of integer images.
//
// Elements are taken as they are stored, whatever their sign; both images have elements of one size,
// and so has the result, in A's type. A number has to be one that A's type holds: 255 for u8, 3855
// for u16.
#include "command.h"
#include "failure.h"
#include "numbers.h"
#include "options.h"

#include <kipx/logic.h>

#include <cmath>
#include <limits>
#include <memory>

namespace {

struct LogicOperation {
    const char *name, *help, *example;
    decltype(&KipxAnd) images;
    decltype(&KipxAndC) numbers;
};

const LogicOperation logic_operations[] = {
    {"and", "Bits that are set in both A and B", "kipx and cells.png mask.png -o inside.png",
     KipxAnd, KipxAndC},
    {"or", "Bits that are set in A or B", "kipx or dark.png bright.png -o both.png", KipxOrr,
     KipxOrrC},
    {"xor", "Bits that differ between A and B", "kipx xor before.png after.png -o changes.png",
     KipxXor, KipxXorC},
    {"not", "Every bit of A turned over", "kipx not mask.png -o outside.png", nullptr, nullptr},
};

struct LogicArguments {
    std::string a, b;
    Goal goal;
    uint32_t page = 1;
};

void check_logic_source(const Image &image, const std::string &path) {
    if (!is_integer(image.type()))
        fail("{}: has {} values; expected integers, whose bits can be combined", path,
             name_of(image.type()));
}

void combine_images(const Globals &globals, const LogicOperation &operation,
                    const LogicArguments &given, Environment &environment, Image &a) {
    const Image b = globals.load(given.b, globals.page_beside(given.b, given.page));
    check_logic_source(b, given.b);
    if (a.width() != b.width() || a.height() != b.height() || a.channels() != b.channels() ||
        size_of(a.type()) != size_of(b.type()))
        fail("{}: is {}, but {} is {}; expected the same size, channels and bytes an element",
             given.b, describe(b.shape()), given.a, describe(a.shape()));
    const kipx_arr dst = a.arr(), src = b.arr();
    check_answer(
        operation.images(environment.get(), 0, &dst, nullptr, &src, nullptr, nullptr, nullptr),
        operation.name);
}

void combine_numbers(const LogicOperation &operation, const LogicArguments &given,
                     Environment &environment, Image &a) {
    const std::vector<double> numbers = numbers_for(a, "B", given.b);
    with_type(a.type(), [&](auto sample) {
        using T = decltype(sample);
        for (double number : numbers)
            if (!(number >= double(std::numeric_limits<T>::lowest()) &&
                  number <= double(std::numeric_limits<T>::max()) && number == std::trunc(number)))
                fail("B: got {}, expected whole numbers that {}, the type of {}, holds", given.b,
                     name_of(a.type()), given.a);
    });
    const kipx_arr dst = a.arr();
    check_answer(
        operation.numbers(environment.get(), 0, &dst, nullptr, numbers.data(), nullptr, nullptr),
        operation.name);
}

void run_logic(const Globals &globals, const LogicOperation &operation,
               const LogicArguments &given) {
    check_goal(given.goal);
    const bool numbers = operation.numbers && means_numbers("B", given.b);
    const bool images = operation.images && !numbers;
    Image a = globals.load(given.a, images ? globals.page_beside(given.a, given.page) : given.page);
    check_logic_source(a, given.a);
    Environment environment;
    if (images) {
        combine_images(globals, operation, given, environment, a);
    } else if (numbers) {
        combine_numbers(operation, given, environment, a);
    } else {
        const kipx_arr dst = a.arr();
        check_answer(KipxNot(environment.get(), 0, &dst, nullptr, nullptr, nullptr),
                     operation.name);
    }
    globals.store(a, given.goal, operation.name);
}

} // namespace

void add_logic_commands(CLI::App &app, const Globals &globals) {
    for (const LogicOperation &operation : logic_operations) {
        CLI::App *command = app.add_subcommand(operation.name, operation.help);
        auto given = std::make_shared<LogicArguments>();
        add_value(*command, "A", given->a, filled(), "", "Image file; - is standard input")
            ->required();
        if (operation.images)
            add_value(*command, "B", given->b, filled(), "",
                      "Second image file, or a number, or one for each channel")
                ->required();
        add_goal_options(*command, given->goal, "Result, in A's type");
        add_page_option(*command, given->page);
        command->footer(fmt::format("Example: {}", operation.example));
        command->callback([&globals, &operation, given] { run_logic(globals, operation, *given); });
    }
}
