"""What the options ask of the arithmetic, against a model in exact numbers."""

import fractions
import itertools
import random
import unittest

from support import Array, ProgramCase, SIZES, read_npy, write_npy, write_png

RANGES = {"u8": (0, 255), "s8": (-128, 127), "s16": (-2**15, 2**15 - 1), "s32": (-2**31, 2**31 - 1)}
ORDER = ["u8", "s16", "s32", "f32"]
COMPUTED = {"u8": "u8", "s8": "s16", "u16": "s32", "s16": "s16", "s32": "s32", "f32": "f32", "u32": "s32",
            "f64": "f32"}


def quotient(a, b, whole):
    exact = fractions.Fraction(a) / fractions.Fraction(b)
    return int(exact) if whole else exact


EXACT = {
    "add": lambda a, b, whole: a + b, "sub": lambda a, b, whole: a - b, "rsub": lambda a, b, whole: b - a,
    "mul": lambda a, b, whole: a * b, "div": quotient, "rdiv": lambda a, b, whole: quotient(b, a, whole),
    "divr": lambda a, b, whole: quotient(a, b, False), "rdivr": lambda a, b, whole: quotient(b, a, False),
}


def clamped(value, kind):
    low, high = RANGES[kind]
    return min(max(value, low), high)


def stored(value, kind, wraps):
    """round() of a Fraction goes to the nearest even, as the library does."""
    if kind == "f32":
        return float(value)
    value = round(value)
    if not wraps:
        return clamped(value, kind)
    low, high = RANGES[kind]
    return (value - low) % (high - low + 1) + low


def model(op, a, b, kind, left, right, scale=0, overflow="wrap"):
    """Integers throughout. Where an operand is wider than the result, the result is formed in the
    operand's type and then saturated; u8 from s16 alone is formed at once."""
    if overflow == "signed" and kind == "u8":
        kind = "s8"
    wide = max((COMPUTED[left], COMPUTED[right]), key=lambda name: SIZES[name])
    narrows = SIZES[wide] > SIZES[kind] and not (kind == "u8" and wide == "s16" and op[-3:] != "div" and "div" not in op)
    formed = wide if narrows else kind
    wraps = overflow == "wrap" and scale == 0 and op in ("add", "sub", "rsub")
    result = EXACT[op](a, b, kind != "f32") * fractions.Fraction(2) ** scale
    result = stored(result, formed, wraps)
    return result if formed == kind else stored(fractions.Fraction(result), kind, False)


def numbers(kind, seed, count=60, zero=True):
    source = random.Random(seed)
    low, high = RANGES.get(kind, (0, 2000))
    low, high = max(low, -3000), min(high, 3000)
    values = [source.randint(low, high) for _ in range(count - 2)] + [low, high]
    return [value if zero or value else 1 for value in values]


def image(kind, values, width=10, channels=1):
    return Array(kind, width, len(values) // width // channels, channels, values)


class Arithmetic(ProgramCase):
    def compute(self, op, a, b, *options):
        self.put("a.npy", write_npy(a))
        self.put("b.npy", write_npy(b))
        self.works(op, "a.npy", "b.npy", "-o", "out.npy", *options)
        return read_npy(self.get("out.npy"))

    def check(self, op, left, right, kind=None, scale=0, overflow=None):
        a = image(left, numbers(left, 1, zero=op not in ("rdiv", "rdivr")))
        b = image(right, numbers(right, 2, zero=op not in ("div", "divr")))
        options = ["--type", kind] if kind else []
        options += ["--scale", scale] if scale else []
        options += ["--overflow", overflow] if overflow else []
        got = self.compute(op, a, b, *options)
        kind = kind or max(COMPUTED[left], COMPUTED[right], key=ORDER.index)
        wanted = [model(op, *pair, kind, left, right, scale, overflow or "wrap")
                  for pair in zip(a.values, b.values)]
        self.assertEqual(got.type, "s8" if (overflow, kind) == ("signed", "u8") else kind)
        self.assertEqual(got.values, wanted)

    def test_every_operation_scale_and_overflow(self):
        for op, scale in itertools.product(EXACT, (0, -5, 3)):
            forms = (None, "wrap", "saturate", "signed") if op in ("add", "sub", "rsub") else (None, "wrap")
            for overflow in forms:
                with self.subTest(op=op, scale=scale, overflow=overflow):
                    self.check(op, "u8", "u8", None, scale, overflow)

    def test_types(self):
        lists = itertools.product(("u8", "s8", "u16", "s16", "s32"), ("u8", "u16", "s16"),
                                  (None, "u8", "s16", "s32"))
        ways = [("add", None), ("sub", "saturate"), ("mul", None), ("div", None), ("rdivr", None)]
        for i, (left, right, kind) in enumerate(lists):  # two of the ways each, all with every type
            for op, overflow in (ways[i % 5], ways[(i + 2 + i // 5) % 5]):
                with self.subTest(op=op, left=left, right=right, kind=kind):
                    self.check(op, left, right, kind, 0, overflow)

    def test_floats(self):
        a = image("f32", [value / 8 for value in numbers("s16", 3)])
        b = image("u8", numbers("u8", 4, zero=False))
        for op in ("add", "sub", "rsub", "mul"):
            for first, second in ((a, b), (b, a)):
                got = self.compute(op, first, second)
                wanted = [float(EXACT[op](x, y, False)) for x, y in zip(first.values, second.values)]
                self.assertEqual((got.type, got.values), ("f32", wanted))
        whole = self.compute("add", a, b, "--type", "s16")
        exact = [round(fractions.Fraction(x) + y) for x, y in zip(a.values, b.values)]
        self.assertEqual((whole.type, whole.values), ("s16", exact))
        powers = image("f64", [2.0 ** (i % 9 - 4) for i in range(60)])
        got = self.compute("div", a, powers)
        self.assertEqual(got.values, [x / y for x, y in zip(a.values, powers.values)])

    def test_both_switches_give_the_same(self):
        a, b = (image("u8", numbers("u8", seed, 30000), 100, 3) for seed in (5, 6))
        results = [self.compute("mul", a, b, "--scale", "-3", "--simd", simd) for simd in ("on", "off")]
        self.assertEqual(results[0], results[1])
        self.assertEqual(results[0].values,
                         [model("mul", x, y, "u8", "u8", "u8", -3) for x, y in zip(a.values, b.values)])

    def test_wide_integers(self):
        small = image("u32", numbers("u16", 3))
        self.assertEqual(self.compute("sub", small, small).values, [0] * 60)
        self.put("a.npy", write_npy(small._replace(values=[2**31] * 60)))
        self.refuses("add", "a.npy", "a.npy", "-o", "o.npy", says=["a.npy", "2147483648"])

    def test_missing_kernels(self):
        self.put("f.npy", write_npy(image("f32", numbers("f32", 3))))
        for op, options in (("divr", ()), ("div", ("--type", "s32")), ("add", ("--overflow", "saturate"))):
            self.refuses(op, "f.npy", "f.npy", "-o", "o.npy", *options, says=[op, "f32"])


class Placement(ProgramCase):
    """The result starts at --at1 in A and --at2 in B, both by default the corner of --roi."""

    def setUp(self):
        super().setUp()
        self.a = Array("u8", 9, 6, 3, [i % 100 for i in range(9 * 6 * 3)])
        self.b = Array("u8", 7, 8, 3, [i * 7 % 101 for i in range(7 * 8 * 3)])
        self.put("a.png", write_png(self.a))
        self.put("b.png", write_png(self.b))

    def expected(self, at1, at2, size):
        width = min(size[0], 9 - at1[0], 7 - at2[0])
        height = min(size[1], 6 - at1[1], 8 - at2[1])

        def part(array, at, y):
            start = ((y + at[1]) * array.width + at[0]) * 3
            return array.values[start : start + width * 3]

        values = [x + y for row in range(height)
                  for x, y in zip(part(self.a, at1, row), part(self.b, at2, row))]
        return Array("u8", width, height, 3, values)

    def test_places(self):
        places = [(None, None, None), ((2, 1, 3, 4), None, None), ((2, 1, 100, 100), None, None),
                  (None, (3, 2), None), (None, None, (1, 5)), ((0, 0, 2, 2), (8, 5), (6, 7)),
                  ((1, 1, 4, 2), (4, 3), None), ((6, 5, 1, 1), None, (0, 0)), (None, (8, 0), (0, 7))]
        for roi, at1, at2 in places:
            with self.subTest(roi=roi, at1=at1, at2=at2):
                options = []
                for name, value in (("--roi", roi), ("--at1", at1), ("--at2", at2)):
                    options += [name, ",".join(map(str, value))] if value else []
                self.works("add", "a.png", "b.png", "-o", "out.npy", *options)
                corner, size = (roi[:2], roi[2:]) if roi else ((0, 0), (999, 999))
                self.assertEqual(read_npy(self.get("out.npy")), self.expected(at1 or corner, at2 or corner, size))

    def test_outside(self):
        for options in (["--roi", "9,0,1,1"], ["--roi", "7,0,2,2"], ["--at1", "0,6"], ["--at2", "7,0"],
                        ["--roi", "0,0,1,1", "--at2", "0,8"]):
            self.refuses("add", "a.png", "b.png", "-o", "out.png", *options, says=["outside", options[-2]])


class ZeroDivisor(ProgramCase):
    """A zero in the divisor's used part is told before the division, and only there."""

    def setUp(self):
        super().setUp()
        values = [5] * 40
        values[2 * 8 + 5] = 0  # x 5, y 2
        for name, kind in (("u8", "u8"), ("s16", "s16"), ("u16", "u16")):
            self.put(name + ".npy", write_npy(Array(kind, 8, 5, 1, values)))
        self.put("ones.npy", write_npy(Array("u8", 8, 5, 1, [7] * 40)))

    def test_told_with_its_place(self):
        for kind in ("u8", "s16", "u16"):
            self.refuses("div", "ones.npy", kind + ".npy", "-o", "o.npy", says=["5,2", kind + ".npy"])
            self.refuses("rdiv", kind + ".npy", "ones.npy", "-o", "o.npy", says=["5,2", kind + ".npy"])
        self.refuses("div", "ones.npy", "u8.npy", "-o", "o.npy", "--at2", "5,2", says=["5,2"])
        self.put("rgb.npy", write_npy(Array("u8", 2, 1, 3, [1, 1, 1, 1, 1, 0])))
        self.refuses("div", "rgb.npy", "rgb.npy", "-o", "o.npy", says=["1,0"])

    def test_outside_the_region_it_does_no_harm(self):
        for options in (["--roi", "0,0,5,5"], ["--roi", "0,0,8,2"], ["--at2", "6,0"], ["--at2", "0,3"]):
            self.works("div", "ones.npy", "u8.npy", "-o", "o.npy", *options)
            self.assertEqual(set(read_npy(self.get("o.npy")).values), {1})

    def test_the_other_side_and_the_rounding_forms_may_hold_zeros(self):
        self.works("div", "u8.npy", "ones.npy", "-o", "o.npy")
        self.works("rdiv", "ones.npy", "u8.npy", "-o", "o.npy")
        self.works("divr", "ones.npy", "u8.npy", "-o", "o.npy")
        self.assertEqual(read_npy(self.get("o.npy")).values[21], 0)


if __name__ == "__main__":
    unittest.main()
