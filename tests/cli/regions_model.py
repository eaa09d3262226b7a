"""Stable regions by brute force: every component of every level set is a set of pixels.

The rules are those of the documentation, carried out in the simplest way: a tree of pixel sets, whose
nodes are the whole picture and, for each level, the components that hold 16 pixels or more and one of
that level; and detection as a recursion over that tree.
"""

import struct


def f32(value):
    return struct.unpack("f", struct.pack("f", value))[0]


class Node:
    def __init__(self, level, pixels):
        self.level, self.pixels, self.area = level, pixels, len(pixels)
        self.parent, self.children, self.kept, self.variation = None, [], False, None


def components(pixels, neighbours):
    left, out = set(pixels), []
    while left:
        part, open_ = set(), [left.pop()]
        while open_:
            x, y = open_.pop()
            part.add((x, y))
            for dx, dy in neighbours:
                if (x + dx, y + dy) in left:
                    left.remove((x + dx, y + dy))
                    open_.append((x + dx, y + dy))
        out.append(frozenset(part))
    return out


def tree(values, connectivity):
    """values: {(x, y): level}, dark ones first. Returns all nodes, the root first."""
    steps = [(1, 0), (-1, 0), (0, 1), (0, -1)]
    if connectivity == 8:
        steps += [(1, 1), (1, -1), (-1, 1), (-1, -1)]
    nodes = [Node(max(values.values()), frozenset(values))]
    for level in sorted(set(values.values())):
        below = [at for at, value in values.items() if value <= level]
        for part in components(below, steps):
            if len(part) >= 16 and len(part) < len(values) and any(values[at] == level for at in part):
                nodes.append(Node(level, part))
    for node in nodes[1:]:
        node.parent = min((other for other in nodes if node.pixels < other.pixels), key=lambda n: n.area)
        node.parent.children.append(node)
    return nodes


def detect(node, delta, least, greatest, variation, diversity, out):
    """Marks and appends stable regions; returns whether this one is kept."""
    any_child = False
    if node.level >= delta:
        for child in node.children:
            any_child |= detect(child, delta, least, greatest, variation, diversity, out)
    if node.area < least:
        return False
    too_big = node.area > greatest
    if too_big and not any_child:
        return False
    outer = node.parent
    while outer and abs(outer.level - node.level) < delta:
        outer = outer.parent
    if not outer:
        return False
    node.variation = 0.0
    if abs(outer.level - node.level) == delta:
        node.variation = f32(abs(f32((outer.area - node.area) / outer.area)))
    if not node.variation <= f32(variation):
        return False
    if not too_big:
        node.kept = True
        out.append(node)
    prune(node, node, diversity)
    return node.kept


def prune(outer, node, diversity):
    for child in node.children:
        if f32(diversity) > f32((outer.area - child.area) / outer.area):
            if child.kept:
                child.kept = False
            else:
                prune(outer, child, diversity)


def stable_regions(values, polarity, connectivity, **limits):
    """Regions of one polarity as Nodes whose levels are on the picture's scale."""
    bright = polarity == "bright"
    flooded = {at: 255 - value for at, value in values.items()} if bright else values
    found = []
    detect(tree(flooded, connectivity)[0], out=found, **limits)
    kept = [node for node in found if node.kept]
    for node in kept:
        node.level = 255 - node.level if bright else node.level
    return kept


def moments(pixels):
    """Means and central second moments: x, y, xx, xy, yy."""
    n = len(pixels)
    x, y = (sum(at[i] for at in pixels) / n for i in (0, 1))
    return (x, y, sum((a - x) ** 2 for a, _ in pixels) / n, sum((a - x) * (b - y) for a, b in pixels) / n,
            sum((b - y) ** 2 for _, b in pixels) / n)


def box(pixels):
    xs, ys = [at[0] for at in pixels], [at[1] for at in pixels]
    return min(xs), min(ys), max(xs) - min(xs) + 1, max(ys) - min(ys) + 1
