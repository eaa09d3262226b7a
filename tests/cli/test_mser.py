"""Stable regions against a slow model; the files of an image against each other; many images."""

import csv
import itertools
import json
import math
import os
import random
import signal
import subprocess
import time
import unittest

import regions_model as model
from support import Array, PROGRAM, ProgramCase, read_npy, read_png, write_npy, write_png, write_tiff

LIMITS = {"delta": 5, "least": 16, "greatest": 10 ** 9, "variation": 0.5, "diversity": 0.3}


def blobs(seed, width=40, height=30, noise=3):
    """Bright and dark blobs, some nested, on a sloping ground."""
    source = random.Random(seed)
    values = [120 + x // 4 + source.randint(-noise, noise) for _ in range(height) for x in range(width)]
    for _ in range(9):
        cx, cy, radius = source.randrange(width), source.randrange(height), source.uniform(2, 8)
        step, squeeze = source.choice((-60, -40, -25, 25, 40, 60)), source.uniform(0.6, 1.6)
        for y in range(height):
            for x in range(width):
                if (x - cx) ** 2 + ((y - cy) * squeeze) ** 2 < radius * radius:
                    values[y * width + x] += step
    return Array("u8", width, height, 1, [min(max(value, 0), 255) for value in values])


def pixels_of(array, x0=0, y0=0, width=None, height=None):
    width, height = width or array.width, height or array.height
    return {(x, y): array.values[y * array.width + x]
            for y in range(y0, y0 + height) for x in range(x0, x0 + width)}


class Regions(ProgramCase):
    def table(self, name):
        lines = self.get(name).decode().splitlines()
        return list(csv.DictReader(lines))

    def found(self, *options, name="in"):
        self.works("mser", name + ".png", "-o", "out", "--min-area-px", 16, "--max-area", 1,
                   "--max-variation", 0.5, *options)
        return self.table("out/%s.csv" % name)


class AgainstTheModel(Regions):
    def compare(self, rows, values, connectivity, polarities=("dark", "bright"), **limits):
        wanted = [(polarity, node) for polarity in polarities
                  for node in model.stable_regions(values, polarity, connectivity, **{**LIMITS, **limits})]
        by_place = {}
        for polarity, node in wanted:
            by_place[polarity, node.level, node.area, model.box(node.pixels)] = node
        self.assertEqual(len(by_place), len(wanted))
        nodes = {}
        for row in rows:
            box = tuple(int(row["box_" + key]) for key in ("x", "y", "width", "height"))
            key = row["polarity"], int(row["level"]), int(row["area"]), box
            self.assertIn(key, by_place)
            nodes[row["id"]] = by_place.pop(key)
        self.assertEqual(by_place, {})
        for row in rows:
            self.compare_row(row, nodes, {node.pixels for p, node in wanted if p == row["polarity"]})
        return nodes

    def compare_row(self, row, nodes, kept):
        node = nodes[row["id"]]
        around = [pixels for pixels in kept if node.pixels < pixels]
        self.assertEqual(row["parent"] == "0", not around)
        if around:
            self.assertEqual(nodes[row["parent"]].pixels, min(around, key=len))
        self.assertAlmostEqual(float(row["variation"]), node.variation, places=5)
        x, y, xx, xy, yy = model.moments(node.pixels)
        for column, value in (("x", x), ("y", y), ("mxx", xx), ("mxy", xy), ("myy", yy)):
            self.assertAlmostEqual(float(row[column]), value, places=5)
        # Half axes and angle give the second moments back.
        a, b = (float(row["half_axis_" + which]) ** 2 / 4 for which in ("long", "short"))
        angle = math.radians(float(row["angle"]))
        self.assertGreaterEqual(a, b)
        self.assertAlmostEqual(a * math.cos(angle) ** 2 + b * math.sin(angle) ** 2, xx, places=3)
        self.assertAlmostEqual((a - b) * math.sin(angle) * math.cos(angle), xy, places=3)

    def test_pictures(self):
        told = 0
        for seed in range(6):
            array = blobs(seed)
            self.put("in.png", write_png(array))
            for connectivity in (4, 8):
                rows = self.found("--connectivity", connectivity, *(["--fast"] if seed % 2 else []))
                with self.subTest(seed=seed, connectivity=connectivity):
                    told += len(self.compare(rows, pixels_of(array), connectivity))
        self.assertGreater(told, 60)

    def test_parameters(self):
        array = blobs(7)
        self.put("in.png", write_png(array))
        table = [({"delta": 12}, ("--delta-levels", 12)), ({"variation": 0.05}, ("--max-variation", 0.05)),
                 ({"diversity": 0.8}, ("--min-diversity", 0.8)), ({"diversity": 0}, ("--min-diversity", 0)),
                 ({"greatest": 60}, ("--max-area", 0.05)), ({"least": 120}, ("--min-area", 0.1))]
        sizes = set()
        for changed, options in table:
            with self.subTest(options):
                line = {"--min-area-px": 16, "--max-area": 1, "--max-variation": 0.5, options[0]: options[1]}
                if "--min-area" in line:
                    del line["--min-area-px"]
                self.works("mser", "in.png", "-o", "out", *(word for pair in line.items() for word in pair))
                nodes = self.compare(self.table("out/in.csv"), pixels_of(array), 8, **changed)
                sizes.add(len(nodes))
        self.assertGreater(len(sizes), 3)

    def test_regions_have_sixteen_pixels_at_least(self):
        values = [200] * 1200
        for i, side in enumerate((3, 4, 5)):  # dark squares of 9, 16 and 25 pixels
            for y, x in itertools.product(range(side), repeat=2):
                values[(5 + y) * 40 + 5 + 10 * i + x] = 50
        values[15 * 40 + 5 : 15 * 40 + 20] = [50] * 15  # and a line of 15
        self.put("in.png", write_png(Array("u8", 40, 30, 1, values)))
        tables = []
        for option in (("--min-area-px", 1), ("--min-area-px", 15), ("--min-area-px", 16), ("--min-area", 0.002)):
            for fast in ((), ("--fast",)):
                self.works("mser", "in.png", "-o", "out", *option, *fast)
                tables.append([row["area"] for row in self.table("out/in.csv")])
        self.assertEqual([sorted(areas) for areas in tables], [["16", "25"]] * 8)
        self.works("mser", "in.png", "-o", "out", "--min-area-px", 17)
        self.assertEqual([row["area"] for row in self.table("out/in.csv")], ["25"])

    def test_polarities(self):
        array = blobs(8)
        self.put("in.png", write_png(array))
        for polarity in ("dark", "bright"):
            rows = self.found("--polarity", polarity)
            self.assertTrue(self.compare(rows, pixels_of(array), 8, (polarity,)))

    def test_part_of_a_picture(self):
        array = blobs(9)
        self.put("in.png", write_png(array))
        for fast in ((), ("--fast",)):
            rows = self.found("--roi", "7,4,25,22", *fast)
            self.assertTrue(self.compare(rows, pixels_of(array, 7, 4, 25, 22), 8))
        labels = self.labels()
        self.assertTrue(any(labels.values))
        for i, label in enumerate(labels.values):
            if not (7 <= i % 40 < 32 and 4 <= i // 40 < 26):
                self.assertEqual(label, 0)

    def labels(self):
        self.works("add", "out/in.labels.tif", "out/in.labels.tif", "-o", "twice.npy")
        twice = read_npy(self.get("twice.npy"))
        return twice._replace(values=[value // 2 for value in twice.values])

    def test_mask(self):
        """What the mask leaves is the picture: in one piece here, since the model knows no others."""
        array = blobs(10)
        inside = [1 if (i % 40 - 20) ** 2 + (i // 40 - 15) ** 2 < 190 else 0 for i in range(1200)]
        self.put("in.png", write_png(array))
        self.put("mask.png", write_png(Array("u8", 40, 30, 1, inside)))
        values = {at: value for at, value in pixels_of(array).items() if inside[at[1] * 40 + at[0]]}
        for fast in ((), ("--fast",)):
            rows = self.found("--mask", "mask.png", *fast)
            self.assertTrue(self.compare(rows, values, 8))


class FilesAgree(Regions):
    def test_one_picture(self):
        self.put("in.png", write_png(blobs(21, 60, 50)))
        rows = self.found("--min-diversity", 0.1)
        self.assertGreater(len(rows), 12)
        self.assertEqual([row["id"] for row in rows], [str(i + 1) for i in range(len(rows))])
        whole = json.loads(self.get("out/in.json"))
        self.assertEqual(whole["image"], {"file": "in.png", "width": 60, "height": 50, "channels": 1, "type": "u8"})
        told = []

        def walk(regions, polarity, parent, depth):
            for region in regions:
                told.append((region["id"], polarity, parent, len(region["children"]), depth, region["area"],
                             region["level"], *region["box"]))
                self.assertAlmostEqual(float(rows[region["id"] - 1]["x"]), region["centroid"][0])
                walk(region["children"], polarity, region["id"], depth + 1)

        for polarity in ("dark", "bright"):
            walk(whole[polarity], polarity, 0, 0)
        keys = "id polarity parent children depth area level box_x box_y box_width box_height".split()
        self.assertEqual(told, [tuple(row[key] if key == "polarity" else int(row[key]) for key in keys) for row in rows])
        self.assertTrue(any(row["parent"] != "0" for row in rows))
        self.check_labels(rows)
        overlay = read_png(self.get("out/in.overlay.png"))
        self.assertEqual((overlay.width, overlay.height, overlay.channels), (60, 50, 3))

    def check_labels(self, rows):
        """A region's pixels are those that bear its number or that of a smaller region; those of its
        own number lie inside its box, and nested regions account for the rest."""
        self.works("add", "out/in.labels.tif", "out/in.labels.tif", "-o", "twice.npy")
        labels = [value // 2 for value in read_npy(self.get("twice.npy")).values]
        by_id = {int(row["id"]): row for row in rows}
        counts = {}
        for i, label in enumerate(labels):
            if label:
                row = by_id[label]
                self.assertTrue(0 <= i % 60 - int(row["box_x"]) < int(row["box_width"]))
                self.assertTrue(0 <= i // 60 - int(row["box_y"]) < int(row["box_height"]))
                counts[label] = counts.get(label, 0) + 1
        for label, row in by_id.items():
            nested = sum(int(other["area"]) for other in rows if other["parent"] == row["id"])
            self.assertLessEqual(counts.get(label, 0), int(row["area"]) - nested)
        alone = [row for row in rows if row["polarity"] == "dark" and row["children"] == "0"]
        self.assertTrue(any(counts.get(int(row["id"])) == int(row["area"]) for row in alone))

    def test_both_floods_give_the_same_bytes(self):
        self.works("scene", "-o", "in.png", "--size", "300x200")
        mask = [0 if (i % 300) // 40 % 3 == 1 else 255 for i in range(60000)]
        self.put("mask.png", write_png(Array("u8", 300, 200, 1, mask)))
        for options in ((), ("--mask", "mask.png", "--connectivity", "4"), ("--roi", "20,30,200,150")):
            self.works("mser", "in.png", "-o", "one", *options)
            self.works("mser", "in.png", "-o", "two", "--fast", *options)
            for name in ("in.csv", "in.json", "in.labels.tif", "in.overlay.png"):
                self.assertEqual(self.get("one/" + name), self.get("two/" + name), (options, name))


class Levels(Regions):
    """What has more than 8 bits keeps its order."""

    def levels(self):
        return json.loads(self.get("out/in.json"))["levels"]

    def test_nothing_is_lost_while_it_fits(self):
        array = blobs(30)
        self.put("in.png", write_png(array))
        wanted = self.found()
        areas = [(row["polarity"], row["area"], row["x"]) for row in wanted]
        self.assertTrue(areas)
        for kind, change in (("u16", lambda v: v + 5000), ("s16", lambda v: v - 300), ("f32", lambda v: v * 0.5),
                             ("s32", lambda v: v * 1000), ("u16", lambda v: v * 257)):
            changed = array._replace(type=kind, values=[change(value) for value in array.values])
            self.put("in.tif", write_tiff(changed))
            self.works("mser", "in.tif", "-o", "out", "--min-area-px", 16, "--max-area", 1, "--max-variation", 0.5)
            self.assertEqual(self.levels()["lost"], 0)
            if kind in ("s16",) or change(0) == 5000:  # shifted only: the very same regions
                rows = self.table("out/in.csv")
                self.assertEqual([(row["polarity"], row["area"], row["x"]) for row in rows], areas)
                for row, old in zip(rows, wanted):
                    self.assertEqual(float(row["value"]), change(int(old["value"])))

    def test_order_is_kept_and_the_loss_counted(self):
        source = random.Random(4)
        pictures = {
            "steep": [int(1.5 ** (i % 24)) + i for i in range(1200)],
            "even": [i * 40 for i in range(1200)],
            "outlier": [source.randrange(3000) for _ in range(1199)] + [60000],
        }
        for name, values in pictures.items():
            for how in ("auto", "linear", "equal"):
                with self.subTest(name, how=how):
                    self.check_order(values, how)

    def check_order(self, values, how):
        self.put("in.npy", write_npy(Array("u16", 40, 30, 1, values)))
        self.works("mser", "in.npy", "-o", "out", "--levels", how, "--delta-levels", 1, "--max-variation", 1,
                   "--min-diversity", 0, "--max-area", 1, "--min-area-px", 1)
        told, distinct = self.levels(), len(set(values))
        self.assertEqual((told["values"], told["values"] - told["kept"]), (distinct, told["lost"]))
        if how != "linear":
            self.assertGreaterEqual(told["kept"], min(distinct, 192))
        if how == "equal":
            self.assertEqual(told["kept"], min(distinct, 256))
        levels = {}
        for row in self.table("out/in.csv"):
            levels.setdefault(float(row["value"]), set()).add((row["polarity"], int(row["level"])))
            # All pixels up to the value, and no others, are in regions of that level or below it.
            edge = float(row["value"])
            count = sum(v <= edge for v in values) if row["polarity"] == "dark" else sum(v >= edge for v in values)
            self.assertLessEqual(int(row["area"]), count)
        for polarity in ("dark", "bright"):
            pairs = sorted((value, level) for value, found in levels.items() for p, level in found if p == polarity)
            self.assertEqual([level for _, level in pairs], sorted(level for _, level in pairs))

    def regions(self, array, *options, largest=1):
        self.put("in.npy", write_npy(array))
        self.works("mser", "in.npy", "-o", "out", "--min-area-px", 16, "--max-area", largest, *options)
        return [[row[key] for key in ("polarity", "level", "area", "variation", "x", "y", "mxx", "mxy", "myy")]
                for row in self.table("out/in.csv")]

    def test_few_values_are_spread(self):
        """Which value is next counts, not how far: the regions are those of the evenly spread picture."""
        source = random.Random(6)
        for count in (1, 2, 4, 10, 52, 60, 255, 256):
            ranks = [value * (count - 1) // 255 for value in blobs(32, noise=0).values]
            ranks[: 2 * count : 2] = range(count)  # each of them is used
            values = sorted(source.uniform(-1, 1) * 10 ** source.randint(0, 30) for _ in range(count))
            spread = [rank * 255 // max(count - 1, 1) for rank in ranks]
            uneven = Array("f32", 40, 30, 1, [values[rank] for rank in ranks])
            for how in ("auto", "equal"):
                with self.subTest(count=count, how=how):
                    # Values that a byte holds, all of its range used, are taken as they are.
                    wanted = self.regions(Array("u8", 40, 30, 1, spread))
                    if count in (4, 10, 52, 60):
                        self.assertTrue(wanted)
                    self.assertEqual(self.regions(uneven, "--levels", how), wanted)
                    self.assertEqual((self.levels()["kept"], self.levels()["lost"]), (count, 0))

    def test_a_hot_pixel_flattens_nothing(self):
        array = blobs(33, noise=0)
        few = [value // 26 * 26 for value in array.values]
        self.assertLessEqual(len(set(few)), 10)
        # The picture less the pixel is a region, too; it would hide large ones that it differs little from.
        plain = self.regions(array._replace(values=few), largest=0.5)
        hot = self.regions(array._replace(type="u32", values=[2 ** 32 - 1] + few[1:]), largest=0.5)
        self.assertGreater(len(plain), 3)
        found = {(polarity, area) for polarity, _, area, *_ in hot}
        for polarity, _, area, *_ in plain:
            self.assertIn((polarity, area), found)

    def test_colour_and_nan(self):
        grey = blobs(31)
        colour = grey._replace(channels=3, values=[value for v in grey.values for value in (v, v, v)])
        self.put("in.png", write_png(grey))
        wanted = self.found()
        self.put("in.png", write_png(colour))
        self.assertEqual(self.found(), wanted)
        grey.values[0], grey.values[1] = 0, 255  # so that linear levels are the values
        values = [float(value) for value in grey.values]
        for x in range(40):
            values[3 * 40 + x] = math.nan
        inside = [0 if i // 40 == 3 else 1 for i in range(1200)]
        self.put("in.npy", write_npy(grey._replace(type="f32", values=values)))
        self.put("grey.png", write_png(grey))
        self.put("mask.png", write_png(grey._replace(values=inside)))
        options = ("--min-area-px", 16, "--max-area", 1, "--levels", "linear")
        self.works("mser", "in.npy", "-o", "a", *options)
        self.works("mser", "grey.png", "-o", "b", "--mask", "mask.png", *options)
        self.assertEqual(self.table("a/in.csv"), self.table("b/grey.csv"))


class ManyImages(Regions):
    def images(self, count, size="200x150"):
        names = []
        for i in range(count):
            names.append("i%d.png" % i)
            self.works("scene", "-o", names[-1], "--size", size, "--seed", i + 1)
        return names

    def files(self, folder):
        out = {}
        for name in sorted(os.listdir(self.path(folder))):
            if not name.endswith(".done"):
                out[name] = self.get(os.path.join(folder, name))
        return out

    def test_jobs_change_nothing(self):
        names = self.images(5)
        told = [self.works("mser", *names, "-o", folder, "--jobs", jobs)
                for folder, jobs in (("one", 1), ("four", 4))]
        self.assertEqual(self.files("one"), self.files("four"))
        self.assertEqual(len(self.files("one")), 20)
        for text in told:
            self.assertEqual([line.split(":")[0] for line in text.splitlines()], names)

    def test_a_refused_image_stops_no_other(self):
        names = self.images(3)
        self.put("i1.png", b"no image")
        done = self.run_program("mser", "i0.png", "absent.png", "i1.png", "i2.png", "-o", "out", "--jobs", 2)
        self.assertEqual(done.returncode, 2)
        self.assertEqual([line.split(": ")[1] for line in done.stderr.decode().splitlines()], ["absent.png", "i1.png"])
        self.assertEqual([line.split(":")[0] for line in done.stdout.decode().splitlines()], ["i0.png", "i2.png"])
        self.assertEqual({name.split(".")[0] for name in self.files("out")}, {"i0", "i2"})
        self.assertEqual(len(names), 3)

    def test_resume_after_a_kill(self):
        names = self.images(10)
        self.works("mser", *names, "-o", "whole")
        child = subprocess.Popen([PROGRAM, "mser", *names, "-o", "out"], cwd=self.folder, stdout=subprocess.DEVNULL)
        limit = time.monotonic() + 60
        while time.monotonic() < limit and not os.path.exists(self.path("out/i2.done")):
            time.sleep(0.001)
        child.send_signal(signal.SIGKILL)
        child.wait()
        done = {name for name in os.listdir(self.path("out")) if name.endswith(".done")}
        self.assertGreaterEqual(len(done), 3)
        if os.path.exists(self.path("out/i9.done")):  # too quick for the kill
            os.remove(self.path("out/i9.done"))
            done.remove("i9.done")
        stamps = {name: os.stat(self.path("out/%s.csv" % name[:-5])).st_mtime_ns for name in done}
        told = self.works("mser", *names, "-o", "out", "--resume").splitlines()
        self.assertEqual({line.split(".")[0] + ".done" for line in told if "done before" in line}, done)
        for name, stamp in stamps.items():
            self.assertEqual(os.stat(self.path("out/%s.csv" % name[:-5])).st_mtime_ns, stamp)
        found = {name: data for name, data in self.files("out").items() if not name.startswith(".kipx-")}
        self.assertEqual(found, self.files("whole"))

    def test_resume_notices_changes(self):
        self.images(1)
        line = ("mser", "i0.png", "-o", "out", "--resume")
        self.assertNotIn("done before", self.works(*line))
        self.assertIn("done before", self.works(*line))
        self.assertIn("done before", self.works(*line, "--fast"))
        self.assertNotIn("done before", self.works(*line, "--delta-levels", 7))
        self.assertNotIn("done before", self.works(*line))
        os.remove(self.path("out/i0.json"))
        self.assertNotIn("done before", self.works(*line))
        self.works("scene", "-o", "i0.png", "--size", "200x150", "--seed", 99)
        self.assertNotIn("done before", self.works(*line))

    def test_names_that_meet_are_refused(self):
        os.mkdir(self.path("sub"))
        self.put("a.png", write_png(blobs(1)))
        self.put("sub/a.png", write_png(blobs(2)))
        self.put("a.overlay.png", write_png(blobs(3)))
        self.refuses("mser", "a.png", "sub/a.png", "-o", "out", says=["a.png", "sub/a.png"])
        self.refuses("mser", "a.png", "a.overlay.png", "-o", ".", says=["a.overlay.png"])
        self.put("b.done", write_png(blobs(4)))  # an image, whatever its name says
        self.refuses("mser", "b.done", "-o", ".", says=["b.done"])

    def test_a_result_never_takes_the_place_of_the_mask(self):
        self.put("a.png", write_png(blobs(1)))
        self.put("b.png", write_png(blobs(2)))
        inside = Array("u8", 40, 30, 1, [1] * 1200)
        os.symlink("b.done", self.path("link.png"))
        for name in ("b.labels.tif", "b.overlay.png", "b.csv", "b.done"):
            with self.subTest(name):
                self.put(name, write_png(inside))
                mask = "link.png" if name == "b.done" else "./" + name
                self.refuses("mser", "a.png", "b.png", "-o", ".", "--mask", mask, says=["b.png", name, "--mask"])
                os.remove(self.path(name))
        self.put("mask.png", write_png(inside))
        self.works("mser", "a.png", "b.png", "-o", ".", "--mask", "mask.png")


if __name__ == "__main__":
    unittest.main()
