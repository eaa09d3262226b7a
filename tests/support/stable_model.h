// support/stable_model.h - the rules of stable regions told once more, by recursion.
//
// Gives    detection on a tree of plain nodes, to compare the library's walk with.
// Costs    recursion as deep as the tree.
#ifndef KIPX_TESTS_SUPPORT_STABLE_MODEL_H
#define KIPX_TESTS_SUPPORT_STABLE_MODEL_H

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <vector>

#include <kipx/mser.h>

namespace kipx::test {

struct StableNode {
    int level = 0, area = 0;
    StableNode *parent = nullptr;
    std::vector<StableNode *> children; // in list order
    bool kept = false;
    uint32_t name = 0;
};

inline void model_prune(StableNode *r, StableNode *from, float min_diversity) {
    for (StableNode *c : from->children) {
        float area = static_cast<float>(r->area);
        if (!(min_diversity > (area - static_cast<float>(c->area)) / area)) continue;
        if (c->kept)
            c->kept = false;
        else
            model_prune(r, c, min_diversity);
    }
}

inline bool model_detect(StableNode *r, const KipxMSERparms &p, std::vector<StableNode *> &list) {
    r->kept = false;
    bool inner = false;
    if (r->level >= p.delta)
        for (StableNode *c : r->children) inner |= model_detect(c, p, list);
    if (r->area < p.min_area) return false;
    bool too_big = r->area > p.max_area;
    if (too_big && !inner) return false;
    StableNode *around = r->parent;
    while (around && std::abs(around->level - r->level) < p.delta) around = around->parent;
    if (!around) return false;
    float variation = 0;
    if (std::abs(around->level - r->level) == p.delta)
        variation = std::fabs((static_cast<float>(around->area) - static_cast<float>(r->area)) /
                              static_cast<float>(around->area));
    if (!(variation <= p.max_variation)) return false;
    r->kept = !too_big;
    if (!too_big) list.push_back(r);
    model_prune(r, r, p.min_diversity);
    return r->kept;
}

inline std::vector<StableNode *> model_list(StableNode *root, const KipxMSERparms &p) {
    std::vector<StableNode *> all, kept;
    model_detect(root, p, all);
    std::copy_if(all.begin(), all.end(), std::back_inserter(kept),
                 [](StableNode *n) { return n->kept; });
    return kept;
}

} // namespace kipx::test

#endif
