"""Kipx on Dask arrays, and its batch of stable regions on Dask workers.

Gives    the functions of `kipx` that work element by element or on neighbourhoods, under the same names and
         with the same arguments but for `out`, `mask` and `roi`; `mser_files`, the program's batch.
Promises the same bits as on the whole array, for every chunking: a block is given exactly the rows and
         columns around it that its window reaches. Channels are never split. What could differ in a last
         bit, the mean of floating elements, whose sums are rounded in groups of rows, is refused.

>>> import dask.array, kipx.dask
>>> image = dask.array.arange(48, dtype="u1").reshape(6, 8).rechunk((4, 5))
>>> kipx.dask.opening(kipx.dask.add(image, 3), np.ones((3, 3))).compute()[2:4, :3]
array([[19, 20, 21],
       [27, 28, 29]], dtype=uint8)
"""
from __future__ import annotations

import importlib
import inspect
import os
import shutil
import subprocess
from collections.abc import Callable, Iterable, Sequence
from pathlib import Path
from typing import TYPE_CHECKING, Any, NamedTuple, Optional

import numpy as np

import kipx
from kipx._arrays import _axes, told
from kipx._library import ffi, lib
from kipx.filters import _shape, gaussian_size

# Dask has no types to check against.
dask: Any = importlib.import_module("dask")
da: Any = importlib.import_module("dask.array")

POINTWISE = ("add", "addq", "addsq", "sub", "subq", "subsq", "rsub", "rsubq", "rsubsq", "mul", "div", "divr",
             "rdiv", "rdivr", "bitwise_and", "bitwise_or", "bitwise_xor", "bitwise_not", "muladd", "mulsub",
             "mulrsub", "negate", "negateq", "exp", "ln", "sigmoid", "compare", "convert")
#: How often the window is applied, one time behind the other.
NEIGHBOURHOODS = {"erode": 1, "dilate": 1, "opening": 2, "closing": 2, "white_tophat": 2, "black_tophat": 2,
                  "morphological_gradient": 1, "minimum_filter": 1, "maximum_filter": 1, "uniform_filter": 1,
                  "gaussian": 1, "sepfilter": 1, "firefly": 1}
__all__ = [*POINTWISE, *NEIGHBOURHOODS, "threshold", "threshold_otsu", "mser_files", "Batched"]


def _check(where: str, image: Any, axis: Optional[int], options: dict[str, Any]) -> tuple[Any, list[int]]:
    """The array with its channels in one chunk, and its spatial axes."""
    if not isinstance(image, da.Array):
        raise TypeError(f"{where}: image is {told(image)}; expected a dask.array.Array")
    refused = [name for name in ("out", "mask", "roi") if options.get(name) is not None]
    if refused:
        raise TypeError(f"{where}: {refused[0]} is given; expected none for Dask arrays: slice the result, or use "
                        "dask.array.where")
    spatial, channel = _axes(image.shape, axis)
    return (image if channel is None else image.rechunk({channel: -1})), spatial


def _sample(array: Any) -> Any:
    """A little array of its dtype and channels, without a zero."""
    return np.ones([min(n, 4) for n in array.shape], array.dtype)


def _pointwise(name: str) -> Callable[..., Any]:
    function, where = getattr(kipx, name), f"kipx.dask.{name}"

    def wrapper(*operands: Any, channel_axis: Optional[int] = -1, **options: Any) -> Any:
        lead = next((one for one in operands if isinstance(one, da.Array)), None)
        lead, _ = _check(where, lead, channel_axis, options)
        given = []
        for one in operands:
            if isinstance(one, da.Array):
                one = _check(where, one, channel_axis, {})[0]
            elif isinstance(one, np.ndarray):
                one = one.tolist() if one.ndim < 2 else da.from_array(one, lead.chunks)
            if isinstance(one, da.Array) and one.shape != lead.shape:
                raise ValueError(f"{where}: an operand has shape {one.shape}; expected {lead.shape}")
            given.append(one.rechunk(lead.chunks) if isinstance(one, da.Array) else one)
        options["channel_axis"] = channel_axis
        sample = function(*(_sample(one) if isinstance(one, da.Array) else one for one in given), **options)
        return da.map_blocks(function, *given, dtype=sample.dtype, meta=sample[:0], **options)

    return _named(wrapper, name)


def _window(where: str, name: str, options: dict[str, Any]) -> Any:
    """The rectangle that one application looks at."""
    if name == "gaussian" and options["size"] is None:
        size: Any = gaussian_size(where, options["sigma"], options["truncate"])
    elif name == "sepfilter":
        size = np.size(options["rows"]), np.size(options["columns"])
    elif "footprint" in options:
        size = (3, 3) if options["footprint"] is None else np.shape(options["footprint"])
    else:
        size = options["size"]
    return _shape(where, size, options["anchor"])


def _around(function: Callable[..., Any], image: Any, spatial: Sequence[int], before: Sequence[int],
            after: Sequence[int], periodic: bool, **options: Any) -> Any:
    """map_overlap by exactly these rows and columns; where the array goes round, by the larger of the two."""
    depth: dict[int, Any] = dict.fromkeys(range(image.ndim), 0)
    for axis, low, high in zip(spatial[-2:], before, after):
        depth[axis] = max(low, high) if periodic else (low, high)
        if periodic and depth[axis] > image.shape[axis]:
            image = image.rechunk({axis: -1})
            depth[axis] = 0
    boundary = {axis: "periodic" if periodic and depth[axis] else "none" for axis in depth}
    sample = function(_sample(image), **options)
    return da.map_overlap(function, image, depth=depth, boundary=boundary, dtype=sample.dtype, meta=sample[:0],
                          **options)


def _neighbourhood(name: str, times: int) -> Callable[..., Any]:
    function, where = getattr(kipx, name), f"kipx.dask.{name}"
    signature = inspect.signature(function)

    def wrapper(image: Any, *arguments: Any, channel_axis: Optional[int] = -1, **options: Any) -> Any:
        image, spatial = _check(where, image, channel_axis, options)
        bound = signature.bind(image, *arguments, channel_axis=channel_axis, **options)
        bound.apply_defaults()
        told_all = dict(bound.arguments)
        if name == "uniform_filter" and image.dtype.kind == "f":
            raise TypeError(f"{where}: image is of {image.dtype}; expected integers: the last bit of a mean of "
                            "floating elements depends on where a block begins")
        shape = _window(where, name, told_all)
        before = [times * shape.anchor[k] for k in (1, 2)]
        after = [times * (shape.volume[k] - 1 - shape.anchor[k]) for k in (1, 2)]
        del told_all["image"]
        return _around(function, image, spatial, before, after, told_all.get("mode") == "wrap", **told_all)

    return _named(wrapper, name)


def _named(wrapper: Callable[..., Any], name: str) -> Callable[..., Any]:
    wrapper.__name__ = wrapper.__qualname__ = name
    wrapper.__doc__ = f"""`kipx.{name}` of Dask arrays, block by block.

    Parameters
    ----------
    As of `kipx.{name}`, arrays being Dask's; `out`, `mask` and `roi` are not taken.

    Returns
    -------
    dask.array.Array
        The same bits as `kipx.{name}` of the whole arrays.
    """
    return wrapper


if TYPE_CHECKING:  # the functions are rows of two tables
    def __getattr__(name: str) -> Callable[..., Any]: ...

globals().update({name: _pointwise(name) for name in POINTWISE})
globals().update({name: _neighbourhood(name, times) for name, times in NEIGHBOURHOODS.items()})


def _counts(block: Any, nbins: int, low: float, high: float, axis: Optional[int]) -> Any:
    """A block's histogram, of all channels or of the one, as an array of as many axes as the block."""
    counts, _ = kipx.histogram(block, nbins, (low, high), channel_axis=axis)
    return np.atleast_2d(counts).astype(np.int64)[(np.newaxis,) * (block.ndim - 1)]


def _otsu(counts: Any, low: float, high: float) -> list[float]:
    """The threshold of each histogram, by the library's own search."""
    rows = np.ascontiguousarray(counts.reshape(-1, *counts.shape[-2:]).sum(0), np.uint32)
    found = []
    for row in rows:
        record = ffi.new("kipx_histogram *")
        bins = ffi.from_buffer("uint32_t[]", row)
        integers = high - low + 1 == len(row)
        record.low, record.width = low, 1.0 if integers else (high - low) / len(row)
        record.total, record.bins, record.counts = int(row.sum()), len(row), bins
        found.append(lib.kipxa_calculate_threshold_otsu_f(record))
    return found


def _delayed_otsu(where: str, image: Any, axis: Optional[int]) -> Any:
    image, _ = _check(where, image, axis, {})
    if image.dtype not in (np.uint8, np.int16, np.int32):
        raise TypeError(f"{where}: image is of {image.dtype}; expected uint8, int16 or int32")
    if image.size >= 2**31:
        raise ValueError(f"{where}: image has {image.size} elements; expected fewer than 2**31")
    _, channel = _axes(image.shape, axis)
    count = 1 if channel is None else image.shape[channel]
    chunks = tuple((1,) * n for n in image.numblocks[:-1])
    counts = da.map_blocks(_counts, image, 256, 0.0, 255.0, axis, dtype=np.int64,
                           chunks=(*chunks, (count,) * image.numblocks[-1], (256,)), new_axis=image.ndim)
    blocks = counts.to_delayed().ravel().tolist()
    total = dask.delayed(lambda parts: np.sum([part.reshape(count, 256) for part in parts], axis=0))(blocks)
    return dask.delayed(_otsu)(total, 0.0, 255.0)


def threshold_otsu(image: Any, *, channel_axis: Optional[int] = -1) -> Any:
    """`kipx.threshold_otsu` of a Dask array of uint8, int16 or int32, computed when it is asked for.

    Parameters
    ----------
    image : dask.array.Array
    channel_axis : int or None, default -1

    Returns
    -------
    dask.delayed.Delayed
        A list of one threshold for each channel.
    """
    return _delayed_otsu("kipx.dask.threshold_otsu", image, channel_axis)


def _apply(block: Any, value: Any, **options: Any) -> Any:
    return kipx.threshold(block, value, **options)


def threshold(image: Any, value: Any = None, *, method: Optional[str] = None, size: Any = 15,
              channel_axis: Optional[int] = -1, **options: Any) -> Any:
    """`kipx.threshold` of a Dask array; Otsu's threshold is found over all blocks first.

    Parameters
    ----------
    image : dask.array.Array
    value, method, size, channel_axis, **options
        As of `kipx.threshold`; `out` and `roi` are not taken.

    Returns
    -------
    dask.array.Array
        The same bits as `kipx.threshold` of the whole array.
    """
    where = "kipx.dask.threshold"
    image, spatial = _check(where, image, channel_axis, options)
    options["channel_axis"] = channel_axis
    if value is None and method == "mean":
        shape = _shape(where, size, None)
        before = [(shape.volume[k] - 1) // 2 for k in (1, 2)]
        after = [shape.volume[k] // 2 for k in (1, 2)]
        return _around(kipx.threshold, image, spatial, before, after, False, method=method, size=size, **options)
    if value is None:
        if method == "usto":
            turned = {">": "<=", ">=": "<", "<": ">=", "<=": ">"}
            options["op"] = turned[options.get("op", ">")]
        value = _delayed_otsu(where, image, channel_axis)
        sample = kipx.threshold(_sample(image), 0, **options)
    else:
        value = value.tolist() if isinstance(value, np.ndarray) else value
        sample = kipx.threshold(_sample(image), value, method=method, **options)
    return da.map_blocks(_apply, image, value=value, dtype=sample.dtype, meta=sample[:0], **options)


class Batched(NamedTuple):
    """What became of one image: an empty message, or the sentence that refuses it."""

    path: str
    message: str


def _program() -> str:
    build = Path(__file__).resolve().parent.parent.parent / "build" / "release" / "bin" / "kipx"
    places = [os.environ.get("KIPX_PROGRAM"), str(build), shutil.which("kipx")]
    for place in places:
        if place and os.access(place, os.X_OK):
            return place
    raise FileNotFoundError("kipx.dask.mser_files: looked for the program kipx where KIPX_PROGRAM says, as "
                            f"{build} and on PATH; expected it to be there")


def _run(paths: Sequence[str], folder: str, options: Sequence[str]) -> str:
    ran = subprocess.run([_program(), "mser", *paths, "-o", folder, "--resume", *options],
                         capture_output=True, text=True)
    return ran.stderr.strip() if ran.returncode else ""


def mser_files(paths: Iterable[Any], folder: Any, *, client: Any = None, options: Sequence[str] = ()
               ) -> list[Batched]:
    """Stable regions of many images on a cluster: the files that ``kipx mser PATHS -o FOLDER`` writes.

    Every image is a task for a worker, which runs the program on it; then the program looks at all of them
    once, finds them done, and writes the summary. What a call that was stopped has finished is not done
    again.

    Parameters
    ----------
    paths : iterable of paths
        Images whose names, without folder and ending, differ. All workers see them and the folder.
    folder : path
        Where the results go.
    client : dask.distributed.Client, optional
        By default Dask's own choice.
    options : sequence of str
        Of ``kipx mser``, such as ``("--polarity", "dark")``.

    Returns
    -------
    list of Batched
        In the order given.

    Raises
    ------
    ValueError
        For no images, or names that are alike.
    FileNotFoundError
        Where the program is not.
    RuntimeError
        When the program fails for another reason than its images.
    """
    images = [os.path.abspath(os.fspath(path)) for path in paths]
    stems = [os.path.splitext(os.path.basename(path))[0] for path in images]
    alike = sorted({stem for stem in stems if stems.count(stem) > 1})
    if not images or alike:
        raise ValueError(f"kipx.dask.mser_files: paths are {len(images)} images"
                         + (f", of which several are named {alike[0]}" if alike else "")
                         + "; expected one or more, of different names")
    _program()
    target = os.path.abspath(os.fspath(folder))
    tasks = [dask.delayed(_run, pure=False)([path], target, tuple(options)) for path in images]
    messages = dask.compute(*tasks, scheduler=client)
    last = _run(images, target, options)
    if last and not any(messages):
        raise RuntimeError(f"kipx.dask.mser_files: {last}")
    return [Batched(path, message) for path, message in zip(images, messages)]
