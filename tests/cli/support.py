"""What the program's tests share: starting it, and image files written and read independently.

An Array is (type, width, height, channels, values) with values a flat list, channels of a pixel side by
side. Writers give bytes of a file; readers take bytes and give an Array.
"""

import collections
import os
import shutil
import struct
import subprocess
import tempfile
import unittest
import zlib

PROGRAM = os.environ.get("KIPX", "kipx")

Array = collections.namedtuple("Array", "type width height channels values")

CODES = {"u8": "B", "u16": "H", "u32": "I", "s8": "b", "s16": "h", "s32": "i", "f32": "f", "f64": "d"}
SIZES = {name: struct.calcsize("<" + code) for name, code in CODES.items()}
NPY = {"u8": "u1", "u16": "u2", "u32": "u4", "s8": "i1", "s16": "i2", "s32": "i4", "f32": "f4", "f64": "f8"}


def pack(order, kind, values):
    return struct.pack("%s%d%s" % (order, len(values), CODES[kind]), *values)


def unpack(order, kind, data):
    count = len(data) // SIZES[kind]
    return list(struct.unpack("%s%d%s" % (order, count, CODES[kind]), data[: count * SIZES[kind]]))


def write_npy(array, order="<", version=1):
    shape = (array.height, array.width) + ((array.channels,) if array.channels > 1 else ())
    mark = "|" if SIZES[array.type] == 1 else order
    header = repr({"descr": mark + NPY[array.type], "fortran_order": False, "shape": shape}) + "\n"
    length = struct.pack("<H" if version == 1 else "<I", len(header))
    return b"\x93NUMPY" + bytes([version, 0]) + length + header.encode() + pack(order, array.type, array.values)


def read_npy(data):
    assert data[:8] == b"\x93NUMPY\x01\x00", data[:8]
    length = struct.unpack("<H", data[8:10])[0]
    assert (10 + length) % 64 == 0
    header = eval(data[10 : 10 + length].decode())  # a literal that the program wrote
    kind = {code: name for name, code in NPY.items()}[header["descr"][1:]]
    shape = header["shape"]
    order = ">" if header["descr"][0] == ">" else "<"
    channels = shape[2] if len(shape) == 3 else 1
    return Array(kind, shape[1], shape[0], channels, unpack(order, kind, data[10 + length :]))


def write_pnm(array, kind, comment=b"", maximum=None):
    maximum = maximum or (65535 if array.type == "u16" else 255)
    head = b"%s\n%s%d %d\n" % (kind.encode(), comment, array.width, array.height)
    if kind in "P1 P4":
        bits = [0 if value else 1 for value in array.values]
        if kind == "P1":
            return head + "".join(map(str, bits)).encode()
        rows = [bits[y * array.width : (y + 1) * array.width] for y in range(array.height)]
        body = b""
        for row in rows:
            row = row + [0] * (-len(row) % 8)
            body += bytes(int("".join(map(str, row[i : i + 8])), 2) for i in range(0, len(row), 8))
        return head + body
    head += b"%d\n" % maximum
    if kind in "P2 P3":
        return head + "\n".join(map(str, array.values)).encode() + b"\n"
    return head + pack(">", array.type, array.values)


def write_pam(array):
    return b"P7\n# made by hand\nWIDTH %d\nHEIGHT %d\nDEPTH %d\nMAXVAL %d\nTUPLTYPE ANY\nENDHDR\n" % (
        array.width, array.height, array.channels, 65535 if array.type == "u16" else 255
    ) + pack(">", array.type, array.values)


def chunk(name, data):
    return struct.pack(">I", len(data)) + name + data + struct.pack(">I", zlib.crc32(name + data))


def write_png(array, colour=None, depth=None, rows=None, extra=b""):
    """rows, when given, are the packed rows of an unusual depth or colour."""
    depth = depth or SIZES[array.type] * 8
    colour = {1: 0, 2: 4, 3: 2, 4: 6}[array.channels] if colour is None else colour
    if rows is None:
        step = array.width * array.channels
        rows = [pack(">", array.type, array.values[y * step : (y + 1) * step]) for y in range(array.height)]
    head = struct.pack(">IIBBBBB", array.width, array.height, depth, colour, 0, 0, 0)
    body = zlib.compress(b"".join(b"\0" + row for row in rows))
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", head) + extra + chunk(b"IDAT", body) + chunk(b"IEND", b"")


def read_png(data):
    """Files of the program itself: no palette, not interlaced."""
    at, body, head = 8, b"", None
    while at < len(data):
        length, name = struct.unpack(">I4s", data[at : at + 8])
        part = data[at + 8 : at + 8 + length]
        assert struct.unpack(">I", data[at + 8 + length : at + 12 + length])[0] == zlib.crc32(name + part)
        head, body = (part if name == b"IHDR" else head), body + (part if name == b"IDAT" else b"")
        at += 12 + length
    width, height, depth, colour = struct.unpack(">IIBB", head[:10])
    channels = {0: 1, 4: 2, 2: 3, 6: 4}[colour]
    kind = "u16" if depth == 16 else "u8"
    pixel, row_bytes = channels * depth // 8, width * channels * depth // 8
    raw, values, above = zlib.decompress(body), bytearray(), bytes(row_bytes)
    for y in range(height):
        start = y * (row_bytes + 1)
        row = bytearray(raw[start + 1 : start + 1 + row_bytes])
        for i in range(row_bytes):
            left = row[i - pixel] if i >= pixel else 0
            corner = above[i - pixel] if i >= pixel else 0
            row[i] = (row[i] + predicted(raw[start], left, above[i], corner)) & 255
        values += row
        above = row
    return Array(kind, width, height, channels, unpack(">", kind, bytes(values)))


def predicted(rule, left, up, corner):
    if rule == 4:
        guess = left + up - corner
        return min((abs(guess - left), 0, left), (abs(guess - up), 1, up), (abs(guess - corner), 2, corner))[2]
    return [0, left, up, (left + up) // 2][rule]


def write_tiff(array, order="<", rows_per_strip=None, tile=None, planar=False, photometric=None, deflate=False,
               tags=()):
    """Plain or deflated; strips or tiles, samples side by side or in planes."""
    size, channels = SIZES[array.type], array.channels
    planes = (
        [Array(array.type, array.width, array.height, 1, array.values[c::channels]) for c in range(channels)]
        if planar else [array]
    )
    block_w, block_h = tile or (array.width, rows_per_strip or array.height)
    blocks = []
    for plane in planes:
        for y0 in range(0, array.height, block_h):
            for x0 in range(0, array.width, block_w):
                block = pack(order, array.type, tiff_block(plane, x0, y0, block_w, block_h, bool(tile)))
                blocks.append(zlib.compress(block) if deflate else block)
    kind = {"u": 1, "s": 2, "f": 3}[array.type[0]]
    offsets, at = [], 8
    for block in blocks:
        offsets.append(at)
        at += len(block)
    entries = {
        256: (4, [array.width]), 257: (4, [array.height]), 258: (3, [size * 8] * channels), 259: (3, [8 if deflate else 1]),
        262: (3, [photometric if photometric is not None else (2 if channels > 2 else 1)]),
        277: (3, [channels]), 284: (3, [2 if planar else 1]), 339: (3, [kind] * channels),
    }
    counts = [len(block) for block in blocks]
    if tile:
        entries.update({322: (4, [block_w]), 323: (4, [block_h]), 324: (4, offsets), 325: (4, counts)})
    else:
        entries.update({273: (4, offsets), 278: (4, [block_h]), 279: (4, counts)})
    if channels in (2, 4):
        entries[338] = (3, [2])
    entries.update(tags)
    body = b"".join(blocks)
    return tiff_header(order, 8 + len(body)) + body + tiff_directory(order, entries, 8 + len(body))


def tiff_block(plane, x0, y0, width, height, padded):
    out = []
    for y in range(y0, y0 + height):
        for x in range(x0, x0 + width):
            inside = y < plane.height and x < plane.width
            at = (y * plane.width + x) * plane.channels
            if inside or padded:
                out += plane.values[at : at + plane.channels] if inside else [0] * plane.channels
    return out


def tiff_header(order, directory):
    return (b"II" if order == "<" else b"MM") + struct.pack(order + "HI", 42, directory)


def tiff_directory(order, entries, at):
    out, tail = struct.pack(order + "H", len(entries)), b""
    tail_at = at + 2 + 12 * len(entries) + 4
    for tag, (kind, values) in sorted(entries.items()):
        data = struct.pack("%s%d%s" % (order, len(values), {3: "H", 4: "I"}[kind]), *values)
        out += struct.pack(order + "HHI", tag, kind, len(values))
        if len(data) <= 4:
            out += data.ljust(4, b"\0")
        else:
            out += struct.pack(order + "I", tail_at + len(tail))
            tail += data + b"\0" * (len(data) % 2)
    return out + struct.pack(order + "I", 0) + tail


class ProgramCase(unittest.TestCase):
    """A folder of its own, and the program started in it."""

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="kipx-cli-")
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)

    def path(self, name):
        return os.path.join(self.folder, name)

    def put(self, name, data):
        with open(self.path(name), "wb") as file:
            file.write(data)
        return name

    def get(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def run_program(self, *arguments):
        return subprocess.run([PROGRAM, *map(str, arguments)], cwd=self.folder, capture_output=True,
                              timeout=120, check=False)

    def works(self, *arguments):
        done = self.run_program(*arguments)
        self.assertEqual((done.returncode, done.stderr), (0, b""), arguments)
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

    def contents(self):
        out = {}
        for name in os.listdir(self.folder):
            out[name] = self.get(name) if os.path.isfile(self.path(name)) else None
        return out

    def decoded(self, name):
        """Any file that the program reads, as an Array, through .npy: adding zeros keeps every value."""
        self.works("add", name, name, "-o", "twice.npy", "--type", "f32")
        twice = read_npy(self.get("twice.npy"))
        return twice._replace(values=[value / 2 for value in twice.values])
