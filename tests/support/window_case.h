// support/window_case.h - what every operation over a window must do, tried on drawn arrays.
//
// Gives    Plane, one channel of one plane as wide numbers; try_window(), which draws arrays, a region
//          and a mask, makes the call with every instruction set, and judges it by a model.
// Promises the source is read up to its guarded edges only, and stays what it was; the destination
//          may be apart, the source itself, or lie one pixel further on in the same bytes; inside the
//          region, where the mask is not 0, every element is the model's, every other byte is what
//          it was.
#ifndef KIPX_TESTS_SUPPORT_WINDOW_CASE_H
#define KIPX_TESTS_SUPPORT_WINDOW_CASE_H

#include <functional>
#include <string>
#include <vector>

#include <kipx/env.h>

#include "support/guarded.h"

namespace kipx::test {

struct Plane {
    int height = 0, width = 0;
    std::vector<double> values;
    double &at(int y, int x) { return values[static_cast<size_t>(y) * width + x]; }
    double at(int y, int x) const { return values[static_cast<size_t>(y) * width + x]; }
    bool has(int y, int x) const { return y >= 0 && y < height && x >= 0 && x < width; }
};

// Rows and columns of a region.
struct Region {
    int y = 0, x = 0, height = 0, width = 0;
};

struct WindowCase {
    uint32_t type = KIPX_U8;
    Values values = Values::any;
    uint32_t most_width = 90, most_height = 24;
    std::vector<uint32_t> channels{1, 2, 3, 4};
    bool single_mask = true; // a mask of one channel serves them all
    double tolerance = 0;    // of the largest absolute value; 0: the same bits
    // dst is null in place; mask and roi may be null. The region is what the call is about.
    std::function<int32_t(KipxXE *xe, const kipx_arr *src, const kipx_arr *dst,
                          const kipx_arr *mask, const kipx_site *roi, const Region &region)>
        call;
    // The region's results; channel: of the array.
    std::function<Plane(const Plane &src, const Region &region, uint32_t channel)> model;
};

// Empty, or what was wrong.
std::string try_window(Rng &rng, const WindowCase &c);

// The value that a store of the type gives: nearest even, saturated.
double stored(uint32_t type, long double value);

// A structuring element; no members for a solid one.
struct Footprint {
    int height = 1, width = 1, row = 0, column = 0;
    std::vector<unsigned char> members;
    bool has(int y, int x) const {
        return members.empty() || members[static_cast<size_t>(y) * width + x] != 0;
    }
};
// What an operation of kipx/morph.h gives, by loops over every member.
Plane morphology(uint32_t type, uint32_t op, const Plane &src, const Region &region,
                 const Footprint &element);

} // namespace kipx::test

#endif
