"""The package itself: examples run, every C function is there, threads have their own environments."""
import doctest
import importlib
import os
import signal
import subprocess
import sys
import threading
import time

import kipx
import numpy as np
import pytest
from kipx import raw

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
MODULES = ("_library", "raw", "arithmetic", "dask", "filters", "geometry", "stable", "statistics", "trees", "values")


@pytest.mark.parametrize("name", MODULES)
def test_examples(name):
    module = importlib.import_module(f"kipx.{name}")
    ran = doctest.testmod(module, extraglobs={"kipx": kipx, "np": np})
    assert ran.attempted and not ran.failed
    assert name == "raw" or all(getattr(module, public).__doc__ for public in getattr(module, "__all__", ()))


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
    sys.path.insert(0, os.path.join(ROOT, "docs/site"))
    headers = importlib.import_module("headers").read().values()
    described = {name: entry for header in headers for name, entry in header.public + header.levels}
    assert declared <= set(described)
    assert not [name for name in declared if not described[name].startswith("/** ")]


def start(code, environment={}, **options):
    kept = {**os.environ, "PYTHONPATH": os.path.dirname(os.path.dirname(kipx.__file__)), **environment}
    return subprocess.Popen([sys.executable, "-B", "-c", code], text=True, env=kept, **options)


def refusal(**environment):
    """What an import that fails says."""
    with start("import kipx", environment, stderr=subprocess.PIPE) as child:
        said = child.stderr.read()
    assert child.returncode
    return said


INTERRUPTED = """
import gc, resource, signal, sys, kipx, numpy as np
from kipx import raw
image = kipx.gaussian(np.random.default_rng(1).integers(0, 256, (150, 150), np.uint8), 2)
image = kipx.convert(image, "u1", scale=6, shift=-640)

def work():
    tree, found = kipx.component_tree(image), kipx.mser(image)
    return (kipx.add(image, image.copy()).sum(), kipx.opening(image, np.ones((9, 9))).sum(), tree.area.sum(),
            found.trees["dark"].area.sum(), len(found))

def told():
    gc.collect()
    floods = sum(isinstance(one, kipx.trees.Flood) for one in gc.get_objects())
    return floods, raw.ZuSMEMSTGdrawn(raw.KipxXEmmstack(raw.environment()))

def handler(*_):
    assert work() == expected
    raise KeyboardInterrupt

expected, before, peak = work(), told(), None
signal.signal(signal.SIGINT, handler)
for _ in range(60):
    try:
        print("ready", flush=True)
        while True:
            work()
    except KeyboardInterrupt:
        pass
    assert work() == expected and told() == before, (told(), before)
    peak = peak or resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
assert resource.getrusage(resource.RUSAGE_SELF).ru_maxrss - peak < 3000
print("sound", flush=True)
"""


def test_interrupts_leave_no_half_state():
    """Ctrl-C at any moment: calls of its handler and calls behind it give what they give, nothing stays open."""
    random = np.random.default_rng(9)
    with start(INTERRUPTED, stdout=subprocess.PIPE, stderr=subprocess.PIPE) as child:
        while child.stdout.readline() == "ready\n":
            time.sleep(random.uniform(0, 0.04))
            child.send_signal(signal.SIGINT)
        errors = child.stderr.read()
    assert child.returncode == 0 and not errors, errors


def test_discovery(tmp_path):
    assert f"looked for {tmp_path / 'none.so'} (not there)" in refusal(KIPX_LIBRARY=str(tmp_path / "none.so"))
    source = tmp_path / "old.c"
    source.write_text("int kipx_version(void) { return 9999; }\n")
    subprocess.run(["cc", "-shared", "-o", tmp_path / "old.so", source], check=True)
    assert "(version 0.9.999, and 1.0.0 or a later 1.x is needed)" in refusal(KIPX_LIBRARY=str(tmp_path / "old.so"))


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
    code = ("import runpy, kipx; runpy.run_path(" + repr(os.path.join(ROOT, "docs/site/gallery/01_count_cells.py"))
            + "); print(kipx.raw.KipxAdd.__doc__[:14], *{l.split()[-1] for l in open('/proc/self/maps') if 'libZu' in l "
            "or 'libKipx' in l}, sep='\\n')")
    ran = subprocess.run([sys.executable, "-B", "-c", code], capture_output=True, text=True, cwd=tmp_path,
                         env={"PYTHONPATH": str(target), "PATH": os.environ["PATH"], "MPLBACKEND": "agg",
                              "MPLCONFIGDIR": str(tmp_path)})
    assert ran.returncode == 0, ran.stderr
    *_, told, signature, zu, kipx_library = ran.stdout.splitlines()
    assert told == "found once: 60, missed: 0"
    loaded = zu, kipx_library
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
