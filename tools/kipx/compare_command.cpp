// compare_command.cpp - kipx compare, kipx threshold: masks of image files, 255 where something holds.
//
// Comparisons are exact. The files' elements are brought to the types that the library compares: u16
// to s32, u32 to s32 when all values fit, f64 to f32; two files of different types to the narrowest
// that holds both. A number is the number that it is, whatever the elements' type.
#include "command.h"
#include "failure.h"
#include "image/values.h"
#include "numbers.h"
#include "options.h"

#include <kipx/stats.h>
#include <kipx/threshold.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>

namespace {

constexpr const char *compared = "can be compared";

// ---- what both commands share -------------------------------------------------------------------

const Choices<uint32_t> compare_orders = {{"less", KIPX_CMPOP_LESS},
                                          {"less-or-equal", KIPX_CMPOP_LESS_OR_EQUAL},
                                          {"greater", KIPX_CMPOP_GREATER},
                                          {"greater-or-equal", KIPX_CMPOP_GREATER_OR_EQUAL}};

Image mask_for(const Image &image) {
    return Image({KIPX_U8, image.width(), image.height(), image.channels()});
}

void mark_by_threshold(Environment &environment, const Image &mask, const Image &image,
                       const KipxThresholdContext &context) {
    const kipx_arr dst = mask.arr(), src = image.arr();
    check_answer(KipxThreshold(environment.get(), 0, &dst, &src, nullptr, nullptr, &context,
                               nullptr, nullptr),
                 "threshold");
}

// ---- compare -------------------------------------------------------------------------------------

struct CompareArguments {
    std::string a, b;
    Goal goal;
    uint32_t op = KIPX_CMPOP_EQUAL, page = 1;
};

// The narrowest type that holds the values of both, brought to it.
void bring_together(Image &a, Image &b, const CompareArguments &given) {
    if (a.type() == b.type()) return;
    uint32_t type = KIPX_S16;
    for (const Image *image : {&a, &b})
        if (image->type() == KIPX_S32 || image->type() == KIPX_F32)
            type = std::max<uint32_t>(type, image->type());
    for (Image *image : {&a, &b}) {
        if (!fits(*image, type))
            fail("{}: has {} values that f32, the type of the other image, does not hold",
                 image == &a ? given.a : given.b, name_of(image->type()));
        if (image->type() != type) *image = converted(*image, type);
    }
}

void compare_images(const Globals &globals, const CompareArguments &given, Image &a, Image &mask) {
    Image b = computable(globals.load(given.b, globals.page_beside(given.b, given.page)), given.b,
                         compared, KIPX_S8);
    if (a.width() != b.width() || a.height() != b.height() || a.channels() != b.channels())
        fail("{}: is {}x{} with {} channel(s), but {} is {}x{} with {}; expected the same", given.b,
             b.width(), b.height(), b.channels(), given.a, a.width(), a.height(), a.channels());
    bring_together(a, b, given);
    Environment environment;
    const kipx_arr dst = mask.arr(), src1 = a.arr(), src2 = b.arr();
    check_answer(
        KipxCompare(environment.get(), 0, &dst, &src1, &src2, nullptr, nullptr, nullptr, given.op),
        "compare");
}

void compare_numbers(const CompareArguments &given, const Image &a, Image &mask) {
    std::vector<double> numbers = numbers_for(a, "B", given.b);
    Environment environment;
    if (given.op != KIPX_CMPOP_EQUAL && given.op != KIPX_CMPOP_NOT_EQUAL)
        return mark_by_threshold(
            environment, mask, a,
            {KIPX_THH_IMMEDIATE, given.op, numbers.data(), nullptr, nullptr, {}});
    // Equal is neither less nor greater. What is not equal is the rest.
    static constexpr double none[4] = {}, all[4] = {255, 255, 255, 255};
    const bool equal = given.op == KIPX_CMPOP_EQUAL;
    const kipx_arr dst = mask.arr(), src = a.arr();
    check_answer(kipxa_sheer_threshold_n2(
                     environment.get(), 0, 3, src.volume + 1, dst.type, mask.data(), nullptr,
                     dst.strides + 1, src.type, a.data(), nullptr, src.strides + 1, numbers.data(),
                     KIPX_CMPOP_LESS_OR_EQUAL, numbers.data(), KIPX_CMPOP_GREATER_OR_EQUAL,
                     equal ? all : none, equal ? none : all),
                 "compare");
}

void run_compare(const Globals &globals, const CompareArguments &given) {
    check_goal(given.goal);
    Image a = computable(globals.load(given.a, given.page), given.a, compared, KIPX_S8);
    Image mask = mask_for(a);
    if (means_numbers("B", given.b))
        compare_numbers(given, a, mask);
    else
        compare_images(globals, given, a, mask);
    globals.store(mask, given.goal, "compare");
}

// ---- threshold -----------------------------------------------------------------------------------

struct ThresholdArguments {
    std::string path, value, range, offset = "0";
    Goal goal;
    bool otsu = false;
    int32_t bins = 0;
    uint32_t blur = 0, sauvola = 0, op = KIPX_CMPOP_GREATER, page = 1;
    double k = 0.3;
};

// What is found for a channel.
struct FoundThreshold {
    kipx_vrange range;
    int32_t bins;
    double threshold, separability;
};

// The variance between the two classes, in parts of that of all values: 0 for one value, 1 for two.
double separability_of(const kipx_histogram &h, double threshold) {
    double count[2] = {}, sum[2] = {}, squares = 0;
    for (int32_t i = 0; i < h.bins; ++i) {
        const double value = double(h.low) + i * double(h.width), n = h.counts[i];
        count[value > threshold] += n, sum[value > threshold] += n * value;
        squares += n * value * value;
    }
    const double all = count[0] + count[1], mean = (sum[0] + sum[1]) / all;
    if (count[0] == 0 || count[1] == 0) return 0;
    const double apart = sum[0] / count[0] - sum[1] / count[1];
    return count[0] * count[1] / all * apart * apart / (squares - all * mean * mean);
}

// The range that was asked for; without, all bytes, or what the data span.
std::vector<kipx_vrange> ranges_for(Environment &environment, const Image &image,
                                    const ThresholdArguments &given) {
    std::vector<kipx_vrange> ranges(image.channels(), {0, 255});
    if (!given.range.empty()) {
        const std::vector<double> ends = numbers_of(given.range);
        if (ends.size() != 2 || ends[0] >= ends[1])
            fail("--range: got '{}', expected two numbers, the lower one first", given.range);
        std::fill(ranges.begin(), ranges.end(), kipx_vrange{ends[0], ends[1]});
    } else if (image.type() != KIPX_U8) {
        const kipx_arr src = image.arr();
        check_answer(
            KipxMinmax(environment.get(), 0, &src, nullptr, nullptr, nullptr, ranges.data()),
            "threshold");
        for (const kipx_vrange &range : ranges)
            if (!std::isfinite(range.low) || !std::isfinite(range.high))
                fail("{}: has values that are not finite, expected --range to say which count",
                     given.path);
    }
    return ranges;
}

// A bin for every whole number as long as there are not too many.
int32_t bins_for(const Image &image, const kipx_vrange &range, int32_t asked) {
    const double span = std::floor(range.high) - std::ceil(range.low) + 1;
    if (asked > 0) return asked;
    return is_integer(image.type()) ? int32_t(std::clamp(span, 2.0, 65536.0)) : 384;
}

std::vector<FoundThreshold> find_thresholds(Environment &environment, const Image &image,
                                            const ThresholdArguments &given) {
    const uint32_t channels = image.channels();
    const std::vector<kipx_vrange> ranges = ranges_for(environment, image, given);
    std::vector<int32_t> bins;
    bins.reserve(ranges.size());
    for (const kipx_vrange &range : ranges) bins.push_back(bins_for(image, range, given.bins));
    std::vector<kipx_histogram> histograms(channels);
    const kipx_arr src = image.arr();
    check_answer(__kipx_histogram__$n$xe(histograms.data(), channels, ranges.data(), bins.data(),
                                         image.type(), environment.get()),
                 "threshold");
    check_answer(KipxHistogram(environment.get(), 0, &src, nullptr, nullptr, nullptr, ranges.data(),
                               histograms.data()),
                 "threshold");
    std::vector<FoundThreshold> found;
    for (uint32_t c = 0; c < channels; ++c) {
        const kipx_histogram &h = histograms[c];
        if (h.total == 0)
            fail("--range: got {}, but {} has no value there", given.range, given.path);
        const double threshold = kipxa_calculate_threshold_otsu_f(&h);
        found.push_back({ranges[c], h.bins, threshold, separability_of(h, threshold)});
    }
    return found;
}

void told_threshold(const Globals &globals, const Goal &goal, const std::string &line) {
    if (goal.path == "-")
        globals.note(line);
    else if (!globals.quiet)
        fmt::print("{}\n", line);
}

void check_method(const ThresholdArguments &given) {
    const int methods = given.otsu + !given.value.empty() + (given.blur > 0) + (given.sauvola > 0);
    if (methods != 1)
        fail("threshold: got {} method{}, expected one of --otsu, --value, --blur and --sauvola",
             methods ? fmt::to_string(methods) : "no", methods > 1 ? "s" : "");
}

// Sauvola's threshold follows the deviation as a part of half the range that the type has.
void mark_by_sauvola(Environment &environment, const Image &mask, const Image &image,
                     const ThresholdArguments &given) {
    const kipx_thhlocal local{
        given.sauvola, given.sauvola, {given.k, 0}, image.type() == KIPX_S16 ? 32768.0 : 128.0};
    const kipx_arr dst = mask.arr(), src = image.arr();
    uint8_t *to = const_cast<uint8_t *>(mask.data());
    check_answer(kipxa_adaptive_threshold_n1(environment.get(), 0, 3, src.volume + 1, dst.type, to,
                                             nullptr, dst.strides + 1, src.type, image.data(),
                                             nullptr, src.strides + 1, &local, given.op, nullptr,
                                             nullptr),
                 "threshold");
}

void run_threshold(const Globals &globals, const ThresholdArguments &given) {
    check_method(given);
    check_goal(given.goal);
    const Image image =
        computable(globals.load(given.path, given.page), given.path, compared, KIPX_S8);
    const bool local = given.blur > 0 || given.sauvola > 0;
    if ((local && image.type() == KIPX_F32) || (given.sauvola > 0 && image.type() == KIPX_S32))
        fail("{}: got an image of {}, expected {}", given.sauvola ? "--sauvola" : "--blur",
             name_of(image.type()), given.sauvola ? "8 bits or s16" : "integers");
    Image mask = mask_for(image);
    Environment environment;
    std::vector<FoundThreshold> found;
    std::vector<double> numbers(image.channels());
    if (given.otsu) found = find_thresholds(environment, image, given);
    for (size_t c = 0; c < found.size(); ++c) numbers[c] = found[c].threshold;
    if (!given.value.empty()) numbers = numbers_for(image, "--value", given.value);
    if (given.blur) numbers = numbers_for(image, "--offset", given.offset);
    if (given.sauvola)
        mark_by_sauvola(environment, mask, image, given);
    else
        mark_by_threshold(environment, mask, image,
                          {given.blur ? KIPX_THH_BLUR : KIPX_THH_IMMEDIATE,
                           given.op,
                           numbers.data(),
                           nullptr,
                           nullptr,
                           {given.blur, given.blur, {}, 0}});
    globals.store(mask, given.goal, "threshold");
    for (size_t c = 0; c < found.size(); ++c)
        told_threshold(
            globals, given.goal,
            fmt::format("channel {}: threshold {:.10g}, {} bins, range {:.10g} to {:.10g}, "
                        "separability {:.4f}",
                        c + 1, found[c].threshold, found[c].bins, found[c].range.low,
                        found[c].range.high, found[c].separability));
}

void add_compare(CLI::App &app, const Globals &globals) {
    CLI::App *command = app.add_subcommand("compare", "A mask of where A is like B, or a number");
    auto given = std::make_shared<CompareArguments>();
    add_value(*command, "A", given->a, filled(), "", "Image file; - is standard input")->required();
    add_value(*command, "B", given->b, filled(), "",
              "Image file, or a number, or one for each channel: 100,80,60")
        ->required();
    add_goal_options(*command, given->goal, "Mask, 255 where the comparison holds and 0 elsewhere");
    Choices<uint32_t> operators = compare_orders;
    operators.insert(operators.begin(), {"equal", KIPX_CMPOP_EQUAL});
    operators.push_back({"not-equal", KIPX_CMPOP_NOT_EQUAL});
    add_choice<uint32_t>(*command, "--op", given->op, operators, "What A is to be to B");
    add_page_option(*command, given->page);
    command->footer("Examples: kipx compare a.png b.png --op greater -o mask.png\n"
                    "          kipx compare labels.tif 7 -o seventh.png\n"
                    "Numbers are not rounded to the image's type.");
    command->callback([&globals, given] { run_compare(globals, *given); });
}

void add_threshold(CLI::App &app, const Globals &globals) {
    CLI::App *command = app.add_subcommand("threshold", "A mask of what passes a threshold");
    auto given = std::make_shared<ThresholdArguments>();
    add_value(*command, "FILE", given->path, filled(), "", "Image file; - is standard input")
        ->required();
    add_goal_options(*command, given->goal, "Mask, 255 for what passes and 0 elsewhere");
    CLI::Option *otsu =
        command->add_flag("--otsu", given->otsu,
                          "The threshold that parts each channel's values best, found and told");
    add_value(*command, "--value", given->value, filled(), "V,...",
              "This threshold, or one for each channel");
    CLI::Option *blur = add_value(*command, "--blur", given->blur, whole(1, 255), "N",
                                  "The mean of the NxN pixels around each, plus --offset");
    CLI::Option *sauvola =
        add_value(*command, "--sauvola", given->sauvola, whole(1, 255), "N",
                  "Sauvola's threshold of the NxN pixels around each, for writing on paper");
    add_choice<uint32_t>(*command, "--op", given->op, compare_orders,
                         "What a pixel that passes is to the threshold");
    add_value(*command, "--range", given->range, filled(), "LO,HI",
              "Values that --otsu looks at; by default 0 to 255 for bytes, else from the least to "
              "the greatest")
        ->needs(otsu);
    add_value(*command, "--bins", given->bins, whole(2, 1 << 24), "N",
              "Bins of the histogram; by default one for each integer, at most 65536, and 384 for "
              "floats")
        ->needs(otsu);
    add_value(*command, "--offset", given->offset, filled(), "V,...",
              "Added to the mean of --blur, one or one for each channel")
        ->capture_default_str()
        ->needs(blur);
    add_value(*command, "--k", given->k, real(-10, 10), "K",
              "How much the deviation counts for --sauvola")
        ->capture_default_str()
        ->needs(sauvola);
    add_page_option(*command, given->page);
    command->footer("Examples: kipx threshold page.jpg --otsu -o mask.png\n"
                    "          kipx threshold page.jpg --sauvola 41 -o mask.png\n"
                    "          kipx threshold cells.tif --value 99.5 --op less -o dark.png\n"
                    "Separability is the part of the variance that lies between the two sides.");
    command->callback([&globals, given] { run_threshold(globals, *given); });
}

} // namespace

void add_compare_commands(CLI::App &app, const Globals &globals) {
    add_compare(app, globals);
    add_threshold(app, globals);
}
