"""What the commands that look at neighbours make of their options, beside SciPy where that is installed."""

import unittest

import numpy as np

from support import ProgramCase, as_type, blobs, type_of

try:
    from scipy import ndimage
except ImportError:
    ndimage = None


def windows(image, height, width, row, column, outside):
    """Every pixel's neighbours, along a new last axis."""
    padded = np.pad(image.astype("f8"), ((row, height - 1 - row), (column, width - 1 - column)), **outside)
    seen = np.lib.stride_tricks.sliding_window_view(padded, (height, width))
    return seen.reshape(*image.shape, height * width)


def least(image, height, width, row, column):
    return windows(image, height, width, row, column, {"constant_values": np.inf}).min(-1)


def most(image, height, width, row, column):
    return windows(image, height, width, row, column, {"constant_values": -np.inf}).max(-1)


class Filters(ProgramCase):
    def made(self, command, image, *options, says=()):
        self.put("in.npy", image)
        told = self.works(command, "in.npy", "-o", "out.npy", *options)
        for part in says:
            self.assertIn(part, told)
        return self.picture("out.npy")

    def test_kinds(self):
        image, place = blobs(1), (3, 4, 1, 2)
        low, high = least(image, *place), most(image, *place)
        opened, closed = most(low, *place), least(high, *place)
        mean = np.rint(windows(image, *place, {"mode": "edge"}).mean(-1))
        wanted = {"min": low, "max": high, "box": mean, "open": opened, "close": closed,
                  "tophat": (image - opened).clip(0), "bothat": (closed - image).clip(0)}
        for kind, values in wanted.items():
            with self.subTest(kind=kind):
                got = self.made("filter", image, "--kind", kind, "--size", "3x4", says=["3x4", "anchor 1,2"])
                np.testing.assert_array_equal(got, values)

    def test_types_come_back(self):
        for kind in ("u8", "s8", "u16", "s16", "s32", "u32", "f32", "f64"):
            with self.subTest(kind=kind):
                image = as_type(blobs(2) // 2, kind)
                got = self.made("filter", image, "--kind", "min", "--size", "3")
                np.testing.assert_array_equal(got, least(image, 3, 3, 1, 1))
                self.assertEqual(type_of(got), kind)

    def test_one_pixel_is_a_copy(self):
        image = blobs(3)
        for line in (["filter", "--kind", "max"], ["morph", "--op", "gradient"], ["gauss"], ["firefly", "--bright", "0"]):
            np.testing.assert_array_equal(self.made(*line[:1], image, *line[1:], "--size", "1", says=["1x1, which is a copy"]), image)

    def test_elements(self):
        """Members are what is not 0, and 255 in the mask that is used; two channels are worked on one by one."""
        image = np.stack([blobs(4), blobs(5)], -1)
        element = np.array([[0, 1, 0], [9, 255, 0], [0, 0, 3]], "u1")
        self.put("element.png", element)
        got = self.made("morph", image, "--op", "erode", "--shape", "element.png", "--anchor", "2,1", says=["4 members", "anchor 2,1"])
        members = np.flatnonzero(element)
        for channel in range(2):
            near = windows(image[..., channel], 3, 3, 2, 1, {"constant_values": 255})
            np.testing.assert_array_equal(got[..., channel], near[..., members].min(-1))
        for shape, count in (("cross", "9 members"), ("disk", "21 members"), ("rect", "solid")):
            self.made("morph", image, "--op", "open", "--shape", shape, says=[count])

    def test_masks_leave_pixels_alone(self):
        image, mask = blobs(6), np.zeros((30, 40), "u1")
        mask[5:20, 7:30] = 1
        self.put("mask.png", mask)
        for line in (["filter", "--kind", "max"], ["morph", "--op", "dilate", "--shape", "rect"]):
            got = self.made(line[0], image, *line[1:], "--mask", "mask.png")
            np.testing.assert_array_equal(got, np.where(mask, most(image, 5, 5, 2, 2), image))

    def test_parts_are_those_of_the_whole(self):
        """Of what is made in one step: the second one of a compound sees nothing beyond the part."""
        image = np.stack([blobs(4), blobs(5)], -1)
        for line in (["filter", "--kind", "min"], ["morph", "--op", "erode", "--shape", "disk"], ["gauss", "--size", "3"],
                     ["sepfilter", "--rows", "1,2", "--columns", "1"], ["firefly", "--bright", "3"], ["filter", "--kind", "max", "--size", "1"]):
            whole = self.made(*line[:1], image, *line[1:])
            np.testing.assert_array_equal(self.made(*line[:1], image, *line[1:], "--roi", "7,5,20,90"), whole[5:, 7:27])

    def test_sums(self):
        image = as_type(blobs(7), "f32")
        got = self.made("sepfilter", image, "--rows", "1,2,1", "--columns", "-1,0,1", says=["3x3"])
        near = windows(image, 3, 3, 1, 1, {"mode": "edge"})
        np.testing.assert_allclose(got, near @ np.outer([1, 2, 1], [-1, 0, 1]).ravel(), atol=1e-3)
        soft = self.made("gauss", image, "--sigma", "2,1", says=["13x7", "sigma 2,1"])
        if ndimage:
            np.testing.assert_allclose(soft, ndimage.gaussian_filter(image, (2, 1), mode="nearest", radius=(6, 3)), atol=1e-3)
        self.made("gauss", image, "--size", "5x3", says=["sigma 1.1,0.8"])

    def test_outliers(self):
        image = blobs(8, noise=1) // 2
        image[10, 20], image[15, 5:7] = 250, 240
        got = self.made("firefly", image, "--bright", "30")
        wanted = image.copy()
        wanted[10, 20] = np.delete(image[9:12, 19:22].ravel(), 4).max()
        np.testing.assert_array_equal(got, wanted)

    def test_refusals(self):
        self.put("in.npy", blobs(9))
        self.put("real.npy", as_type(blobs(9), "f32"))
        self.put("rgb.png", np.zeros((3, 3, 3), "u1"))
        self.put("none.png", np.zeros((3, 3), "u1"))
        out = ["-o", "out.png"]
        for line, says in (
            (["filter", "in.npy", "--kind", "min", "--anchor", "5,0"], ["--anchor", "5,0", "5x5"]),
            (["filter", "real.npy", "--kind", "bothat"], ["--kind", "bothat", "f32"]),
            (["morph", "real.npy", "--op", "gradient"], ["--op", "gradient", "f32"]),
            (["morph", "in.npy", "--op", "open", "--shape", "rgb.png"], ["--shape", "3 channels"]),
            (["morph", "in.npy", "--op", "open", "--shape", "none.png"], ["--shape", "none.png", "member"]),
            (["gauss", "in.npy", "--sigma", "1", "--roi", "40,0,1,1"], ["--roi", "40,0", "40x30"]),
        ):
            with self.subTest(line=line):
                self.refuses(*line, *out, says=says)


if __name__ == "__main__":
    unittest.main()
