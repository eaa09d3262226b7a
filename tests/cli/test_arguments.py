"""Arguments that cannot be: status 2, one line that names the argument, no file written."""

import unittest

from support import Array, ProgramCase, PROGRAM, write_png

import os
import subprocess

# What follows `add a.png b.png -o out.png`, and what the sentence must name.
ADD = [
    (["--scale", "x"], "--scale"), (["--scale", "1.5"], "--scale"), (["--scale", "64"], "--scale"),
    (["--scale", "-32"], "--scale"), (["--scale", ""], "--scale"), (["--scale"], "--scale"),
    (["--scale", "99999999999999999999"], "--scale"), (["--overflow", "clip"], "--overflow"),
    (["--overflow", ""], "--overflow"), (["--type", "u16"], "--type"), (["--type", "f64"], "--type"),
    (["--roi", "1,2,3"], "--roi"), (["--roi", "1,2,3,4,5"], "--roi"), (["--roi", "0,0,0,5"], "--roi"),
    (["--roi", "0,0,5,0"], "--roi"), (["--roi", "-1,0,5,5"], "--roi"), (["--roi", "a,b,c,d"], "--roi"),
    (["--roi", "1,2,3,"], "--roi"), (["--roi", "1,,3,4"], "--roi"), (["--roi", "0,0,4294967296,1"], "--roi"),
    (["--at1", "1"], "--at1"), (["--at1", "1,2,3"], "--at1"), (["--at2", "-1,0"], "--at2"),
    (["--at2", "8,0"], "--at2"), (["--bogus"], "--bogus"), (["c.png"], "c.png"),
    (["--roi", ""], "--roi"), (["--at1", ""], "--at1"), (["--at2", ""], "--at2"), (["--type", ""], "--type"),
    (["--simd", "maybe"], "--simd"), (["--max-pixels", "0"], "--max-pixels"),
    (["--max-pixels", ""], "--max-pixels"), (["--max-pixels", "-5"], "--max-pixels"), (["--max-pixels", "4"], "--max-pixels"),
]

# What follows `mser a.png -o out`, and what the sentence must name.
MSER = [
    (["--delta-levels", "0"], "--delta-levels"), (["--delta-levels", "256"], "--delta-levels"),
    (["--min-area-px", "0"], "--min-area-px"), (["--min-area", "1.5"], "--min-area"),
    (["--min-area", "nan"], "--min-area"), (["--min-area", "0.1", "--min-area-px", "9"], "--min-area"),
    (["--max-area", "-0.1"], "--max-area"), (["--max-area", ""], "--max-area"),
    (["--max-variation", "half"], "--max-variation"), (["--max-variation", "inf"], "--max-variation"),
    (["--min-diversity", "2"], "--min-diversity"), (["--polarity", "grey"], "--polarity"),
    (["--connectivity", "6"], "--connectivity"), (["--levels", "log"], "--levels"),
    (["--mask", "absent.png"], "absent.png"), (["--roi", "1,2,3"], "--roi"), (["--roi", "0,0,0,4"], "--roi"),
    (["--jobs", "0"], "--jobs"), (["--jobs", "many"], "--jobs"), (["--sideways"], "--sideways"),
]

# Whole command lines.
LINES = [
    ([], "--help"), (["bogus"], "bogus"), (["add"], "A"), (["add", "a.png"], "B"),
    (["add", "a.png", "b.png"], "--output"), (["add", "a.png", "b.png", "-o"], "--output"),
    (["add", "a.png", "b.png", "-o", "out.bmp"], ".bmp"), (["add", "a.png", "b.png", "-o", "out"], "out"),
    (["add", "a.png", "b.png", "-o", ""], "ending"), (["add", "a.png", "b.png", "-o", ".png"], ".png"),
    (["add", "a.png", "b.png", "-o", "no/such/out.png"], "no/such"),
    (["add", "a.png", "b.png", "-o", "folder.png"], "folder.png"),
    (["add", "a.png", "rgb.png", "-o", "out.png"], "channel"),
    (["mul", "a.png", "b.png", "-o", "out.png", "--overflow", "saturate"], "--overflow"),
    (["divr", "a.png", "b.png", "-o", "out.png", "--overflow", "signed"], "--overflow"),
    (["info"], "FILE"), (["info", "a.png", "--deep"], "--deep"), (["scene"], "--output"),
    (["scene", "-o", "s.bmp"], ".bmp"), (["scene", "-o", "s.png", "--size", "0x5"], "--size"),
    (["scene", "-o", "s.png", "--size", "10"], "--size"), (["scene", "-o", "s.png", "--size", "10x"], "--size"),
    (["scene", "-o", "s.png", "--size", "99999x99999"], "--size"),
    (["scene", "-o", "s.png", "--seed", "-1"], "--seed"), (["scene", "-o", "s.png", "--cells", "0"], "--cells"),
    (["scene", "-o", "s.png", "--size", "20x20", "--cells", "1000000"], "--cells"),
    (["scene", "-o", "s.png", "--depth", "12"], "--depth"),
    (["scene", "-o", "s.png", "--frames", "0"], "--frames"),
    (["scene", "-o", "s.png", "--truth", "t.bmp"], ".bmp"),
    (["scene", "-o", "s.png", "--clean", "no/such/c.png"], "no/such"),
    (["scene", "-o", "s.png", "--truth", "s.png"], "s.png"),
    (["scene", "-o", "s.png", "--clean", "./s.png"], "./s.png"),
    (["scene", "-o", "s.png", "--background", "folder.png/../s.png"], "folder.png/../s.png"),
    (["scene", "-o", "s.png", "--truth", "t.tif", "--clean", "c.png", "--background", "c.png"], "c.png"),
    (["scene", "-o", "s.png", "--truth", "t.tif", "--background", "t.tif"], "t.tif"),
    (["scene", "-o", "s.png", "--frames", "3", "--truth", "s-02.png"], "s-02.png"),
    (["scene", "-o", "s.png", "--truth", ""], "--truth"), (["scene", "-o", "s.png", "--clean", ""], "--clean"),
    (["scene", "-o", "s.png", "--background", ""], "--background"), (["scene", "-o", "s.png", "--seed", ""], "--seed"),
    (["scene", "-o", "s.png", "--cells", ""], "--cells"), (["scene", "-o", "s.png", "--frames", ""], "--frames"),
    (["scene", "-o", "s.png", "--depth", ""], "--depth"), (["scene", "-o", "s.png", "--size", ""], "--size"),
    (["demo", ""], "IMAGE"), (["demo", "-o", ""], "--output"), (["demo", "--seed", ""], "--seed"),
    (["demo", "--frames", ""], "--frames"), (["demo", "--size", ""], "--size"), (["demo", "--roi", ""], "--roi"),
    (["demo", "absent.png"], "absent.png"), (["demo", "--frames", "3"], "--frames"),
    (["demo", "--size", "5"], "--size"), (["demo", "a.png", "b.png"], "b.png"),
    (["demo", "a.png", "-o", "a.png"], "a.png"), (["demo", "a.png", "--delta-levels", "x"], "--delta-levels"),
    (["demo", "a.png", "--frames", "4"], "--frames"), (["demo", "a.png", "--size", "1920x1080"], "--size"),
    (["demo", "--seed", "1", "a.png"], "--seed"), (["demo", "-o", "a.png/b/c"], "a.png/b/c"),
    (["mser"], "FILE"), (["mser", "a.png"], "--output"), (["mser", "a.png", "-o", "a.png"], "a.png"),
    (["mser", "a.png", "-o", "a.png/b"], "a.png/b"),
    (["tree"], "FILE"), (["tree", "a.png", "b.png"], "b.png"), (["tree", "absent.png"], "absent.png"),
    (["tree", "a.png", "-o", "t.png"], ".svg"), (["tree", "a.png", "-o", ""], "--output"),
    (["tree", "a.png", "-o", "no/such/t.svg"], "no/such"), (["tree", "a.png", "--depth", "-1"], "--depth"),
    (["tree", "a.png", "--smallest", "0"], "--smallest"),
    (["tree", "a.png", "-o", "t.svg", "--depth", "3"], "--depth"), (["tree", "a.png", "--fast"], "--fast"),
    (["tree", "a.png", "--roi", "8,0,1,1"], "--roi"), (["tree", "a.png", "--mask", "small.png"], "small.png"),
    (["tree", "a.png", "--mask", "zero.png"], "mask"),
]


class Arguments(ProgramCase):
    def setUp(self):
        super().setUp()
        grey = Array("u8", 8, 5, 1, list(range(40)))
        self.put("a.png", write_png(grey))
        self.put("b.png", write_png(grey))
        self.put("rgb.png", write_png(Array("u8", 8, 5, 3, list(range(120)))))
        self.put("small.png", write_png(Array("u8", 7, 5, 1, [1] * 35)))
        self.put("zero.png", write_png(Array("u8", 8, 5, 1, [0] * 40)))
        os.mkdir(self.path("folder.png"))

    def test_options_of_an_operation(self):
        for options, named in ADD:
            with self.subTest(options):
                self.refuses("add", "a.png", "b.png", "-o", "out.png", *options, says=[named])

    def test_options_of_regions(self):
        for options, named in MSER:
            with self.subTest(options):
                self.refuses("mser", "a.png", "-o", "out", *options, says=[named])

    def test_command_lines(self):
        for line, named in LINES:
            with self.subTest(line):
                self.refuses(*line, says=[named])

    def test_a_failure_leaves_an_old_result_alone(self):
        self.put("out.png", b"old")
        self.refuses("add", "a.png", "rgb.png", "-o", "out.png")
        self.refuses("sub", "a.png", "b.png", "-o", "out.png", "--type", "s16", "--at2", "1,0", says=["out.png"])

    def test_a_full_disk_is_a_sentence(self):
        self.put("out.png", b"old")
        for name in ("out.png", "out.tif", "out.npy", "out.pgm", "out.jpg"):
            before = self.contents()
            done = subprocess.run(["prlimit", "--fsize=100", PROGRAM, "scene", "-o", self.path(name)],
                                  capture_output=True, check=False)
            self.assertEqual((done.returncode, done.stderr.count(b"\n")), (2, 1), (name, done.stderr))
            self.assertEqual(self.contents(), before)

    def test_a_closed_pipe_is_a_sentence(self):
        reader, writer = os.pipe()
        os.close(reader)
        done = subprocess.run([PROGRAM, "info", self.path("a.png")], stdout=writer, stderr=subprocess.PIPE,
                              check=False)
        os.close(writer)
        self.assertEqual((done.returncode, done.stderr.count(b"\n")), (2, 1), done.stderr)

    def test_a_full_standard_output_is_a_sentence(self):
        lines = [["info", "a.png"], ["add", "a.png", "b.png", "-o", "out.png"], ["mser", "a.png", "b.png", "-o", "o"],
                 ["tree", "a.png"], ["scene", "-o", "s.png", "--size", "20x20"], ["demo", "a.png", "-o", "d"],
                 ["--help"], ["--version"], ["mser", "--help"], ["--help-all"]]
        for line in lines:
            with self.subTest(line), open("/dev/full", "wb") as full:
                done = subprocess.run([PROGRAM, *line], cwd=self.folder, stdout=full, stderr=subprocess.PIPE,
                                      check=False)
                self.assertEqual((done.returncode, done.stderr),
                                 (2, b"kipx: cannot write to standard output\n"))

    def test_help_and_version(self):
        self.assertRegex(self.works("--version"), r"^kipx \d+\.\d+\.\d+\n$")
        whole = self.works("--help")
        for command in "add sub rsub mul div divr rdiv rdivr info scene mser tree demo".split():
            self.assertIn("\n  " + command + " ", whole)
            self.assertIn("Example", self.works(command, "--help"))
        self.assertIn("Exit status", whole)
        for command in ("mser", "tree", "demo"):
            self.assertIn("pixels; 16 at least", self.works(command, "--help"))

    def test_quiet(self):
        self.assertEqual(self.works("-q", "add", "a.png", "b.png", "-o", "out.png"), "")
        self.assertIn("8x5", self.works("add", "a.png", "b.png", "-o", "out.png"))


if __name__ == "__main__":
    unittest.main()
