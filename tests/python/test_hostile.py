"""Whatever is passed, an exception with a sentence comes back, and nothing has been written."""
import kipx
import numpy as np
import pytest
from hypothesis import given, strategies as st

from kipx import arithmetic

GREY = np.full((4, 5), 3, np.uint8)
FAR = np.lib.stride_tricks.as_strided(GREY, (2, 2), (2**33, 1))

CASES = [  # call, exception, what the sentence holds
    (lambda: kipx.add(GREY, GREY[:2]), ValueError, "kipx.add: b is an array of uint8, shape (2, 5); expected"),
    (lambda: kipx.add(GREY.astype("f2"), 1), TypeError, "a is an array of float16"),
    (lambda: kipx.add(GREY.astype("u2"), 1), TypeError, "one of uint8, int16, int32, float32"),
    (lambda: kipx.erode(GREY.astype("u4")), TypeError, "one of uint8, int16, int32, float32"),
    (lambda: kipx.white_tophat(GREY.astype("f4")), TypeError, "one of uint8, int16, int32"),
    (lambda: kipx.add(object(), object()), TypeError, "expected"),
    (lambda: kipx.add(3, 4), TypeError, "expected an array"),
    (lambda: kipx.add(GREY, "x"), TypeError, "b is str 'x'"),
    (lambda: kipx.add(GREY, [1, 2]), ValueError, "1 channels"),
    (lambda: kipx.add(GREY, 1, scale=99), ValueError, "expected -31 to 63"),
    (lambda: kipx.add(GREY, 1, scale=0.5), TypeError, "whole number"),
    (lambda: kipx.add(GREY, 1, out=[1]), TypeError, "out is list"),
    (lambda: kipx.add(GREY, 1, out=np.broadcast_to(GREY[0], (4, 5))), ValueError, "read-only"),
    (lambda: kipx.add(GREY, 1, out=np.zeros((4, 5), "c8")), TypeError, "out is an array of complex64"),
    (lambda: kipx.add(GREY, 1, roi=3), TypeError, "numpy.s_"),
    (lambda: kipx.add(GREY, 1, roi=np.s_[9:, :]), ValueError, "4 rows and 5 columns"),
    (lambda: kipx.add(GREY, 1, roi=np.s_[::2, :]), ValueError, "without a step"),
    (lambda: kipx.add(np.zeros((4, 5, 9), "u1"), 1), ValueError, "1 to 4 channels"),
    (lambda: kipx.add(np.zeros((4, 5, 3), "u1"), 1, channel_axis=7), ValueError, "channel_axis is 7"),
    (lambda: kipx.add(np.zeros((0, 5), "u1"), 1), ValueError, "at least one element"),
    (lambda: kipx.add(np.zeros((2,) * 6, "u1"), 1), ValueError, "expected rows and columns"),
    (lambda: kipx.add(GREY, np.zeros((1,) * 5, "u1")), ValueError, "expected rows and columns"),
    (lambda: kipx.mean(FAR), ValueError, "4 GiB"),
    (lambda: kipx.div(GREY, 0), ValueError, "holds a zero"),
    (lambda: kipx.div(7, GREY - 3), ValueError, "b holds a zero"),
    (lambda: kipx.rdiv(GREY - 3, GREY), ValueError, "a holds a zero"),
    (lambda: kipx.muladd(GREY, GREY, 5), TypeError, "expected an array for a"),
    (lambda: kipx.compare(GREY, 1, "~"), ValueError, "op is str '~'; expected one of ==,"),
    (lambda: kipx.compare(GREY, 1, if_true=5), ValueError, "expected both"),
    (lambda: kipx.threshold(GREY, 1, method="otsu"), ValueError, "one of the two"),
    (lambda: kipx.threshold(GREY, method="mean", size=(2**20, 2**20)), ValueError, "kipx.threshold"),
    (lambda: kipx.threshold_otsu(GREY, range=(np.nan, np.nan), nbins=2**40), ValueError, "nbins"),
    (lambda: kipx.convert(GREY), TypeError, "dtype is None"),
    (lambda: kipx.pad(GREY, -1), ValueError, "pad_width"),
    (lambda: kipx.pad(GREY, 2**29), (MemoryError, ValueError), ""),
    (lambda: kipx.pad(GREY, 1, "round"), ValueError, "mode"),
    (lambda: kipx.resize(GREY, (0, 1)), ValueError, "output_shape"),
    (lambda: kipx.erode(GREY, np.ones((3, 3, 3))), ValueError, "footprint"),
    (lambda: kipx.erode(GREY, anchor=(3, 0)), ValueError, "inside 3 x 3"),
    (lambda: kipx.erode(GREY, mask=GREY), ValueError, "out is None"),
    (lambda: kipx.erode(GREY, mask=GREY[1:], out=GREY.copy()), ValueError, "mask is an array"),
    (lambda: kipx.gaussian(GREY, -1), ValueError, "positive"),
    (lambda: kipx.gaussian(GREY, np.nan), ValueError, "positive"),
    (lambda: kipx.uniform_filter(GREY, 2**31), ValueError, "size"),
    (lambda: kipx.sepfilter(GREY, [], [1]), ValueError, "rows"),
    (lambda: kipx.firefly(GREY, -1), ValueError, "kipx.firefly"),
    (lambda: kipx.firefly(GREY, None, None), ValueError, "kipx.firefly"),
    (lambda: kipx.histogram(GREY, 4, (5, 1)), ValueError, "range"),
    (lambda: kipx.minmax(GREY, mask=np.zeros((4, 5), bool)), ValueError, "kipx.minmax"),
    (lambda: kipx.mul_matrix(GREY, [[1, 2]]), ValueError, "matrix"),
    (lambda: kipx.mulmm(GREY, GREY), ValueError, "n x n"),
    (lambda: kipx.set_simd("fast"), ValueError, "off, best"),
]


@pytest.mark.parametrize("case", CASES, ids=lambda case: case[2][:40])
def test_refused(case):
    call, kinds, words = case
    with pytest.raises(kinds) as caught:
        call()
    assert words in str(caught.value) and "-655" not in str(caught.value)


def test_refused_writes_nothing():
    """Bytes that out and a source share, where out is not the source."""
    room = np.arange(60, dtype=np.uint8).reshape(6, 10)
    before = room.copy()
    with pytest.raises(ValueError, match="out shares memory"):
        kipx.add(room[:, :5], room[:, 5:], out=room[:, 1:6])
    np.testing.assert_array_equal(room, before)
    np.testing.assert_array_equal(kipx.copy(room[:, :5], out=room[:, 1:6]), before[:, :5])  # copies cope


ANYTHING = st.one_of(
    st.none(), st.booleans(), st.integers(-2**70, 2**70), st.floats(), st.text(max_size=3), st.binary(max_size=3),
    st.lists(st.one_of(st.floats(), st.none()), max_size=3), st.just(object), st.just(np.s_[1:2, 1:3]),
    st.builds(lambda shape, dtype: np.zeros(shape, dtype), st.lists(st.integers(0, 4), max_size=4),
              st.sampled_from(("u1", "i2", "i4", "f4", ">i4", "?", "c8", "O", "M8[s]", "V3", "U2"))),
    st.builds(lambda shape: np.broadcast_to(np.uint8(2), shape), st.lists(st.integers(0, 2**9), max_size=3)))
FUNCTIONS = sorted({*arithmetic.__all__, *kipx.filters.__all__, *kipx.values.__all__, *kipx.statistics.__all__})
KEYWORDS = {"scale", "dtype", "out", "roi", "channel_axis", "mask", "size", "anchor", "mode", "op", "if_true"}


@pytest.mark.parametrize("name", FUNCTIONS)
@given(st.data())
def test_anything_is_answered(name, data):
    """No argument ends the process; what is raised is one of the exceptions that Python's callers know."""
    import inspect
    function = getattr(kipx, name)
    image = st.sampled_from((np.full((3, 4), 2, "u1"), np.full((3, 4, 3), 2, "f4"), np.full((2, 2), 5, "i4")))
    known = inspect.signature(function).parameters
    needed = [p for p in known.values() if p.default is p.empty and p.kind is p.POSITIONAL_OR_KEYWORD]
    given_ = [data.draw(st.one_of(image, ANYTHING)) for _ in needed]
    named = {key: data.draw(ANYTHING) for key in data.draw(st.lists(
        st.sampled_from(sorted(KEYWORDS & set(known)) or ["image"]), max_size=2, unique=True)) if key != "image"}
    try:
        function(*given_, **named)
    except (ValueError, TypeError, MemoryError):
        pass
