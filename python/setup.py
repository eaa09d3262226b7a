"""Builds the wheel: the package, what it knows of the headers, and the two shared libraries beside it.

The libraries are those of the folder that KIPX_LIBRARY_FOLDER names, else they are built by CMake. All
that is made on the way lies in build/python-wheel of the checkout.
"""
import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

from setuptools import Distribution, setup
from setuptools.command.build_py import build_py
from wheel.bdist_wheel import bdist_wheel

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent
WORK = ROOT / "build" / "python-wheel"
LIBRARIES = ("libKipx-1_0_0.so", "libZu-2.so")


def version():
    text = (ROOT / "include/kipx/version.h").read_text(encoding="utf-8")
    return ".".join(re.findall(r"define KIPX_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)", text))


def libraries():
    """The folder that holds them."""
    given = os.environ.get("KIPX_LIBRARY_FOLDER")
    if given:
        return Path(given)
    subprocess.run(["cmake", "-S", ROOT, "-B", WORK / "cmake", "-DCMAKE_BUILD_TYPE=Release", "-DKIPX_TOOLS=OFF",
                    "-DKIPX_TESTS=OFF"], check=True)
    subprocess.run(["cmake", "--build", WORK / "cmake", "--parallel"], check=True)
    return WORK / "cmake" / "lib"


class Build(build_py):
    def run(self):
        super().run()
        package = Path(self.build_lib) / "kipx"
        subprocess.run([sys.executable, "-B", HERE / "declare.py", ROOT / "include", package], check=True)
        folder = libraries()
        for name in LIBRARIES:
            shutil.copy2(folder / name, package / name)
        shutil.copy2(ROOT / "LICENSE", package / "LICENSE")


class Wheel(bdist_wheel):
    """For every Python 3, and for this machine: the libraries are reached without an extension module."""

    def get_tag(self):
        return "py3", "none", super().get_tag()[2]


class WithLibraries(Distribution):
    def has_ext_modules(self):
        return True


WORK.mkdir(parents=True, exist_ok=True)
setup(version=version(), packages=["kipx"], package_data={"kipx": ["py.typed"]}, distclass=WithLibraries,
      cmdclass={"build_py": Build, "bdist_wheel": Wheel},
      options={"build": {"build_base": str(WORK / "build")}, "egg_info": {"egg_base": str(WORK)}})
