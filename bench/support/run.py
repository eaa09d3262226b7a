"""Runs the benchmark programs, one contest at a time with its contestants interleaved at random.
Usage: run.py FOLDER-OF-PROGRAMS FOLDER-FOR-RESULTS [FILTER] [--repetitions N] [--time SECONDS]
FILTER is a regular expression over family/operation/size. One JSON file per contest."""
import argparse
import glob
import os
import re
import subprocess
import sys


def contests(program, pattern):
    """family/operation/size of the program's benchmarks, in the order of their registration."""
    names = subprocess.run([program, "--benchmark_list_tests=true"], text=True, capture_output=True,
                           check=True).stdout.splitlines()
    found = dict.fromkeys(name.rsplit("/", 1)[0] for name in names)
    return [contest for contest in found if re.search(pattern, contest)]


def literally(text):
    """A POSIX expression that matches the text."""
    return re.sub(r"([.+*?()\[\]{}|^$\\])", r"\\\1", text)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("programs")
    parser.add_argument("results")
    parser.add_argument("filter", nargs="?", default="")
    parser.add_argument("--repetitions", type=int, default=5)
    parser.add_argument("--time", type=float, default=0.05)
    args = parser.parse_args()
    os.makedirs(args.results, exist_ok=True)
    for old in glob.glob(os.path.join(args.results, "*.json")):
        os.remove(old)
    number = 0
    for program in sorted(glob.glob(os.path.join(args.programs, "*_bench"))):
        for contest in contests(program, args.filter):
            number += 1
            print(contest, file=sys.stderr, flush=True)
            out = os.path.join(args.results, f"{number:05}.json")
            result = subprocess.run([
                program, f"--benchmark_filter=^{literally(contest)}/",
                f"--benchmark_repetitions={args.repetitions}", f"--benchmark_min_time={args.time}",
                "--benchmark_enable_random_interleaving=true", "--benchmark_out_format=json",
                "--benchmark_out=" + out], text=True, capture_output=True)
            if result.returncode or not os.path.getsize(out):
                sys.exit(f"{program} failed on {contest}\n{result.stdout}{result.stderr}")
    if not number:
        sys.exit("no contest matches")


main()
