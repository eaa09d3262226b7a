"""
A feature of your own, in C
===========================

Area, centre and axes come with every region. What else a region should know is yours to say: a feature is a record
of functions in C that are told when pixels arrive, when regions are combined and when they go. This one counts grey
levels, so that every region knows its median.
"""
import os
import re
import subprocess
import tempfile
from pathlib import Path

import matplotlib.pyplot as plt
import numpy as np

import kipx

# %%
# The program, compiled with any C compiler against the headers and the library:
#
# .. literalinclude:: /examples/own_feature.c
#    :language: c
root = Path(os.environ["KIPX_ROOT"])
library = Path(os.environ["KIPX_LIBRARY"])
with tempfile.TemporaryDirectory() as folder:
    program = Path(folder) / "own_feature"
    subprocess.run(["cc", "-std=c11", "-Wall", "-Wextra", "-Werror", "-I", root / "include",
                    root / "examples" / "own_feature.c", library, f"-Wl,-rpath,{library.parent}", "-o", program],
                   check=True)
    told = subprocess.run([program], capture_output=True, text=True, check=True).stdout
print(told)

# %%
# The numbers as arrays, and the picture that the program paints: a dark disc in a grey one on bright ground, and
# some texture all over.
level, area, median = np.array([line for line in re.findall(r"level +(\d+) +area +(\d+) +median +(\d+)", told)],
                               int).T
rows, columns = np.mgrid[:32, :48]
picture = np.where((columns - 20) ** 2 + (rows - 15) ** 2 < 120, 110, 200)
picture = np.where((columns - 17) ** 2 + (rows - 14) ** 2 < 20, 40, picture) + (7 * columns + 3 * rows) % 5

# %%
# Python has the same regions by ``kipx.component_tree``, and computes the median of each from its pixels: slower,
# but in one line. Both agree.
tree = kipx.component_tree(picture.astype(np.uint8), polarity="dark", connectivity=2)
from_c = {(l, a): m for l, a, m in zip(level, area, median)}
for node in range(len(tree)):
    values = np.sort(picture[tuple(tree.pixels(node).T)])
    here = values[(len(values) - 1) // 2]
    assert here == from_c[tree.level[node], tree.area[node]]
print(f"{len(tree)} regions, the same medians")

# %%
figure, (left, right) = plt.subplots(1, 2, figsize=(9.5, 3.4))
left.imshow(picture, cmap="gray", vmin=0, vmax=255)
left.set_axis_off()
right.plot(area, level, "o", color="tab:gray", label="greatest value inside")
right.plot(area, median, "o", color="tab:orange", label="median")
right.set(xlabel="area of the region in pixels", ylabel="grey level", xscale="log")
right.legend(loc="center left")
figure.tight_layout()
