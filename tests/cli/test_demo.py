"""The scene is the same everywhere and its truth is true; the demo's files are what its steps claim, and
what a person sees fits the terminal."""

import csv
import fcntl
import hashlib
import os
import pty
import re
import shutil
import struct
import subprocess
import termios
import unittest
import xml.etree.ElementTree as xml

import numpy as np

from support import PROGRAM, ProgramCase, as_type, blobs

# Of the elements (little-endian) of .npy files. A change here changes every picture made before.
PINNED = {
    ("--size", "320x200"): "9166dbad47798d521cea62c5a2f31d3bd28155a7ce77d4af93018ac734b39c41",
    ("--size", "97x131", "--seed", "7", "--cells", "9"): "b207be9d148198ee0415a7de9f5a4bd025c71a74d19bef3b92d8bca323d85ad7",
    ("--size", "1x1"): "dbc1b4c900ffe48d575b5da5c638040125f65db0fe3e24494b76ea986457d986",
    ("--size", "3000x3", "--seed", "9223372036854775807"): "ead993c0904c38a54b285bd24b873a11e66012b520dba9314a87ef65515d8525",
}
TRUTH = "2215c46be35dee36130695c24636dd815a5938782147fa498d5159f06783adc1"


class Scene(ProgramCase):
    def test_the_same_bytes_everywhere(self):
        digest = lambda name: hashlib.sha256(self.picture(name).tobytes()).hexdigest()
        for options, wanted in PINNED.items():
            self.works("scene", "-o", "s.npy", *options)
            self.assertEqual(digest("s.npy"), wanted, options)
        self.works("scene", "-o", "s.npy", "--size", "320x200", "--truth", "t.npy", "--frames", 2)
        self.assertEqual(digest("t.npy"), TRUTH)
        self.assertEqual(digest("s-01.npy"), PINNED["--size", "320x200"])
        self.assertNotEqual(digest("s-02.npy"), PINNED["--size", "320x200"])

    def test_cells_stand_out_from_the_light(self):
        self.works("scene", "-o", "s.png", "--truth", "t.npy", "--background", "b.png")
        truth, above = self.picture("t.npy"), self.picture("s.png").astype(float) - self.picture("b.png")
        self.assertLess(abs(np.median(above[truth == 0])), 4)
        contrast = np.array([above[truth == cell].mean() for cell in range(1, truth.max() + 1) if (truth == cell).any()])
        self.assertGreater((abs(contrast) > 10).mean(), 0.95)
        self.assertGreater((contrast > 0).sum(), (contrast < 0).sum())
        self.assertGreater((contrast < 0).sum(), len(contrast) // 6)
        self.assertGreater(((truth[:, 1:] != truth[:, :-1]) & (truth[:, 1:] > 0) & (truth[:, :-1] > 0)).sum(), 10)  # some touch


class Demo(ProgramCase):
    def test_what_it_tells_is_what_it_writes(self):
        told = self.works("demo", "--size", "400x300", "--frames", "64", "--min-diversity", "0.9")
        single, mean = map(float, re.search(r"one frame ([\d.]+), mean of 64 ([\d.]+)", told).groups())
        self.assertTrue(single / 10 < mean < single / 6)
        mean, background, flat = (self.picture("demo/%s.png" % name).astype(int) for name in ("mean", "background", "flat"))
        level = int(re.search(r"pedestal of (\d+)", told).group(1))
        np.testing.assert_array_equal(flat, (mean - background + level).clip(0, 255))
        rows = list(csv.DictReader(self.get("demo/regions.csv").decode().splitlines()))
        total, dark, bright = map(int, re.search(r"(\d+) stable regions, (\d+) dark \D*(\d+) bright", told).groups())
        self.assertEqual((total, [dark, bright]), (len(rows), [sum(row["polarity"] == p for row in rows) for p in ("dark", "bright")]))
        xml.fromstring(self.get("demo/tree.svg"))
        # A region that stands alone has the pixels that its label has: they must not tell more than found.
        found, cells = map(int, re.search(r"truth: (\d+) of (\d+) cells", told).groups())
        labels, truth = self.picture("demo/labels.tif"), self.picture("demo/truth.tif")
        self.assertEqual(cells, len(np.unique(truth)) - 1)
        sure = set()
        for row in rows:
            region = labels == int(row["id"])
            for cell in np.unique(truth[region]) if region.sum() == int(row["area"]) else []:
                if cell and (region & (truth == cell)).sum() * 2 > (region | (truth == cell)).sum():
                    sure.add(cell)
        self.assertTrue(cells // 3 < len(sure) <= found)

    def test_the_same_as_mser(self):
        for array in (blobs(1, 90, 60), as_type(blobs(2, 60, 60)[..., None] * np.array([200, 100, 50]), "u16")):
            self.put("in.png", array)
            self.works("demo", "in.png", "-o", "shown")
            self.works("mser", "in.png", "-o", "found")
            for shown, found in (("regions.csv", "in.csv"), ("regions.json", "in.json"), ("labels.tif", "in.labels.tif"), ("overlay.png", "in.overlay.png")):
                same = array.dtype == "u1" or shown != "overlay.png"
                self.assertEqual(self.get("shown/" + shown) == self.get("found/" + found), same, shown)

    def test_it_takes_away_what_the_last_one_wrote(self):
        self.works("demo", "-q", "--size", "64x48", "--frames", "2")
        self.put("demo/mine.txt", b"mine")
        self.put("demo/flat.png", b"changed")
        for line in (("demo/overlay.png",), ("in.png", "--mask", "demo/labels.tif")):
            self.put("in.png", blobs(1))
            self.refuses("demo", *line, "-o", "demo", says=["demo"])
        self.works("-q", "demo", "in.png", "-o", "demo")
        self.assertEqual(sorted(os.listdir(self.path("demo"))), sorted("demo.done flat.png labels.tif mine.txt overlay.png regions.csv regions.json tree.svg".split()))
        for folder in ("in.png", "in.png/new", "in.png/a/b"):
            done = self.run_program("demo", "in.png", "-o", folder)
            self.assertEqual((done.returncode, done.stdout, done.stderr.count(b"\n")), (2, b"", 1))

    def test_small_and_wide_pictures(self):
        for array in (blobs(1, 1, 1), as_type(np.arange(400).reshape(2, 200) * 100, "u16"), blobs(2, 2, 300)):
            self.put("in.png", array)
            self.works("demo", "in.png", "-o", "out", "-q")
            self.assertEqual(self.picture("out/overlay.png").shape, (*array.shape, 3))
        self.works("demo", "--size", "1x1", "-q")


class Terminal(ProgramCase):
    def shown(self, *line, columns=80, rows=24, **environment):
        """What the program writes to a terminal of that size."""
        leader, follower = pty.openpty()
        fcntl.ioctl(follower, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))
        child = subprocess.Popen([PROGRAM, *line], cwd=self.folder, stdin=follower, stdout=follower, stderr=follower,
                                 env={**os.environ, "TERM": "xterm", "NO_COLOR": "", **environment})
        os.close(follower)
        out = b""
        try:
            while data := os.read(leader, 65536):
                out += data
        except OSError:
            pass
        child.wait()
        os.close(leader)
        return out.decode()

    def test_pictures_and_bars_fit(self):
        self.put("a.png", blobs(1, 200, 150))
        self.put("b.png", blobs(2, 200, 150))
        for columns, rows in ((80, 24), (120, 60), (30, 12)):
            lines = self.shown("demo", "a.png", columns=columns, rows=rows).split("\r\n")
            picture = [line for line in lines if "\033[38;2" in line]
            plain = [line for line in lines if line not in picture]
            used = len(picture) + sum(1 + max(len(line) - 1, 0) // columns for line in plain)
            self.assertTrue(used <= rows + 1 or not picture, (columns, rows, used))
            self.assertEqual(bool(picture), rows > 12)
            self.assertTrue(all(line.count("\u2580") <= columns for line in picture))
            bar = self.shown("mser", "a.png", "b.png", "-o", "out", columns=columns)
            self.assertTrue(all(len(part) < columns for part in re.findall(r"\r\033\[K(\[?[#.\]]*[^\r\n]* left)", bar)))
            self.assertIn("\033[K", bar)
        for environment in ({"NO_COLOR": "1"}, {"TERM": "dumb"}):
            self.assertNotIn("\033[38", self.shown("demo", "a.png", **environment))
        self.assertNotIn("\033", self.shown("mser", "a.png", "b.png", "-o", "out", TERM="dumb"))


class Reference(ProgramCase):
    def test_every_option_is_in_the_manual_and_completed(self):
        self.works("reference", "made")
        bash, zsh, fish = (self.get("made/" + name).decode() for name in ("kipx.bash", "_kipx", "kipx.fish"))
        for command in "add info scene mser tree demo".split():
            page = self.get("made/kipx-%s.1" % command).decode()
            for option in set(re.findall(r"^  (?:-\w,)?(--[a-z-]+)", self.works(command, "--help"), re.M)):
                self.assertIn(option.replace("-", "\\-"), page)
                self.assertIn(option, zsh)
                self.assertIn("-l " + option[2:], fish)
        ask = '. made/kipx.bash; COMP_WORDS=(%s); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _kipx; echo "${COMPREPLY[@]}"'
        for words, wanted in (("kipx ms", "mser"), ("kipx --sim", "--simd"), ("kipx mser a.png --polarity b", "bright both"),
                              ("kipx mser --min-a", "--min-area-px --min-area"), ("kipx add --quiet --over", "--overflow")):
            self.assertEqual(subprocess.check_output(["bash", "-c", ask % words], cwd=self.folder, text=True).strip(), wanted)
        for shell, name in (("zsh", "_kipx"), ("fish", "kipx.fish")):
            if shutil.which(shell):
                subprocess.run([shell, "-n", self.path("made/" + name)], check=True)
        if shutil.which("man"):
            done = subprocess.run(["man", "--warnings", "-l", self.path("made/kipx-mser.1")], capture_output=True, text=True, check=True)
            self.assertEqual(done.stderr, "")
            self.assertIn("--polarity", done.stdout)


if __name__ == "__main__":
    unittest.main()
