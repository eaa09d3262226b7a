"""Files that are cut, empty, lying or no files at all: one sentence, status 2, nothing written, and no
memory taken for what is not there."""

import itertools
import os
import random
import struct
import unittest
import zlib

import numpy as np

from support import SANITIZED, ProgramCase, chunk, jpeg, npy, png, pnm, tiff

HUGE = 0x7FFFFFFF


def picture(channels=1, kind="u1"):
    shape = (17, 24) if channels == 1 else (17, 24, channels)
    return np.random.default_rng(3).integers(0, 256, shape).astype(kind)


def sound_files():
    """Files whose every cut must be noticed."""
    yield "cut.jpg", jpeg(picture(3))
    yield "cut.png", png(picture(3))
    yield "cut.pgm", pnm(picture(), "P5")
    yield "cut.ppm", pnm(picture(3, "u2"), "P6")
    yield "cut.pam", pnm(picture(2), "P7")
    yield "cut.npy", npy(picture())
    text = picture()
    text[-1, -1] = 7  # a number cut in two is still a number: the last one has one digit
    yield "text.pgm", pnm(text, "P2")
    whole = tiff(picture(3), rowsperstrip=5)
    yield "cut.tif", whole
    yield "tiles.tif", tiff(picture(), byteorder=">", tile=(16, 16))


def header_png(width, height, depth=8, colour=0, body=b"x", extra=b""):
    head = struct.pack(">IIBBBBB", width, height, depth, colour, 0, 0, 0)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", head) + extra + chunk(b"IDAT", body) + chunk(b"IEND", b"")


def header_npy(text):
    data = text.encode()
    return b"\x93NUMPY\x01\0" + struct.pack("<H", len(data)) + data


def header_tiff(**changes):
    """A directory alone, its strips beyond the end of the file."""
    entries = {256: (4, 24), 257: (4, 17), 258: (3, 8), 259: (3, 1), 262: (3, 1), 273: (4, 4096), 277: (3, 1),
               278: (4, 17), 279: (4, 24 * 17)}
    entries.update({int(tag[1:]): value for tag, value in changes.items()})
    rows = b"".join(struct.pack("<HHII", tag, kind, 1, value) for tag, (kind, value) in sorted(entries.items()))
    return struct.pack("<2sHIH", b"II", 42, 8, len(entries)) + rows + b"\0\0\0\0"


def shape(text, descr="|u1", order="False"):
    return header_npy("{'descr': '%s', 'fortran_order': %s, 'shape': %s, }" % (descr, order, text))


BOMB = chunk(b"zTXt", b"a\0\0" + zlib.compress(bytes(200 << 20), 9))
LIES = {
    "empty.png": b"", "noise.png": bytes(range(200)), "text.txt": b"hello, world", "one byte.tif": b"I",
    "huge.png": header_png(HUGE, HUGE), "wide.png": header_png(HUGE, 1), "none.png": header_png(0, 5),
    "flat.png": header_png(536870925, 9, 1), "depth.png": header_png(4, 4, depth=5), "colour.png": header_png(4, 4, colour=7),
    "palette.png": header_png(4, 4, colour=3), "bomb.png": header_png(4, 4, extra=BOMB),
    "length.png": header_png(4, 4)[:33] + struct.pack(">I4s", 0x7FFFFFF0, b"iCCP") + b"abc",
    "idat.png": header_png(4, 4)[:33] + struct.pack(">I4s", 0x7FFFFFF0, b"IDAT") + b"abc",
    "huge.pgm": b"P5\n99999999999999999999 2\n255\n", "large.pgm": b"P5 4294967295 4294967295 255\n",
    "none.pgm": b"P5 0 4 255\n", "maximum.pgm": b"P5 1 1 70000\n\0\0", "zero.pgm": b"P5 1 1 0\n\0",
    "above.pgm": b"P5 1 1 7\n\x08", "above.ppm": b"P3 1 1 9\n1 2 10", "letters.pgm": b"P2 2 1 255\n12 ab",
    "minus.pgm": b"P5 -1 4 255\n", "digit.pbm": b"P1 2 1\n02", "short.pgm": b"P5 20000 10000 255\nabc",
    "deep.pam": b"P7\nWIDTH 1\nHEIGHT 1\nDEPTH 9\nMAXVAL 255\nENDHDR\n123456789",
    "line.pam": b"P7\nWIDTH 1\nWHAT 2\n", "end.pam": b"P7\nWIDTH 1\n", "empty.pam": b"P7\nENDHDR\n",
    "version.npy": b"\x93NUMPY\x09\0\0\0\0\0", "short.npy": b"\x93NUMPY\x01\0\xff\xff",
    "length.npy": b"\x93NUMPY\x02\0\xff\xff\xff\xff{}", "keys.npy": header_npy("{}" + " " * 20),
    "huge.npy": shape("(4294967295, 4294967295)"), "wrap.npy": shape("(18446744073709551617, 1)"),
    "one.npy": shape("(5,)"), "four.npy": shape("(1, 1, 1, 1)"), "none.npy": shape("(0, 4)"),
    "minus.npy": shape("(-1, 4)"), "open.npy": shape("(1, 4"), "bare.npy": shape("7"),
    "five.npy": shape("(1, 1, 5)") + b"12345", "order.npy": shape("(1, 1)", order="Maybe") + b"1",
    "type.npy": shape("(1, 1)", "<c8") + b"12345678", "wide.npy": shape("(1, 1)", "<i8") + b"12345678",
    "speaking.npy": shape("(1, 1)", "\n\x1b[2J"), "large.npy": shape("(16000, 16000)", "<f8") + b"abc",
    "missing.tif": header_tiff(), "huge.tif": header_tiff(t256=(4, HUGE), t257=(4, HUGE)),
    "wide.tif": header_tiff(t256=(4, 0xFFFFFFFF)), "none.tif": header_tiff(t257=(4, 0)),
    "samples.tif": header_tiff(t277=(3, 60000)), "bits.tif": header_tiff(t258=(3, 13)),
    "half.tif": header_tiff(t258=(3, 16), t339=(3, 3)), "code.tif": header_tiff(t259=(3, 54321)),
    "model.tif": header_tiff(t262=(3, 8)), "cmyk.tif": header_tiff(t262=(3, 5)), "rows.tif": header_tiff(t278=(4, 0)),
    "tile.tif": header_tiff(t322=(4, 1 << 20), t323=(4, 1 << 20), t324=(4, 8), t325=(4, 8)),
    "tiny tile.tif": header_tiff(t322=(4, 0), t323=(4, 0), t324=(4, 8), t325=(4, 8)),
    "lzw.tif": header_tiff(t259=(3, 5), t273=(4, 8)), "jpeg.tif": header_tiff(t259=(3, 7), t273=(4, 8)),
    "directory.tif": b"II*\0\xff\xff\xff\x7f", "loop.tif": b"II*\0\x08\0\0\0\xff\xff",
    "marker.jpg": b"\xff\xd8\xff", "zeros.jpg": b"\xff\xd8\xff\xe0\0\0\0\0",
    "size.jpg": b"\xff\xd8\xff\xc0\0\x0b\x08\xff\xff\xff\xff\x01\x01\x11\0\xff\xd9",
    "none.jpg": b"\xff\xd8\xff\xc0\0\x0b\x08\0\0\0\0\x01\x01\x11\0\xff\xd9",
}


# What reads them in turn.
READERS = itertools.cycle((["info"], ["stats"], ["threshold", "--otsu", "-o", "o.png"], ["convert", "-o", "o.png"],
                           ["pad", "--by", "1", "-o", "o.png"], ["filter", "--kind", "min", "-o", "o.png"]))


class Hostile(ProgramCase):
    def test_every_cut_is_noticed(self):
        for name, data in sound_files():
            steps = sorted({0, 1, 3, 8, 16, 33, len(data) - 1, len(data) - 2, len(data) - 4,
                            *range(0, len(data), max(len(data) // 7, 1))})
            self.put(name, data)
            self.works("info", name)
            for length in (step for step in steps if 0 <= step < len(data)):
                with self.subTest(name, length=length):
                    self.put(name, data[:length])
                    self.refuses("info", name, says=[name + ": "])

    def test_lies(self):
        most_held = 200 << 20 if SANITIZED else 100 << 20  # the bomb alone inflates to more
        for name, data in LIES.items():
            with self.subTest(name):
                self.put(name, data)
                reader = next(READERS)
                self.refuses(*reader, name, says=[name + ": "])
                status, held = self.peak(*reader, name, "--max-pixels", "200000", most=1 << 30)
                self.assertEqual(status, 2)
                self.assertLess(held, most_held)

    def test_damage_never_kills(self):
        """Flipped bytes may still make a picture; otherwise it is a sentence."""
        source = random.Random(11)
        for name, data in sound_files():
            for _ in range(10):
                damaged = bytearray(data)
                for _ in range(source.choice((1, 3, 20))):
                    damaged[source.randrange(min(len(data), 400))] = source.randrange(256)
                self.put(name, bytes(damaged))
                done = self.run_program(*next(READERS), name, "--max-pixels", "1000000")
                self.assertIn(done.returncode, (0, 2), (name, done.stderr, bytes(damaged)))
                self.assertEqual(done.stderr.count(b"\n"), 1 if done.returncode else 0)

    def test_what_is_no_file(self):
        os.mkdir(self.path("folder.png"))
        for name in ("folder.png", "absent.png", "no/such/folder/a.png", "a" * 5000, "/dev/zero", "/dev/null"):
            with self.subTest(name):
                self.refuses("info", name, says=[name[:200]])

    def test_limits_are_kept(self):
        for (name, data), limit in itertools.product(sound_files(), (24 * 17 - 1, 24 * 17)):
            self.put(name, data)
            if limit < 24 * 17:
                self.refuses("--max-pixels", limit, "info", name, says=["24x17", "--max-pixels 407"])
            else:
                self.works("--max-pixels", limit, "info", name)
        self.put("a.npy", shape("(16384, 16384, 4)", "<f4"))
        self.refuses("info", "a.npy", says=["2^32"])


if __name__ == "__main__":
    unittest.main()
