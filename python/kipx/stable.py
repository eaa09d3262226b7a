"""Maximally stable extremal regions: spots that are darker or brighter than what is around them.

Gives    `mser`, whose result tells a row a region under regionprops' names, and on demand pixels, labels,
         outlines, trees, a table for pandas, and drawings on Matplotlib axes.
Owner    the result keeps the library's trees until it is closed, or collected; what it has given are
         arrays of their own and stay.
Source   the C header kipx/mser.h.
"""
from __future__ import annotations

import math
from collections.abc import Iterator
from typing import Any, Optional

import numpy as np
from numpy.typing import NDArray

from kipx._arrays import Image, Roi, choice, whole
from kipx._call import NULL, call
from kipx._library import ffi, lib
from kipx.trees import POLARITIES, Flood, Tree, connected, grey, read_order, read_tree, record_dtype

__all__ = ["StableRegions", "mser"]

#: Columns of `StableRegions.regions`; those that scikit-image's regionprops has bear its names.
COLUMNS = np.dtype([("label", np.int32), ("polarity", "U6"), ("level", np.int32), ("area", np.int32),
                    ("centroid-0", np.float64), ("centroid-1", np.float64), ("orientation", np.float64),
                    ("axis_major_length", np.float64), ("axis_minor_length", np.float64),
                    ("eccentricity", np.float64), ("equivalent_diameter_area", np.float64)])
_REGION, _MOMENTS = record_dtype("KipxWTSregion"), record_dtype("KipxWTSMF")
_STEPS = ((0, 1), (1, 0), (0, -1), (-1, 0))  # right, down, left, up, along the sides of a pixel


class StableRegions:
    """What `mser` found. A sequence of rows, dark regions before bright ones.

    Attributes
    ----------
    regions : structured ndarray
        A row a region: `label` (from 1), `polarity`, `level` (the last value inside), `area`, and as
        regionprops defines them `centroid-0`, `centroid-1`, `orientation`, `axis_major_length`,
        `axis_minor_length`, `eccentricity`, `equivalent_diameter_area`.
    shape : (int, int)
        Of the image.
    """

    def __init__(self, flood: Flood, width: int, origin: tuple[int, int], shape: tuple[int, int]) -> None:
        self._flood, self._width, self._origin = flood, width, origin
        self.shape = shape
        context = flood.context
        self._dark, count = int(context.dark_count), int(context.list.count)
        size, first = context.levelset.record_size, ffi.offsetof("KipxFWTSRESnode", "region")
        entries = [context.list.entries[k] for k in range(count)]
        self._places = np.array([int(ffi.cast("uintptr_t", entry)) for entry in entries], np.uintp)
        at = flood.kept.state_offset
        form = np.dtype({"names": ["start", "region", "moments"], "formats": [np.uint32, _REGION, _MOMENTS],
                         "offsets": [0, first, first + at], "itemsize": first + size})
        raw = b"".join(ffi.buffer(ffi.cast("char *", entry) - first, first + size) for entry in entries)
        found = np.frombuffer(raw, form)
        self._start, self._area = found["start"].astype(np.intp), found["region"]["area"].astype(np.intp)
        self._orders: dict[bool, NDArray[np.intp]] = {}
        self.regions = _rows(found, self._dark, origin)

    def __len__(self) -> int:
        return len(self.regions)

    def __getitem__(self, key: Any) -> Any:
        return self.regions[key]

    def __iter__(self) -> Iterator[Any]:
        return iter(self.regions)

    def __repr__(self) -> str:
        return f"<kipx.StableRegions: {self._dark} dark, {len(self) - self._dark} bright>"

    def close(self) -> None:
        """Give the library's memory back now; what has been read stays. Closing again does nothing."""
        self._flood.close()

    def __enter__(self) -> StableRegions:
        return self

    def __exit__(self, *_: Any) -> None:
        self.close()

    def _builder(self, bright: bool) -> Any:
        context = self._flood.context
        return context.bright_builder if bright else context.dark_builder

    def _order(self, bright: bool) -> NDArray[np.intp]:
        """All pixels of a store as flat indices."""
        if bright not in self._orders:
            def read() -> NDArray[np.intp]:
                store = lib.KipxFWTSRESfrombuilder(self._builder(bright))
                root = ffi.cast("KipxWTSregion *", store.builder.tree.root.data)
                return read_order(store, root.area, self._width, self._origin, self.shape[1])
            self._orders[bright] = self._flood.read(read)
        return self._orders[bright]

    def indices(self, i: int) -> NDArray[np.intp]:
        """Flat indices of the pixels of region i, as numpy.ravel_multi_index gives them."""
        i = range(len(self))[i]
        return self._order(i >= self._dark)[self._start[i]:self._start[i] + self._area[i]]

    def pixels(self, i: int) -> NDArray[np.intp]:
        """Rows and columns of the pixels of region i, shape (area, 2)."""
        return np.stack(np.divmod(self.indices(i), self.shape[1]), axis=1)

    def labels(self) -> NDArray[np.int32]:
        """The label of the smallest region at every pixel, 0 where there is none; of the image's shape."""
        found = np.zeros(self.shape[0] * self.shape[1], np.int32)
        for i in np.argsort(-self._area, kind="stable").tolist():
            found[self.indices(i)] = i + 1
        return found.reshape(self.shape)

    def boxes(self) -> NDArray[np.intp]:
        """Bounding boxes as regionprops has them: first row and column, and those behind the last."""
        found = np.empty((len(self), 4), np.intp)
        for i in range(len(self)):
            places = self.pixels(i)
            found[i, :2], found[i, 2:] = places.min(0), places.max(0) + 1
        return found

    def polygons(self, i: Optional[int] = None) -> Any:
        """Outlines of region i, or a list of those of every region: closed rings of (row, column).

        Corners of pixels: pixel (0, 0) goes from -0.5 to 0.5. The outline of a part comes before those of its
        holes, which turn the other way round; where pixels touch in a corner alone, rings part.
        """
        if i is None:
            return [self.polygons(k) for k in range(len(self))]
        return rings(self.pixels(i))

    @property
    def trees(self) -> dict[str, Tree]:
        """The component trees that the regions are nodes of, by polarity."""
        def read() -> dict[str, Tree]:
            return {name: read_tree(self._builder(bright), bright, self._places, self._width, self._origin,
                                    self.shape)
                    for name, bright in (("dark", False), ("bright", True)) if self._builder(bright) != NULL}
        found: dict[str, Tree] = self._flood.read(read)
        return found

    @property
    def tree(self) -> Tree:
        """The component tree, where one polarity was asked for."""
        found = self.trees
        if len(found) > 1:
            raise ValueError("kipx.StableRegions.tree: there is one for dark and one for bright regions; expected "
                             "to be asked for `trees`")
        return next(iter(found.values()))

    def to_pandas(self) -> Any:
        """The rows as a pandas DataFrame, with the columns bbox-0 to bbox-3 of regionprops besides."""
        import pandas  # type: ignore[import]
        frame = pandas.DataFrame({name: self.regions[name] for name in self.regions.dtype.names or ()})
        for k, column in enumerate(self.boxes().T):
            frame[f"bbox-{k}"] = column
        return frame.set_index("label")

    def plot(self, axes: Any = None, image: Any = None, colours: tuple[str, str] = ("tab:blue", "tab:orange"),
             **options: Any) -> Any:
        """Draw the outlines, dark regions in the first colour and bright ones in the second.

        Parameters
        ----------
        axes : matplotlib Axes, optional
            By default the current ones.
        image : ndarray, optional
            Drawn below them.
        colours : (colour, colour)
        **options
            For matplotlib's LineCollection, as ``linewidths``.

        Returns
        -------
        matplotlib Axes
        """
        from matplotlib import collections, pyplot  # type: ignore[import]
        axes = pyplot.gca() if axes is None else axes
        if image is not None:
            axes.imshow(image, cmap="gray")
        lines, shades = [], []
        for i in range(len(self)):
            for ring in self.polygons(i):
                lines.append(ring[:, ::-1])
                shades.append(colours[i >= self._dark])
        axes.add_collection(collections.LineCollection(lines, colors=shades, **options))
        axes.set(xlim=(-0.5, self.shape[1] - 0.5), ylim=(self.shape[0] - 0.5, -0.5), aspect="equal")
        return axes


def _rows(found: NDArray[Any], dark: int, origin: tuple[int, int]) -> NDArray[Any]:
    """Rows of COLUMNS from the moments of each region."""
    rows = np.zeros(len(found), COLUMNS)
    m = found["moments"]
    n = np.maximum(m["count"], 1).astype(np.float64)
    row, column = m["row"] / n, m["column"] / n
    rr, cc = m["row_row"] / n - row * row, m["column_column"] / n - column * column
    rc = m["row_column"] / n - row * column
    # regionprops' inertia tensor is ((cc, -rc), (-rc, rr)); its eigenvalues are the squared quarter axes.
    half, root = (rr + cc) / 2, np.hypot((rr - cc) / 2, rc)
    large, small = np.maximum(half + root, 0), np.maximum(half - root, 0)
    rows["label"], rows["level"] = np.arange(1, len(found) + 1), found["region"]["level"]
    rows["polarity"] = np.where(np.arange(len(found)) < dark, "dark", "bright")
    rows["area"] = found["region"]["area"]
    rows["centroid-0"], rows["centroid-1"] = row + origin[0], column + origin[1]
    rows["orientation"] = np.where((rr == cc) & (rc == 0), np.pi / 4, np.arctan2(2 * rc, rr - cc) / 2)
    rows["axis_major_length"], rows["axis_minor_length"] = 4 * np.sqrt(large), 4 * np.sqrt(small)
    rows["eccentricity"] = np.sqrt(np.where(large > 0, 1 - small / np.where(large > 0, large, 1), 0))
    rows["equivalent_diameter_area"] = np.sqrt(4 * found["region"]["area"] / math.pi)
    return rows


def rings(pixels: NDArray[np.intp]) -> list[NDArray[np.float64]]:
    """Closed rings around pixels, clockwise on a screen around parts and the other way round holes."""
    top, left = pixels.min(0)
    mask = np.zeros(pixels.max(0) - (top, left) + 3, bool)
    mask[pixels[:, 0] - top + 1, pixels[:, 1] - left + 1] = True
    # A side of a pixel whose neighbour is outside goes with the inside to its right.
    starts: dict[tuple[int, int], list[int]] = {}
    for way, (corner, neighbour) in enumerate((((0, 0), (-1, 0)), ((0, 1), (0, 1)), ((1, 1), (1, 0)),
                                               ((1, 0), (0, -1)))):
        sides = mask & ~np.roll(mask, (-neighbour[0], -neighbour[1]), (0, 1))
        for row, column in np.argwhere(sides).tolist():
            starts.setdefault((row + corner[0], column + corner[1]), []).append(way)
    found = []
    for first in sorted(starts):
        while starts[first]:
            at, way, ring = first, starts[first].pop(), [first]
            while True:
                at = at[0] + _STEPS[way][0], at[1] + _STEPS[way][1]
                if at == first and not any(k == (way + 1) % 4 for k in starts[at]):
                    break
                # The right turn first: pixels that touch in a corner part there.
                turn = next(k for k in ((way + 1) % 4, way, (way + 3) % 4) if k in starts[at])
                starts[at].remove(turn)
                if turn != way:
                    ring.append(at)
                way = turn
            found.append(np.array([*ring, first], np.float64) + (top - 1.5, left - 1.5))
    return found


def mser(image: Any, *, delta: int = 5, min_area: int = 30, max_area: float = 0.1, max_variation: float = 0.3,
         min_diversity: float = 0.3, polarity: str = "both", connectivity: int = 2, mask: Any = None,
         roi: Roi = None) -> StableRegions:
    """Maximally stable extremal regions; the defaults are those of the program `kipx mser`.

    Parameters
    ----------
    image : ndarray of uint8, shape (rows, columns)
    delta : int, default 5
        Grey levels over which the growth of a region is measured.
    min_area : int, default 30
        Pixels; a region has 16 at least.
    max_area : float, default 0.1
        As a fraction of the image, or of `roi`.
    max_variation : float, default 0.3
        The largest growth over `delta` levels, relative to the outer area.
    min_diversity : float, default 0.3
        The least difference of nested regions, relative to the outer area.
    polarity : {"both", "dark", "bright"}
    connectivity : {1, 2}
        4 or 8 neighbours.
    mask : ndarray of uint8 or bool, optional
        Pixels that are 0 are not part of the image.
    roi : (slice, slice), optional
        Rows and columns to look at; places are told on the whole image.

    Returns
    -------
    StableRegions

    Raises
    ------
    ValueError, TypeError
        For other dtypes and shapes, limits that are none, a mask without a pixel.
    MemoryError
        When there is not enough.

    Examples
    --------
    >>> image = np.full((60, 80), 120, np.uint8)
    >>> image[10:22, 12:24], image[30:42, 50:62] = 40, 220
    >>> found = kipx.mser(image)
    >>> found
    <kipx.StableRegions: 1 dark, 1 bright>
    >>> for region in found:
    ...     print(region["polarity"], region["area"], region["centroid-0"], region["centroid-1"])
    dark 144 15.5 17.5
    bright 144 35.5 55.5
    >>> found.polygons(0)[0].tolist()
    [[9.5, 11.5], [9.5, 23.5], [21.5, 23.5], [21.5, 11.5], [9.5, 11.5]]
    >>> found.labels()[15, 17], found.pixels(1)[:, 0].max()
    (1, 41)
    """
    where = "kipx.mser"
    array, records, origin, operands = grey(where, image, mask, roi)
    descriptor = ffi.new("KipxWTSFDs *")
    flood = Flood("KipxMSERContext *", descriptor)
    lib.KipxWTSMFinitFeatureDs(descriptor, NULL)
    context = flood.context
    context.delta = whole(where, "delta", delta, 0, 255)
    context.min_area_pixels = whole(where, "min_area", min_area, 1, 2**31 - 1)
    for name, value in (("max_area", max_area), ("max_variation", max_variation),
                        ("min_diversity", min_diversity)):
        if not isinstance(value, (int, float, np.number)) or not 0 <= value < 2**31:
            raise ValueError(f"{where}: {name} is {value!r}; expected a number of 0 or more")
    context.max_area_fraction, context.max_variation = float(max_area), float(max_variation)
    context.min_diversity = float(min_diversity)
    context.polarity = choice(where, "polarity", polarity, POLARITIES)
    context.connectivity, context.gather = connected(where, connectivity), 1
    context.levelset.descriptors, context.levelset.count = descriptor, 1
    function, spare = ((lib.KipxGenerateFMSERs, (NULL,)) if mask is None
                       else (lib.KipxGenerateFMSERsEx, (NULL, NULL)))
    try:
        call(where, function, *records, *spare, context, operands=operands, xe=flood.xe)
        return StableRegions(flood, array.shape[1], origin, (np.shape(image)[0], np.shape(image)[1]))
    finally:  # the list has been read; the regions themselves live in the environment
        lib._ZuMfree(context.list.entries)
        context.list.entries = NULL
