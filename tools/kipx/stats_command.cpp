// stats_command.cpp - kipx stats: counts, extrema, mean, deviation and histogram of an image's channels.
#include "command.h"
#include "failure.h"
#include "image/output.h"
#include "image/values.h"
#include "options.h"
#include "regions/report.h"
#include "report/histogram.h"
#include "report/terminal.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <strings.h>
#include <unistd.h>

namespace {

using StatsJson = nlohmann::ordered_json;
enum class StatsForm { by_name, text, csv, json };

struct StatsArguments {
    std::string file, mask, output = "-", histogram;
    StatsForm form = StatsForm::by_name;
    std::vector<double> range; // empty: by the values
    int32_t bins = 0;          // 0: by the type
    uint32_t page = 1;
    std::optional<Part> roi;
};

struct StatsResult {
    Image image;
    std::vector<Statistics> channels;
    std::optional<Bins> bins;
};

StatsForm stats_form(const StatsArguments &given) {
    if (given.form != StatsForm::by_name) return given.form;
    if (given.output == "-") return StatsForm::text;
    const std::string ending = std::filesystem::path(given.output).extension().string();
    if (strcasecmp(ending.c_str(), ".csv") == 0) return StatsForm::csv;
    if (strcasecmp(ending.c_str(), ".json") == 0) return StatsForm::json;
    if (strcasecmp(ending.c_str(), ".txt") == 0) return StatsForm::text;
    fail("--output: got '{}', expected a name with one of the endings .txt .csv .json, or -",
         given.output);
}

Image stats_mask(const Globals &globals, const StatsArguments &given, const Image &image) {
    Image mask = globals.load(given.mask, globals.page_beside(given.mask, given.page));
    if (mask.width() != image.width() || mask.height() != image.height())
        fail("--mask: got '{}' of {}x{}, expected the picture's {}x{}", given.mask, mask.width(),
             mask.height(), image.width(), image.height());
    if (mask.channels() != 1 || size_of(mask.type()) != 1)
        fail("--mask: got '{}' of {}, expected one channel of u8", given.mask,
             describe(mask.shape()));
    mask.reinterpret(KIPX_U8);
    return mask;
}

// From end to end of what the histogram shows, and its number of bins: bytes have a bin for each of
// their values, other types 256 from the least to the greatest value, and integers no more bins than
// numbers.
std::optional<Bins> stats_bins(const StatsArguments &given, const StatsResult &found,
                               const Scope &scope) {
    const bool whole = is_integer(found.image.type()), bytes = size_of(found.image.type()) == 1;
    double low = NAN, high = NAN;
    if (given.range.empty() && bytes) {
        low = found.image.type() == KIPX_U8 ? 0 : -128, high = low + 255;
    } else if (given.range.empty()) {
        for (const Statistics &s : found.channels)
            low = std::fmin(low, s.least), high = std::fmax(high, s.greatest);
        if (std::isnan(low)) return std::nullopt;
    } else {
        low = given.range[0], high = given.range[1];
    }
    int32_t bins = given.bins ? given.bins : 256;
    if (whole && !given.bins && std::floor(high) - std::ceil(low) < 256) {
        low = std::ceil(low), high = std::floor(high);
        bins = std::max(1, int32_t(high - low) + 1);
    }
    // A single bin is no number of bins to the library: the one is made of two.
    return histogram(found.image, scope, low, high, std::max(bins, 2));
}

std::string stats_number(double value, uint32_t type, bool whole) {
    if (std::isnan(value)) return "-";
    return fmt::format("{:.{}g}", value, whole && is_integer(type) ? 10 : 7);
}

std::string stats_text(const StatsArguments &given, const StatsResult &found) {
    const uint32_t type = found.image.type();
    std::string out = fmt::format("{}: {}\n\n", given.file, describe(found.image.shape()));
    const bool odd = std::any_of(found.channels.begin(), found.channels.end(),
                                 [](const Statistics &s) { return s.nan || s.infinite; });
    out += fmt::format("{:>7}  {:>11}  {:>12}  {:>12}  {:>12}  {:>12}", "channel", "count", "min",
                       "max", "mean", "deviation");
    out += odd ? fmt::format("  {:>10}  {:>10}\n", "NaN", "infinite") : "\n";
    for (size_t c = 0; c < found.channels.size(); ++c) {
        const Statistics &s = found.channels[c];
        out +=
            fmt::format("{:>7}  {:>11}  {:>12}  {:>12}  {:>12}  {:>12}", c + 1, s.count,
                        stats_number(s.least, type, true), stats_number(s.greatest, type, true),
                        stats_number(s.mean, type, false), stats_number(s.deviation, type, false));
        out += odd ? fmt::format("  {:>10}  {:>10}\n", s.nan, s.infinite) : "\n";
    }
    if (!found.bins) return out;
    // A bin that is one whole number ends with it.
    const size_t bins = found.bins->counts[0].size();
    const bool numbers = is_integer(type) && found.bins->width == 1;
    const double low = found.bins->low;
    Chart chart{low, low + found.bins->width * double(numbers ? bins - 1 : bins)};
    chart.columns = 68;
    if (given.output == "-" && isatty(STDOUT_FILENO)) {
        const uint32_t room = terminal_size(STDOUT_FILENO).width;
        chart.columns = room > 32 ? std::min(room - 12, 256u) : 20;
        chart.blocks = takes_escapes(STDOUT_FILENO);
    }
    for (size_t c = 0; c < found.channels.size(); ++c) {
        out += found.channels.size() > 1 ? fmt::format("\nchannel {}\n", c + 1) : "\n";
        out += chart_of(found.bins->counts[c], chart);
    }
    return out;
}

std::string stats_csv(const StatsResult &found) {
    std::string out = "channel,count,min,max,mean,deviation,nan,infinite\n";
    const auto number = [](double value) {
        return std::isnan(value) ? std::string() : fmt::format("{}", value);
    };
    for (size_t c = 0; c < found.channels.size(); ++c) {
        const Statistics &s = found.channels[c];
        out +=
            fmt::format("{},{},{},{},{},{},{},{}\n", c + 1, s.count, number(s.least),
                        number(s.greatest), number(s.mean), number(s.deviation), s.nan, s.infinite);
    }
    return out;
}

std::string stats_json(const StatsArguments &given, const StatsResult &found) {
    const Image &image = found.image;
    StatsJson out = {{"image",
                      {{"name", std::filesystem::path(given.file).filename().string()},
                       {"width", image.width()},
                       {"height", image.height()},
                       {"type", name_of(image.type())}}}};
    if (found.bins)
        out["bins"] = {{"low", found.bins->low},
                       {"width", found.bins->width},
                       {"count", found.bins->counts[0].size()}};
    StatsJson channels = StatsJson::array();
    const auto number = [](double value) {
        return std::isnan(value) ? StatsJson() : StatsJson(value);
    };
    for (size_t c = 0; c < found.channels.size(); ++c) {
        const Statistics &s = found.channels[c];
        StatsJson channel = {{"channel", c + 1},       {"count", s.count},
                             {"min", number(s.least)}, {"max", number(s.greatest)},
                             {"mean", number(s.mean)}, {"deviation", number(s.deviation)},
                             {"nan", s.nan},           {"infinite", s.infinite}};
        if (found.bins) channel["histogram"] = found.bins->counts[c];
        channels.push_back(std::move(channel));
    }
    out["channels"] = std::move(channels);
    return json_lines(out);
}

std::string stats_bins_csv(const Bins &bins) {
    std::string out = "low,high";
    for (size_t c = 0; c < bins.counts.size(); ++c) out += fmt::format(",channel {}", c + 1);
    for (size_t i = 0; i < bins.counts[0].size(); ++i) {
        out += fmt::format("\n{},{}", bins.low + bins.width * double(i),
                           bins.low + bins.width * double(i + 1));
        for (const auto &counts : bins.counts) out += fmt::format(",{}", counts[i]);
    }
    return out + '\n';
}

void stats_run(const Globals &globals, const StatsArguments &given) {
    const StatsForm form = stats_form(given);
    if (given.range.size() == 2 && !(given.range[0] < given.range[1]))
        fail("--range: got {},{}, expected LOW below HIGH", given.range[0], given.range[1]);
    if (!given.histogram.empty() && given.histogram == given.output)
        fail("--histogram: got '{}', as --output", given.output);
    for (const std::string *path : {&given.output, &given.histogram})
        if (!path->empty() && *path != "-") Output probe(*path);
    StatsResult found;
    found.image = globals.load(given.file, given.page);
    Image mask;
    if (!given.mask.empty()) mask = stats_mask(globals, given, found.image);
    const Scope scope{part_inside(given.roi, found.image, given.file),
                      mask.data() ? &mask : nullptr};
    found.channels = statistics(found.image, scope, true);
    found.bins = stats_bins(given, found, scope);
    if (!found.bins && !given.range.empty())
        fail("--range: got {},{}, expected numbers that binary32 can tell apart", given.range[0],
             given.range[1]);
    if (!given.histogram.empty()) {
        if (!found.bins)
            fail("--histogram: {} has no values that bins of binary32 could be made for",
                 given.file);
        write_text(stats_bins_csv(*found.bins), given.histogram);
    }
    write_text(form == StatsForm::csv    ? stats_csv(found)
               : form == StatsForm::json ? stats_json(given, found)
                                         : stats_text(given, found),
               given.output);
}

} // namespace

void add_stats_commands(CLI::App &app, const Globals &globals) {
    CLI::App *command =
        app.add_subcommand("stats", "Count, extrema, mean, deviation and histogram of an image");
    auto given = std::make_shared<StatsArguments>();
    add_value(*command, "FILE", given->file, filled(), "", "Image file; - is standard input")
        ->required();
    add_value(*command, "-o,--output", given->output, filled(), "OUT",
              "A text (.txt), a table (.csv) or everything for programs (.json); - is standard "
              "output")
        ->capture_default_str();
    add_choice(*command, "--format", given->form,
               {{"text", StatsForm::text}, {"csv", StatsForm::csv}, {"json", StatsForm::json}},
               "The kind of output, whatever the name's ending; text by default for -");
    add_value(*command, "--histogram", given->histogram, filled(), "BINS.csv",
              "Write the bins and their counts, too");
    add_value(*command, "--bins", given->bins, whole(2, 1 << 20), "N",
              "Number of bins; by default 256, or one a number for integers of fewer");
    add_reals(*command, "--range", given->range, 2, 2, "LOW,HIGH",
              "What the bins cover; by default all of u8 and s8, of other types what occurs");
    add_part(*command, "--roi", given->roi, "Look at this part only");
    add_value(*command, "--mask", given->mask, filled(), "FILE",
              "Look at the pixels where this picture, u8 of one channel, is not 0");
    add_page_option(*command, given->page);
    command->footer("Example: kipx stats cells.tif --histogram bins.csv\n"
                    "The deviation is the root of the mean squared distance from the mean. NaN and "
                    "infinite values\nare counted and otherwise left out.");
    command->callback([&globals, given] { stats_run(globals, *given); });
}
