// region/tile_tree.h - the tree of one tile of an image.
//
// Gives    the components of a tile, its pixels in an order in which they are runs, and the component
//          of every pixel along its sides: all that it takes to join the tile with others.
// Promises a component of the tile's pixels at or below a level is a node when one of its pixels has
//          that level and it holds 16 pixels or touches a seam. Nodes come in post-order. Numbers
//          are the tile's own: a tree may be made anywhere, kept, and joined later.
// Costs    2 bytes a pixel and 24 a node, from the scratch of the flood; while it is being made, what
//          a TileBench holds.
// Owner    the scratch owns the tree.
#pragma once

#include "region/cells.h"
#include "region/fast_scratch.h"

namespace kipx {

// Pixels of a tile are numbered row * tile_stride + column, in 16 bits.
inline constexpr uint32_t tile_stride = 256;
struct TileSize {
    uint32_t height, width;
};
inline constexpr TileSize largest_tile{256, tile_stride - 1};
inline constexpr uint32_t tile_slack = 32; // pixels that may be read behind a tile's order
inline constexpr uint32_t tile_pixels = largest_tile.height * largest_tile.width;

// What part of an image a tile is. A seam is a side where the image goes on.
struct TilePlace : Extent {
    bool above, below, before, after; // whether there is a seam
};

struct TileNode {
    uint32_t parent;         // number of a node, or no_parent
    uint32_t own;            // pixels that are in none of its children
    uint32_t child, sibling; // for those who join trees
    uint16_t start, end;     // its run in the tile's order
    uint16_t pixel;          // one of its own or of smaller ones
    uint8_t level;
    bool kept; // for those who join trees
};
inline constexpr uint32_t no_parent = ~UINT32_C(0);
inline constexpr uint16_t no_node = 0xffff;

struct TileTree {
    TilePlace place;
    uint32_t pixels;  // in the order: those that are not masked out, nor walls
    uint32_t highest; // level of these
    uint32_t nodes;
    TileNode *node;
    uint16_t *order;
    // Along each side with a seam, the smallest node of each pixel, or no_node.
    uint16_t top[largest_tile.width], bottom[largest_tile.width];
    uint16_t left[largest_tile.height], right[largest_tile.height];
};

// What lies on the bench while a tree is made; one serves all tiles of an image.
class TileBench {
public:
    // masked: the image has a mask. False when there is no memory.
    bool take(FastScratch &scratch, bool masked);
    // The tree of one tile; false when there is no memory.
    bool make(const FloodImage &image, const TilePlace &place, Set set, FastScratch &scratch,
              TileTree &tree);

private:
    struct Closed;
    struct Sink;
    template<class Cell>
    bool flood(const FloodImage &image, Set set, FastScratch &scratch, TileTree &tree, Sink &sink);
    void link(const Sink &sink, TileTree &tree);
    void line_up(TileTree &tree) const;

    void *cells_ = nullptr;
    uint8_t *line_ = nullptr;
    uint16_t *queue_ = nullptr; // and, once the flood is over, the nodes without parent
    Closed *closed_ = nullptr;
};

} // namespace kipx
