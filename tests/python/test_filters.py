"""Filters and morphology against SciPy, thresholds against scikit-image."""
import kipx
import numpy as np
import pytest
import scipy.ndimage as ndi
from hypothesis import given, strategies as st
from skimage.filters import threshold_otsu

import layouts

try:
    import cv2
except ImportError:
    cv2 = None

BORDERS = {"nearest": "nearest", "constant": "constant", "wrap": "wrap", "symmetric": "reflect",
           "reflect": "mirror"}  # kipx, SciPy


def channelwise(function, image, axis):
    if image.ndim == 2:
        return function(image)
    return np.stack([function(plane) for plane in np.moveaxis(image, axis, 0)], axis)


@given(st.data())
def test_morphology(data):
    draw = data.draw
    dtype = draw(st.sampled_from(("u1", "i2", "i4", "f4")))
    image, axis, _ = layouts.lay(draw, layouts.numbers(draw, dtype, draw(layouts.shapes((None, 1, 3, 4)))))
    footprint = np.array(draw(st.lists(st.lists(st.booleans(), min_size=3, max_size=3), min_size=2, max_size=3)))
    footprint[1, 1] = True
    ends = np.finfo(dtype) if dtype == "f4" else np.iinfo(dtype)

    def scan(function, outside):
        return lambda plane: function(plane, footprint=footprint, mode="constant", cval=outside)

    low = channelwise(scan(ndi.minimum_filter, ends.max), image, axis)
    high = channelwise(scan(ndi.maximum_filter, ends.min), image, axis)
    np.testing.assert_array_equal(kipx.erode(image, footprint, channel_axis=axis), low)
    np.testing.assert_array_equal(kipx.dilate(image, footprint, channel_axis=axis), high)
    opened = channelwise(scan(ndi.maximum_filter, ends.min), low, axis)
    closed = channelwise(scan(ndi.minimum_filter, ends.max), high, axis)
    np.testing.assert_array_equal(kipx.opening(image, footprint, channel_axis=axis), opened)
    np.testing.assert_array_equal(kipx.closing(image, footprint, channel_axis=axis), closed)
    if dtype != "f4" and footprint.size != footprint.sum():
        def less(a, b):
            return np.clip(a.astype("i8") - b, ends.min, ends.max)
        for function, first, second in ((kipx.white_tophat, image, opened), (kipx.black_tophat, closed, image),
                                        (kipx.morphological_gradient, high, low)):
            np.testing.assert_array_equal(function(image, footprint, channel_axis=axis), less(first, second))


@pytest.mark.parametrize("mode", BORDERS)
@given(st.data())
def test_rectangles_and_weights(mode, data):
    draw = data.draw
    image, axis, _ = layouts.lay(draw, layouts.numbers(draw, "i2", draw(layouts.shapes())) // 4)
    size = draw(st.integers(1, 5)), draw(st.integers(1, 5))
    wide = image.astype("f8")

    def box(plane):
        return ndi.correlate(plane, np.ones(size) / np.prod(size), mode=BORDERS[mode])
    found = kipx.uniform_filter(image, size, mode=mode, channel_axis=axis)
    assert np.abs(found - channelwise(box, wide, axis)).max() <= 0.5 + 1e-6
    rows, columns = [1, -2, 0.5], [0.25, 3, 1]

    def weighted(plane):
        return ndi.correlate1d(ndi.correlate1d(plane, columns, 1, mode=BORDERS[mode]), rows, 0,
                               mode=BORDERS[mode])
    flat = kipx.sepfilter(wide.astype("f4"), rows, columns, mode=mode, channel_axis=axis)
    np.testing.assert_allclose(flat, channelwise(weighted, wide, axis), rtol=1e-4, atol=0.5)

    def soft(plane):
        return ndi.gaussian_filter(plane, (1.2, 0.7), truncate=3, mode=BORDERS[mode])
    found = kipx.gaussian(wide.astype("f4"), (1.2, 0.7), truncate=3, mode=mode, channel_axis=axis)
    np.testing.assert_allclose(found, channelwise(soft, wide, axis), rtol=1e-4, atol=0.1)


@given(st.data())
def test_regions_masks_and_places(data):
    """A filter in a region, or under a mask, gives the whole image's result there, and nothing elsewhere."""
    draw = data.draw
    image = layouts.numbers(draw, "u1", (9, 8, 3))
    top, left = draw(st.integers(0, 6)), draw(st.integers(0, 5))
    roi = np.s_[top:top + draw(st.integers(1, 3)), left:left + draw(st.integers(1, 3))]
    mask = np.resize([1, 0, 0], (9, 8)).astype(bool)
    inside = np.zeros(image.shape, bool)
    inside[roi] = True
    for name, function in (("erode", kipx.erode), ("uniform", kipx.uniform_filter), ("gaussian", kipx.gaussian),
                           ("firefly", kipx.firefly)):
        full = function(image)
        np.testing.assert_array_equal(function(image, roi=roi), full[roi], name)
        np.testing.assert_array_equal(function(image, roi=roi, mask=mask, out=image.copy()),
                                      np.where(inside & mask[..., None], full, image), name)
        in_place = image.copy()
        function(in_place, out=in_place)
        np.testing.assert_array_equal(in_place, full, name)
        planes = function(np.moveaxis(image, -1, 0), channel_axis=None)
        np.testing.assert_array_equal(np.moveaxis(planes, 0, -1), full, name)


def test_otsu_splits_as_peers_do():
    """The same lower class. Its last value, or its last bin's centre, is what peers call the threshold; here
    it is that bin's upper edge, less 2^-23."""
    random = np.random.default_rng(8)
    for turn in range(20):
        low, high = random.normal(80, 5 + turn, 3000), random.normal(170, 20, 900 + 99 * turn)
        image = np.concatenate([low, high]).clip(0, 255).astype(np.uint8)[None]
        found = kipx.threshold_otsu(image)
        assert found == threshold_otsu(image) + 1 - 2.0**-23
        np.testing.assert_array_equal(kipx.threshold(image) == 255, image > threshold_otsu(image))
        floats = np.concatenate([low, high]).astype(np.float32)[None]
        ends = float(floats.min()), float(floats.max())
        half = (ends[1] - ends[0]) / 256 / 2
        assert abs(kipx.threshold_otsu(floats, range=ends, nbins=256) - threshold_otsu(floats) - half) < 1e-4
        if cv2 is not None:
            assert np.floor(found) == cv2.threshold(image, 0, 255, cv2.THRESH_OTSU)[0]


def test_thresholds():
    random = np.random.default_rng(7)
    image = np.concatenate([random.normal(80, 15, 3000), random.normal(170, 20, 2000)]).clip(0, 255)
    image = image.astype(np.uint8).reshape(50, 100)
    np.testing.assert_array_equal(kipx.threshold(image, method="usto"), 255 - kipx.threshold(image))
    mean = ndi.uniform_filter(image[7:-7, 7:-7].astype(float), 15)[7:-7, 7:-7]
    inner = kipx.threshold(image[7:-7, 7:-7], method="mean", size=15)[7:-7, 7:-7]
    sure = np.abs(image[14:-14, 14:-14] - mean) > 1e-6
    np.testing.assert_array_equal((inner == 255)[sure], (image[14:-14, 14:-14] > mean)[sure])
    night = np.zeros((5, 5), np.uint8)
    night[2, 2], night[0, 0] = 200, 7
    np.testing.assert_array_equal(kipx.firefly(night, 10), np.where(night == 200, 0, night))
