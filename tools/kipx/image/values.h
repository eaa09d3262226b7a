// values.h - what the values of a picture are, and the same values in other element types.
//
// Gives    statistics() and histogram() of a part of a picture, under a mask; extremes() of a whole
//          one; converted(), computable() and fits().
// Promises a part and a mask are those of this picture: the part lies inside, the mask has its size.
// Costs    a pass of the library per number; where a picture of floats has NaN or infinite values, a
//          byte per element besides.
#pragma once

#include "image/image.h"
#include "image/place.h"

#include <cmath>
#include <cstdint>
#include <optional>
#include <vector>

struct Scope {
    std::optional<Part> part;    // null: the whole picture
    const Image *mask = nullptr; // u8, one channel; values count where it is not 0
};

struct Statistics {
    uint64_t count = 0, nan = 0, infinite = 0; // finite values, and those that are not
    double least = NAN, greatest = NAN, sum = NAN, mean = NAN,
           deviation = NAN; // of the finite ones
};

// One per channel; deviations cost a pass more.
std::vector<Statistics> statistics(const Image &image, const Scope &scope, bool deviations);

// Counts per channel. Bin i begins at low + i * width.
struct Bins {
    double low = 0, width = 1;
    std::vector<std::vector<uint32_t>> counts;
};
// Of the values from low to high, both included; nothing where binary32 does not hold the range.
std::optional<Bins> histogram(const Image &image, const Scope &scope, double low, double high,
                              int32_t bins);

// Of all channels at once, the sum left out.
Statistics extremes(const Image &image);

// The same values in another type: rounded to nearest even, saturated; NaN becomes 0 in integers.
Image converted(const Image &image, uint32_t type);
// The same values in a type that the library computes with: s8 in s16, u16 and u32 in s32, f64 in f32,
// but none that is `as_it_is`. Fails where s32 has no room, with "... more than 2147483647, the most
// that `holder`".
Image computable(Image image, const std::string &path, const char *holder, uint32_t as_it_is = 0);
// The types that the library computes with, each holding those before it; f32 holds all but s32.
constexpr uint32_t compute_types[] = {KIPX_U8, KIPX_S16, KIPX_S32, KIPX_F32};
// The place of a type among them.
int rank(uint32_t type);
// Whether a type holds every value of a picture of integers. Floats are held by all floating types.
bool fits(const Image &image, uint32_t type);
