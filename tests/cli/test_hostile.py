"""Files that are cut, empty, lying or no files at all: one sentence, status 2, nothing written."""

import itertools
import os
import random
import struct
import subprocess
import unittest

from support import (Array, ProgramCase, PROGRAM, chunk, tiff_directory, tiff_header, write_npy, write_pam,
                     write_png, write_pnm, write_tiff)

HUGE = 0x7FFFFFFF


def picture(channels=1, kind="u8"):
    values = random.Random(3).choices(range(256), k=24 * 17 * channels)
    return Array(kind, 24, 17, channels, values)


def sound_files(case):
    """Files whose every cut must be noticed."""
    case.put("in.png", write_png(picture(3)))
    case.works("add", "in.png", "in.png", "-o", "out.jpg", "--scale", "-1")
    yield "cut.jpg", case.get("out.jpg")
    yield "cut.png", write_png(picture(3))
    yield "cut.pgm", write_pnm(picture(), "P5")
    yield "cut.ppm", write_pnm(picture(3, "u16"), "P6")
    yield "cut.pam", write_pam(picture(2))
    yield "cut.npy", write_npy(picture())
    text = picture()
    text.values[-1] = 7  # a number cut in two is still a number: the last one has one digit
    yield "text.pgm", write_pnm(text, "P2").rstrip()
    yield "cut.tif", write_tiff(picture(3), rows_per_strip=5)
    yield "tiles.tif", write_tiff(picture(), ">", tile=(16, 16))


def header_png(width, height, depth=8, colour=0):
    head = struct.pack(">IIBBBBB", width, height, depth, colour, 0, 0, 0)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", head) + chunk(b"IDAT", b"x") + chunk(b"IEND", b"")


def header_npy(text):
    data = text.encode()
    return b"\x93NUMPY\x01\0" + struct.pack("<H", len(data)) + data


def header_tiff(**changes):
    """A directory alone, its strips beyond the end of the file."""
    entries = {256: (4, [24]), 257: (4, [17]), 258: (3, [8]), 259: (3, [1]), 262: (3, [1]),
               273: (4, [4096]), 277: (3, [1]), 278: (4, [17]), 279: (4, [24 * 17])}
    entries.update({int(tag[1:]): value for tag, value in changes.items()})
    return tiff_header("<", 8) + tiff_directory("<", entries, 8)


def shape(text, descr="|u1", order="False"):
    return header_npy("{'descr': '%s', 'fortran_order': %s, 'shape': %s, }" % (descr, order, text))


LIES = {
    "empty.png": b"", "noise.png": bytes(range(200)), "text.txt": b"hello, world",
    "one byte.tif": b"I",
    "huge.png": header_png(HUGE, HUGE), "wide.png": header_png(HUGE, 1), "none.png": header_png(0, 5),
    "depth.png": header_png(4, 4, depth=5), "colour.png": header_png(4, 4, colour=7),
    "palette.png": header_png(4, 4, colour=3),
    "huge.pgm": b"P5\n99999999999999999999 2\n255\n", "large.pgm": b"P5 4294967295 4294967295 255\n",
    "none.pgm": b"P5 0 4 255\n", "maximum.pgm": b"P5 1 1 70000\n\0\0", "zero.pgm": b"P5 1 1 0\n\0",
    "above.pgm": b"P5 1 1 7\n\x08", "above.ppm": b"P3 1 1 9\n1 2 10", "letters.pgm": b"P2 2 1 255\n12 ab",
    "minus.pgm": b"P5 -1 4 255\n", "digit.pbm": b"P1 2 1\n02", "hash.pgm": b"P5#",
    "short.pgm": b"P5 20000 10000 255\nabc",
    "deep.pam": b"P7\nWIDTH 1\nHEIGHT 1\nDEPTH 9\nMAXVAL 255\nENDHDR\n123456789",
    "line.pam": b"P7\nWIDTH 1\nWHAT 2\n", "end.pam": b"P7\nWIDTH 1\n", "empty.pam": b"P7\nENDHDR\n",
    "version.npy": b"\x93NUMPY\x09\0\0\0\0\0", "short.npy": b"\x93NUMPY\x01\0\xff\xff",
    "length.npy": b"\x93NUMPY\x02\0\xff\xff\xff\xff{}", "keys.npy": header_npy("{}" + " " * 20),
    "huge.npy": shape("(4294967295, 4294967295)"), "wrap.npy": shape("(18446744073709551617, 1)"),
    "one.npy": shape("(5,)"), "four.npy": shape("(1, 1, 1, 1)"), "none.npy": shape("(0, 4)"),
    "minus.npy": shape("(-1, 4)"), "open.npy": shape("(1, 4"), "bare.npy": shape("7"),
    "five.npy": shape("(1, 1, 5)") + b"12345", "order.npy": shape("(1, 1)", order="True") + b"1",
    "type.npy": shape("(1, 1)", "<c8") + b"12345678", "object.npy": shape("(1, 1)", "|O") + b"12345678",
    "large.npy": shape("(20000, 10000)") + b"abc",
    "missing.tif": header_tiff(), "huge.tif": header_tiff(t256=(4, [HUGE]), t257=(4, [HUGE])),
    "wide.tif": header_tiff(t256=(4, [0xFFFFFFFF])), "none.tif": header_tiff(t257=(4, [0])),
    "samples.tif": header_tiff(t277=(3, [60000]), t258=(3, [8])), "bits.tif": header_tiff(t258=(3, [13])),
    "half.tif": header_tiff(t258=(3, [16]), t339=(3, [3])), "code.tif": header_tiff(t259=(3, [54321])),
    "model.tif": header_tiff(t262=(3, [8])), "rows.tif": header_tiff(t278=(4, [0])),
    "tile.tif": header_tiff(t322=(4, [1 << 20]), t323=(4, [1 << 20]), t324=(4, [8]), t325=(4, [8])),
    "tiny tile.tif": header_tiff(t322=(4, [0]), t323=(4, [0]), t324=(4, [8]), t325=(4, [8])),
    "lzw.tif": header_tiff(t259=(3, [5]), t273=(4, [8])),
    "jpeg.tif": header_tiff(t259=(3, [7]), t273=(4, [8])),
    "directory.tif": b"II*\0\xff\xff\xff\x7f", "loop.tif": b"II*\0\x08\0\0\0\xff\xff",
    "marker.jpg": b"\xff\xd8\xff", "zeros.jpg": b"\xff\xd8\xff\xe0\0\0\0\0",
    "size.jpg": b"\xff\xd8\xff\xc0\0\x0b\x08\xff\xff\xff\xff\x01\x01\x11\0\xff\xd9",
    "none.jpg": b"\xff\xd8\xff\xc0\0\x0b\x08\0\0\0\0\x01\x01\x11\0\xff\xd9",
}


class Hostile(ProgramCase):
    def refused(self, name):
        """Reading must fail with a sentence that names the file, and nothing be written."""
        self.refuses("add", "good.pgm", name, "-o", "out.png", says=[name + ": "])

    def setUp(self):
        super().setUp()
        self.put("good.pgm", write_pnm(picture(), "P5"))

    def test_every_cut_is_noticed(self):
        for name, data in list(sound_files(self)):
            steps = sorted({0, 1, 3, 8, 16, 33, len(data) - 1, len(data) - 2, len(data) - 4,
                            *range(0, len(data), max(len(data) // 7, 1))})
            self.put(name, data)
            self.works("info", name)
            for length in (step for step in steps if 0 <= step < len(data)):
                with self.subTest(name, length=length):
                    self.put(name, data[:length])
                    self.refuses("info", name, says=[name + ": "])

    def test_lies(self):
        for name, data in LIES.items():
            with self.subTest(name):
                self.put(name, data)
                self.refused(name)

    def test_damage_never_kills(self):
        """Flipped bytes may still make a picture; otherwise it is a sentence."""
        source = random.Random(11)
        for name, data in list(sound_files(self)):
            for _ in range(10):
                damaged = bytearray(data)
                for _ in range(source.choice((1, 3, 20))):
                    damaged[source.randrange(min(len(data), 400))] = source.randrange(256)
                self.put(name, bytes(damaged))
                done = self.run_program("info", name, "--max-pixels", "1000000")
                self.assertIn(done.returncode, (0, 2), (name, done.stderr, bytes(damaged)))
                self.assertEqual(done.stderr.count(b"\n"), 1 if done.returncode else 0)

    def test_what_is_no_file(self):
        os.mkdir(self.path("folder.png"))
        for name in ("folder.png", "absent.png", "", "no/such/folder/a.png", "a" * 5000):
            with self.subTest(name):
                self.refused(name)
        self.refuses("info", "/dev/zero", says=["/dev/zero: "])
        self.refuses("info", "/dev/null", says=["/dev/null: is empty"])

    def test_max_pixels_is_kept(self):
        for (name, data), limit in itertools.product(list(sound_files(self)), (24 * 17 - 1, 24 * 17)):
            self.put(name, data)
            if limit < 24 * 17:
                self.refuses("--max-pixels", limit, "info", name, says=["24x17", "--max-pixels 407"])
            else:
                self.works("--max-pixels", limit, "info", name)

    def test_a_lying_header_takes_no_memory(self):
        for name, data in (("a.npy", shape("(16000, 16000)", "<f8")), ("a.pgm", LIES["short.pgm"])):
            self.put(name, data)
            child = subprocess.Popen([PROGRAM, "info", self.path(name)], stdout=subprocess.DEVNULL,
                                     stderr=subprocess.DEVNULL)
            _, status, usage = os.wait4(child.pid, 0)
            child.returncode = os.waitstatus_to_exitcode(status)
            self.assertEqual(child.returncode, 2)
            self.assertLess(usage.ru_maxrss, 100 << 10)

    def test_arrays_stay_below_four_gigabytes(self):
        self.put("a.npy", shape("(16384, 16384, 4)", "<f4"))
        self.refuses("info", "a.npy", says=["2^32"])


if __name__ == "__main__":
    unittest.main()
