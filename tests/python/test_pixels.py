"""Element-wise functions against exact models, in every layout, into views, in regions."""
import fractions

import kipx
import numpy as np
import pytest
from hypothesis import given, strategies as st

import layouts
from kipx import arithmetic, values

EXACT = {"add": lambda a, b: a + b, "sub": lambda a, b: a - b, "rsub": lambda a, b: b - a,
         "mul": lambda a, b: a * b, "div": fractions.Fraction, "rdiv": lambda a, b: fractions.Fraction(b, a)}
LOGIC = {"bitwise_and": np.bitwise_and, "bitwise_or": np.bitwise_or, "bitwise_xor": np.bitwise_xor}
INTEGERS = (np.uint8, np.int16, np.int32)


def stored(exact, dtype, how):
    ends = np.iinfo(dtype)
    if how == "wrap":
        return (exact - ends.min) % 2**ends.bits + ends.min
    return min(max(exact, ends.min), ends.max)


def model(name, a, b, dtype):
    """One element, by whole numbers and fractions alone."""
    kind = name.rstrip("qr") if name.startswith(("div", "rdiv")) else name.removesuffix("sq").removesuffix("q")
    exact = EXACT[kind](int(a), int(b))
    if name.endswith("divr"):
        return stored(round(exact), dtype, "saturate")
    return stored(int(exact), dtype, "wrap" if name in ("add", "sub", "rsub") else "saturate")


@pytest.mark.parametrize("name", [row[0] for row in arithmetic._BINARY if not row[0].endswith("sq")])
@given(st.data())
def test_two_operands(name, data):
    draw, dtype = data.draw, np.dtype(data.draw(st.sampled_from(INTEGERS)))
    shape = draw(layouts.shapes())
    a, b = (layouts.numbers(draw, dtype, shape) for _ in "ab")
    if "div" in name:
        a[a == 0] = b[b == 0] = 3
        if name.endswith("r"):  # exact in binary32
            a, b = a % 100 + 1, b % 100 + 1
    given_a, axis, _ = layouts.lay(draw, a)
    given_b = np.moveaxis(b, -1, axis) if b.ndim == 3 else b
    given_b.flags.writeable = False
    expected = np.vectorize(lambda x, y: model(name, x, y, dtype), otypes=[dtype])(given_a, given_b)
    function = getattr(kipx, name)
    np.testing.assert_array_equal(function(given_a, given_b, channel_axis=axis), expected)
    out, _, room = layouts.lay(draw, np.zeros_like(b))
    if out.shape == given_a.shape:
        before = room.copy()
        assert function(given_a, given_b, out=out, channel_axis=axis) is out
        np.testing.assert_array_equal(out, expected)
        out[...] = 0
        np.testing.assert_array_equal(room, before)  # nothing written beside it
    constant = given_b.flat[0]
    np.testing.assert_array_equal(function(given_a, int(constant), channel_axis=axis),
                                  function(given_a, np.full_like(given_b, constant), channel_axis=axis))
    np.testing.assert_array_equal(function(int(constant), given_a, channel_axis=axis),
                                  function(np.full_like(given_a, constant), given_a, channel_axis=axis))


@given(st.data())
def test_regions_planes_and_scale(data):
    draw = data.draw
    a, b = (layouts.numbers(draw, np.uint8, (6, 7, 3)) for _ in "ab")
    top, left = draw(st.integers(0, 4)), draw(st.integers(0, 5))
    roi = np.s_[top:top + 2, left:left + 2]
    expected = np.clip(np.rint((a.astype(int) + b) / 2), 0, 255).astype(np.uint8)
    np.testing.assert_array_equal(kipx.add(a, b, scale=-1, roi=roi), expected[roi])
    out = np.full_like(a, 9)
    kipx.add(a, b, scale=-1, roi=roi, out=out)
    inside = np.zeros(a.shape, bool)
    inside[roi] = True
    np.testing.assert_array_equal(out, np.where(inside, expected, 9))
    stack = kipx.add(a, b, scale=-1, channel_axis=None)  # three planes of 7 x 3
    np.testing.assert_array_equal(stack, expected)


@pytest.mark.parametrize("name", LOGIC)
@pytest.mark.parametrize("dtype", ["u1", "i2", "u4", "i8"])
def test_logic(name, dtype):
    random = np.random.default_rng(4)
    a, b = (random.integers(0, 127, (5, 7, 2)).astype(dtype) for _ in "ab")
    np.testing.assert_array_equal(getattr(kipx, name)(a, b), LOGIC[name](a, b))
    np.testing.assert_array_equal(getattr(kipx, name)(a, [5, 3]), LOGIC[name](a, np.array([5, 3], dtype)))
    np.testing.assert_array_equal(kipx.bitwise_not(a), ~a)


def test_products_and_functions():
    random = np.random.default_rng(5)
    a, b, c = (random.normal(0, 3, (6, 5)).astype(np.float32) for _ in "abc")
    exact = a.astype(float) * b + c
    np.testing.assert_allclose(kipx.muladd(a, b, c), exact, rtol=1e-6)
    np.testing.assert_allclose(kipx.mulsub(a, 2, c), a * 2.0 - c, rtol=1e-5)
    np.testing.assert_allclose(kipx.mulrsub(a, 2, 5), 5 - a * 2.0, rtol=1e-5)
    np.testing.assert_allclose(kipx.exp(a), np.exp(a), rtol=3e-7)
    np.testing.assert_allclose(kipx.ln(np.abs(a)), np.log(np.abs(a)), rtol=3e-7, atol=1e-7)
    np.testing.assert_allclose(kipx.sigmoid(a, 0.5), 1 / (1 + np.exp(-0.5 * a.astype(float))), rtol=3e-7)
    np.testing.assert_array_equal(kipx.negate(a), -a)
    colours = random.normal(0, 3, (4, 5, 3))
    for axis in (-1, 0):
        turned = kipx.mul_matrix(np.moveaxis(colours, -1, axis), [[1, 2, 3], [4, 5, 6]], [7, 8], channel_axis=axis)
        np.testing.assert_allclose(np.moveaxis(turned, axis, -1), colours @ [[1, 4], [2, 5], [3, 6]] + [7, 8])
    blocks = random.normal(0, 3, (2, 4, 3, 3, 3))  # two of rows x columns of 3 x 3 matrices
    flat = blocks.reshape(2, 4, 9, 3)
    np.testing.assert_allclose(kipx.mulmm(flat[0], flat[1]), (blocks[0] @ blocks[1]).reshape(4, 9, 3))
    np.testing.assert_allclose(kipx.mulmv(flat[0], blocks[1][:, :, 0]),
                               np.einsum("rcij,rcj->rci", blocks[0], blocks[1][:, :, 0]))


@pytest.mark.parametrize("op", values.OPERATORS)
@given(st.data())
def test_comparison(op, data):
    import operator
    truth = {"==": operator.eq, "<": operator.lt, "<=": operator.le, ">": operator.gt, ">=": operator.ge,
             "!=": operator.ne}[op]
    draw, dtype = data.draw, data.draw(st.sampled_from(("u1", "i1", "i2", "i4", "f4")))
    shape = draw(layouts.shapes())
    a, axis, _ = layouts.lay(draw, layouts.numbers(draw, dtype, shape))
    b = a[::-1].copy()
    np.testing.assert_array_equal(kipx.compare(a, b, op, channel_axis=axis) == 255, truth(a, b))
    np.testing.assert_array_equal(kipx.compare(a, 3, op, if_true=1, if_false=2, channel_axis=axis),
                                  np.where(truth(a, 3), 1, 2))
    np.testing.assert_array_equal(kipx.count(a, 3, op, channel_axis=axis),
                                  truth(a, 3).sum(axis=tuple(k for k in range(a.ndim) if a.ndim == 2
                                                             or k != axis % a.ndim)))
    if op[0] in "<>":
        np.testing.assert_array_equal(kipx.threshold(a, 2.5, op=op, channel_axis=axis) == 255, truth(a, 2.5))


@given(st.data())
def test_conversion_and_copies(data):
    draw = data.draw
    kinds = ("u1", "u2", "u4", "i1", "i2", "i4", "f4", "f8")
    a, axis, _ = layouts.lay(draw, layouts.numbers(draw, draw(st.sampled_from(kinds)), draw(layouts.shapes())))
    for kind in kinds:
        expected = a.astype("f8") * 0.5 + 1
        if kind[0] != "f":
            expected = np.clip(np.rint(expected), np.iinfo(kind).min, np.iinfo(kind).max)
        np.testing.assert_array_equal(kipx.convert(a, kind, scale=0.5, shift=1, channel_axis=axis),
                                      expected.astype(kind))
    mask = np.resize([True, False, True], a.shape)
    out = kipx.copy(a, mask=mask, out=np.zeros_like(a), channel_axis=axis)
    np.testing.assert_array_equal(out, np.where(mask, a, 0))
    np.testing.assert_array_equal(kipx.fill(out, 4, mask=~mask, channel_axis=axis), np.where(mask, a, 4))
    for mode in ("constant", "edge", "wrap", "symmetric", "reflect"):
        widths = np.array([(2, 3), (0, 4)] + [(0, 0)] * (a.ndim - 2))
        if a.ndim == 3:
            widths = np.insert(widths[:2], axis % 3, 0, axis=0)
        if mode == "reflect" and 1 in a.shape:
            continue  # numpy.pad repeats, which is no reflection
        np.testing.assert_array_equal(kipx.pad(a, ((2, 3), (0, 4)), mode, channel_axis=axis),
                                      np.pad(a, widths, mode))
    size = draw(st.integers(1, 12)), draw(st.integers(1, 12))
    flat = a if a.ndim == 2 else np.moveaxis(a, axis, -1)
    rows, columns = ((2 * np.arange(n) + 1) * old // (2 * n) for n, old in zip(size, flat.shape))
    np.testing.assert_array_equal(kipx.resize(flat, size), flat[rows][:, columns])


@given(st.data())
def test_statistics(data):
    draw = data.draw
    a = layouts.numbers(draw, draw(st.sampled_from(("u1", "i2", "i4", "f4"))), draw(layouts.shapes()))
    mask = np.ones(a.shape, np.uint8)
    mask.flat[1::3] = 0
    view, axis, _ = layouts.lay(draw, a)
    turned = np.moveaxis(mask, -1, axis) if a.ndim == 3 else mask
    per = [(a, mask)] if a.ndim == 2 else [(a[..., k], mask[..., k]) for k in range(a.shape[2])]
    kept = [channel[m != 0].astype("f8") for channel, m in per]
    if all(channel.size for channel in kept):
        lows, highs = kipx.minmax(view, mask=turned, channel_axis=axis)
        means, deviations = kipx.mean_std(view, mask=turned, channel_axis=axis)
        sums = kipx.sum(view, mask=turned, channel_axis=axis)
        for k, channel in enumerate(kept):
            found = [np.ravel(x)[k] for x in (lows, highs, means, deviations, sums)]
            wanted = channel.min(), channel.max(), channel.mean(), channel.std(), channel.sum()
            np.testing.assert_allclose(found, wanted, rtol=1e-6, atol=1e-3 * (a.dtype.kind == "f") + 1e-9)
    counts, edges = kipx.histogram(view, 8, (-16, 16), mask=turned, channel_axis=axis)
    for k, channel in enumerate(kept):
        np.testing.assert_array_equal(np.atleast_2d(counts)[k], np.histogram(channel, 8, (-16, 16))[0])
