"""Wherever memory fails, the program ends with one sentence and status 2, and no file is half-written."""

import os
import subprocess
import unittest

import numpy as np

from support import PROGRAM, ProgramCase, blobs

SHIM = os.environ.get("KIPX_SHIM")
# Commands, and how many of their allocations are made to fail in all.
COMMANDS = {
    "add": (["add", "a.png", "b.tif", "-o", "out.png", "--scale", "-1"], 120),
    "jpeg": (["sub", "a.jpg", "a.png", "-o", "out.jpg"], 40),
    "info": (["info", "a.png", "b.tif", "c.npy"], 40),
    "mser": (["mser", "a.png", "b.tif", "-o", "out", "--jobs", "2", "--masks", "polygons"], 120),
    "tree": (["tree", "a.png", "-o", "out.svg"], 40),
    "threshold": (["threshold", "a.png", "-o", "out.png", "--sauvola", "9"], 40),
    "stats": (["stats", "c.npy", "-o", "out.json", "--histogram", "out.csv", "--mask", "a.png"], 40),
    "convert": (["convert", "b.tif", "-o", "out.tif", "--type", "f32", "--stretch"], 40),
    "morph": (["morph", "a.png", "-o", "out.png", "--op", "open", "--shape", "disk"], 40),
    "wrong": (["mser", "a.png", "-o", "out", "--delta", "x"], 40),
}


@unittest.skipUnless(SHIM, "built with sanitizers")
class Failing(ProgramCase):
    def setUp(self):
        super().setUp()
        self.put("a.png", blobs(1))
        self.put("a.jpg", blobs(1))
        self.put("b.tif", blobs(2))
        self.put("c.npy", blobs(3).astype("f4"))

    def attempt(self, line, fail):
        environment = {**os.environ, "LD_PRELOAD": SHIM, "KIPX_FAIL": str(fail), "KIPX_COUNT": self.path("count")}
        return subprocess.run([PROGRAM, *line], cwd=self.folder, capture_output=True, env=environment, timeout=60,
                              check=False)

    def results(self):
        inputs = {"a.png", "a.jpg", "b.tif", "c.npy", "count"}
        return {name: data for name, data in self.contents().items() if os.path.basename(name) not in inputs}

    def clear(self):
        subprocess.run("rm -rf out*", cwd=self.folder, shell=True, check=True)

    def test_every_command(self):
        for name, (line, tries) in COMMANDS.items():
            self.clear()
            whole = self.attempt(line, 0)
            wanted, count = self.results(), int(self.get("count"))
            self.assertGreater(count, tries, name)
            told = 0
            for step in range(tries):
                number = 1 + step * count // tries
                self.clear()
                done = self.attempt(line, number if step % 2 else -number)
                with self.subTest(name, allocation=number, sign=step % 2, told=done.stderr):
                    self.assertIn(done.returncode, (whole.returncode, 2))
                    found = self.results()
                    if done.returncode == 0:
                        self.assertEqual(found, wanted)
                        continue
                    told += 1
                    self.assertIn(b"kipx: ", done.stderr)
                    self.assertLessEqual(done.stderr.count(b"\n"), 3)  # a line an image at most
                    for path, data in found.items():
                        self.assertNotIn(".kipx-", path)
                        if "summary" not in path:
                            self.assertEqual(data, wanted.get(path), path)
            self.assertGreater(told, tries // 2, name)


if __name__ == "__main__":
    unittest.main()
