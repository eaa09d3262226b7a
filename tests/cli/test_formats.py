"""Every kind of file that is read and written, against NumPy, Pillow and tifffile."""

import itertools
import os
import subprocess
import unittest

import numpy as np
import tifffile
from PIL import Image

from support import PROGRAM, ProgramCase, as_type, chunk, jpeg, npy, png, pnm, tiff

LIMITS = {"u8": (0, 255), "u16": (0, 65535), "s8": (-128, 127), "s16": (-32768, 32767),
          "u32": (0, 2**24), "s32": (-2**24, 2**24), "f32": (-2**20, 2**20), "f64": (-2**20, 2**20)}


def sample(kind, channels=1, width=13, height=7):
    """Values that f32 holds, with both ends of the type's range (or of what f32 holds) among them."""
    low, high = LIMITS[kind]
    values = np.random.default_rng(5).integers(low, high + 1, (height, width, channels))
    values.flat[:2] = low, high
    return as_type((values / 16 if kind[0] == "f" else values)[..., 0] if channels == 1 else values / 16 if kind[0] == "f" else values, kind)


def readable():
    """Name, bytes, what they hold."""
    for kind, channels, order in itertools.product(LIMITS, (1, 3), "<>"):
        array = sample(kind, channels)
        ordered = array.astype(array.dtype.newbyteorder(order))
        yield "%s-%d%s.npy" % (kind, channels, order), npy(ordered), array
        yield "fortran %s-%d%s.npy" % (kind, channels, order), npy(np.asfortranarray(ordered)), array
        planar = {"planarconfig": "separate"} if channels == 3 else {}
        for i, options in enumerate(({"rowsperstrip": 3, "compression": "zlib"}, {"tile": (16, 16)}, planar, {**planar, "tile": (16, 16)})):
            stored = array.transpose(2, 0, 1) if "planarconfig" in options else array
            photometric = "rgb" if channels == 3 else "minisblack"
            yield ("%s-%d-%d%s.tif" % (kind, channels, i, order),
                   tiff(stored, byteorder=order, photometric=photometric, **options), array)
    for kind, form in itertools.product(("u8", "u16"), ("P2", "P3", "P5", "P6", "P7")):
        array = sample(kind, 3 if form in ("P3", "P6") else 2 if form == "P7" else 1)
        yield kind + form + ".pnm", pnm(array, form), array
    bits = sample("u8") // 128 * 255
    for form in ("P1", "P4"):
        yield form + ".pnm", pnm(bits, form), bits
    for kind, channels in itertools.product(("u8", "u16"), (1, 2, 3, 4)):
        array = sample(kind, channels)
        yield "%s-%d.png" % (kind, channels), png(array), array
    yield from unusual()


def packed(values, bits):
    """Rows of samples of a few bits, each row a whole number of bytes."""
    return [np.packbits((row[:, None] >> np.arange(bits)[::-1] & 1).astype("u1").ravel()).tobytes() for row in values]


def unusual():
    source = np.random.default_rng(7)
    for bits in (1, 2, 4):
        values = source.integers(0, 1 << bits, (5, 11))
        grey = as_type(values * (255 // ((1 << bits) - 1)), "u8")
        yield "bits%d.png" % bits, png(grey, depth=bits, rows=packed(values, bits)), grey
        key = np.dstack([grey, np.where(values == 1, 0, 255).astype("u1")])
        yield "key%d.png" % bits, png(grey, depth=bits, rows=packed(values, bits), extra=chunk(b"tRNS", b"\0\1")), key
        table = source.integers(0, 256, (1 << bits, 3)).astype("u1")
        extra = chunk(b"PLTE", table.tobytes())
        yield "palette%d.png" % bits, png(grey, 3, bits, packed(values, bits), extra), table[values]
        seen = np.dstack([table[values], np.where(values == 0, 9, 255).astype("u1")])
        yield "seen%d.png" % bits, png(grey, 3, bits, packed(values, bits), extra + chunk(b"tRNS", b"\x09")), seen
    wide = sample("u16")
    key = np.dstack([wide, np.where(wide == wide[2, 2], 0, 65535).astype("u2")])
    yield "key16.png", png(wide, extra=chunk(b"tRNS", wide[2:3, 2].astype(">u2").tobytes())), key
    wide = sample("u16", 3)
    alpha = np.where((wide == wide[2, 2]).all(2), 0, 65535).astype("u2")
    yield "rgb16.png", png(wide, extra=chunk(b"tRNS", wide[2:3, 2].astype(">u2").tobytes())), np.dstack([wide, alpha])
    array = sample("u8")
    yield "white.tif", tiff(array, photometric="miniswhite"), 255 - array
    table = source.integers(0, 256, (3, 256)).astype("u2") * 257
    yield "palette.tif", tiff(array, photometric="palette", colormap=table), (table >> 8).astype("u1").T[array]
    for bits in (4, 12):
        values = source.integers(0, 1 << bits, (5, 11))
        wanted = as_type(values * 17, "u8") if bits == 4 else as_type(values, "u16")
        yield "packed%d.tif" % bits, packed_tiff(values, bits), wanted
        yield "white%d.tif" % bits, packed_tiff(values, bits, 0), (255 if bits == 4 else 4095) - wanted
    yield "true.npy", npy(array > 100), as_type((array > 100) * 255, "u8")
    yield "int64.npy", npy(sample("s32").astype("i8")), sample("s32")
    yield "uint64.npy", npy(sample("u32").astype(">u8")), sample("u32")
    yield "interlaced.png", adam7(array), array


def packed_tiff(values, bits, photometric=1):
    import struct
    body = b"".join(packed(values, bits))
    entries = [(256, values.shape[1]), (257, values.shape[0]), (258, bits), (259, 1), (262, photometric), (273, 8),
               (277, 1), (278, values.shape[0]), (279, len(body))]
    directory = struct.pack("<H", len(entries)) + b"".join(struct.pack("<HHII", tag, 4, 1, value) for tag, value in entries)
    return struct.pack("<2sHI", b"II", 42, 8 + len(body)) + body + directory + b"\0\0\0\0"


def adam7(array):
    import struct, zlib
    passes = [(0, 0, 8, 8), (4, 0, 8, 8), (0, 4, 4, 8), (2, 0, 4, 4), (0, 2, 2, 4), (1, 0, 2, 2), (0, 1, 1, 2)]
    rows = b"".join(b"\0" + row.tobytes() for x, y, dx, dy in passes for row in array[y::dy, x::dx] if row.size)
    head = struct.pack(">IIBBBBB", array.shape[1], array.shape[0], 8, 0, 0, 0, 1)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", head) + chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b"")


class Reading(ProgramCase):
    def test_every_kind(self):
        files = [("%03d %s" % (i, name), data, array) for i, (name, data, array) in enumerate(readable())]
        for name, data, array in files:
            with self.subTest(name):
                self.put(name, data)
                np.testing.assert_array_equal(self.decoded(name), array)
        told = self.works("info", *(name for name, _, _ in files)).splitlines()[1:]
        for (name, _, array), line in zip(files, told):
            kind = {"u": "u", "i": "s", "f": "f"}[array.dtype.kind] + str(8 * array.itemsize)
            channels = 1 if array.ndim == 2 else array.shape[2]
            self.assertEqual(line[len(name):].split()[:3], ["%dx%d" % array.shape[1::-1], kind, str(channels)], line)

    def test_content_tells_the_format_and_a_pipe_is_read(self):
        self.put("liar.png", pnm(sample("u8"), "P5"))
        np.testing.assert_array_equal(self.decoded("liar.png"), sample("u8"))
        for name in ("-", "/dev/stdin"):
            for data in (tiff(np.stack([sample("u8")] * 3)), png(sample("u8"))):
                done = self.run_program("info", name, input=data)
                self.assertEqual(done.returncode, 0, done.stderr)
                self.assertIn(b"13x7", done.stdout)

    def test_info_goes_on_behind_a_bad_file(self):
        self.put("a.png", sample("u8"))
        self.put("bad.png", b"no image")
        done = self.run_program("info", "bad.png", "a.png", "absent.png", "a.png")
        self.assertEqual((done.returncode, done.stdout.count(b"13x7"), done.stderr.count(b"\n")), (2, 2, 2))
        self.put("f.npy", as_type([[1, np.nan, np.inf, 3]], "f32"))
        self.assertRegex(self.works("info", "f.npy"), r" 1 +3 +2  1 NaN  1 infinite")

    def test_orientation(self):
        """Every way that a file can ask for, as Pillow turns it, in all formats that have the tag."""
        from PIL import ImageOps
        array = (np.mgrid[:24, :40].sum(0) * 3).astype("u1")
        for way in range(1, 9):
            exif = Image.Exif()
            exif[274] = way
            self.put("a.jpg", jpeg(array, exif=exif))
            self.put("a.tif", tiff(array, extratags=[(274, "H", 1, way, True)]))
            self.put("a.png", png(array, extra=chunk(b"eXIf", exif.tobytes()[6:])))
            stored = np.asarray(Image.open(self.path("a.jpg")))
            for name, pixels in (("a.jpg", stored), ("a.tif", array), ("a.png", array)):
                with self.subTest(name, way=way):
                    image = Image.fromarray(pixels)
                    image.getexif()[274] = way
                    np.testing.assert_array_equal(self.decoded(name), np.asarray(ImageOps.exif_transpose(image)))
                    np.testing.assert_array_equal(self.decoded(name, "--no-orient"), pixels)
                    self.assertEqual("turned right" in self.works("info", name), way == 6)

    def test_pages(self):
        stack = np.random.default_rng(3).integers(0, 120, (5, 9, 14)).astype("u1")
        self.put("s.tif", tiff(stack))
        self.put("one.tif", stack[0])
        self.assertEqual(self.works("info", "s.tif", "one.tif").splitlines()[1].split()[4], "5")
        for page in (1, 3, 5):
            self.works("add", "s.tif", "one.tif", "-o", "o.npy", "--page", page, notes=["s.tif: page %d of 5" % page])
            np.testing.assert_array_equal(self.picture("o.npy"), stack[page - 1] + stack[0])
        self.refuses("add", "s.tif", "one.tif", "-o", "o.npy", "--page", 6, says=["--page", "5 pages"])
        self.refuses("add", "one.tif", "one.tif", "-o", "o.npy", "--page", 2, says=["--page"])
        whole = tiff(stack)
        with tifffile.TiffFile(self.path("s.tif")) as file:
            second = file.pages[1].offset
        self.put("cut.tif", whole[:second])
        self.assertIn("cut", self.works("info", "cut.tif"))
        self.refuses("tree", "cut.tif", "--page", 2, says=["--page", "cut"])


class Writing(ProgramCase):
    def copy(self, array, name, *options):
        self.put("in.npy", array)
        self.put("zero.npy", array * 0)
        self.works("add", "in.npy", "zero.npy", "-o", name, *options)
        return name

    def test_lossless_formats_keep_everything(self):
        endings = {"u8": [".png", ".pnm", ".pam", ".tif", ".TIFF", ".npy"], "s16": [".tif", ".npy"], "s32": [".tif", ".npy"],
                   "f32": [".tif", ".npy"], "u16": [".png", ".pam", ".pnm", ".npy"]}
        for kind, channels in itertools.product(endings, (1, 2, 3, 4)):
            for ending in endings[kind]:
                if ending == ".pnm" and channels in (2, 4):
                    continue
                with self.subTest(kind=kind, channels=channels, ending=ending):
                    array = sample(kind, channels)
                    name = self.copy(array, "out" + ending)
                    np.testing.assert_array_equal(self.decoded(name), array)
                    if ending in (".tif", ".npy") or (ending == ".png" and kind == "u8"):
                        np.testing.assert_array_equal(self.picture(name), array)
                    if ending == ".pnm":
                        head, body = pnm(array, "P5" if channels == 1 else "P6").split(b"# made by hand\n")
                        self.assertEqual(self.get(name), head + body)

    def test_jpeg_is_close(self):
        array = (np.mgrid[:40, :60, :3][0] * 2 + np.mgrid[:40, :60, :3][1] * 3).astype("u1")
        for pixels in (array, array[..., 0]):
            got = np.asarray(Image.open(self.path(self.copy(pixels, "out.jpg")))).astype(int)
            self.assertLess(abs(got - pixels).max(), 12)

    def test_values_that_the_format_cannot_hold(self):
        for kind, name in (("s16", "o.png"), ("f32", "o.png"), ("s32", "o.pgm"), ("u16", "o.jpg")):
            self.put("a.npy", sample(kind))
            self.refuses("add", "a.npy", "a.npy", "-o", name, says=[name + ": "])

    def test_standard_output(self):
        array = sample("u8", 3)
        self.put("a.npy", array)
        self.put("zero.npy", array * 0)
        for form in ("png", "tif", "npy", "pam"):
            done = self.run_program("add", "-", "zero.npy", "-o", "-", "--format", form, input=self.get("a.npy"))
            self.assertEqual((done.returncode, done.stderr), (0, b""))
            self.put("out." + form, done.stdout)
            np.testing.assert_array_equal(self.decoded("out." + form), array)
        self.refuses("add", "a.npy", "zero.npy", "-o", "-", says=["--format"])

    def test_a_link_is_followed(self):
        self.put("target.png", b"old")
        os.symlink("target.png", self.path("link.png"))
        self.copy(sample("u8"), "link.png")
        self.assertTrue(os.path.islink(self.path("link.png")))
        np.testing.assert_array_equal(self.picture("target.png"), sample("u8"))

    def test_labels_keep_every_value(self):
        self.works("scene", "-o", "s.png", "--size", "300x200", "--truth", "t.tif")
        labels = self.picture("t.tif")
        self.assertEqual(labels.dtype, np.dtype("i4"))
        self.assertLess(len(self.get("t.tif")), labels.nbytes // 8)
        with tifffile.TiffFile(self.path("t.tif")) as file:
            self.assertEqual((file.pages[0].compression, file.pages[0].predictor), (8, 2))


if __name__ == "__main__":
    unittest.main()
