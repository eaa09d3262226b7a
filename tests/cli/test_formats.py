"""Every kind of file that is read and written, against writers and readers of our own."""

import itertools
import random
import struct
import subprocess
import unittest

from support import (Array, ProgramCase, PROGRAM, chunk, read_npy, read_png, write_npy, write_pam, write_png,
                     write_pnm, write_tiff)

LIMITS = {"u8": (0, 255), "u16": (0, 65535), "s8": (-128, 127), "s16": (-32768, 32767),
          "u32": (0, 2**24), "s32": (-2**24, 2**24), "f32": (-2**20, 2**20), "f64": (-2**20, 2**20)}


def sample(kind, width=13, height=7, channels=1, seed=5):
    """Values that f32 holds, with both ends of the type's range (or of what f32 holds) among them."""
    source = random.Random(seed)
    low, high = LIMITS[kind]
    count = width * height * channels
    values = [low, high] + [source.randint(low, high) for _ in range(count - 2)]
    if kind[0] == "f":
        values = [value / 16 for value in values]
    return Array(kind, width, height, channels, values)


def bitmap():
    return sample("u8")._replace(values=[255 * (i % 3 == 0) for i in range(13 * 7)])


def readable():
    """Name, bytes, what they hold."""
    for kind, channels, order in itertools.product(LIMITS, (1, 3), "<>"):
        array = sample(kind, channels=channels)
        yield "%s-%d%s.npy" % (kind, channels, order), write_npy(array, order), array
        for planar, tile, strip in ((0, None, 3), (1, None, 2), (0, (16, 16), 0), (1, (16, 16), 0)):
            name = "%s-%d-%d-%s%s.tif" % (kind, channels, planar, bool(tile), order)
            yield name, write_tiff(array, order, strip, tile, bool(planar), deflate=bool(strip == 3)), array
    yield "two.npy", write_npy(sample("u8"), version=2), sample("u8")
    yield "comment.pgm", write_pnm(sample("u8"), "P5", b"# 9 9\n#\n"), sample("u8")
    for kind, form in itertools.product(("u8", "u16"), ("P2", "P3", "P5", "P6")):
        array = sample(kind, channels=3 if form in ("P3", "P6") else 1)
        yield kind + form + ".pnm", write_pnm(array, form), array
    for form in ("P1", "P4"):
        yield form + ".pnm", write_pnm(bitmap(), form), bitmap()
    for kind, channels in itertools.product(("u8", "u16"), (1, 2, 3, 4)):
        array = sample(kind, channels=channels)
        yield "%s-%d.png" % (kind, channels), write_png(array), array
        yield "%s-%d.pam" % (kind, channels), write_pam(array), array
    yield from unusual()


def unusual():
    small = Array("u8", 8, 2, 1, [0, 255] * 8)
    yield "bits.png", write_png(small, depth=1, rows=[b"\x55", b"\x55"]), small
    keyed = [c for value in small.values for c in (value, 0 if value == 255 else 255)]
    yield ("key.png", write_png(small, extra=chunk(b"tRNS", b"\0\xff")),
           small._replace(channels=2, values=keyed))
    palette = chunk(b"PLTE", bytes([10, 20, 30, 40, 50, 60]))
    colours = small._replace(channels=3, values=[10, 20, 30, 40, 50, 60] * 8)
    yield "palette.png", write_png(small, colour=3, depth=1, rows=[b"\x55", b"\x55"], extra=palette), colours
    array = sample("u8")
    turned = array._replace(values=[255 - value for value in array.values])
    yield "white.tif", write_tiff(array, photometric=0), turned
    table = [(i * 7 % 256) * 257 for i in range(768)]
    looked_up = [table[c * 256 + value] >> 8 for value in array.values for c in range(3)]
    yield ("palette.tif", write_tiff(array, photometric=3, tags={320: (3, table)}),
           array._replace(channels=3, values=looked_up))


class Reading(ProgramCase):
    def test_every_kind(self):
        files = [("%03d %s" % (i, name), data, array) for i, (name, data, array) in enumerate(readable())]
        for name, data, array in files:
            with self.subTest(name):
                self.put(name, data)
                got = self.decoded(name)
                self.assertEqual(got[1:4], array[1:4])
                self.assertEqual(got.values, [float(value) for value in array.values])
        told = self.works("info", *(name for name, _, _ in files)).splitlines()[1:]
        self.assertEqual(len(told), len(files))
        for (name, _, array), line in zip(files, told):
            self.assertTrue(line.startswith(name))
            self.assertEqual(line[len(name):].split()[:3],
                             ["13x7" if array.width == 13 else "8x2", array.type, str(array.channels)])

    def test_content_tells_the_format(self):
        self.put("liar.png", write_pnm(sample("u8"), "P5"))
        self.assertEqual(self.decoded("liar.png").values, sample("u8").values)

    def test_a_pipe_is_read(self):
        self.put("a.pgm", write_pnm(sample("u8"), "P5"))
        done = subprocess.run([PROGRAM, "info", "/dev/stdin"], input=self.get("a.pgm"), capture_output=True,
                              check=False)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn(b"13x7", done.stdout)


class Writing(ProgramCase):
    def copy(self, array, name):
        zeros = array._replace(values=[0] * len(array.values))
        self.put("in.npy", write_npy(array))
        self.put("zero.npy", write_npy(zeros))
        self.works("add", "in.npy", "zero.npy", "-o", name)
        return name

    def test_lossless_formats_keep_everything(self):
        endings = {"u8": [".png", ".pnm", ".pam", ".tif", ".TIFF", ".npy"], "s16": [".tif", ".npy"],
                   "s32": [".tif", ".npy"], "f32": [".tif", ".npy"]}
        for kind, channels in itertools.product(endings, (1, 3)):
            for ending in endings[kind]:
                with self.subTest(kind=kind, channels=channels, ending=ending):
                    array = sample(kind, channels=channels)
                    name = self.copy(array, "out" + ending)
                    if ending == ".npy":
                        self.assertEqual(read_npy(self.get(name)), array)
                    self.assertEqual(self.decoded(name).values, array.values)
                    self.assertEqual(self.works("info", name).split()[9], array.type)

    def test_png_holds_what_was_given(self):
        for channels in (1, 2, 3, 4):
            array = sample("u8", channels=channels)
            self.assertEqual(read_png(self.get(self.copy(array, "out.png"))), array)
            wide = sample("u16", channels=channels)
            self.assertEqual(read_png(self.get(self.copy(wide, "out.png"))), wide)

    def test_binary_maps_hold_what_was_given(self):
        for channels, form, ending in ((1, "P5", ".pgm"), (3, "P6", ".ppm")):
            for kind in ("u8", "u16"):
                array = sample(kind, channels=channels)
                self.assertEqual(self.get(self.copy(array, "out" + ending)), write_pnm(array, form))

    def test_jpeg_is_close(self):
        for channels in (1, 3):
            values = [(x * 3 + y * 2) % 256 for y in range(40) for x in range(60) for _ in range(channels)]
            array = Array("u8", 60, 40, channels, values)
            got = self.decoded(self.copy(array, "out.jpg"))
            self.assertEqual((got.width, got.height, got.channels), (60, 40, channels))
            self.assertLess(max(abs(a - b) for a, b in zip(got.values, values)), 12)

    def test_values_that_the_format_cannot_hold(self):
        for kind, name in (("s16", "o.png"), ("f32", "o.png"), ("s32", "o.pgm"), ("u16", "o.jpg"),
                           ("f32", "o.jpeg")):
            with self.subTest(kind=kind, name=name):
                self.put("a.npy", write_npy(sample(kind)))
                self.refuses("add", "a.npy", "a.npy", "-o", name, says=[name + ": "])

    def test_numpy_header_is_the_documented_one(self):
        data = self.get(self.copy(sample("u8"), "o.npy"))
        length = struct.unpack("<H", data[8:10])[0]
        self.assertEqual(data[10 : 10 + length].decode().rstrip(),
                         "{'descr': '|u1', 'fortran_order': False, 'shape': (7, 13), }")

    def test_a_link_is_followed(self):
        import os
        self.put("target.png", b"old")
        os.symlink("target.png", self.path("link.png"))
        self.copy(sample("u8"), "link.png")
        self.assertTrue(os.path.islink(self.path("link.png")))
        self.assertEqual(read_png(self.get("target.png")), sample("u8"))


if __name__ == "__main__":
    unittest.main()
