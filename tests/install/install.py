"""Installs a build, moves the install tree, and builds and runs programs against it: with CMake's
find_package in C and in C++, and by hand with pkg-config, the README's example among them.
Everything lies in the build folder.
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
                          env={**os.environ, **env}).stdout.split()


def with_cmake(language, prefix, work, compilers, flags):
    build = os.path.join(work, language)
    run("cmake", "-S", os.path.join(HERE, language), "-B", build, "-DCMAKE_BUILD_TYPE=Release",
        f"-DCMAKE_PREFIX_PATH={prefix}", *compilers, f"-DCMAKE_C_FLAGS={flags}",
        f"-DCMAKE_CXX_FLAGS={flags}")
    run("cmake", "--build", build)
    run(os.path.join(build, "consumer"))


def readme_example():
    """The program in the README, and what the comments beside its printf lines say it prints."""
    with open(os.path.join(HERE, "..", "..", "README.md"), encoding="utf-8") as file:
        text = re.search(r"^```c\n(.*?)^```", file.read(), re.M | re.S).group(1)
    return text, re.findall(r"printf\(.*/\* ([\d ]+):", text)


def by_hand(prefix, work, c, flags):
    found = glob.glob(os.path.join(prefix, "**", "kipx.pc"), recursive=True)
    env = {"PKG_CONFIG_PATH": os.path.dirname(found[0])}
    run("pkg-config", "--exact-version=1.0.0", "kipx", **env)
    libdir = output("pkg-config", "--variable=libdir", "kipx", **env)[0]
    needed = output("pkg-config", "--cflags", "--libs", "kipx", **env) + [f"-Wl,-rpath,{libdir}"]
    program, example = os.path.join(work, "by-hand"), os.path.join(work, "example.c")
    text, promised = readme_example()
    with open(example, "w", encoding="utf-8") as file:
        file.write(text)
    for source in (os.path.join(HERE, "c", "main.c"), example):
        run(c, "-std=c11", "-Wall", "-Werror", *flags.split(), source, *needed, "-o", program)
        run(program)
    printed = subprocess.run(program, text=True, capture_output=True, check=True).stdout.splitlines()
    if printed != promised:
        sys.exit(f"the README promises {promised}, its example prints {printed}")


def main():
    build, c, cxx, sanitize = sys.argv[1:]
    sanitizers = sanitize.removeprefix("--sanitize=")
    work = os.path.join(build, "install-test")
    shutil.rmtree(work, ignore_errors=True)
    run("cmake", "--install", build, "--prefix", os.path.join(work, "first"))
    prefix = os.path.join(work, "moved")
    os.rename(os.path.join(work, "first"), prefix)
    flags = f"-fsanitize={sanitizers}" if sanitizers else ""
    compilers = [f"-DCMAKE_C_COMPILER={c}", f"-DCMAKE_CXX_COMPILER={cxx}"]
    for language in ("c", "cpp"):
        with_cmake(language, prefix, work, compilers, flags)
    if shutil.which("pkg-config"):
        by_hand(prefix, work, c, flags)
    program = os.path.join(prefix, "bin", "kipx")
    if os.path.exists(program):
        run(program, "--help")


main()
