// support/region_model.cpp - components by filling, nesting by looking at every pair.
#include "support/region_model.h"

#include <algorithm>
#include <set>

namespace kipx::test {
namespace {

// The component of the pixels at or below `level` around `start`.
std::vector<uint32_t> fill(const ModelImage &image, int level, uint32_t start,
                           std::vector<bool> &seen) {
    std::vector<uint32_t> pixels{start};
    seen[start] = true;
    for (size_t i = 0; i < pixels.size(); ++i) {
        int y = static_cast<int>(pixels[i] / image.width),
            x = static_cast<int>(pixels[i] % image.width);
        for (int dy = -1; dy <= 1; ++dy)
            for (int dx = -1; dx <= 1; ++dx) {
                if (!image.eight && dy != 0 && dx != 0) continue;
                int yy = y + dy, xx = x + dx;
                if (yy < 0 || xx < 0 || yy >= static_cast<int>(image.height) ||
                    xx >= static_cast<int>(image.width))
                    continue;
                uint32_t next = static_cast<uint32_t>(yy) * image.width + static_cast<uint32_t>(xx);
                if (seen[next] || !image.inside(next) || image.level[next] > level) continue;
                seen[next] = true;
                pixels.push_back(next);
            }
    }
    std::sort(pixels.begin(), pixels.end());
    return pixels;
}

} // namespace

std::vector<ModelRegion> model_regions(const ModelImage &image, size_t smallest) {
    std::vector<ModelRegion> regions;
    ModelRegion root;
    std::set<int> levels;
    for (uint32_t p = 0; p < image.level.size(); ++p)
        if (image.inside(p)) {
            root.pixels.push_back(p);
            levels.insert(image.level[p]);
        }
    if (levels.empty()) return regions;
    root.level = *levels.rbegin();
    for (int level : levels) {
        std::vector<bool> seen(image.level.size());
        for (uint32_t p : root.pixels) {
            if (seen[p] || image.level[p] != level) continue;
            ModelRegion r{level, fill(image, level, p, seen), 0};
            if (r.pixels.size() >= smallest && r.pixels.size() < root.pixels.size())
                regions.push_back(std::move(r));
        }
    }
    regions.push_back(std::move(root));
    for (ModelRegion &r : regions)
        for (const ModelRegion &around : regions)
            if (around.pixels.size() > r.pixels.size() &&
                (r.parent_size == 0 || around.pixels.size() < r.parent_size) &&
                std::binary_search(around.pixels.begin(), around.pixels.end(), r.pixels.front()))
                r.parent_size = around.pixels.size();
    std::sort(regions.begin(), regions.end());
    return regions;
}

} // namespace kipx::test
