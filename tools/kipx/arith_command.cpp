// arith_command.cpp - kipx add, sub, rsub, mul, div, divr, rdiv, rdivr: two image files in, one
// out.
//
// The files' elements are brought to the types that the library computes with: u16 to s32, s8 to
// s16, u32 to s32 when all values fit, f64 to f32. Where it has no kernel for the resulting three
// types the sources are widened further, never rounded.
#include "command.h"
#include "failure.h"
#include "image/files.h"
#include "options.h"

#include <kipx/arith.h>

#include <algorithm>
#include <memory>

namespace {

using Function = decltype(&KipxAdd);

struct Operation {
    const char *name;
    const char *help;
    Function wrap, saturate, sign; // the last two null where the operation has no such form
    int divisor;                   // which source divides, 1 or 2; 0 for none
    bool truncates;                // integers divided as integers, where a zero cannot be answered
};

const Operation operations[] = {
    {"add", "A + B", KipxAdd, KipxAddq, KipxAddsq, 0, false},
    {"sub", "A - B", KipxSub, KipxSubq, KipxSubsq, 0, false},
    {"rsub", "B - A", KipxRSub, KipxRSubq, KipxRSubsq, 0, false},
    {"mul", "A * B, saturated", KipxMul, nullptr, nullptr, 0, false},
    {"div", "A / B, integers truncated", KipxDiv, nullptr, nullptr, 2, true},
    {"divr", "A / B, rounded to the nearest integer", KipxDivr, nullptr, nullptr, 2, false},
    {"rdiv", "B / A, integers truncated", KipxRDiv, nullptr, nullptr, 1, true},
    {"rdivr", "B / A, rounded to the nearest integer", KipxRDivr, nullptr, nullptr, 1, false},
};

enum class Overflow { wrap, saturate, sign };

struct Arguments {
    std::string a, b, output, scale = "0", overflow = "wrap", type, roi, at1, at2;
};

struct Place {
    uint32_t x = 0, y = 0;
    kipx_pos pos() const { return {{0, y, x, 0}}; }
};

// The types that the library computes with, each holding those before it; f32 holds all but s32.
constexpr uint32_t compute_types[] = {KIPX_U8, KIPX_S16, KIPX_S32, KIPX_F32};

int rank(uint32_t type) {
    return int(std::find(std::begin(compute_types), std::end(compute_types), type) - compute_types);
}

Function form_of(const Operation &operation, const std::string &text) {
    const auto overflow = choice<Overflow>(
        "--overflow", text,
        {{"wrap", Overflow::wrap}, {"saturate", Overflow::saturate}, {"signed", Overflow::sign}});
    const Function form = overflow == Overflow::wrap       ? operation.wrap
                          : overflow == Overflow::saturate ? operation.saturate
                                                           : operation.sign;
    if (!form)
        fail("--overflow: got '", text, "' for ", operation.name,
             ", which has no such form; expected it with add, sub or rsub");
    return form;
}

Image load_for_arithmetic(const Globals &globals, const std::string &path) {
    Image image = globals.load(path);
    switch (image.type()) {
    case KIPX_S8:
        return converted(image, KIPX_S16);
    case KIPX_U16:
        return converted(image, KIPX_S32);
    case KIPX_F64:
        return converted(image, KIPX_F32);
    case KIPX_U32:
        if (!fits(image, KIPX_S32))
            fail(path, ": its u32 values reach ", uint64_t(extremes(image).greatest),
                 ", more than the 2147483647 that arithmetic holds");
        return converted(image, KIPX_S32);
    default:
        return image;
    }
}

// Asks the library whether it computes dst from a and b.
bool has_kernel(Function form, uint32_t dst, uint32_t a, uint32_t b) {
    Environment environment;
    const Image images[] = {Image({dst, 1, 1, 1}), Image({a, 1, 1, 1}), Image({b, 1, 1, 1})};
    const kipx_arr arrays[] = {images[0].arr(), images[1].arr(), images[2].arr()};
    const int32_t answer = form(environment.get(), KIPX_FLAG_PREPARE, &arrays[0], &arrays[1],
                                &arrays[2], nullptr, nullptr, nullptr, 0, 0);
    if (answer != KIPX_ENOTSUP) check_answer(answer, "choosing a kernel");
    return answer == 0;
}

// Brings the sources to types that there is a kernel for: as they are, else both in the narrowest
// type that holds them.
void match_types(const Operation &operation, Function form, uint32_t dst, Image &a, Image &b) {
    if (has_kernel(form, dst, a.type(), b.type())) return;
    const int least = std::max(rank(a.type()), rank(b.type()));
    for (int i = least; i < int(std::size(compute_types)); ++i) {
        const uint32_t type = compute_types[i];
        const bool rounds = type == KIPX_F32 && dst != KIPX_F32 && least < i;
        if (rounds || !has_kernel(form, dst, type, type)) continue;
        if (a.type() != type) a = converted(a, type);
        if (b.type() != type) b = converted(b, type);
        return;
    }
    fail(operation.name, ": no kernel gives ", name_of(dst), " from ", name_of(a.type()), " and ",
         name_of(b.type()), "; choose another --type, --overflow or operation");
}

Place place_of(const char *option, const std::string &text, Place otherwise, const Image &image,
               const std::string &path) {
    if (!text.empty()) {
        const auto at = numbers(option, text, ',', 2, "x,y");
        otherwise = {at[0], at[1]};
    }
    if (otherwise.x >= image.width() || otherwise.y >= image.height())
        fail(text.empty() ? "--roi" : option, ": ", otherwise.x, ",", otherwise.y, " lies outside ",
             path, ", which is ", image.width(), "x", image.height());
    return otherwise;
}

// A zero in the part of the divisor that is used.
void check_divisor(const Operation &operation, const Image &image, const std::string &path,
                   Place at, const Shape &region) {
    if (!is_integer(image.type())) return;
    with_type(image.type(), [&](auto sample) {
        using T = decltype(sample);
        const size_t count = size_t(region.width) * region.channels;
        for (uint32_t y = at.y; y < at.y + region.height; ++y) {
            const T *row =
                reinterpret_cast<const T *>(image.row(y)) + size_t(at.x) * region.channels;
            const T *zero = std::find(row, row + count, T(0));
            if (zero == row + count) continue;
            fail(operation.name, ": the divisor ", path, " is 0 at ",
                 at.x + (zero - row) / region.channels, ",", y, "; ", operation.name,
                 "r has a defined result there");
        }
    });
}

struct Job {
    Image a, b, result;
    Place at1, at2;
};

// Loads the sources and lays out the result: the region that both of them cover.
Job prepare(const Globals &globals, const Arguments &given, uint32_t type,
            const std::vector<uint32_t> &roi) {
    Job job;
    job.a = load_for_arithmetic(globals, given.a);
    job.b = load_for_arithmetic(globals, given.b);
    if (job.a.channels() != job.b.channels())
        fail(given.b, ": has ", job.b.channels(), " channel(s), but ", given.a, " has ",
             job.a.channels(), "; expected as many");
    const Place corner = roi.empty() ? Place{} : Place{roi[0], roi[1]};
    job.at1 = place_of("--at1", given.at1, corner, job.a, given.a);
    job.at2 = place_of("--at2", given.at2, corner, job.b, given.b);
    uint32_t width = std::min(job.a.width() - job.at1.x, job.b.width() - job.at2.x);
    uint32_t height = std::min(job.a.height() - job.at1.y, job.b.height() - job.at2.y);
    if (!roi.empty()) {
        width = std::min(width, roi[2]);
        height = std::min(height, roi[3]);
    }
    if (type == 0) type = compute_types[std::max(rank(job.a.type()), rank(job.b.type()))];
    job.result = Image({type, width, height, job.a.channels()});
    return job;
}

void run(const Globals &globals, const Operation &operation, const Arguments &given) {
    const int32_t scale = int32_t(whole_number("--scale", given.scale, -31, 63));
    const Function form = form_of(operation, given.overflow);
    const uint32_t type =
        given.type.empty()
            ? 0
            : choice<uint32_t>(
                  "--type", given.type,
                  {{"u8", KIPX_U8}, {"s16", KIPX_S16}, {"s32", KIPX_S32}, {"f32", KIPX_F32}});
    std::vector<uint32_t> roi;
    if (!given.roi.empty()) {
        roi = numbers("--roi", given.roi, ',', 4, "x,y,w,h");
        if (roi[2] < 1 || roi[3] < 1)
            fail("--roi: got '", given.roi, "', expected a width and a height of at least 1");
    }
    check_output(given.output);
    Job job = prepare(globals, given, type, roi);
    match_types(operation, form, job.result.type(), job.a, job.b);
    if (operation.truncates)
        check_divisor(operation, operation.divisor == 1 ? job.a : job.b,
                      operation.divisor == 1 ? given.a : given.b,
                      operation.divisor == 1 ? job.at1 : job.at2, job.result.shape());
    Environment environment;
    const kipx_arr dst = job.result.arr(), src1 = job.a.arr(), src2 = job.b.arr();
    const kipx_pos at1 = job.at1.pos(), at2 = job.at2.pos();
    check_answer(form(environment.get(), 0, &dst, &src1, &src2, nullptr, &at1, &at2, scale, 0),
                 operation.name);
    // The signed form leaves bytes of the signed counterpart in a u8 result.
    if (form == operation.sign && job.result.type() == KIPX_U8) job.result.reinterpret(KIPX_S8);
    globals.store(job.result, given.output, operation.name);
}

} // namespace

void add_arith_commands(CLI::App &app, const Globals &globals) {
    for (const Operation &operation : operations) {
        CLI::App *command = app.add_subcommand(operation.name, operation.help);
        auto given = std::make_shared<Arguments>();
        command->add_option("A", given->a, "First image file")->required();
        command->add_option("B", given->b, "Second image file")->required();
        command
            ->add_option("-o,--output", given->output, "Result; the name's ending tells the format")
            ->required()
            ->type_name("OUT");
        command->add_option("--scale", given->scale, "Multiply the result by 2 to the power N")
            ->type_name("N");
        command
            ->add_option("--overflow", given->overflow,
                         "What results beyond an integer type do (add, sub, rsub): wrap (default), "
                         "saturate, or signed: saturate to s8 where the type is u8")
            ->type_name("wrap|saturate|signed");
        command
            ->add_option("--type", given->type,
                         "Type of the result; default: the wider of A's and B's")
            ->type_name("u8|s16|s32|f32")
            ->check(filled);
        command->add_option("--roi", given->roi, "Compute this region only; OUT has its size")
            ->type_name("x,y,w,h")
            ->check(filled);
        command
            ->add_option("--at1", given->at1,
                         "Where in A the region starts; default: the corner of --roi")
            ->type_name("x,y")
            ->check(filled);
        command
            ->add_option("--at2", given->at2,
                         "Where in B the region starts; default: the corner of --roi")
            ->type_name("x,y")
            ->check(filled);
        command->footer(std::string("Example: kipx ") + operation.name +
                        " a.png b.png -o out.png --scale -1 --type u8");
        command->callback([&globals, &operation, given] { run(globals, operation, *given); });
    }
}
