"""Masks of comparisons and thresholds, against NumPy's own."""

import re
import unittest

import numpy as np
from PIL import Image, ImageDraw

from support import ProgramCase, as_type

OPERATORS = {"equal": np.equal, "less": np.less, "less-or-equal": np.less_equal, "greater": np.greater,
             "greater-or-equal": np.greater_equal, "not-equal": np.not_equal}


def numbers(kind, seed, shape=(9, 13)):
    low, high = {"u": (0, 200), "s": (-100, 120), "f": (-5, 6)}[kind[0]]
    return as_type(np.random.default_rng(seed).integers(low, high, shape), kind)


def otsu(values, lowest, highest):
    """The whole number up to which the lower class goes, by the variance between the classes."""
    def apart(t):
        below, above = values[values <= t], values[values > t]
        return len(below) * len(above) * (below.mean() - above.mean()) ** 2 if len(below) and len(above) else -1.0
    return max(range(lowest, highest), key=apart)


class Comparison(ProgramCase):
    def mask(self, *arguments):
        self.works("-q", *arguments, "-o", "mask.npy")
        return self.picture("mask.npy")

    def test_images(self):
        for left, right in (("u8", "u8"), ("u8", "s8"), ("u16", "u8"), ("s16", "f32"), ("u32", "s32"), ("f64", "f32")):
            a, b = numbers(left, 1), numbers(right, 2)
            b.flat[::3] = np.clip(a.flat[::3], 0, 100)
            for op, holds in OPERATORS.items():
                with self.subTest(left=left, right=right, op=op):
                    got = self.mask("compare", self.put("a.npy", a), self.put("b.npy", b), "--op", op)
                    np.testing.assert_array_equal(got, holds(a.astype("f8"), b.astype("f8")) * np.uint8(255))

    def test_numbers_are_what_they_are(self):
        for kind in ("u8", "s8", "u16", "s32", "f32"):
            a = numbers(kind, 3, (9, 13, 3))
            for text in ("3", "2.5", "300", "-0.25", "1e9", "4,2.75,-1000"):
                for op, holds in OPERATORS.items():
                    with self.subTest(kind=kind, text=text, op=op):
                        got = self.mask("compare", self.put("a.npy", a), text, "--op", op)
                        wanted = holds(a.astype("f8"), np.array([float(n) for n in text.split(",")]))
                        np.testing.assert_array_equal(got, wanted * np.uint8(255))

    def test_refusals(self):
        self.put("a.npy", numbers("u8", 4))
        self.put("big.npy", np.array([[0, 16777217, 33554432]], "i4"))
        self.put("f.npy", np.array([[np.nan, 1, np.inf]], "f4"))
        self.put("one.npy", np.array([[1, 4294967295]], "u4"))
        for line, says in ((("compare", "a.npy", "nothing"), ["nothing"]),
                           (("compare", "big.npy", "f.npy"), ["big.npy: has s32 values that f32"]),
                           (("compare", "one.npy", "1"), ["one.npy", "4294967295"]),
                           (("threshold", "f.npy", "--blur", "3"), ["--blur", "f32"]),
                           (("threshold", "f.npy", "--otsu"), ["not finite", "--range"]),
                           (("threshold", "big.npy", "--sauvola", "3"), ["--sauvola", "s32"])):
            self.refuses(*line, "-o", "mask.png", says=says)

    def test_otsu(self):
        source = np.random.default_rng(5)
        for kind, centres in (("u8", (60, 170)), ("s16", (-900, 700)), ("u16", (1000, 1400))):
            values = np.rint(np.where(source.random((60, 70, 3)) < 0.3, *centres) + source.normal(0, 20, (60, 70, 3)))
            a = as_type(values, kind)
            told = self.works("threshold", self.put("a.npy", a), "--otsu", "-o", "mask.npy")
            found = re.findall(r"channel (\d): threshold (\S+), (\d+) bins, range (\S+) to (\S+), separability (\S+)", told)
            self.assertEqual(len(found), 3, told)
            for c, (_, threshold, bins, low, high, separability) in enumerate(found):
                channel = a[..., c].astype("f8")
                best = otsu(channel, int(channel.min()), int(channel.max()))
                low, high = float(low), float(high)
                self.assertEqual((low, high), (0, 255) if kind == "u8" else (channel.min(), channel.max()))
                self.assertEqual(int(bins), high - low + 1)
                self.assertAlmostEqual(float(threshold), best + 1, places=4)
                above = channel > best
                np.testing.assert_array_equal(self.picture("mask.npy")[..., c], above * np.uint8(255))
                between = above.mean() * (1 - above.mean()) * (channel[above].mean() - channel[~above].mean()) ** 2
                self.assertAlmostEqual(float(separability), between / channel.var(), places=3)

    def test_page(self):
        """Writing on paper in uneven light: neighbourhoods find it, one threshold does not."""
        page = Image.new("L", (400, 300), 0)
        pen = ImageDraw.Draw(page)
        for line in range(12):
            pen.text((20, 15 + 23 * line), "a line of writing on a page, number %d" % line, fill=255)
        ink = np.asarray(page) > 128
        light = np.linspace(60, 230, 400)[None, :] * np.linspace(0.7, 1, 300)[:, None]
        noise = np.random.default_rng(6).normal(0, 2, ink.shape)
        self.put("page.png", np.clip(light * np.where(ink, 0.45, 1) + noise, 0, 255).astype("u1"))
        wrong = {}
        for name, method in {"otsu": ["--otsu"], "blur": ["--blur", "25", "--offset", "-12"],
                             "sauvola": ["--sauvola", "25", "--k", "0.2"]}.items():
            self.works("-q", "threshold", "page.png", *method, "-o", "mask.png")
            wrong[name] = np.mean((self.picture("mask.png") == 0) != ink)
        self.assertGreater(wrong["otsu"], 0.2)
        self.assertLess(wrong["blur"], 0.01)
        self.assertLess(wrong["sauvola"], 0.01)


if __name__ == "__main__":
    unittest.main()
