"""What the library says of itself: its version is the headers'; every error code of theirs has its text and
its row in docs/behaviour.md, and no other number has one. Usage: about.py LIBRARY"""
import ctypes
import re
import sys

import tree


def main():
    library = ctypes.CDLL(sys.argv[1])
    text = library.kipx_strerror
    text.restype = ctypes.c_char_p
    declared = {int(code): name for name, code in
                re.findall(r"^ *(KIPX_E[A-Z]+) = (-\d+)", tree.read("include/kipx/types.h"), re.M)}
    documented = {int(code): name for code, name in
                  re.findall(r"^\| (-\d+) \| `(KIPX_E\w+)` \|", tree.read("docs/behaviour.md"), re.M)}
    told = {}
    # All numbers near the codes, and the ends of the range.
    for code in (*range(-70000, 3), -2**31, 2**31 - 1):
        said = text(code).decode("ascii")
        named = re.fullmatch(r"(KIPX_E[A-Z]+): [^.\n]+", said)
        if named:
            told[code] = named.group(1)
        elif said != ("success" if code >= 0 else "unknown error"):
            told[code] = said
    complaints = [f"{what} {table}, types.h {declared}" for what, table in
                  (("behaviour.md", documented), ("kipx_strerror", told)) if table != declared]
    parts = re.findall(r"define KIPX_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)", tree.read("include/kipx/version.h"))
    if "%d%03d%03d" % tuple(map(int, parts)) != str(library.kipx_version()):
        complaints.append(f"kipx_version {library.kipx_version()}, version.h {parts}")
    tree.finish(complaints, len(declared), "codes")


main()
