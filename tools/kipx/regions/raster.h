// raster.h - a region's pixels on a grid of their own, and what follows from their shape.
//
// Gives    Raster: cells of a region's box with a frame of one cell around it; perimeter, runs and
//          rings of the pixels in it.
// Promises rings together bound exactly the region's pixels: a ring touches itself nowhere, rings
//          touch each other in points alone, and what is inside an outer ring and outside its holes
//          is the region.
// Costs    memory and time of the box, kept from one region to the next.
#pragma once

#include "image/place.h"

#include <cstddef>
#include <cstdint>
#include <vector>

struct Box {
    uint32_t x0 = UINT32_MAX, y0 = UINT32_MAX, x1 = 0, y1 = 0; // both ends inside

    void take(Place place);
    uint32_t width() const { return x1 - x0 + 1; }
    uint32_t height() const { return y1 - y0 + 1; }
};

// Corners of pixels: pixel x, y has the corners x, y to x + 1, y + 1. Outer rings turn right where
// y points downwards, holes left.
using Ring = std::vector<Place>;

struct Polygon {
    Ring outer;
    std::vector<Ring> holes;
};

class Raster {
public:
    // The cells of a region whose box is known.
    void set(const Box &box, const std::vector<Place> &places);

    const Box &box() const { return box_; }
    bool inside(uint32_t x, uint32_t y) const { return cells_[cell(x, y)] != 0; }

    // Length of the line through the centres of the pixels on the border: those with a neighbour
    // outside by a side. After K. Benkrid and D. Crookes, Design and FPGA implementation of a
    // perimeter estimator (2000): every such pixel counts 1, sqrt 2 or the mean of both, by how many
    // of its eight neighbours lie on the border, too.
    double perimeter() const;
    // Lengths of pixels outside and inside by turns, down the columns of a whole picture from left to
    // right; outside comes first, and may be 0.
    std::vector<uint64_t> runs(Extent picture) const;
    std::vector<Polygon> polygons() const;

    // Fills holes of up to limit pixels that touch nothing outside; a picture's noise leaves many.
    void fill_holes(size_t limit);
    // Whether a pixel inside has a neighbour by a side that is not.
    bool at_border(uint32_t x, uint32_t y) const;

private:
    size_t cell(uint32_t x, uint32_t y) const {
        return (size_t(y) - box_.y0 + 1) * stride_ + (size_t(x) - box_.x0) + 1;
    }
    std::vector<Ring> rings() const;

    Box box_;
    size_t stride_ = 0;
    std::vector<uint8_t> cells_; // 1 inside
};
