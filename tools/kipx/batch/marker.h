// marker.h - the note beside an image's results that they are complete.
//
// Gives    Marker: what a run would do with a file, compared with what a former run has noted.
// Promises the note is written after the results, by rename, and is taken away before they are
//          written anew: whenever it is there, the results of that run are complete. It holds for
//          the same file (size and time of change), the same settings and the same version.
#pragma once

#include <optional>
#include <string>
#include <vector>

class Marker {
public:
    // path: of the note; input: the image file; settings: whatever else the results depend on.
    Marker(std::string path, const std::string &input, const std::string &settings);

    // The summary of the run that made the results, when they need not be made again.
    std::optional<std::string> found(const std::vector<std::string> &results) const;
    void remove() const;
    void write(const std::string &summary) const;

private:
    std::string path_, key_;
};

// Size and time of change of a file; empty when there is none.
std::string identity(const std::string &path);
