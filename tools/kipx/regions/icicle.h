// icicle.h - a flood's tree as plain nodes, and drawn: levels downwards, areas as widths.
//
// Gives    tree_of: the nodes of a tree, a region before those nested in it and the larger of two
//          siblings first; icicle_svg: the drawing; tree_text: what a person reads in a terminal;
//          tree_json: all nodes for programs.
// Promises levels are on the image's scale in all of them.
#pragma once

#include "regions/finder.h"

#include <cstdint>
#include <string>
#include <vector>

struct TreeNode {
    int32_t level, area;
    int32_t parent;    // its place in the list, or -1
    uint32_t children; // all of them, shown or not
    int32_t id;        // of a stable region, as in tables; else 0
};

struct RegionTree {
    bool bright = false;
    std::vector<TreeNode> nodes;
};

// The finder has described its regions.
RegionTree tree_of(const Finder &finder, bool bright);
// Nodes of fewer pixels than smallest are left out of texts.
std::string tree_text(const RegionTree &tree, uint32_t depth, int32_t smallest);
std::string tree_json(const std::vector<RegionTree> &trees, const std::string &source,
                      int32_t smallest);
// One panel a tree, side by side. What is narrower than half a unit of the drawing is left out. A bar
// tells level and area, and a stable region's number, where a pointer rests on it.
std::string icicle_svg(const std::vector<RegionTree> &trees, const std::string &title);
