"""Plants faults in source files, one at a time, and tells which tests notice.

Usage: mutants.py [--most N] [--seed N] [--seconds N] FILE...
The tree is copied to build/mutants and built there, so that the sources stay as they are. A fault is an
operator exchanged for its neighbour, a number one larger, or a statement left out; those that the compiler
refuses, and those that make the very same object file, are not counted. N faults are drawn from each file.
Survivors stand in the report with their line; those that survivors.txt gives a reason for are told apart.
Exit status 1 when another one survives."""
import argparse
import pathlib
import random
import re
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
COPY = ROOT / "build" / "mutants"
NEIGHBOURS = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==", "&&": "||", "||": "&&", "+": "-", "-": "+",
              "*": "+", "/": "*", "+=": "-=", "-=": "+=", "++": "--", "--": "++", "<<": ">>", ">>": "<<", "&": "|", "|": "&"}
OPERATOR = re.compile(r"(?<=[\w)\]] )(<=|>=|==|!=|&&|\|\||\+=|-=|<<|>>|[<>+\-*/&|])(?= [\w(\-!~*&])|\+\+|--")
NUMBER = re.compile(r"(?<![\w.])\d+(?![\w.])")
STATEMENT = re.compile(r"^\s+(?!return|using|const|case|goto|break|continue|[\w:<>]+ \**\w+( =|;|\{|\[)|\}|#|//)[^{}]*;$")
SKIPPED = re.compile(r"^\s*(#|//|static_assert|template|using|struct|namespace|extern)|[\\]$")


def faults_of(text):
    """Every fault of a text: line number, what stood there, the new text of the line."""
    for number, line in enumerate(text.splitlines()):
        code = line.split("//")[0]
        if SKIPPED.search(code) or '"' in code:
            continue
        for match in OPERATOR.finditer(code):
            yield number, match.group(), code[:match.start()] + NEIGHBOURS[match.group()] + code[match.end():]
        for match in NUMBER.finditer(code):
            yield number, match.group(), code[:match.start()] + str(int(match.group()) + 1) + code[match.end():]
        if STATEMENT.match(code):
            yield number, "the statement", re.match(r"\s*", code).group() + ";"


def run(*command, seconds=120, **more):
    try:
        return subprocess.run(command, capture_output=True, timeout=seconds, **more)
    except subprocess.TimeoutExpired:
        return subprocess.CompletedProcess(command, -1, b"", b"")


def prepare():
    """The tree's tracked files, as they are now, and a build of the libraries and the test programs."""
    tree = COPY / "tree"
    names = run("git", "ls-files", "-z", cwd=ROOT).stdout.decode().split("\0")
    for name in filter(None, names):
        old, new = ROOT / name, tree / name
        if not new.exists() or old.read_bytes() != new.read_bytes():
            new.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(old, new)
    build = COPY / "build"
    made = run("cmake", "-S", tree, "-B", build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release", "-DKIPX_TESTS=ON",
               "-DKIPX_TOOLS=OFF", "-DCMAKE_CXX_FLAGS_RELEASE=-O1 -DNDEBUG")
    if made.returncode:
        sys.exit(made.stdout.decode() + made.stderr.decode())
    if subprocess.run(["ninja", "-C", build]).returncode:
        sys.exit("the tree does not build")
    return tree, build


def tests_of(build, path):
    """Test programs, those that bear the names of the file or its folder first; then what hashes all results."""
    near = {path.stem.split("_")[0], path.parent.name}
    programs = sorted((build / "bin").glob("*_test"), key=lambda p: (not any(word in p.name for word in near), p.name))
    digest = ["/usr/bin/python3", "-B", str(ROOT / "tests/digest/digest.py"), str(build / "bin/digest"), "--sets", "0,1",
              "--check", str(ROOT / "tests/digest/digest.txt")]
    rows = [(p.name, [str(p), "--gtest_brief=1", "--gtest_fail_fast"]) for p in programs]
    head = sum(any(word in name for word in near) for name, _ in rows)
    return rows[:head] + [("digest", digest)] + rows[head:]


def objects(build, path):
    return {p: p.read_bytes() for p in build.rglob(f"{path.name}.o")} if path.suffix == ".cpp" else {}


def judge(tree, build, path, tests, seconds):
    """None when not counted, the name of the test that notices, or an empty name."""
    before = objects(build, path)
    made = run("ninja", "-C", str(build), "Kipx", "Zu", seconds=600)
    if made.returncode or (before and objects(build, path) == before):
        return None
    for name, command in tests:
        if run(*command, seconds=seconds).returncode:
            return name
    return ""


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("files", nargs="+")
    parser.add_argument("--most", type=int, default=20)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--seconds", type=int, default=60, help="that a test may take")
    given = parser.parse_args()
    reasons = (ROOT / "tests/mutants/survivors.txt").read_text()
    tree, build = prepare()
    noticed = counted = open_ones = 0
    for name in given.files:
        path = pathlib.Path(name).resolve().relative_to(ROOT)
        text, tests = (tree / path).read_text(), tests_of(build, path)
        lines = text.splitlines()
        all_faults = list(faults_of(text))
        random.Random(given.seed).shuffle(all_faults)
        left = given.most
        for number, what, line in all_faults:
            if not left:
                break
            (tree / path).write_text("\n".join(lines[:number] + [line] + lines[number + 1:]) + "\n")
            try:
                by = judge(tree, build, path, tests, given.seconds)
            finally:
                (tree / path).write_text(text)
            if by is None:
                continue
            left -= 1
            counted += 1
            noticed += by != ""
            known = f"{path}: {line.strip()}\n" in reasons
            open_ones += by == "" and not known
            verdict = by or ("survives, as survivors.txt explains" if known else "SURVIVES")
            print(f"{path}:{number + 1}: {what} -> {line.strip()}: {verdict}", flush=True)
        run("ninja", "-C", str(build), "Kipx", "Zu", seconds=600)
    print(f"{noticed} of {counted} noticed" + (f", {100 * noticed / counted:.0f} %" if counted else ""))
    sys.exit(open_ones > 0)


if __name__ == "__main__":
    main()
