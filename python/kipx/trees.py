"""Component trees: every connected component of every level set of an image, and how they nest.

Gives    `component_tree`, whose Tree is plain arrays, parents before children: parent, level, area, and the
         pixels of every node as a run of one array.
Promises arrays are copies: a Tree depends on nothing of the library. Regions have 16 pixels or more; a
         pixel in none smaller belongs to the smallest node around it.
Source   the C headers kipx/watershed.h and kipx/fast_regions.h.
"""
from __future__ import annotations

import threading
from collections.abc import Callable
from typing import Any, Optional

import numpy as np
from numpy.typing import NDArray

from kipx._arrays import Image, Roi, choice, crop, mask_for, region, source, told
from kipx._call import NULL, call
from kipx._library import environment, ffi, lib

__all__ = ["Tree", "component_tree"]

POLARITIES = {"dark": 0, "bright": 1, "both": 2}


def record_dtype(name: str, size: int = 0) -> np.dtype[Any]:
    """A C record of numbers, pointers and records of these as a NumPy dtype, offsets included. size: from
    one to the next, where more follows each."""
    names, formats, offsets = [], [], []
    for field, entry in ffi.typeof(name).fields:
        kind = entry.type
        if kind.kind == "struct":
            form: Any = record_dtype(kind.cname)
        elif kind.kind == "pointer":
            form = np.dtype(np.uintp)
        else:
            is_real = kind.cname in ("double", "float")
            form = np.dtype(f"{'f' if is_real else 'u' if kind.cname.startswith('uint') else 'i'}"
                            f"{ffi.sizeof(kind)}")
        names.append(field)
        formats.append(form)
        offsets.append(entry.offset)
    return np.dtype({"names": names, "formats": formats, "offsets": offsets, "itemsize": size or ffi.sizeof(name)})


_LINK = ffi.offsetof("KipxFWTSRESnode", "node")


class Tree:
    """The nested regions of an image. Node 0 is the root; every parent comes before its children.

    Attributes
    ----------
    parent : ndarray of intp, shape (nodes,)
        The smallest node around each; the root's is the root.
    level : ndarray of int32, shape (nodes,)
        Of a dark tree the greatest value inside, of a bright one the least.
    area : ndarray of int32, shape (nodes,)
        Pixels, those of the nodes inside included.
    start : ndarray of intp, shape (nodes,)
        Node i holds the pixels ``order[start[i]:start[i] + area[i]]``.
    order : ndarray of intp
        Flat indices into the image, the pixels of every node side by side.
    shape : (int, int)
        Of the image.
    """

    __slots__ = ("parent", "level", "area", "start", "order", "shape")

    def __init__(self, parent: NDArray[np.intp], level: NDArray[np.int32], area: NDArray[np.int32],
                 start: NDArray[np.intp], order: NDArray[np.intp], shape: tuple[int, int]) -> None:
        self.parent, self.level, self.area = parent, level, area
        self.start, self.order, self.shape = start, order, shape

    def __len__(self) -> int:
        return len(self.parent)

    def __repr__(self) -> str:
        return f"<kipx.Tree of {len(self)} nodes over {self.shape[0]} x {self.shape[1]} pixels>"

    def pixels(self, node: int) -> NDArray[np.intp]:
        """Rows and columns of a node's pixels, shape (area, 2)."""
        first = self.start[node]
        return np.stack(np.divmod(self.order[first:first + self.area[node]], self.shape[1]), axis=1)

    def nodes(self) -> NDArray[np.intp]:
        """The smallest node at every pixel, -1 outside of the mask; of the image's shape.

        Runs of nested nodes lie inside each other, so a sweep over their ends keeps the open ones in a
        stack: at one place nodes end before others begin, and of these the larger one begins first.
        """
        owner = np.full(len(self.order), -1, np.intp)
        ends = self.start + self.area
        edges = np.concatenate([self.start, ends])
        kinds = np.repeat([1, 0], len(self))
        inner: list[int] = []
        cuts, owners = [], []
        for event in np.lexsort((-np.tile(self.area, 2), kinds, edges)).tolist():
            if kinds[event]:
                inner.append(event)
            else:
                inner.pop()
            cuts.append(int(edges[event]))
            owners.append(inner[-1] if inner else -1)
        for first, last, node in zip(cuts, [*cuts[1:], len(owner)], owners):
            if first < last:
                owner[first:last] = node
        found = np.full(self.shape[0] * self.shape[1], -1, np.intp)
        found[self.order] = owner
        return found.reshape(self.shape)

    def nearest(self, keep: Any) -> NDArray[np.intp]:
        """For every node itself or the smallest one around it for which `keep` is true; the root counts as
        kept."""
        kept = np.asarray(keep, bool).copy()
        if kept.shape != self.parent.shape:
            raise ValueError(f"kipx.Tree.nearest: keep is {told(kept)}; expected a truth for each of {len(self)} "
                             "nodes")
        kept[0] = True
        found: NDArray[np.intp] = np.where(kept, np.arange(len(self)), self.parent)
        while True:
            further = found[found]
            if np.array_equal(further, found):
                return found
            found = further

    def reconstruct(self, values: Any = None, keep: Any = None, outside: Any = 0) -> Image:
        """An image of a value for each node: every pixel has that of the smallest node (kept) around it.

        Parameters
        ----------
        values : array, shape (nodes,), optional
            By default the levels.
        keep : array of bool, shape (nodes,), optional
            The nodes that count; by default all of them.
        outside : number, default 0
            Where no node is, outside of the mask.

        Returns
        -------
        ndarray
            Of the image's shape and of `values`' dtype; of the levels uint8.
        """
        taken = self.level.astype(np.uint8) if values is None else np.asarray(values)
        if keep is not None:
            taken = taken[self.nearest(keep)]
        nodes = self.nodes()
        return np.where(nodes >= 0, taken[nodes], np.asarray(outside, taken.dtype))


class Flood:
    """An image's flood kept open: an environment of its own, and what lives on its stack, which is all
    released with it. Reads are serialised with `close`, which may be called any number of times; what is
    left the collector closes, by C alone: no line of Python runs then, in which an interrupt would get lost.
    kept: what the context points at."""

    def __init__(self, kind: str, kept: Any = None) -> None:
        self._lock, self._open, self.kept = threading.RLock(), True, kept
        self.context, self.xe = ffi.new(kind), ffi.gc(ffi.new("KipxXE *"), lib.KipxXEfini)

    def read(self, reader: Callable[[], Any]) -> Any:
        with self._lock:
            if not self._open:
                raise ValueError("kipx: the result has been closed")
            return reader()

    def close(self) -> None:
        with self._lock:
            self._open = False
            ffi.release(self.xe)


def addresses(store: Any) -> NDArray[np.uintp]:
    """Where the nodes of a store lie, children before their parent."""
    found: list[int] = []
    note, stopped = found.append, []
    # The records lie in few blocks; the walk is asked where, and NumPy reads them block by block. An
    # interrupt on the way ends the walk, which has nothing to give back, and goes on behind it.
    visitor = ffi.callback("int32_t(uintptr_t, uintptr_t)", lambda node, _: note(node) or 1,
                           onerror=lambda _, problem, __: stopped.append(problem))
    lib.kipx_fwtsr_walk(store, ffi.cast("kipx_fwtsr_visitor", visitor), NULL)
    if stopped:
        raise stopped[0]
    return np.array(found, np.uintp)


def read_nodes(store: Any) -> tuple[NDArray[np.uintp], NDArray[Any]]:
    """Addresses and records of all nodes, in the store's order."""
    places, size = addresses(store), store.node_size
    cuts = np.flatnonzero(np.diff(places) != size) + 1
    dtype = record_dtype("KipxFWTSRESnode", size)
    parts = [np.frombuffer(ffi.buffer(ffi.cast("char *", int(run[0])), len(run) * size), dtype)
             for run in np.split(places, cuts)]
    return places, np.concatenate(parts)


def read_order(store: Any, count: int, width: int, roi: tuple[int, int], full_width: int) -> NDArray[np.intp]:
    """The store's pixels as flat indices into the whole image."""
    words = np.frombuffer(ffi.buffer(store.pixels, 4 * count), np.uint32)
    rows, columns = np.divmod(words, np.uint32(width + 1))
    return (rows + np.intp(roi[0])) * full_width + (columns + np.intp(roi[1]))


def read_tree(builder: Any, bright: bool, kept: Any, width: int, roi: tuple[int, int],
              shape: tuple[int, int]) -> Tree:
    """A store's tree. kept: addresses of region records whose level is on the image's scale already."""
    store = lib.KipxFWTSRESfrombuilder(builder)
    places, nodes = read_nodes(store)
    index = np.arange(len(nodes))[::-1]  # of the k-th of the store: its parents come first
    links = places + np.uintp(_LINK)
    up = np.searchsorted(links, nodes["node"]["parent"], sorter=np.argsort(links))
    parents = np.argsort(links)[np.minimum(up, len(nodes) - 1)]
    parent = np.where(nodes["node"]["parent"] == 0, index, index[parents])
    level = nodes["region"]["level"]
    if bright:
        done = np.isin(nodes["node"]["data"], kept)
        level = np.where(done, level, 255 - level)
    count = int(nodes["region"]["area"][-1])
    return Tree(parent[::-1].astype(np.intp), level[::-1].astype(np.int32), nodes["region"]["area"][::-1].copy(),
                nodes["start"][::-1].astype(np.intp), read_order(store, count, width, roi, shape[1]), shape)


def grey(where: str, image: Any, mask: Any, roi: Roi) -> tuple[Image, Any, tuple[int, int], list[Any]]:
    """A one-channel uint8 image, cut to its region: (array, descriptors, where it begins, operands)."""
    whole_image = np.asarray(image)
    if whole_image.dtype != np.uint8 or whole_image.ndim != 2:
        kind = ValueError if whole_image.dtype == np.uint8 else TypeError
        raise kind(f"{where}: image is {told(whole_image)}; expected uint8 of rows and columns")
    origin = (0, 0) if roi is None else region(where, roi, *whole_image.shape)[:2]
    array, record = source(where, "image", crop(where, whole_image, roi))
    records, operands = [record], [("image", array)]
    if mask is not None:
        stencil = np.asarray(mask)
        if stencil.shape != whole_image.shape:
            raise ValueError(f"{where}: mask is {told(stencil)}; expected shape {whole_image.shape}")
        cut, stencil_record = mask_for(where, crop(where, stencil, roi), array, None)
        records.append(stencil_record)
        operands.append(("mask", cut))
    return array, records, origin, operands


def connected(where: str, connectivity: Any) -> int:
    if connectivity not in (1, 2):
        raise ValueError(f"{where}: connectivity is {told(connectivity)}; expected 1 (4 neighbours) or 2 (8)")
    return int(connectivity) - 1


def component_tree(image: Any, *, polarity: str = "bright", connectivity: int = 1, mask: Any = None,
                   roi: Roi = None) -> Tree:
    """The tree of an image's nested regions: with "bright" its max-tree, with "dark" its min-tree.

    Parameters
    ----------
    image : ndarray of uint8, shape (rows, columns)
    polarity : {"bright", "dark"}
        Whether regions are brighter or darker than what is around them.
    connectivity : {1, 2}
        4 or 8 neighbours, as in scikit-image.
    mask : ndarray of uint8 or bool, optional
        Pixels that are 0 are not part of the image.
    roi : (slice, slice), optional
        Rows and columns to look at; pixels are those of the whole image.

    Returns
    -------
    Tree
        Its nodes are the root and every component of 16 pixels or more at each level.

    Raises
    ------
    ValueError, TypeError
        For other dtypes and shapes, a mask without a pixel.
    MemoryError
        When there is not enough: 9 bytes a pixel and 64 a region.

    Examples
    --------
    >>> image = np.zeros((12, 12), np.uint8)
    >>> image[1:7, 1:7] = 100
    >>> image[2:6, 2:6] = 200
    >>> tree = kipx.component_tree(image)
    >>> tree.parent, tree.level, tree.area
    (array([0, 0, 1]), array([  0, 100, 200], dtype=int32), array([144,  36,  16], dtype=int32))

    Area opening: regions of fewer than 20 pixels take the level of what is around them.

    >>> opened = tree.reconstruct(keep=tree.area >= 20)
    >>> int(opened.max()), int((opened == 100).sum())
    (100, 36)

    Attribute filtering: bright regions that are no higher than twice their parent stay.

    >>> low = tree.level <= 2 * tree.level[tree.parent]
    >>> int(tree.reconstruct(keep=low).max())
    200

    Reconstruction of any value of a node, its depth for example.

    >>> depth = np.zeros(len(tree), int)
    >>> for node in range(1, len(tree)):
    ...     depth[node] = depth[tree.parent[node]] + 1
    >>> tree.reconstruct(depth)[:8:3, 3]
    array([0, 2, 1])
    """
    where = "kipx.component_tree"
    bright = choice(where, "polarity", polarity, {"bright": 1, "dark": 0})
    array, records, origin, operands = grey(where, image, mask, roi)
    context = ffi.new("KipxWatershedContext *")
    levelset = ffi.new("KipxWTSLSC *")
    xe, mark = environment(), ffi.new("kipx_mmstate *")
    lib.KipxXEgetmmsp(xe, mark)
    try:
        store = lib.KipxFWTSRESopen(NULL, NULL, NULL, lib.KipxXEmmstack(xe))
        if store == NULL:
            raise MemoryError(f"{where}: no memory for the tree")
        context.builder, context.levelset = ffi.cast("KipxSTB *", store), levelset
        context.polarity, context.connectivity = bright, connected(where, connectivity)
        function, spare = (lib.KipxWatershed, (NULL,)) if mask is None else (lib.KipxWatershedEx, (NULL, NULL))
        call(where, function, *records, *spare, context, flags=lib.KIPX_FLAG_FAST, operands=operands)
        return read_tree(context.builder, bool(bright), (), array.shape[1], origin,
                         (np.shape(image)[0], np.shape(image)[1]))
    finally:  # whatever has been opened since, also where an interrupt came before it had a name here
        lib.KipxXEsetmmsp(xe, mark)
