"""The scene's bytes are the same everywhere; its truth is true; its noise is what it claims to be."""

import hashlib
import statistics
import unittest

from support import ProgramCase, read_npy, read_png

# Of the elements (little-endian) of .npy files. A change here changes every picture made before.
PINNED = {
    ("--size", "320x200"):
        "9166dbad47798d521cea62c5a2f31d3bd28155a7ce77d4af93018ac734b39c41",
    ("--size", "97x131", "--seed", "7", "--cells", "9"):
        "b207be9d148198ee0415a7de9f5a4bd025c71a74d19bef3b92d8bca323d85ad7",
    ("--size", "64x64", "--depth", "16", "--no-noise"):
        "e7c27da493fbf96b2917ca1e9cfc7fb2633b2570a592d863e3a26e44dfd1baae",
    ("--size", "1x1"):
        "dbc1b4c900ffe48d575b5da5c638040125f65db0fe3e24494b76ea986457d986",
    ("--size", "3000x3", "--seed", "9223372036854775807"):
        "ead993c0904c38a54b285bd24b873a11e66012b520dba9314a87ef65515d8525",
}
TRUTH = "2215c46be35dee36130695c24636dd815a5938782147fa498d5159f06783adc1"


def digest(data):
    return hashlib.sha256(data[128:]).hexdigest()


class Scene(ProgramCase):
    def test_the_same_bytes_everywhere(self):
        for options, wanted in PINNED.items():
            with self.subTest(options):
                self.works("scene", "-o", "s.npy", *options)
                self.assertEqual(digest(self.get("s.npy")), wanted)
        self.works("scene", "-o", "s.npy", "--size", "320x200", "--truth", "t.npy")
        self.assertEqual(digest(self.get("t.npy")), TRUTH)

    def test_every_cell_is_one_region(self):
        self.works("scene", "-o", "s.png", "--size", "700x500", "--truth", "t.npy", "--cells", "60")
        truth = read_npy(self.get("t.npy"))
        labels = set(truth.values)
        self.assertEqual(truth.type, "s32")
        self.assertTrue(labels <= set(range(61)))
        self.assertGreater(len(labels), 55)
        self.assertGreater(truth.values.count(0), 700 * 500 // 4)
        touching = {(a, b) for y in range(500) for a, b in zip(truth.values[y * 700 :], truth.values[y * 700 + 1 : y * 700 + 700])
                    if a and b and a != b}
        self.assertGreater(len(touching), 10)

    def test_light_is_told_apart_from_cells(self):
        """Outside the cells and their halos the picture without noise is the background, but for haze
        and dust; inside, the cells differ from it, most of them brighter and some darker."""
        self.works("scene", "-o", "s.png", "--truth", "t.npy", "--clean", "c.png", "--background", "b.png")
        truth = read_npy(self.get("t.npy")).values
        clean, light = (read_png(self.get(name)).values for name in ("c.png", "b.png"))
        outside = [c - b for c, b, t in zip(clean, light, truth) if t == 0]
        self.assertLess(abs(statistics.median(outside)), 4)
        cells = {}
        for c, b, t in zip(clean, light, truth):
            cells.setdefault(t, []).append(c - b)
        contrast = [statistics.mean(values) for label, values in cells.items() if label]
        bright, dark = (sum(sign * value > 10 for value in contrast) for sign in (1, -1))
        self.assertGreater(bright + dark, len(contrast) * 0.95)
        self.assertGreater(bright, dark)
        self.assertGreater(dark, len(contrast) // 6)

    def test_noise_is_of_photons_and_reading(self):
        """16 bits count sixteenths of a photon: variance = light + (6 photons) squared."""
        self.works("scene", "-o", "f.npy", "--size", "400x300", "--depth", "16", "--frames", "2", "--clean", "c.npy")
        clean = read_npy(self.get("c.npy")).values
        frames = [read_npy(self.get("f-%02d.npy" % i)).values for i in (1, 2)]
        self.assertNotEqual(*frames)
        for frame in frames:
            errors = [(f - c) / 16 for f, c in zip(frame, clean)]
            self.assertLess(abs(statistics.fmean(errors)), 0.25)
            expected = statistics.fmean(c / 16 for c in clean) + 36
            self.assertLess(abs(statistics.pvariance(errors) / expected - 1), 0.02)
        product = statistics.fmean((a - c) * (b - c) / 256 for a, b, c in zip(*frames, clean))
        self.assertLess(abs(product), 3)

    def test_frames_are_numbered_and_differ_from_seed_to_seed(self):
        self.works("scene", "-o", "f.png", "--size", "40x30", "--frames", "3")
        self.assertEqual(sorted(self.contents()), ["f-01.png", "f-02.png", "f-03.png"])
        self.works("scene", "-o", "g.png", "--size", "40x30")
        self.works("scene", "-o", "h.png", "--size", "40x30", "--seed", "2")
        self.works("scene", "-o", "i.png", "--size", "40x30", "--frames", "2", "--clean", "i.png")
        self.assertIn("i.png", self.contents())  # no frame has that name
        self.assertEqual(self.get("g.png"), self.get("f-01.png"))
        self.assertNotEqual(self.get("g.png"), self.get("h.png"))


if __name__ == "__main__":
    unittest.main()
