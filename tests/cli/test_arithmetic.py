"""What the options ask of the arithmetic: conversions, forms, placement, divisors."""

import re
import unittest

import numpy as np

from support import NAMES, ProgramCase, as_type, type_of

RANGES = {kind: (np.iinfo(NAMES[kind]).min, np.iinfo(NAMES[kind]).max) for kind in ("u8", "s8", "s16", "s32")}
COMPUTED = {"u8": "u8", "s8": "s16", "u16": "s32", "s16": "s16", "s32": "s32", "u32": "s32", "f32": "f32", "f64": "f32"}
EXACT = {"add": lambda a, b: a + b, "sub": lambda a, b: a - b, "rsub": lambda a, b: b - a, "mul": lambda a, b: a * b}


def numbers(kind, seed, shape=(6, 10)):
    low, high = RANGES.get(kind, (0, 3000))
    values = np.random.default_rng(seed).integers(max(low, -3000), min(high, 3000) + 1, shape)
    values.flat[:2] = max(low, -3000), min(high, 3000)
    return as_type(values, kind)


class Arithmetic(ProgramCase):
    def compute(self, op, a, b, *options):
        """The result, and how many pixels are told not to have fitted."""
        self.put("a.npy", a)
        if not isinstance(b, str):
            self.put("b.npy", b)
        done = self.run_program(op, "a.npy", b if isinstance(b, str) else "b.npy", "-o", "out.npy", *options)
        self.assertEqual(done.returncode, 0, done.stderr)
        told = re.search(rb": (\d+) of \d+ pixels did not fit", done.stderr)
        self.assertEqual(done.stderr.count(b"\n"), bool(told))
        return self.picture("out.npy"), int(told.group(1)) if told else 0

    def test_forms_and_what_does_not_fit(self):
        a, b = (numbers("u8", seed, (6, 10, 3)) for seed in (1, 2))
        forms = [(None, 0, 255), ("saturate", 0, 255), ("signed", -128, 127), ("wrap", None, None)]
        for op, (form, low, high) in ((op, form) for op in EXACT for form in forms):
            if op == "mul" and form:
                continue
            with self.subTest(op=op, form=form):
                got, told = self.compute(op, a, b, *(["--overflow", form] if form else []))
                exact = EXACT[op](a.astype("i8"), b.astype("i8"))
                ends = (low, high) if form != "wrap" else (0, 255)
                self.assertEqual(type_of(got), "s8" if form == "signed" else "u8")
                np.testing.assert_array_equal(got, exact & 255 if form == "wrap" else exact.clip(low, high))
                self.assertEqual(told, ((exact < ends[0]) | (exact > ends[1])).any(2).sum())
        mean, told = self.compute("add", a, b, "--scale", "-1")
        np.testing.assert_array_equal(mean, np.rint((a.astype("f8") + b) / 2))
        self.assertEqual(told, 0)

    def test_products_and_sums(self):
        """Images or numbers for B and C, into the widest of the types or another one."""
        rows = [("u8", "u8", "u8", None), ("u8", "1.5,1,0.25", "-10", None), ("s16", "u8", "7", None), ("u8", "3", "s16", "s16"),
                ("u8", "u8", "-10", "u8"), ("f32", "u8", "f32", None), ("u16", "2", "u8", "f32"), ("u8", "1", "-300", "s32")]
        forms = {"muladd": lambda p, c: p + c, "mulsub": lambda p, c: p - c, "mulrsub": lambda p, c: c - p}
        for (a, b, c, kind), (op, exact) in ((row, form) for row in rows for form in forms.items()):
            with self.subTest(op=op, a=a, b=b, c=c, kind=kind):
                given = [numbers(text, seed, (6, 10, 3)) if text in NAMES else text for seed, text in enumerate((a, b, c))]
                for name, values in zip("abc", given):
                    if not isinstance(values, str):
                        self.put(f"{name}.npy", values)
                files = [text if isinstance(text, str) else f"{name}.npy" for name, text in zip("abc", given)]
                done = self.run_program(op, *files, "-o", "out.npy", *(["--type", kind] if kind else []))
                self.assertEqual(done.returncode, 0, done.stderr)
                got = self.picture("out.npy")
                widest = max((COMPUTED[text] for text in (a, b, c) if text in NAMES), key=["u8", "s16", "s32", "f32"].index)
                self.assertEqual(type_of(got), kind or widest)
                x, y, z = (np.array(list(map(float, v.split(",")))) if isinstance(v, str) else v.astype("f8") for v in given)
                values = exact(x * y, z)
                if (kind or widest) in RANGES:
                    values = np.rint(values).clip(*RANGES[kind or widest])
                np.testing.assert_array_equal(got, values.astype(got.dtype))

    def test_types(self):
        """Sources of any type into any other, saturated there and counted."""
        for left, right in (("u8", "s16"), ("s8", "u8"), ("u16", "u16"), ("s32", "u8"), ("u32", "s16"), ("f64", "u8"), ("f32", "f32")):
            for kind in (None, "u8", "s16", "s32", "f32"):
                with self.subTest(left=left, right=right, kind=kind):
                    a, b = numbers(left, 3), numbers(right, 4)
                    got, told = self.compute("sub", a, b, *(["--type", kind] if kind else []))
                    wider = max(COMPUTED[left], COMPUTED[right], key=["u8", "s16", "s32", "f32"].index)
                    self.assertEqual(type_of(got), kind or wider)
                    exact = a.astype("f8") - b
                    wanted = exact if got.dtype.kind == "f" else exact.clip(*RANGES[kind or wider])
                    np.testing.assert_array_equal(got, wanted)
                    self.assertEqual(told, (exact != wanted).sum())

    def test_divisions(self):
        a, b = numbers("s16", 5), numbers("u8", 6)
        b[b == 0] = 7
        np.testing.assert_array_equal(self.compute("div", a, b)[0], np.trunc(a.astype("f8") / b))
        np.testing.assert_array_equal(self.compute("rdivr", b, a)[0], np.rint(a.astype("f8") / b))
        got, told = self.compute("div", a, b, "--type", "u8", "--scale", "3")
        np.testing.assert_array_equal(got, (np.trunc(a.astype("f8") / b) * 8).clip(0, 255))
        self.assertGreater(told, 0)

    def test_numbers(self):
        """One for all channels or one each, never rounded to the image's type before they are used."""
        a = numbers("u8", 11, (6, 10, 3))
        for op, text, options in (("add", "12", ()), ("sub", "-3,0,1000", ()), ("rsub", "255", ()), ("mul", "0.5,1.25,-1", ()),
                                  ("add", "2.5", ("--type", "f32")), ("mul", "3", ("--scale", "-2"))):
            with self.subTest(op=op, text=text):
                got, told = self.compute(op, a, text, *options)
                exact = EXACT[op](a.astype("f8"), np.array([float(x) for x in text.split(",")])) * (0.25 if "-2" in options else 1)
                wanted = exact if "f32" in options else np.rint(exact).clip(0, 255)
                np.testing.assert_array_equal(got, wanted)
                self.assertEqual(told, 0 if "f32" in options else (np.rint(exact) != wanted).any(2).sum())
        for arguments, says in ((("add", "1,2"), ["2 numbers", "3"]), (("div", "1,0,2"), ["divisor"]), (("add", "1", "--at2", "0,0"), ["--at2"])):
            self.refuses(arguments[0], "a.npy", *arguments[1:], "-o", "o.npy", says=says)

    def test_logic(self):
        forms = {"and": np.bitwise_and, "or": np.bitwise_or, "xor": np.bitwise_xor}
        for kind in ("u8", "u16", "s32"):
            a, b = numbers(kind, 12, (6, 10, 3)), numbers(kind, 13, (6, 10, 3))
            self.put("a.npy", a)
            self.put("b.npy", b)
            for op, form in forms.items():
                with self.subTest(op=op, kind=kind):
                    self.works(op, "a.npy", "b.npy", "-o", "out.npy")
                    np.testing.assert_array_equal(self.picture("out.npy"), form(a, b))
                    self.works(op, "a.npy", "12,90,5", "-o", "out.npy")
                    np.testing.assert_array_equal(self.picture("out.npy"), form(a, np.array([12, 90, 5], a.dtype)))
            self.works("not", "a.npy", "-o", "out.npy")
            np.testing.assert_array_equal(self.picture("out.npy"), ~a)
        self.put("f.npy", numbers("f32", 3, (6, 10, 3)))
        self.put("c.npy", numbers("u8", 3, (6, 10, 3)))
        for other, says in (("f.npy", "f32"), ("c.npy", "bytes"), ("0.5", "whole"), ("3e9", "s32")):
            self.refuses("xor", "a.npy", other, "-o", "o.npy", says=[says])

    def test_every_form_gives_the_same(self):
        a, b = numbers("u8", 7, (99, 301)), numbers("u8", 8, (99, 301))
        results = [self.compute("mul", a, b, "--scale", "-3", *form)[0]
                   for form in (("--simd", "on"), ("--simd", "off"), ("--set", "best"))]
        for result in results:
            np.testing.assert_array_equal(result, np.rint(a.astype("f8") * b / 8).clip(0, 255))

    def test_what_there_is_no_kernel_for(self):
        self.put("f.npy", numbers("f32", 3))
        for op, options in (("divr", ()), ("div", ("--type", "s32"))):
            self.refuses(op, "f.npy", "f.npy", "-o", "o.npy", *options, says=[op, "f32"])
        self.put("u.npy", as_type(np.full((2, 2), 2**31), "u32"))
        self.refuses("add", "u.npy", "u.npy", "-o", "o.npy", says=["u.npy", "2147483648"])

    def test_placement(self):
        a, b = numbers("u8", 9, (6, 9, 3)) // 2, numbers("u8", 10, (8, 7, 3)) // 2
        self.put("a.png", a)
        self.put("b.png", b)
        places = [((2, 1, 3, 4), None, None), ((2, 1, 100, 100), None, None), (None, (3, 2), None), (None, None, (1, 5)),
                  ((0, 0, 2, 2), (8, 5), (6, 7)), ((1, 1, 4, 2), (4, 3), None), (None, (8, 0), (0, 7))]
        for roi, at1, at2 in places:
            with self.subTest(roi=roi, at1=at1, at2=at2):
                options = [word for name, value in (("--roi", roi), ("--at1", at1), ("--at2", at2)) if value
                           for word in (name, ",".join(map(str, value)))]
                self.works("add", "a.png", "b.png", "-o", "out.npy", *options)
                corner, (width, height) = (roi[:2], roi[2:]) if roi else ((0, 0), (999, 999))
                (x1, y1), (x2, y2) = at1 or corner, at2 or corner
                width, height = min(width, 9 - x1, 7 - x2), min(height, 6 - y1, 8 - y2)
                np.testing.assert_array_equal(self.picture("out.npy"), a[y1:y1 + height, x1:x1 + width] + b[y2:y2 + height, x2:x2 + width])
        for options in (["--roi", "9,0,1,1"], ["--at1", "0,6"], ["--at2", "7,0"], ["--roi", "0,0,1,1", "--at2", "0,8"]):
            self.refuses("add", "a.png", "b.png", "-o", "out.png", *options, says=["outside", options[-2]])

    def test_zero_divisors(self):
        """A zero in the divisor's used part is told before the division, and only there."""
        values = np.full((5, 8), 5)
        values[2, 5] = 0
        self.put("ones.npy", as_type(values * 0 + 7, "u8"))
        for kind in ("u8", "u16"):
            self.put(kind + ".npy", as_type(values, kind))
            self.refuses("div", "ones.npy", kind + ".npy", "-o", "o.npy", says=["5,2", kind + ".npy"])
            self.refuses("rdiv", kind + ".npy", "ones.npy", "-o", "o.npy", says=["5,2", kind + ".npy"])
        self.refuses("div", "ones.npy", "u8.npy", "-o", "o.npy", "--at2", "5,2", says=["5,2"])
        for options in (["--roi", "0,0,5,5"], ["--roi", "0,0,8,2"], ["--at2", "6,0"], ["--at2", "0,3"]):
            self.works("div", "ones.npy", "u8.npy", "-o", "o.npy", *options)
            self.assertEqual(np.unique(self.picture("o.npy")), [1])
        for line in (["div", "u8.npy", "ones.npy"], ["rdiv", "ones.npy", "u8.npy"], ["divr", "ones.npy", "u8.npy"]):
            self.works(*line, "-o", "o.npy")
        self.assertEqual(self.picture("o.npy")[2, 5], 0)


if __name__ == "__main__":
    unittest.main()
