"""The public headers as Doxygen and the pages of the C reference read them.

Gives    for every header kipx/x.h a file x.h of its declarations, macros expanded, comments as Doxygen's, and
         one x_levels.h of what lies under the public functions: the flat levels and the kernels; and a page for
         each, x.rst.
Promises nothing is listed by hand: the preprocessor puts the declarations out, as for any program. A function
         gets a comment for Doxygen when the header has one for it: right before it, or before the lines that it
         follows without a gap; the heading of its section, where that says more than a title; a sentence of the
         header that names it; or, where a list makes it, the head of the header that has the list. Any other one
         reaches Doxygen bare, which complains.
"""
import os
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "python"))
import declare  # noqa: E402

LEVELS = re.compile(r"_*(kipxa_|C_kipx_|kipx_.*_imp$)|KipxTGA")
BRACED = re.compile(r"/\*.*?\*/|^# [^\n]*$|[{}]", re.M | re.S)
# A record and its name are one to C's users, and on the pages.
NAMED = re.compile(r"typedef (struct|union|enum) (\w+) (\{.*\}) \2;", re.S)
FORWARD = re.compile(r"typedef (struct|union|enum) (\w+) \2;")


def set_aside(text):
    """Comments inside braces as marks, and what they stand for: a record is one piece then."""
    depth, kept, result, at = 0, [], [], 0
    for found in BRACED.finditer(text):
        piece = found[0]
        result.append(text[at:found.start()])
        at = found.end()
        depth += (piece == "{") - (piece == "}")
        if depth and piece.startswith("/*"):
            line = text[text.rfind("\n", 0, found.start()) + 1:found.start()]
            kept.append(("/**< " if line.strip() else "/** ") + escaped(declare.tidy(piece[2:-2])) + " */")
            piece = f" @{len(kept) - 1}@ "
        elif depth and piece.startswith("# "):
            piece = ""
        result.append(piece)
    return "".join(result) + text[at:], kept


def escaped(text):
    """A comment's words, which are no commands; columns that were lined up stay so."""
    paragraphs = []
    for part in re.split(r"\n\s*\n", text):
        if re.search(r"^\s|\S {2,}\S", part, re.M):
            paragraphs.append("\\verbatim\n" + part + "\n\\endverbatim")
        else:
            paragraphs.append(re.sub(r'([\\@&$#<>%"])', r"\\\1", part))
    return "\n\n".join(paragraphs)


class Header:
    """What one header declares."""

    def __init__(self, name):
        self.name, self.head, self.section, self.public, self.levels = name, "", "", [], []
        self.stem = name.split("/")[1].partition(".")[0]
        self.text = (ROOT / "include" / name).read_text(encoding="utf-8")
        self.words = set(re.findall(r"[\w$]+", " ".join(declare.COMMENT.findall(self.text))))
        self.literal = set(re.findall(r"[\w$]+", self.text))


def described(header, name, comment, first, gap):
    """The comment of a function for Doxygen, or none."""
    if comment and not gap:
        return escaped(comment) if first == name else f"See {first}."
    if header.section:
        return escaped(header.section)
    if name in header.words or name not in header.literal:
        return f"See the head of {header.name}."
    return ""


def read():
    """All headers, in the order in which the umbrella takes them."""
    text = declare.preprocess("cc", str(ROOT / "include"), "#include <kipx/kipx.h>\n", "-C")
    text, kept = set_aside(text)
    headers, here, comment, first, gap = {}, None, "", None, True
    for piece in re.split(r"(^# \d+ \"[^\n]*$|/\*.*?\*/)", text, flags=re.M | re.S):
        marker, remark = declare.MARKER.match(piece), declare.COMMENT.fullmatch(piece)
        if marker:
            name = declare.header(marker[1])
            known = re.fullmatch(r"(?:kipx|zu)/\w+\.(?:h|inc)", name)
            if known and (here is None or here.name != name):
                here, comment, first, gap = headers.setdefault(name, Header(name)), "", None, True
        elif remark and here:
            if not here.head:
                here.head = declare.tidy(remark[1])
            elif "----" in piece:
                section = declare.tidy(re.sub(r" ?-{2,} ?", "", remark[1]))
                here.section = section if ":" in section or "\n" in section else ""
            else:
                comment, first, gap = declare.tidy(remark[1]), None, False
        elif here:
            for statement in declare.STATEMENT.findall(declare.ASSERTION.sub("", piece)):
                gap = gap or first is not None and statement[:len(statement) - len(statement.lstrip())].count("\n") > 1
                flat = " ".join(statement.split())
                if flat != ";":
                    first = enter(here, flat, comment, first, gap, kept)
    return headers


def enter(header, statement, comment, first, gap, kept):
    """Notes a declaration, and tells which function has the comment that the next ones may share: none if empty."""
    function = declare.FUNCTION.match(statement)
    if FORWARD.fullmatch(statement):
        return first
    statement = NAMED.sub(r"\1 \2 \3;", statement)
    name = function[1] if function else statement
    first = (name if function else "") if not first else first
    if function:
        told = described(header, name, comment, first, gap)
    else:
        told = escaped(comment) if comment and not gap else f"Of {header.name}."
    body = re.sub(r" ?@(\d+)@ ?", lambda found: "\n" + kept[int(found[1])] + "\n", statement)
    entry = (f"/** {told} */\n" if told else "") + body + "\n"
    (header.levels if function and LEVELS.match(name) else header.public).append((name, entry))
    return first


def page(header):
    """The page of a header: its head, its declarations, itself."""
    what = re.match(r"\S+ - (.*?)(?:\.$|\. |[:;,]|\n\n)", header.head.replace("\n", " ") + "\n\n")
    title = f"{header.name}: {what[1].strip()}" if what else header.name
    lines = [title, "=" * len(title), "", "::", "", *("    " + line for line in header.head.splitlines()), ""]
    for entries, name, heading in ((header.public, header.stem, "Functions and records"),
                                   (header.levels, header.stem + "_levels", "Flat levels and kernels")):
        if entries:
            lines += [heading, "-" * len(heading), ""]
            if entries is header.levels:
                lines += ["What the functions above are made of, with operands as plain numbers and addresses.", ""]
            lines += [f".. doxygenfile:: {name}.h", ""]
    lines += ["The header as it stands", "-----------------------", "", ".. literalinclude:: " +
              f"/include/{header.name}", "   :language: c", ""]
    return "\n".join(lines)


def write(declarations, pages):
    """Puts all files into two folders; gives the names of functions and of pages."""
    functions, names = [], []
    for header in read().values():
        if not header.public and not header.levels:
            continue
        names.append(header.stem)
        for entries, name in ((header.public, header.stem), (header.levels, header.stem + "_levels")):
            functions += [entry for entry, _ in entries if re.fullmatch(r"[\w$]+", entry)]
            if entries:
                text = f"/** \\file\n {header.name} */\n" + "".join(entry for _, entry in entries)
                (declarations / f"{name}.h").write_text(text, encoding="utf-8")
        (pages / f"{header.stem}.rst").write_text(page(header), encoding="utf-8")
    return functions, names


if __name__ == "__main__":
    os.makedirs(sys.argv[1], exist_ok=True)
    print(write(Path(sys.argv[1]), Path(sys.argv[1])))
