"""What the house checks share: the files of the tree, and how a check ends."""
import os
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
NOT_OURS = {".git", "build", "demo", "__pycache__", ".cache"}


def files(*tops, suffixes=None, root=ROOT):
    """Paths relative to root, sorted, of the files under the named folders (or the whole tree)."""
    found = []
    for top in tops or ("",):
        for folder, folders, names in os.walk(os.path.join(root, top)):
            folders[:] = sorted(f for f in folders if f not in NOT_OURS)
            for name in names:
                if suffixes is None or name.endswith(tuple(suffixes)):
                    found.append(os.path.relpath(os.path.join(folder, name), root))
    return sorted(found)


def read(path, root=ROOT):
    with open(os.path.join(root, path), encoding="utf-8", errors="replace") as file:
        return file.read()


def finish(complaints, checked, what):
    """Prints the complaints and leaves with 1 when there are any, or when nothing was checked."""
    for complaint in complaints:
        print(complaint)
    if not checked:
        complaints = [f"nothing checked: no {what}"]
        print(complaints[0])
    print(f"{len(complaints)} complaints, {checked} {what}")
    sys.exit(1 if complaints else 0)
