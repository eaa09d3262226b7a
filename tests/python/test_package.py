"""The package itself: examples run, every C function is there, threads have their own environments."""
import doctest
import importlib
import os
import subprocess
import sys
import threading
import time

import kipx
import numpy as np
import pytest
from kipx import raw

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
MODULES = ("_library", "raw", "arithmetic", "dask", "filters", "stable", "statistics", "trees", "values")


@pytest.mark.parametrize("name", MODULES)
def test_examples(name):
    module = importlib.import_module(f"kipx.{name}")
    ran = doctest.testmod(module, extraglobs={"kipx": kipx, "np": np})
    assert ran.attempted and not ran.failed
    for public in getattr(module, "__all__", ()):
        if name != "raw":
            assert getattr(module, public).__doc__, f"{public} is not documented"


def test_raw_has_every_function():
    """What the library exports, and nothing else, can be called by its name and tells its signature."""
    path = os.environ.get("KIPX_LIBRARY") or kipx._library._places()[1]
    listed = subprocess.run(["nm", "-D", "--defined-only", path], capture_output=True, text=True, check=True)
    exported = {line.split()[-1].partition("@")[0] for line in listed.stdout.splitlines() if " T " in line}
    declared = {name for name in raw._documents.FUNCTIONS if raw._documents.FUNCTIONS[name][2][:3] != "zu/"}
    assert exported == declared
    for name in sorted(declared):
        assert name in getattr(raw, name).__doc__.splitlines()[0]
    assert "saturates" in raw.KipxAddq.__doc__ and "Otsu" in raw.KipxComputeThresholdByOtsu.__doc__
    with pytest.raises(AttributeError, match="no header declares it"):
        raw.KipxNothing


def run(code, **environment):
    kept = {**os.environ, "PYTHONPATH": os.path.dirname(os.path.dirname(kipx.__file__)), **environment}
    return subprocess.run([sys.executable, "-B", "-c", code], capture_output=True, text=True, env=kept)


def test_discovery(tmp_path):
    wrong = run("import kipx", KIPX_LIBRARY=str(tmp_path / "none.so"))
    assert wrong.returncode and f"looked for {tmp_path / 'none.so'} (not there)" in wrong.stderr
    source = tmp_path / "old.c"
    source.write_text("int kipx_version(void) { return 9999; }\n")
    subprocess.run(["cc", "-shared", "-o", tmp_path / "old.so", source], check=True)
    old = run("import kipx", KIPX_LIBRARY=str(tmp_path / "old.so"))
    assert old.returncode and "(version 0.9.999, and 1.0.0 or a later 1.x is needed)" in old.stderr


def test_every_thread_has_an_environment_of_its_own():
    kept, image, made = set(), np.ones((30, 40), np.uint8), []

    def work():
        kept.add(int(raw.ffi.cast("uintptr_t", raw.environment())))
        made.append(kipx.gaussian(image, 2))
        barrier.wait()

    barrier = threading.Barrier(4)
    threads = [threading.Thread(target=work) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert len(kept) == 4 and len(made) == 4
    assert int(raw.ffi.cast("uintptr_t", raw.environment())) not in kept


def test_the_lock_is_released():
    """While one long call runs, another thread goes on, tick after tick."""
    image = np.ones((1000, 1000), np.float32)
    ticks, done = [], threading.Event()

    def tick():
        while not done.wait(0.001):
            ticks.append(time.perf_counter())

    other = threading.Thread(target=tick)
    other.start()
    try:
        for _ in range(20):  # a busy machine may give the other thread no time at first
            start = time.perf_counter()
            kipx.erode(image, np.indices((45, 45)).sum(0) % 2)
            end = time.perf_counter()
            if sum(start < tick < end for tick in ticks) >= 10:
                break
        else:
            pytest.fail("no ticks of the other thread during a call")
    finally:
        done.set()
        other.join()


@pytest.mark.parametrize("path", ["README.md", "python/README.md", "docs/python.md"])
def test_read_me(path):
    """The Python examples of the first pages give what they show."""
    ran = doctest.testfile(os.path.join(ROOT, path), module_relative=False, encoding="utf-8")
    assert ran.attempted and not ran.failed


def test_wheel(tmp_path):
    """A wheel, made without a network, runs by itself: its own library, its own declarations, its types."""
    library = os.path.dirname(os.environ.get("KIPX_LIBRARY") or kipx._library._places()[1])
    target = tmp_path / "installed"
    pip = [sys.executable, "-m", "pip", "-q", "--disable-pip-version-check"]
    kept = {**os.environ, "KIPX_LIBRARY_FOLDER": library}
    for command in (["wheel", "--no-build-isolation", "--no-deps", "--no-index", "-w", str(tmp_path),
                     os.path.join(ROOT, "python")],
                    ["install", "--no-deps", "--no-index", "--no-compile", "--target", str(target), "-f",
                     str(tmp_path), "kipx"]):
        made = subprocess.run([*pip, *command], env=kept, capture_output=True, text=True)
        assert made.returncode == 0, made.stderr
    code = ("import kipx, numpy as np; assert kipx.add(np.ones((2, 2), 'u1'), 1).sum() == 8; "
            "print(kipx.raw.KipxAdd.__doc__[:14], *{l.split()[-1] for l in open('/proc/self/maps') if 'libZu' in l "
            "or 'libKipx' in l}, sep='\\n')")
    ran = subprocess.run([sys.executable, "-B", "-c", code], capture_output=True, text=True, cwd=tmp_path,
                         env={"PYTHONPATH": str(target), "PATH": os.environ["PATH"]})
    assert ran.returncode == 0, ran.stderr
    signature, *loaded = ran.stdout.splitlines()
    assert signature == "int32_t KipxAd" and sorted(loaded) == [
        str(target / "kipx" / name) for name in ("libKipx-1_0_0.so", "libZu-2.so")]


def test_types(tmp_path):
    """The package passes mypy's strict checks, and what callers get wrong is found."""
    client = tmp_path / "client.py"
    client.write_text("import kipx, numpy as np\n"
                      "image = np.zeros((3, 4), np.uint8)\n"
                      "a = kipx.add(image, 3, scale=-1).sum()\n"
                      "b: int = kipx.mser(image).labels()\n"
                      "kipx.erode(image, size=3)\n"
                      "kipx.component_tree(image).depth\n")
    checked = subprocess.run(
        [sys.executable, "-m", "mypy", "--strict", "--cache-dir", os.path.join(ROOT, "build", "mypy"),
         str(client), os.path.join(ROOT, "python", "kipx")],
        capture_output=True, text=True, cwd=tmp_path, env={**os.environ, "MYPYPATH": os.path.join(ROOT, "python")})
    complaints = [line for line in checked.stdout.splitlines() if ": error:" in line]
    assert [line.split(":")[:2] for line in complaints] == [["client.py", str(k)] for k in (4, 5, 6)], checked.stdout
