"""Runs every fuzzer for a share of the time, as many at once as there are processors, and tells what each
has tried and found. Each begins with its seeds and the rows of found.txt; an input that stopped it is
printed as such a row. Usage: fuzz.py BUILD-FOLDER MINUTES [TARGET...]"""
import concurrent.futures
import os
import re
import shutil
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
ENVIRONMENT = {**os.environ, "KIPX_FOUND": os.path.join(HERE, "found.txt"), "UBSAN_OPTIONS": "print_stacktrace=1",
               "ASAN_OPTIONS": "halt_on_error=1:allocator_may_return_null=1:detect_leaks=1"}


def targets(program):
    """By the program's own list."""
    told = subprocess.run([program, "-runs=0"], env={**os.environ, "KIPX_FUZZ": "?"}, text=True,
                          capture_output=True, check=False).stderr
    return re.search(r"There are: (.*)", told)[1].split()


def fuzz(program, target, folder, seconds):
    """Inputs tried, edges reached, and the files of those that stopped it."""
    place = os.path.join(folder, "run", target)
    shutil.rmtree(place, ignore_errors=True)
    corpus, found = os.path.join(place, "corpus"), os.path.join(place, "found")
    os.makedirs(corpus), os.makedirs(found)
    done = subprocess.run([program, corpus, f"-max_total_time={seconds}", "-timeout=30", "-rss_limit_mb=3000",
                           "-max_len=4096", "-len_control=0", "-print_final_stats=1", f"-artifact_prefix={found}/"],
                          env={**ENVIRONMENT, "KIPX_FUZZ": target, "KIPX_SEEDS": corpus},
                          text=True, capture_output=True, errors="replace", check=False)
    with open(os.path.join(place, "log"), "w", encoding="utf-8") as log:
        log.write(done.stderr)
    runs = re.search(r"number_of_executed_units: (\d+)", done.stderr)
    reached = re.findall(r"\bcov: (\d+)", done.stderr)
    stopped = [os.path.join(found, name) for name in os.listdir(found)] or [place + "/log"] * bool(done.returncode)
    return int(runs[1]) if runs else 0, int(reached[-1]) if reached else 0, stopped


def main():
    build, minutes, *wanted = sys.argv[1:]
    programs = [os.path.join(build, "bin", name) for name in ("fuzz_library", "fuzz_image")]
    work = [(program, target) for program in programs for target in targets(program) if not wanted or target in wanted]
    if not work or set(wanted) - {target for _, target in work}:
        sys.exit(f"No such target; there are: {' '.join(t for p in programs for t in targets(p))}")
    at_once = os.cpu_count() or 1
    seconds = max(1, int(float(minutes) * 60 * min(at_once, len(work)) / len(work)))
    print(f"{len(work)} targets, {seconds} s each, {at_once} at once")
    total, rows, started = 0, [], time.monotonic()
    with concurrent.futures.ThreadPoolExecutor(at_once) as pool:
        answers = pool.map(lambda one: fuzz(*one, build, seconds), work)
        for (_, target), (runs, reached, stopped) in zip(work, answers):
            print(f"{target:14} {runs:9} inputs {reached:6} edges{''.join('   STOPPED BY ' + s for s in stopped)}",
                  flush=True)
            total += runs
            rows += [(target, path) for path in stopped]
            if not runs:
                sys.exit(f"{target} has tried nothing")
    for target, path in rows:
        with open(path, "rb") as file:
            print(target, file.read(8192).hex())
    print(f"{total} inputs in {time.monotonic() - started:.0f} s, {len(rows)} defects")
    sys.exit(bool(rows))


main()
