// marker.cpp - see marker.h.
#include "batch/marker.h"

#include "failure.h"
#include "image/files.h"
#include "regions/report.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sha256.h>

namespace fs = std::filesystem;

nlohmann::ordered_json file_record(const std::string &path) {
    std::error_code error;
    char digest[SHA256_DIGEST_STRING_LENGTH];
    if (!fs::is_regular_file(path, error) || !SHA256File(path.c_str(), digest)) return nullptr;
    return {{"name", fs::path(path).filename().string()},
            {"size", fs::file_size(path, error)},
            {"sha256", digest}};
}

// A note that cannot be read, or is none, counts as none.
Marker::Marker(std::string path, Json key) : path_(std::move(path)), key_(std::move(key)) {
    std::ifstream file(path_, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    former_ = Json::parse(text, nullptr, false);
    if (!former_.is_object() || !former_.contains("key") || !former_.contains("summary") ||
        !former_.contains("results") || !former_["results"].is_array())
        former_ = nullptr;
}

std::string Marker::place_of(const std::string &name) const {
    return (fs::path(path_).parent_path() / name).string();
}

bool Marker::unchanged(const Json &record) const {
    if (!record.is_object() || !record.contains("name") || !record["name"].is_string())
        return false;
    const std::string name = record["name"];
    return name.find('/') == std::string::npos && file_record(place_of(name)) == record;
}

std::optional<Marker::Json> Marker::found() const {
    if (former_.is_null() || key_["input"].is_null() || former_["key"] != key_) return {};
    for (const Json &record : former_["results"])
        if (!unchanged(record)) return {};
    return former_["summary"];
}

void Marker::take_away(const Json &kept) const {
    if (former_.is_null()) return;
    for (const Json &record : former_["results"]) {
        const auto same_name = [&](const Json &made) { return made["name"] == record["name"]; };
        std::error_code error;
        if (unchanged(record) && std::none_of(kept.begin(), kept.end(), same_name))
            fs::remove(place_of(record["name"]), error);
    }
}

void Marker::remove(bool with_results) {
    std::error_code error;
    fs::remove(path_, error);
    if (error) fail("{}: cannot remove: {}", path_, error.message());
    if (with_results) take_away(Json::array());
}

void Marker::write(const std::vector<std::string> &results, const Json &summary) {
    Json note = Json::object();
    note["key"] = key_;
    note["summary"] = summary;
    note["results"] = Json::array();
    for (const std::string &result : results) note["results"].push_back(file_record(result));
    take_away(note["results"]);
    write_text(json_lines(note), path_);
}
