"""
A folder on a cluster
=====================

Hundreds of pictures are more than one machine wants to look at. ``kipx.dask.mser_files`` gives every picture to a
worker of a Dask cluster and leaves the files that the program ``kipx mser`` leaves. Here the cluster is two
processes on one machine; with the address of a real one nothing else changes.
"""
import csv
import os
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

import matplotlib.pyplot as plt
from distributed import Client

import kipx.dask

# %%
# Six micrographs of our own making, each with a number of cells that we know.
folder = Path(tempfile.mkdtemp(prefix="kipx-gallery-"))
program = os.environ.get("KIPX_PROGRAM", "kipx")
for k in range(6):
    subprocess.run([program, "scene", "-o", folder / f"plate{k}.png", "--size", "320x240", "--seed", str(k + 1),
                    "--cells", str(8 + 3 * k)], check=True, stdout=subprocess.DEVNULL)
plates = sorted(folder.glob("*.png"))

# %%
# The cluster: a scheduler and two workers, which find each other by a file that all of them see. On a real one each
# of these commands runs on a machine of its own, and this part is not in the script.
meeting = folder / "scheduler.json"
commands = [["scheduler", "--port", "0", "--scheduler-file", meeting, "--no-dashboard"]]
commands += [["worker", "--scheduler-file", meeting, "--nthreads", "1", "--no-dashboard", "--no-nanny",
              "--local-directory", folder]] * 2
cluster = [subprocess.Popen([sys.executable, "-m", f"distributed.cli.dask_{name}", *options],
                            stderr=subprocess.DEVNULL) for name, *options in commands]

# %%
# The work.
settings = ("--min-area-px", "60", "--min-diversity", "0.8")
try:
    with Client(scheduler_file=str(meeting)) as client:
        client.wait_for_workers(2, timeout=60)
        done = kipx.dask.mser_files(plates, folder / "found", client=client, options=settings)
        workers = len(client.scheduler_info()["workers"])
finally:
    for process in cluster:
        process.terminate()
print(f"{workers} workers")
print(*(f"{Path(one.path).name}: {one.message or 'done'}" for one in done), sep="\n")

# %%
# A batch that was stopped half-way and is started again does only what is not done yet. Here everything is done, and
# the call comes back at once.
again = kipx.dask.mser_files(plates, folder / "found", options=settings)
assert again == done and not any(one.message for one in done)

# %%
# Each picture has a table of its regions, labels, an overlay; and there is a summary of all.
print(*sorted(path.name for path in (folder / "found").glob("plate0*")), sep="\n")
with open(folder / "found" / "summary.csv", encoding="utf-8") as file:
    summary = list(csv.DictReader(file))
print(", ".join(summary[0]))

# %%
# The overlays that the program drew.
figure, axes = plt.subplots(2, 3, figsize=(10, 5.4))
for ax, plate in zip(axes.flat, plates):
    ax.imshow(plt.imread(folder / "found" / f"{plate.stem}.overlay.png"))
    with open(folder / "found" / f"{plate.stem}.csv", encoding="utf-8") as file:
        ax.set_title(f"{plate.stem}: {len(list(csv.DictReader(file)))} regions")
    ax.set_axis_off()
figure.tight_layout()
shutil.rmtree(folder)
