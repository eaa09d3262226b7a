// arith_command.cpp - kipx add, sub, rsub, mul, div, divr, rdiv, rdivr: two image files in, one out.
//
// The files' elements are brought to the types that the library computes with: u16 to s32, s8 to
// s16, u32 to s32 when all values fit, f64 to f32. Where it has no kernel for the resulting three
// types the sources are widened further, never rounded. Results that an integer type does not hold
// are saturated, unless something else is asked for, and counted in any case.
#include "command.h"
#include "failure.h"
#include "options.h"

#include <kipx/arith.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <memory>

namespace {

using ArithFunction = decltype(&KipxAdd);

struct ArithOperation {
    const char *name;
    const char *help;
    ArithFunction wrap, saturate, sign; // the last two null where the operation has no such form
    double (*exact)(double a, double b);
    int divisor;    // which source divides, 1 or 2; 0 for none
    bool truncates; // integers divided as integers, where a zero cannot be answered
};

double sum(double a, double b) { return a + b; }
double difference(double a, double b) { return a - b; }
double difference_back(double a, double b) { return b - a; }
double product(double a, double b) { return a * b; }
double quotient(double a, double b) { return a / b; }
double quotient_back(double a, double b) { return b / a; }

const ArithOperation arith_operations[] = {
    {"add", "A + B", KipxAdd, KipxAddq, KipxAddsq, sum, 0, false},
    {"sub", "A - B", KipxSub, KipxSubq, KipxSubsq, difference, 0, false},
    {"rsub", "B - A", KipxRSub, KipxRSubq, KipxRSubsq, difference_back, 0, false},
    {"mul", "A * B", KipxMul, nullptr, nullptr, product, 0, false},
    {"div", "A / B, integers truncated", KipxDiv, nullptr, nullptr, quotient, 2, true},
    {"divr", "A / B, rounded to the nearest integer", KipxDivr, nullptr, nullptr, quotient, 2,
     false},
    {"rdiv", "B / A, integers truncated", KipxRDiv, nullptr, nullptr, quotient_back, 1, true},
    {"rdivr", "B / A, rounded to the nearest integer", KipxRDivr, nullptr, nullptr, quotient_back,
     1, false},
};

enum class Overflow { saturate, wrap, sign };

struct ArithArguments {
    std::string a, b;
    Goal goal;
    int32_t scale = 0;
    std::optional<Overflow> overflow;
    uint32_t type = 0, page = 1; // type 0: the wider of the sources'
    std::optional<Part> roi;
    std::optional<Place> at1, at2;
};

kipx_pos position(Place place) { return {{0, place.y, place.x, 0}}; }

// The types that the library computes with, each holding those before it; f32 holds all but s32.
constexpr uint32_t compute_types[] = {KIPX_U8, KIPX_S16, KIPX_S32, KIPX_F32};

int rank(uint32_t type) {
    return int(std::find(std::begin(compute_types), std::end(compute_types), type) - compute_types);
}

bool both_integers(const Image &a, const Image &b) {
    return is_integer(a.type()) && is_integer(b.type());
}

// The library's function: that of the form asked for, saturation where none was. Scaled and float
// results, and those formed in floats, are saturated by the plain one.
ArithFunction form_of(const ArithOperation &operation, const ArithArguments &given, uint32_t type,
                      const Image &a, const Image &b) {
    const char *why = !operation.saturate    ? "always saturates"
                      : given.scale != 0     ? "saturates whenever there is a --scale"
                      : !is_integer(type)    ? "gives f32 here, which does not overflow"
                      : !both_integers(a, b) ? "saturates whenever a source is of floats"
                                             : nullptr;
    if (why && given.overflow)
        fail("--overflow: got it for {}, which {}; expected it with add, sub or rsub of integers, "
             "without --scale",
             operation.name, why);
    if (why || given.overflow == Overflow::wrap) return operation.wrap;
    return given.overflow == Overflow::sign ? operation.sign : operation.saturate;
}

// Brought to a type that the library computes with.
Image computable(Image image, const std::string &path) {
    switch (image.type()) {
    case KIPX_S8:
        return converted(image, KIPX_S16);
    case KIPX_U16:
        return converted(image, KIPX_S32);
    case KIPX_F64:
        return converted(image, KIPX_F32);
    case KIPX_U32:
        if (!fits(image, KIPX_S32))
            fail("{}: its u32 values reach {:.0f}, more than the 2147483647 that arithmetic holds",
                 path, extremes(image).greatest);
        return converted(image, KIPX_S32);
    default:
        return image;
    }
}

// Asks the library whether it computes dst from a and b.
bool has_kernel(ArithFunction form, uint32_t dst, uint32_t a, uint32_t b) {
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
void match_types(const ArithOperation &operation, ArithFunction form, uint32_t dst, Image &a,
                 Image &b) {
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
    fail("{}: no kernel gives {} from {} and {}; choose another --type, --overflow or operation",
         operation.name, name_of(dst), name_of(a.type()), name_of(b.type()));
}

Place place_of(const char *option, const std::optional<Place> &given, Place otherwise,
               const Image &image, const std::string &path) {
    const Place out = given.value_or(otherwise);
    if (out.x >= image.width() || out.y >= image.height())
        fail("{}: got {},{}, which lies outside {} of {}x{}", given ? option : "--roi", out.x,
             out.y, path, image.width(), image.height());
    return out;
}

// A zero in the part of the divisor that is used.
void check_divisor(const ArithOperation &operation, const Image &image, const std::string &path,
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
            fail("{0}: the divisor {1} is 0 at {2},{3}; {0}r has a defined result there",
                 operation.name, path, at.x + (zero - row) / region.channels, y);
        }
    });
}

struct ArithJob {
    Image a, b, result;
    Place at1, at2;
};

void load_sources(const Globals &globals, const ArithArguments &given, ArithJob &job) {
    std::error_code error;
    if (given.a == given.b && !std::filesystem::is_regular_file(given.a, error) &&
        (given.a == "-" || std::filesystem::exists(given.a, error)))
        fail("B: got '{}' as for A, expected another file: what comes from there can be read once",
             given.b);
    const uint32_t page_a = globals.page_beside(given.a, given.page);
    const uint32_t page_b = globals.page_beside(given.b, given.page);
    if (page_a < given.page && page_b < given.page)
        fail("--page: got {}, but neither {} nor {} has more than one page", given.page, given.a,
             given.b);
    job.a = globals.load(given.a, page_a);
    job.b = globals.load(given.b, page_b);
    if (job.a.channels() != job.b.channels())
        fail("{}: has {} channel(s), but {} has {}; expected as many", given.b, job.b.channels(),
             given.a, job.a.channels());
    const bool alike = job.a.width() == job.b.width() && job.a.height() == job.b.height();
    if (!alike && !given.roi && !given.at1 && !given.at2)
        fail("{}: is {}x{}, but {} is {}x{}; expected one size, or --roi, --at1 or --at2 to tell "
             "which "
             "parts meet",
             given.b, job.b.width(), job.b.height(), given.a, job.a.width(), job.a.height());
    job.a = computable(std::move(job.a), given.a);
    job.b = computable(std::move(job.b), given.b);
}

// Loads the sources and lays out the result: the region that both of them cover.
ArithJob prepare(const Globals &globals, const ArithArguments &given) {
    ArithJob job;
    load_sources(globals, given, job);
    const Place corner = given.roi ? Place{given.roi->x, given.roi->y} : Place{};
    job.at1 = place_of("--at1", given.at1, corner, job.a, given.a);
    job.at2 = place_of("--at2", given.at2, corner, job.b, given.b);
    uint32_t width = std::min(job.a.width() - job.at1.x, job.b.width() - job.at2.x);
    uint32_t height = std::min(job.a.height() - job.at1.y, job.b.height() - job.at2.y);
    if (given.roi) {
        width = std::min(width, given.roi->width);
        height = std::min(height, given.roi->height);
    }
    const uint32_t wider = compute_types[std::max(rank(job.a.type()), rank(job.b.type()))];
    job.result = Image({given.type ? given.type : wider, width, height, job.a.channels()});
    return job;
}

// Pixels of which a channel's exact result does not fit the result's type. A quotient by zero has a
// result of its own and does not count.
uint64_t beyond(const ArithOperation &operation, const ArithJob &job, const ArithArguments &given) {
    const uint32_t channels = job.result.channels();
    uint64_t out = 0;
    const auto row_of = [](auto sample, const Image &image, Place at, uint32_t y) {
        const auto *row = reinterpret_cast<const decltype(sample) *>(image.row(at.y + y));
        return row + size_t(at.x) * image.channels();
    };
    const auto count = [&](auto first, auto second, double least, double greatest) {
        for (uint32_t y = 0; y < job.result.height(); ++y) {
            const auto *a = row_of(first, job.a, job.at1, y);
            const auto *b = row_of(second, job.b, job.at2, y);
            for (size_t i = 0; i < size_t(job.result.width()) * channels; i += channels) {
                bool all_fit = true;
                for (size_t c = i; c < i + channels; ++c) {
                    const double exact = operation.exact(double(a[c]), double(b[c]));
                    const double whole = operation.truncates ? std::trunc(exact) : exact;
                    const double value = std::nearbyint(std::ldexp(whole, given.scale));
                    all_fit &= !std::isfinite(value) || (value >= least && value <= greatest);
                }
                out += !all_fit;
            }
        }
    };
    with_type(job.result.type(), [&](auto result) {
        using T = decltype(result);
        if constexpr (std::is_integral_v<T>)
            with_type(job.a.type(), [&](auto a) {
                with_type(job.b.type(), [&](auto b) {
                    count(a, b, double(std::numeric_limits<T>::min()),
                          double(std::numeric_limits<T>::max()));
                });
            });
    });
    return out;
}

void run_arith(const Globals &globals, const ArithOperation &operation,
               const ArithArguments &given) {
    check_goal(given.goal);
    ArithJob job = prepare(globals, given);
    const ArithFunction form = form_of(operation, given, job.result.type(), job.a, job.b);
    match_types(operation, form, job.result.type(), job.a, job.b);
    if (operation.truncates)
        check_divisor(operation, operation.divisor == 1 ? job.a : job.b,
                      operation.divisor == 1 ? given.a : given.b,
                      operation.divisor == 1 ? job.at1 : job.at2, job.result.shape());
    Environment environment;
    const kipx_arr dst = job.result.arr(), src1 = job.a.arr(), src2 = job.b.arr();
    const kipx_pos at1 = position(job.at1), at2 = position(job.at2);
    check_answer(
        form(environment.get(), 0, &dst, &src1, &src2, nullptr, &at1, &at2, given.scale, 0),
        operation.name);
    // The signed form leaves bytes of the signed counterpart in a u8 result.
    if (form == operation.sign && job.result.type() == KIPX_U8) job.result.reinterpret(KIPX_S8);
    globals.store(job.result, given.goal, operation.name);
    if (const uint64_t count = beyond(operation, job, given))
        globals.note(fmt::format("{}: {} of {} pixels did not fit {} and were {}", operation.name,
                                 count, job.result.pixels(), name_of(job.result.type()),
                                 given.overflow == Overflow::wrap ? "wrapped round" : "clipped"));
}

} // namespace

void add_arith_commands(CLI::App &app, const Globals &globals) {
    for (const ArithOperation &operation : arith_operations) {
        CLI::App *command = app.add_subcommand(operation.name, operation.help);
        auto given = std::make_shared<ArithArguments>();
        add_value(*command, "A", given->a, filled(), "", "First image file; - is standard input")
            ->required();
        add_value(*command, "B", given->b, filled(), "", "Second image file")->required();
        add_goal_options(*command, given->goal, "Result");
        add_value(*command, "--scale", given->scale, whole(-31, 63), "N",
                  "Multiply the result by 2 to the power N")
            ->capture_default_str();
        add_choice<std::optional<Overflow>>(
            *command, "--overflow", given->overflow,
            {{"saturate", Overflow::saturate},
             {"wrap", Overflow::wrap},
             {"signed", Overflow::sign}},
            "What integer results of add, sub and rsub beyond the type do: stop at its ends (so by "
            "default), keep the low bits, or stop at the ends of the signed type, s8 for u8");
        add_choice<uint32_t>(
            *command, "--type", given->type,
            {{"u8", KIPX_U8}, {"s16", KIPX_S16}, {"s32", KIPX_S32}, {"f32", KIPX_F32}},
            "Type of the result; by default the wider of A's and B's");
        add_part(*command, "--roi", given->roi, "Compute this region only; OUT has its size");
        add_place(*command, "--at1", given->at1,
                  "Where in A the region starts; by default the corner of --roi");
        add_place(*command, "--at2", given->at2,
                  "Where in B the region starts; by default the corner of --roi");
        add_page_option(*command, given->page);
        command->footer(fmt::format("Example: kipx {} a.png b.png -o out.png --scale -1 --type u8\n"
                                    "How many pixels did not fit the type is told on stderr.",
                                    operation.name));
        command->callback([&globals, &operation, given] { run_arith(globals, operation, *given); });
    }
}
