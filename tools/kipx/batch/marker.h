// marker.h - the note beside results that they are complete.
//
// Gives    Marker: what a run would do, compared with what a former run has noted.
// Promises the note is written after the results, and is taken away before anything is read that
//          they are made from: whenever it is there, the results are those of its key, complete. It
//          holds name, size and SHA-256 of every result and nothing that differs between equal runs.
#pragma once

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <vector>

class Marker {
public:
    using Json = nlohmann::ordered_json;

    // path: of the note; its results lie in the same folder. key: what they depend on.
    Marker(std::string path, Json key);

    // The summary of the run that made the results, when its key is this one and every result is what
    // it was.
    std::optional<Json> found() const;
    // Takes the note away; and, where asked to, the results that have not been changed since.
    void remove(bool with_results = false);
    void set_key(Json key) { key_ = std::move(key); }
    // The results are there: takes away those of the former note that are not among them and have
    // not been changed since, and writes the new note.
    void write(const std::vector<std::string> &results, const Json &summary);

private:
    std::string place_of(const std::string &name) const;
    bool unchanged(const Json &record) const;
    void take_away(const Json &kept) const;

    std::string path_;
    Json key_, former_;
};

// Name, size and SHA-256 of a file; null where it cannot be read again: a pipe, or none.
nlohmann::ordered_json file_record(const std::string &path);
