// pixel_command.cpp - kipx negate, exp, ln, sigmoid, matrix, resize: an image in, one out that is made of
// its pixels one by one.
//
// Integer results are formed in f64 and brought to their type, to nearest even and saturated, from there;
// so those that do not fit can be counted. Real results come from the library in their own type.
#include "command.h"
#include "failure.h"
#include "image/values.h"
#include "numbers.h"
#include "options.h"

#include <kipx/matrix.h>
#include <kipx/resize.h>
#include <kipx/unary.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>

namespace {

struct PixelArguments {
    std::string source, matrix, alpha = "1", added;
    Goal goal;
    uint32_t page = 1, type = 0; // 0: the command's own choice
    int32_t scale = 0;
    Extent size;
    double factor = 0;
};

// ---- colour transforms that have a name ----

struct PixelMatrix {
    size_t columns = 0;
    std::vector<double> numbers, addends; // row by row; one of each row
    size_t rows() const { return columns ? numbers.size() / columns : 0; }
};

// The full-range conversions of JPEG files, from the weights of red and blue in the luma.
PixelMatrix named_matrix(const std::string &name, double middle) {
    constexpr double red = 0.299, blue = 0.114, green = 1 - red - blue;
    constexpr double of_cb = 2 * (1 - blue), of_cr = 2 * (1 - red);
    if (name == "grey") return {3, {red, green, blue}, {0}};
    if (name == "ycbcr")
        return {3,
                {red, green, blue, -red / of_cb, -green / of_cb, 0.5, 0.5, -green / of_cr,
                 -blue / of_cr},
                {0, middle, middle}};
    if (name != "rgb") return {};
    const double back_blue = -of_cb * blue / green, back_red = -of_cr * red / green;
    return {3,
            {1, 0, of_cr, 1, back_blue, back_red, 1, of_cb, 0},
            {-of_cr * middle, -(back_blue + back_red) * middle, -of_cb * middle}};
}

// Where chroma is 0: in the middle of unsigned types.
double pixel_middle(uint32_t type) {
    if (!is_integer(type)) return 0.5;
    const bool has_negatives = type == KIPX_S8 || type == KIPX_S16 || type == KIPX_S32;
    return has_negatives ? 0 : std::ldexp(1.0, int(8 * size_of(type)) - 1);
}

// A name, or rows of numbers with semicolons between.
PixelMatrix pixel_matrix(const PixelArguments &given, const Image &image) {
    PixelMatrix m = named_matrix(given.matrix, pixel_middle(image.type()));
    if (m.columns) {
        if (image.channels() != 3)
            fail("--matrix: got {} for {} with {} channel(s), expected 3", given.matrix,
                 given.source, image.channels());
    } else {
        for (size_t start = 0; start <= given.matrix.size();) {
            const size_t end = std::min(given.matrix.find(';', start), given.matrix.size());
            const std::vector<double> row = numbers_of(given.matrix.substr(start, end - start));
            if (row.empty() || row.size() > 4 || (m.columns && row.size() != m.columns) ||
                m.rows() == 4)
                fail(
                    "--matrix: got '{}', expected grey, ycbcr, rgb, or 1 to 4 rows with semicolons "
                    "between, each of as many numbers with commas between as the image has "
                    "channels",
                    given.matrix);
            m.columns = row.size();
            m.numbers.insert(m.numbers.end(), row.begin(), row.end());
            start = end + 1;
        }
        if (m.columns != image.channels())
            fail("--matrix: got rows of {} number(s) for {} with {} channel(s), expected as many",
                 m.columns, given.source, image.channels());
        m.addends.assign(m.rows(), 0);
    }
    if (given.added.empty()) return m;
    m.addends = numbers_of(given.added);
    if (m.addends.size() != m.rows())
        fail("--add: got '{}', expected {} number(s) with commas between, one for each row of "
             "--matrix",
             given.added, m.rows());
    return m;
}

// ---- the work ----

using PixelCall = std::function<int32_t(KipxXE *xe, const kipx_arr *dst, const kipx_arr *src)>;

// Pixels of which a channel leaves the type.
uint64_t pixels_beyond(const Image &exact, uint32_t type) {
    double least = 0, greatest = 0;
    with_type(type, [&](auto sample) {
        using T = decltype(sample);
        least = double(std::numeric_limits<T>::lowest()),
        greatest = double(std::numeric_limits<T>::max());
    });
    const auto *values = exact.as<double>();
    uint64_t out = 0;
    for (uint64_t i = 0; i < exact.elements(); i += exact.channels())
        out += !std::all_of(values + i, values + i + exact.channels(), [&](double v) {
            const double r = std::nearbyint(v);
            return r >= least && r <= greatest;
        });
    return out;
}

// Computes the image of so many channels in its type, and stores it.
void make_pixels(const Globals &globals, const PixelArguments &given, const Image &source,
                 uint32_t type, uint32_t channels, const std::string &what, const PixelCall &call) {
    const bool whole = is_integer(type);
    Image result({whole ? uint32_t(KIPX_F64) : type, source.width(), source.height(), channels});
    Environment environment;
    const kipx_arr dst = result.arr(), src = source.arr();
    check_answer(call(environment.get(), &dst, &src), what);
    const uint64_t clipped = whole ? pixels_beyond(result, type) : 0;
    if (whole) result = converted(result, type);
    globals.store(result, given.goal, what);
    if (clipped)
        globals.note(fmt::format("{}: {} of {} pixels did not fit {} and were clipped", what,
                                 clipped, result.pixels(), name_of(type)));
}

struct PixelCommand {
    const char *name, *help, *footer;
    void (*run)(const Globals &, const PixelArguments &);
    bool typed;
};

Image load_pixels(const Globals &globals, const PixelArguments &given) {
    check_goal(given.goal);
    return globals.load(given.source, given.page);
}

// In a type that functions of one array take.
Image unary_source(Image image) {
    switch (image.type()) {
    case KIPX_S8:
        return converted(image, KIPX_S16);
    case KIPX_U16:
        return converted(image, KIPX_S32);
    case KIPX_U32:
        return converted(image, KIPX_F64);
    default:
        return image;
    }
}

// The narrowest type that holds the negatives of another one's values; but the least one of a signed type.
uint32_t negative_type(uint32_t type) {
    switch (type) {
    case KIPX_U8:
    case KIPX_S8:
        return KIPX_S16;
    case KIPX_U16:
        return KIPX_S32;
    case KIPX_U32:
        return KIPX_F64;
    default:
        return type;
    }
}

void run_negate(const Globals &globals, const PixelArguments &given) {
    Image source = load_pixels(globals, given);
    const uint32_t type = given.type ? given.type : negative_type(source.type());
    source = converted(source, KIPX_F64);
    make_pixels(globals, given, source, type, source.channels(), "negate",
                [&](KipxXE *xe, const kipx_arr *dst, const kipx_arr *src) {
                    return KipxNegate(xe, 0, dst, src, nullptr, nullptr, given.scale, 0);
                });
}

template<decltype(&KipxExp) function>
void run_function(const Globals &globals, const PixelArguments &given, const char *name) {
    const Image source = unary_source(load_pixels(globals, given));
    const uint32_t real = source.type() == KIPX_F64 ? KIPX_F64 : KIPX_F32;
    make_pixels(globals, given, source, given.type ? given.type : real, source.channels(), name,
                [&](KipxXE *xe, const kipx_arr *dst, const kipx_arr *src) {
                    return function(xe, 0, dst, src, nullptr, nullptr, given.scale, 0);
                });
}
void run_exp(const Globals &globals, const PixelArguments &given) {
    run_function<KipxExp>(globals, given, "exp");
}
void run_ln(const Globals &globals, const PixelArguments &given) {
    run_function<KipxLn>(globals, given, "ln");
}

void run_sigmoid(const Globals &globals, const PixelArguments &given) {
    const Image source = unary_source(load_pixels(globals, given));
    const std::vector<double> alpha = numbers_for(source, "--alpha", given.alpha);
    const uint32_t real = source.type() == KIPX_F64 ? KIPX_F64 : KIPX_F32;
    make_pixels(globals, given, source, given.type ? given.type : real, source.channels(),
                "sigmoid", [&](KipxXE *xe, const kipx_arr *dst, const kipx_arr *src) {
                    return KipxSigmoidAlpha(xe, 0, dst, src, alpha.data(), nullptr, nullptr,
                                            given.scale, 0);
                });
}

void run_matrix(const Globals &globals, const PixelArguments &given) {
    Image source = load_pixels(globals, given);
    const uint32_t type = given.type ? given.type : source.type();
    const PixelMatrix m = pixel_matrix(given, source);
    if (source.type() == KIPX_S8) source = converted(source, KIPX_S16);
    if (source.type() == KIPX_U32) source = converted(source, KIPX_F64);
    make_pixels(globals, given, source, type, uint32_t(m.rows()), "matrix",
                [&](KipxXE *xe, const kipx_arr *dst, const kipx_arr *src) {
                    return KipxMulMV_n(xe, 0, dst, src, m.numbers.data(), m.addends.data(), nullptr,
                                       nullptr, given.scale, 0);
                });
}

void run_resize(const Globals &globals, const PixelArguments &given) {
    if ((given.size.width != 0) == (given.factor > 0))
        fail("resize: got {} --size and --by, expected one of them",
             given.factor > 0 ? "both" : "neither");
    const Image source = load_pixels(globals, given);
    const auto times = [&](uint32_t n) {
        const double size = std::max(std::nearbyint(n * given.factor), 1.0);
        if (size > INT32_MAX)
            fail("--by: got {}, which makes {} pixels of {}, expected up to {}", given.factor, size,
                 n, INT32_MAX);
        return uint32_t(size);
    };
    const Extent size =
        given.factor > 0 ? Extent{times(source.width()), times(source.height())} : given.size;
    Image result({source.type(), size.width, size.height, source.channels()});
    const kipx_arr dst = result.arr(), src = source.arr();
    check_answer(KipxResize(nullptr, 0, &dst, &src, nullptr, nullptr), "resize");
    globals.store(result, given.goal, "resize");
}

// ---- their options ----

const PixelCommand pixel_commands[] = {
    {"negate", "-A; of unsigned integers in a signed type",
     "Example: kipx negate height.tif -o depth.tif", run_negate, true},
    {"exp", "e to the power A", "Example: kipx exp log.tif -o linear.tif", run_exp, true},
    {"ln", "Natural logarithm of A",
     "Example: kipx ln spectrum.tif -o log.npy\nThat of 0 is minus infinity.", run_ln, true},
    {"sigmoid", "1 / (1 + e^(-alpha A)), a soft threshold at 0",
     "Example: kipx sigmoid score.npy -o probability.npy --alpha 4", run_sigmoid, true},
    {"matrix", "Every pixel's channels times a matrix: colour transforms",
     "Examples: kipx matrix photo.png -o grey.png --matrix grey\n"
     "          kipx matrix photo.png -o warm.png --matrix '1.1,0,0;0,1,0;0,0,0.9' --add 4,0,0\n"
     "grey, ycbcr and rgb are those of JPEG files, of the whole range; rgb takes ycbcr back.",
     run_matrix, true},
    {"resize", "Another size, by the nearest pixel",
     "Examples: kipx resize labels.tif -o half.tif --by 0.5\n"
     "          kipx resize icon.png -o large.png --size 512x512",
     run_resize, false},
};

void add_own_pixel_options(CLI::App &command, const std::string &name, PixelArguments &given) {
    if (name == "sigmoid")
        add_value(command, "--alpha", given.alpha, filled(), "N,...",
                  "How steep it is: one number, or one for each channel")
            ->capture_default_str();
    if (name == "matrix") {
        add_value(
            command, "--matrix", given.matrix, filled(), "grey|ycbcr|rgb|ROWS",
            "A name, or rows of numbers: a,b,c;d,e,f;g,h,i. A row makes a channel of the result")
            ->required();
        add_value(command, "--add", given.added, filled(), "N,...",
                  "A number for each channel of the result, which is added to it");
    }
    if (name == "resize") {
        add_extent(command, "--size", given.size, "Size of the result")->default_str("");
        add_value(command, "--by", given.factor, above(0, 65536), "F",
                  "Factor for width and height");
    }
}

} // namespace

void add_pixel_commands(CLI::App &app, const Globals &globals) {
    for (const PixelCommand &row : pixel_commands) {
        CLI::App *command = app.add_subcommand(row.name, row.help);
        auto given = std::make_shared<PixelArguments>();
        add_value(*command, "A", given->source, filled(), "", "Image file; - is standard input")
            ->required();
        add_goal_options(*command, given->goal, "Result");
        add_own_pixel_options(*command, row.name, *given);
        if (row.typed) {
            add_choice<uint32_t>(*command, "--type", given->type,
                                 {{"u8", KIPX_U8},
                                  {"u16", KIPX_U16},
                                  {"s16", KIPX_S16},
                                  {"s32", KIPX_S32},
                                  {"f32", KIPX_F32},
                                  {"f64", KIPX_F64}},
                                 "Type of the result; by default one that suits");
            add_scale_option(*command, given->scale);
        }
        add_page_option(*command, given->page);
        command->footer(row.footer);
        command->callback([&globals, &row, given] { row.run(globals, *given); });
    }
}
