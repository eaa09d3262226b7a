"""What ships gives an attacker little: addresses that the loader wrote cannot be written again, all of
them are bound before the first line runs, no memory is both code and data, and the libraries draw in
nothing but the C and C++ runtimes. The program, which reads files from anywhere, also notices a
smashed stack and calls the checked forms of the C library.
Usage: hardening.py C-COMPILER LIBRARY... [--program PROGRAM]; a planted library without all that comes
first."""
import os
import re
import subprocess
import sys
import tempfile

import tree

RUNTIMES = re.compile(r"lib(c|m|gcc_s|stdc\+\+)\.so\.\d+$|ld-linux[\w-]*\.so\.\d$|libZu-2\.so$")


def readelf(path):
    return subprocess.run(["readelf", "--dynamic", "--segments", "--dyn-syms", "--wide", path], text=True,
                          capture_output=True, check=True, env={**os.environ, "LC_ALL": "C"}).stdout


def weaknesses(path, program=False):
    text = readelf(path)
    found = []
    if "GNU_RELRO" not in text:
        found.append("relocated data stays writable")
    if not re.search(r"BIND_NOW|Flags:.*\bNOW\b", text):
        found.append("names are bound late")
    if not re.search(r"GNU_STACK\s.*\sRW\s", text):
        found.append("the stack may be executed")
    if re.search(r"^\s+LOAD\s.*\sRWE\s", text, re.M):
        found.append("memory is both code and data")
    if "TEXTREL" in text:
        found.append("code is relocated")
    if program:
        if "__stack_chk_fail" not in text:
            found.append("no stack protector")
        if not re.search(r"__\w+_chk@", text):
            found.append("no checked forms of the C library")
        if "PIE" not in text:
            found.append("always at one address")
    else:
        found += [f"needs {name}" for name in re.findall(r"\(NEEDED\).*\[(.*)\]", text)
                  if not RUNTIMES.match(name)]
    return [f"{os.path.basename(path)}: {weakness}" for weakness in found]


def planted(compiler):
    """A library as weak as it can be; every weakness that a library may have is named."""
    with tempfile.TemporaryDirectory() as folder:
        other, weak = os.path.join(folder, "libother.so"), os.path.join(folder, "libweak.so")
        make = [compiler, "-shared", "-x", "c", "-", "-o"]
        subprocess.run([*make, other, "-fPIC", "-Wl,-soname,libother.so"],
                       input="int other(void) { return 1; }", text=True, check=True)
        linked = "-Wl,-z,lazy,-z,norelro,-z,execstack,--no-as-needed"
        subprocess.run([*make, weak, "-fPIC", linked, "-x", "none", other],
                       input="int other(void); int (*kept)(void) = other;", text=True, check=True)
        told = " ".join(weaknesses(weak)) + " ".join(weaknesses(weak, program=True))
        return [f"planted weakness unnoticed: {w}" for w in
                ("stays writable", "bound late", "executed", "needs libother.so", "no stack protector",
                 "no checked forms", "one address") if w not in told]


def main():
    compiler, *paths = sys.argv[1:]
    programs = paths[paths.index("--program") + 1:] if "--program" in paths else []
    libraries = [path for path in paths if path not in programs and path != "--program"]
    complaints = planted(compiler)
    for path in libraries + programs:
        complaints += weaknesses(path, path in programs)
    tree.finish(complaints, len(libraries + programs), "files that ship")


main()
