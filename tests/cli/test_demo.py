"""The demo's files are what its steps claim."""

import csv
import json
import re
import unittest
import xml.etree.ElementTree as xml

from support import Array, ProgramCase, read_png, write_png


class Demo(ProgramCase):
    def test_scene(self):
        told = self.works("demo", "--size", "320x200", "--frames", "16")
        single, mean = map(float, re.search(r"one frame ([\d.]+), mean of 16 ([\d.]+)", told).groups())
        self.assertLess(mean, single / 3)
        self.assertGreater(mean, single / 5)
        mean, background, flat = (read_png(self.get("demo/%s.png" % name)) for name in ("mean", "background", "flat"))
        level = int(re.search(r"pedestal of (\d+)", told).group(1))
        wanted = [min(max(m - b + level, 0), 255) for m, b in zip(mean.values, background.values)]
        self.assertEqual(flat.values, wanted)

    def test_regions_of_the_scene(self):
        """The counts told are those of the files, and of the truth as it can be told from labels."""
        told = self.works("demo", "--size", "400x300", "--frames", "64", "--min-diversity", "0.9")
        rows = list(csv.DictReader(self.get("demo/regions.csv").decode().splitlines()))
        total, dark, bright = map(int, re.search(r"(\d+) stable regions, (\d+) dark \D*(\d+) bright", told).groups())
        counts = [sum(row["polarity"] == polarity for row in rows) for polarity in ("dark", "bright")]
        self.assertEqual((total, [dark, bright]), (len(rows), counts))
        xml.fromstring(self.get("demo/tree.svg"))
        self.assertEqual(read_png(self.get("demo/overlay.png")).channels, 3)
        found, cells = map(int, re.search(r"truth: (\d+) of (\d+) cells", told).groups())
        self.assertGreater(found, cells * 2 // 3)
        # A region that stands alone has the pixels that its label has: they must not tell more than found.
        labels, truth = self.decoded("demo/labels.tif").values, self.decoded("demo/truth.tif").values
        sizes, areas, common = {}, {}, {}
        for label, cell in zip(labels, truth):
            sizes[cell] = sizes.get(cell, 0) + 1
            areas[label] = areas.get(label, 0) + 1
            common[label, cell] = common.get((label, cell), 0) + 1
        sure = {cell for (label, cell), count in common.items() if label and cell and
                areas[label] == int(rows[int(label) - 1]["area"]) and
                count * 2 > areas[label] + sizes[cell] - count}
        self.assertLessEqual(len(sure), found)
        self.assertGreater(len(sure), cells // 3)
        self.assertEqual(cells, len(sizes) - 1)

    def test_the_same_as_mser(self):
        for array in (Array("u8", 90, 60, 1, [(x // 9 * 31 + y // 7 * 17) % 256 for y in range(60) for x in range(90)]),
                      Array("u16", 60, 60, 3, [(i * 7919) % 60000 // (1 + i % 3) for i in range(60 * 60 * 3)])):
            self.put("in.png", write_png(array))
            self.works("demo", "in.png", "-o", "shown")
            self.works("mser", "in.png", "-o", "found")
            self.assertEqual(self.get("shown/regions.csv"), self.get("found/in.csv"))
            self.assertEqual(self.get("shown/labels.tif"), self.get("found/in.labels.tif"))
            self.assertEqual(json.loads(self.get("shown/regions.json"))["bright"],
                             json.loads(self.get("found/in.json"))["bright"])

    def test_a_folder_that_cannot_be_is_told_before_the_work(self):
        self.put("in.png", write_png(Array("u8", 4, 4, 1, [3] * 16)))
        for line in (["demo", "in.png"], ["demo", "--size", "40x30"]):
            for folder in ("in.png", "in.png/new", "in.png/a/b"):
                done = self.run_program(*line, "-o", folder)
                self.assertEqual((done.returncode, done.stdout, done.stderr.count(b"\n")), (2, b"", 1))
        self.works("demo", "in.png", "-o", "new/er/../folder/", "-q")
        self.assertTrue(self.get("new/folder/tree.svg"))

    def test_results_do_not_replace_what_is_read(self):
        self.works("demo", "--size", "64x48", "--frames", "2")
        before = self.get("demo/overlay.png")
        for arguments in (("demo/overlay.png",), ("demo/frame.png", "--mask", "demo/labels.tif")):
            with self.subTest(arguments):
                done = self.run_program("demo", *arguments, "-o", "demo")
                self.assertEqual((done.returncode, done.stderr.count(b"\n")), (2, 1))
                self.assertEqual(self.get("demo/overlay.png"), before)

    def test_small_and_wide_pictures(self):
        for array in (Array("u8", 1, 1, 1, [9]), Array("u16", 200, 2, 1, [i * 100 for i in range(400)]),
                      Array("u8", 2, 300, 3, [i % 256 for i in range(1800)])):
            self.put("in.png", write_png(array))
            self.works("demo", "in.png", "-o", "out", "-q")
            self.assertEqual(read_png(self.get("out/overlay.png")).width, array.width)
        self.works("demo", "--size", "1x1", "-q")


if __name__ == "__main__":
    unittest.main()
