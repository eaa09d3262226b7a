// mser_command.cpp - kipx mser: the stable regions of many images, each into files of its own.
#include "batch/batch.h"
#include "batch/marker.h"
#include "command.h"
#include "failure.h"
#include "image/files.h"
#include "options.h"
#include "regions/report.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>
#include <memory>

namespace {

namespace fs = std::filesystem;

struct Arguments {
    std::vector<std::string> files;
    std::string folder, jobs = "1";
    bool resume = false;
    RegionArguments regions;
};

// Where the results of one image go.
struct Target {
    std::string csv, json, labels, overlay, done;

    std::vector<std::string> results() const { return {csv, json, labels, overlay}; }
};

struct Job {
    const Globals &globals;
    const Arguments &given;
    RegionSettings settings;
    Image mask;
    std::vector<Target> targets;
    std::string key; // what results depend on besides the image
};

Target target_of(const std::string &file, const std::string &folder) {
    const std::string stem = (fs::path(folder) / fs::path(file).stem()).string();
    return {stem + ".csv", stem + ".json", stem + ".labels.tif", stem + ".overlay.png",
            stem + ".done"};
}

// Every image has files of its own, and none of them is an image that was given, or the mask: the
// results would take its place while later images still need it.
void check_targets(const Job &job) {
    std::map<std::string, std::string> owners, inputs;
    std::error_code error;
    for (const std::string &file : job.given.files)
        inputs[fs::weakly_canonical(file, error).string()] = "one of the images given";
    const std::string &mask = job.settings.mask;
    if (!mask.empty()) inputs.emplace(fs::weakly_canonical(mask, error).string(), "the --mask");
    for (size_t i = 0; i < job.targets.size(); ++i) {
        const std::string &file = job.given.files[i];
        if (fs::path(file).stem().empty()) fail("FILE: got '", file, "', expected an image file");
        const auto [owner, fresh] = owners.emplace(job.targets[i].csv, file);
        if (!fresh)
            fail("FILE: got '", owner->second, "' and '", file, "', whose results would both be ",
                 job.targets[i].csv);
        std::vector<std::string> written = job.targets[i].results();
        written.push_back(job.targets[i].done);
        for (const std::string &result : written) {
            const auto input = inputs.find(fs::weakly_canonical(result, error).string());
            if (input != inputs.end())
                fail("FILE: got '", file, "', whose result ", result, " is ", input->second);
        }
    }
}

std::string rounded(double value, int digits) {
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", digits, value);
    return text;
}

std::string summary_of(const std::string &file, const Image &image, const GreyLevels &levels,
                       const Finder &finder, double seconds) {
    const auto &regions = finder.regions();
    const auto bright =
        std::count_if(regions.begin(), regions.end(), [](const Region &r) { return r.bright; });
    const size_t count = regions.size();
    std::string out =
        file + ": " + std::to_string(image.width()) + "x" + std::to_string(image.height()) + ", " +
        std::to_string(count) + (count == 1 ? " region: " : " regions: ") +
        std::to_string(count - size_t(bright)) + " dark, " + std::to_string(bright) +
        " bright; flooded in " + rounded(seconds * 1e3, 1) + " ms, " +
        rounded(double(finder.extent()) / std::max(seconds, 1e-9) / 1e6, 1) + " Mpixel/s";
    if (!levels.exact || levels.lost() > 0) out += "; " + levels.way;
    return out;
}

// The picture under the overlay: 8-bit colours as they are, else the grey levels.
const Image &shown(const Image &image, const GreyLevels &levels) {
    return image.type() == KIPX_U8 ? image : levels.image;
}

Answer analyse(const Job &job, const std::string &file, const Target &target,
               const Marker &marker) {
    const Image image = job.globals.load(file);
    const GreyLevels levels = grey_levels(image, job.settings.levels, file);
    const Image mask = mask_of(job.mask, job.settings.mask, levels);
    Finder finder(levels.image, &mask, job.settings);
    const auto start = std::chrono::steady_clock::now();
    finder.find();
    const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start;
    finder.describe();
    marker.remove();
    write_text(regions_csv(finder, levels), target.csv);
    write_text(regions_json(finder, levels, fs::path(file).filename().string(), image.shape(),
                            job.settings),
               target.json);
    write_image(region_labels(finder, levels.image), target.labels);
    write_image(region_overlay(finder, shown(image, levels)), target.overlay);
    const std::string summary = summary_of(file, image, levels, finder, spent.count());
    marker.write(summary);
    return {summary, true};
}

Answer work_on(const Job &job, size_t index) {
    const std::string &file = job.given.files[index];
    const Target &target = job.targets[index];
    const Marker marker(target.done, file, job.key);
    if (job.given.resume)
        if (const auto summary = marker.found(target.results()))
            return {*summary + " (done before)", false};
    try {
        return analyse(job, file, target, marker);
    } catch (const std::bad_alloc &) {
        fail(file, ": not enough memory for a picture of this size");
    } catch (const Failure &failure) {
        const std::string text = failure.what();
        if (text.rfind(file + ": ", 0) == 0) throw;
        fail(file, ": ", text);
    }
}

void run(const Globals &globals, const Arguments &given) {
    Job job{globals, given, given.regions.settings(), {}, {}, {}};
    const auto threads = size_t(whole_number("--jobs", given.jobs, 1, 1024));
    if (!job.settings.mask.empty()) job.mask = globals.load(job.settings.mask);
    job.key = settings_json(job.settings) + ", mask " + identity(job.settings.mask);
    for (const std::string &file : given.files)
        job.targets.push_back(target_of(file, given.folder));
    check_targets(job);
    std::error_code error;
    fs::create_directories(given.folder, error);
    if (error || !fs::is_directory(given.folder))
        fail(given.folder,
             ": cannot make this folder: ", error ? error.message() : "it is something else");
    const size_t failures = run_batch(given.files.size(), threads, globals.quiet,
                                      [&job](size_t index) { return work_on(job, index); });
    if (failures > 0) throw AlreadyTold();
}

} // namespace

void add_mser_command(CLI::App &app, const Globals &globals) {
    CLI::App *command = app.add_subcommand("mser", "Find the stable regions of images");
    auto given = std::make_shared<Arguments>();
    command->add_option("FILE", given->files, "Image files")->required();
    command
        ->add_option("-o,--output", given->folder,
                     "Folder for the results: of NAME.png the files NAME.csv, NAME.json, "
                     "NAME.labels.tif, NAME.overlay.png, and NAME.done when they are complete")
        ->required()
        ->type_name("DIR");
    add_region_options(*command, given->regions);
    command->add_flag("--fast", given->regions.fast,
                      "The fast flood: the same results, sooner and in less memory");
    command->add_option("--jobs", given->jobs, "Images at a time (default 1)")->type_name("N");
    command->add_flag("--resume", given->resume,
                      "Leave out images whose NAME.done tells of the same file and settings");
    command->footer(
        "Example: kipx mser cells/*.tif -o found --polarity dark --jobs 4 --resume\n"
        "Dark regions are flooded from dark to bright, bright ones the other way. A region is\n"
        "stable when it grows little over N levels; of nested ones that differ little in area the\n"
        "outer one is reported.\n"
        "Exit status: 0 when all images were worked on, 2 when arguments were wrong or an image\n"
        "was refused; the other images are worked on all the same.");
    command->callback([&globals, given] { run(globals, *given); });
}
