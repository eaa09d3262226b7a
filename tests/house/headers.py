"""Every header compiles alone, and twice in a row: public ones as C11 and C++17 with extensions
refused, internal ones as C++20. Usage: headers.py [compiler pairs, default gcc,g++ clang,clang++]"""
import os
import shutil
import subprocess
import sys

import tree

WARNINGS = ["-Wall", "-Wextra", "-Wshadow", "-Werror", "-fsyntax-only"]
PUBLIC = [("c", "c11"), ("c++", "c++17"), ("c++", "c++20")]
# What the build passes to files with row loops, which their headers may count on.
ROWS = ["-DKIPX_SET=baseline", "-DKIPX_SET_baseline=1"]


def compile_alone(compiler, language, flags, header):
    source = f'#include "{header}"\n#include "{header}"\nextern int kipx_header_check;\n'
    command = [compiler, "-x", language, *flags, *WARNINGS, "-"]
    result = subprocess.run(command, input=source, text=True, capture_output=True)
    return "" if result.returncode == 0 else " ".join(command) + f" < {header}\n{result.stderr}"


def main():
    pairs = [p.split(",") for p in sys.argv[1:]] or [("gcc", "g++"), ("clang", "clang++")]
    pairs = [p for p in pairs if all(shutil.which(c) for c in p)]
    include = os.path.join(tree.ROOT, "include")
    source = os.path.join(tree.ROOT, "src")
    complaints, checked = [], 0
    for c, cxx in pairs:
        for path in tree.files("include", suffixes=[".h"]):
            header = os.path.relpath(path, "include")
            for language, standard in PUBLIC:
                flags = [f"-std={standard}", "-pedantic-errors", "-I" + include]
                complaints.append(compile_alone(c if language == "c" else cxx, language, flags, header))
                checked += 1
        for path in tree.files("src", suffixes=[".h", ".hpp"]):
            flags = ["-std=c++20", "-fno-exceptions", "-fno-rtti", "-I" + include, "-I" + source]
            complaints.append(compile_alone(cxx, "c++", flags + ROWS, os.path.relpath(path, "src")))
            checked += 1
    tree.finish([c for c in complaints if c], checked, "compilations")


main()
