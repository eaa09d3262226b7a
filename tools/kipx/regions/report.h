// report.h - stable regions as a table, as nested records, as labels and as a picture.
//
// Gives    texts and images; writing them is the caller's.
// Promises the four agree: a region's number, from 1 on in the Finder's order, is the same in all.
#pragma once

#include "regions/finder.h"

#include <string>

// A line a region under a line of names.
std::string regions_csv(const Finder &finder, const GreyLevels &levels);
// One object: what was looked at and how, the loss of levels, and the outermost regions of both
// polarities with those nested in them as their children.
std::string regions_json(const Finder &finder, const GreyLevels &levels, const std::string &source,
                         const Shape &shape, const RegionSettings &settings);
// The number of the smallest region at every pixel (of two of one size the bright one), else 0;
// s32, of the picture's size.
Image region_labels(const Finder &finder, const Image &levels);
// The picture in RGB with the regions' outlines and the ellipses of their second moments: dark
// regions blue, bright ones orange, ellipses in a paler tone.
Image region_overlay(const Finder &finder, const Image &picture);
