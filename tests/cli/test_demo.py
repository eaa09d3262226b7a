"""The demo's files are what its steps claim."""

import re
import unittest

from support import Array, ProgramCase, read_png, write_png


class Demo(ProgramCase):
    def test_scene(self):
        told = self.works("demo", "--size", "320x200", "--frames", "16")
        self.assertEqual(len(re.findall(r" ms +(?:\d+|-)  ", told)), 7)
        single, mean = map(float, re.search(r"one frame ([\d.]+), mean of 16 ([\d.]+)", told).groups())
        self.assertLess(mean, single / 3)
        self.assertGreater(mean, single / 5)
        mean, background, flat = (read_png(self.get("demo/%s.png" % name)) for name in ("mean", "background", "flat"))
        level = int(re.search(r"pedestal of (\d+)", told).group(1))
        wanted = [min(max(m - b + level, 0), 255) for m, b in zip(mean.values, background.values)]
        self.assertEqual(flat.values, wanted)

    def test_the_mean_keeps_the_picture(self):
        for channels in (1, 2, 3, 4):
            kept = min(channels, 3) if channels != 2 else 1
            array = Array("u8", 64, 48, channels, [40 + (i // channels) % 64 * 2 for i in range(64 * 48 * channels)])
            self.put("in.png", write_png(array))
            self.works("demo", "in.png", "-o", "out", "--frames", "64")
            mean = read_png(self.get("out/mean.png"))
            self.assertEqual((mean.width, mean.height, mean.channels), (64, 48, kept))
            errors = [m - (40 + i // kept % 64 * 2) for i, m in enumerate(mean.values)]
            self.assertLess(abs(sum(errors) / len(errors)), 0.2)
            self.assertLess(max(map(abs, errors)), 6)

    def test_small_and_wide_pictures(self):
        for array in (Array("u8", 1, 1, 1, [9]), Array("u16", 200, 2, 1, [i * 100 for i in range(400)]),
                      Array("u8", 2, 300, 3, [i % 256 for i in range(1800)])):
            self.put("in.png", write_png(array))
            self.works("demo", "in.png", "-o", "out", "-q")
            self.assertEqual(read_png(self.get("out/flat.png")).width, array.width)


if __name__ == "__main__":
    unittest.main()
