"""python_bench.py [FILTER] - the Python package beside its peers: what a call costs, whole operations.

Prints   the time of a call on 8 x 8 from C, from Python and from peers; the times of ten operations on
         2048 x 2048 (trees: 512 x 512) as ratios, peer / kipx, so that more than 1 is in our favour; and what two threads on
         two images do. FILTER is a regular expression over the names.
How      contestants take turns, round by round, in one process with one thread each (but for the last
         table); figures are medians, of single calls the least, as of C's. Peers that are not installed are left out.
"""
import importlib
import os
import re
import statistics
import subprocess
import sys
import tempfile
import threading
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
os.environ.setdefault("OMP_NUM_THREADS", "1")
sys.path.insert(0, os.path.join(ROOT, "python"))
import numpy as np  # noqa: E402

import kipx  # noqa: E402

C_LOOP = r"""
#include <kipx/kipx.h>
#include <stdio.h>
#include <time.h>
int main(void) {
    static uint8_t a[64], b[64], c[64];
    static kipx_arr image = {{1, 8, 8, 1}, {0}, {64, 8, 1, 1}, 3, 0, KIPX_U8, 0, 0, 0};
    kipx_arr first = image, second = image, result = image;
    first.base = a, second.base = b, result.base = c;
    kipx_set_simd(1);
    KipxXE *xe = KipxXEopen(0, 0, 0);
    double best = 1e9;
    for (int round = 0; round < 20; round++) {
        struct timespec from, to;
        clock_gettime(CLOCK_MONOTONIC, &from);
        for (int i = 0; i < 20000; i++) KipxAdd(xe, 0, &result, &first, &second, 0, 0, 0, 0, 0);
        clock_gettime(CLOCK_MONOTONIC, &to);
        double taken = (to.tv_sec - from.tv_sec) * 1e6 + (to.tv_nsec - from.tv_nsec) * 1e-3;
        if (taken / 20000 < best) best = taken / 20000;
    }
    printf("%f\n", best);
    return 0;
}
"""


def peer(name):
    try:
        return importlib.import_module(name)
    except ImportError:
        return None


cv2, ndi, filters, morphology = (peer(name) for name in (
    "cv2", "scipy.ndimage", "skimage.filters", "skimage.morphology"))
if cv2:
    cv2.setNumThreads(1)


def timed(function):
    start = time.perf_counter()
    function()
    return time.perf_counter() - start


def contest(functions, rounds, repeats=1, chosen=statistics.median):
    """Seconds of each, taken in turns, the median of all rounds or what else is chosen. The first round does not
    count."""
    times = [[] for _ in functions]
    for round_number in range(rounds + 1):
        for k, function in enumerate(functions):
            taken = timed(function if repeats == 1 else lambda: [function() for _ in range(repeats)]) / repeats
            if round_number:
                times[k].append(taken)
    return [chosen(t) for t in times]


def c_call():
    """Microseconds of KipxAdd on 8 x 8, from C."""
    library = os.environ.get("KIPX_LIBRARY") or kipx._library._places()[1]
    with tempfile.TemporaryDirectory() as folder:
        source, program = os.path.join(folder, "call.c"), os.path.join(folder, "call")
        with open(source, "w", encoding="utf-8") as file:
            file.write(C_LOOP)
        subprocess.run(["cc", "-O2", "-I", os.path.join(ROOT, "include"), source, library,
                        f"-Wl,-rpath,{os.path.dirname(os.path.abspath(library))}", "-o", program], check=True)
        return float(subprocess.run([program], capture_output=True, text=True, check=True).stdout)


def calls():
    a, b, out = (np.ones((8, 8), np.uint8) for _ in "abc")
    contestants = {"kipx.add": lambda: kipx.add(a, b, out=out), "kipx.add, new array": lambda: kipx.add(a, b),
                   "numpy.add": lambda: np.add(a, b, out=out)}
    if cv2:
        contestants["cv2.add"] = lambda: cv2.add(a, b, out)
    inside = c_call()
    print(f"a call on 8 x 8, microseconds\n  {'KipxAdd, from C':24}{inside:8.2f}")
    for name, seconds in zip(contestants, contest(list(contestants.values()), 60, 1000, min)):
        print(f"  {name:24}{seconds * 1e6:8.2f}  {seconds * 1e6 - inside:+.2f} over C")


def operations():
    """Name, ours, and peers by name."""
    random = np.random.default_rng(1)
    size = 2048, 2048
    a, b = (random.integers(0, 256, size, np.uint8) for _ in "ab")
    out, real, real_out = np.empty_like(a), a.astype(np.float32), np.empty(size, np.float32)
    soft = kipx.convert(kipx.gaussian(real, 4), np.uint8, scale=6, shift=-640)
    disk = np.hypot(*np.mgrid[-3:4, -3:4]) <= 3.3
    disk_bytes = disk.astype(np.uint8)
    yield "addq u8", lambda: kipx.addq(a, b, out=out), {"cv2": lambda: cv2.add(a, b, out)}
    yield "muladd f32", lambda: kipx.muladd(real, 1.5, 10, out=real_out), {
        "numpy": lambda: np.add(np.multiply(real, np.float32(1.5), out=real_out), np.float32(10), out=real_out)}
    yield "compare u8", lambda: kipx.compare(a, b, ">", out=out), {
        "numpy": lambda: np.greater(a, b), "cv2": lambda: cv2.compare(a, b, cv2.CMP_GT, out)}
    yield "threshold otsu", lambda: kipx.threshold(a, out=out), {
        "cv2": lambda: cv2.threshold(a, 0, 255, cv2.THRESH_OTSU, out),
        "skimage": lambda: a > filters.threshold_otsu(a)}
    yield "erode disk 7 u8", lambda: kipx.erode(a, disk, out=out), {
        "cv2": lambda: cv2.erode(a, disk_bytes, out), "scipy": lambda: ndi.grey_erosion(a, footprint=disk)}
    yield "opening 15x15 u8", lambda: kipx.opening(a, np.ones((15, 15)), out=out), {
        "cv2": lambda: cv2.morphologyEx(a, cv2.MORPH_OPEN, np.ones((15, 15), np.uint8), out),
        "scipy": lambda: ndi.grey_opening(a, (15, 15))}
    yield "uniform 7x7 u8", lambda: kipx.uniform_filter(a, 7, out=out), {
        "cv2": lambda: cv2.blur(a, (7, 7), out), "scipy": lambda: ndi.uniform_filter(a, 7)}
    yield "gaussian 2 f32", lambda: kipx.gaussian(real, 2, out=real_out), {
        "cv2": lambda: cv2.GaussianBlur(real, (13, 13), 2, real_out),
        "scipy": lambda: ndi.gaussian_filter(real, 2, truncate=3, output=real_out),
        "skimage": lambda: filters.gaussian(real, 2, truncate=3)}
    part = np.ascontiguousarray(soft[:512, :512])  # peers take minutes for all of it
    yield "component tree 512", lambda: kipx.component_tree(part), {
        "skimage": lambda: morphology.max_tree(part)}
    yield "mser both 512", lambda: kipx.mser(part), {
        "cv2": lambda: cv2.MSER_create(5, 30, part.size // 10, 0.3, 0.3).detectRegions(part)}


def table(wanted):
    print("\nten operations on 2048 x 2048 but where told, milliseconds, and how many times as long peers take")
    for name, ours, peers in operations():
        if not wanted.search(name):
            continue
        there = {key: function for key, function in peers.items()
                 if {"cv2": cv2, "scipy": ndi, "skimage": filters, "numpy": np}[key]}
        slow = "tree" in name or "mser" in name
        mine, *others = contest([ours, *there.values()], 3 if slow else 7)
        print(f"  {name:20}{mine * 1e3:9.2f}  "
              + "  ".join(f"{key} {other / mine:.2f}" for key, other in zip(there, others)))


def threads():
    images = [np.random.default_rng(k).normal(0, 1, (2048, 2048)).astype(np.float32) for k in range(2)]
    outs = [np.empty_like(image) for image in images]

    def work(k):
        for _ in range(4):
            kipx.gaussian(images[k], 2, out=outs[k])

    def together():
        both = [threading.Thread(target=work, args=(k,)) for k in range(2)]
        for one in both:
            one.start()
        for one in both:
            one.join()
    one_by_one, at_once = contest([lambda: [work(0), work(1)], together], 7)
    print(f"\ntwo threads on two images, gaussian 2: {one_by_one / at_once:.2f} times one thread's speed, on "
          f"{os.cpu_count()} processors")


def main():
    wanted = re.compile(sys.argv[1] if sys.argv[1:] else "")
    if wanted.search("calls"):
        calls()
    table(wanted)
    if wanted.search("threads"):
        threads()


if __name__ == "__main__":
    main()
