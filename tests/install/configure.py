"""The tree configures where packages are missing and says what it leaves out, in one sentence; and
within another project it adds its two libraries and nothing else. Usage: configure.py WORK-FOLDER"""
import os
import re
import shutil
import subprocess
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
NINJA = "-GNinja"
WITHOUT = [f"-DCMAKE_DISABLE_FIND_PACKAGE_{name}=ON" for name in ("GTest", "CLI11", "TIFF")]
PROGRAM = "for want of CLI11, TIFF: apt-get install libcli11-dev libtiff-dev"
# What is on the path, options, exit status, what is said, and folders that are there or not.
ALONE = [
    ("all", [NINJA, *WITHOUT], 0, "Left out: the program kipx, " + PROGRAM, {"src"}, {"tools", "tests"}),
    ("all", [NINJA, *WITHOUT], 0, "the tests, for want of GTest: apt-get install libgtest-dev", {}, {}),
    ("all", [NINJA, *WITHOUT, "-DKIPX_TOOLS=ON"], 1, "cannot be built without CLI11, TIFF:", {}, {}),
    ("all", [NINJA, *WITHOUT, "-DBUILD_SHARED_LIBS=OFF"], 0, "the tests, for want of shared libraries", {}, {}),
    ("cmake c++", [NINJA], 1, "To build here: apt-get install ninja-build", {}, {"src"}),
    ("cmake c++", [], 1, "To build here: apt-get install make", {}, {"src"}),
    ("cmake c++ ninja", [], 1, "No make here, but Ninja: add -G Ninja", {}, {"src"}),
    ("cmake ninja", [NINJA], 1, "To build here: apt-get install g++", {}, {"src"}),
]
PARENT = "cmake_minimum_required(VERSION 3.25)\nproject(Parent VERSION 3.2.1 LANGUAGES C CXX)\n"
INSIDE = {
    "nothing": "",
    "subdirectory": f'add_subdirectory("{ROOT}" kipx)',
    "static": f'set(BUILD_SHARED_LIBS OFF)\nadd_subdirectory("{ROOT}" kipx)',
}
OWN_ENTRY = re.compile(r"KIPX_|Kipx_|CMAKE_INSTALL_|_GNUInstallDirs_|CMAKE_NUMBER_OF_MAKEFILES")


def configure(source, build, options, path="all"):
    """Exit status, and all that was said on one line."""
    env = dict(os.environ)
    if path != "all":
        env["PATH"] = build + "-path"
        os.makedirs(env["PATH"])
        for name in path.split():
            os.symlink(shutil.which(name), os.path.join(env["PATH"], name))
    result = subprocess.run([shutil.which("cmake"), "-S", source, "-B", build, *options], env=env, text=True,
                            capture_output=True)
    return result.returncode, " ".join((result.stdout + result.stderr).split())


def entries(build):
    with open(os.path.join(build, "CMakeCache.txt"), encoding="utf-8") as file:
        return set(re.findall(r"^([^#/\s].*)$", file.read(), re.M))


def main():
    work, complaints = sys.argv[1], []
    shutil.rmtree(work, ignore_errors=True)
    for i, (path, options, status, said, there, absent) in enumerate(ALONE):
        build = os.path.join(work, f"alone{i}")
        result, text = configure(ROOT, build, options, path)
        made = set(os.listdir(build)) if os.path.isdir(build) else set()
        if result != status or said not in text or not set(there) <= made or set(absent) & made:
            complaints.append(f"{path} {options}: status {result}, {sorted(made)}\n{text}")
    cache, made = {}, {}
    for name, text in INSIDE.items():
        source, build = os.path.join(work, name), os.path.join(work, name, "build")
        os.makedirs(source)
        with open(os.path.join(source, "CMakeLists.txt"), "w", encoding="utf-8") as file:
            file.write(PARENT + text)
        result, text = configure(source, build, [NINJA])
        if result:
            sys.exit(f"{name}: {text}")
        cache[name], made[name] = entries(build), set(os.listdir(build))
        if name == "nothing":
            continue
        foreign = [e for e in cache[name] ^ {e.replace("nothing", name) for e in cache["nothing"]}
                   if not OWN_ENTRY.match(e)]
        inside = set(os.listdir(os.path.join(build, "kipx")))
        if foreign or made[name] - made["nothing"] != {"kipx"} or \
                inside != {"src", "lib", "CMakeFiles", "cmake_install.cmake"}:
            complaints.append(f"{name}: {foreign}, {made[name] - made['nothing']}, {inside}")
    for complaint in complaints:
        print(complaint)
    print(f"{len(complaints)} complaints, {len(ALONE) + len(INSIDE)} configurations")
    sys.exit(1 if complaints else 0)


main()
