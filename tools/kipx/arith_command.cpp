// arith_command.cpp - kipx add, sub, rsub, mul, div, divr, rdiv, rdivr: two image files in, or one and
// a number, one out.
//
// The files' elements are brought to the types that the library computes with: u16 to s32, s8 to
// s16, u32 to s32 when all values fit, f64 to f32. Where it has no kernel for the resulting three
// types the sources are widened further, never rounded. A number is the number that it is, whatever
// the elements' type. Results that an integer type does not hold are saturated, unless something else
// is asked for, and counted in any case.
#include "command.h"
#include "failure.h"
#include "image/values.h"
#include "numbers.h"
#include "options.h"

#include <kipx/arith.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <memory>

namespace {

// A form of an operation: over two images, and over an image and a number for each channel.
struct ArithForm {
    decltype(&KipxAdd) images;
    decltype(&KipxAddC) numbers;
};
#define KIPX_FORM(name)                                                                            \
    { Kipx##name, Kipx##name##C }
constexpr ArithForm no_form = {nullptr, nullptr};

struct ArithOperation {
    const char *name;
    const char *help;
    ArithForm wrap, saturate, sign; // the last two none where the operation has no such form
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
    {"add", "A + B", KIPX_FORM(Add), KIPX_FORM(Addq), KIPX_FORM(Addsq), sum, 0, false},
    {"sub", "A - B", KIPX_FORM(Sub), KIPX_FORM(Subq), KIPX_FORM(Subsq), difference, 0, false},
    {"rsub", "B - A", KIPX_FORM(RSub), KIPX_FORM(RSubq), KIPX_FORM(RSubsq), difference_back, 0,
     false},
    {"mul", "A * B", KIPX_FORM(Mul), no_form, no_form, product, 0, false},
    {"div", "A / B, integers truncated", KIPX_FORM(Div), no_form, no_form, quotient, 2, true},
    {"divr", "A / B, rounded to the nearest integer", KIPX_FORM(Divr), no_form, no_form, quotient,
     2, false},
    {"rdiv", "B / A, integers truncated", KIPX_FORM(RDiv), no_form, no_form, quotient_back, 1,
     true},
    {"rdivr", "B / A, rounded to the nearest integer", KIPX_FORM(RDivr), no_form, no_form,
     quotient_back, 1, false},
};
#undef KIPX_FORM

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

// The sources, a place in each, and the result. Where there are numbers, one for every channel, they
// stand for b.
struct ArithJob {
    Image a, b, result;
    std::vector<double> numbers;
    Place at1, at2;

    bool of_integers() const {
        if (numbers.empty()) return is_integer(a.type()) && is_integer(b.type());
        const auto whole_s32 = [](double x) { return x == std::trunc(x) && std::abs(x) < 0x1p31; };
        return is_integer(a.type()) && std::all_of(numbers.begin(), numbers.end(), whole_s32);
    }
    int widest() const {
        return numbers.empty() ? std::max(rank(a.type()), rank(b.type())) : rank(a.type());
    }
};

// The library's answer.
int32_t compute(const ArithForm &form, const ArithJob &job, int32_t scale, uint64_t flags) {
    Environment environment;
    const kipx_arr dst = job.result.arr(), src1 = job.a.arr();
    const kipx_pos at1 = position(job.at1), at2 = position(job.at2);
    if (!job.numbers.empty())
        return form.numbers(environment.get(), flags, &dst, &src1, job.numbers.data(), nullptr,
                            &at1, scale, 0);
    const kipx_arr src2 = job.b.arr();
    return form.images(environment.get(), flags, &dst, &src1, &src2, nullptr, &at1, &at2, scale, 0);
}

// The form asked for, saturation where none was. Scaled and float results, and those formed in
// floats, are saturated by the plain one.
const ArithForm &form_of(const ArithOperation &operation, const ArithArguments &given,
                         const ArithJob &job) {
    const char *why = !operation.saturate.images       ? "always saturates"
                      : given.scale != 0               ? "saturates whenever there is a --scale"
                      : !is_integer(job.result.type()) ? "gives f32 here, which does not overflow"
                      : !job.of_integers()             ? "saturates whenever a source is of floats"
                                                       : nullptr;
    if (why && given.overflow)
        fail("--overflow: got it for {}, which {}; expected it with add, sub or rsub of integers, "
             "without --scale",
             operation.name, why);
    if (why || given.overflow == Overflow::wrap) return operation.wrap;
    return given.overflow == Overflow::sign ? operation.sign : operation.saturate;
}

// Whether the library computes the result from sources of such types.
bool has_kernel(const ArithForm &form, const ArithJob &job, uint32_t a, uint32_t b) {
    const uint32_t channels = job.result.channels();
    const ArithJob probe = {Image({a, 1, 1, channels}),
                            Image({b, 1, 1, channels}),
                            Image({job.result.type(), 1, 1, channels}),
                            job.numbers,
                            {},
                            {}};
    const int32_t answer = compute(form, probe, 0, KIPX_FLAG_PREPARE);
    if (answer != KIPX_ENOTSUP) check_answer(answer, "choosing a kernel");
    return answer == 0;
}

// Brings the sources to types that there is a kernel for: as they are, else both in the narrowest
// type that holds them.
void match_types(const ArithOperation &operation, const ArithForm &form, ArithJob &job) {
    const bool images = job.numbers.empty();
    const uint32_t dst = job.result.type(), second = images ? job.b.type() : job.a.type();
    if (has_kernel(form, job, job.a.type(), second)) return;
    const int least = job.widest();
    for (int i = least; i < int(std::size(compute_types)); ++i) {
        const uint32_t type = compute_types[i];
        const bool rounds = type == KIPX_F32 && dst != KIPX_F32 && least < i && job.of_integers();
        if (rounds || !has_kernel(form, job, type, type)) continue;
        if (job.a.type() != type) job.a = converted(job.a, type);
        if (images && job.b.type() != type) job.b = converted(job.b, type);
        return;
    }
    fail("{}: no kernel gives {} from {} and {}; choose another --type, --overflow or operation",
         operation.name, name_of(dst), name_of(job.a.type()),
         images ? name_of(second) : "this number");
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

void load_images(const Globals &globals, const ArithArguments &given, ArithJob &job) {
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
             "which parts meet",
             given.b, job.b.width(), job.b.height(), given.a, job.a.width(), job.a.height());
    job.b = computable(std::move(job.b), given.b, "arithmetic holds");
}

void load_sources(const Globals &globals, const ArithArguments &given, ArithJob &job) {
    if (!means_numbers("B", given.b)) {
        load_images(globals, given, job);
    } else {
        if (given.at2)
            fail("--at2: got it with a number for B, which has no places; expected it with an "
                 "image");
        job.a = globals.load(given.a, given.page);
        job.numbers = numbers_for(job.a, "B", given.b);
    }
    job.a = computable(std::move(job.a), given.a, "arithmetic holds");
}

// Loads the sources and lays out the result: the region that both of them cover.
ArithJob prepare(const Globals &globals, const ArithArguments &given) {
    ArithJob job;
    load_sources(globals, given, job);
    const Place corner = given.roi ? Place{given.roi->x, given.roi->y} : Place{};
    job.at1 = place_of("--at1", given.at1, corner, job.a, given.a);
    uint32_t width = job.a.width() - job.at1.x, height = job.a.height() - job.at1.y;
    if (job.numbers.empty()) {
        job.at2 = place_of("--at2", given.at2, corner, job.b, given.b);
        width = std::min(width, job.b.width() - job.at2.x);
        height = std::min(height, job.b.height() - job.at2.y);
    }
    if (given.roi) {
        width = std::min(width, given.roi->width);
        height = std::min(height, given.roi->height);
    }
    const uint32_t type = given.type ? given.type : compute_types[job.widest()];
    job.result = Image({type, width, height, job.a.channels()});
    return job;
}

// Pixels of which a channel's exact result does not fit the result's type. A quotient by zero has a
// result of its own and does not count.
uint64_t beyond(const ArithOperation &operation, const ArithJob &job, const ArithArguments &given) {
    const uint32_t channels = job.result.channels();
    uint64_t out = 0;
    const auto values_of = []<class T>(T, const Image &image, Place at) {
        return [&image, at](uint32_t y) {
            const auto *row =
                reinterpret_cast<const T *>(image.row(at.y + y)) + size_t(at.x) * image.channels();
            return [row](size_t i) { return double(row[i]); };
        };
    };
    const auto numbers = [&](uint32_t) {
        return [&](size_t i) { return job.numbers[i % channels]; };
    };
    const auto count = [&](auto first, auto second, double least, double greatest) {
        for (uint32_t y = 0; y < job.result.height(); ++y) {
            const auto a = first(y);
            const auto b = second(y);
            for (size_t i = 0; i < size_t(job.result.width()) * channels; i += channels) {
                bool all_fit = true;
                for (size_t c = i; c < i + channels; ++c) {
                    const double exact = operation.exact(a(c), b(c));
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
        if constexpr (std::is_integral_v<T>) {
            constexpr auto least = double(std::numeric_limits<T>::min());
            constexpr auto greatest = double(std::numeric_limits<T>::max());
            with_type(job.a.type(), [&](auto sample) {
                const auto a = values_of(sample, job.a, job.at1);
                if (!job.numbers.empty()) return count(a, numbers, least, greatest);
                with_type(job.b.type(), [&](auto other) {
                    count(a, values_of(other, job.b, job.at2), least, greatest);
                });
            });
        }
    });
    return out;
}

// A zero where integers are divided as integers.
void check_divisors(const ArithOperation &operation, const ArithArguments &given,
                    const ArithJob &job) {
    if (!operation.truncates) return;
    if (operation.divisor == 1)
        return check_divisor(operation, job.a, given.a, job.at1, job.result.shape());
    if (job.numbers.empty())
        return check_divisor(operation, job.b, given.b, job.at2, job.result.shape());
    if (is_integer(job.a.type()) &&
        std::find(job.numbers.begin(), job.numbers.end(), 0.0) != job.numbers.end())
        fail("B: got {}, a divisor of 0; {}r has a defined result there", given.b, operation.name);
}

void run_arith(const Globals &globals, const ArithOperation &operation,
               const ArithArguments &given) {
    check_goal(given.goal);
    ArithJob job = prepare(globals, given);
    const ArithForm &form = form_of(operation, given, job);
    match_types(operation, form, job);
    check_divisors(operation, given, job);
    check_answer(compute(form, job, given.scale, 0), operation.name);
    // The signed form leaves bytes of the signed counterpart in a u8 result.
    if (form.images == operation.sign.images && job.result.type() == KIPX_U8)
        job.result.reinterpret(KIPX_S8);
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
        add_value(*command, "B", given->b, filled(), "",
                  "Second image file, or a number, or one for each channel: 12 or 1,0.5,0.25")
            ->required();
        add_goal_options(*command, given->goal, "Result");
        add_scale_option(*command, given->scale);
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
