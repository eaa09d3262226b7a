"""Stable regions of pictures whose regions are known, the files of an image against each other, and many
images. What a stable region is, the library's own tests judge."""

import csv
import fcntl
import itertools
import json
import os
import signal
import subprocess
import time
import unittest

import numpy as np

from support import PROGRAM, ProgramCase, as_type, blobs, png, tiff

RESULTS = (".csv", ".json", ".labels.tif", ".overlay.png")


def squares():
    """Dark squares of 9, 16 and 25 pixels, a line of 15, and a bright ring around a dark square."""
    values = np.full((40, 60), 200, "u1")
    for i, side in enumerate((3, 4, 5)):
        values[5:5 + side, 5 + 10 * i:5 + 10 * i + side] = 50
    values[15, 5:20] = 50
    values[10:32, 34:56] = 250
    values[14:28, 38:52] = 100
    return values


def hull(points):
    """Corners of the convex hull in order, by A. M. Andrew's chains (1979)."""
    out = []
    for sign in (1, -1):
        chain = []
        for p in sorted(set(points), key=lambda p: (sign * p[0], sign * p[1])):
            while len(chain) > 1 and np.cross(np.subtract(chain[-1], chain[-2]), np.subtract(p, chain[-2])) <= 0:
                chain.pop()
            chain.append(p)
        out += chain[:-1]
    return np.array(out, "f8")


class Regions(ProgramCase):
    def table(self, name):
        return list(csv.DictReader(self.get(name).decode().splitlines()))

    def found(self, array, *options, most=1):
        self.put("in.npy", array)
        self.works("mser", "in.npy", "-o", "out", "--min-area-px", 16, "--max-area", most, "--max-variation", 0.5, *options)
        return self.table("out/in.csv")


class Known(Regions):
    def test_squares(self):
        """Boxes, areas, parents and values of both polarities, on the axes of the picture."""
        dark = {("5", "5"): None, ("15", "5"): 16, ("25", "5"): 25, ("38", "14"): 196}
        for fast in ((), ("--fast",)):
            for roi in ((), ("--roi", "2,3,58,37")):
                with self.subTest(fast=fast, roi=roi):
                    rows = self.found(squares(), *fast, *roi, most=0.3)
                    for row in rows:
                        if row["polarity"] == "dark":
                            self.assertEqual(dark[row["box_x"], row["box_y"]], int(row["area"]))
                    self.assertEqual(sorted(int(row["area"]) for row in rows if row["polarity"] == "dark"), [16, 25, 196])
                    ring, = [row for row in rows if row["polarity"] == "bright"]
                    self.assertEqual([ring[key] for key in ("area", "value", "box_width", "intensity_mean", "perimeter")],
                                     ["288", "250", "22", "250", "141.656854"])
                    self.assertEqual((float(ring["x"]), float(ring["y"]), float(ring["eccentricity"])), (44.5, 20.5, 0))

    def test_measures(self):
        """Of a region whose pixels are in the labels everything else follows."""
        values = as_type(blobs(21, 60, 50) * 3.0 + 500, "u16")
        rows = self.found(values, "--delta-levels", 8)
        labels = self.picture("out/in.labels.tif")
        alone = [row for row in rows if (labels == int(row["id"])).sum() == int(row["area"])]
        self.assertGreater(len(alone), 3)
        for row in alone:
            y, x = np.nonzero(labels == int(row["id"]))
            pixels = values[y, x].astype("f8")
            xx, yy, xy = x.var(), y.var(), ((x - x.mean()) * (y - y.mean())).mean()
            a, b = np.sqrt(np.linalg.eigvalsh([[xx, xy], [xy, yy]])[::-1] * 4)
            wanted = {"x": x.mean(), "y": y.mean(), "mxx": xx, "mxy": xy, "myy": yy, "half_axis_long": a,
                      "half_axis_short": b, "eccentricity": np.sqrt(1 - (b / a) ** 2), "box_x": x.min(), "box_y": y.min(),
                      "box_width": np.ptp(x) + 1, "box_height": np.ptp(y) + 1, "intensity_mean": pixels.mean(),
                      "intensity_min": pixels.min(), "intensity_max": pixels.max()}
            corners = hull([(i + p, j + q) for i, j in zip(x.tolist(), y.tolist()) for p in (0, 1) for q in (0, 1)])
            sides = np.roll(corners, -1, 0) - corners
            turned = corners @ (sides / np.linalg.norm(sides, axis=1)[:, None]).T
            across = corners @ (sides[:, ::-1] * [-1, 1] / np.linalg.norm(sides, axis=1)[:, None]).T
            boxes = np.ptp(turned, 0) * np.ptp(across, 0)
            wanted["hull_area"] = np.cross(corners, np.roll(corners, -1, 0)).sum() / 2
            wanted["solidity"] = len(x) / wanted["hull_area"]
            for column, value in wanted.items():
                self.assertAlmostEqual(float(row[column]), value, places=4, msg=column)
            self.assertAlmostEqual(float(row["rect_length"]) * float(row["rect_width"]), boxes.min(), places=2)
            along = np.radians(float(row["rect_angle"]))
            self.assertAlmostEqual(np.ptp(corners @ [np.cos(along), np.sin(along)]), float(row["rect_length"]), places=4)
            end = pixels.max() if row["polarity"] == "dark" else pixels.min()
            self.assertEqual(float(row["value"]), end)

    def test_perimeter_is_that_of_scikit_image(self):
        try:
            from skimage.measure import perimeter
        except ImportError:
            self.skipTest("scikit-image is not installed")
        rows = self.found(blobs(22, 80, 60), "--masks", "rle")
        masks = {mask["id"]: self.unpacked(mask["segmentation"]) for mask in json.loads(self.get("out/in.masks.json"))["annotations"]}
        for row in rows:
            self.assertAlmostEqual(float(row["perimeter"]), perimeter(np.pad(masks[int(row["id"])], 1)), places=5)

    @staticmethod
    def unpacked(runs):
        height, width = runs["size"]
        return np.repeat(np.arange(len(runs["counts"])) % 2, runs["counts"]).reshape(width, height).T

    @staticmethod
    def filled(rings, width, height):
        """Pixels with an odd number of upright sides to the left of them."""
        sides = np.zeros((height, width + 1), int)
        for ring in rings:
            for (x, y), (_, end) in zip(ring, ring[1:]):
                sides[min(y, end):max(y, end), x] += 1
        return np.cumsum(sides, axis=1)[:, :width] % 2

    def test_masks(self):
        """Runs and outlines hold the same pixels: as many as the area, all of the nested ones, each outline
        a closed path that meets itself nowhere."""
        for seed, connectivity in itertools.product(range(3), (4, 8)):
            array = blobs(seed, 60, 40, 12)
            rows = self.found(array, "--masks", "rle", "--connectivity", connectivity, "--min-diversity", 0.1)
            runs = json.loads(self.get("out/in.masks.json"))
            self.works("mser", "in.npy", "-o", "out", "--min-area-px", 16, "--max-area", 1, "--max-variation", 0.5,
                       "--masks", "polygons", "--connectivity", connectivity, "--min-diversity", 0.1, "--fast")
            self.assertFalse(os.path.exists(self.path("out/in.masks.json")))  # of an earlier run
            outlines = json.loads(self.get("out/in.geojson"))["features"]
            self.assertEqual([mask["id"] for mask in runs["annotations"]], [int(row["id"]) for row in rows])
            self.assertEqual([feature["id"] for feature in outlines], [int(row["id"]) for row in rows])
            masks = {}
            for mask, feature, row in zip(runs["annotations"], outlines, rows):
                pixels = masks[row["id"]] = self.unpacked(mask["segmentation"])
                self.assertEqual(pixels.sum(), int(row["area"]))
                kind, shapes = feature["geometry"]["type"], feature["geometry"]["coordinates"]
                shapes = [shapes] if kind == "Polygon" else shapes
                for ring in (ring for shape in shapes for ring in shape):
                    self.assertEqual(ring[0], ring[-1])
                    self.assertEqual(len(set(map(tuple, ring))), len(ring) - 1)
                np.testing.assert_array_equal(self.filled([r for s in shapes for r in s], 60, 40), pixels)
                for outer, *holes in shapes:  # a hole lies within the outline it belongs to
                    self.assertTrue((self.filled(holes, 60, 40) <= self.filled([outer], 60, 40)).all())
                if row["parent"] != "0":
                    self.assertTrue((masks[row["parent"]] >= pixels).all())

    def test_limits(self):
        self.put("in.npy", squares())
        self.works("mser", "in.npy", "-o", "out", "--min-area-px", 3, notes=["--min-area-px: got 3, taken as 16"])
        self.assertEqual(json.loads(self.get("out/in.json"))["settings"]["min_area_px"], 16)
        self.assertEqual({row["area"] for row in self.table("out/in.csv")}, {"16", "25", "196"})
        for options, areas in ((("--min-area-px", 17), {"25", "196"}), (("--min-area", 0.01, "--polarity", "dark"), {"25", "196"}),
                               (("--max-area", 0.05, "--polarity", "dark"), set())):
            self.works("mser", "in.npy", "-o", "out", *options)
            self.assertEqual({row["area"] for row in self.table("out/in.csv")}, areas, options)
        self.refuses("mser", "in.npy", "-o", "out2", "--min-area-px", 999, says=["in.npy: ", "least area"])


class FilesAgree(Regions):
    def test_one_picture(self):
        rows = self.found(blobs(21, 60, 50), "--min-diversity", 0.1)
        self.assertGreater(len(rows), 12)
        whole = json.loads(self.get("out/in.json"))
        self.assertEqual([whole["image"][key] for key in ("file", "width", "height", "type")], ["in.npy", 60, 50, "u8"])
        told = []

        def walk(regions, polarity, parent, depth):
            for region in regions:
                told.append([region["id"], polarity, parent, len(region["children"]), depth, region["area"], region["level"], *region["box"]])
                row = rows[region["id"] - 1]
                for column, value in (("x", region["centroid"][0]), ("perimeter", region["perimeter"]), ("intensity_mean", region["intensity"]["mean"])):
                    self.assertAlmostEqual(float(row[column]), value, places=5)
                walk(region["children"], polarity, region["id"], depth + 1)

        for polarity in ("dark", "bright"):
            walk(whole[polarity], polarity, 0, 0)
        keys = "id polarity parent children depth area level box_x box_y box_width box_height".split()
        self.assertEqual(told, [[row[key] if key == "polarity" else int(row[key]) for key in keys] for row in rows])
        self.assertTrue(any(row["parent"] != "0" for row in rows))
        self.assertEqual(self.picture("out/in.overlay.png").shape, (50, 60, 3))

    def test_both_floods_give_the_same_bytes(self):
        self.works("scene", "-o", "in.png", "--size", "300x200")
        self.put("mask.png", as_type([[0 if x // 40 % 3 == 1 else 255 for x in range(300)]] * 200, "u8"))
        for options in ((), ("--mask", "mask.png", "--connectivity", "4"), ("--roi", "20,30,200,150", "--ids", "--colours", "red-white")):
            for folder, fast in (("one", ()), ("two", ("--fast",))):
                self.works("mser", "in.png", "-o", folder, *fast, *options)
            self.assertEqual(self.folder_of("one"), self.folder_of("two"))

    def folder_of(self, name):
        return {os.path.relpath(path, self.path(name)): data for path, data in self.contents().items()
                if data is not None and path.startswith(self.path(name) + "/")}


class Levels(Regions):
    """What has more than 8 bits keeps its order."""

    def test_nothing_is_lost_while_it_fits(self):
        array = blobs(30)
        wanted = self.found(array)
        self.assertTrue(wanted)
        for kind, change in (("u16", lambda v: v + 5000), ("s16", lambda v: v - 300), ("f32", lambda v: v * 0.5), ("s32", lambda v: v * 1000)):
            rows = self.found(as_type(change(array.astype("i8")), kind))
            self.assertEqual(json.loads(self.get("out/in.json"))["levels"]["lost"], 0)
            if kind in ("u16", "s16"):  # shifted only: the very same regions
                self.assertEqual([(row["area"], row["x"], float(row["value"])) for row in rows],
                                 [(row["area"], row["x"], change(float(row["value"]))) for row in wanted])

    def test_order_is_kept_and_the_loss_counted(self):
        source = np.random.default_rng(4)
        pictures = {"steep": 1.5 ** (np.arange(1200) % 24) + np.arange(1200), "even": np.arange(1200) * 40,
                    "outlier": np.append(source.integers(0, 3000, 1199), 60000)}
        for (name, values), how in itertools.product(pictures.items(), ("auto", "linear", "equal")):
            with self.subTest(name, how=how):
                values = as_type(values, "u16").reshape(30, 40)
                rows = self.found(values, "--levels", how, "--delta-levels", 1, "--min-diversity", 0)
                told, distinct = json.loads(self.get("out/in.json"))["levels"], len(np.unique(values))
                self.assertEqual((told["values"], told["values"] - told["kept"]), (distinct, told["lost"]))
                self.assertGreaterEqual(told["kept"], {"auto": 192, "linear": 2, "equal": 256}[how])
                for polarity in ("dark", "bright"):
                    pairs = sorted((float(row["value"]), int(row["level"])) for row in rows if row["polarity"] == polarity)
                    self.assertEqual([level for _, level in pairs], sorted(level for _, level in pairs))

    def test_few_values_are_spread(self):
        """Which value is next counts, not how far: the regions are those of the evenly spread picture."""
        source = np.random.default_rng(6)
        keys = ("polarity", "level", "area", "variation", "x", "y")
        for count in (2, 10, 52, 256):
            ranks = blobs(32, noise=0).astype(int) * (count - 1) // 255
            ranks.flat[:2 * count:2] = range(count)  # each of them is used
            values = np.sort(source.uniform(-1, 1, count) * 10.0 ** source.integers(0, 30, count))
            wanted = [[row[key] for key in keys] for row in self.found(as_type(ranks * 255 // (count - 1), "u8"))]
            for how in ("auto", "equal"):
                rows = self.found(as_type(values[ranks], "f32"), "--levels", how)
                self.assertEqual([[row[key] for key in keys] for row in rows], wanted, (count, how))

    def test_colour_alpha_and_nan(self):
        grey = blobs(31)
        grey.flat[:2] = 0, 255  # so that linear levels are the values
        wanted = self.found(grey)
        self.assertEqual(self.found(np.dstack([grey] * 3 + [grey * 0])), wanted)
        nan = grey.astype("f4")
        nan[3] = np.nan
        self.put("mask.png", as_type(np.arange(30)[:, None].repeat(40, 1) != 3, "u8"))
        self.assertEqual(self.found(nan, "--levels", "linear"), self.found(grey, "--mask", "mask.png"))


class ManyImages(FilesAgree):
    def images(self, count, size="200x150"):
        self.works("-q", "scene", "-o", "i.png", "--size", size, "--frames", count)
        return sorted(name for name in os.listdir(self.folder) if name.startswith("i-"))

    def test_equal_runs_give_equal_folders(self):
        names = self.images(5)
        told = [self.works("mser", *names, "-o", folder, "--jobs", jobs) for folder, jobs in (("one", 1), ("four", 4))]
        self.assertEqual(self.folder_of("one"), self.folder_of("four"))
        self.assertEqual(len(self.folder_of("one")), 26)
        for text in told:
            self.assertEqual([line.split(":")[0] for line in text.splitlines()], names)
        rows = self.table("one/summary.csv")
        self.assertEqual([int(row["regions"]) for row in rows], [len(self.table("one/%s.csv" % name[:-4])) for name in names])

    def test_a_refused_image_stops_no_other(self):
        names = self.images(3)
        self.works("mser", *names, "-o", "out")
        self.put(names[1], b"no image")
        done = self.run_program("mser", names[0], "absent.png", *names[1:], "-o", "out", "--jobs", 2)
        self.assertEqual(done.returncode, 2)
        self.assertEqual([line.split(": ")[1] for line in done.stderr.decode().splitlines()], ["absent.png", names[1]])
        self.assertEqual([line.split(":")[0] for line in done.stdout.decode().splitlines()], [names[0], names[2]])
        self.assertFalse(os.path.exists(self.path("out/%s.done" % names[1][:-4])))  # of the first run
        self.assertEqual([bool(row["failure"]) for row in self.table("out/summary.csv")], [False, True, True, False])

    def test_killed_and_resumed(self):
        names = self.images(8)
        self.works("mser", *names, "-o", "whole")
        for number in (signal.SIGKILL, signal.SIGTERM, signal.SIGINT):
            child = subprocess.Popen([PROGRAM, "mser", *names, "-o", "out"], cwd=self.folder, stdout=subprocess.DEVNULL)
            limit = time.monotonic() + 60
            while time.monotonic() < limit and not os.path.exists(self.path("out/i-03.done")):
                time.sleep(0.001)
            child.send_signal(number)
            self.assertIn(child.wait(), (-number, 0))
            if number != signal.SIGKILL:
                self.assertFalse([name for name in os.listdir(self.path("out")) if name.startswith(".kipx")])
            done = {name[:-5] for name in os.listdir(self.path("out")) if name.endswith(".done")}
            stamps = {name: os.stat(self.path("out/%s.csv" % name)).st_mtime_ns for name in done}
            told = self.works("mser", *names, "-o", "out", "--resume").splitlines()
            self.assertEqual({line.split(".")[0] for line in told if "done before" in line}, done)
            self.assertEqual(stamps, {name: os.stat(self.path("out/%s.csv" % name)).st_mtime_ns for name in done})
            self.assertEqual(self.folder_of("out"), self.folder_of("whole"))
            subprocess.run(["rm", "-r", self.path("out")], check=True)

    def test_resume_notices_changes(self):
        self.put("a.png", blobs(1))
        line = ("mser", "a.png", "-o", "out", "--resume")
        again = lambda *more: "done before" in self.works(*line, *more)
        self.assertEqual([again(), again(), again("--fast"), again("--delta-levels", 7), again()], [False, True, True, False, False])
        for change in (lambda: os.remove(self.path("out/a.json")), lambda: self.put("out/a.csv", b""),
                       lambda: self.put("out/a.csv", self.get("out/a.csv").replace(b"a.png", b"b.png")),
                       lambda: self.put("out/a.done", b"{}"), lambda: self.put("a.png", blobs(2))):
            change()
            self.assertEqual([again(), again()], [False, True])

    def test_only_dead_temporary_files_are_swept(self):
        self.put("a.png", blobs(1))
        for name in (".kipx-dead00", ".kipx-alive0", ".kipx-other-name", "mine"):
            self.put("out/" + name, b"")
        with open(self.path("out/.kipx-alive0"), "rb") as held:
            fcntl.flock(held, fcntl.LOCK_EX)
            self.works("mser", "a.png", "-o", "out")
        self.assertEqual(sorted(name for name in os.listdir(self.path("out")) if "a." not in name),
                         [".kipx-alive0", ".kipx-other-name", "mine", "summary.csv"])

    def test_folders_and_names(self):
        for name in ("in/a.png", "in/b.png", "in/sub/a.png", "in/sub/c.tif", "in/.hidden.png", "in/notes.txt", "x/a.png"):
            self.put(name, blobs(1) if name[-3:] != "txt" else b"text")
        self.put("in/a.jpg", blobs(1))

        def results(*line):
            self.works("mser", *line, "-o", "out", "--no-labels", "--no-overlay")
            found = sorted(name[:-5] for name in self.folder_of("out") if name.endswith(".done"))
            files = {row["file"] for name in found for row in self.table("out/%s.csv" % name)}
            self.assertEqual(files, {row["file"] for row in self.table("out/summary.csv") if row["regions"] != "0"})
            subprocess.run(["rm", "-r", self.path("out")], check=True)
            return found

        self.assertEqual(results("in"), ["a.jpg", "a.png", "b"])
        self.assertEqual(results("in", "--subfolders"), ["a.jpg", "a.png", "b", "sub/a", "sub/c"])
        self.assertEqual(results("in", "--subfolders", "--pattern", "*.tif"), ["sub/c"])
        self.assertEqual(results("in/a.png", "x/a.png", "in/sub/c.tif"), ["c", "in/a", "x/a"])
        self.put("summary.png", blobs(1))
        self.assertEqual(results("summary.png"), ["summary.png"])
        self.works("mser", "x", "-o", "x")
        self.works("mser", "x", "-o", "x")  # its own results are no images

    def test_results_never_take_the_place_of_what_is_read(self):
        for name in ("a.png", "a.overlay.png", "b.png"):
            self.put(name, blobs(1))
        self.refuses("mser", "a.png", "a.overlay.png", "-o", ".", says=["a.overlay.png"])
        for name in ("b.labels.tif", "b.overlay.png", "b.csv", "b.done"):
            self.put(name, png(np.ones((30, 40), "u1")))
            os.symlink(name, self.path("link.png"))
            self.refuses("mser", "b.png", "-o", ".", "--mask", "link.png", says=["b.png", name, "--mask"])
            os.remove(self.path(name))
            os.remove(self.path("link.png"))

    def test_pages(self):
        stack = np.stack([blobs(seed) for seed in range(3)])
        self.put("s.tif", tiff(stack))
        told = self.works("mser", "s.tif", "-o", "all", "--page", "all").splitlines()
        self.assertEqual(["page %d of 3" % page in line for page, line in enumerate(told, 1)], [True] * 3)
        for page in (1, 2, 3):
            self.put("one.png", stack[page - 1])
            self.works("mser", "one.png", "-o", "one")
            self.works("mser", "s.tif", "-o", "some", "--page", page)
            tables = [[list(row.values())[2:] for row in self.table(name)] for name in ("all/s-p%d.csv" % page, "one/one.csv", "some/s.csv")]
            self.assertEqual(tables[0], tables[1])
            self.assertEqual(tables[0], tables[2])
        self.put("s.tif", tiff(stack)[:-1500])
        done = self.run_program("mser", "s.tif", "-o", "cut", "--page", "all")
        self.assertEqual(done.returncode, 2)


if __name__ == "__main__":
    unittest.main()
