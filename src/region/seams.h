// region/seams.h - joining the trees of tiles along their seams.
//
// Gives    Forest: the trees of the tiles of an image, and the step that joins two that touch.
// Promises when all pairs of tiles that touch have been joined, a node and what lies below it are
//          the pixels of one component of the whole image at the node's level, and every such
//          component that holds 16 pixels, one of them of the level, is there. The order of the
//          joins does not matter for that.
// Costs    a walk up both trees, until they meet, for each pixel along the seam that its neighbours
//          do not make superfluous.
// Owner    the trees are the caller's; joining changes their nodes' parents.
//
// The invariant. Along the path from a node to the root levels never fall. Equal ones stand for one
// component: the last of them is its chief, the others are parts of it. At every level, the nodes
// up to it that hang together are the pixels that hang together in what has been joined so far.
//
// An edge between two pixels belongs to the level of the higher one, and joins what the two belong
// to at that level and above. It is superfluous when the edge beside it along the seam is not
// higher: then a path over that one joins the two at the same level.
#pragma once

#include "region/tile_tree.h"

namespace kipx {

class Forest {
public:
    // Tiles from left to right, top to bottom. A node is known by its tile's number times 2^16 and
    // its own.
    using Node = uint32_t;
    static constexpr Node none = no_parent;

    explicit Forest(TileTree *tiles) : tiles_(tiles) {}
    TileNode &at(Node n) const { return tiles_[n >> 16].node[n & 0xffff]; }

    // Makes the parents of a tile's nodes those of the forest; before its first join.
    void enter(uint32_t tile);
    // Joins two tiles: the second one lies after the first, or below it, or, where neighbours are
    // eight, touches one of its lower corners.
    void join_after(uint32_t first, uint32_t second, bool eight);
    void join_below(uint32_t first, uint32_t second, bool eight);
    void join_corner(uint32_t first, uint32_t second, bool second_is_after);

    // The chief of a node's component.
    Node chief(Node n) const;
    // The chief of the smallest component around a chief's, or none.
    Node around(Node n) const {
        Node parent = at(n).parent;
        return parent == none ? none : chief(parent);
    }

private:
    Node node(uint32_t tile, uint16_t n) const { return n == no_node ? none : tile << 16 | n; }
    void join(Node a, Node b);
    void join_sides(uint32_t first, const uint16_t *a, uint32_t second, const uint16_t *b,
                    uint32_t n, bool eight);

    TileTree *tiles_;
};

} // namespace kipx
