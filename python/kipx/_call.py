"""Calls of image operations: operands in the order of the C function, results, errors as exceptions.

Gives    `call`, one call, and `each`, an element-wise operation on whole arrays: regions, planes, results.
Promises what the library refuses becomes ValueError, TypeError or MemoryError with the function, its
         operands and what was expected; where types have no kernel, the dtypes that have one are named.
         Those are asked of the library by probing calls, which touch no pixel.
"""
from __future__ import annotations

from collections.abc import Sequence
from typing import Any, Optional

import numpy as np

from kipx._arrays import (DTYPES, Image, Roi, channels as channels_of, crop, mask_for, source, target, told,
                          vector)
from kipx._library import environment, ffi, lib

NULL = ffi.NULL
_ARR = ffi.typeof("kipx_arr *")


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


def each(where: str, function: Any, sources: Sequence[tuple[str, Any]], *, dtype: Any = None,
         values: Sequence[tuple[str, Any]] = (), nulls: int, tail: Sequence[Any] = (),
         out: Optional[Image] = None, roi: Roi = None, axis: Optional[int] = -1, planes: bool = False,
         shape: Optional[tuple[int, ...]] = None, flags: int = 0) -> Image:
    """An operation whose C form is (out, sources, values, nulls null pointers, tail).

    sources: (name, array) each, the first leading; "mask" may lack the channels. values: (name, number
    or numbers, one a channel). nulls: the region and the positions, which views stand for. planes:
    whether the C function goes through planes itself. shape: the result's, else the first source's.
    """
    arrays = [(name, crop(where, value if isinstance(value, np.ndarray) else np.asarray(value), roi, axis))
              for name, value in sources]
    first = arrays[0][1]
    described = [mask_for(where, value, first, axis) if name == "mask" else source(where, name, value, axis)
                 for name, value in arrays]
    for name, value in arrays[1:]:
        if value.shape != first.shape and shape is None and name != "mask":
            raise ValueError(f"{where}: {name} is {told(value)}; expected shape {first.shape}, that of "
                             f"{arrays[0][0]}")
    window = None if out is None else crop(where, out, roi, axis)
    result, goal = target(where, window, first.shape if shape is None else shape, dtype, axis)
    numbers = [vector(where, name, value, channels_of(result, axis)) for name, value in values]
    names = [("out", result), *((name, array) for (name, _), (array, _) in zip(arrays, described))]
    if goal.naxes == 4 and not planes:
        _each_plane(where, function, goal, [record for _, record in described], numbers, nulls, tail, flags,
                    names)
    else:
        call(where, function, goal, *(record for _, record in described), *numbers, *([NULL] * nulls), *tail,
             flags=flags, operands=names)
    if out is None:
        return result
    if window is not None and result is not window and not np.shares_memory(result, window):
        window[...] = result
    return out


def _each_plane(where: str, function: Any, goal: Any, sources: Sequence[Any], numbers: Sequence[Any],
                nulls: int, tail: Sequence[Any], flags: int, names: Sequence[tuple[str, Image]]) -> None:
    """Plane after plane, by descriptors of three axes; those with one plane meet every plane."""
    for plane in range(goal.volume[0]):
        flat = []
        for record in (goal, *sources):
            part = ffi.new(_ARR, record[0])
            if part.naxes == 4:
                part.base = ffi.cast("char *", part.base) + plane * part.strides[0]
            part.volume[0], part.naxes = 1, 3
            flat.append(part)
        call(where, function, *flat, *numbers, *([NULL] * nulls), *tail, flags=flags, operands=names)
