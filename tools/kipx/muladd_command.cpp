// muladd_command.cpp - kipx muladd, mulsub, mulrsub: a product and a sum in one step, rounded once.
//
// A is an image, B and C are images or numbers. A number is the number that it is, whatever the images'
// types. Images of types without a kernel are widened, never rounded. Results that an integer type
// does not hold are saturated.
#include "command.h"
#include "failure.h"
#include "image/values.h"
#include "numbers.h"
#include "options.h"

#include <kipx/muladd.h>

#include <algorithm>
#include <cmath>
#include <memory>

namespace {

struct MulAddForm {
    const char *name, *help;
    decltype(&KipxMulAdd) images;      // b and c are images
    decltype(&KipxMulAddC) factors;    // b is numbers
    decltype(&KipxMulAddCC) constants; // both are
};
#define KIPX_FORM(name) Kipx##name, Kipx##name##C, Kipx##name##CC
const MulAddForm muladd_forms[] = {
    {"muladd", "A * B + C, rounded once", KIPX_FORM(MulAdd)},
    {"mulsub", "A * B - C, rounded once", KIPX_FORM(MulSub)},
    {"mulrsub", "C - A * B, rounded once", KIPX_FORM(MulRSub)},
};
#undef KIPX_FORM

struct MulAddArguments {
    std::string a, b, c;
    Goal goal;
    int32_t scale = 0;
    uint32_t type = 0, page = 1; // type 0: the wider of the images'
};

// An image, or in its place numbers, one for every channel.
struct Operand {
    Image image;
    std::vector<double> numbers;

    explicit operator bool() const { return numbers.empty(); }
};

struct MulAddJob {
    Image a;
    Operand b, c;
    Image result;

    int32_t compute(const MulAddForm &form, int32_t scale, uint64_t flags) const {
        Environment environment;
        KipxXE *xe = environment.get();
        const kipx_arr dst = result.arr(), first = a.arr();
        if (!b && !c)
            return form.constants(xe, flags, &dst, &first, b.numbers.data(), c.numbers.data(),
                                  nullptr, nullptr, scale, 0);
        const kipx_arr third = c.image.arr();
        if (!b)
            return form.factors(xe, flags, &dst, &first, &third, b.numbers.data(), nullptr, nullptr,
                                nullptr, scale, 0);
        const kipx_arr second = b.image.arr();
        return form.images(xe, flags, &dst, &first, &second, &third, nullptr, nullptr, nullptr,
                           nullptr, scale, 0);
    }
    // Whether there is a kernel from such types of a, b and c.
    bool has_kernel(const MulAddForm &form, uint32_t first, uint32_t second, uint32_t third) const {
        const uint32_t channels = result.channels();
        const auto probe = [&](uint32_t type) { return Image({type, 1, 1, channels}); };
        const MulAddJob job = {probe(first),
                               {probe(second), b.numbers},
                               {probe(third), c.numbers},
                               probe(result.type())};
        const int32_t answer = job.compute(form, 0, KIPX_FLAG_PREPARE);
        if (answer != KIPX_ENOTSUP) check_answer(answer, "choosing a kernel");
        return answer == 0;
    }
};

// Numbers as an image, where the library has no form that takes them: the narrowest type that holds
// them all as they are, else f32.
Image image_of(const std::vector<double> &numbers, const Image &like) {
    uint32_t type = KIPX_F32;
    const auto [least, greatest] = std::minmax_element(numbers.begin(), numbers.end());
    if (std::all_of(numbers.begin(), numbers.end(), [](double x) { return x == std::trunc(x); })) {
        if (*least >= 0 && *greatest <= 255)
            type = KIPX_U8;
        else if (*least >= -32768 && *greatest <= 32767)
            type = KIPX_S16;
        else if (*least >= -0x1p31 && *greatest < 0x1p31)
            type = KIPX_S32;
    }
    Image image({type, like.width(), like.height(), like.channels()});
    with_type(type, [&](auto sample) {
        auto *element = image.as<decltype(sample)>();
        for (uint64_t i = 0; i < image.elements(); i++)
            element[i] = decltype(sample)(numbers[i % numbers.size()]);
    });
    return image;
}

Operand load_operand(const Globals &globals, const char *name, const std::string &text,
                     const MulAddArguments &given, const Image &a) {
    if (means_numbers(name, text)) return {{}, numbers_for(a, name, text)};
    if (text == "-")
        fail("{}: got '-', expected a file or numbers: only A is read from standard input", name);
    Operand operand = {globals.load(text, globals.page_beside(text, given.page)), {}};
    const Image &image = operand.image;
    if (image.width() != a.width() || image.height() != a.height() ||
        image.channels() != a.channels())
        fail("{}: is {}, but {} is {}; expected the same size and channels", text,
             describe(image.shape()), given.a, describe(a.shape()));
    operand.image = computable(std::move(operand.image), text, "multiply-accumulate holds");
    return operand;
}

MulAddJob load_job(const Globals &globals, const MulAddArguments &given) {
    MulAddJob job;
    const bool single = !means_numbers("B", given.b) || !means_numbers("C", given.c);
    job.a = globals.load(given.a, single ? globals.page_beside(given.a, given.page) : given.page);
    job.b = load_operand(globals, "B", given.b, given, job.a);
    job.c = load_operand(globals, "C", given.c, given, job.a);
    job.a = computable(std::move(job.a), given.a, "multiply-accumulate holds");
    int widest = rank(job.a.type());
    for (const Operand *operand : {&job.b, &job.c})
        if (*operand) widest = std::max(widest, rank(operand->image.type()));
    const uint32_t type = given.type ? given.type : compute_types[widest];
    job.result = Image({type, job.a.width(), job.a.height(), job.a.channels()});
    if (job.b && !job.c) job.c = {image_of(job.c.numbers, job.a), {}};
    return job;
}

// The types that hold an image's values, the narrowest first. Numbers have none, and take one turn.
std::vector<uint32_t> holders(const Image *image) {
    if (!image) return {KIPX_U8};
    std::vector<uint32_t> types = {image->type()};
    if (image->type() == KIPX_S32) {
        const Statistics all = extremes(*image);
        if (all.least >= -0x1p24 && all.greatest <= 0x1p24) types.push_back(KIPX_F32);
    } else {
        for (size_t i = size_t(rank(image->type())) + 1; i < std::size(compute_types); i++)
            types.push_back(compute_types[i]);
    }
    return types;
}

// Brings the images to the narrowest types that hold them and that there is a kernel for.
void match_muladd_types(const MulAddForm &form, MulAddJob &job) {
    Image *b = job.b ? &job.b.image : nullptr, *c = job.c ? &job.c.image : nullptr;
    const auto widen = [](Image *image, uint32_t type) {
        if (image && image->type() != type) *image = converted(*image, type);
    };
    const auto firsts = holders(&job.a), seconds = holders(b), thirds = holders(c);
    for (const uint32_t first : firsts)
        for (const uint32_t second : seconds)
            for (const uint32_t third : thirds)
                if (job.has_kernel(form, first, second, third))
                    return widen(&job.a, first), widen(b, second), widen(c, third);
    fail("{}: no kernel gives {} from {}; choose another --type", form.name,
         name_of(job.result.type()), name_of(job.a.type()));
}

void run_muladd(const Globals &globals, const MulAddForm &form, const MulAddArguments &given) {
    check_goal(given.goal);
    MulAddJob job = load_job(globals, given);
    match_muladd_types(form, job);
    check_answer(job.compute(form, given.scale, 0), form.name);
    globals.store(job.result, given.goal, form.name);
}

} // namespace

void add_muladd_commands(CLI::App &app, const Globals &globals) {
    for (const MulAddForm &form : muladd_forms) {
        CLI::App *command = app.add_subcommand(form.name, form.help);
        auto given = std::make_shared<MulAddArguments>();
        add_value(*command, "A", given->a, filled(), "", "Image file; - is standard input")
            ->required();
        add_value(*command, "B", given->b, filled(), "",
                  "Second image file, or a number, or one for each channel: 12 or 1,0.5,0.25")
            ->required();
        add_value(*command, "C", given->c, filled(), "", "Third image file, or numbers likewise")
            ->required();
        add_goal_options(*command, given->goal, "Result");
        add_scale_option(*command, given->scale);
        add_choice<uint32_t>(
            *command, "--type", given->type,
            {{"u8", KIPX_U8}, {"s16", KIPX_S16}, {"s32", KIPX_S32}, {"f32", KIPX_F32}},
            "Type of the result; by default the widest of the images'");
        add_page_option(*command, given->page);
        command->footer(fmt::format("Example: kipx {} photo.png 1.2 -10 -o out.png", form.name));
        command->callback([&globals, &form, given] { run_muladd(globals, form, *given); });
    }
}
