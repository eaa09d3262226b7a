// marker.cpp - see marker.h. The note's first line is the key, its second one the summary.
#include "batch/marker.h"

#include "image/files.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>

std::string identity(const std::string &path) {
    struct stat found = {};
    if (stat(path.c_str(), &found) != 0) return "";
    return std::to_string(found.st_size) + " bytes of " + std::to_string(found.st_mtim.tv_sec) +
           "." + std::to_string(found.st_mtim.tv_nsec);
}

Marker::Marker(std::string path, const std::string &input, const std::string &settings)
    : path_(std::move(path)),
      key_("kipx " KIPX_VERSION "; " + std::filesystem::path(input).filename().string() + ", " +
           identity(input) + "; " + settings) {
    for (char &c : key_)
        if (c == '\n') c = ' ';
}

std::optional<std::string> Marker::found(const std::vector<std::string> &results) const {
    std::ifstream file(path_);
    std::string key, summary;
    if (!std::getline(file, key) || key != key_ || !std::getline(file, summary)) return {};
    for (const std::string &result : results)
        if (identity(result).empty()) return {};
    return summary;
}

void Marker::remove() const {
    std::error_code error;
    std::filesystem::remove(path_, error);
    if (error) Sink{path_, "", nullptr}.fail("cannot remove: " + error.message());
}

void Marker::write(const std::string &summary) const {
    std::string line = summary;
    for (char &c : line)
        if (c == '\n') c = ' ';
    write_text(key_ + "\n" + line + "\n", path_);
}
