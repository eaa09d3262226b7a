"""What a program that was built yesterday relies on: the layout of every record, the signature of every
exported name, every constant of the headers. They stand in abi.txt and are compared with what a C
compiler makes of the headers, as its debugging information tells it; compilers agree on that text.
That the libraries export just these names is exports.py's to say.
Usage: abi.py C-COMPILER [--write | --planted]; --write puts the text there, in the change that means it;
--planted sees that breaches are noticed."""
import difflib
import os
import re
import shutil
import subprocess
import sys
import tempfile

import exports
import tree

TEXT = os.path.join("tests", "house", "abi.txt")
OURS = re.compile(r"(?i)_*(c_)?(kipx|zu)")
DIE = re.compile(r" <(\d+)><(\w+)>: Abbrev Number: \d+ \((DW_TAG_\w+)\)")
ATTRIBUTE = re.compile(r" +<\w+> +(DW_AT_\w+) *: (.*)")
# Compilers name the same base type differently: encoding and size tell. Plain char has a sign on some
# processors and none on others.
BASE = {(2, 1): "bool", (4, 4): "float", (4, 8): "double", (4, 16): "long double", (5, 2): "int16_t",
        (5, 4): "int", (5, 8): "long", (6, 1): "char", (7, 2): "uint16_t", (7, 4): "unsigned",
        (7, 8): "unsigned long", (8, 1): "char"}
KEYWORD = {"structure_type": "struct", "union_type": "union", "enumeration_type": "enum"}


class Die:
    """One entry of the debugging information, its attributes as readelf prints them."""

    def __init__(self, tag):
        self.tag, self.attributes, self.children = tag[len("DW_TAG_"):], {}, []

    def name(self):
        return self.attributes.get("DW_AT_name", " ").split(" ")[-1]

    def number(self, attribute, default=0):
        text = re.sub(r"\(.*?\)", "", self.attributes.get(attribute, "")).split()
        return int(text[0], 0) if text else default


def entries(path):
    """Every Die of the object, by its offset."""
    text = subprocess.run(["readelf", "--debug-dump=info", "--wide", path], text=True, capture_output=True,
                          check=True, env={**os.environ, "LC_ALL": "C"}).stdout
    found, above = {}, []
    for line in text.splitlines():
        if head := DIE.match(line):
            die = found[int(head[2], 16)] = Die(head[3])
            del above[int(head[1]):]
            if above:
                above[-1].children.append(die)
            above.append(die)
        elif found and (attribute := ATTRIBUTE.match(line)):
            above[-1].attributes[attribute[1]] = attribute[2].strip()
    return found


def written(dies, die, inner=""):
    """The type in C around a declarator."""
    if die is None:
        return "void" + (" " + inner if inner else "")
    below = of(dies, die)
    if die.tag == "pointer_type":
        heavy = below is not None and below.tag in ("subroutine_type", "array_type")
        return written(dies, below, f"(*{inner})" if heavy else "*" + inner)
    if die.tag == "array_type":
        sizes = "".join(f"[{c.number('DW_AT_count') or c.number('DW_AT_upper_bound', -1) + 1 or ''}]"
                        for c in die.children)
        return written(dies, below, inner + sizes)
    if die.tag in ("const_type", "volatile_type"):
        word = die.tag[:-5]
        if below is not None and below.tag == "pointer_type":
            return written(dies, below, f"{word} {inner}".strip())
        return f"{word} " + written(dies, below, inner)
    if die.tag == "subroutine_type":
        given = [written(dies, of(dies, c)) if c.tag == "formal_parameter" else "..." for c in die.children]
        return written(dies, below, f"{inner}({', '.join(given) or 'void'})")
    name = die.name()
    if die.tag == "base_type":
        name = BASE[die.number("DW_AT_encoding"), die.number("DW_AT_byte_size")]
    elif die.tag in ("structure_type", "union_type", "enumeration_type"):
        name = f"{KEYWORD[die.tag]} {name}"
    return name + (" " + inner if inner else "")


def of(dies, die):
    """The type of an entry that has one; None is void."""
    reference = die.attributes.get("DW_AT_type")
    return dies[int(re.search(r"<0x(\w+)>", reference)[1], 16)] if reference else None


def layout(dies, die, indent):
    lines = []
    for member in die.children:
        if member.tag != "member":
            continue
        place = member.number("DW_AT_data_member_location")
        lines.append(f"{indent}{place:5} {written(dies, of(dies, member), member.name())}")
        kind = of(dies, member)
        if kind.tag in ("structure_type", "union_type") and not kind.name():
            lines += layout(dies, kind, indent + "      ")
    return lines


def constants(compiler, include, header):
    """Macros of the headers that are numbers, and no others: the rest is text, not interface."""
    text = subprocess.run([compiler, "-std=c11", "-E", "-dD", "-I" + include, "-x", "c", header], text=True,
                          capture_output=True, check=True).stdout
    number = r"(?:U?INT\d+_C\()?-?\d\w*\)?"
    return {f"{name} = {value}" for name, value in
            re.findall(rf"^#define (\w+) ({number})$", text, re.M)
            if OURS.match(name) and "_VERSION_" not in name}


def described(compiler, root):
    """abi.txt as the headers under root would have it."""
    include = os.path.join(root, "include")
    umbrella = os.path.join(include, "kipx", "kipx.h")
    names = set()
    for folder in ("kipx", "zu"):
        names |= exports.declared(exports.preprocessed(compiler, umbrella, folder, root))
    source = "#include <kipx/kipx.h>\n" + "".join(
        f"__typeof__({name}) *const abi_{name} = &{name};\n" for name in sorted(names))
    with tempfile.TemporaryDirectory() as folder:
        out = os.path.join(folder, "abi.o")
        subprocess.run([compiler, "-std=gnu11", "-g", "-O0", "-w", "-fno-eliminate-unused-debug-types", "-I" + include,
                        "-c", "-x", "c", "-", "-o", out], input=source, text=True, check=True)
        dies = entries(out)
    records, kinds, numbers, signatures = {}, {}, set(), {}
    for die in dies.values():
        kind = of(dies, die) if die.tag in ("typedef", "variable") else None
        if die.tag == "variable" and die.name().startswith("abi_"):
            while kind.tag == "const_type":
                kind = of(dies, kind)
            signatures.setdefault(written(dies, of(dies, kind)), []).append(die.name()[len("abi_"):])
        elif die.tag == "enumerator" and OURS.match(die.name()):
            numbers.add(f"{die.name()} = {die.number('DW_AT_const_value')}")
        elif die.tag == "typedef" and OURS.match(die.name()):
            if kind and kind.tag in ("structure_type", "union_type") and kind.children:
                head = f"{KEYWORD[kind.tag]} {die.name()}, {kind.number('DW_AT_byte_size')} bytes"
                records[die.name()] = [head, *layout(dies, kind, "")]
            else:
                kinds[die.name()] = f"type {written(dies, kind, die.name())}"
    lines = ["# Written by ./dev check-abi --write; what it says binds until the next major version."]
    for name in sorted(records):
        lines += ["", *records[name]]
    lines += ["", *(kinds[name] for name in sorted(kinds)), "", "constants"]
    lines += ["    " + line for line in sorted(numbers | constants(compiler, include, umbrella))]
    for signature in sorted(signatures):
        lines += ["", signature, *("    " + name for name in sorted(signatures[signature]))]
    missing = names - {name for group in signatures.values() for name in group}
    if missing:
        raise RuntimeError(f"no signature found: {sorted(missing)[:5]}")
    return "\n".join(lines) + "\n"


# A header's text, what stands there instead, and whether a program would notice.
PLANTED = [
    ("types.h", "uint16_t reserved2;", "uint16_t reserved2, naxes2;", True),
    ("types.h", "double low, high;", "double high, low;", True),
    ("types.h", "KIPX_F64 = 14", "KIPX_F64 = 15", True),
    ("types.h", "UINT64_C(0x2) ", "UINT64_C(0x8) ", True),
    ("env.h", "KIPX_API void KipxXEclear(KipxXE *xe);", "", True),
    ("env.h", "kipx_set_simd(int32_t value)", "kipx_set_simd(int64_t value)", True),
    ("planes.h", "const kipx_pack *slice);", "kipx_pack *slice);", True),
    ("env.h", "kipx_set_simd(int32_t value)", "kipx_set_simd(int32_t set)", False),
]


def planted(compiler):
    before, complaints = tree.read(TEXT), []
    for header, old, new, breach in PLANTED:
        with tempfile.TemporaryDirectory() as root:
            shutil.copytree(os.path.join(tree.ROOT, "include"), os.path.join(root, "include"))
            path = os.path.join(root, "include", "kipx", header)
            text = tree.read(path)
            with open(path, "w", encoding="utf-8") as file:
                file.write(text.replace(old, new))
            if old not in text or (described(compiler, root) != before) != breach:
                complaints.append(f"{header}: {old!r} to {new!r}: not as expected")
    tree.finish(complaints, len(PLANTED), "planted changes")


def main():
    compiler, option = sys.argv[1], sys.argv[2] if len(sys.argv) > 2 else ""
    if option == "--planted":
        planted(compiler)
    now = described(compiler, tree.ROOT)
    if option == "--write":
        with open(os.path.join(tree.ROOT, TEXT), "w", encoding="utf-8") as file:
            file.write(now)
    changes = [line.rstrip() for line in difflib.unified_diff(
        tree.read(TEXT).splitlines(), now.splitlines(), TEXT, "the headers", n=2, lineterm="")]
    names = len(re.findall(r"^    \w[\w$]+$", now, re.M))
    tree.finish(changes, names, "exported names, with records and constants, compared with " + TEXT)


if __name__ == "__main__":
    main()
