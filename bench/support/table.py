"""Prints one table per family from results of run.py: the median repetition's rate in millions a
second, of pixels or of what the family counts, and how the vector form (or the only one, "kipx") stands
to the best peer, to the memory limit and to the plain form.
Usage: table.py FOLDER-OF-RESULTS | FILE.json ..."""
import collections
import glob
import json
import os
import statistics
import sys


def load(paths):
    """family -> (operation, size) -> contestant -> rate of each repetition; and the errors."""
    families = collections.defaultdict(lambda: collections.defaultdict(lambda: collections.defaultdict(list)))
    errors, processor = [], ""
    for path in paths:
        with open(path, encoding="utf-8") as file:
            content = json.load(file)
        context = content["context"]
        processor = f"{context['num_cpus']} x {context['mhz_per_cpu']} MHz"
        for run in content["benchmarks"]:
            if run.get("run_type") == "aggregate":
                continue
            family, operation, size, contestant = run["run_name"].split("/")[:4]
            if run.get("error_occurred"):
                errors.append(f"{run['run_name']}: {run['error_message']}")
                continue
            families[family][operation, size][contestant].append(
                run["Mpixel/s"] if "Mpixel/s" in run else run["items_per_second"] / 1e6)
    return families, sorted(set(errors)), processor


def best(rates, kind):
    """Name and rate of the fastest contestant `kind` or `kind:<name>`; ("", None) when there is none."""
    found = {name.partition(":")[2]: rate for name, rate in rates.items()
             if name.split(":")[0] == kind}
    return max(found.items(), key=lambda item: item[1]) if found else ("", None)


def cells(operation, size, runs):
    rates = {contestant: statistics.median(values) for contestant, values in runs.items()}
    plain, vector = best(rates, "plain")[1], best(rates, "vector")[1] or best(rates, "kipx")[1]
    peer_name, peer = best(rates, "peer")
    limit = best(rates, "limit")[1]

    def rate(value):
        return "-" if value is None else f"{value:,.0f}" if value >= 100 else f"{value:.3g}"

    def ratio(other):
        return "-" if vector is None or not other else f"{vector / other:.2f}"

    percent = "-" if vector is None or not limit else f"{100 * vector / limit:.0f} %"
    peer_text = rate(peer) + (f" {peer_name}" if peer_name else "")
    return [operation, size, rate(plain), rate(vector), peer_text, rate(limit), ratio(peer), percent,
            ratio(plain)]


HEAD = ["operation", "size", "plain", "vector", "best peer", "limit", "x peer", "of limit", "x plain"]


def main():
    paths = sys.argv[1:]
    if len(paths) == 1 and os.path.isdir(paths[0]):
        paths = sorted(glob.glob(os.path.join(paths[0], "*.json")))
    families, errors, processor = load(paths)
    for family, contests in families.items():
        rows = [HEAD] + [cells(*key, runs) for key, runs in contests.items()]
        widths = [max(len(row[i]) for row in rows) for i in range(len(HEAD))]
        print(f"\n{family} (millions a second, median; {processor})\n")
        for number, row in enumerate(rows):
            aligned = [cell.ljust(w) if i < 2 else cell.rjust(w)
                       for i, (cell, w) in enumerate(zip(row, widths))]
            print("| " + " | ".join(aligned) + " |")
            if number == 0:
                print("|" + "|".join("-" * (w + 1) + ("-" if i < 2 else ":")
                                     for i, w in enumerate(widths)) + "|")
    for error in errors:
        print(f"error: {error}")
    sys.exit(1 if errors or not families else 0)


main()
