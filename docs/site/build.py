"""build.py PROGRAM OUT - the documentation of everything, into OUT/html.

Gives    one site: the first page, the gallery, whose scripts are run, the pages of docs/, and three references,
         none of them typed: of Python from the docstrings, of C from the headers, of the program from its help.
Fails    at any warning: a link that leads nowhere, a public name without a word about it, a script that fails.
Makes    OUT/source, a tree like the checkout's, so that links between its pages hold here and there alike;
         OUT/declarations and OUT/xml on the way from headers to pages. Nothing else is written.
Needs    KIPX_LIBRARY, the built library's file; what ./dev installs.
"""
import inspect
import os
import re
import shutil
import subprocess
import sys
import zlib
from pathlib import Path

import headers

ROOT, SITE = headers.ROOT, Path(__file__).resolve().parent
PAGES = ("README.md", "CONTRIBUTING.md", "CHANGELOG.md", "SECURITY.md", "LICENSE", "CMakePresets.json", "dev",
         "python/README.md")
FOLDERS = ("docs", "include", "examples")
DOXYGEN = """\
INPUT = {declarations}
OUTPUT_DIRECTORY = {out}
GENERATE_XML = YES
GENERATE_HTML = NO
GENERATE_LATEX = NO
XML_PROGRAMLISTING = NO
OPTIMIZE_OUTPUT_FOR_C = YES
MARKDOWN_SUPPORT = NO
SORT_MEMBER_DOCS = NO
QUIET = YES
WARN_IF_UNDOCUMENTED = YES
WARN_LOGFILE = {out}/doxygen.log
"""
# A record's comment tells its fields; constants tell themselves where their names do.
FIELD = re.compile(r"Member .* \((?:variable|enumvalue)\) of .* is not documented")


def fail(*complaints):
    sys.exit("\n".join(f"docs: {complaint}" for complaint in complaints))


def gather(source):
    """The pages of the tree, where they lie in it."""
    shutil.rmtree(source, ignore_errors=True)
    for name in PAGES:
        (source / name).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(ROOT / name, source / name)
    for name in FOLDERS:
        shutil.copytree(ROOT / name, source / name, ignore=shutil.ignore_patterns("site"))
    for page in source.rglob("*.md"):  # folders have no page here
        text = page.read_text(encoding="utf-8")
        page.write_text(re.sub(r"\[([^]]+)\]\([^():]*/\)", r"\1", text), encoding="utf-8")
    for name in ("index.rst", "conf.py", "site.css", "first.py", "first.c"):
        shutil.copy2(SITE / name, source / name)
    shutil.copytree(SITE / "gallery", source / "scripts")


def beside(out):
    """The two programs of the first page say the same, and what the page says of them."""
    library, program = Path(os.environ["KIPX_LIBRARY"]).resolve(), out / "first"
    subprocess.run(["cc", "-std=c11", "-Wall", "-Wextra", "-Werror", "-I", ROOT / "include", SITE / "first.c", library,
                    f"-Wl,-rpath,{library.parent}", "-o", program], check=True)
    told = [subprocess.run(command, capture_output=True, text=True, check=True).stdout.strip()
            for command in ([program], [sys.executable, "-B", SITE / "first.py"])]
    if told[0] != told[1] or told[0] not in (SITE / "index.rst").read_text(encoding="utf-8"):
        fail(f"first.c and first.py print {told}, which index.rst does not say of both")


def c_reference(source, out):
    declarations = out / "declarations"
    shutil.rmtree(declarations, ignore_errors=True)
    shutil.rmtree(out / "xml", ignore_errors=True)
    for folder in (declarations, source / "c"):
        folder.mkdir(parents=True)
    functions, names = headers.write(declarations, source / "c")
    (out / "Doxyfile").write_text(DOXYGEN.format(declarations=declarations, out=out), encoding="utf-8")
    subprocess.run(["doxygen", out / "Doxyfile"], check=True)
    log = (out / "doxygen.log").read_text(encoding="utf-8").splitlines()
    complaints = [line for line in log if line.strip() and not FIELD.search(line)]
    if complaints:
        fail(*complaints)
    toc = "\n".join(f"   {name}" for name in names)
    (source / "c" / "index.rst").write_text(
        f"C reference\n===========\n\n{len(functions)} functions, as the headers declare and describe them. A page for "
        "each header: its head, which tells\nwhat its functions have in common, the functions and records, and the header "
        f"itself.\n\n.. toctree::\n   :maxdepth: 1\n\n{toc}\n", encoding="utf-8")
    return functions


def told(where, name, value):
    """Complains about a public name without a docstring, and the methods of classes."""
    found = [] if (inspect.getdoc(value) or "").strip() else [f"{where}.{name} has no docstring"]
    if inspect.isclass(value):
        for key, member in vars(value).items():
            if not key.startswith("_") and (callable(member) or isinstance(member, property)):
                found += told(f"{where}.{name}", key, member)
    return found


def python_reference(source):
    sys.path.insert(0, str(ROOT / "python"))
    import importlib

    import kipx
    modules = sorted(path.stem for path in (ROOT / "python" / "kipx").glob("[a-z]*.py") if path.stem != "raw")
    complaints, pages = [], []
    folder = source / "python"
    for stem in modules:
        module = importlib.import_module(f"kipx.{stem}")
        summary = inspect.getdoc(module).splitlines()[0].rstrip(".:")
        inside = all(getattr(kipx, name, None) is getattr(module, name) for name in module.__all__)
        title = f"kipx.{stem}: {summary}"
        lines = [title, "=" * len(title), "", "::", "",
                 *("    " + line for line in inspect.getdoc(module).splitlines()), "",
                 f".. currentmodule:: {'kipx' if inside else f'kipx.{stem}'}", ""]
        for name in module.__all__:
            value = getattr(module, name)
            complaints += told(f"kipx.{stem}", name, value)
            lines += [f".. auto{'class' if inspect.isclass(value) else 'function'}:: {name}"]
            lines += ["   :members:", ""] if inspect.isclass(value) else [""]
        (folder / f"{stem}.rst").write_text("\n".join(lines), encoding="utf-8")
        pages.append(f"   {stem}")
    if complaints:
        fail(*complaints)
    head = inspect.getdoc(kipx).partition("\n")[2]
    (folder / "index.rst").write_text(
        "Python reference\n================\n" + head + "\n\n.. autofunction:: kipx.set_simd\n\n.. toctree::\n"
        "   :maxdepth: 1\n\n" + "\n".join(pages) + "\n\nkipx.raw\n--------\n\n"
        ".. automodule:: kipx.raw\n   :no-members:\n\nThe functions are those of the :doc:`C reference </c/index>`.\n",
        encoding="utf-8")


def ask(program, *arguments):
    return subprocess.run([program, *arguments, "--help"], capture_output=True, text=True, check=True).stdout


def help_reference(source, program):
    """What the program says of itself, command by command."""
    folder = source / "program"
    folder.mkdir(parents=True)
    first = ask(program)
    commands = re.findall(r"^  (\w+) {2,}", first.partition("Subcommands:")[2], re.M)
    if len(commands) < 2:
        fail(f"{program} --help tells of no commands")

    def page(name, title, text):
        lines = [title, "=" * len(title), "", ".. code-block:: text", "", *("    " + x for x in text.splitlines()), ""]
        (folder / f"{name}.rst").write_text("\n".join(lines), encoding="utf-8")
    page("index", "Help of the program", first)
    with open(folder / "index.rst", "a", encoding="utf-8") as file:
        file.write("\n:doc:`/docs/cli` tells how the commands work together.\n\n.. toctree::\n   :maxdepth: 1\n\n"
                   + "".join(f"   {name}\n" for name in commands))
    for name in commands:
        page(name, f"kipx {name}", ask(program, name))


def main():
    program, out = (Path(given).resolve() for given in sys.argv[1:])
    source = out / "source"
    os.environ.update(KIPX_DOCS_XML=str(out / "xml"), KIPX_PROGRAM=str(program), PYTHONPATH=str(ROOT / "python"),
                      PYTHONDONTWRITEBYTECODE="1", MPLCONFIGDIR=str(out / "matplotlib"), MPLBACKEND="agg",
                      KIPX_ROOT=str(ROOT))
    gather(source)
    beside(out)
    functions = c_reference(source, out)
    python_reference(source)
    help_reference(source, program)
    made = subprocess.run([sys.executable, "-B", "-m", "sphinx", "-W", "--keep-going", "-q", "-b", "html", "-d",
                           out / "doctrees", source, out / "html"], cwd=source)
    if made.returncode:
        fail("the lines above say what is wrong; the pages are not done")
    shown = {line.split()[0] for line in zlib.decompress(
        (out / "html" / "objects.inv").read_bytes().split(b"\n", 4)[4]).decode().splitlines() if " c:" in line}
    if set(functions) - shown:
        fail(*(f"{name} is on no page" for name in sorted(set(functions) - shown)))


if __name__ == "__main__":
    main()
