"""The shared library behind the package: found, checked, and an environment of it for every thread.

Gives    `ffi` and `lib` of cffi; `environment()`, the calling thread's KipxXE, which is opened when it is
         first asked for and closed when the thread ends; `set_simd`.
Looks    where KIPX_LIBRARY says (a file, or a folder that holds it), beside this file, in build/release
         of the checkout that this file lies in, and then where the system's loader looks.
"""
from __future__ import annotations

import os
import threading
from pathlib import Path
from typing import Any

import kipx

NAME = "libKipx-1_0_0.so"
_HERE = Path(__file__).resolve().parent
_BUILD = _HERE.parent.parent / "build" / "release"

# In a checkout what is made of the headers lies in the build.
if not (_HERE / "_declarations.py").exists():
    kipx.__path__.append(str(_BUILD / "python"))
try:
    from kipx import _declarations  # type: ignore[attr-defined]
except ImportError as error:
    raise ImportError(
        f"kipx: looked for _declarations.py, which the build makes of the C headers, in {_HERE} and in "
        f"{_BUILD / 'python'}: {error}") from None

ffi: Any = _declarations.ffi


def _places() -> list[str]:
    """Where the library may be, in order; a given place is the only one."""
    given = os.environ.get("KIPX_LIBRARY")
    if given:
        return [os.path.join(given, NAME) if os.path.isdir(given) else given]
    return [str(_HERE / NAME), str(_BUILD / "lib" / NAME), NAME]


def _version_text(number: int) -> str:
    return f"{number // 1000000}.{number // 1000 % 1000}.{number % 1000}"


def _load() -> Any:
    tried = []
    for place in _places():
        if os.path.dirname(place) and not os.path.exists(place):
            tried.append(f"{place} (not there)")
            continue
        try:
            library = ffi.dlopen(place)
            found = library.kipx_version()
        except (OSError, AttributeError) as error:
            tried.append(f"{place} ({error})")
            continue
        wanted = library.KIPX_VERSION_NUMBER
        if found // 1000000 == wanted // 1000000 and found >= wanted:
            return library
        tried.append(f"{place} (version {_version_text(found)}, and {_version_text(wanted)} or a later "
                     f"{wanted // 1000000}.x is needed)")
    raise ImportError(f"kipx: found no library to work with; looked for {', then for '.join(tried)}. "
                      "KIPX_LIBRARY may name it")


lib: Any = _load()
__version__ = _version_text(lib.kipx_version())


class _Local(threading.local):
    """What belongs to one thread: `kept`, the environment and, by layout, descriptors that wait for their
    next call. The environment is a record of Python's, so that no interrupt can come between its opening
    and its owner. cffi closes the environment with its last reference, which goes when
    the thread does."""

    def __init__(self) -> None:
        self.kept: tuple[Any, dict[Any, Any]] = ffi.gc(ffi.new("KipxXE *"), lib.KipxXEfini), {}


_local = _Local()


def environment() -> Any:
    """The execution environment of the calling thread, open as long as the thread lives."""
    return _local.kept[0]


_SETS = {"off": lib.KIPX_SIMD_OFF, "best": lib.KIPX_SIMD_BEST, "avx2": lib.KIPX_SIMD_AVX2,
         "avx512": lib.KIPX_SIMD_AVX512}


def set_simd(name: str) -> None:
    """Choose the vector instructions that all calls of this process use from now on.

    They change the speed and no bit of a result. `import kipx` chooses "best".

    Parameters
    ----------
    name : {"off", "best", "avx2", "avx512"}
        A set that the processor lacks means the best one below it.

    Raises
    ------
    ValueError
        For any other name.

    Examples
    --------
    >>> kipx.set_simd("best")
    """
    if name not in _SETS:
        raise ValueError(f"kipx.set_simd: name is {name!r}, expected one of {', '.join(_SETS)}")
    lib.kipx_set_simd(_SETS[name])


set_simd("best")
