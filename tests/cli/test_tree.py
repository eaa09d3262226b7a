"""The tree as text, JSON and drawing: the same regions in all, and those of the table marked."""

import csv
import json
import re
import unittest
import xml.etree.ElementTree as xml

import numpy as np

from support import ProgramCase, blobs


class Tree(ProgramCase):
    def setUp(self):
        super().setUp()
        self.array = blobs(42)
        self.put("a<&.png", self.array)
        self.options = ("--min-area-px", 20, "--max-area", 1)
        self.works("tree", "a<&.png", "-o", "tree.json", *self.options)
        self.trees = json.loads(self.get("tree.json"))
        self.works("mser", "a<&.png", "-o", "out", *self.options)
        self.rows = list(csv.DictReader(self.get("out/a<&.csv").decode().splitlines()))

    def test_json_nests_by_level_and_area(self):
        for polarity, sign in (("dark", 1), ("bright", -1)):
            nodes = {node["id"]: node for node in self.trees[polarity]}
            values = self.array.astype(int)
            ends = (values.max(), values.min())
            self.assertEqual((nodes[0]["level"], nodes[0]["area"]), (ends[sign < 0], 1200))
            children = {}
            for node in list(nodes.values())[1:]:
                parent = nodes[node["parent"]]
                self.assertGreater((parent["level"] - node["level"]) * sign, 0)
                self.assertGreater(parent["area"], node["area"])
                self.assertLessEqual(node["area"], ((values - node["level"]) * sign <= 0).sum())
                children[node["parent"]] = children.get(node["parent"], 0) + 1
            self.assertEqual(children, {key: node["children"] for key, node in nodes.items() if node["children"]})

    def test_stable_ones_bear_the_number_of_the_table(self):
        wanted = {int(row["id"]): (row["polarity"], int(row["level"]), int(row["area"])) for row in self.rows}
        self.assertGreater(len(wanted), 5)
        told = {node["region"]: (polarity, node["level"], node["area"])
                for polarity in ("dark", "bright") for node in self.trees[polarity] if node["stable"]}
        self.assertEqual(told, wanted)
        text = self.works("tree", "a<&.png", "--smallest", 1, "--depth", 1000, *self.options)
        self.assertEqual({int(number): (int(level), int(area)) for level, area, number in re.findall(r" (\d+) \((\d+) px, region (\d+)\)", text)},
                         {number: told[1:] for number, told in wanted.items()})

    def test_text_is_limited_by_depth_and_area(self):
        line = ("tree", "a<&.png", "--polarity", "dark")
        lines = self.works(*line, "--depth", 1000, "--smallest", 1).splitlines()[1:]
        depths = [(len(line) - len(line.lstrip())) // 2 for line in lines]
        ends = sum(after <= depth for depth, after in zip(depths, depths[1:] + [0]))
        self.assertEqual(ends, sum(node["children"] == 0 for node in self.trees["dark"]))
        shallow = self.works(*line, "--depth", 1, "--smallest", 1).splitlines()[1:]
        self.assertEqual([re.sub(r", \d+ more below$", "", line) for line in shallow],
                         [line for line, depth in zip(lines, depths) if depth <= 1])
        coarse = self.works(*line, "--depth", 1000, "--smallest", 100)
        self.assertTrue(all(int(area) >= 100 for area in re.findall(r"(\d+) px", coarse)))

    def test_drawing(self):
        for options, panels in (((), 2), (("--polarity", "dark"), 1)):
            done = self.run_program("tree", "a<&.png", "-o", "-", "--format", "svg", *self.options, *options)
            root = xml.fromstring(done.stdout)
            space = "{http://www.w3.org/2000/svg}"
            texts = [text.text for text in root.iter(space + "text")]
            self.assertTrue(texts[0].startswith("a<&.png"))
            self.assertEqual(sum("regions:" in text for text in texts), panels)
            bars = [bar for group in root.iter(space + "g") for bar in group.findall(space + "rect")]
            spans = [(float(bar.attrib["x"]), float(bar.attrib["x"]) + float(bar.attrib["width"])) for bar in bars]
            self.assertGreater(len(spans), 10)
            self.assertGreaterEqual(min(spans)[0], 0)
            self.assertLessEqual(max(end for _, end in spans), float(root.attrib["width"]))
            titles = " ".join(title.text for title in root.iter(space + "title"))
            self.assertEqual({int(number) for number in re.findall(r"region (\d+)", titles)},
                             {int(row["id"]) for row in self.rows if not options or row["polarity"] == "dark"})


if __name__ == "__main__":
    unittest.main()
