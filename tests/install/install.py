"""Installs a build, moves the install tree, and builds and runs programs against it: those of the
README, which print what it says, with CMake's find_package and by hand with pkg-config; and the
installed examples. The build's Debian packages hold the same files. Everything lies in the build folder.
Usage: install.py BUILD-FOLDER C-COMPILER C++-COMPILER --sanitize=[LIST]"""
import glob
import os
import re
import shutil
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))


def run(*command, **env):
    print("$", *command, flush=True)
    subprocess.run(command, check=True, env={**os.environ, **env})


def output(*command, **env):
    return subprocess.run(command, check=True, text=True, capture_output=True,
                          env={**os.environ, **env}).stdout


def files(top):
    return {os.path.relpath(os.path.join(folder, name), top)
            for folder, _, names in os.walk(top) for name in names}


class Programs:
    """The programs in the README and what it says they print, as .c and .cpp files in a folder."""

    def __init__(self, readme, folder):
        with open(readme, encoding="utf-8") as file:
            text = file.read()
        found = re.findall(r"^```c\n(.*?)^```.*?^```text\n(.*?)^```", text, re.M | re.S)
        assert len(found) >= 2, "the README has lost its programs"
        for link in re.findall(r"\]\(([^)#:]+)", text):
            assert os.path.exists(os.path.join(os.path.dirname(readme), link)), f"{link} is not installed"
        self.promised = {f"readme{i}": text for i, (_, text) in enumerate(found)}
        self.sources = {suffix: [os.path.join(folder, name + suffix) for name in self.promised]
                        for suffix in (".c", ".cpp")}
        for paths in self.sources.values():
            for path, (source, _) in zip(paths, found):
                with open(path, "w", encoding="utf-8") as file:
                    file.write(source)

    def check(self, folder):
        for name, promised in self.promised.items():
            printed = output(os.path.join(folder, name))
            assert printed == promised, f"{name}: the README promises {promised!r}, not {printed!r}"


def with_cmake(source, build, *options):
    run("cmake", "-S", source, "-B", build, "-DCMAKE_BUILD_TYPE=Release", *options)
    run("cmake", "--build", build)


def by_hand(prefix, work, programs, compilers, flags):
    found = glob.glob(os.path.join(prefix, "**", "kipx.pc"), recursive=True)
    env = {"PKG_CONFIG_PATH": os.path.dirname(found[0])}
    libdir = output("pkg-config", "--variable=libdir", "kipx", **env).strip()
    needed = output("pkg-config", "--cflags", "--libs", "kipx", **env).split()
    for suffix, standard in ((".c", "c11"), (".cpp", "c++11")):
        for source, name in zip(programs.sources[suffix], programs.promised):
            run(compilers[suffix], f"-std={standard}", "-pedantic-errors", "-Wall", "-Wextra", "-Werror",
                *flags.split(), source, *needed, f"-Wl,-rpath,{libdir}", "-o", os.path.join(work, name))
        programs.check(work)


def packages(build, work, installed):
    run("cpack", "-B", work, "--config", os.path.join(build, "CPackConfig.cmake"))
    held = []
    for deb in sorted(glob.glob(os.path.join(work, "*.deb"))):  # kipx-dev, then kipx
        run("dpkg-deb", "-x", deb, deb + ".files")
        held.append(files(os.path.join(deb + ".files", "usr")))
    development, runtime = held
    assert runtime | development == installed, (runtime | development) ^ installed
    assert not runtime & development, runtime & development
    run_alone = {name for name in installed if name.endswith(".so") or name.startswith("bin/")}
    assert run_alone <= runtime and not any(name.startswith("include") for name in runtime), runtime


def main():
    build, c, cxx, sanitize = sys.argv[1:]
    sanitizers = sanitize.removeprefix("--sanitize=")
    work = os.path.join(build, "install-test")
    shutil.rmtree(work, ignore_errors=True)
    run("cmake", "--install", build, "--prefix", os.path.join(work, "first"))
    prefix = os.path.join(work, "moved")
    os.rename(os.path.join(work, "first"), prefix)
    documents = os.path.join(prefix, "share", "doc", "kipx")
    programs = Programs(os.path.join(documents, "README.md"), work)
    flags = f"-fsanitize={sanitizers}" if sanitizers else ""
    found = [f"-DCMAKE_PREFIX_PATH={prefix}", f"-DCMAKE_C_COMPILER={c}", f"-DCMAKE_CXX_COMPILER={cxx}",
             f"-DCMAKE_C_FLAGS={flags}", f"-DCMAKE_CXX_FLAGS={flags}"]
    for language, suffix in (("C", ".c"), ("CXX", ".cpp")):
        folder = os.path.join(work, language)
        with_cmake(os.path.join(HERE, "consumer"), folder, f"-DLANGUAGE={language}",
                   "-DPROGRAMS=" + ";".join(programs.sources[suffix]), *found)
        programs.check(folder)
    with_cmake(os.path.join(documents, "examples"), os.path.join(work, "examples"), *found)
    run("ctest", "--test-dir", os.path.join(work, "examples"), "--no-tests=error")
    if shutil.which("pkg-config"):
        by_hand(prefix, work, programs, {".c": c, ".cpp": cxx}, flags)
    program = os.path.join(prefix, "bin", "kipx")
    if os.path.exists(program):
        run(program, "--help")
    if not sanitizers and shutil.which("dpkg-shlibdeps") and shutil.which("file"):
        packages(build, os.path.join(work, "debian"), files(prefix))


main()
