"""Extrema, sums, means, histograms and counts, a number for each channel.

The C header kipx/stats.h tells the rules in full. NaN is passed over by extrema and histograms.
"""
from __future__ import annotations

from typing import Any, Optional

import numpy as np

from kipx._arrays import (Image, Roi, Values, channels, choice, crop, mask_for, source, vector, whole, _axes)
from kipx._call import NULL, call
from kipx._library import environment, ffi, lib
from kipx.values import OPERATORS

__all__ = ["minmax", "sum", "mean", "mean_std", "histogram", "count"]

_DOC = """{what}

    Parameters
    ----------
    image : ndarray
        Any dtype but 64-bit integers and bool.
    mask : ndarray of uint8 or bool, optional
        Only elements where it is not 0 count. Of the image's shape, or without its channels.
    roi, channel_axis
        As for `add`; all planes count as one.

    Returns
    -------
    {returns}

    Raises
    ------
    ValueError, TypeError
        For shapes that differ, a mask without an element; for dtypes without a kernel.

    Examples
    --------
    >>> {example}
    {answer}
    """


def _read(where: str, function: Any, image: Any, mask: Any, roi: Roi, axis: Optional[int],
          *results: Any) -> tuple[Image, list[Any]]:
    """Calls a function that reads an array; results: makers of result vectors from the channels."""
    array, record = source(where, "image", crop(where, np.asarray(image), roi, axis), axis)
    operands, stencil, cut = [("image", array)], NULL, array
    if mask is not None:
        cut, stencil = mask_for(where, crop(where, np.asarray(mask), roi, axis), array, axis)
        operands.append(("mask", cut))
    made = [make(channels(array, axis)) for make in results]
    call(where, function, record, stencil, NULL, NULL, *made, operands=operands)
    return array, made


def _plain(array: Image, numbers: Any, axis: Optional[int]) -> Any:
    """A number, or an array of one for each channel."""
    found = list(numbers)
    return found[0] if _axes(array.shape, axis)[1] is None else np.array(found)


def _doubles(count: int) -> Any:
    return ffi.new("double[]", count)


def minmax(image: Any, *, mask: Any = None, roi: Roi = None, channel_axis: Optional[int] = -1
           ) -> tuple[Any, Any]:
    array, (ranges,) = _read("kipx.minmax", lib.KipxMinmax, image, mask, roi, channel_axis,
                             lambda count: ffi.new("kipx_vrange[]", count))
    return (_plain(array, [one.low for one in ranges], channel_axis),
            _plain(array, [one.high for one in ranges], channel_axis))


def sum(image: Any, *, mask: Any = None, roi: Roi = None, channel_axis: Optional[int] = -1) -> Any:
    array, (sums,) = _read("kipx.sum", lib.KipxSum, image, mask, roi, channel_axis, _doubles)
    return _plain(array, sums, channel_axis)


def mean(image: Any, *, mask: Any = None, roi: Roi = None, channel_axis: Optional[int] = -1) -> Any:
    array, (means, _) = _read("kipx.mean", lib.KipxMean, image, mask, roi, channel_axis, _doubles,
                              lambda count: NULL)
    return _plain(array, means, channel_axis)


def mean_std(image: Any, *, mask: Any = None, roi: Roi = None, channel_axis: Optional[int] = -1
             ) -> tuple[Any, Any]:
    array, (means, deviations) = _read("kipx.mean_std", lib.KipxMean, image, mask, roi, channel_axis,
                                       _doubles, _doubles)
    return _plain(array, means, channel_axis), _plain(array, deviations, channel_axis)


for _function, _what, _returns, _answer in (
        (minmax, "The least and the greatest element.", "(float, float), or two arrays of one for each channel",
         "(1.0, 5.0)"),
        (sum, "The sum of all elements; of integers exact in 64 bits, then rounded once.",
         "float, or ndarray of one for each channel", "6.0"),
        (mean, "The mean of all elements.", "float, or ndarray of one for each channel", "3.0"),
        (mean_std, "The mean and the standard deviation (of the population) of all elements.",
         "(float, float), or two arrays of one for each channel", "(3.0, 2.0)")):
    _function.__doc__ = _DOC.format(
        what=_what, returns=_returns, answer=_answer,
        example=f"kipx.{_function.__name__}(np.array([[1, 5]], np.uint8))")


def histogram(image: Any, nbins: Optional[int] = None, range: Optional[tuple[float, float]] = None, *,
              mask: Any = None, roi: Roi = None, channel_axis: Optional[int] = -1) -> tuple[Image, Image]:
    """Counts of the values in bins of equal width.

    Parameters
    ----------
    image : ndarray
        Any dtype but 64-bit integers and bool.
    nbins : int, optional
        By default 256 for uint8, int16 and int32, else 384.
    range : (float, float), optional
        Both ends count. By default 0 to 255 for uint8, int16 and int32, and 0 to 1 for others.
    mask, roi, channel_axis
        As for `mean`.

    Returns
    -------
    counts : ndarray of uint32, shape (nbins,), or (channels, nbins)
    edges : ndarray of float64, shape (nbins + 1,)

    Raises
    ------
    ValueError, TypeError
        For a range that is none; as for `mean`.

    Examples
    --------
    >>> counts, edges = kipx.histogram(np.array([[1, 5, 5]], np.uint8), 4, (0, 8))
    >>> counts, edges
    (array([1, 0, 2, 0], dtype=uint32), array([0., 2., 4., 6., 8.]))
    """
    where = "kipx.histogram"
    array, record = source(where, "image", np.asarray(image), channel_axis)
    count = channels(array, channel_axis)
    bins = whole(where, "nbins", nbins, 2, 2**24) if nbins is not None else 0
    limits = NULL
    if range is not None:
        limits = ffi.new("kipx_vrange[]", [(float(range[0]), float(range[1]))] * count)
    made = ffi.new("kipx_histogram[]", count)
    code = getattr(lib, "__kipx_histogram__$n$xe")(made, count, limits, ffi.new("int32_t[]", [bins] * count),
                                                   record.type, environment())
    if code == lib.KIPX_ENOMEM:
        raise MemoryError(f"{where}: no memory for {bins} bins")
    if code < 0:
        raise ValueError(f"{where}: range is {range}; expected two finite numbers, the lower one first")
    try:
        _read(where, lib.KipxHistogram, array, mask, roi, channel_axis, lambda _: limits, lambda _: made)
        counts = np.stack([np.frombuffer(ffi.buffer(one.counts, 4 * one.bins), np.uint32) for one in made])
        edges = made[0].low + np.arange(made[0].bins + 1) * np.float64(made[0].width)
    finally:
        getattr(lib, "kipx_hist_fini_$n$xe")(made, count, environment())
    return (counts if _axes(array.shape, channel_axis)[1] is not None else counts[0]), edges


def count(image: Any, value: Values, op: str = "==", *, mask: Any = None, roi: Roi = None,
          channel_axis: Optional[int] = -1) -> Any:
    """How many elements stand in a relation to a number.

    Parameters
    ----------
    image : ndarray
        Any dtype but 64-bit integers and bool.
    value : number, or a number per channel
        Compared as the number that it is.
    op : {"==", "<", "<=", ">", ">=", "!="}
    mask, roi, channel_axis
        As for `mean`.

    Returns
    -------
    int, or ndarray of one for each channel

    Raises
    ------
    ValueError, TypeError
        As for `mean`; for another `op`.

    Examples
    --------
    >>> kipx.count(np.array([[1, 5, 9]], np.uint8), 4.5, ">")
    2
    """
    where = "kipx.count"
    relation = choice(where, "op", op, OPERATORS)
    array, (_, _, _, _, counts) = _read(
        where, lib.KipxCountRelBox, image, mask, roi, channel_axis, lambda _: relation,
        lambda n: vector(where, "value", value, n), lambda _: NULL, lambda _: 1,
        lambda n: ffi.new("uint64_t[]", n))
    return _plain(array, counts, channel_axis)
