// mser_command.cpp - kipx mser: the stable regions of many images, each into files of its own.
#include "batch/batch.h"
#include "batch/inputs.h"
#include "batch/marker.h"
#include "command.h"
#include "failure.h"
#include "image/output.h"
#include "options.h"
#include "regions/report.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <set>

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

enum class Masks { none, runs, polygons };
constexpr uint32_t all_pages = 0;

struct MserArguments {
    Selection selection;
    uint32_t jobs = 1, page = 1;
    bool resume = false, no_labels = false, no_overlay = false;
    Masks masks = Masks::none;
    OverlayStyle style;
    RegionSettings settings;
};

// What all images share. The hash of a file is asked for once, however many pages it has.
struct MserJob {
    const Globals &globals;
    const MserArguments &given;
    std::vector<Input> inputs;
    Picture mask;
    Json mask_record;
    std::vector<Json> rows; // of the table of all images
    std::mutex mutex;
    std::map<std::string, Json> records; // of input files
};

// Where the results of one image go, and of which kind: a suffix each.
std::vector<std::string> suffixes(const MserArguments &given) {
    std::vector<std::string> out = {".csv", ".json"};
    if (!given.no_labels) out.push_back(".labels.tif");
    if (!given.no_overlay) out.push_back(".overlay.png");
    if (given.masks == Masks::runs) out.push_back(".masks.json");
    if (given.masks == Masks::polygons) out.push_back(".geojson");
    return out;
}

std::string target(const MserArguments &given, const std::string &name) {
    return (fs::path(given.selection.output) / name).string();
}

// Every page of every file, where all are wanted. A file that cannot be read stays one input, and a
// page behind the place where a file is cut becomes one: their jobs tell it.
std::vector<Input> with_pages(const Globals &globals, const std::vector<Input> &inputs) {
    std::vector<Input> out;
    for (const Input &input : inputs) {
        Picture counted;
        try {
            if (input.path != "-") counted = globals.read(input.path, all_pages);
        } catch (const Failure &) {
            counted = {};
        }
        const uint32_t last = counted.pages + counted.cut;
        const size_t digits = std::to_string(last).size();
        for (uint32_t page = 1; page <= last; ++page) {
            Input one = input;
            one.page = page;
            if (last > 1) one.name += fmt::format("-p{:0{}}", page, digits);
            out.push_back(std::move(one));
        }
    }
    return out;
}

// Every image has files of its own, and none of them is an image that was given, or the mask: the
// results would take its place while later images still need it.
void check_targets(const MserJob &job) {
    std::map<std::string, std::string> inputs;
    std::set<std::string> names;
    std::error_code error;
    for (const Input &input : job.inputs)
        inputs[fs::weakly_canonical(input.path, error).string()] = "one of the images given";
    const std::string &mask = job.given.settings.mask;
    if (!mask.empty()) inputs.emplace(fs::weakly_canonical(mask, error).string(), "the --mask");
    std::vector<std::string> ends = suffixes(job.given);
    ends.push_back(".done");
    const auto check = [&](const std::string &file, const std::string &result) {
        const auto found = inputs.find(fs::weakly_canonical(result, error).string());
        if (found != inputs.end())
            fail("FILE: got '{}', whose result {} is {}", file, result, found->second);
        if (fs::exists(result, error)) Output probe(result);
    };
    for (const Input &input : job.inputs) {
        if (!names.insert(input.name).second)
            fail("FILE: got '{}' and another image whose results would both be {}", input.path,
                 target(job.given, input.name + ".csv"));
        for (const std::string &end : ends) check(input.path, target(job.given, input.name + end));
    }
    check("all images", target(job.given, "summary.csv"));
}

Json record_of(MserJob &job, const std::string &path) {
    {
        const std::lock_guard lock(job.mutex);
        if (const auto found = job.records.find(path); found != job.records.end())
            return found->second;
    }
    Json record = file_record(path);
    const std::lock_guard lock(job.mutex);
    return job.records[path] = std::move(record);
}

// Everything that the results depend on.
Json key_of(const MserJob &job, const Input &input, const Json &record) {
    const MserArguments &given = job.given;
    Json out = Json::object();
    out["kipx"] = KIPX_VERSION;
    out["file"] = input.file;
    out["page"] = input.page;
    out["input"] = record;
    out["oriented"] = !job.globals.as_stored;
    out["settings"] = settings_json(given.settings);
    out["mask"] = job.mask_record;
    out["results"] = suffixes(given);
    for (const auto &[word, colours] : colour_words())
        if (colours == given.style.colours) out["colours"] = word;
    out["ids"] = given.style.ids;
    return out;
}

// The numbers of a line and of a row of the table of all images.
Json summary_of(const Picture &picture, const Input &input, const GreyLevels &levels,
                const Finder &finder) {
    const auto &regions = finder.regions();
    std::vector<int32_t> areas;
    size_t bright = 0;
    double sum = 0;
    for (const Region &region : regions) {
        areas.push_back(region.area);
        bright += region.bright;
        sum += region.area;
    }
    std::sort(areas.begin(), areas.end());
    const size_t count = areas.size();
    Json out = Json::object();
    out["file"] = input.file;
    out["page"] = input.page;
    out["pages"] = picture.pages;
    out["width"] = picture.image.width();
    out["height"] = picture.image.height();
    out["channels"] = picture.image.channels();
    out["type"] = name_of(picture.image.type());
    out["regions"] = count;
    out["dark"] = count - bright;
    out["bright"] = bright;
    out["area_mean"] = count ? std::round(sum / double(count) * 1e3) / 1e3 : 0;
    out["area_median"] = count ? (areas[(count - 1) / 2] + areas[count / 2]) / 2.0 : 0;
    out["levels"] = levels.exact && levels.lost() == 0 ? "" : levels.way;
    return out;
}

std::string line_of(const std::string &path, const Json &summary, const std::string &more) {
    const auto number = [&](const char *key) { return summary[key].get<uint64_t>(); };
    const std::string way = summary["levels"];
    const std::string page =
        number("pages") > 1 ? fmt::format("page {} of {}, ", number("page"), number("pages")) : "";
    return fmt::format("{}: {}{}x{}, {} region{}: {} dark, {} bright{}{}{}", path, page,
                       number("width"), number("height"), number("regions"),
                       number("regions") == 1 ? "" : "s", number("dark"), number("bright"), more,
                       way.empty() ? "" : "; ", way);
}

// The picture under the overlay: 8-bit colours as they are, else the grey levels.
const Image &shown(const Image &image, const GreyLevels &levels) {
    return image.type() == KIPX_U8 ? image : levels.image;
}

std::vector<std::string> write_results(const MserJob &job, const Input &input,
                                       const Picture &picture, const GreyLevels &levels,
                                       const Finder &finder, const Json &record) {
    const MserArguments &given = job.given;
    const Origin origin{input.file, record.is_null() ? "" : record["sha256"].get<std::string>(),
                        input.page, picture.pages, picture.image.shape()};
    make_folder(fs::path(target(given, input.name)).parent_path().string());
    std::vector<std::string> out;
    for (const std::string &end : suffixes(given)) {
        out.push_back(target(given, input.name + end));
        const std::string &path = out.back();
        if (end == ".csv") write_text(regions_csv(finder, levels, origin), path);
        if (end == ".json") write_text(regions_json(finder, levels, origin, given.settings), path);
        if (end == ".labels.tif") write_image(region_labels(finder), {path, "", true});
        if (end == ".overlay.png")
            write_image(region_overlay(finder, shown(picture.image, levels), given.style),
                        {path, "", false});
        if (end == ".masks.json") write_text(regions_runs(finder, origin), path);
        if (end == ".geojson") write_text(regions_outlines(finder), path);
    }
    return out;
}

Answer analyse(const MserJob &job, const Input &input, const Json &record, Marker &marker,
               Json &row) {
    const MserArguments &given = job.given;
    const std::string &mask_name = given.settings.mask;
    const Picture picture = job.globals.read(input.path, input.page);
    const GreyLevels levels = grey_levels(picture.image, given.settings.levels, input.path);
    const bool own_mask = given.page == all_pages && job.mask.pages > 1;
    const Picture mask_page = own_mask ? job.globals.read(mask_name, input.page) : Picture{};
    const Image mask = mask_of(own_mask ? mask_page.image : job.mask.image, mask_name, levels);
    Finder finder(levels, &mask, given.settings);
    const auto start = std::chrono::steady_clock::now();
    finder.find();
    const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start;
    finder.describe();
    const auto results = write_results(job, input, picture, levels, finder, record);
    row = summary_of(picture, input, levels, finder);
    marker.write(results, row);
    const double rate = double(finder.extent()) / std::max(spent.count(), 1e-9) / 1e6;
    return {
        line_of(input.path, row,
                fmt::format("; flooded in {:.1f} ms, {:.1f} Mpixel/s", spent.count() * 1e3, rate)),
        true};
}

Answer work_on(MserJob &job, size_t index) {
    const Input &input = job.inputs[index];
    const std::string note = target(job.given, input.name + ".done");
    try {
        if (job.given.resume) {
            Marker marker(note, key_of(job, input, record_of(job, input.path)));
            if (const auto summary = marker.found()) {
                job.rows[index] = *summary;
                return {line_of(input.path, *summary, " (done before)"), false};
            }
        }
        Marker marker(note, nullptr);
        marker.remove();
        const Json record = record_of(job, input.path);
        marker.set_key(key_of(job, input, record));
        return analyse(job, input, record, marker, job.rows[index]);
    } catch (const std::bad_alloc &) {
        fail("{}: not enough memory for a picture of this size", input.path);
    } catch (const Failure &failure) {
        const std::string text = failure.what();
        if (text.rfind(input.path + ": ", 0) == 0) throw;
        fail("{}: {}", input.path, text);
    }
}

void write_summary(const MserJob &job, const std::vector<std::exception_ptr> &failures) {
    static constexpr const char *columns[] = {"file",     "page",      "width",      "height",
                                              "channels", "type",      "regions",    "dark",
                                              "bright",   "area_mean", "area_median"};
    std::string out;
    for (const char *column : columns) out += column + std::string(",");
    out += "failure\n";
    for (size_t i = 0; i < job.inputs.size(); ++i) {
        Json row = job.rows[i].is_null() ? Json::object() : job.rows[i];
        row["file"] = job.inputs[i].file;
        row["page"] = job.inputs[i].page;
        for (const char *column : columns) {
            const Json value =
                failures[i] && column[0] != 'f' && column[0] != 'p' ? Json() : row[column];
            out += (value.is_string() ? csv_field(value)
                    : value.is_null() ? ""
                                      : value.dump()) +
                   ",";
        }
        out += (failures[i] ? csv_field(sentence_of(failures[i])) : "") + "\n";
    }
    make_folder(job.given.selection.output);
    write_text(out, target(job.given, "summary.csv"));
}

// Options that would do nothing are refused.
void check_options(const CLI::App &command, const MserArguments &given) {
    if (!given.no_overlay) return;
    for (const char *option : {"--ids", "--colours"})
        if (command.count(option) > 0)
            fail("{}: got it with --no-overlay, expected it with an overlay", option);
}

void run_mser(const Globals &globals, const CLI::App &command, MserArguments &given) {
    given.settings.settle(globals, command);
    check_options(command, given);
    check_folder(given.selection.output);
    MserJob job{globals, given, gather_inputs(given.selection), {}, nullptr, {}, {}, {}};
    if (given.page == all_pages)
        job.inputs = with_pages(globals, job.inputs);
    else
        for (Input &input : job.inputs) input.page = given.page;
    check_targets(job);
    const std::string &mask = given.settings.mask;
    if (!mask.empty()) {
        const uint32_t page = given.page == all_pages ? 1 : globals.page_beside(mask, given.page);
        job.mask = globals.read(mask, page);
        job.mask_record = file_record(mask);
    }
    std::set<std::string> folders = {given.selection.output};
    for (const Input &input : job.inputs)
        folders.insert(fs::path(target(given, input.name)).parent_path().string());
    for (const std::string &folder : folders) sweep(folder);
    std::error_code error;
    fs::remove(target(given, "summary.csv"), error);
    job.rows.resize(job.inputs.size());
    const auto failures = run_batch(job.inputs.size(), given.jobs, globals.quiet,
                                    [&job](size_t index) { return work_on(job, index); });
    const auto failed = [](const std::exception_ptr &failure) { return failure != nullptr; };
    if (!std::all_of(failures.begin(), failures.end(), failed)) write_summary(job, failures);
    if (std::any_of(failures.begin(), failures.end(), failed)) throw AlreadyTold();
}

void add_result_options(CLI::App &command, MserArguments &given) {
    add_choice(
        command, "--masks", given.masks,
        {{"none", Masks::none}, {"rle", Masks::runs}, {"polygons", Masks::polygons}},
        "Every pixel of every region: COCO runs in NAME.masks.json, or outlines with holes in "
        "NAME.geojson");
    command.add_flag("--no-labels", given.no_labels, "Write no NAME.labels.tif");
    command.add_flag("--no-overlay", given.no_overlay, "Write no NAME.overlay.png");
    command.add_flag("--ids", given.style.ids, "Number the regions in the overlay");
    add_choice(
        command, "--colours", given.style.colours, colour_words(),
        "Of dark and bright regions in the overlay; auto: those that the picture has least of");
}

} // namespace

void add_mser_commands(CLI::App &app, const Globals &globals) {
    CLI::App *command = app.add_subcommand("mser", "Find the stable regions of images");
    auto given = std::make_shared<MserArguments>();
    add_value(*command, "FILE", given->selection.files, filled(), "",
              "Image files, and folders of such; - is standard input")
        ->required();
    add_value(*command, "-o,--output", given->selection.output, filled(), "DIR",
              "Folder for the results: of NAME.png the files NAME.csv, NAME.json, NAME.labels.tif, "
              "NAME.overlay.png, and NAME.done when they are complete; and summary.csv")
        ->required();
    add_value(*command, "--pattern", given->selection.pattern, filled(), "GLOB",
              "Take files of such names from folders, '*.tif' for one");
    command->add_flag("--subfolders", given->selection.subfolders,
                      "Look into folders in folders, too; results keep the path");
    const auto page = [given](const std::string &text) {
        given->page = text == "all" ? all_pages : uint32_t(std::stoul(text));
    };
    command
        ->add_option_function<std::string>("--page", page,
                                           "Which page of files with several, or all")
        ->transform(CLI::Validator(
            [](std::string &text) {
                if (text == "all") return std::string();
                const std::string wrong = whole(1, INT32_MAX)(text);
                return wrong.empty() ? wrong : wrong + ", or all";
            },
            ""))
        ->type_name("N|all")
        ->default_str("1");
    add_region_options(*command, given->settings);
    command->add_flag("--fast", given->settings.fast,
                      "The fast flood: the same results, sooner and in less memory");
    add_result_options(*command, *given);
    add_value(*command, "--jobs", given->jobs, whole(1, 256), "N", "Images at a time")
        ->capture_default_str();
    command->add_flag("--resume", given->resume,
                      "Leave out images whose NAME.done tells of the same file and settings");
    command->footer(
        "Example: kipx mser cells/ -o found --polarity dark --jobs 4 --resume\n"
        "Dark regions are flooded from dark to bright, bright ones the other way. A region is\n"
        "stable when it grows little over N levels; of nested ones that differ little in area the\n"
        "outer one is reported.\n"
        "Exit status: 0 when all images were worked on, 2 when arguments were wrong or an image\n"
        "was refused; the other images are worked on all the same.");
    command->callback([&globals, command, given] { run_mser(globals, *command, *given); });
}
