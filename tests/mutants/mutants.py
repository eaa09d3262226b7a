"""Plants faults in source files, one at a time, and tells which tests notice.

Usage: mutants.py [--most N] [--seed N] [FILE[:LINE]...]
The tree is copied to build/mutants and built there with little optimisation, so that the sources stay as they
are. A fault is an operator exchanged for its neighbour, a number one larger, or a statement left out; those that
the compiler refuses, and those that make the very same libraries, are not counted. N faults are drawn from each
file, by the seed, or from a line of it. The tests of a folder run, nearest and shortest first, and before all the one
that noticed last; the first that fails, crashes, or takes several times as long as on the sources as they are, has
noticed.
Survivors stand in the report with their line; those that survivors.txt gives a reason for are told apart.
Exit status 1 when another one survives."""
import argparse
import os
import pathlib
import random
import re
import resource
import shutil
import signal
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
COPY = ROOT / "build" / "mutants"
# What decides over what is computed, and by folder the tests (and the digest, always) that are to notice faults.
FILES = """src/core/admit.cpp src/core/rows.cpp src/core/stages.cpp src/core/simd.cpp src/core/region.cpp src/core/array.cpp
src/arith/arith_rows.cpp src/arith/arith_values.h src/compare/tables.cpp src/compare/compare_rows.cpp src/compare/otsu.cpp
src/morph/shape.cpp src/region/flood.cpp src/region/block_flood.h src/region/mser.cpp src/region/detect.cpp
src/util/quick_sort.h src/util/plain_sorts.h src/util/elements.h src/util/search.cpp""".split()
WITNESSES = {
    "core": "env dispatch roi array footprint region_road compare convert stats threshold resize muladd failing sizes",
    "arith": "dispatch roi arith failing", "compare": "compare threshold failing", "morph": "shape morph filter",
    "region": "watershed mser detect tree flood gather tiles region sizes failing", "util": "sort"}
NEIGHBOURS = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==", "&&": "||", "||": "&&", "+": "-", "-": "+",
              "*": "+", "/": "*", "+=": "-=", "-=": "+=", "++": "--", "--": "++", "<<": ">>", ">>": "<<", "&": "|", "|": "&"}
OPERATOR = re.compile(r"(?<=[\w)\]] )(<=|>=|==|!=|&&|\|\||\+=|-=|<<|>>|[<>+\-*/&|])(?= [\w(\-!~*&])|\+\+|--")
NUMBER = re.compile(r"(?<![\w.])\d+(?![\w.])")
STATEMENT = re.compile(r"^\s+(?!return|using|const|case|goto|break|continue|[\w:<>]+ \**\w+( =|;|\{|\[)|\}|#|//)[^{}]*;$")
SKIPPED = re.compile(r"^\s*(#|//|static_assert|template|using|struct|namespace|extern)|[\\]$")
MEMORY = 16 << 30  # that a fault may make a test take


def faults_of(text):
    """Every fault of a text: line number, what stood there, the new text of the line."""
    for number, line in enumerate(text.splitlines()):
        code = line.split("//")[0].rstrip()
        if SKIPPED.search(code) or '"' in code:
            continue
        for match in OPERATOR.finditer(code):
            yield number, match.group(), code[:match.start()] + NEIGHBOURS[match.group()] + code[match.end():]
        for match in NUMBER.finditer(code):
            yield number, match.group(), code[:match.start()] + str(int(match.group()) + 1) + code[match.end():]
        if STATEMENT.match(code):
            yield number, "the statement", re.match(r"\s*", code).group() + ";"


def notices(folder, test):
    words = WITNESSES.get(folder, "").split()
    return test == "digest" or not words or any(test.startswith(word) for word in words)


def passes(command, seconds):
    """A test ends well within its processor time, which its own children share."""
    def limits():
        resource.setrlimit(resource.RLIMIT_CPU, (int(seconds) + 1,) * 2)
        resource.setrlimit(resource.RLIMIT_DATA, (MEMORY,) * 2)
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, preexec_fn=limits,
                               start_new_session=True)
    try:
        return process.wait(10 * seconds + 10) == 0
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        process.wait()
        return False


class Tree:
    """The copy, its build, and its tests with the seconds that each takes."""

    def __init__(self, folders):
        """The tree's tracked files, as they are now, and a build of the libraries and of all test programs."""
        self.files, self.build, self.made = COPY / "tree", COPY / "build", False
        listed = subprocess.run(["git", "ls-files", "-z"], cwd=ROOT, capture_output=True, check=True).stdout.decode()
        names = set(filter(None, listed.split("\0")))
        for gone in [p for p in self.files.rglob("*") if p.is_file() and str(p.relative_to(self.files)) not in names]:
            gone.unlink()
        for name in names:
            old, new = ROOT / name, self.files / name
            if old.exists() and (not new.exists() or old.read_bytes() != new.read_bytes()):
                new.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(old, new)
        # Rows too with little optimisation, and test programs are linked once, not after each fault.
        made = subprocess.run(["cmake", "-S", self.files, "-B", self.build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
                               "-DCMAKE_CXX_FLAGS_DEBUG=-O1 -DNDEBUG", "-DKIPX_TESTS=ON", "-DKIPX_TOOLS=OFF",
                               "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON"], capture_output=True)
        if made.returncode:
            sys.exit(made.stdout.decode() + made.stderr.decode())
        if not self.builds():
            sys.exit("the tree does not build; see ninja -C build/mutants/build")
        digest = ["/usr/bin/python3", "-B", str(self.files / "tests/digest/digest.py"), str(self.build / "bin/digest"),
                  "--sets", "0,1,2", "--check", str(self.files / "tests/digest/digest.txt")]
        commands = {p.name: [str(p), "--gtest_brief=1", "--gtest_fail_fast"] for p in (self.build / "bin").glob("*_test")}
        self.tests = []
        for name, command in {**commands, "digest": digest}.items():
            if not any(notices(folder, name) for folder in folders):
                continue
            start = time.monotonic()
            if not passes(command, 600):
                sys.exit(f"{name} fails without any fault")
            self.tests.append((time.monotonic() - start, name, command))
        self.tests.sort()
        print(f"{len(self.tests)} tests take {sum(seconds for seconds, _, _ in self.tests):.0f} s", flush=True)

    def builds(self):
        return subprocess.run(["ninja", "-C", self.build, "-j2"], capture_output=True).returncode == 0

    def libraries(self):
        return [(self.build / "lib" / name).read_bytes() for name in ("libKipx-1_0_0.so", "libZu-2.so")]

    def tests_of(self, path):
        """Those of the file's own name or folder before others, short ones before long ones."""
        near = path.stem.split("_")[0], path.parent.name
        rows = sorted((not any(word in name for word in near), seconds, name, command) for seconds, name, command in self.tests
                      if notices(path.parent.name, name))
        return [row[1:] for row in rows]


def judge(tree, sound, tests):
    """None when not counted, the name of the test that notices, or an empty name."""
    if not tree.builds() or tree.libraries() == sound:
        return None
    for at, (seconds, name, command) in enumerate(tests):
        if not passes(command, 5 * seconds + 2):
            tests.insert(0, tests.pop(at))
            return name
    return ""


def try_file(tree, path, line_wanted, most, seed, reasons):
    """Faults noticed, explained, and open."""
    source = tree.files / path
    text, tests, sound, verdicts = source.read_text(), tree.tests_of(path), tree.libraries(), []
    lines, faults = text.splitlines(), [
        fault for fault in faults_of(text) if line_wanted in ("", str(fault[0] + 1))]
    random.Random(seed).shuffle(faults)
    for number, what, line in faults:
        if len(verdicts) == most:
            break
        source.write_text("\n".join(lines[:number] + [line] + lines[number + 1:]) + "\n")
        try:
            by = judge(tree, sound, tests)
        finally:
            source.write_text(text)
        if by is None:
            continue
        row = f"{path}: {lines[number].strip()} => {'nothing' if what == 'the statement' else line.strip()}"
        verdicts.append("noticed" if by else "explained" if f"{row}\n" in reasons else "open")
        by = by or ("survives, as survivors.txt explains" if verdicts[-1] == "explained" else "SURVIVES")
        print(f"{number + 1}: {row}: {by}", flush=True)
    if not tree.builds() or tree.libraries() != sound:
        sys.exit(f"{path} is back, and its libraries are others")
    return [verdicts.count(verdict) for verdict in ("noticed", "explained", "open")]


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("files", nargs="*", default=FILES)
    parser.add_argument("--most", type=int, default=20)
    parser.add_argument("--seed", type=int, default=1)
    given = parser.parse_args()
    reasons, rows = (ROOT / "tests/mutants/survivors.txt").read_text(), []
    tree = Tree({pathlib.Path(name).parent.name for name in given.files})
    for name in given.files:
        name, _, line = name.partition(":")
        path, start = (ROOT / name).relative_to(ROOT), time.monotonic()
        rows.append((path, *try_file(tree, path, line, given.most, given.seed, reasons), time.monotonic() - start))
    print("\nfaults noticed explained  open  seconds  file")
    for path, noticed, explained, open_ones, seconds in rows:
        print(f"{noticed + explained + open_ones:6} {noticed:7} {explained:9} {open_ones:5} {seconds:8.0f}  {path}")
    noticed, explained, open_ones = (sum(row[k] for row in rows) for k in (1, 2, 3))
    counted = noticed + explained + open_ones
    print(f"{noticed} of {counted} noticed, {explained} explained, {open_ones} open: "
          f"{100 * (noticed + explained) / max(counted, 1):.0f} %")
    sys.exit(open_ones > 0)


if __name__ == "__main__":
    main()
