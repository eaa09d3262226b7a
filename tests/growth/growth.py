"""How the cost of floods and sorts grows on their worst inputs, counted and not timed.

Usage: growth.py PROGRAM
For floods the instructions of a detection, for each pixel, that valgrind counts on pictures of n, 4n and 16n
pixels, which may grow by a quarter from n to 16n; for sorts the comparisons on n, 4n and 16n elements, divided by
n log2 n, which are 3 at most. Exit status 1 when one goes beyond."""
import math
import re
import subprocess
import sys
import tempfile

SIDES, COUNTS = (128, 256, 512), (1 << 12, 1 << 14, 1 << 16)
MOST_GROWTH = 1.25
MOST_COMPARISONS = 3  # for each of n log2 n, as docs/behaviour.md promises


def instructions(program, way, picture, side):
    function = "KipxGenerateFMSERs" if way == "fast" else "KipxGenerateMSERs"
    with tempfile.NamedTemporaryFile() as out:
        done = subprocess.run(["valgrind", "--tool=callgrind", f"--toggle-collect={function}", f"--callgrind-out-file={out.name}",
                               program, "flood", way, picture, str(side)], capture_output=True, text=True)
    found = re.search(r"Collected : (\d+)", done.stderr)
    if done.returncode or not found or int(found[1]) < side * side:
        sys.exit(f"{picture} of {side} x {side} was not flooded:\n{done.stderr}")
    return int(found[1]) / side ** 2


def comparisons(program, way, keys, n):
    done = subprocess.run([program, "sort", way, keys, str(n)], capture_output=True, text=True, check=True)
    return int(done.stdout) / (n * math.log2(n))


def main():
    program, failed = sys.argv[1], 0
    pictures, keys = (line.split() for line in subprocess.run(
        [program, "list"], capture_output=True, text=True, check=True).stdout.splitlines())
    for title, ways, names, sizes, count, most in (
            ("instructions a pixel; side", ("features", "areas", "fast"), pictures, SIDES, instructions, None),
            ("comparisons by n log2 n; n", ("quick", "heap"), keys, COUNTS, comparisons, MOST_COMPARISONS)):
        print(f"{title:40}" + "".join(f"{size:>9}" for size in sizes) + "   growth")
        for way in ways:
            for name in names:
                found = [count(program, way, name, size) for size in sizes]
                growth = found[-1] / found[0]
                bad = max(found) > most if most else growth > MOST_GROWTH
                failed += bad
                print(f"{way + ', ' + name:40}" + "".join(f"{value:9.2f}" for value in found) + f"{growth:9.2f}"
                      + ("  too much" if bad else ""), flush=True)
    print(f"{3 * len(pictures) + 2 * len(keys)} counts, {failed} of them grow too much")
    sys.exit(failed > 0)


if __name__ == "__main__":
    main()
