// report.h - stable regions as a table, as nested records, as labels, as masks and as a picture.
//
// Gives    texts and images; writing them is the caller's.
// Promises they agree: a region's number, from 1 on in the Finder's order, is the same in all. Texts
//          are UTF-8; of a name that is not, the bytes that are not are replaced.
#pragma once

#include "regions/finder.h"

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <utility>
#include <vector>

// What the regions were found in.
struct Origin {
    std::string file;  // as results name it
    std::string hash;  // SHA-256 of the file; empty where there is none to read again
    uint32_t page = 1; // of pages
    uint32_t pages = 1;
    Shape shape;
};

// A record as text: a member a line, lists of records a line each.
std::string json_lines(const nlohmann::ordered_json &record);
// A field of a table, in quotes where it must be.
std::string csv_field(const std::string &text);

// A line a region under a line of names.
std::string regions_csv(const Finder &finder, const GreyLevels &levels, const Origin &origin);
// One object: version, what was looked at and how, the loss of levels, and the outermost regions of
// both polarities with those nested in them as their children.
std::string regions_json(const Finder &finder, const GreyLevels &levels, const Origin &origin,
                         const RegionSettings &settings);
// Every pixel of every region: as runs down the columns in the records that COCO has for them, or as
// outlines with their holes in GeoJSON, corners of pixels in the picture's coordinates.
std::string regions_runs(const Finder &finder, const Origin &origin);
std::string regions_outlines(const Finder &finder);
// The number of the smallest region at every pixel (of two of one size the bright one), else 0;
// s32, of the picture's size.
Image region_labels(const Finder &finder);

// Pairs of colours for outlines, dark and bright ones.
enum class Colours { chosen, blue_orange, green_magenta, cyan_yellow, red_white };
std::vector<std::pair<std::string, Colours>> colour_words();

struct OverlayStyle {
    Colours colours = Colours::chosen; // those that the picture has the least of
    bool ids = false;
};

// The picture in RGB with the regions' outlines and the ellipses of their second moments in a paler
// tone; small regions have a thin outline alone.
Image region_overlay(const Finder &finder, const Image &picture, const OverlayStyle &style);
