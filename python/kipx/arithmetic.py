"""Arithmetic and logic, element by element: of two images, of an image and numbers, of one image.

Every function here is a row of a table: what it computes and the C function's name. The C headers
kipx/arith.h, logic.h, muladd.h, unary.h and matrix.h tell rounding, scaling and types in full.
"""
from __future__ import annotations

from typing import Any, Optional, Protocol, TypeVar

import numpy as np
from numpy.typing import DTypeLike

from kipx._arrays import Image, Roi, Values, channels, crop, is_constant, told, whole
from kipx._call import each, swift
from kipx._library import ffi, lib

__all__ = ["add", "addq", "addsq", "sub", "subq", "subsq", "rsub", "rsubq", "rsubsq", "mul", "div", "divr",
           "rdiv", "rdivr", "bitwise_and", "bitwise_or", "bitwise_xor", "bitwise_not", "muladd", "mulsub",
           "mulrsub", "negate", "negateq", "exp", "ln", "sigmoid", "mul_matrix", "mulmm", "mulmv"]

_LARGEST = 2**31 - 1


class Binary(Protocol):
    """Two operands, scaled: `f(a, b)`."""

    __name__: str

    def __call__(self, a: Any, b: Any, *, scale: int = 0, dtype: Optional[DTypeLike] = None,
                 out: Optional[Image] = None, roi: Roi = None, channel_axis: Optional[int] = -1) -> Image:
        ...


class Logic(Protocol):
    """Two operands, bit by bit: `f(a, b)`."""

    __name__: str

    def __call__(self, a: Any, b: Any, *, out: Optional[Image] = None, roi: Roi = None,
                 channel_axis: Optional[int] = -1) -> Image:
        ...


class Ternary(Protocol):
    """A product and a third operand: `f(a, b, c)`."""

    __name__: str

    def __call__(self, a: Any, b: Any, c: Any, *, scale: int = 0, dtype: Optional[DTypeLike] = None,
                 out: Optional[Image] = None, roi: Roi = None, channel_axis: Optional[int] = -1) -> Image:
        ...


class Unary(Protocol):
    """One operand: `f(image)`."""

    __name__: str

    def __call__(self, image: Any, *, scale: int = 0, dtype: Optional[DTypeLike] = None,
                 out: Optional[Image] = None, roi: Roi = None, channel_axis: Optional[int] = -1) -> Image:
        ...


_OPTIONS = """\
    scale : int, default 0
        The result is multiplied by two to the power `scale`, -31 to 63. Any but 0 rounds to nearest, ties
        to even, and saturates.
    dtype : dtype, optional
        Of the result; by default {wider}.
    out : ndarray, optional
        Where the result goes. It may be an operand itself, and else must not share memory with one.
    roi : (slice, slice), optional
        Rows and columns to work on, ``numpy.s_[10:20, 5:30]``: the result has that size, of `out` the rest
        stays as it is.
    channel_axis : int or None, default -1
        Which axis of a three-dimensional array are channels (1 to 4); None means that the first axis is
        planes. Arrays of two dimensions have no channels."""
_WIDER = "the wider of the operands', the floating one of two alike"
_DOC = """{what}

    Parameters
    ----------
{parameters}
{options}

    Returns
    -------
    ndarray
        `out`, or a new array of the operands' shape.

    Raises
    ------
    ValueError
        For shapes that differ, an `out` that lies across an operand{more}.
    TypeError
        For dtypes without a kernel; the sentence names those that have one.

    Notes
    -----
    C: `kipx.raw.{c}`.

    Examples
    --------
    >>> a = np.array([[10, 100, 200]], np.uint8)
    >>> {example}
    {answer}
    """


F = TypeVar("F")


def _document(function: F, name: str, what: str, c: str, example: str, answer: str, *, wider: str = _WIDER,
              parameters: str, more: str = "", scaled: bool = True) -> F:
    options = _OPTIONS.format(wider=wider)
    if not scaled:
        options = options[options.index("    out :"):]
    named: Any = function
    named.__name__ = named.__qualname__ = name
    named.__doc__ = _DOC.format(what=what, c=c, example=example, answer=answer, parameters=parameters,
                                   options=options, more=more)
    return function


def _wider(*dtypes: np.dtype[Any]) -> np.dtype[Any]:
    return max(dtypes, key=lambda dtype: (dtype.itemsize, dtype.kind == "f", dtype.kind == "i"))


def _dtype(value: Any) -> np.dtype[Any]:
    found: np.dtype[Any] = value.dtype if isinstance(value, np.ndarray) else np.asarray(value).dtype
    return np.dtype(np.uint8) if found == np.bool_ else found


def _goal(dtype: Any, out: Optional[Image], *sources: Any) -> Any:
    """The result's dtype: what is asked for, else `out`'s own (told by None), else the wider source's."""
    if dtype is not None:
        return np.dtype(dtype)
    if out is None and all(_dtype(value) is _dtype(sources[0]) for value in sources):
        return _dtype(sources[0]).newbyteorder("=")
    return None if out is not None else _wider(*(_dtype(value) for value in sources)).newbyteorder("=")


def _refuse_zeros(where: str, name: str, divisor: Any, roi: Roi, axis: Optional[int]) -> None:
    """Integers divided by zero end a process: that is found out before."""
    part = np.asarray(divisor) if is_constant(divisor) else crop(where, np.asarray(divisor), roi, axis)
    if not np.all(part):
        raise ValueError(f"{where}: {name} holds a zero, at {tuple(int(k) for k in np.argwhere(part == 0)[0])}; "
                         "expected a divisor without one, or use divr")


# Name, the operation with its operands exchanged, C name, what it computes, of uint8 [10 100 200] and 100.
_BINARY = (
    ("add", "add", "Add", "Sum a + b; integers wrap, as NumPy's do.", "[[110, 200,  44]]"),
    ("addq", "addq", "Addq", "Sum a + b, saturated.", "[[110, 200, 255]]"),
    ("addsq", "addsq", "Addsq", "Sum a + b, saturated into the signed type of the result's width.",
     "[[110, 127, 127]]"),
    ("sub", "rsub", "Sub", "Difference a - b; integers wrap, as NumPy's do.", "[[166,   0, 100]]"),
    ("subq", "rsubq", "Subq", "Difference a - b, saturated.", "[[  0,   0, 100]]"),
    ("subsq", "rsubsq", "Subsq", "Difference a - b, saturated into the signed type of the result's width.",
     "[[166,   0, 100]]"),
    ("rsub", "sub", "RSub", "Reversed difference b - a; integers wrap.", "[[ 90,   0, 156]]"),
    ("rsubq", "subq", "RSubq", "Reversed difference b - a, saturated.", "[[90,  0,  0]]"),
    ("rsubsq", "subsq", "RSubsq", "Reversed difference b - a, saturated into the signed type of the width.",
     "[[ 90,   0, 156]]"),
    ("mul", "mul", "Mul", "Product a * b, saturated.", "[[255, 255, 255]]"),
    ("div", "rdiv", "Div", "Quotient a / b; of integers truncated.", "[[0, 1, 2]]"),
    ("divr", "rdivr", "Divr", "Quotient a / b of integers, to nearest, ties to even; of 0 the least value.",
     "[[0, 1, 2]]"),
    ("rdiv", "div", "RDiv", "Reversed quotient b / a; of integers truncated.", "[[10,  1,  0]]"),
    ("rdivr", "divr", "RDivr", "Reversed quotient b / a of integers, to nearest, ties to even.",
     "[[10,  1,  0]]"),
)
_TWO = """\
    a, b : ndarray, or number, or a number per channel
        Operands of one shape, or an array and numbers, in either order."""


def _operands(where: str, a: Any, b: Any) -> tuple[Any, Any, bool]:
    """(array, array or numbers, whether they have been exchanged)."""
    if not is_constant(a):
        return a, b, False
    if is_constant(b):
        raise TypeError(f"{where}: a is {told(a)} and b is {told(b)}; expected an array of two dimensions or "
                        "more among them")
    return b, a, True


def _binary(name: str, mirror: str, c: str, what: str, answer: str) -> Binary:
    where = f"kipx.{name}"
    straight, constant = getattr(lib, f"Kipx{c}"), getattr(lib, f"Kipx{c}C")
    turned = getattr(lib, "Kipx" + next(row[2] for row in _BINARY if row[0] == mirror) + "C")
    divisor = {"div": "b", "rdiv": "a"}.get(name)

    def function(a: Any, b: Any, *, scale: int = 0, dtype: Optional[DTypeLike] = None,
                 out: Optional[Image] = None, roi: Roi = None, channel_axis: Optional[int] = -1) -> Image:
        if roi is None and dtype is None and not divisor and type(scale) is int and scale == 0:
            found = swift(straight, a, b, out, channel_axis)
            if found is not None:
                return found
        tail = whole(where, "scale", scale, -31, 63), 0
        image, other, exchanged = _operands(where, a, b)
        if divisor and all(_dtype(v).kind in "iu" for v in (a, b) if not is_constant(v)):
            _refuse_zeros(where, divisor, b if divisor == "b" else a, roi, channel_axis)
        if is_constant(other):
            return each(where, turned if exchanged else constant, [("b" if exchanged else "a", image)],
                        values=[("a" if exchanged else "b", other)], nulls=2, tail=tail, out=out, roi=roi,
                        axis=channel_axis, dtype=_goal(dtype, out, image))
        return each(where, straight, [("a", image), ("b", other)], nulls=3, tail=tail, out=out, roi=roi,
                    axis=channel_axis, dtype=_goal(dtype, out, image, other))

    more = ", a divisor of integers that holds a zero" if divisor else ""
    return _document(function, name, what, f"Kipx{c}", f"kipx.{name}(a, 100)", f"array({answer}, dtype=uint8)",
              parameters=_TWO, more=more)


(add, addq, addsq, sub, subq, subsq, rsub, rsubq, rsubsq, mul, div, divr, rdiv, rdivr) = (
    _binary(*row) for row in _BINARY)

_LOGIC = (
    ("bitwise_and", "And", "Bits set in both.", "[[2, 4, 0]]"),
    ("bitwise_or", "Orr", "Bits set in either.", "[[ 14, 102, 206]]"),
    ("bitwise_xor", "Xor", "Bits set in one of the two.", "[[ 12,  98, 206]]"),
)


def _logic(name: str, c: str, what: str, answer: str) -> Logic:
    where = f"kipx.{name}"
    straight, constant = getattr(lib, f"Kipx{c}"), getattr(lib, f"Kipx{c}C")

    def function(a: Any, b: Any, *, out: Optional[Image] = None, roi: Roi = None,
                 channel_axis: Optional[int] = -1) -> Image:
        image, other, _ = _operands(where, a, b)
        if is_constant(other):
            return each(where, constant, [("a", image)], values=[("b", other)], nulls=2, out=out, roi=roi,
                        axis=channel_axis, dtype=_goal(None, out, image))
        return each(where, straight, [("a", image), ("b", other)], nulls=3, out=out, roi=roi,
                    axis=channel_axis, dtype=_goal(None, out, image))

    return _document(function, name, what, f"Kipx{c}", f"kipx.{name}(a, 6)", f"array({answer}, dtype=uint8)",
              parameters=_TWO, scaled=False)


bitwise_and, bitwise_or, bitwise_xor = (_logic(*row) for row in _LOGIC)

_TERNARY = (
    ("muladd", "MulAdd", "a * b + c, rounded once, saturated.", "[[ 25, 205, 255]]"),
    ("mulsub", "MulSub", "a * b - c, rounded once, saturated.", "[[ 15, 195, 255]]"),
    ("mulrsub", "MulRSub", "c - a * b, rounded once, saturated.", "[[0, 0, 0]]"),
)
_THREE = """\
    a : ndarray
    b, c : ndarray, or number, or a number per channel
        Of `a`'s shape where they are arrays; numbers for both, for `b` alone, or for neither."""


def _ternary(name: str, c_name: str, what: str, answer: str) -> Ternary:
    where = f"kipx.{name}"
    three, two, one = (getattr(lib, f"Kipx{c_name}{form}") for form in ("", "C", "CC"))

    def function(a: Any, b: Any, c: Any, *, scale: int = 0, dtype: Optional[DTypeLike] = None,
                 out: Optional[Image] = None, roi: Roi = None, channel_axis: Optional[int] = -1) -> Image:
        images = [(key, value) for key, value in (("a", a), ("b", b), ("c", c)) if not is_constant(value)]
        values = [(key, value) for key, value in (("b", b), ("c", c)) if is_constant(value)]
        if is_constant(a) or len(values) == 1 and values[0][0] == "c":
            raise TypeError(f"{where}: a is {told(a)}, b is {told(b)}, c is {told(c)}; expected an array for "
                            "a; of b and c a number for both or for b alone")
        goal = _goal(dtype, out, *(value for _, value in images))
        return each(where, (three, two, one)[len(values)], images, values=values, nulls=1 + len(images),
                    tail=(whole(where, "scale", scale, -31, 63), 0), out=out, roi=roi, axis=channel_axis,
                    dtype=goal)

    return _document(function, name, what, f"Kipx{c_name}", f"kipx.{name}(a, 2, 5)", f"array({answer}, dtype=uint8)",
              parameters=_THREE)


muladd, mulsub, mulrsub = (_ternary(*row) for row in _TERNARY)

_UNARY = (
    ("negate", "Negate", "Negative -x; integers wrap.", "a", "[[246, 156,  56]], dtype=uint8"),
    ("negateq", "Negateq", "Negative -x, saturated.", "np.array([[-32768, 5]], np.int16)",
     "[[32767,    -5]], dtype=int16"),
    ("exp", "Exp", "e to the power x, to a neighbour of the nearest number.", "np.zeros((1, 2), np.float32)",
     "[[1., 1.]], dtype=float32"),
    ("ln", "Ln", "Natural logarithm, to a neighbour of the nearest number.", "a", "[[2, 5, 5]], dtype=uint8"),
)
_ONE = """\
    image : ndarray"""


def _unary(name: str, c: str, what: str, example: str, answer: str) -> Unary:
    where = f"kipx.{name}"
    c_function = getattr(lib, f"Kipx{c}")

    def function(image: Any, *, scale: int = 0, dtype: Optional[DTypeLike] = None,
                 out: Optional[Image] = None, roi: Roi = None, channel_axis: Optional[int] = -1) -> Image:
        return each(where, c_function, [("image", image)], nulls=2, out=out, roi=roi, axis=channel_axis,
                    tail=(whole(where, "scale", scale, -31, 63), 0), dtype=_goal(dtype, out, image))

    return _document(function, name, what, f"Kipx{c}", f"kipx.{name}({example})", f"array({answer})",
                     parameters=_ONE, wider="the image's")


negate, negateq, exp, ln = (_unary(*row) for row in _UNARY)


def bitwise_not(image: Any, *, out: Optional[Image] = None, roi: Roi = None,
                channel_axis: Optional[int] = -1) -> Image:
    return each("kipx.bitwise_not", lib.KipxNot, [("image", image)], nulls=2, out=out, roi=roi,
                axis=channel_axis, dtype=_goal(None, out, image))


_document(bitwise_not, "bitwise_not", "Every bit turned over.", "KipxNot", "kipx.bitwise_not(a)",
          "array([[245, 155,  55]], dtype=uint8)", parameters=_ONE, scaled=False)


def sigmoid(image: Any, alpha: Values = 1.0, *, scale: int = 0, dtype: Optional[DTypeLike] = None,
            out: Optional[Image] = None, roi: Roi = None, channel_axis: Optional[int] = -1) -> Image:
    where = "kipx.sigmoid"
    return each(where, lib.KipxSigmoidAlpha, [("image", image)], values=[("alpha", alpha)], nulls=2,
                tail=(whole(where, "scale", scale, -31, 63), 0), out=out, roi=roi, axis=channel_axis,
                dtype=_goal(dtype, out, image))


_document(sigmoid, "sigmoid", "1 / (1 + exp(-alpha x)).", "KipxSigmoidAlpha",
          "kipx.sigmoid(a, 0.01, dtype=np.float32).round(3)",
          "array([[0.525, 0.731, 0.881]], dtype=float32)", wider="the image's",
          parameters=_ONE + "\n    alpha : number, or a number per channel, default 1")


def mul_matrix(image: Any, matrix: Any, addends: Any = None, *, scale: int = 0,
               dtype: Optional[DTypeLike] = None, out: Optional[Image] = None, roi: Roi = None,
               channel_axis: Optional[int] = -1) -> Image:
    """One matrix times the channels of every pixel: a colour transform.

    Parameters
    ----------
    image : ndarray
        Of n channels.
    matrix : array of numbers, shape (m, n)
        A row for every channel of the result, 1 to 4.
    addends : m numbers, optional
        Added to the products.
    scale, dtype, out, roi, channel_axis
        As for `add`. The result has m channels; where m is 1 an axis of length 1.

    Returns
    -------
    ndarray
        Sums are formed in binary64 and rounded once, to nearest, ties to even, saturated.

    Raises
    ------
    ValueError, TypeError
        As for `add`; for a matrix of another shape.

    Examples
    --------
    >>> colours = np.array([[[10, 20, 30], [200, 100, 0]]], np.uint8)
    >>> kipx.mul_matrix(colours, [[0.299, 0.587, 0.114]])
    array([[[ 18],
            [118]]], dtype=uint8)
    """
    where = "kipx.mul_matrix"
    image = np.asarray(image)
    rows = np.asarray(matrix, np.float64)
    count = channels(image, channel_axis)
    if rows.ndim != 2 or rows.shape[1] != count or not 1 <= rows.shape[0] <= 4:
        raise ValueError(f"{where}: matrix is {told(rows)}; expected 1 to 4 rows of {count} numbers, one for "
                         "each channel of image")
    added = ffi.NULL
    if addends is not None:
        numbers = np.asarray(addends, np.float64)
        if numbers.shape != rows.shape[:1]:
            raise ValueError(f"{where}: addends is {told(numbers)}; expected {rows.shape[0]} numbers")
        added = ffi.new("double[]", numbers.tolist())
    if image.ndim < 3 or channel_axis is None:
        image, axis = image[..., np.newaxis], -1
    else:
        axis = channel_axis
    image = crop(where, image, roi, axis)
    shape = list(image.shape)
    shape[axis] = rows.shape[0]
    window = None if out is None else crop(where, out, roi, axis)
    result = each(where, lib.KipxMulMV_n, [("image", image)], nulls=0, shape=tuple(shape), axis=axis,
                  tail=(ffi.new("double[]", rows.ravel().tolist()), added, ffi.NULL, ffi.NULL,
                        whole(where, "scale", scale, -31, 63), 0),
                  dtype=_goal(dtype, out, image), out=window)
    return result if out is None else out


def _matrices(where: str, c: Any, left: Any, right: Any, per_right: int, scale: int, last: int,
              dtype: Optional[DTypeLike], out: Optional[Image]) -> Image:
    left, right = np.asarray(left), np.asarray(right)
    size = right.shape[-1] if right.ndim == 3 else 0
    shape = right.shape
    if (left.ndim != 3 or not 1 <= size <= 4 or left.shape[-1] != size or right.shape[1] % per_right
            or left.shape[0] != shape[0] or left.shape[1] * per_right != shape[1] * size):
        raise ValueError(f"{where}: a is {told(left)} and b is {told(right)}; expected matrices of n x n as n "
                         "pixels of n channels, n from 1 to 4")
    return each(where, c, [("a", left), ("b", right)], nulls=3, shape=shape, out=out,
                tail=(whole(where, "scale", scale, -31, 63), last), dtype=_goal(dtype, out, left, right))


def mulmm(a: Any, b: Any, *, scale: int = 0, dtype: Optional[DTypeLike] = None,
          out: Optional[Image] = None) -> Image:
    """Matrix times matrix at every place: n x n matrices are n pixels side by side with n channels.

    Parameters
    ----------
    a, b : ndarray, shape (rows, columns, n)
        n from 1 to 4, columns a multiple of n.
    scale, dtype, out
        As for `add`.

    Returns
    -------
    ndarray, shape (rows, columns, n)

    Raises
    ------
    ValueError, TypeError
        As for `add`.

    Examples
    --------
    >>> turn = np.array([[[0, 1], [1, 0]]], np.int32)
    >>> kipx.mulmm(turn, np.array([[[1, 2], [3, 4]]], np.int32))
    array([[[3, 4],
            [1, 2]]], dtype=int32)
    """
    size = np.asarray(b).shape[-1] if np.asarray(b).ndim else 1
    return _matrices("kipx.mulmm", lib.KipxMulMM, a, b, max(size, 1), scale, 0, dtype, out)


def mulmv(a: Any, b: Any, *, scale: int = 0, dtype: Optional[DTypeLike] = None,
          out: Optional[Image] = None) -> Image:
    """The matrix at every place times the vector there.

    Parameters
    ----------
    a : ndarray, shape (rows, n * columns, n)
        n x n matrices, n pixels side by side each.
    b : ndarray, shape (rows, columns, n)
        Vectors: the channels of a pixel.
    scale, dtype, out
        As for `add`.

    Returns
    -------
    ndarray, shape (rows, columns, n)

    Raises
    ------
    ValueError, TypeError
        As for `add`.

    Examples
    --------
    >>> turn = np.array([[[0, 1], [1, 0]]], np.int32)
    >>> kipx.mulmv(turn, np.array([[[7, 8]]], np.int32))
    array([[[8, 7]]], dtype=int32)
    """
    return _matrices("kipx.mulmv", lib.KipxMulMV, a, b, 1, scale, 0, dtype, out)
