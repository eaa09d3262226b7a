"""Arguments that cannot be: status 2, one line that names the argument, no file written."""

import os
import re
import subprocess
import tempfile
import unittest

import numpy as np

from support import PROGRAM, ProgramCase

# Names that no picture can be written to.
NO_PICTURES = ["out.bmp", "no/such/o.png", "folder.png", ""]
# What the values of a command's options may not be; where it goes unless that is the value in question.
VALUES = {
    ("out.png", "add", "a.png", "b.png"): {
        "--scale": ["x", "1.5", "64", "-32", "", "99999999999999999999", "0x3"], "--overflow": ["clip", ""],
        "--type": ["u16", ""], "--roi": ["1,2,3", "1,2,3,4,5", "0,0,0,5", "-1,0,5,5", "a,b,c,d", "1,,3,4", "",
                                         "0,0,4294967296,1"],
        "--at1": ["1", "1,2,3", ""], "--at2": ["-1,0", "8,0"], "--simd": ["maybe"], "--set": ["sse"], "--page": ["0", "all", "2"],
        "--max-pixels": ["0", "", "-5"], "--format": ["bmp", ""], "-o": ["out.bmp", "out", "", ".png", "no/such/o.png",
                                                                       "folder.png", "-"]},
    ("out", "mser", "a.png"): {
        "--delta-levels": ["0", "256"], "--min-area-px": ["0"], "--min-area": ["1.5", "nan", "0"],
        "--max-area": ["-0.1", "", "0", "0.001"], "--max-variation": ["half", "inf"], "--min-diversity": ["2"],
        "--polarity": ["grey"], "--connectivity": ["6"], "--levels": ["log"], "--mask": ["absent.png", ""],
        "--jobs": ["0", "many"], "--page": ["0", "any"], "--masks": ["png"], "--colours": ["red"]},
    ("s.png", "scene"): {
        "--size": ["0x5", "10", "10x", "99999x99999", ""], "--seed": ["-1"], "--cells": ["0", "999999"],
        "--frames": ["0"], "--truth": ["t.bmp", "t.jpg", "", "s.png", "./s.png"], "--background": ["no/such/c.png"]},
    ("demo", "demo"): {"--frames": ["3", ""], "--size": ["5"], "--seed": [""], "-o": ["", "a.png", "a.png/b/c"], "--roi": [""],
                "--page": ["2"]},
    ("t.svg", "tree", "a.png"): {"-o": ["t.png", "", "no/such/t.svg"], "--depth": ["-1"], "--smallest": ["0"],
                        "--roi": ["8,0,1,1"], "--mask": ["small.png", "zero.png"], "--format": ["png"]},
    ("out.png", "compare", "a.png", "b.png"): {"--op": ["like", ""], "--page": ["0"], "--format": ["bmp"], "-o": NO_PICTURES},
    ("out.png", "threshold", "a.png"): {"--value": ["", "x", "1,2", "nan", "1,"], "--blur": ["0", "256", "x"], "--sauvola": ["0", "1.5"]},
    ("out.png", "threshold", "a.png", "--sauvola", "5"): {"--k": ["x", "nan", "11"]},
    ("out.png", "threshold", "a.png", "--otsu"): {
        "--range": ["", "5", "9,3", "1,x", "300,400"], "--bins": ["0", "1", "x", "99999999999"], "--op": ["equal"], "-o": NO_PICTURES},
    ("out.json", "stats", "a.png"): {
        "--bins": ["0", "1", "1048577"], "--range": ["", "5", "5,5", "9,3", "nan,1"], "--roi": ["8,0,1,1", "1,2,3", "0,0,0,5"],
        "--mask": ["absent.png", "small.png", "rgb.png", ""], "--histogram": ["", "no/such/b.csv", "out.json"], "--format": ["xml"],
        "--page": ["0", "2"], "-o": ["x.png", "", "no/such/s.csv", "folder.png"]},
    ("out.png", "convert", "a.png"): {
        "--type": ["u64", ""], "--scale": ["", "x", "1,2", "inf", "1,2,3,4,5"], "--shift": ["1,,2", "nan"], "--page": ["0"],
        "--format": ["bmp"], "-o": NO_PICTURES},
    ("out.png", "pad", "a.png"): {"--by": ["", "x", "-1", "1.5", "1,2,3", "1,2,3,4,5", "2000000000"]},
    ("out.png", "pad", "a.png", "--by", "1"): {"--border": ["nul", ""], "--roi": ["8,0,1,1", "7,0,2,1", "x"], "--value": ["3"], "-o": NO_PICTURES},
    ("out.png", "pad", "a.png", "--by", "1", "--border", "const"): {"--value": ["x", "1,2"]},
    ("out.png", "filter", "a.png"): {"--kind": ["median", ""]},
    ("out.png", "filter", "a.png", "--kind", "max"): {
        "--size": ["0", "0x3", "x", ""], "--anchor": ["5,0", "x"], "--border": ["wrap", "none"],
        "--mask": ["absent.png", "small.png", "rgb.png"], "--page": ["0"], "-o": NO_PICTURES},
    ("out.png", "morph", "a.png", "--op", "open"): {"--shape": ["absent.png", "rgb.png", ""], "--size": ["65536"]},
    ("out.png", "gauss", "a.png"): {"--sigma": ["0", "-1", "x", "nan", "1,2,3", ""], "--size": ["0"]},
    ("out.png", "sepfilter", "a.png", "--rows", "1"): {"--columns": ["", "1,x", "nan"]},
    ("out.png", "firefly", "a.png"): {"--bright": ["-1", "x", "nan", ""], "--dark": ["-1"]},
}
# What may be named instead of the option: the file or folder.
LONG = {"-o": ("--output", "no/such", "folder.png"), "--mask": ("mask", "absent.png"),
        "--truth": ("--truth", "t.bmp", "t.jpg", "s.png"), "--background": ("no/such",), "--histogram": ("--histogram", "no/such"),
        "--shape": ("--shape", "absent.png")}

# Whole command lines, and what the sentence must hold.
LINES = [
    ([], ["--help"]), (["bogus"], ["'bogus'"]), (["ad", "a.png", "b.png", "-o", "o"], ["'ad'", "did you mean 'add'?"]),
    (["mser", "a.png", "-o", "d", "--delta", "5"], ["'--delta'", "kipx mser --help"]),
    (["mser", "a.png", "-o", "d", "--min-aera", "5"], ["did you mean '--min-area'?"]),
    (["add"], ["A is required", "kipx add --help"]), (["add", "a.png", "b.png"], ["--output"]),
    (["add", "a.png", "b.png", "-o"], ["--output: got no value"]), (["add", "a.png", "b.png", "c.png", "-o", "o.png"], ["c.png"]),
    (["add", "a.png", "rgb.png", "-o", "out.png"], ["channel"]), (["add", "a.png", "small.png", "-o", "o.png"], ["7x5", "--roi"]),
    (["add", "-", "-", "-o", "o.png"], ["B: got '-'"]), (["muladd", "a.png", "2", "absent", "-o", "o.png"], ["C: got 'absent'"]),
    (["mul", "a.png", "b.png", "-o", "o.png", "--overflow", "wrap"], ["--overflow"]),
    (["add", "a.png", "b.png", "-o", "o.png", "--overflow", "wrap", "--scale", "1"], ["--overflow", "--scale"]),
    (["add", "a.png", "b.png", "-o", "o.png", "--overflow", "saturate", "--type", "f32"], ["--overflow", "f32"]),
    (["mser", "a.png", "-o", "d", "--min-area", "0.5", "--max-area", "0.1"], ["--min-area"]),
    (["mser", "a.png", "-o", "d", "--min-area", "0.5", "--min-area-px", "9"], ["--min-area"]),
    (["mser", "a.png", "-o", "d", "--no-overlay", "--ids"], ["--ids", "--no-overlay"]),
    (["mser", "a.png", "-o", "d", "--pattern", "*.png"], ["--pattern"]), (["mser", "a.png", "./a.png", "-o", "d"], ["twice"]),
    (["mser", "empty", "-o", "d"], ["empty"]), (["mser", "a.png", "-o", "a.png"], ["--output", "a.png"]),
    (["mser", "a.png", "-o", "a.png/b"], ["--output", "a.png/b"]), (["mser", "-o", "d"], ["FILE"]),
    (["scene", "-o", "s.png", "--frames", "3", "--truth", "s-02.png"], ["s-02.png"]),
    (["demo", "absent.png"], ["absent.png"]), (["demo", "a.png", "b.png"], ["b.png"]), (["demo", "a.png", "--size", "9x9"], ["--size"]),
    (["tree", "a.png", "-o", "t.svg", "--depth", "3"], ["--depth"]), (["tree", "a.png", "-o", "t.svg", "--smallest", "3"], ["--smallest"]),
    (["tree", "a.png", "--fast"], ["--fast"]),
    (["compare", "a.png", "-o", "o.png"], ["B is required"]), (["compare", "a.png", "1,2", "-o", "o.png"], ["B: got 2 numbers"]),
    (["compare", "a.png", "small.png", "-o", "o.png"], ["small.png: is 7x5"]),
    (["threshold", "a.png", "-o", "o.png"], ["no method", "--otsu"]),
    (["threshold", "a.png", "--otsu", "--value", "3", "-o", "o.png"], ["2 methods"]),
    (["threshold", "a.png", "--value", "3", "--bins", "9", "-o", "o.png"], ["--bins requires --otsu"]),
    (["threshold", "a.png", "--otsu", "--k", "0.1", "-o", "o.png"], ["--k requires --sauvola"]),
    (["convert", "a.png", "-o", "o.png", "--stretch", "--scale", "2"], ["--stretch", "--scale"]),
    (["gauss", "a.png", "-o", "o.png"], ["--sigma", "--size"]), (["firefly", "a.png", "-o", "o.png"], ["--bright", "--dark"]),
    (["morph", "a.png", "-o", "o.png", "--op", "open", "--shape", "b.png", "--size", "3"], ["--size", "b.png"]),
]


class Arguments(ProgramCase):
    def setUp(self):
        super().setUp()
        grey = np.arange(40, dtype="u1").reshape(5, 8)
        for name, array in (("a", grey), ("b", grey), ("rgb", np.dstack([grey] * 3)), ("small", grey[:, :7]), ("zero", grey * 0)):
            self.put(name + ".png", array)
        os.mkdir(self.path("folder.png"))
        os.mkdir(self.path("empty"))

    def test_values(self):
        for (output, *line), options in VALUES.items():
            for option, values in options.items():
                for value in values:
                    with self.subTest(line, option=option, value=value):
                        where = [] if option == "-o" else ["-o", output]
                        text = self.refuses(*line, *where, option, value)
                        self.assertTrue(any(name in text for name in LONG.get(option, (option,))), text)

    def test_command_lines(self):
        for line, says in LINES:
            with self.subTest(line):
                self.refuses(*line, says=says)

    def test_a_failure_leaves_an_old_result_alone(self):
        self.put("out.png", b"old")
        self.refuses("sub", "a.png", "b.png", "-o", "out.png", "--type", "s16", "--at2", "1,0", says=["out.png"])

    def test_what_may_not_be_written_is_refused_before_the_work(self):
        self.put("out.png", b"old")
        os.chmod(self.path("out.png"), 0o444)
        self.refuses("add", "a.png", "absent.png", "-o", "out.png", says=["out.png", "read-only"])
        self.put("d/a.csv", b"old")
        os.chmod(self.path("d/a.csv"), 0o444)
        self.refuses("mser", "a.png", "absent.png", "-o", "d", says=["a.csv", "read-only"])
        os.chmod(self.path("out.png"), 0o640)
        self.works("-q", "add", "a.png", "b.png", "-o", "out.png")
        self.assertEqual(os.stat(self.path("out.png")).st_mode & 0o777, 0o640)

    def test_a_full_disk_is_a_sentence(self):
        self.put("out.png", b"old")
        # ./dev coverage: the counters, which all runs add to, would be cut short.
        apart = tempfile.TemporaryDirectory()
        self.addCleanup(apart.cleanup)
        uncounted = {**os.environ, "GCOV_PREFIX": apart.name, "GCOV_ERROR_FILE": "/dev/null"}
        for name in ("out.png", "out.tif", "out.npy", "out.pgm", "out.jpg"):
            before = self.contents()
            done = subprocess.run(["prlimit", "--fsize=100", PROGRAM, "scene", "-o", self.path(name)],
                                  capture_output=True, check=False, env=uncounted)
            self.assertEqual((done.returncode, done.stderr.count(b"\n")), (2, 1), (name, done.stderr))
            self.assertIn(b"File too large", done.stderr, name)
            self.assertEqual(self.contents(), before)

    def test_a_full_or_closed_standard_output(self):
        for line in (["info", "a.png"], ["add", "a.png", "b.png", "-o", "out.png"], ["mser", "a.png", "b.png", "-o", "o"],
                     ["tree", "a.png"], ["stats", "a.png"], ["threshold", "a.png", "--otsu", "-o", "out.png"],
                     ["demo", "a.png", "-o", "d"], ["--help"], ["--version"]):
            with self.subTest(line), open("/dev/full", "wb") as full:
                done = subprocess.run([PROGRAM, "--simd", "on", *line], cwd=self.folder, stdout=full,
                                      stderr=subprocess.PIPE, check=False)
                self.assertEqual((done.returncode, done.stderr.splitlines()[-1:]),
                                 (2, [b"kipx: cannot write to standard output"]))
        for line, status in ((["info", "a.png"], 2), (["mser", "a.png", "b.png", "-o", "closed"], 0)):
            reader, writer = os.pipe()
            os.close(reader)
            done = subprocess.run([PROGRAM, *line], cwd=self.folder, stdout=writer, stderr=subprocess.PIPE, check=False)
            os.close(writer)
            self.assertEqual((done.returncode, done.stderr.count(b"\n")), (status, status // 2), done.stderr)
        self.assertTrue(self.get("closed/b.done"))

    def test_help_and_version(self):
        self.assertRegex(self.works("--version"), r"^kipx \d+\.\d+\.\d+\n$")
        whole = self.works("--help")
        commands = re.findall(r"^  (\w+) {2,}\w", whole, re.M)
        self.assertGreater(len(commands), 30)
        for command in commands:
            self.assertEqual(self.works(command, "--help").count("Example"), 1, command)
        self.assertIn("Exit status", whole)
        self.assertEqual(self.works("-q", "add", "a.png", "b.png", "-o", "out.png"), "")


if __name__ == "__main__":
    unittest.main()
