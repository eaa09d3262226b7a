"""The tree as text, JSON and drawing: the same regions as brute force finds."""

import collections
import json
import re
import unittest
import xml.etree.ElementTree as xml

import regions_model as model
from support import ProgramCase, write_png
from test_mser import blobs, pixels_of


class Tree(ProgramCase):
    def wanted(self, array, polarity, connectivity):
        values = pixels_of(array)
        if polarity == "bright":
            values = {at: 255 - value for at, value in values.items()}
        nodes = model.tree(values, connectivity)
        for node in nodes:
            node.level = 255 - node.level if polarity == "bright" else node.level
        return nodes

    def test_json_is_the_tree(self):
        for seed, connectivity in ((40, 8), (41, 4)):
            array = blobs(seed)
            self.put("in.png", write_png(array))
            self.works("tree", "in.png", "-o", "tree.json", "--connectivity", connectivity)
            whole = json.loads(self.get("tree.json"))
            for polarity in ("dark", "bright"):
                nodes = self.wanted(array, polarity, connectivity)
                told = whole[polarity]
                by_id = {node["id"]: node for node in told}
                self.assertEqual([node["id"] for node in told], list(range(len(told))))
                self.assertEqual(told[0]["parent"], None)

                def shape(node):
                    return node.level, node.area, len(node.children)

                pairs = collections.Counter((shape(node), shape(node.parent)) for node in nodes[1:])
                told_pairs = collections.Counter(
                    tuple((n["level"], n["area"], n["children"]) for n in (node, by_id[node["parent"]]))
                    for node in told[1:])
                self.assertEqual(told_pairs, pairs)

    def test_stable_ones_are_marked(self):
        array = blobs(42)
        self.put("in.png", write_png(array))
        options = ("--min-area-px", 20, "--polarity", "bright")
        self.works("tree", "in.png", "-o", "tree.json", *options)
        self.works("mser", "in.png", "-o", "out", *options)
        lines = self.get("out/in.csv").decode().splitlines()[1:]
        marked = [node for node in json.loads(self.get("tree.json"))["bright"] if node["stable"]]
        self.assertTrue(marked)
        self.assertEqual(sorted((node["level"], node["area"]) for node in marked),
                         sorted((int(line.split(",")[2]), int(line.split(",")[4])) for line in lines))
        told = self.works("tree", "in.png", "--smallest", 1, "--depth", 1000, *options)
        in_text = re.findall(r"[t,] (\d+) \((\d+) px\)", told)
        self.assertEqual(sorted(map(tuple, (map(int, pair) for pair in in_text))),
                         sorted((node["level"], node["area"]) for node in marked))

    def test_text_is_limited_by_depth_and_area(self):
        array = blobs(43)
        self.put("in.png", write_png(array))
        leaves = sum(not node.children for node in self.wanted(array, "dark", 8))
        whole = self.works("tree", "in.png", "--polarity", "dark", "--depth", 1000, "--smallest", 1)
        lines = whole.splitlines()[1:]
        depths = [(len(line) - len(line.lstrip())) // 2 for line in lines]
        ends = sum(after <= depth for depth, after in zip(depths, depths[1:] + [0]))
        self.assertEqual(ends, leaves)
        shallow = self.works("tree", "in.png", "--polarity", "dark", "--depth", 1, "--smallest", 1).splitlines()[1:]
        self.assertEqual([re.sub(r", \d+ more below$", "", line) for line in shallow],
                         [line for line, depth in zip(lines, depths) if depth <= 1])
        coarse = self.works("tree", "in.png", "--polarity", "dark", "--depth", 1000, "--smallest", 100)
        self.assertLess(len(coarse.splitlines()), len(lines))
        self.assertTrue(all(int(area) >= 100 for area in re.findall(r"(\d+) px", coarse)))

    def test_drawing(self):
        array = blobs(44)
        self.put("a<&.png", write_png(array))
        for options, panels in (((), 2), (("--polarity", "dark"), 1)):
            self.works("tree", "a<&.png", "-o", "tree.svg", *options)
            root = xml.fromstring(self.get("tree.svg"))
            space = "{http://www.w3.org/2000/svg}"
            texts = [text.text for text in root.iter(space + "text")]
            self.assertTrue(texts[0].startswith("a<&.png"))
            self.assertEqual(sum("regions:" in text for text in texts), panels)
            blocks = [rect.attrib for rect in root.iter(space + "rect") if "x" in rect.attrib]
            spans = sorted((float(b["y"]), float(b["x"]), float(b["x"]) + float(b["width"])) for b in blocks)
            left, right = min(s[1] for s in spans), max(s[2] for s in spans)
            self.assertGreaterEqual(left, 0)
            self.assertLessEqual(right, float(root.attrib["width"]))
            self.assertGreater(len(spans), 10)


if __name__ == "__main__":
    unittest.main()
