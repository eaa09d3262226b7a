"""Neighbourhood filters and morphology.

What may be read is decided by the image, what is written by the region: pixels outside `roi` are real
neighbours. Elements and weights are applied as they are stored, never mirrored. The C headers
kipx/filter.h, morph.h, sepfilter.h and firefly.h tell the rules in full.
"""
from __future__ import annotations

from typing import Any, Optional, Protocol

import numpy as np

from kipx._arrays import (Image, Roi, Values, channels, check_mask_has_out, choice, mask_for, put_back, region,
                          source, target, told, vector, _axes)
from kipx._call import NULL, call
from kipx._library import ffi, lib
from kipx.values import BORDERS, _pair

__all__ = ["erode", "dilate", "opening", "closing", "white_tophat", "black_tophat", "morphological_gradient",
           "minimum_filter", "maximum_filter", "uniform_filter", "gaussian", "sepfilter", "firefly"]


def _run(where: str, function: Any, image: Any, arguments: tuple[Any, ...], mask: Any, out: Optional[Image],
         roi: Roi, axis: Optional[int], flags: int = 0) -> Image:
    """function (environment, flags, image, out, mask, roi, *arguments). Without `out` the result has the
    region's size: its descriptor says where in the image it lies."""
    array, record = source(where, "image", image, axis)
    shape = list(array.shape)
    spatial, _ = _axes(array.shape, axis)
    site = NULL
    if roi is not None:
        top, left, bottom, right = region(where, roi, shape[spatial[-2]], shape[spatial[-1]])
        planes = shape[spatial[0]] if len(spatial) == 3 else 1
        site = ffi.new("kipx_site *", [[0, top, left, 0],
                                       [planes, bottom - top, right - left, channels(array, axis)]])
        if out is None:
            shape[spatial[-2]], shape[spatial[-1]] = bottom - top, right - left
    result, goal = target(where, out, tuple(shape), array.dtype, axis)
    if roi is not None and out is None:
        goal.base = ffi.cast("char *", goal.base) - top * goal.strides[1] - left * goal.strides[2]
        goal.volume[1], goal.volume[2] = bottom, right
    stencil, operands = NULL, [("image", array), ("out", result)]
    if mask is not None:
        check_mask_has_out(where, mask, out)
        cut, stencil = mask_for(where, mask, array, axis)
        operands.append(("mask", cut))
    call(where, function, record, goal, stencil, site, *arguments, flags=flags, operands=operands)
    if out is None:
        return result
    put_back(result, out)
    return out


def _shape(where: str, size: Any, anchor: Any) -> Any:
    """A rectangle, its anchor size // 2 where none is given. The library takes 1 x 1 for its default."""
    height, width = _pair(where, "size", size)
    row, column = (height // 2, width // 2) if anchor is None else _pair(where, "anchor", anchor, 0)
    if row >= height or column >= width:
        raise ValueError(f"{where}: anchor is {told(anchor)}; expected a place inside {height} x {width}")
    return ffi.new("kipx_seshape *", [[0, row, column, 0], [1, height, width, 1]])


class Morphology(Protocol):
    """Morphology with an element: `f(image, footprint)`."""

    __name__: str

    def __call__(self, image: Any, footprint: Any = None, *, anchor: Any = None, mask: Any = None,
                 out: Optional[Image] = None, roi: Roi = None, channel_axis: Optional[int] = -1) -> Image:
        ...


class Rectangle(Protocol):
    """A filter over rectangles: `f(image, size)`."""

    __name__: str

    def __call__(self, image: Any, size: Any = 3, *, anchor: Any = None, mode: str = "nearest",
                 mask: Any = None, out: Optional[Image] = None, roi: Roi = None,
                 channel_axis: Optional[int] = -1) -> Image:
        ...


_COMMON = """\
    mask : ndarray of uint8 or bool, optional
        Elements of `out` stay where it is 0. It asks for an `out`.
    out : ndarray, optional
        Of the image's shape and dtype; it may be the image, or lie across it in any way.
    roi : (slice, slice), optional
        Rows and columns of the result; what lies outside still counts as neighbours.
    channel_axis : int or None, default -1
        As for `add`. Channels are worked on one by one, and so are planes.

    Returns
    -------
    ndarray

    Raises
    ------
    ValueError, TypeError
        For an element or anchor that is none; for dtypes without a kernel.

    Examples
    --------
    >>> image = np.array([[0, 0, 9, 0, 0], [0, 9, 9, 9, 0], [0, 0, 9, 0, 0]], np.uint8)
    >>> kipx.{name}(image{arguments})
    array([{answer}], dtype=uint8)
    """
_MORPHOLOGY = (
    ("erode", "KIPX_MORPH_ERODE", "Least element under the footprint: erosion.",
     "[0, 0, 0, 0, 0],\n           [0, 0, 9, 0, 0],\n           [0, 0, 0, 0, 0]"),
    ("dilate", "KIPX_MORPH_DILATE", "Greatest element under the footprint: dilation.",
     "[0, 9, 9, 9, 0],\n           [9, 9, 9, 9, 9],\n           [0, 9, 9, 9, 0]"),
    ("opening", "KIPX_MORPH_OPEN", "Erosion, then dilation.",
     "[0, 0, 9, 0, 0],\n           [0, 9, 9, 9, 0],\n           [0, 0, 9, 0, 0]"),
    ("closing", "KIPX_MORPH_CLOSE", "Dilation, then erosion.",
     "[0, 0, 9, 0, 0],\n           [0, 9, 9, 9, 0],\n           [0, 0, 9, 0, 0]"),
    ("white_tophat", "KIPX_MORPH_TOPHAT", "The image minus its opening; integers only.",
     "[0, 0, 0, 0, 0],\n           [0, 0, 0, 0, 0],\n           [0, 0, 0, 0, 0]"),
    ("black_tophat", "KIPX_MORPH_BOTHAT", "The closing of the image minus the image; integers only.",
     "[0, 0, 0, 0, 0],\n           [0, 0, 0, 0, 0],\n           [0, 0, 0, 0, 0]"),
    ("morphological_gradient", "KIPX_MORPH_GRADIENT", "Dilation minus erosion; integers only.",
     "[0, 9, 9, 9, 0],\n           [9, 9, 0, 9, 9],\n           [0, 9, 9, 9, 0]"),
)
_CROSS = np.array([[0, 1, 0], [1, 1, 1], [0, 1, 0]], np.uint8)


def _morphology(name: str, c: str, what: str, answer: str) -> Morphology:
    where, number = f"kipx.{name}", getattr(lib, c)

    def function(image: Any, footprint: Any = None, *, anchor: Any = None, mask: Any = None,
                 out: Optional[Image] = None, roi: Roi = None, channel_axis: Optional[int] = -1) -> Image:
        members = _CROSS if footprint is None else np.asarray(footprint) != 0
        if members.ndim != 2 or not members.size:
            raise ValueError(f"{where}: footprint is {told(footprint)}; expected rows and columns")
        stored, stencil = source(where, "footprint", members, None)
        element = ffi.new("kipx_strel *")
        shape = _shape(where, stored.shape, anchor)
        element.anchor, element.mask = shape.anchor, stencil[0]
        return _run(where, lib.KipxMorphop, image, (number, element), mask, out, roi, channel_axis)

    function.__name__ = function.__qualname__ = name
    function.__doc__ = f"""{what}

    Parameters
    ----------
    image : ndarray
        uint8, int16, int32 or float32, of 1, 3 or 4 channels.
    footprint : array, optional
        Members are its elements that are not 0; by default a cross of 3 x 3.
    anchor : (int, int), optional
        Row and column of the footprint that lie on the result's pixel; by default size // 2.
""" + _COMMON.format(name=name, arguments="", answer=answer)
    return function


(erode, dilate, opening, closing, white_tophat, black_tophat, morphological_gradient) = (
    _morphology(*row) for row in _MORPHOLOGY)

_RECTANGLES = (
    ("minimum_filter", "KIPX_FILTER_MIN", "Least element of a rectangle.",
     "[0, 0, 0, 0, 0],\n           [0, 0, 0, 0, 0],\n           [0, 0, 0, 0, 0]"),
    ("maximum_filter", "KIPX_FILTER_MAX", "Greatest element of a rectangle.",
     "[9, 9, 9, 9, 9],\n           [9, 9, 9, 9, 9],\n           [9, 9, 9, 9, 9]"),
    ("uniform_filter", "KIPX_FILTER_BOX", "Mean of a rectangle, to nearest, ties to even.",
     "[1, 4, 5, 4, 1],\n           [1, 4, 5, 4, 1],\n           [1, 4, 5, 4, 1]"),
)


def _rectangle(name: str, c: str, what: str, answer: str) -> Rectangle:
    where, number = f"kipx.{name}", getattr(lib, c)

    def function(image: Any, size: Any = 3, *, anchor: Any = None, mode: str = "nearest", mask: Any = None,
                 out: Optional[Image] = None, roi: Roi = None, channel_axis: Optional[int] = -1) -> Image:
        border = choice(where, "mode", mode, BORDERS)
        shape = _shape(where, size, anchor)
        kind = number if shape.volume[1] * shape.volume[2] > 1 else lib.KIPX_FILTER_COPY
        return _run(where, lib.KipxFilter, image, (kind, shape), mask, out, roi, channel_axis,
                    flags=border << 8)

    function.__name__ = function.__qualname__ = name
    function.__doc__ = f"""{what}

    Parameters
    ----------
    image : ndarray
        Any dtype but 64-bit integers and bool.
    size : int or (int, int), default 3
        Height and width.
    anchor : (int, int), optional
        Row and column of the rectangle that lie on the result's pixel; by default size // 2.
    mode : {{"nearest", "constant", "wrap", "reflect", "symmetric"}}, default "nearest"
        How the image goes on, with the names of numpy.pad ("constant" is 0). Minimum and maximum look at
        the image alone.
""" + _COMMON.format(name=name, arguments=", 3", answer=answer)
    return function


minimum_filter, maximum_filter, uniform_filter = (_rectangle(*row) for row in _RECTANGLES)


def _sigmas(where: str, sigma: Any) -> tuple[float, float]:
    try:
        down, across = (float(s) for s in (sigma if np.ndim(sigma) else (sigma, sigma)))
    except (TypeError, ValueError):
        raise TypeError(f"{where}: sigma is {told(sigma)}; expected a number, or one of rows and one of columns"
                        ) from None
    if not (0 < down < 2**20 and 0 < across < 2**20):
        raise ValueError(f"{where}: sigma is {told(sigma)}; expected positive numbers")
    return down, across


def gaussian_size(where: str, sigma: Any, truncate: Any) -> tuple[int, int]:
    """Height and width of the window that `gaussian` uses where none is given."""
    if not isinstance(truncate, (int, float, np.number)) or not 0 < truncate < 100:
        raise ValueError(f"{where}: truncate is {told(truncate)}; expected a positive number")
    rows, columns = (2 * int(truncate * s + 0.5) + 1 for s in _sigmas(where, sigma))
    return rows, columns


def gaussian(image: Any, sigma: Any = 1.0, *, truncate: float = 3.0, size: Any = None, anchor: Any = None,
             mode: str = "nearest", mask: Any = None, out: Optional[Image] = None, roi: Roi = None,
             channel_axis: Optional[int] = -1) -> Image:
    where = "kipx.gaussian"
    border = choice(where, "mode", mode, BORDERS)
    down, across = _sigmas(where, sigma)
    size = gaussian_size(where, sigma, truncate) if size is None else size
    shape = _shape(where, size, anchor)
    if shape.volume[1] * shape.volume[2] == 1:
        return _run(where, lib.KipxFilter, image, (lib.KIPX_FILTER_COPY, NULL), mask, out, roi, channel_axis)
    planes = [1.0] if len(_axes(np.shape(image), channel_axis)[0]) == 3 else []
    sigmas = ffi.new("double[]", [*planes, down, across])
    return _run(where, lib.KipxGaussianFilter, image, (shape, sigmas), mask, out, roi, channel_axis,
                flags=border << 8)


gaussian.__doc__ = """Gaussian filter: weights exp(-x**2 / (2 sigma**2)), normalised.

    Parameters
    ----------
    image : ndarray
        uint8, int16, int32 or float32. The result has its dtype: integers to nearest, ties to even.
    sigma : float or (float, float), default 1
        Of rows and columns, in pixels.
    truncate : float, default 3
        How many sigmas the filter reaches.
    size : int or (int, int), optional
        Height and width instead of what `truncate` asks for.
    anchor, mode
        As for `uniform_filter`.
""" + _COMMON.format(name="gaussian", arguments=", 0.5",
                     answer="[0, 2, 7, 2, 0],\n           [1, 7, 9, 7, 1],\n           [0, 2, 7, 2, 0]")


def sepfilter(image: Any, rows: Any, columns: Any, *, anchor: Any = None, mode: str = "nearest",
              mask: Any = None, out: Optional[Image] = None, roi: Roi = None,
              channel_axis: Optional[int] = -1) -> Image:
    where = "kipx.sepfilter"
    border = choice(where, "mode", mode, BORDERS)
    weights = []
    for name, given in (("rows", rows), ("columns", columns)):
        numbers = np.atleast_1d(np.asarray(given, np.float64))
        if numbers.ndim != 1 or not numbers.size:
            raise ValueError(f"{where}: {name} is {told(given)}; expected a row of numbers")
        weights.append(ffi.new("double[]", numbers.tolist()))
    shape = _shape(where, (len(weights[0]), len(weights[1])), anchor)
    kernel = ffi.new("kipx_sepkernel *", {"shape": shape[0], "weights": [NULL, *weights]})
    return _run(where, lib.KipxSepFilter, image, (kernel,), mask, out, roi, channel_axis, flags=border << 8)


sepfilter.__doc__ = """Weighted sum over a rectangle: the weight of a place is its row's times its column's.

    Parameters
    ----------
    image : ndarray
        uint8, int16, int32 or float32. The result has its dtype: integers to nearest, saturated.
    rows, columns : array of numbers
        The first belongs to the topmost row, the leftmost column (correlation). One of each copies.
    anchor, mode
        As for `uniform_filter`.
""" + _COMMON.format(name="sepfilter", arguments=", [1, 1, 1], [0, 1, 0]",
                     answer="[ 0,  9, 27,  9,  0],\n           [ 0,  9, 27,  9,  0],"
                            "\n           [ 0,  9, 27,  9,  0]")


def firefly(image: Any, bright: Optional[Values] = 0.0, dark: Optional[Values] = None, *, size: Any = 3,
            anchor: Any = None, mask: Any = None, out: Optional[Image] = None, roi: Roi = None,
            channel_axis: Optional[int] = -1) -> Image:
    where = "kipx.firefly"
    array = np.asarray(image)
    count = channels(array, channel_axis)
    limits = [NULL if value is None else vector(where, name, value, count)
              for name, value in (("bright", bright), ("dark", dark))]
    return _run(where, lib.KipxFireflyEx, array, (_shape(where, size, anchor), *limits), mask, out, roi,
                channel_axis)


firefly.__doc__ = """Take isolated outliers away.

    Parameters
    ----------
    image : ndarray
        uint8, int16, int32 or float32.
    bright, dark : number, or a number per channel, or None
        A pixel that exceeds every other one of its window by more than `bright` takes the largest of them;
        one that lies below all by more than `dark` the smallest. None leaves those alone.
    size : int or (int, int), default 3
        Height and width of the window.
    anchor : (int, int), optional
        The place of the window that is judged; by default size // 2.
""" + _COMMON.format(name="firefly", arguments=", 4",
                     answer="[0, 0, 9, 0, 0],\n           [0, 9, 9, 9, 0],\n           [0, 0, 9, 0, 0]")
