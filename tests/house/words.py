"""Code, tests and documents speak for themselves: no reference to papers that a reader of the tree
does not have. `words.py` checks the tree, `words.py --planted` the expressions."""
import re
import sys

import tree

# Pieced together so that this file passes its own check.
REFUSED = [re.compile(pattern) for pattern in (
    r"(?i)\bspec(" + r"s|ification|ifications)?\b",
    r"\bPart" + r"s?\s+\d",
    r"(?i)\bissues?\s+#?" + r"\d",
    r"/work/" + r"shared\b",
)]


def breaches(text):
    return [m.group(0) for pattern in REFUSED for m in pattern.finditer(text)]


def planted():
    bad = ["see the sp" + "ec", "the Sp" + "ecification says", "Part" + " 2.1", "Part" + "s 1 to 3",
           "issue" + " 12", "Issue" + " #3", "sp" + "ec.md", "_x sp" + "ecs"]
    good = ["special", "specified", "specific", "species", "part 1 of a file", "partition 3", "inspect",
            "issues", "spectrum", "Parts of it", "tissue 7"]
    wrong = [f"missed: {t}" for t in bad if not breaches(t)]
    wrong += [f"refused: {t}" for t in good if breaches(t)]
    tree.finish(wrong, len(bad) + len(good), "sentences")


def main():
    complaints, paths = [], list(tree.files())
    for path in paths:
        complaints += [f"{path}: {word!r} in its name" for word in breaches(path)]
        for number, line in enumerate(tree.read(path).splitlines(), 1):
            complaints += [f"{path}:{number}: {word!r}" for word in breaches(line)]
    tree.finish(complaints, len(paths), "files")


if sys.argv[1:] == ["--planted"]:
    planted()
main()
