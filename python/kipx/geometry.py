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


def _checked(where: str, name: str, value: Any) -> Image:
    try:
        array = np.asarray(value)
    except ValueError:  # rows of different lengths
        array = np.empty(0, object)
    if array.dtype.kind not in "iuf":
        raise TypeError(f"{where}: {name} is {told(value)}; expected numbers")
    if array.ndim != 2 or array.shape[1] != 2:
        raise ValueError(f"{where}: {name} is {told(array)}; expected rows of (row, column), shape (n, 2)")
    return array


def _records(array: Image, form: str) -> Any:
    """The points as C has them, column first, in memory of their own."""
    kept = np.ascontiguousarray(array[:, ::-1], _COORDINATES[form])
    return ffi.from_buffer(f"kipx_{form}_point[]", kept)


def _room(form: str, count: int) -> tuple[Image, Any]:
    """An array for points of a result, and its address for C."""
    room = np.empty((max(count, 1), 2), _COORDINATES[form])
    return room, ffi.from_buffer(f"kipx_{form}_point[]", room, True)


def _asked(where: str, given: Any, code: int) -> int:
    if code < 0:
        sentence = ffi.string(lib.kipx_strerror(code)).decode().partition(": ")[2]
        raise ValueError(f"{where}: {sentence}; points are {told(given)}; expected finite ones, at least one")
    return code


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
        array = _checked(where, "points", points)
        form = _form(array)
        call = getattr(lib, f"kipx_{form}_{c}")
        found = ffi.new(ffi.typeof(call).args[0])
        _asked(where, array, call(found, _records(array, form), len(array)))
        return _read(found)

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
    where = "kipx.geometry.minimum_rectangle"
    array = _checked(where, "points", points)
    form = _form(array)
    call = getattr(lib, f"kipx_{form}_points_least_rect")
    found, (_, hull) = ffi.new(ffi.typeof(call).args[0]), _room(form, len(array))
    _asked(where, array, call(found, hull, len(array), _records(array, form), len(array)))
    corners: NDArray[Any] = _read(found)
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
    where = "kipx.geometry.convex_hull"
    array = _checked(where, "points", points)
    form = _form(array)
    room, address = _room(form, len(array))
    count = _asked(where, array, getattr(lib, f"kipx_{form}_points_hull")(
        address, len(array), _records(array, form), len(array)))
    return room[:count, ::-1].copy()


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
    array, limits = _checked(where, "points", points), np.asarray(box)
    if limits.shape != (4,) or limits.dtype.kind not in "iuf":
        raise ValueError(f"{where}: box is {told(limits)}; expected first row and column, last row and column")
    form = _form(array, limits)
    rect = ffi.new(f"kipx_{form}_rect *", [limits[k].item() for k in (1, 0, 3, 2)])
    room, address = _room("r2d" if form == "2d" else form, 4 * len(array))
    count = _asked(where, array, getattr(lib, f"kipx_{form}_polygon_clip")(
        address, 4 * len(array), _records(array, form), len(array), rect))
    return room[:count, ::-1].copy()


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
    where = "kipx.geometry.is_convex"
    array = _checked(where, "points", points)
    form = _form(array)
    return bool(_asked(where, array, getattr(lib, f"kipx_{form}_polygon_convex")(_records(array, form), len(array))))


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
    array, corners = _checked(where, "points", points), _checked(where, "verts", verts)
    form = _form(array, corners)
    inside, polygon = getattr(lib, f"kipx_{form}_polygon_contains"), _records(corners, form)
    asked = _records(array, form)
    return np.array([_asked(where, corners, inside(polygon, len(corners), asked + k)) > 0
                     for k in range(len(array))], bool)


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
    array, corners = _checked(where, "points", points), _checked(where, "verts", verts)
    form = _form(array, corners)
    away, polygon = getattr(lib, f"kipx_{form}_polygon_distance"), _records(corners, form)
    asked = _records(array, form)
    found = ffi.new("double[]", max(len(array), 1))
    for k in range(len(array)):
        _asked(where, corners, away(found + k, polygon, len(corners), asked + k))
    return np.array(ffi.unpack(found, len(array)), np.float64)


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
    array, rows = _checked(where, "points", points), np.asarray(matrix, np.float64)
    if rows.shape == (3, 3) and (rows[2] == (0, 0, 1)).all():
        rows = rows[:2]
    if rows.shape != (2, 3):
        raise ValueError(f"{where}: matrix is {told(rows)}; expected two rows of three numbers, and (0, 0, 1) below")
    form = _form(array)
    turned = rows[::-1][:, (1, 0, 2)].ravel().tolist()
    room, address = _room("r2d" if form == "2d" else form, len(array))
    _asked(where, array, getattr(lib, f"kipx_{form}_points_map")(
        address, len(array), _records(array, form), len(array), ffi.new(f"kipx_{form}_affine *", turned)))
    return room[:len(array), ::-1].copy()
