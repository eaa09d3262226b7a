"""An object compiled for a newer processor defines nothing outside its own namespace: a symbol that
the linker may share with other objects would carry the newer instructions into them.
Usage: rows.py BUILD-FOLDER, or rows.py --planted C++-COMPILER to see that a breach is noticed."""
import glob
import os
import re
import subprocess
import sys
import tempfile

import tree

SETS = ("avx2", "avx512")


def strays(path, name):
    """Defined, not local, and not within kipx::<name>: mangled names, for they tell the scope."""
    text = subprocess.run(["nm", "--defined-only", path], text=True, capture_output=True,
                          check=True).stdout
    # Functions, their local statics and guards, tables of types and of virtual functions; and the
    # marks that the address sanitizer sets beside objects.
    own = re.compile(rf"^(__odr_asan\.)?_Z(Z|GV|T[ISVT])*N[KVO]?4kipx{len(name)}{name}")
    found = []
    for line in text.splitlines():
        kind, symbol = line.split()[-2:]
        if (kind.isupper() or kind in "wvu") and not own.match(symbol):
            found.append(f"{os.path.basename(path)}: {kind} {symbol}")
    return found


def planted(compiler):
    source = """
#include <algorithm>
namespace kipx::avx2 {
template<class T> __attribute__((noinline)) T twice(T x) { static T calls; return x * 2 + calls++; }
int good(int x) { return twice(x); }
%s
}
"""
    breaches = {"": False, "void bad(int *p, int n) { std::sort(p, p + n); }": True,
                "} namespace kipx { int loose(int x) { return x; }": True}
    complaints = []
    with tempfile.TemporaryDirectory() as folder:
        for text, breach in breaches.items():
            out = os.path.join(folder, "x.o")
            subprocess.run([compiler, "-std=c++20", "-O1", "-c", "-x", "c++", "-", "-o", out],
                           input=source % text, text=True, check=True)
            if bool(strays(out, "avx2")) != breach:
                complaints.append(f"planted {text!r}: {strays(out, 'avx2')}")
    tree.finish(complaints, len(breaches), "planted objects")


def main():
    if sys.argv[1] == "--planted":
        planted(sys.argv[2])
    complaints, checked = [], 0
    for name in SETS:
        for path in glob.glob(os.path.join(sys.argv[1], "src", "**", f"*_{name}.dir", "**", "*.o"),
                              recursive=True):
            complaints += strays(path, name)
            checked += 1
    tree.finish(complaints, checked, "objects")


main()
