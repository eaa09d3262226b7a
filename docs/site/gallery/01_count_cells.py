"""
Count cells
===========

How many cells are in a picture, and how large are they? The light falls off towards the corners and the camera
adds noise, so that no single threshold finds them all. Stable regions need none: a cell is a part of the picture
that stays nearly the same over many thresholds.
"""
import matplotlib.pyplot as plt
import numpy as np

import kipx

# %%
# A micrograph of our own making: 60 bright cells of different sizes that do not touch, on a ground whose
# brightness falls to half in the corners.
random = np.random.default_rng(7)
rows, columns = np.mgrid[:360, :480].astype(np.float32)
cells, image = [], np.full(rows.shape, 60, np.float32)
while len(cells) < 60:
    y, x, radius = random.uniform(20, 340), random.uniform(20, 460), random.uniform(6, 14)
    if all(np.hypot(y - v, x - u) > radius + r + 5 for v, u, r in cells):
        cells.append((y, x, radius))
        inside = np.hypot(rows - y, columns - x) < radius
        image[inside] += random.uniform(50, 120)
light = 1 - 0.5 * (((rows - 180) / 180) ** 2 + ((columns - 240) / 240) ** 2) / 2
image = kipx.gaussian(image * light, 1.5) + random.normal(0, 2.5, image.shape)
image = kipx.convert(image, np.uint8)

# %%
# One call finds the regions. A little smoothing first, so that noise does not fray their edges; of regions that lie
# in each other ``min_diversity=0.9`` keeps one unless the inner is ten times as small.
found = kipx.mser(kipx.gaussian(image, 1), polarity="bright", delta=8, min_area=60,
                  max_area=0.01, min_diversity=0.9)
print(f"{len(found)} regions, {len(cells)} cells")

# %%
# Every region is a row: area, centre, axes, under the names that scikit-image's regionprops uses.
for region in found[:3]:
    print(f"area {region['area']}, eccentricity {region['eccentricity']:.2f}, "
          f"centre ({region['centroid-1']:.1f}, {region['centroid-0']:.1f})")

# %%
# Since we made the cells, we can look whether each has been found, and once.
centres = np.stack([found["centroid-0"], found["centroid-1"]], 1)
hits = [int((np.hypot(*(centres - (y, x)).T) < radius / 2).sum()) for y, x, radius in cells]
print(f"found once: {hits.count(1)}, missed: {hits.count(0)}")
assert hits == [1] * len(cells)

# %%
# The outlines on the picture, and how the sizes are spread.
figure, (left, right) = plt.subplots(1, 2, figsize=(10, 4),
                                     gridspec_kw={"width_ratios": (3, 2)})
found.plot(left, image, colours=("tab:blue", "tab:orange"), linewidths=1.5)
left.set_axis_off()
left.set_title(f"{len(found)} cells")
right.hist(found["equivalent_diameter_area"], bins=12, color="tab:orange", rwidth=0.9)
right.set(title="How large they are", xlabel="diameter in pixels", ylabel="cells")
figure.tight_layout()
