"""Planar geometry of points and polygons: hulls, areas, clipping, least rectangles and circles.

Points are arrays of shape (n, 2), rows of (row, column) as everywhere in this package; a polygon is its corners,
the last joined to the first, such as a ring of `StableRegions.polygons`. Integer points are worked on as such,
float32 in single precision, everything else in double; which side of a line a point lies on is exact in all three.
The C header kipx/geometry.h tells the rules in full, with x for the column and y for the row.

>>> kipx.geometry.area([(0, 0), (0, 4), (3, 4), (3, 0)])
12.0
"""
from __future__ import annotations

import math
from typing import Any, NamedTuple, Protocol

import numpy as np
from numpy.typing import NDArray

from kipx._arrays import Image, told
from kipx._library import ffi, lib

__all__ = ["area", "perimeter", "centroid", "bounding_box", "minimum_circle", "ellipse", "minimum_rectangle",
           "convex_hull", "clip", "is_convex", "points_in_poly", "distance", "transform", "Circle", "Ellipse"]

_COORDINATES = {"2d": np.int32, "f2d": np.float32, "r2d": np.float64}


class Circle(NamedTuple):
    """All points at most `radius` away from (row, column)."""

    row: float
    column: float
    radius: float


class Ellipse(NamedTuple):
    """An ellipse under regionprops' names: whole axes, and the angle from the row axis to the longer one."""

    row: float
    column: float
    axis_major_length: float
    axis_minor_length: float
    orientation: float


class Figure(Protocol):
    """A figure made of points: `f(points)`."""

    __name__: str

    def __call__(self, points: Any) -> Any:
        ...


def _form(*arrays: Image) -> str:
    """The family of functions for these coordinates."""
    kinds = {array.dtype.kind for array in arrays}
    if kinds <= {"i", "u"} and all(not a.size or -2**31 <= a.min() and a.max() < 2**31 for a in arrays):
        return "2d"
    return "f2d" if {array.dtype for array in arrays} == {np.dtype(np.float32)} else "r2d"


def _numbers(where: str, name: str, value: Any) -> Image:
    try:
        array = np.asarray(value)
    except ValueError:  # rows of different lengths
        array = np.empty(0, object)
    if array.dtype.kind not in "iuf":
        raise TypeError(f"{where}: {name} is {told(value)}; expected numbers")
    return array


def _checked(where: str, name: str, value: Any) -> Image:
    array = _numbers(where, name, value)
    if array.ndim != 2 or array.shape[1] != 2:
        raise ValueError(f"{where}: {name} is {told(array)}; expected rows of (row, column), shape (n, 2)")
    return array


class _Given:
    """Points as C has them, column first, in memory of their own; and the functions for such coordinates."""

    def __init__(self, where: str, points: Any, name: str = "points", beside: Image | None = None) -> None:
        self.where = where
        self.array = _checked(where, name, points)
        self.form = _form(self.array) if beside is None else _form(self.array, beside)
        self.real = "r2d" if self.form == "2d" else self.form  # of results that are no integers
        self.count = len(self.array)

    def records(self, array: Image | None = None) -> Any:
        kept = np.ascontiguousarray((self.array if array is None else array)[:, ::-1], _COORDINATES[self.form])
        return ffi.from_buffer(f"kipx_{self.form}_point[]", kept)

    def function(self, name: str) -> Any:
        return getattr(lib, f"kipx_{self.form}_{name}")

    def asked(self, code: int) -> int:
        if code < 0:
            sentence = ffi.string(lib.kipx_strerror(code)).decode().partition(": ")[2]
            raise ValueError(f"{self.where}: {sentence}; points are {told(self.array)}; "
                             "expected finite ones, at least one")
        return code

    def record(self, name: str, *before: Any) -> Any:
        """What a function makes of the points, by its type."""
        call = self.function(name)
        found = ffi.new(ffi.typeof(call).args[0])
        self.asked(call(found, *before, self.records(), self.count))
        return _read(found)

    def points(self, name: str, most: int, form: str, *after: Any) -> Image:
        """The points that a function makes of these, at most so many."""
        room = np.empty((max(most, 1), 2), _COORDINATES[form])
        count = self.asked(self.function(name)(ffi.from_buffer(f"kipx_{form}_point[]", room, True), most,
                                               self.records(), self.count, *after))
        return room[:count, ::-1].copy()


def _read(record: Any) -> Any:
    """A result of C, by its type."""
    kind = ffi.typeof(record).item
    if kind.kind == "primitive":
        return record[0]
    name = kind.cname.rpartition("_")[2]
    if name == "quad":
        return np.array([(corner.y, corner.x) for corner in record.at])
    if name == "rect":
        return record.y0, record.x0, record.y1, record.x1
    if name == "circle":
        return Circle(record.y, record.x, record.radius)
    if name == "ellipse":
        turn = math.atan2(record.ux, record.uy)  # either end of the axis: of the two the upper half's
        turn -= math.pi if turn > math.pi / 2 else 0
        return Ellipse(record.y, record.x, 2 * record.a, 2 * record.b, turn)
    return record.y, record.x


_DOC = """{what}

    Parameters
    ----------
    points : array of numbers, shape (n, 2)
        {points}

    Returns
    -------
    {result}

    Raises
    ------
    ValueError, TypeError
        For no points, other shapes, coordinates that are NaN or infinite.

    Examples
    --------
    >>> kipx.geometry.{name}([(0, 0), (0, 4), (3, 4), (3, 0)])
    {answer}
    """
_CORNERS, _ANY = "Corners of a polygon, in order.", "In any order."
_FIGURES = (  # name, C name, what it is, what points are, what comes back, of a rectangle
    ("area", "polygon_area", "Area of a polygon, each part as often as the outline winds around it.", _CORNERS,
     "float\n        Correctly rounded; of no corners 0.", "12.0"),
    ("perimeter", "polygon_perimeter", "Length of the outline of a polygon.", _CORNERS,
     "float\n        Of no corners 0.", "14.0"),
    ("centroid", "polygon_centroid", "Centroid of the area of a polygon; of the outline where there is no area.",
     _CORNERS, "(float, float)\n        Row and column.", "(1.5, 2.0)"),
    ("bounding_box", "points_box", "The box around points.", _ANY,
     "(number, number, number, number)\n        First row and column, last row and column, both of the box.",
     "(0, 0, 3, 4)"),
    ("minimum_circle", "points_circle", "The smallest circle around all points.", _ANY, "Circle",
     "Circle(row=1.5, column=2.0, radius=2.5)"),
    ("ellipse", "points_ellipse", "The ellipse that has the second moments of points, as regionprops has it.", _ANY,
     "Ellipse", "Ellipse(row=1.5, column=2.0, axis_major_length=8.0, axis_minor_length=6.0, "
     "orientation=1.5707963267948966)"),
)


def _figure(name: str, c: str, what: str, points_are: str, result: str, answer: str) -> Figure:
    where = f"kipx.geometry.{name}"

    def function(points: Any) -> Any:
        return _Given(where, points).record(c)

    function.__name__ = function.__qualname__ = name
    function.__doc__ = _DOC.format(what=what, points=points_are, result=result, name=name, answer=answer)
    return function


area, perimeter, centroid, bounding_box, minimum_circle, ellipse = (_figure(*row) for row in _FIGURES)


def minimum_rectangle(points: Any) -> NDArray[Any]:
    """The rectangle of the least area around points, turned as it may be.

    Parameters
    ----------
    points : array of numbers, shape (n, 2)

    Returns
    -------
    ndarray, shape (4, 2)
        Its corners, the first side not shorter than the second.

    Raises
    ------
    ValueError, TypeError
        As for `area`.

    Examples
    --------
    >>> kipx.geometry.minimum_rectangle([(0, 1), (1, 0), (4, 3), (3, 4)]).round(6).tolist()
    [[0.0, 1.0], [3.0, 4.0], [4.0, 3.0], [1.0, 0.0]]
    """
    given = _Given("kipx.geometry.minimum_rectangle", points)
    hull = ffi.new(f"kipx_{given.form}_point[]", max(given.count, 1))
    corners: NDArray[Any] = given.record("points_least_rect", hull, given.count)
    return corners


def convex_hull(points: Any) -> Image:
    """The corners of the convex hull, exactly: none on a straight side.

    Parameters
    ----------
    points : array of numbers, shape (n, 2)

    Returns
    -------
    ndarray, shape (m, 2)
        Clockwise on a screen, from the point of the least column and of those the least row; of int32, float32
        or float64. Two for points on a line, one for equal points, none for none.

    Raises
    ------
    ValueError, TypeError
        As for `area`.

    Examples
    --------
    >>> kipx.geometry.convex_hull([(0, 0), (1, 1), (0, 4), (3, 0), (0, 2)]).tolist()
    [[0, 0], [0, 4], [3, 0]]
    """
    given = _Given("kipx.geometry.convex_hull", points)
    return given.points("points_hull", given.count, given.form)


def clip(points: Any, box: Any) -> NDArray[Any]:
    """The part of a polygon that lies in a box, as one outline.

    Parameters
    ----------
    points : array of numbers, shape (n, 2)
        Corners of the polygon.
    box : four numbers
        First row and column, last row and column.

    Returns
    -------
    ndarray, shape (m, 2)
        Corners, none where nothing is left. A polygon that falls apart stays one outline, joined along the box.

    Raises
    ------
    ValueError, TypeError
        As for `area`; for a box that is none.

    Examples
    --------
    >>> kipx.geometry.clip([(0, 0), (0, 4), (4, 4), (4, 0)], (1, 2, 9, 9)).tolist()
    [[1.0, 4.0], [4.0, 4.0], [4.0, 2.0], [1.0, 2.0]]
    """
    where = "kipx.geometry.clip"
    limits = _numbers(where, "box", box)
    if limits.shape != (4,):
        raise ValueError(f"{where}: box is {told(limits)}; expected first row and column, last row and column")
    given = _Given(where, points, beside=limits)
    rect = ffi.new(f"kipx_{given.form}_rect *", [limits[k].item() for k in (1, 0, 3, 2)])
    return given.points("polygon_clip", 4 * given.count, given.real, rect)


def is_convex(points: Any) -> bool:
    """Whether a polygon turns one way only and goes round once. Exact.

    Parameters
    ----------
    points : array of numbers, shape (n, 2)
        Corners, in order.

    Returns
    -------
    bool

    Raises
    ------
    ValueError, TypeError
        As for `area`.

    Examples
    --------
    >>> kipx.geometry.is_convex([(0, 0), (0, 4), (3, 4)]), kipx.geometry.is_convex([(0, 0), (3, 4), (0, 4), (3, 0)])
    (True, False)
    """
    given = _Given("kipx.geometry.is_convex", points)
    return bool(given.asked(given.function("polygon_convex")(given.records(), given.count)))


def points_in_poly(points: Any, verts: Any) -> NDArray[np.bool_]:
    """Whether points lie in a polygon, its border included. Exact.

    Parameters
    ----------
    points : array of numbers, shape (n, 2)
    verts : array of numbers, shape (m, 2)
        Corners of the polygon, in order. Inside is where the outline winds around a point, whichever way.

    Returns
    -------
    ndarray of bool, shape (n,)

    Raises
    ------
    ValueError, TypeError
        As for `area`.

    Examples
    --------
    >>> kipx.geometry.points_in_poly([(1, 1), (3, 2), (4, 4)], [(0, 0), (0, 4), (3, 4), (3, 0)])
    array([ True,  True, False])
    """
    where = "kipx.geometry.points_in_poly"
    array = _checked(where, "points", points)
    given = _Given(where, verts, "verts", array)
    inside, polygon, asked = given.function("polygon_contains"), given.records(), given.records(array)
    return np.array([given.asked(inside(polygon, given.count, asked + k)) > 0 for k in range(len(array))], bool)


def distance(points: Any, verts: Any) -> NDArray[np.float64]:
    """How far points are from a polygon: 0 inside of it and on its border.

    Parameters
    ----------
    points : array of numbers, shape (n, 2)
    verts : array of numbers, shape (m, 2)
        Corners of the polygon, in order.

    Returns
    -------
    ndarray of float64, shape (n,)

    Raises
    ------
    ValueError, TypeError
        As for `area`.

    Examples
    --------
    >>> kipx.geometry.distance([(1, 1), (6, 8)], [(0, 0), (0, 4), (3, 4), (3, 0)])
    array([0., 5.])
    """
    where = "kipx.geometry.distance"
    array = _checked(where, "points", points)
    given = _Given(where, verts, "verts", array)
    away, polygon, asked = given.function("polygon_distance"), given.records(), given.records(array)
    found = np.empty(len(array))
    address = ffi.from_buffer("double[]", found, True)
    for k in range(len(array)):
        given.asked(away(address + k, polygon, given.count, asked + k))
    return found


def transform(points: Any, matrix: Any) -> NDArray[Any]:
    """Points under an affine map.

    Parameters
    ----------
    points : array of numbers, shape (n, 2)
    matrix : array of numbers, shape (2, 3) or (3, 3)
        Applied to (row, column, 1); the last row of three is (0, 0, 1).

    Returns
    -------
    ndarray, shape (n, 2)
        float32 for float32, else float64.

    Raises
    ------
    ValueError, TypeError
        As for `area`; for a matrix that is no affine map.

    Examples
    --------
    >>> kipx.geometry.transform([(1, 2)], [[0, 1, 10], [1, 0, 20]])
    array([[12., 21.]])
    """
    where = "kipx.geometry.transform"
    rows = _numbers(where, "matrix", matrix)
    if rows.shape == (3, 3) and (rows[2] == (0, 0, 1)).all():
        rows = rows[:2]
    if rows.shape != (2, 3):
        raise ValueError(f"{where}: matrix is {told(rows)}; expected two rows of three numbers, and (0, 0, 1) below")
    given = _Given(where, points)
    turned = ffi.new(f"kipx_{given.form}_affine *", rows[::-1][:, (1, 0, 2)].ravel().tolist())
    return given.points("points_map", given.count, given.real, turned)
