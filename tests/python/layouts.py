"""Arrays as callers have them: cut out of larger ones, reversed, turned, channels anywhere, read-only."""
import numpy as np
from hypothesis import strategies as st


@st.composite
def shapes(draw, channels=(None, 1, 2, 3, 4)):
    return draw(st.integers(1, 9)), draw(st.integers(1, 9)), draw(st.sampled_from(channels))


def lay(draw, pixels):
    """The pixels (rows, columns, or with channels last) again, in another layout, and channel_axis."""
    axis = -1
    if pixels.ndim == 3:
        axis = draw(st.sampled_from((-1, 0, 1, 2)))
        pixels = np.moveaxis(pixels, -1, axis)
    steps = [draw(st.sampled_from((1, 1, 2, -1, -2))) for _ in pixels.shape]
    order = draw(st.sampled_from("CF"))
    room = np.full([abs(s) * n + 2 for s, n in zip(steps, pixels.shape)], 77, pixels.dtype, order=order)
    view = room[tuple(slice(1, 1 + abs(s) * n, abs(s)) for s, n in zip(steps, pixels.shape))]
    view = view[tuple(slice(None, None, 1 if s > 0 else -1) for s in steps)]
    view[...] = pixels
    return view, axis, room


def numbers(draw, dtype, shape):
    """Elements of a dtype, its ends among them."""
    height, width, channels = shape
    full = (height, width) if channels is None else (height, width, channels)
    seed = np.random.default_rng(draw(st.integers(0, 2**32 - 1)))
    if np.dtype(dtype).kind == "f":
        return seed.normal(0, 100, full).astype(dtype)
    ends = np.iinfo(dtype)
    wide = draw(st.booleans())
    low, high = (ends.min, ends.max) if wide else (max(ends.min, -9), 9)
    return seed.integers(low, high, full, dtype, endpoint=True)
