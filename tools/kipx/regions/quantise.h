// quantise.h - any image as grey levels of 8 bits, in the same order, with the loss counted.
//
// Gives    grey_levels: one u8 channel for the floods, the values that every level stands for, and
//          how many different values the image had and how many of them fell together.
// Promises a pixel that is no darker than another gets no lower level. Nothing is lost when there
//          are 256 different values or fewer, but where linear levels were asked for. NaN has no
//          place in the order: those pixels are told by a mask.
// Costs    16-bit images a table, wider ones a sorted copy of the values.
#pragma once

#include "image/image.h"

#include <array>
#include <cstdint>
#include <string>

// Automatic: the values themselves where their range is below 256; else linear levels from the
// least to the greatest value when that loses nothing that other levels would keep, or uses at
// least three levels in four; else equal ones. Equal: every level used, by as equal numbers of
// pixels as the order allows; of 256 values or fewer a level each, spread evenly from 0 to 255.
enum class Levels { automatic, linear, equal };

struct GreyLevels {
    Image image;
    Image mask; // empty, or 255 where the value is a number
    Image luma; // one channel of the image's type; empty where the levels are the values themselves
    std::array<double, 256> least = {}, greatest = {}; // values of each level; 0 where not used
    uint64_t values = 0;                               // different values
    uint64_t used = 0;                                 // different levels
    bool exact = true;                                 // level = value + constant
    std::string way; // "u16, linear from 0 to 4012: 3757 of 4013 values fell together with another"

    uint64_t lost() const { return values - used; }
    const Image &grey() const { return luma.data() ? luma : image; }
};

// Colours become their luma (299 R + 587 G + 114 B) / 1000, rounded for integers; alpha is left
// out. name stands before a complaint.
GreyLevels grey_levels(const Image &image, Levels levels, const std::string &name);
