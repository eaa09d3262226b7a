"""Comparison, thresholds, conversion, copies, fills, borders and sizes.

The C headers kipx/compare.h, threshold.h, convert.h and resize.h tell the rules in full.
"""
from __future__ import annotations

from typing import Any, Optional

import numpy as np
from numpy.typing import DTypeLike

from kipx._arrays import (Image, Roi, Values, channels, check_mask_has_out, choice, crop, is_constant, mask_for,
                          put_back, source, target, told, vector, whole, _axes)
from kipx._call import NULL, call, each
from kipx._library import ffi, lib

__all__ = ["compare", "threshold", "threshold_otsu", "convert", "copy", "fill", "pad", "resize"]

OPERATORS = {"==": lib.KIPX_CMPOP_EQUAL, "<": lib.KIPX_CMPOP_LESS, "<=": lib.KIPX_CMPOP_LESS_OR_EQUAL,
             ">": lib.KIPX_CMPOP_GREATER, ">=": lib.KIPX_CMPOP_GREATER_OR_EQUAL,
             "!=": lib.KIPX_CMPOP_NOT_EQUAL}
#: The names of numpy.pad, and of scipy.ndimage where they differ.
BORDERS = {"constant": lib.KIPX_BORDER_CONST, "edge": lib.KIPX_BORDER_REPLICATE,
           "nearest": lib.KIPX_BORDER_REPLICATE, "wrap": lib.KIPX_BORDER_WRAP,
           "symmetric": lib.KIPX_BORDER_REFLECT, "reflect": lib.KIPX_BORDER_REFLECT101,
           "mirror": lib.KIPX_BORDER_REFLECT101}
_METHODS = {"otsu": lib.KIPX_THH_OTSU, "usto": lib.KIPX_THH_USTO, "mean": lib.KIPX_THH_BLUR}


def _choice_values(where: str, if_true: Any, if_false: Any, count: int) -> tuple[Any, Any]:
    """The two value vectors, or markers where one of them is None."""
    given = [NULL if value is None else vector(where, name, value, count)
             for name, value in (("if_true", if_true), ("if_false", if_false))]
    return given[0], given[1]


def _chosen_dtype(dtype: Any, out: Optional[Image]) -> Any:
    """What is asked for, else `out`'s own (told by None), else that of masks."""
    return None if dtype is None and out is not None else np.dtype(np.uint8 if dtype is None else dtype)


def compare(a: Any, b: Any, op: str = "==", *, if_true: Optional[Values] = None,
            if_false: Optional[Values] = None, dtype: Optional[DTypeLike] = None,
            out: Optional[Image] = None, roi: Roi = None, channel_axis: Optional[int] = -1) -> Image:
    """Where an image is like another one, or like a number.

    Parameters
    ----------
    a : ndarray
        uint8, int8, int16, int32 or float32.
    b : ndarray, or number, or a number per channel
        Of `a`'s shape and dtype. Numbers are brought into `a`'s dtype first.
    op : {"==", "<", "<=", ">", ">=", "!="}
        With a NaN only "!=" holds.
    if_true, if_false : number, or a number per channel, optional
        What is written where `a op b` holds, and where it does not. Without both a mask: all bits, and 0.
        With one of them alone, `out` keeps its elements elsewhere.
    dtype : dtype, default uint8
        Of the result: any integers of 8, 16 or 32 bits; float32 from float32 where values are given.
    out, roi, channel_axis
        As for `add`.

    Returns
    -------
    ndarray

    Raises
    ------
    ValueError
        For shapes that differ, another `op`, one value alone without `out`.
    TypeError
        For dtypes without a kernel.

    Examples
    --------
    >>> kipx.compare(np.array([[1, 5, 9]], np.int16), 5, ">=")
    array([[  0, 255, 255]], dtype=uint8)
    >>> kipx.compare(np.array([[1, 5, 9]], np.int16), 5, "<", if_true=1, if_false=2)
    array([[1, 2, 2]], dtype=uint8)
    """
    where = "kipx.compare"
    number = choice(where, "op", op, OPERATORS)
    a = np.asarray(a)
    if out is None and (if_true is None) != (if_false is None):
        raise ValueError(f"{where}: if_true is {told(if_true)} and if_false is {told(if_false)}; expected both, "
                         "none, or an out whose elements stay elsewhere")
    chosen = if_true is not None or if_false is not None
    tail: tuple[Any, ...] = (number,)
    if chosen:
        tail += _choice_values(where, if_true, if_false, channels(a, channel_axis))
    goal = _chosen_dtype(dtype, out)
    kept: dict[str, Any] = dict(tail=tail, out=out, roi=roi, axis=channel_axis, planes=True, dtype=goal)
    prefix = "KipxE" if chosen else "Kipx"
    if is_constant(b):
        return each(where, getattr(lib, prefix + "CompareC"), [("a", a)], values=[("b", b)], nulls=2, **kept)
    return each(where, getattr(lib, prefix + "Compare"), [("a", a), ("b", b)], nulls=3, **kept)


def threshold(image: Any, value: Optional[Values] = None, *, method: Optional[str] = None, op: str = ">",
              size: Any = 15, offset: Values = 0.0, if_true: Optional[Values] = None,
              if_false: Optional[Values] = None, dtype: Optional[DTypeLike] = None,
              out: Optional[Image] = None, roi: Roi = None, channel_axis: Optional[int] = -1) -> Image:
    """Mark the elements that pass a threshold: given, found, or made of each element's neighbourhood.

    Parameters
    ----------
    image : ndarray
        uint8, int8, int16, int32 or float32.
    value : number, or a number per channel, optional
        The threshold, as the number that it is: uint8 elements greater than 99.5 begin with 100.
    method : {"otsu", "usto", "mean"}, optional
        Without a value: Otsu's threshold for each channel; the same, marking what does not pass; the mean
        of the rectangle of `size` around each element, plus `offset`. By default "otsu".
    op : {">", ">=", "<", "<="}
        An element passes when it is `op` the threshold.
    size : int or (int, int), default 15
        Height and width of the neighbourhood of "mean".
    offset : number, or a number per channel, default 0
        For "mean".
    if_true, if_false, dtype, out, roi, channel_axis
        As for `compare`.

    Returns
    -------
    ndarray
        255 where the threshold is passed, else 0; or the given values.

    Raises
    ------
    ValueError, TypeError
        As for `compare`; for a value and a method at once.

    Examples
    --------
    >>> image = np.array([[10, 12, 11, 200, 210, 205]], np.uint8)
    >>> kipx.threshold(image, method="otsu")
    array([[  0,   0,   0, 255, 255, 255]], dtype=uint8)
    >>> kipx.threshold(image, 11.5)
    array([[  0, 255,   0, 255, 255, 255]], dtype=uint8)
    """
    where = "kipx.threshold"
    if value is not None and method is not None:
        raise ValueError(f"{where}: value is {told(value)} and method is {method!r}; expected one of the two")
    image = np.asarray(image)
    count = channels(image, channel_axis)
    context = ffi.new("KipxThresholdContext *")
    context.cmpop = choice(where, "op", op, {key: OPERATORS[key] for key in (">", ">=", "<", "<=")})
    if value is not None:
        numbers = vector(where, "value", value, count)
    else:
        context.method = choice(where, "method", method or "otsu", _METHODS)
        numbers = vector(where, "offset", offset, count) if method == "mean" else NULL
        context.local.height, context.local.width = _pair(where, "size", size)
    context.thresholds = numbers
    truths = _choice_values(where, if_true, if_false, count)
    goal = _chosen_dtype(dtype, out)
    return each(where, lib.KipxThreshold, [("image", image)], nulls=2, tail=(context, *truths), out=out,
                roi=roi, axis=channel_axis, planes=True, dtype=goal)


def _pair(where: str, name: str, value: Any, low: int = 1) -> tuple[int, int]:
    """A number for both, or (rows, columns)."""
    two = value if isinstance(value, (tuple, list, np.ndarray)) else (value, value)
    if len(two) != 2:
        raise ValueError(f"{where}: {name} is {told(value)}; expected a number, or two of rows and columns")
    return (whole(where, name, two[0], low, 2**31 - 1), whole(where, name, two[1], low, 2**31 - 1))


def threshold_otsu(image: Any, *, nbins: Optional[int] = None, range: Optional[tuple[float, float]] = None,
                   roi: Roi = None, channel_axis: Optional[int] = -1) -> Any:
    """Otsu's threshold: the split of the histogram whose two means are furthest apart.

    Parameters
    ----------
    image : ndarray
        Any of the ten dtypes but 64-bit integers.
    nbins : int, optional
        Bins of the histogram; by default 256 for uint8, int16 and int32, else 384.
    range : (float, float), optional
        The values that count; by default 0 to 255 for uint8, int16 and int32, and 0 to 1 for others.
        ``(numpy.inf, numpy.inf)`` is from the least to the greatest value of the image.
    roi, channel_axis
        As for `add`.

    Returns
    -------
    float, or ndarray of one for each channel
        The upper edge of the lower class's last bin, less 2**-23.

    Raises
    ------
    ValueError, TypeError
        For ranges that are none; for dtypes without a kernel.

    Examples
    --------
    >>> round(kipx.threshold_otsu(np.array([[100, 200]], np.uint8)))
    101
    """
    where = "kipx.threshold_otsu"
    array, record = source(where, "image", crop(where, np.asarray(image), roi, channel_axis), channel_axis)
    count = channels(array, channel_axis)
    found = ffi.new("double[]", count)
    ranges, bins = NULL, NULL
    if range is not None:
        low, high = range
        ranges = ffi.new("kipx_vrange[]", [(float(low), float(high))] * count)
    if nbins is not None:
        bins = ffi.new("int32_t[]", [whole(where, "nbins", nbins, 2, 2**31 - 1)] * count)
    call(where, lib.KipxComputeThresholdByOtsu, record, NULL, NULL, found, ranges, bins,
         operands=[("image", array)])
    return found[0] if array.ndim == 2 else np.array(list(found))


def convert(image: Any, dtype: Optional[DTypeLike] = None, *, scale: Values = 1.0, shift: Values = 0.0,
            out: Optional[Image] = None, roi: Roi = None, channel_axis: Optional[int] = -1) -> Image:
    """Another dtype: every element times `scale` plus `shift`, to nearest, ties to even, saturated.

    Parameters
    ----------
    image : ndarray
    dtype : dtype, optional
        By default `out`'s; one of the two has to be given.
    scale, shift : number, or a number per channel
    out, roi, channel_axis
        As for `add`.

    Returns
    -------
    ndarray
        NaN becomes 0 in integers.

    Raises
    ------
    ValueError, TypeError
        As for `add`.

    Examples
    --------
    >>> kipx.convert(np.array([[-3.5, 0.5, 254.5, 300]]), np.uint8)
    array([[  0,   0, 254, 255]], dtype=uint8)
    >>> kipx.convert(np.array([[0, 51, 255]], np.uint8), np.float32, scale=1 / 255)
    array([[0. , 0.2, 1. ]], dtype=float32)
    """
    where = "kipx.convert"
    if dtype is None and out is None:
        raise TypeError(f"{where}: dtype is None; expected one, or an out to convert into")
    image = np.asarray(image)
    count = channels(image, channel_axis)
    tail = vector(where, "scale", scale, count), vector(where, "shift", shift, count)
    return each(where, lib.KipxVConvert, [("image", image)], nulls=2, tail=tail, out=out, roi=roi,
                axis=channel_axis, planes=True, dtype=None if dtype is None else np.dtype(dtype))


def copy(image: Any, *, mask: Any = None, out: Optional[Image] = None, roi: Roi = None,
         channel_axis: Optional[int] = -1) -> Image:
    """A copy, bit by bit; under a mask the elements of `out` stay where it is 0.

    Parameters
    ----------
    image : ndarray
    mask : ndarray of uint8 or bool, optional
        Of the image's shape, or without its channels. It asks for an `out`.
    out : ndarray, optional
        It may lie across the image in any way.
    roi, channel_axis
        As for `add`.

    Returns
    -------
    ndarray

    Raises
    ------
    ValueError, TypeError
        As for `add`.

    Examples
    --------
    >>> out = np.zeros((1, 3), np.uint8)
    >>> kipx.copy(np.array([[1, 2, 3]], np.uint8), mask=np.array([[True, False, True]]), out=out)
    array([[1, 0, 3]], dtype=uint8)
    """
    where = "kipx.copy"
    check_mask_has_out(where, mask, out)
    image = np.asarray(image)
    dtype = None if out is not None else image.dtype.newbyteorder("=")
    if mask is None:
        return each(where, lib.KipxCopy, [("image", image)], nulls=2, out=out, roi=roi, axis=channel_axis,
                    planes=True, dtype=dtype)
    return each(where, lib.KipxCopyEx, [("image", image), ("mask", mask)], nulls=3, out=out, roi=roi,
                axis=channel_axis, planes=True, dtype=dtype)


def fill(out: Image, value: Values, *, mask: Any = None, roi: Roi = None,
         channel_axis: Optional[int] = -1) -> Image:
    """Give every element of an array a value, or those under a mask.

    Parameters
    ----------
    out : ndarray
    value : number, or a number per channel
        To nearest, ties to even, saturated.
    mask : ndarray of uint8 or bool, optional
        Elements stay where it is 0. Of `out`'s shape, or without its channels.
    roi, channel_axis
        As for `add`.

    Returns
    -------
    ndarray
        `out`.

    Raises
    ------
    ValueError, TypeError
        As for `add`.

    Examples
    --------
    >>> kipx.fill(np.zeros((2, 3), np.uint8), 7, roi=np.s_[:, 1:])
    array([[0, 7, 7],
           [0, 7, 7]], dtype=uint8)
    """
    where = "kipx.fill"
    window = crop(where, out, roi, channel_axis)
    result, record = target(where, window, window.shape, None, channel_axis)
    numbers = vector(where, "value", value, channels(result, channel_axis))
    operands = [("out", result)]
    if mask is None:
        call(where, lib.KipxFill, record, numbers, NULL, operands=operands)
    else:
        cut, stencil = mask_for(where, crop(where, np.asarray(mask), roi, channel_axis), window, channel_axis)
        call(where, lib.KipxFillEx, record, stencil, numbers, NULL, NULL,
             operands=[*operands, ("mask", cut)])
    put_back(result, window)
    return out


def pad(image: Any, pad_width: Any, mode: str = "constant", *, constant_values: Values = 0,
        channel_axis: Optional[int] = -1) -> Image:
    """An image continued beyond its edges, with the argument names of numpy.pad.

    Parameters
    ----------
    image : ndarray
    pad_width : int, (before, after), or ((top, bottom), (left, right))
        Rows and columns; any number, also more than the image has.
    mode : {"constant", "edge", "wrap", "symmetric", "reflect"}
    constant_values : number, or a number per channel
    channel_axis
        As for `add`. Channels and planes are not padded.

    Returns
    -------
    ndarray

    Raises
    ------
    ValueError, TypeError
        For widths that are none, other modes.

    Examples
    --------
    >>> kipx.pad(np.array([[1, 2, 3]], np.uint8), ((0, 0), (2, 2)), "reflect")
    array([[3, 2, 1, 2, 3, 2, 1]], dtype=uint8)
    """
    where = "kipx.pad"
    kind = choice(where, "mode", mode, BORDERS)
    try:
        widths = np.broadcast_to(np.asarray(pad_width), (2, 2))
        (top, bottom), (left, right) = [[whole(where, "pad_width", k, 0, 2**30) for k in row] for row in widths]
    except ValueError:
        raise ValueError(f"{where}: pad_width is {told(pad_width)}; expected a number, (before, after) or "
                         "((top, bottom), (left, right)), none negative") from None
    array, record = source(where, "image", image, channel_axis)
    shape = list(array.shape)
    spatial, _ = _axes(array.shape, channel_axis)
    shape[spatial[-2]] += top + bottom
    shape[spatial[-1]] += left + right
    result, goal = target(where, None, tuple(shape), array.dtype, channel_axis)
    border = ffi.new("kipx_brshape *", [[0, -top, -left, 0], [0, bottom, right, 0]])
    numbers = vector(where, "constant_values", constant_values, channels(array, channel_axis))
    call(where, lib.KipxCopyMkb, goal, record, NULL, NULL, border, kind, numbers,
         operands=[("image", array), ("the result", result)])
    return result


def resize(image: Any, output_shape: tuple[int, int], *, mask: Any = None, out: Optional[Image] = None,
           channel_axis: Optional[int] = -1) -> Image:
    """Another size, every pixel the one that its centre falls on, exactly.

    Parameters
    ----------
    image : ndarray
    output_shape : (int, int)
        Rows and columns of the result.
    mask : ndarray of uint8 or bool, optional
        Of the result's size: its elements stay where it is 0. It asks for an `out`.
    out : ndarray, optional
    channel_axis
        As for `add`.

    Returns
    -------
    ndarray

    Raises
    ------
    ValueError, TypeError
        As for `add`.

    Examples
    --------
    >>> kipx.resize(np.array([[1, 2, 3, 4]], np.uint8), (1, 2))
    array([[2, 4]], dtype=uint8)
    """
    where = "kipx.resize"
    check_mask_has_out(where, mask, out)
    array, record = source(where, "image", image, channel_axis)
    shape = list(array.shape)
    spatial, _ = _axes(array.shape, channel_axis)
    shape[spatial[-2]], shape[spatial[-1]] = _pair(where, "output_shape", output_shape)
    result, goal = target(where, out, tuple(shape), array.dtype, channel_axis)
    operands = [("out", result), ("image", array)]
    if mask is None:
        call(where, lib.KipxResize, goal, record, NULL, NULL, operands=operands)
    else:
        cut, stencil = mask_for(where, mask, result, channel_axis)
        call(where, lib.KipxEResize, goal, record, stencil, NULL, NULL, NULL,
             operands=[*operands, ("mask", cut)])
    if out is None:
        return result
    put_back(result, out)
    return out
