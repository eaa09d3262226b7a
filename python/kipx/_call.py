"""Calls of image operations: operands in the order of the C function, results, errors as exceptions.

Gives    `call`, one call, and `each`, an element-wise operation on whole arrays: regions, planes, results.
Promises what the library refuses becomes ValueError, TypeError or MemoryError with the function, its
         operands and what was expected; where types have no kernel, the dtypes that have one are named.
         Those are asked of the library by probing calls, which touch no pixel.
"""
from __future__ import annotations

from collections.abc import Iterator, Sequence
from typing import Any, Optional

import numpy as np

from kipx._arrays import (DTYPES, TYPES, Image, Roi, channels as channels_of, crop, mask_for, put_back,
                          source, target, told, vector)
from kipx._library import _local, environment, ffi, lib

NULL = ffi.NULL
_NULLS = [(NULL,) * count for count in range(6)]
_ARR, _BYTES = ffi.typeof("kipx_arr *"), ffi.typeof("char[]")
_from_buffer, _ndarray, _empty = ffi.from_buffer, np.ndarray, np.empty


def call(where: str, function: Any, *arguments: Any, flags: int = 0,
         operands: Sequence[tuple[str, Image]] = (), xe: Any = None) -> int:
    """Calls function (environment, flags, *arguments); operands are what errors are told with. xe: the
    environment, if not the thread's."""
    code: int = function(environment() if xe is None else xe, flags, *arguments)
    if code < 0:
        raise failure(where, code, function, flags, arguments, operands)
    return code


def _is_arr(argument: Any) -> bool:
    return isinstance(argument, ffi.CData) and ffi.typeof(argument) is _ARR


def _dummy(record: Any, type_code: int) -> Any:
    """One pixel of as many axes and channels, of another type."""
    spot = ffi.new(_ARR, record[0])
    count = record.volume[3]
    for slot, step in enumerate((8 * count, 8 * count, 8 * count, 8)):
        spot.volume[slot], spot.strides[slot] = 1, step
    spot.volume[3], spot.type = count, type_code
    return spot


def _probe(function: Any, flags: int, arguments: Sequence[Any], types: Sequence[int]) -> int:
    """The answer to the call on single pixels of these types, one for each descriptor."""
    given = iter(types)
    kept = [_dummy(one, next(given)) if _is_arr(one) and one != NULL else one for one in arguments]
    return int(function(environment(), flags | lib.KIPX_FLAG_PROBE, *kept))


def _known(function: Any, flags: int, arguments: Sequence[Any], masks: int) -> list[str]:
    """The dtypes for which there is a kernel when all operands but the last masks are of one."""
    count = sum(_is_arr(one) and one != NULL for one in arguments)
    return [str(dtype) for code, dtype in DTYPES.items()
            if _probe(function, flags, arguments, [code] * (count - masks) + [lib.KIPX_U8] * masks)
            == lib.KIPX_EAGAIN]


def failure(where: str, code: int, function: Any, flags: int, arguments: Sequence[Any],
            operands: Sequence[tuple[str, Image]]) -> Exception:
    """The exception for a negative code."""
    what = "; ".join(f"{name} is {told(value)}" for name, value in operands)
    sentence = ffi.string(lib.kipx_strerror(code)).decode().partition(": ")[2]
    if code == lib.KIPX_ENOMEM:
        return MemoryError(f"{where}: {sentence}; {what}")
    masks = sum(name == "mask" for name, _ in operands)
    types = [one.type for one in arguments if _is_arr(one) and one != NULL]
    if _probe(function, flags, arguments, types) == code:
        known = _known(function, flags, arguments, masks)
        if known:
            return TypeError(f"{where}: no kernel for these dtypes: {what}; expected all of one of "
                             f"{', '.join(known)}, or a mixture that the C header lists")
    written = [value for name, value in operands if name == "out"]
    if any(np.may_share_memory(written[0], value) for name, value in operands if name != "out"
           ) if written else False:
        return ValueError(f"{where}: out shares memory with another operand without being it; expected one "
                          f"that lies apart: {what}")
    return ValueError(f"{where}: {sentence}; {what}")


def _frame(frames: dict[Any, Any], image: Image, axis: Optional[int]) -> Any:
    """Descriptors of three images like this one, for `swift`; None where the long way has to look. A program
    that comes back to none of its layouts does not fill the memory with them."""
    if len(frames) > 1000:
        frames.clear()
    try:
        _, record = source("", "", image, axis)
    except (TypeError, ValueError):
        return None
    swapped = image.dtype not in TYPES
    return None if swapped or record.naxes != 3 or not image.flags.c_contiguous else tuple(
        ffi.new(_ARR, record[0]) for _ in range(3))


def swift(function: Any, a: Any, b: Any, out: Optional[Image], axis: Optional[int]) -> Optional[Image]:
    """The short way of `each`, for small images: function (out, a, b), unscaled, on arrays of one shape and
    dtype whose elements lie one after another. None where the long way has to look, also at what is wrong.

    Descriptors wait in the thread's frames, by layout, and lack nothing but addresses. A call takes them out
    while it runs, so that one of a signal's handler in between makes its own.
    """
    if type(a) is not _ndarray or type(b) is not _ndarray:
        return None
    shape, dtype = a.shape, a.dtype
    if b.shape != shape or b.dtype is not dtype:
        return None
    result: Any = out
    if out is None:
        result = _empty(shape, dtype)
    elif type(out) is not _ndarray or out.shape != shape or out.dtype is not dtype:
        return None
    key = shape, dtype, axis
    record, frames = _local.kept
    frame = frames.pop(key, None) or _frame(frames, a, axis)
    if frame is None:
        return None
    goal, first, second = frame
    try:  # a buffer without a gap, or none
        goal.base = _from_buffer(_BYTES, result, True)
        first.base = _from_buffer(a)
        second.base = _from_buffer(b)
    except (ValueError, BufferError):
        return None
    code = function(record, 0, goal, first, second, NULL, NULL, NULL, 0, 0)
    frames[key] = frame
    return None if code else result


def each(where: str, function: Any, sources: Sequence[tuple[str, Any]], *, dtype: Any = None,
         values: Sequence[tuple[str, Any]] = (), nulls: int, tail: tuple[Any, ...] = (),
         out: Optional[Image] = None, roi: Roi = None, axis: Optional[int] = -1, planes: bool = False,
         shape: Optional[tuple[int, ...]] = None) -> Image:
    """An operation whose C form is (out, sources, values, nulls null pointers, tail).

    sources: (name, array) each, the first leading; "mask" may lack the channels. values: (name, number
    or numbers, one a channel). nulls: the region and the positions, which views stand for. planes:
    whether the C function goes through planes itself. shape: the result's, else the first source's.
    """
    window = out
    if roi is not None:
        sources = [(name, crop(where, np.asarray(value), roi, axis)) for name, value in sources]
        window = None if out is None else crop(where, out, roi, axis)
    arrays: list[Image] = []
    records: list[Any] = []
    for name, value in sources:
        if name == "mask":
            array, record = mask_for(where, value, arrays[0], axis)
        else:
            array, record = source(where, name, value, axis)
            if arrays and shape is None and array.shape != arrays[0].shape:
                raise ValueError(f"{where}: {name} is {told(array)}; expected shape {arrays[0].shape}, that of "
                                 f"{sources[0][0]}")
        arrays.append(array)
        records.append(record)
    result, goal = target(where, window, arrays[0].shape if shape is None else shape, dtype, axis)
    numbers = [vector(where, name, value, channels_of(result, axis)) for name, value in values]
    behind = (*numbers, *_NULLS[nulls], *tail)
    if planes or goal.naxes != 4:
        steps: Any = ((goal, *records),)
    else:
        steps = _planes(goal, records)
    for step in steps:
        code = function(environment(), 0, *step, *behind)
        if code < 0:
            names = [("out", result), *((name, array) for (name, _), array in zip(sources, arrays))]
            raise failure(where, code, function, 0, (*step, *behind), names)
    if out is None:
        return result
    put_back(result, out if window is None else window)
    return out


def _planes(goal: Any, sources: Sequence[Any]) -> Iterator[list[Any]]:
    """Plane after plane, by descriptors of three axes; those with one plane meet every plane."""
    for plane in range(goal.volume[0]):
        flat = []
        for record in (goal, *sources):
            part = ffi.new(_ARR, record[0])
            if part.naxes == 4:
                part.base = ffi.cast("char *", part.base) + plane * part.strides[0]
            part.volume[0], part.naxes = 1, 3
            flat.append(part)
        yield flat
