"""declare.py INCLUDE OUT [--cc CC] - what Python knows of the C interface, made from its headers.

Gives    OUT/_declarations.py, cffi's form of every record, constant and function of kipx/kipx.h, ready
         to be used with the shared library; and OUT/_documents.py, for every function its signature,
         the number of its comment, and its header; and for every header the comment at its head.
Promises no signature is typed here: the C preprocessor expands the headers, as for any program, and
         what it puts out is read in order. The system's own headers are left empty, since cffi knows
         their types.
Needs    a C compiler that can preprocess (CC, else cc), and cffi with pycparser.
"""
import argparse
import ast
import os
import pprint
import re
import subprocess
import tempfile

import cffi

# Without __GNUC__ the headers ask for no visibility; these macros belong to stdint.h.
SWITCHES = ["-U__GNUC__", *(f"-DUINT{bits}_C(x)=x" for bits in (8, 16, 32, 64))]
SYSTEM = ("stddef.h", "stdint.h")
MARKER = re.compile(r'^# \d+ "([^"]*)"[^\n]*$', re.M)
CONSTANT = re.compile(r"^#define ((?:KIPX|ZU)_\w+) (.+)$", re.M)
COMMENT = re.compile(r"/\*(.*?)\*/", re.S)
# A statement up to its semicolon, braces of records and enumerations nested as far as they go.
STATEMENT = re.compile(r"[^;{}]*(?:\{(?:[^{}]|\{[^{}]*\})*\}[^;{}]*)*;")
ASSERTION = re.compile(r"_Static_assert\s*\(.*?\)\s*;", re.S)
FUNCTION = re.compile(r"^(?!typedef\b)[\w\s*]*?([\w$]+)\s*\(")


def preprocess(compiler, include, text, *options):
    with tempfile.TemporaryDirectory() as empty:
        for name in SYSTEM:
            open(os.path.join(empty, name), "w").close()
        command = [*compiler.split(), "-E", "-nostdinc", "-isystem", empty, "-I", include, *SWITCHES,
                   *options, "-x", "c", "-"]
        run = subprocess.run(command, input=text, capture_output=True, text=True)
    if run.returncode:
        raise SystemExit(f"declare.py: {' '.join(command)} failed:\n{run.stderr}")
    return run.stdout


def whole(text):
    """The value of an expression made of integers, or None."""
    text = re.sub(r"(?<=[0-9a-fA-F])[uUlL]+\b", "", text)
    if not re.fullmatch(r"[\s0-9a-fA-FxX()|+*<-]+", text):
        return None
    try:
        return eval(compile(ast.parse(text.strip(), mode="eval"), "constant", "eval"), {})
    except (SyntaxError, NameError, TypeError):
        return None


def constants(compiler, include):
    """The macros that stand for a whole number, as lines that cffi reads."""
    headers = "#include <kipx/kipx.h>\n"
    names = [name for name, _ in CONSTANT.findall(preprocess(compiler, include, headers, "-dM"))]
    asked = headers + "".join(f"@ {name[:1]}@{name[1:]} {name}\n" for name in sorted(names))
    answers = re.findall(r"^@ (\w)@(\w+) (.*)$", preprocess(compiler, include, asked, "-P"), re.M)
    found = ((first + rest, whole(value)) for first, rest, value in answers)
    return "".join(f"#define {name} {value}\n" for name, value in found if value is not None)


def tidy(comment):
    lines = [re.sub(r"^ ?\*? ?", "", line).rstrip() for line in comment.strip().splitlines()]
    return "\n".join(lines).strip()


def header(path):
    parts = path.replace(os.sep, "/").split("/")
    return "/".join(parts[-2:])


def statements(text):
    """(statement, comment before it, header) in order. Statements that follow one another without a
    comment between them share one."""
    here = comment = None
    heads = {}
    for piece in re.split(r"(^# \d+ \"[^\n]*$|/\*.*?\*/)", text, flags=re.M | re.S):
        marker, remark = MARKER.match(piece), COMMENT.fullmatch(piece)
        if marker:
            if header(marker[1]) != here:
                here, comment = header(marker[1]), ""
        elif remark:
            if "----" not in piece:
                comment = tidy(remark[1])
            heads.setdefault(here, comment)
        else:
            for statement in STATEMENT.findall(ASSERTION.sub("", piece)):
                yield " ".join(statement.split()), comment, here, heads




def inside_braces(text):
    """Takes comments away that stand inside braces, and markers with them."""
    depth, result = 0, []
    for piece in re.split(r"(/\*.*?\*/|^# [^\n]*$|[{}])", text, flags=re.M | re.S):
        depth += (piece == "{") - (piece == "}")
        if not (depth and piece.startswith(("/*", "# "))):
            result.append(piece)
    return "".join(result)


def read(compiler, include):
    """The declarations as C text, and the documents: (signature, comment, header) of functions, and the
    heads of headers."""
    text = preprocess(compiler, include, "#include <kipx/kipx.h>\n", "-C")
    declared, functions, heads = [], {}, {}
    for statement, comment, here, heads in statements(inside_braces(text)):
        if statement == ";":
            continue
        declared.append(statement)
        name = FUNCTION.match(statement)
        if name:
            own = "" if comment == heads.get(here) else comment
            functions[name[1]] = (statement.rstrip(";"), own, here)
    return "\n".join(dict.fromkeys(declared)), functions, heads


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("include")
    parser.add_argument("out")
    parser.add_argument("--cc", default=os.environ.get("CC", "cc"))
    given = parser.parse_args()
    declared, functions, heads = read(given.cc, given.include)
    builder = cffi.FFI()
    builder.set_source("_declarations", None)
    builder.cdef(constants(given.cc, given.include) + declared)
    os.makedirs(given.out, exist_ok=True)
    builder.emit_python_code(os.path.join(given.out, "_declarations.py"))
    kept = {name: text for name, text in heads.items() if name and name.endswith((".h", ".inc"))}
    # A record that holds another is declared after it; cffi lays holders out first.
    records = re.findall(r"^(?:typedef )?struct (\w+) \{", declared, re.M)
    with open(os.path.join(given.out, "_declarations.py"), "a", encoding="utf-8") as file:
        file.write(f"for record in {records[::-1]}:\n    ffi.sizeof('struct ' + record)\n")
    comments = list(dict.fromkeys(text for _, text, _ in functions.values()))
    functions = {name: (signature, comments.index(text), here)
                 for name, (signature, text, here) in functions.items()}
    with open(os.path.join(given.out, "_documents.py"), "w", encoding="utf-8") as file:
        file.write('"""Made from the public headers by declare.py."""\n')
        file.write(f"COMMENTS = {pprint.pformat(comments, width=100)}\n")
        file.write(f"FUNCTIONS = {pprint.pformat(functions, width=100)}\n")
        file.write(f"HEADERS = {pprint.pformat(kept, width=100)}\n")


if __name__ == "__main__":
    main()
