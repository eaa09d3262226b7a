// filter_command.cpp - kipx filter, morph, gauss, sepfilter, firefly: an image in, what its pixels'
// neighbours make of it out.
//
// The file's elements are brought to a type that the library works with, and brought back where every
// value fits: u16 to s32, s8 to s16, u32 to s32 where all values fit, f64 to f32. The line that is
// printed tells the element that was really used; of 1 x 1 it is a copy.
#include "command.h"
#include "failure.h"
#include "image/values.h"
#include "options.h"

#include <kipx/firefly.h>
#include <kipx/morph.h>
#include <kipx/sepfilter.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <functional>
#include <memory>
#include <span>

namespace {

// Rows and columns, as element sizes and anchors are given.
struct FilterPair {
    uint32_t row = 0, column = 0;
};

struct FilterArguments {
    std::string source, mask;
    Goal goal;
    uint32_t page = 1;
    std::optional<FilterPair> size, anchor;
    std::optional<Part> roi;
    uint32_t border = KIPX_BORDER_REPLICATE;
    uint32_t kind = 0, op = 0;
    std::string shape = "rect";
    std::vector<double> sigmas, rows, columns;
    double bright = INFINITY, dark = INFINITY;
};

// ---- values of options ----

template<class T>
bool filter_numbers(const std::string &text, char separator, std::vector<T> &out) {
    out.clear();
    for (size_t start = 0; start <= text.size();) {
        const size_t end = std::min(text.find(separator, start), text.size());
        T value{};
        const auto result = std::from_chars(text.data() + start, text.data() + end, value);
        if (result.ec != std::errc() || result.ptr != text.data() + end) return false;
        out.push_back(value);
        start = end + 1;
    }
    return true;
}

CLI::Option *add_filter_pair(CLI::App &command, const std::string &name,
                             std::optional<FilterPair> &value, char separator, uint32_t least,
                             const std::string &help) {
    const std::string form = separator == 'x' ? "HxW" : "r,c";
    const auto take = [=, &value](const std::string &text) {
        std::vector<uint32_t> n;
        const bool single = separator == 'x';
        const bool good =
            filter_numbers(text, separator, n) && (n.size() == 2 || (single && n.size() == 1)) &&
            std::all_of(n.begin(), n.end(), [&](uint32_t x) { return x >= least && x <= 65535; });
        if (!good)
            throw CLI::ValidationError(
                name, unlike(text, fmt::format("{}, whole numbers from {} to 65535", form, least)));
        value = FilterPair{n.front(), n.back()};
    };
    return command.add_option_function<std::string>(name, take, help)->type_name(form);
}

CLI::Option *add_filter_reals(CLI::App &command, const std::string &name,
                              std::vector<double> &value, size_t most, const std::string &help) {
    const auto take = [=, &value](const std::string &text) {
        if (!filter_numbers(text, ',', value) || value.size() > most ||
            !std::all_of(value.begin(), value.end(), [](double x) { return std::isfinite(x); }))
            throw CLI::ValidationError(
                name, unlike(text, fmt::format("up to {} numbers with commas between", most)));
    };
    return command.add_option_function<std::string>(name, take, help)->type_name("N,...");
}

// ---- elements ----

// A structuring element: members are 255.
struct FilterElement {
    Image mask;
    FilterPair anchor;
    uint64_t members = 0;

    kipx_strel record() const {
        kipx_strel out{};
        out.anchor[1] = int32_t(anchor.row), out.anchor[2] = int32_t(anchor.column);
        out.mask = mask.arr();
        return out;
    }
    bool point() const { return mask.pixels() == 1; }
    bool solid() const { return members == mask.pixels(); }
};

FilterPair filter_anchor(const FilterArguments &given, FilterPair size) {
    if (!given.anchor) return {size.row / 2, size.column / 2};
    if (given.anchor->row >= size.row || given.anchor->column >= size.column)
        fail("--anchor: got {},{}, which lies outside the element of {}x{}", given.anchor->row,
             given.anchor->column, size.row, size.column);
    return *given.anchor;
}

FilterElement named_element(const FilterArguments &given, FilterPair size) {
    FilterElement out{Image({KIPX_U8, size.column, size.row, 1}), filter_anchor(given, size)};
    const double height = size.row, width = size.column;
    for (uint32_t y = 0; y < size.row; ++y)
        for (uint32_t x = 0; x < size.column; ++x) {
            const double dy = (2.0 * y + 1 - height) / height, dx = (2.0 * x + 1 - width) / width;
            const bool in = given.shape == "rect"    ? true
                            : given.shape == "cross" ? y == out.anchor.row || x == out.anchor.column
                                                     : dy * dy + dx * dx <= 1;
            out.mask.row(y)[x] = in ? 255 : 0;
            out.members += in;
        }
    return out;
}

FilterElement file_element(const Globals &globals, const FilterArguments &given) {
    const Image image = globals.load(given.shape, 1);
    if (image.channels() != 1)
        fail("--shape: {} has {} channels, expected 1", given.shape, image.channels());
    if (given.size) fail("--size: got it beside the element in {}, which has its own", given.shape);
    const FilterPair size{image.height(), image.width()};
    FilterElement out{Image({KIPX_U8, size.column, size.row, 1}), filter_anchor(given, size)};
    with_type(image.type(), [&](auto sample) {
        const auto *from = image.as<decltype(sample)>();
        for (uint64_t i = 0; i < image.pixels(); ++i) {
            out.mask.data()[i] = from[i] != 0 ? 255 : 0;
            out.members += from[i] != 0;
        }
    });
    if (out.members == 0)
        fail("--shape: {} holds nothing but 0, expected one member at least", given.shape);
    return out;
}

std::string told_element(FilterPair size, FilterPair anchor) {
    return size.row == 1 && size.column == 1 ? std::string("1x1, which is a copy")
                                             : fmt::format("{}x{}, anchor {},{}", size.row,
                                                           size.column, anchor.row, anchor.column);
}

// ---- the work ----

struct FilterJob {
    Image source, result, mask;
    std::optional<Part> part; // of the source, that the result is of
    std::string what;         // for the line that is printed
};

// Loads the source and the mask; the result is the source, which stays where the mask is 0.
FilterJob load_filter_job(const Globals &globals, const FilterArguments &given) {
    check_goal(given.goal);
    FilterJob job;
    const uint32_t mask_page = given.mask.empty() ? 1 : globals.page_beside(given.mask, given.page);
    job.source = globals.load(given.source, given.page);
    job.part = part_inside(given.roi, job.source, given.source);
    if (given.mask.empty()) return job;
    const Image mask = globals.load(given.mask, mask_page);
    if (mask.channels() != 1 || mask.width() != job.source.width() ||
        mask.height() != job.source.height())
        fail("--mask: {} is {}, expected 1 channel and the {}x{} of {}", given.mask,
             describe(mask.shape()), job.source.width(), job.source.height(), given.source);
    // As many channels as the source.
    const uint32_t channels = job.source.channels();
    job.mask = Image({KIPX_U8, mask.width(), mask.height(), channels});
    with_type(mask.type(), [&](auto sample) {
        const auto *from = mask.as<decltype(sample)>();
        for (uint64_t i = 0; i < job.mask.elements(); ++i)
            job.mask.data()[i] = from[i / channels] != 0 ? 255 : 0;
    });
    return job;
}

using FilterCall = std::function<int32_t(KipxXE *xe, const kipx_arr *src, const kipx_arr *dst,
                                         const kipx_arr *mask, const kipx_site *roi)>;

// One call for all channels, or one a channel.
void filter_channels(FilterJob &job, bool each, const FilterCall &call) {
    Environment environment;
    const uint32_t channels = job.source.channels();
    const auto part = [&](const Image &image, uint32_t channel) {
        kipx_arr out = image.arr();
        if (each) out.volume[3] = 1, out.offset += channel * size_of(image.type());
        return out;
    };
    for (uint32_t k = 0; k < (each ? channels : 1); ++k) {
        const kipx_arr src = part(job.source, k), dst = part(job.result, k);
        const bool masked = job.mask.data() != nullptr;
        const kipx_arr mask = masked ? part(job.mask, k) : kipx_arr{};
        const Part area = job.part.value_or(Part{0, 0, job.source.width(), job.source.height()});
        const kipx_site roi = {{0, area.y, area.x, 0},
                               {1, area.height, area.width, each ? 1 : channels}};
        check_answer(call(environment.get(), &src, &dst, masked ? &mask : nullptr,
                          job.part ? &roi : nullptr),
                     job.what);
    }
}

Image filter_cut(const Image &image, const Part &part) {
    Image out({image.type(), part.width, part.height, image.channels()});
    const size_t pixel = image.row_bytes() / image.width();
    for (uint32_t y = 0; y < part.height; ++y)
        std::memcpy(out.row(y), image.row(part.y + y) + part.x * pixel, part.width * pixel);
    return out;
}

// Two channels are worked on one by one: morphology has no kernels for them.
void filter_and_store(const Globals &globals, const FilterArguments &given, FilterJob &job,
                      const FilterCall &call, bool copy = false) {
    const uint32_t type = job.source.type();
    if (!copy) job.source = computable(std::move(job.source), given.source, "filters hold");
    job.result = Image(job.source.shape());
    std::memcpy(job.result.data(), job.source.data(), job.source.bytes());
    if (!copy) filter_channels(job, job.source.channels() == 2, call);
    if (job.part) job.result = filter_cut(job.result, *job.part);
    if (job.result.type() != type && fits(job.result, type))
        job.result = converted(job.result, type);
    globals.store(job.result, given.goal, job.what);
}

// Subtracting operations work on integers.
void check_hat(const FilterArguments &given, const FilterJob &job, const char *option,
               const std::string &word) {
    if (!is_integer(job.source.type()))
        fail("{}: got {} for {}, which holds {}; expected an image of integers", option, word,
             given.source, name_of(job.source.type()));
}

struct FilterWord {
    const char *word;
    uint32_t code;
    bool subtracts;
};
constexpr FilterWord filter_kinds[] = {
    {"min", KIPX_FILTER_MIN, false},     {"max", KIPX_FILTER_MAX, false},
    {"box", KIPX_FILTER_BOX, false},     {"open", KIPX_FILTER_OPEN, false},
    {"close", KIPX_FILTER_CLOSE, false}, {"tophat", KIPX_FILTER_TOPHAT, true},
    {"bothat", KIPX_FILTER_BOTHAT, true}};
constexpr FilterWord morph_ops[] = {
    {"erode", KIPX_MORPH_ERODE, false},     {"dilate", KIPX_MORPH_DILATE, false},
    {"open", KIPX_MORPH_OPEN, false},       {"close", KIPX_MORPH_CLOSE, false},
    {"tophat", KIPX_MORPH_TOPHAT, true},    {"bothat", KIPX_MORPH_BOTHAT, true},
    {"gradient", KIPX_MORPH_GRADIENT, true}};

const FilterWord &filter_word(std::span<const FilterWord> words, uint32_t code) {
    return *std::find_if(words.begin(), words.end(),
                         [&](const FilterWord &w) { return w.code == code; });
}

void run_filter(const Globals &globals, const FilterArguments &given) {
    if (given.kind != KIPX_FILTER_BOX && given.border != KIPX_BORDER_REPLICATE)
        fail("--border: got it with a kind that knows none; expected it with box");
    FilterJob job = load_filter_job(globals, given);
    const FilterWord &kind = filter_word(filter_kinds, given.kind);
    if (kind.subtracts) check_hat(given, job, "--kind", kind.word);
    const FilterPair size = given.size.value_or(FilterPair{5, 5});
    const FilterPair anchor = filter_anchor(given, size);
    kipx_seshape shape;
    __kipx_seshape__$g22(&shape, int32_t(anchor.row), int32_t(anchor.column), int32_t(size.row),
                         int32_t(size.column));
    job.what = fmt::format("{} over {}", kind.word, told_element(size, anchor));
    filter_and_store(
        globals, given, job,
        [&](KipxXE *xe, const kipx_arr *src, const kipx_arr *dst, const kipx_arr *mask,
            const kipx_site *roi) {
            return KipxFilter(xe, KIPX_FLAG_BORDER(given.border), src, dst, mask, roi, given.kind,
                              &shape);
        },
        size.row == 1 && size.column == 1);
}

void run_morph(const Globals &globals, const FilterArguments &given) {
    FilterJob job = load_filter_job(globals, given);
    const bool named = given.shape == "rect" || given.shape == "cross" || given.shape == "disk";
    const FilterElement element = named
                                      ? named_element(given, given.size.value_or(FilterPair{5, 5}))
                                      : file_element(globals, given);
    const FilterWord &op = filter_word(morph_ops, given.op);
    if (op.subtracts) check_hat(given, job, "--op", op.word);
    const FilterPair size{element.mask.height(), element.mask.width()};
    job.what =
        fmt::format("{} by {} of {}", op.word, given.shape, told_element(size, element.anchor));
    if (!element.point())
        job.what += element.solid() ? ", solid" : fmt::format(", {} members", element.members);
    const kipx_strel strel = element.record();
    filter_and_store(
        globals, given, job,
        [&](KipxXE *xe, const kipx_arr *src, const kipx_arr *dst, const kipx_arr *mask,
            const kipx_site *roi) {
            return KipxMorphop(xe, 0, src, dst, mask, roi, given.op, &strel);
        },
        element.point());
}

// Odd, and wide enough for three sigmas on either side.
uint32_t gauss_size(double sigma) {
    return 2 * uint32_t(std::ceil(std::min(3 * sigma, 32767.0))) + 1;
}

void run_gauss(const Globals &globals, const FilterArguments &given) {
    if (!given.size && given.sigmas.empty())
        fail("gauss: got neither --sigma nor --size, expected at least one of them");
    double sigmas[2] = {0, 0};
    if (!given.sigmas.empty()) sigmas[0] = given.sigmas.front(), sigmas[1] = given.sigmas.back();
    for (double sigma : given.sigmas)
        if (!(sigma > 0 && sigma <= 10000))
            fail("--sigma: got {}, expected a number above 0 up to 10000", sigma);
    FilterJob job = load_filter_job(globals, given);
    const FilterPair size =
        given.size.value_or(FilterPair{gauss_size(sigmas[0]), gauss_size(sigmas[1])});
    const FilterPair anchor = filter_anchor(given, size);
    const bool copy = size.row == 1 && size.column == 1;
    kipx_seshape shape;
    __kipx_seshape__$g22(&shape, int32_t(anchor.row), int32_t(anchor.column), int32_t(size.row),
                         int32_t(size.column));
    double used[2];
    kipx_adjustgaussigmas(3, used, &shape, sigmas);
    job.what = fmt::format("Gaussian over {}", told_element(size, anchor));
    if (!copy) job.what += fmt::format(", sigma {:.4g},{:.4g}", used[0], used[1]);
    filter_and_store(
        globals, given, job,
        [&](KipxXE *xe, const kipx_arr *src, const kipx_arr *dst, const kipx_arr *mask,
            const kipx_site *roi) {
            return KipxGaussianFilter(xe, KIPX_FLAG_BORDER(given.border), src, dst, mask, roi,
                                      &shape, sigmas);
        },
        copy);
}

void run_sepfilter(const Globals &globals, const FilterArguments &given) {
    FilterJob job = load_filter_job(globals, given);
    const FilterPair size{uint32_t(given.rows.size()), uint32_t(given.columns.size())};
    const FilterPair anchor = filter_anchor(given, size);
    kipx_sepkernel kernel{};
    __kipx_seshape__$g22(&kernel.shape, int32_t(anchor.row), int32_t(anchor.column),
                         int32_t(size.row), int32_t(size.column));
    kernel.weights[1] = given.rows.data(), kernel.weights[2] = given.columns.data();
    job.what = fmt::format("weighted sum over {}", told_element(size, anchor));
    filter_and_store(
        globals, given, job,
        [&](KipxXE *xe, const kipx_arr *src, const kipx_arr *dst, const kipx_arr *mask,
            const kipx_site *roi) {
            return KipxSepFilter(xe, KIPX_FLAG_BORDER(given.border), src, dst, mask, roi, &kernel);
        },
        size.row == 1 && size.column == 1);
}

void run_firefly(const Globals &globals, const FilterArguments &given) {
    if (std::isinf(given.bright) && std::isinf(given.dark))
        fail("firefly: got neither --bright nor --dark, expected at least one of them");
    FilterJob job = load_filter_job(globals, given);
    const FilterPair size = given.size.value_or(FilterPair{3, 3});
    const FilterPair anchor = filter_anchor(given, size);
    const bool copy = size.row == 1 && size.column == 1;
    kipx_seshape shape;
    __kipx_seshape__$g22(&shape, int32_t(anchor.row), int32_t(anchor.column), int32_t(size.row),
                         int32_t(size.column));
    const std::vector<double> bright(4, given.bright), dark(4, given.dark);
    job.what = fmt::format("outliers in {}", told_element(size, anchor));
    filter_and_store(
        globals, given, job,
        [&](KipxXE *xe, const kipx_arr *src, const kipx_arr *dst, const kipx_arr *mask,
            const kipx_site *roi) {
            return KipxFireflyEx(xe, 0, src, dst, mask, roi, &shape, bright.data(), dark.data());
        },
        copy);
}

// ---- their options ----

struct FilterCommand {
    const char *name, *help, *footer;
    void (*run)(const Globals &, const FilterArguments &);
    bool size, border;
};

const FilterCommand filter_commands[] = {
    {"filter", "Minimum, maximum, mean, opening, closing and hats over rectangles",
     "Example: kipx filter scan.png -o flat.png --kind tophat --size 101x101\n"
     "A top-hat of a size that no object has takes an uneven background away.",
     run_filter, true, true},
    {"morph", "Erosion, dilation and what is made of them, by elements of any form",
     "Example: kipx morph cells.png -o clean.png --op open --shape disk --size 7x7\n"
     "Members of an element in a file are its pixels that are not 0. It is never mirrored.",
     run_morph, true, false},
    {"gauss", "Gaussian blur",
     "Example: kipx gauss photo.jpg -o soft.png --sigma 1.5\n"
     "Without --size it reaches three sigmas to either side; without --sigma the size tells it.",
     run_gauss, true, true},
    {"sepfilter", "Weighted sums with separable weights",
     "Example: kipx sepfilter photo.png -o edges.png --rows 1,2,1 --columns -1,0,1\n"
     "Weights are applied in the order in which they are given; they are not normalised.",
     run_sepfilter, false, true},
    {"firefly", "Take isolated outliers away: hot pixels, sparks",
     "Example: kipx firefly night.tif -o night-clean.tif --bright 40\n"
     "A pixel that exceeds all others of its window by more than that takes the largest of them.",
     run_firefly, true, false},
};

void add_own_filter_options(CLI::App &command, const std::string &name, FilterArguments &given) {
    const auto choices = [](std::span<const FilterWord> words) {
        Choices<uint32_t> out;
        for (const FilterWord &word : words) out.emplace_back(word.word, word.code);
        return out;
    };
    if (name == "filter")
        add_choice<uint32_t>(command, "--kind", given.kind, choices(filter_kinds),
                             "What is formed of the pixels under the rectangle")
            ->required();
    if (name == "morph") {
        add_choice<uint32_t>(command, "--op", given.op, choices(morph_ops), "The operation")
            ->required();
        add_value(command, "--shape", given.shape, filled(), "rect|cross|disk|FILE",
                  "The element's form, or an image file that holds it")
            ->capture_default_str();
    }
    if (name == "gauss")
        add_filter_reals(command, "--sigma", given.sigmas, 2,
                         "Standard deviation in pixels, or that of rows and that of columns");
    if (name == "sepfilter") {
        add_filter_reals(command, "--rows", given.rows, 4096, "Weights down the rows")->required();
        add_filter_reals(command, "--columns", given.columns, 4096, "Weights along the columns")
            ->required();
    }
    if (name == "firefly") {
        add_value(command, "--bright", given.bright, real(0, 1e300), "T",
                  "Threshold of bright outliers; without it they stay");
        add_value(command, "--dark", given.dark, real(0, 1e300), "T",
                  "Threshold of dark outliers; without it they stay");
    }
}

} // namespace

void add_filter_commands(CLI::App &app, const Globals &globals) {
    for (const FilterCommand &row : filter_commands) {
        CLI::App *command = app.add_subcommand(row.name, row.help);
        auto given = std::make_shared<FilterArguments>();
        add_value(*command, "FILE", given->source, filled(), "", "Image file; - is standard input")
            ->required();
        add_goal_options(*command, given->goal, "Result");
        add_own_filter_options(*command, row.name, *given);
        if (row.size)
            add_filter_pair(*command, "--size", given->size, 'x', 1,
                            "Height and width of the element, or one number for both");
        add_filter_pair(
            *command, "--anchor", given->anchor, ',', 0,
            "The element's row and column that lie on the pixel; the middle by default");
        if (row.border)
            add_choice<uint32_t>(*command, "--border", given->border,
                                 {{"replicate", KIPX_BORDER_REPLICATE},
                                  {"const", KIPX_BORDER_CONST},
                                  {"wrap", KIPX_BORDER_WRAP},
                                  {"reflect", KIPX_BORDER_REFLECT},
                                  {"reflect101", KIPX_BORDER_REFLECT101}},
                                 "What lies beyond the image's edge for means and weighted sums");
        add_value(*command, "--mask", given->mask, filled(), "FILE",
                  "Image of one channel: where it is 0 the pixel stays");
        add_part(*command, "--roi", given->roi,
                 "Make this part only; OUT has its size. Pixels about it count as ever");
        add_page_option(*command, given->page);
        command->footer(row.footer);
        command->callback([&globals, &row, given] { row.run(globals, *given); });
    }
}
