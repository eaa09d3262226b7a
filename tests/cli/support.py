"""What the program's tests share: starting it, and pictures as NumPy arrays, (height, width[, channels]),
in files that NumPy, Pillow and tifffile write and read."""

import io
import os
import resource
import shutil
import struct
import subprocess
import tempfile
import unittest
import zlib

import numpy as np
import tifffile
from PIL import Image

PROGRAM = os.environ.get("KIPX", "kipx")
SANITIZED = bool(os.environ.get("KIPX_SANITIZE"))
NAMES = {"u8": "u1", "u16": "u2", "u32": "u4", "s8": "i1", "s16": "i2", "s32": "i4", "f32": "f4", "f64": "f8"}


def as_type(values, kind):
    return np.asarray(values).astype(NAMES[kind])


def type_of(array):
    return {code: name for name, code in NAMES.items()}[array.dtype.str[1:]]


def npy(array):
    file = io.BytesIO()
    np.save(file, array)
    return file.getvalue()


def tiff(array, **options):
    """A stack of pictures becomes pages."""
    file = io.BytesIO()
    options.setdefault("photometric", "rgb" if array.ndim == 3 and array.shape[-1] in (3, 4) else "minisblack")
    tifffile.imwrite(file, array, metadata=None, **options)
    return file.getvalue()


def jpeg(array, **options):
    file = io.BytesIO()
    Image.fromarray(array).save(file, "jpeg", quality=95, **options)
    return file.getvalue()


def chunk(name, data):
    return struct.pack(">I", len(data)) + name + data + struct.pack(">I", zlib.crc32(name + data))


def png(array, colour=None, depth=None, rows=None, extra=b""):
    """rows, when given, are the packed rows of an unusual depth or colour; Pillow has no 16-bit colours."""
    channels = 1 if array.ndim == 2 else array.shape[2]
    big = np.ascontiguousarray(array).astype(array.dtype.newbyteorder(">"))
    rows = rows or [row.tobytes() for row in big]
    head = struct.pack(">IIBBBBB", array.shape[1], array.shape[0], depth or 8 * array.itemsize,
                       {1: 0, 2: 4, 3: 2, 4: 6}[channels] if colour is None else colour, 0, 0, 0)
    body = zlib.compress(b"".join(b"\0" + row for row in rows))
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", head) + extra + chunk(b"IDAT", body) + chunk(b"IEND", b"")


def pnm(array, kind):
    head = b"%s\n# made by hand\n%d %d\n" % (kind.encode(), array.shape[1], array.shape[0])
    if kind == "P7":
        head = b"P7\nWIDTH %d\nHEIGHT %d\nDEPTH %d\n" % (array.shape[1], array.shape[0], array[0, 0].size)
    most = 65535 if array.itemsize == 2 else 255
    if kind == "P1":
        return head + "".join(str(int(value == 0)) for value in array.ravel()).encode()
    if kind == "P4":
        return head + np.packbits(array == 0, axis=1).tobytes()
    head += b"MAXVAL %d\nENDHDR\n" % most if kind == "P7" else b"%d\n" % most
    if kind in ("P2", "P3"):
        return head + "\n".join(map(str, array.ravel())).encode()
    return head + array.astype(array.dtype.newbyteorder(">")).tobytes()


def blobs(seed, width=40, height=30, noise=3):
    """Bright and dark blobs, some nested, on a sloping ground."""
    source = np.random.default_rng(seed)
    y, x = np.mgrid[:height, :width]
    values = 120 + x // 4 + source.integers(-noise, noise + 1, (height, width))
    for _ in range(9):
        cx, cy = source.integers(width), source.integers(height)
        inside = (x - cx) ** 2 + ((y - cy) * source.uniform(0.6, 1.6)) ** 2 < source.uniform(2, 8) ** 2
        values[inside] += source.choice((-60, -40, -25, 25, 40, 60))
    return np.clip(values, 0, 255).astype("u1")


class ProgramCase(unittest.TestCase):
    """A folder of its own, and the program started in it."""

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="kipx-cli-")
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)

    def path(self, name):
        return os.path.join(self.folder, name)

    def put(self, name, data):
        """Bytes, or an array by the name's ending."""
        if isinstance(data, np.ndarray):
            data = {".npy": npy, ".png": png, ".tif": tiff, ".jpg": jpeg}[os.path.splitext(name)[1]](data)
        os.makedirs(os.path.dirname(self.path(name)), exist_ok=True)
        with open(self.path(name), "wb") as file:
            file.write(data)
        return name

    def get(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def picture(self, name):
        path = self.path(name)
        return np.load(path) if name.endswith(".npy") else tifffile.imread(path) if name.endswith(".tif") \
            else np.asarray(Image.open(path))

    def decoded(self, name, *options):
        """Any file that the program reads, through .npy: adding zeros keeps every value that f32 holds."""
        self.works("-q", "add", name, name, "-o", "twice.npy", "--type", "f32", *options)
        return np.load(self.path("twice.npy")) / 2

    def run_program(self, *arguments, **options):
        return subprocess.run([PROGRAM, *map(str, arguments)], cwd=self.folder, capture_output=True, timeout=120,
                              check=False, **options)

    def works(self, *arguments, notes=()):
        """Status 0; on stderr nothing but the notes expected, in their order."""
        done = self.run_program(*arguments)
        told = done.stderr.decode().splitlines()
        self.assertEqual(done.returncode, 0, (arguments, told))
        self.assertEqual(len(told), len(notes), (arguments, told))
        for note, line in zip(notes, told):
            self.assertIn(note, line, arguments)
        return done.stdout.decode()

    def refuses(self, *arguments, says=()):
        """Status 2, one sentence on stderr, and no file added, changed or left half-written."""
        before = self.contents()
        done = self.run_program(*arguments)
        text = done.stderr.decode()
        self.assertEqual(done.returncode, 2, (arguments, text))
        self.assertTrue(text.startswith("kipx: ") and text.endswith("\n"), (arguments, text))
        self.assertEqual(text.count("\n"), 1, (arguments, text))
        for part in says:
            self.assertIn(part, text, arguments)
        self.assertEqual(self.contents(), before, arguments)
        return text

    def peak(self, *arguments, most):
        """Runs it under an address space of so many bytes; its status, and the most it held, in bytes. Sanitizers
        map terabytes for themselves: there the space has no limit."""
        limit = None if SANITIZED else lambda: resource.setrlimit(resource.RLIMIT_AS, (most, most))
        child = subprocess.Popen([PROGRAM, *map(str, arguments)], cwd=self.folder, stdout=subprocess.DEVNULL,
                                 stderr=subprocess.DEVNULL, preexec_fn=limit)
        _, status, usage = os.wait4(child.pid, 0)
        child.returncode = os.waitstatus_to_exitcode(status)
        return child.returncode, usage.ru_maxrss << 10

    def contents(self):
        out = {}
        for place, _, names in os.walk(self.folder):
            out[place] = None
            for name in names:
                with open(os.path.join(place, name), "rb") as file:
                    out[os.path.join(place, name)] = file.read()
        return out
