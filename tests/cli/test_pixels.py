"""Functions of single pixels, colour transforms and resizing, against NumPy's own."""

import unittest

import numpy as np

from support import NAMES, ProgramCase, as_type, type_of

RGB = np.array([[0.299, 0.587, 0.114], [-0.299 / 1.772, -0.587 / 1.772, 0.5], [0.5, -0.587 / 1.402, -0.114 / 1.402]])


def numbers(kind, shape=(7, 11), seed=1):
    low, high = {"u": (0, 100), "s": (-90, 100), "f": (-5, 6)}[kind[0]]
    return as_type(np.random.default_rng(seed).integers(low, high, shape), kind)


def clipped(values, kind):
    limits = np.iinfo(NAMES[kind])
    return np.clip(np.rint(values), limits.min, limits.max).astype(NAMES[kind])


class Pixels(ProgramCase):
    def made(self, command, image, *options):
        self.put("in.npy", image)
        self.works("-q", command, "in.npy", "-o", "out.npy", *options)
        return self.picture("out.npy")

    def test_functions(self):
        wanted = {"u8": "s16", "s8": "s16", "u16": "s32", "u32": "f64"}
        for kind in NAMES:
            image = numbers(kind)
            with self.subTest(kind=kind), np.errstate(all="ignore"):
                got = self.made("negate", image)
                self.assertEqual(type_of(got), wanted.get(kind, kind))
                np.testing.assert_array_equal(got, -image.astype("f8"))
                real = "f8" if kind in ("u32", "f64") else "f4"
                for command, values in (("exp", np.exp(image.astype("f8"))), ("ln", np.log(image.astype("f8"))),
                                        ("sigmoid", 1 / (1 + np.exp(-0.5 * image.astype("f8"))))):
                    got = self.made(command, image, *(["--alpha", "0.5"] if command == "sigmoid" else []))
                    self.assertEqual(got.dtype, real)
                    np.testing.assert_allclose(got, values.astype(real), rtol=3e-7 if real == "f4" else 1e-15)
        got = self.made("ln", numbers("u8") + 1, "--type", "u8", "--scale", "5")
        np.testing.assert_array_equal(got, clipped(32 * np.log(numbers("u8") + 1.0), "u8"))

    def test_matrices(self):
        for kind in ("u8", "s8", "u16", "s16", "f64"):
            image = numbers(kind, (7, 11, 3))
            with self.subTest(kind=kind):
                got = self.made("matrix", image, "--matrix", "2,0,-1;0.5,0.25,0", "--add", "3,-4")
                values = image @ np.array([[2, 0, -1], [0.5, 0.25, 0]]).T + [3, -4]
                np.testing.assert_array_equal(got, values if kind == "f64" else clipped(values, kind))
                self.assertEqual(type_of(got), kind)
        image = np.random.default_rng(2).integers(0, 256, (9, 8, 3)).astype("u1")
        np.testing.assert_array_equal(self.made("matrix", image, "--matrix", "grey"), clipped(image @ RGB[0], "u8"))
        there = self.made("matrix", image, "--matrix", "ycbcr")
        np.testing.assert_array_equal(there, clipped(image @ RGB.T + [0, 128, 128], "u8"))
        self.assertLess(np.abs(self.made("matrix", there, "--matrix", "rgb").astype(int) - image).max(), 3)

    def test_clipped_pixels_are_told(self):
        self.put("in.npy", np.array([[[1, 200], [2, 3]]], "u1"))
        self.works("matrix", "in.npy", "-o", "out.npy", "--matrix", "2,0;0,2", notes=["1 of 2 pixels did not fit u8"])

    def test_resize(self):
        image = numbers("u16", (12, 18, 3))
        for options, (height, width) in ((("--size", "9x24"), (24, 9)), (("--by", "0.5"), (6, 9)), (("--by", "2.5"), (30, 45))):
            with self.subTest(options=options):
                rows = (2 * np.arange(height) + 1) * 12 // (2 * height)
                columns = (2 * np.arange(width) + 1) * 18 // (2 * width)
                np.testing.assert_array_equal(self.made("resize", image, *options), image[rows][:, columns])

    def test_refusals(self):
        self.put("grey.npy", numbers("u8"))
        for line, says in ((("matrix", "grey.npy", "--matrix", "grey"), "1 channel(s), expected 3"),
                           (("matrix", "grey.npy", "--matrix", "1,2"), "rows of 2 number(s)"),
                           (("matrix", "grey.npy", "--matrix", "1;x"), "got '1;x'"),
                           (("matrix", "grey.npy", "--matrix", "1;2", "--add", "1"), "expected 2"),
                           (("sigmoid", "grey.npy", "--alpha", "1,2"), "got 2 numbers, expected 1"),
                           (("resize", "grey.npy"), "neither"),
                           (("resize", "grey.npy", "--by", "2", "--size", "3x3"), "both"),
                           (("resize", "grey.npy", "--size", "0x3"), "--size: got '0x3'")):
            with self.subTest(line=line):
                self.refuses(*line, "-o", "out.npy", says=[says])


if __name__ == "__main__":
    unittest.main()
