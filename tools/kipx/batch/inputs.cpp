// inputs.cpp - see inputs.h.
#include "batch/inputs.h"

#include "failure.h"
#include "image/files.h"

#include <algorithm>
#include <filesystem>
#include <fnmatch.h>
#include <map>
#include <set>

namespace fs = std::filesystem;

namespace {

bool ends_with(const std::string &text, const std::string &end) {
    return text.size() > end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// What an earlier run has left beside its images.
bool is_result(const fs::path &path) {
    std::error_code error;
    for (const char *end : {".overlay.png", ".labels.tif", ".overlay.jpg"})
        if (const std::string name = path.filename().string(); ends_with(name, end)) {
            const std::string stem = name.substr(0, name.size() - std::string(end).size());
            return fs::exists(path.parent_path() / (stem + ".done"), error);
        }
    return false;
}

bool wanted(const fs::path &path, const Selection &selection) {
    const std::string name = path.filename().string();
    if (name[0] == '.' || is_result(path)) return false;
    if (selection.pattern.empty()) return has_known_ending(name);
    return fnmatch(selection.pattern.c_str(), name.c_str(), 0) == 0;
}

void look_into(const fs::path &folder, const Selection &selection, const fs::path &output,
               std::vector<fs::path> &out) {
    std::error_code error;
    if (fs::equivalent(folder, output, error) && !out.empty()) return;
    std::vector<fs::directory_entry> entries;
    for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error))
        entries.push_back(*at);
    if (error) fail("{}: cannot read this folder: {}", folder.string(), error.message());
    std::sort(entries.begin(), entries.end());
    for (const auto &entry : entries) {
        const bool below = entry.is_directory(error);
        if (!below && entry.is_regular_file(error) && wanted(entry.path(), selection))
            out.push_back(entry.path());
        if (below && selection.subfolders && entry.path().filename().string()[0] != '.' &&
            !fs::equivalent(entry.path(), output, error))
            look_into(entry.path(), selection, output, out);
    }
}

std::string without_ending(const std::string &file) {
    return (fs::path(file).parent_path() / fs::path(file).stem()).string();
}

// The folder that all inputs lie in.
fs::path common_folder(const std::vector<Input> &inputs) {
    fs::path out;
    for (const Input &input : inputs) {
        std::error_code error;
        const fs::path folder = fs::weakly_canonical(fs::absolute(input.path), error).parent_path();
        if (out.empty()) out = folder;
        const auto [mine, other] =
            std::mismatch(out.begin(), out.end(), folder.begin(), folder.end());
        fs::path shared;
        for (auto part = out.begin(); part != mine; ++part) shared /= *part;
        out = shared;
    }
    return out;
}

// Gives those inputs another name that share theirs with another, or with the table of all.
template<class Rename> void part_names(std::vector<Input> &inputs, Rename &&rename) {
    std::map<std::string, size_t> owners = {{"summary", 1}};
    for (const Input &input : inputs) ++owners[input.name];
    for (Input &input : inputs)
        if (owners[input.name] > 1) rename(input);
}

} // namespace

std::vector<Input> gather_inputs(const Selection &selection) {
    std::vector<Input> out;
    std::error_code error;
    bool folders = false;
    for (const std::string &given : selection.files) {
        if (!fs::is_directory(given, error) || given == "-") {
            const std::string file = given == "-" ? "stdin" : fs::path(given).filename().string();
            out.push_back({given, file, without_ending(file), 1});
            continue;
        }
        folders = true;
        std::vector<fs::path> found;
        look_into(given, selection, selection.output, found);
        if (found.empty())
            fail("FILE: got the folder '{}', expected images in it{}", given,
                 selection.pattern.empty() ? "" : " that match " + selection.pattern);
        for (const fs::path &path : found) {
            const std::string file = path.lexically_relative(given).string();
            out.push_back({path.string(), file, without_ending(file), 1});
        }
    }
    if (!folders && (selection.subfolders || !selection.pattern.empty()))
        fail("{}: got it without a folder, expected one among FILE",
             selection.subfolders ? "--subfolders" : "--pattern");
    std::set<std::string> paths;
    for (const Input &input : out)
        if (!paths.insert(fs::weakly_canonical(input.path, error).string()).second)
            fail("FILE: got '{}' twice, expected every image once", input.path);
    const fs::path folder = common_folder(out);
    part_names(out, [&](Input &input) {
        const fs::path whole = fs::weakly_canonical(fs::absolute(input.path), error);
        input.file = whole.lexically_relative(folder).string();
        input.name = without_ending(input.file);
    });
    part_names(out, [](Input &input) { input.name = input.file; });
    return out;
}
