#include "region/seams.h"

#include <algorithm>

namespace kipx {

void Forest::enter(uint32_t tile) {
    for (uint32_t i = 0; i < tiles_[tile].nodes; ++i) {
        TileNode &n = tiles_[tile].node[i];
        if (n.parent != none) n.parent |= tile << 16;
    }
}

// The path is halved on the way.
Forest::Node Forest::chief(Node n) const {
    for (;;) {
        TileNode &part = at(n);
        if (part.parent == none || at(part.parent).level != part.level) return n;
        Node further = at(part.parent).parent;
        if (further != none && at(further).level == part.level) part.parent = further;
        n = part.parent;
    }
}

// Merges the two paths to the root into one, ordered by level, from the higher of the two nodes on.
void Forest::join(Node a, Node b) {
    a = chief(a);
    b = chief(b);
    while (a != b) {
        if (at(a).level > at(b).level) std::swap(a, b);
        Node above = around(a);
        if (above != none && at(above).level <= at(b).level) {
            a = above;
            continue;
        }
        at(a).parent = b; // of one level, a becomes part of b
        if (above == none) return;
        a = above;
    }
}

void Forest::join_sides(uint32_t first, const uint16_t *a, uint32_t second, const uint16_t *b,
                        uint32_t n, bool eight) {
    auto pair_level = [&](uint32_t i) {
        if (i >= n || a[i] == no_node || b[i] == no_node) return int32_t{level_count};
        return int32_t{std::max(at(node(first, a[i])).level, at(node(second, b[i])).level)};
    };
    int32_t before = level_count, level = pair_level(0);
    for (uint32_t i = 0; i < n; ++i) {
        int32_t next = pair_level(i + 1);
        // Of equal ones the last.
        if (level < int32_t{level_count} && before >= level && next > level)
            join(node(first, a[i]), node(second, b[i]));
        before = level;
        level = next;
        if (!eight || i + 1 == n) continue;
        if (a[i] != no_node && b[i + 1] != no_node) join(node(first, a[i]), node(second, b[i + 1]));
        if (b[i] != no_node && a[i + 1] != no_node) join(node(first, a[i + 1]), node(second, b[i]));
    }
}

void Forest::join_after(uint32_t first, uint32_t second, bool eight) {
    const TileTree &a = tiles_[first], &b = tiles_[second];
    join_sides(first, a.right, second, b.left, a.place.height, eight);
}

void Forest::join_below(uint32_t first, uint32_t second, bool eight) {
    const TileTree &a = tiles_[first], &b = tiles_[second];
    join_sides(first, a.bottom, second, b.top, a.place.width, eight);
}

void Forest::join_corner(uint32_t first, uint32_t second, bool second_is_after) {
    const TileTree &a = tiles_[first], &b = tiles_[second];
    Node from = node(first, a.bottom[second_is_after ? a.place.width - 1 : 0]);
    Node to = node(second, b.top[second_is_after ? 0 : b.place.width - 1]);
    if (from != none && to != none) join(from, to);
}

} // namespace kipx
