// finder.h - the stable regions of a picture, by the library, with what its features say of them.
//
// Gives    Finder: floods grey levels, finds the stable regions, has their features gathered, and
//          tells each region's measures and pixels; and the floods' trees.
// Promises regions stand in the order of a reader: dark ones first, a region before those nested in
//          it, siblings by their first pixel. Both floods give the same regions in that order with
//          the same measures.
// Costs    the library's trees; without the fast form 8 bytes a pixel and more for pixel lists.
// Owner    the Finder owns the environment, the trees and the list. Places are on the picture's
//          axes, whatever the region of interest.
#pragma once

#include "regions/raster.h"
#include "regions/settings.h"

#include <kipx/geometry.h>
#include <kipx/mser.h>
#include <kipx/watershed.h>

#include <vector>

struct Region {
    const KipxWTSregion *record;
    KipxWTSMF moments; // on the axes of the region of interest
    bool bright;
    int32_t level; // of the grey levels flooded
    int32_t area;
    double variation; // as the detection saw it
    int32_t parent;   // the smallest stable region of its polarity around it, or -1
    uint32_t children = 0, depth = 0;
    Box box;
    uint64_t first; // its first pixel in raster order
    double x, y;    // mean
    double perimeter;
    kipx_r2d_ellipse ellipse;     // with the same second moments
    double hull_area;             // of the convex hull of the pixels' squares
    kipx_r2d_quad rect;           // the least one around them, a longer side first
    double least, greatest, mean; // of the grey values

    double solidity() const { return area / hull_area; }
    // Distance of the ellipse's foci over its long axis: 0 for a circle, towards 1 for a line.
    double eccentricity() const;
};

class Finder {
public:
    // mask: u8 of the levels' size, or null. Both must outlive the Finder.
    Finder(const GreyLevels &levels, const Image *mask, const RegionSettings &settings);
    ~Finder();
    Finder(const Finder &) = delete;
    Finder &operator=(const Finder &) = delete;

    // Floods and detects; describe() then fills regions().
    void find();
    void describe();
    const std::vector<Region> &regions() const { return regions_; }
    // The pixels of a region into out, in no particular order.
    void pixels(const Region &region, std::vector<Place> &out) const;
    // The flood's tree, whose bright levels are 255 - value but for stable regions; or null.
    const KipxST *tree(bool bright) const;
    Extent size() const { return {levels_.image.width(), levels_.image.height()}; }
    // Pixels looked at, the mask aside.
    uint64_t extent() const { return uint64_t(site_.extent[1]) * site_.extent[2]; }

private:
    Region measure(KipxWTSregion *record, bool bright);
    void measure_shape(Region &region) const;
    template<class T> void measure_values(Region &region) const;
    void check_limits() const;
    void sort_and_nest();
    void check(int32_t answer) const;

    Environment environment_;
    RegionSettings settings_;
    const GreyLevels &levels_;
    const Image *mask_;
    kipx_site site_ = {};
    KipxWTSFDs features_[2] = {};
    KipxMSERContext context_ = {};
    std::vector<Region> regions_;
    Raster raster_;
    mutable std::vector<uint32_t> pairs_;
};

// A mask for the levels: 255 where given, when it holds anything, has a channel that is not 0 and
// the levels have a value; empty when nothing is masked. name: where given came from.
Image mask_of(const Image &given, const std::string &name, const GreyLevels &levels);
// A level of the flooded image as a node of a tree has it, back on the image's scale.
int32_t level_of(const KipxWTSregion *record, bool bright);
