"""NumPy arrays as array descriptors, in place.

Gives    descriptors of arrays of 2 to 4 dimensions, channels wherever channel_axis says; results to
         write into; regions of interest as slices; a number per channel.
Promises no pixel is copied but where a descriptor cannot say what the array is: a negative stride, or
         the other byte order. Such a source is copied, such an `out` is worked on as a copy that is
         written back. What is refused is refused in one sentence: function, argument, what it is, what
         was expected.
Costs    what is known of a layout (shape, strides, dtype, channel axis) is found out once and kept.
"""
from __future__ import annotations

from collections.abc import Sequence
from typing import Any, Optional, Union

import numpy as np
from numpy.typing import NDArray

from kipx._library import ffi, lib

Image = NDArray[Any]
Values = Union[float, Sequence[float], Image]
Roi = Optional[tuple[slice, slice]]

#: Element type codes by dtype.
TYPES = {np.dtype(name): code for name, code in (
    ("uint8", lib.KIPX_U8), ("uint16", lib.KIPX_U16), ("uint32", lib.KIPX_U32), ("uint64", lib.KIPX_U64),
    ("int8", lib.KIPX_S8), ("int16", lib.KIPX_S16), ("int32", lib.KIPX_S32), ("int64", lib.KIPX_S64),
    ("float32", lib.KIPX_F32), ("float64", lib.KIPX_F64))}
DTYPES = {code: dtype for dtype, code in TYPES.items()}
REACH = 2**32  # bytes from the first element to the last

_ARR = ffi.typeof("kipx_arr *")
_VOID, _DOUBLES = ffi.typeof("void *"), ffi.typeof("double[]")
_templates: dict[Any, Any] = {}


def told(value: Any) -> str:
    """What an argument is, for a sentence."""
    if isinstance(value, np.ndarray):
        return f"an array of {value.dtype}, shape {value.shape}"
    return f"{type(value).__name__} {value!r:.40}"


def _axes(shape: tuple[int, ...], axis: Optional[int]) -> tuple[list[int], Optional[int]]:
    """The spatial axes from outermost to innermost, and that of channels, where there are more than two."""
    if axis is None or len(shape) <= 2:
        return list(range(len(shape))), None
    axis = axis % len(shape) if -len(shape) <= axis < len(shape) else -1
    return [k for k in range(len(shape)) if k != axis], axis


def _template(where: str, name: str, array: Image, axis: Optional[int]) -> Any:
    """A descriptor of the array's layout, without its address; None where descriptors cannot have it."""
    shape, dtype = array.shape, array.dtype
    if dtype.newbyteorder("=") not in TYPES:
        raise TypeError(f"{where}: {name} is {told(array)}; expected a dtype of "
                        + ", ".join(str(known) for known in TYPES))
    if axis is not None and array.ndim > 2 and not -array.ndim <= axis < array.ndim:
        raise ValueError(f"{where}: channel_axis is {axis}, expected an axis of {name}, {told(array)}")
    spatial, channel = _axes(shape, axis)
    if not 2 <= len(spatial) <= 3:
        raise ValueError(f"{where}: {name} is {told(array)}; expected rows and columns, or planes of them, "
                         "and channels where channel_axis says")
    channels = 1 if channel is None else shape[channel]
    if 0 in shape or channels > 4:
        raise ValueError(f"{where}: {name} is {told(array)}; expected at least one element"
                         + (" and 1 to 4 channels along channel_axis" if channels > 4 else ""))
    if dtype not in TYPES or any(s < 0 and n > 1 for s, n in zip(array.strides, shape)):
        return None
    record = ffi.new(_ARR)
    step, last = dtype.itemsize, 0
    order = [*([0] * (3 - len(spatial))), *spatial]
    for slot in (3, 2, 1, 0):
        absent = slot == 3 and channel is None or slot == 0 and len(spatial) == 2
        at = channel if slot == 3 else order[slot]
        count = 1 if absent or at is None else shape[at]
        if count > 1 and at is not None:
            step = array.strides[at]
        last += step * (count - 1)
        if last + dtype.itemsize >= REACH or count >= 2**31:
            raise ValueError(f"{where}: {name} is {told(array)}; expected less than 4 GiB from the first "
                             "element to the last: give it in parts")
        record.volume[slot], record.strides[slot] = count, min(step, REACH - 1)
        step *= count
    record.naxes, record.type = 1 + len(spatial), TYPES[dtype]
    return record


def _admit(where: str, name: str, value: Any, axis: Optional[int]) -> tuple[Image, Any]:
    """The array and its template; a copy where the array has none."""
    array = np.asarray(value)
    if array.dtype == np.bool_:
        array = array.view(np.uint8)
    key = array.shape, array.strides, array.dtype, axis
    template = _templates.get(key)
    if template is None:
        template = _template(where, name, array, axis)
        if template is None:
            return _admit(where, name, array.astype(array.dtype.newbyteorder("="), order="C"), axis)
        if len(_templates) > 4000:
            _templates.clear()
        _templates[key] = template = template[0]
    return array, template


def source(where: str, name: str, value: Any, axis: Optional[int] = -1) -> tuple[Image, Any]:
    """An array that is read and its descriptor. The array has to be kept as long as the descriptor."""
    if type(value) is np.ndarray:
        array = value
        template = _templates.get((value.shape, value.strides, value.dtype, axis))
        if template is None:
            array, template = _admit(where, name, value, axis)
    else:
        array, template = _admit(where, name, value, axis)
    record = ffi.new(_ARR, template)
    try:
        record.base = ffi.from_buffer(array)  # the sooner way, for adjacent elements
    except (ValueError, BufferError):
        record.base = ffi.cast(_VOID, array.__array_interface__["data"][0])
    return array, record


def target(where: str, out: Optional[Image], shape: tuple[int, ...], dtype: Any,
           axis: Optional[int] = -1) -> tuple[Image, Any]:
    """The array that a result is written to, and its descriptor: `out`, or a copy of it that has to be
    written back, or a new one."""
    if out is None:
        return source(where, "the result", np.empty(shape, dtype), axis)
    if not isinstance(out, np.ndarray):
        raise TypeError(f"{where}: out is {told(out)}; expected an array")
    if out.shape != shape or not out.flags.writeable:
        raise ValueError(f"{where}: out is {told(out)}{'' if out.flags.writeable else ', read-only'}; "
                         f"expected one of shape {shape} to write into")
    if dtype is not None and out.dtype != dtype:
        raise TypeError(f"{where}: out is {told(out)}; expected {np.dtype(dtype)}, which dtype asks for")
    return source(where, "out", out, axis)


def put_back(result: Image, out: Image) -> None:
    """What was made in a copy, because no descriptor can say `out`'s strides or byte order, goes into it."""
    if result is not out and not np.may_share_memory(result, out):
        out[...] = result


def check_mask_has_out(where: str, mask: Any, out: Optional[Image]) -> None:
    if mask is not None and out is None:
        raise ValueError(f"{where}: out is None; expected an array whose elements stay where mask is 0")


def region(where: str, roi: Roi, height: int, width: int) -> tuple[int, int, int, int]:
    """The first row and column of a region, and the ones behind its last."""
    try:
        rows, columns = roi  # type: ignore[misc]
        top, bottom, row_step = rows.indices(height)
        left, right, column_step = columns.indices(width)
    except (TypeError, ValueError, AttributeError):
        raise TypeError(f"{where}: roi is {told(roi)}; expected two slices, of rows and of columns, as "
                        "numpy.s_[10:20, 5:30] gives") from None
    if row_step != 1 or column_step != 1 or bottom <= top or right <= left:
        raise ValueError(f"{where}: roi is {roi}; expected slices without a step, with something in them, of "
                         f"{height} rows and {width} columns")
    return top, left, bottom, right


def crop(where: str, array: Image, roi: Roi, axis: Optional[int] = -1) -> Image:
    """The view of an array that a region leaves."""
    if not isinstance(array, np.ndarray):
        raise TypeError(f"{where}: out is {told(array)}; expected an array")
    if roi is None:
        return array
    spatial, _ = _axes(array.shape, axis)
    if len(spatial) < 2:
        return array
    top, left, bottom, right = region(where, roi, array.shape[spatial[-2]], array.shape[spatial[-1]])
    index: list[slice] = [slice(None)] * array.ndim
    index[spatial[-2]], index[spatial[-1]] = slice(top, bottom), slice(left, right)
    return array[tuple(index)]


def extent(array: Image, axis: Optional[int]) -> tuple[int, ...]:
    """Shape without channels."""
    return tuple(array.shape[k] for k in _axes(array.shape, axis)[0])


def channels(array: Image, axis: Optional[int]) -> int:
    channel = _axes(array.shape, axis)[1]
    return 1 if channel is None else array.shape[channel]


def mask_for(where: str, mask: Any, image: Image, axis: Optional[int]) -> tuple[Image, Any]:
    """A mask of the image's shape, or without its channels, which it then serves alike."""
    array, _ = source(where, "mask", mask, axis if np.ndim(mask) == image.ndim else None)
    if array.dtype != np.uint8 or array.shape not in (image.shape, extent(image, axis)):
        raise (ValueError if array.dtype == np.uint8 else TypeError)(
            f"{where}: mask is {told(array)}; expected uint8 or bool of shape {extent(image, axis)}")
    channel = _axes(image.shape, axis)[1]
    if array.ndim < image.ndim and channel is not None:
        array = np.broadcast_to(np.expand_dims(array, channel), image.shape)
    return source(where, "mask", array, axis)


def is_constant(value: Any) -> bool:
    """Whether an operand is a number, or a number per channel."""
    if isinstance(value, np.ndarray):
        return value.ndim < 2
    return np.isscalar(value) or isinstance(value, (list, tuple))


def vector(where: str, name: str, value: Any, count: int) -> Any:
    """A number per channel as a C array."""
    if type(value) is float or type(value) is int and -2**53 < value < 2**53:
        return ffi.new(_DOUBLES, [value] * count)
    try:
        if np.iscomplexobj(value):
            raise TypeError
        numbers = np.asarray(value, dtype=np.float64)
    except (TypeError, ValueError):
        raise TypeError(f"{where}: {name} is {told(value)}; expected a number, or one a channel") from None
    if numbers.ndim > 1 or numbers.ndim == 1 and numbers.size != count:
        raise ValueError(f"{where}: {name} is {told(value)}; expected a number, or one for each of {count} "
                         "channels")
    return ffi.new(_DOUBLES, np.broadcast_to(numbers, (count,)).tolist())


def whole(where: str, name: str, value: Any, low: int, high: int) -> int:
    """An argument that has to be a whole number of a range."""
    if type(value) is int and low <= value <= high:
        return value
    try:
        number = int(value.__index__())
    except (AttributeError, TypeError):
        raise TypeError(f"{where}: {name} is {told(value)}; expected a whole number") from None
    if not low <= number <= high:
        raise ValueError(f"{where}: {name} is {number}; expected {low} to {high}")
    return number


def choice(where: str, name: str, value: Any, known: dict[str, int]) -> int:
    """The number behind a word."""
    if not isinstance(value, str) or value not in known:
        raise ValueError(f"{where}: {name} is {told(value)}; expected one of {', '.join(known)}")
    return known[value]
