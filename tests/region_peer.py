"""Compares whole component trees with scikit-image's max_tree.

Every pixel is blown up to a block of 4 x 4, so that a component of one pixel already has the 16 that
make a region: the flood then reports the full tree of the small image.
Usage: region_peer.py PATH-OF-LIBKIPX. Exit status 77 where NumPy or scikit-image is missing."""
import collections
import ctypes
import os
import sys

try:
    import numpy
    from skimage.morphology import max_tree
except ImportError:
    print("skipped: NumPy or scikit-image is not installed")
    sys.exit(77)

FAST = 0x600000
pointer = ctypes.c_void_p


class Arr(ctypes.Structure):
    _fields_ = [("volume", ctypes.c_uint32 * 4), ("reserved", ctypes.c_uint32 * 4),
                ("strides", ctypes.c_uint32 * 4), ("naxes", ctypes.c_uint16),
                ("reserved2", ctypes.c_uint16), ("type", ctypes.c_uint32),
                ("reserved3", ctypes.c_uint64), ("offset", ctypes.c_uint32), ("base", pointer)]


class Context(ctypes.Structure):
    _fields_ = [("builder", pointer), ("levelset", pointer), ("polarity", ctypes.c_uint16),
                ("connectivity", ctypes.c_uint16), ("shift", ctypes.c_uint32),
                ("seed_row", ctypes.c_uint32), ("seed_column", ctypes.c_uint32),
                ("output", pointer)]


class Node(ctypes.Structure):
    pass


class Region(ctypes.Structure):
    _fields_ = [("node", pointer), ("pixel", ctypes.c_uint32), ("level", ctypes.c_int32),
                ("area", ctypes.c_int32), ("kept", ctypes.c_uint32)]


Node._fields_ = [("next", ctypes.POINTER(Node)), ("child", ctypes.POINTER(Node)),
                 ("parent", ctypes.POINTER(Node)), ("data", ctypes.POINTER(Region))]


def load(path):
    kipx = ctypes.CDLL(path)
    kipx.KipxXEmmstack.restype = pointer
    kipx.KipxWTSTBopen.restype = pointer
    kipx.KipxWTSTBopen.argtypes = [pointer] * 4
    kipx.KipxFWTSRESopen.restype = pointer
    kipx.KipxFWTSRESopen.argtypes = [pointer] * 4
    kipx.KipxSTBclose.argtypes = [pointer, ctypes.c_int32]
    kipx.KipxWatershed.argtypes = [pointer, ctypes.c_uint64, pointer, pointer, pointer]
    return kipx


def edge(level, area, parent):
    return (level, area, *(parent if parent else (-1, 0)))


def peer_tree(image, connectivity):
    """Multiset of (level, area, level of the parent, area of the parent)."""
    parents, order = max_tree(image, connectivity=connectivity)
    levels, parents = image.ravel(), parents.ravel()
    areas = numpy.ones(levels.size, dtype=int)
    for pixel in reversed(order[1:]):
        areas[parents[pixel]] += areas[pixel]
    root = order[0]

    def named(pixel):
        while pixel != root and levels[parents[pixel]] == levels[pixel]:
            pixel = parents[pixel]
        return pixel

    found = collections.Counter()
    for pixel in order:
        if pixel != root and levels[parents[pixel]] == levels[pixel]:
            continue
        around = named(parents[pixel])
        parent = None if pixel == root else (int(levels[around]), int(areas[around]))
        found[edge(int(levels[pixel]), int(areas[pixel]), parent)] += 1
    return found


def own_tree(kipx, xe, image, connectivity, fast, seed):
    blocks = numpy.ascontiguousarray(numpy.kron(image, numpy.ones((4, 4), dtype=numpy.uint8)))
    height, width = blocks.shape
    arr = Arr(naxes=3, type=1, base=blocks.ctypes.data)
    arr.volume[:] = [1, height, width, 1]
    arr.strides[:] = [0, width, 1, 1]
    levelset = (ctypes.c_uint64 * 6)()
    open_builder = kipx.KipxFWTSRESopen if fast else kipx.KipxWTSTBopen
    context = Context(builder=open_builder(None, None, None, kipx.KipxXEmmstack(xe)),
                      levelset=ctypes.addressof(levelset), polarity=1,
                      connectivity=connectivity - 1, seed_row=seed[0] * 4,
                      seed_column=seed[1] * 4)
    code = kipx.KipxWatershed(xe, FAST if fast else 0, ctypes.byref(arr), None,
                              ctypes.byref(context))
    assert code == 0, code
    found = collections.Counter()
    root = ctypes.cast(context.output, ctypes.POINTER(ctypes.POINTER(Node)))[0]
    waiting = [(root, None)]
    while waiting:
        node, parent = waiting.pop()
        region = node.contents.data.contents
        assert region.area % 16 == 0
        level, area = 255 - region.level, region.area // 16
        found[edge(level, area, parent)] += 1
        child = node.contents.child
        while child:
            waiting.append((child, (level, area)))
            child = child.contents.next
    kipx.KipxSTBclose(context.builder, 0)
    return found


def images(random):
    for round_number in range(60):
        height, width = random.integers(3, 24, size=2)  # below 3 max_tree itself gives up
        levels = int(random.choice([1, 2, 5, 20, 256]))
        image = random.integers(0, levels, size=(height, width)).astype(numpy.uint8)
        if round_number % 3 == 0:  # something smoother
            image = (numpy.add.outer(numpy.arange(height) ** 2, numpy.arange(width) * 7)
                     + image // 8).astype(numpy.uint8)
        yield image, (int(random.integers(height)), int(random.integers(width)))


def main():
    kipx = load(os.path.abspath(sys.argv[1]))
    xe = (ctypes.c_uint64 * 13)()
    kipx.KipxXEinit(xe, None)
    nodes = 0
    for image, seed in images(numpy.random.default_rng(5)):
        for connectivity in (1, 2):
            expected = peer_tree(image, connectivity)
            for fast in (False, True):
                found = own_tree(kipx, xe, image, connectivity, fast, seed)
                assert found == expected, (image.shape, connectivity, fast, found - expected,
                                           expected - found)
                nodes += sum(found.values())
    kipx.KipxXEfini(xe)
    print(f"{nodes} nodes alike")


main()
