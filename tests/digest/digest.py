"""One number over the results of every operation, and one for each: equal on every machine.

Usage: digest.py PROGRAM... [--write FILE | --check FILE] [--sets N,N...]
PROGRAM is the digest program, with an emulator before it where one is needed. Every set is a value for
kipx_set_simd and must give the same stream, whatever fresh memory holds: each finds another filling in it. The
numbers are SHA-256: that of the whole stream in full, those of single operations by their first 16 digits, so that
a difference tells where to look."""
import argparse
import hashlib
import os
import subprocess
import sys


def numbers_of(stream):
    """The total and a number for each operation; the stream is records of a line and the bytes it counts."""
    parts, at = {}, 0
    while at < len(stream):
        end = stream.index(b"\n", at)
        name, size = stream[at:end].split(b" ")[0], int(stream[end - 20:end].rsplit(b" ", 1)[1])
        parts.setdefault(name.decode(), hashlib.sha256()).update(stream[at:end + 1 + size])
        at = end + 1 + size
    rows = [("all", hashlib.sha256(stream).hexdigest())]
    return rows + [(name, parts[name].hexdigest()[:16]) for name in sorted(parts)]


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("program", nargs="+")
    parser.add_argument("--write")
    parser.add_argument("--check")
    parser.add_argument("--sets", default="0,1,2,3")
    given = parser.parse_args()
    failed = False
    wanted = dict(line.split() for line in open(given.check)) if given.check else None
    for number in given.sets.split(","):
        filling = {"MALLOC_PERTURB_": str(85 * (int(number) + 1) % 256)}  # glibc's; 0 is none
        done = subprocess.run([*given.program, number], stdout=subprocess.PIPE, check=True, env={**os.environ, **filling})
        rows = numbers_of(done.stdout)
        if wanted is None:
            wanted = dict(rows)
        for name in sorted(wanted.keys() ^ dict(rows).keys()):
            print(f"set {number}: {name} is in one of the lists only")
        differ = [name for name, value in rows if wanted.get(name, value) != value]
        print(f"set {number}: {rows[0][1]}" + (", differs in " + ", ".join(differ) if differ else ""))
        failed |= bool(differ) or wanted.keys() != dict(rows).keys()
    if given.write and not failed:
        with open(given.write, "w") as file:
            file.writelines(f"{name} {value}\n" for name, value in rows)
    sys.exit(failed)


if __name__ == "__main__":
    main()
