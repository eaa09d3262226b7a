"""The names that a library exports are the names that its public headers declare, and no others.
Usage: exports.py C-COMPILER FOLDER-OF-INCLUDE LIBRARY, e.g. exports.py gcc zu build/lib/libZu-2.so"""
import os
import re
import subprocess
import sys

import tree

MARK = '__attribute__((visibility("default")))'
LINE = re.compile(r'^# \d+ "([^"]*)"')
NAME = r"[A-Za-z_$][\w$]*"
# What a sanitizer adds to a library, and what the linker may.
FOREIGN = re.compile(r"^(__asan_|__odr_asan|__ubsan_|__sanitizer_|_init$|_fini$|_edata$|_end$|__bss_start$)")


def preprocessed(compiler, header, folder, root=tree.ROOT):
    """The header's text after the preprocessor, only what comes from files of the folder."""
    include = os.path.join(root, "include")
    text = subprocess.run([compiler, "-std=c11", "-E", "-I" + include, "-x", "c", header], text=True,
                          capture_output=True, check=True).stdout
    ours, kept = False, []
    for line in text.splitlines():
        marker = LINE.match(line)
        if marker:
            ours = os.path.abspath(marker.group(1)).startswith(os.path.join(include, folder) + os.sep)
        elif ours:
            kept.append(line)
    return " ".join(kept)


def declared(text):
    """Names of the marked declarations: functions, functions that return functions, objects."""
    names = set()
    for piece in text.split(MARK)[1:]:
        declaration = re.split(r"[;{]", piece, maxsplit=1)[0]
        declaration = re.sub(r"__attribute__\s*\(\(.*?\)\)", "", declaration)
        name = (re.search(rf"\(\s*\*\s*({NAME})\s*\(", declaration)
                if re.match(rf"[^(]*\(\s*\*", declaration)
                else re.search(rf"({NAME})\s*\(", declaration)
                or re.search(rf"({NAME})\s*(\[[^\]]*\]\s*)*$", declaration))
        names.add(name.group(1) if name else "not understood:" + declaration)
    return names


def exported(library):
    text = subprocess.run(["nm", "-D", "--defined-only", library], text=True, capture_output=True,
                          check=True).stdout
    names = {line.split()[-1].split("@")[0] for line in text.splitlines()}
    return {name for name in names if not FOREIGN.match(name)}


def main():
    compiler, folder, library = sys.argv[1:]
    umbrella = os.path.join(tree.ROOT, "include", folder, folder + ".h")
    headers = [os.path.join(tree.ROOT, p) for p in tree.files("include/" + folder, suffixes=[".h"])]
    promised = declared(preprocessed(compiler, umbrella, folder))
    complaints = []
    for header in headers:
        for name in sorted(declared(preprocessed(compiler, header, folder)) - promised):
            complaints.append(f"{name}: declared in {header}, missing from {folder}.h")
            promised.add(name)
    found = exported(library)
    complaints += [f"{name}: declared, not exported" for name in sorted(promised - found)]
    complaints += [f"{name}: exported, not declared" for name in sorted(found - promised)]
    tree.finish(complaints, len(promised), "declared names")


if __name__ == "__main__":
    main()
