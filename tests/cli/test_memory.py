"""Wherever memory fails, the program ends with one sentence and status 2, and no file is half-written."""

import glob
import os
import shutil
import subprocess
import unittest

import numpy as np

from support import PROGRAM, ProgramCase, blobs

SHIM = os.environ.get("KIPX_SHIM")
EVERY = "KIPX_EVERY" in os.environ
# Commands, and how many of their allocations are made to fail in all, but for KIPX_EVERY.
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
        for name in glob.glob(self.path("out*")):
            shutil.rmtree(name) if os.path.isdir(name) else os.remove(name)

    def spread(self, count, tries):
        return [(1 + step * count // tries) * (-1) ** step for step in range(tries)]

    def every(self, count, least, turn):
        """The same requests set up the options of all commands: each takes its turn there. Of those that are a
        command's own, all, or a thousand."""
        own = least - 200
        return [*(number * (-1) ** number for number in range(1 + turn, own, 5 * len(COMMANDS))),
                *(number * sign for number in range(own, count + 1, 1 + (count - own) // 1000) for sign in (1, -1))]

    def test_every_command(self):
        counts = {}
        for name, (line, tries) in COMMANDS.items():
            self.clear()
            self.attempt(line, 0)
            counts[name] = int(self.get("count"))
            self.assertGreater(counts[name], tries, name)
        runs = refused = 0
        for turn, (name, (line, tries)) in enumerate(COMMANDS.items()):
            self.clear()
            whole = self.attempt(line, 0)
            wanted, told = self.results(), 0
            failing = self.spread(counts[name], tries)
            if EVERY:
                failing = self.every(counts[name], min(counts.values()), turn)
            for number in failing:
                self.clear()
                done = self.attempt(line, number)
                with self.subTest(name, allocation=number, told=done.stderr):
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
            self.assertGreater(told, len(failing) // 2, name)
            runs, refused = runs + len(failing), refused + told
            print(f"{name}: {counts[name]} requests, {len(failing)} runs, {told} ended in a sentence", flush=True)
        print(f"{len(COMMANDS)} commands, {runs} runs, {refused} ended in a sentence")


if __name__ == "__main__":
    unittest.main()
