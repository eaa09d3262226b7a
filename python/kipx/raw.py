"""Every C function of kipx/kipx.h by its own name, for what the rest of the package does not wrap.

`raw.KipxAdd` is a function whose docstring is the signature and the comment of the header; `raw.ffi` makes
records and pointers (it is cffi's), `raw.KIPX_U8` and the other constants are integers, and
`raw.environment()` is the calling thread's first argument for image operations. Nothing is checked here
that the library does not check: a wrong pointer ends the process, as in C. The interpreter's lock is
released during a call.

>>> from kipx import raw
>>> raw.ffi.string(raw.kipx_strerror(raw.KIPX_EEMPTY)).decode()
'KIPX_EEMPTY: the region of interest is empty'
>>> print(raw.kipx_elsize.__doc__.splitlines()[0])
uint32_t kipx_elsize(uint32_t type)
>>> raw.kipx_elsize(raw.KIPX_F64)
8
"""
from __future__ import annotations

from typing import Any

from kipx import _documents  # type: ignore[attr-defined]
from kipx._library import environment, ffi, lib

__all__ = ["environment", "ffi", "lib", "headers", *_documents.FUNCTIONS]

#: The comment at the head of every header, which tells what its functions have in common.
headers: dict[str, str] = _documents.HEADERS


class Function:
    """A C function with the documentation of its header."""

    def __init__(self, name: str) -> None:
        self.signature, comment, header = _documents.FUNCTIONS[name]
        parts = [self.signature, _documents.COMMENTS[comment], f"From {header}:", headers.get(header, "")]
        self.__name__ = name
        self.__doc__ = "\n\n".join(part for part in parts if part)
        self.call = getattr(lib, name)

    def __call__(self, *arguments: Any) -> Any:
        return self.call(*arguments)

    def __repr__(self) -> str:
        return f"<kipx.raw.{self.__name__}: {self.signature}>"


def __getattr__(name: str) -> Any:
    if name in _documents.FUNCTIONS:
        found = globals()[name] = Function(name)
        return found
    if name.startswith("KIPX_") and hasattr(lib, name):
        return getattr(lib, name)
    raise AttributeError(f"kipx.raw has no {name}: no header declares it")


def __dir__() -> list[str]:
    return sorted([*globals(), *_documents.FUNCTIONS, *(n for n in dir(lib) if n.startswith("KIPX_"))])
