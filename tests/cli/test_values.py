"""Statistics, conversion and padding against NumPy."""

import csv
import io
import json
import unittest

import numpy as np

from support import NAMES, ProgramCase, as_type, type_of

PADS = {"replicate": "edge", "wrap": "wrap", "reflect": "symmetric", "reflect101": "reflect", "const": "constant"}


def picture(kind, channels=1, seed=3):
    values = np.random.default_rng(seed).integers(-300, 900, (23, 31, channels)) / (8 if kind[0] == "f" else 1)
    info = np.iinfo(NAMES[kind]) if kind[0] != "f" else None
    values = values if info is None else values.clip(info.min, info.max)
    return as_type(values[..., 0] if channels == 1 else values, kind)


def periodic(array, widths):
    """np.pad of Debian's NumPy starts anew at the end of a wide border."""
    rows, columns = (np.arange(-before, size + after) % size for (before, after), size in zip(widths[:2], array.shape))
    return array[rows][:, columns]


class Stats(ProgramCase):
    def told(self, array, *options):
        self.put("in.npy", array)
        self.works("stats", "in.npy", "-o", "out.json", "--histogram", "bins.csv", *options)
        bins = list(csv.reader(io.StringIO(self.get("bins.csv").decode())))[1:]
        return json.loads(self.get("out.json")), np.array(bins, "f8")

    def test_numbers_and_bins_of_every_type(self):
        inside = np.random.default_rng(4).integers(0, 2, (23, 31)).astype("u1")
        self.put("mask.npy", inside)
        for kind in NAMES:
            for channels in (1, 3):
                for part, mask, infinite in ((None, False, False), ("5,2,40,9", True, True)):
                    with self.subTest(kind=kind, channels=channels, part=part):
                        array = picture(kind, channels)
                        if infinite and kind[0] == "f":
                            array.flat[:400:7] = np.inf, np.nan, -np.inf, *array.flat[21:400:7]
                        options = (["--roi", part] if part else []) + (["--mask", "mask.npy"] if mask else [])
                        found, bins = self.told(array, *options)
                        cut = array[2:11, 5:] if part else array
                        keep = inside[2:11, 5:] if part else inside | 1
                        self.assertEqual(len(found["channels"]), channels)
                        for c, row in enumerate(found["channels"]):
                            values = (cut if channels == 1 else cut[..., c])[keep > 0].astype("f8")
                            finite = values[np.isfinite(values)]
                            self.assertEqual(row["nan"], np.isnan(values).sum())
                            self.assertEqual(row["infinite"], np.isinf(values).sum())
                            self.assertEqual((row["count"], row["min"], row["max"]), (finite.size, finite.min(), finite.max()))
                            self.assertAlmostEqual(row["mean"], finite.mean(), 9)
                            self.assertAlmostEqual(row["deviation"], finite.std(), 9)
                            self.assertEqual(bins[:, 2 + c].sum(), finite.size)
                            edges = np.append(bins[:, 0], np.inf)
                            np.testing.assert_array_equal(bins[:, 2 + c], np.histogram(finite, edges)[0])
                            self.assertEqual(row["histogram"], bins[:, 2 + c].tolist())

    def test_forms(self):
        self.put("in.npy", np.repeat(as_type([[0, 64, 128, 255]], "u8"), [1, 2, 4, 1], axis=1))
        text = self.works("stats", "in.npy", "--bins", "4", "--range", "0,255")
        self.assertRegex(text, r"\n +1 +8 +0 +255 +111\.875 +69\.4846\n")
        drawn = [line.split("|")[1] for line in text.splitlines() if "|" in line]
        self.assertEqual(["".join(column).count("#") for column in zip(*(line.ljust(4) for line in drawn))], [2, 4, 8, 2])
        for options, ends in (((), ["0", "255"]), (("--bins", "4", "--range", "0,255"), ["0", "255"]), (("--range", "9,20"), ["9", "20"])):
            self.assertEqual(self.works("stats", "in.npy", *options).splitlines()[-1].split(), ends)
        table = self.works("stats", "in.npy", "--format", "csv").splitlines()
        self.assertEqual(table[1].split(",")[:4], ["1", "8", "0", "255"])
        self.put("nan.npy", as_type(np.full((2, 2), np.nan), "f32"))
        self.assertRegex(self.works("stats", "nan.npy"), r" 1 +0 +- +- +- +- +4 +0\n")


class Convert(ProgramCase):
    def test_every_pair(self):
        for source in NAMES:
            self.put("in.npy", picture(source, 3))
            for kind in NAMES:
                for scale, shift in (((1,), (0,)), ((0.37,), (-20.5,)), ((0.5, 3, -1), (0, 1, 2))):
                    with self.subTest(source=source, kind=kind, scale=scale):
                        values = picture(source, 3).astype("f8") * scale + shift
                        done = self.run_program("convert", "in.npy", "-o", "out.npy", "--type", kind, "--scale",
                                                ",".join(map(str, scale)), "--shift", ",".join(map(str, shift)))
                        self.assertEqual(done.returncode, 0, done.stderr)
                        got = self.picture("out.npy")
                        self.assertEqual(type_of(got), kind)
                        if kind[0] == "f":
                            np.testing.assert_array_equal(got, as_type(values, kind))
                            continue
                        info = np.iinfo(NAMES[kind])
                        wanted = np.rint(values).clip(info.min, info.max)
                        np.testing.assert_array_equal(got, wanted)
                        beyond = (np.rint(values) != wanted).sum()
                        self.assertIn(b"%d of" % beyond if beyond else b"", done.stderr)
                        self.assertEqual(bool(beyond), bool(done.stderr))

    def test_stretch(self):
        self.put("in.npy", picture("s16"))
        self.works("convert", "in.npy", "-o", "out.png", "--type", "u8", "--stretch")
        array = picture("s16").astype("f8")
        np.testing.assert_allclose(self.picture("out.png"), (array - array.min()) * 255 / np.ptp(array), atol=0.5001)


class Pad(ProgramCase):
    def test_every_border(self):
        for kind, channels in (("u8", 3), ("f64", 1)):
            array = picture(kind, channels)
            self.put("in.npy", array)
            for border, mode in PADS.items():
                for by in ((2, 2, 2, 2), (0, 40, 70, 1)):
                    with self.subTest(kind=kind, border=border, by=by):
                        value = ["--value", "7"] if border == "const" else []
                        self.works("pad", "in.npy", "-o", "out.npy", "--border", border, "--by", ",".join(map(str, by)), *value)
                        widths = [(by[1], by[3]), (by[0], by[2])] + [(0, 0)] * (channels > 1)
                        more = {"constant_values": 7} if value else {}
                        wanted = np.pad(array, widths, mode, **more) if mode != "wrap" else periodic(array, widths)
                        np.testing.assert_array_equal(self.picture("out.npy"), wanted)
        self.works("pad", "in.npy", "-o", "part.npy", "--by", "9,1", "--border", "wrap", "--roi", "4,5,6,7")
        np.testing.assert_array_equal(self.picture("part.npy"), np.pad(array, 9, "wrap")[5 + 8:5 + 17, 4:4 + 24])
        self.refuses("pad", "in.npy", "-o", "no.npy", "--by", "1000000000", says=["2^32 bytes"])


if __name__ == "__main__":
    unittest.main()
