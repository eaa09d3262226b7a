// support/region_model.h - the tree of nested regions by brute force.
//
// Gives    the regions of a small image straight from their definition, level by level with a fill
//          for every component, to compare floods with.
// Costs    levels * pixels, and regions squared for the nesting; made for images of some hundred
//          pixels.
#ifndef KIPX_TESTS_SUPPORT_REGION_MODEL_H
#define KIPX_TESTS_SUPPORT_REGION_MODEL_H

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <vector>

namespace kipx::test {

struct ModelImage {
    uint32_t height = 0, width = 0;
    std::vector<int> level;    // row-major
    std::vector<uint8_t> mask; // row-major, or empty: every pixel counts
    bool eight = false;
    bool inside(uint32_t pixel) const { return mask.empty() || mask[pixel] != 0; }
};

// A region of a tree. The pixels are sorted linear indices. Regions around one pixel all differ in
// size, so that the parent's size names the parent; 0 for the root.
struct ModelRegion {
    int level = 0;
    std::vector<uint32_t> pixels;
    size_t parent_size = 0;
    auto operator<=>(const ModelRegion &) const = default;
};

inline std::ostream &operator<<(std::ostream &out, const ModelRegion &r) {
    out << "level " << r.level << ", " << r.pixels.size() << " pixels";
    if (!r.pixels.empty()) out << " from " << r.pixels.front();
    return out << ", parent of " << r.parent_size;
}

// The root, and for every level each connected component of the pixels at or below it that has at
// least `smallest` pixels and one of that level. Sorted. Empty when no pixel is inside the mask.
std::vector<ModelRegion> model_regions(const ModelImage &image, size_t smallest = 16);

} // namespace kipx::test

#endif
