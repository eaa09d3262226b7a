"""
Track stable regions between two views
======================================

Stable regions move with the scene: turn it, tilt it, change the light, and the same parts of it are found again.
Here they are found in two views by themselves, matched by what stays the same about them, and the map between the
views comes out.
"""
import matplotlib.pyplot as plt
import numpy as np

import kipx

# %%
# A scene of blobs of different sizes and shades, and a second view of it: turned by 25 degrees, flattened to four
# fifths in one direction, moved, under weaker light, and with noise of its own.
random = np.random.default_rng(5)
rows, columns = np.mgrid[:300, :400].astype(np.float64)
turn = np.deg2rad(25)
true_map = np.array([[np.cos(turn), -0.8 * np.sin(turn)],
                     [np.sin(turn), 0.8 * np.cos(turn)]])
shift = np.array([150, 200]) - true_map @ (150, 200)
blobs = random.uniform((30, 30, 5, 5, 0, -70), (270, 370, 14, 14, np.pi, 70), (55, 6))


def view(y, x, gain):
    """The scene at places (y, x) of its own plane, as a camera gives it."""
    seen = np.full(y.shape, 128.0)
    for v, u, long, wide, angle, shade in blobs:
        a = (x - u) * np.cos(angle) + (y - v) * np.sin(angle)
        b = (y - v) * np.cos(angle) - (x - u) * np.sin(angle)
        seen = np.where((a / long) ** 2 + (b / wide) ** 2 < 1, 128 + shade, seen)
    noise = random.normal(0, 2, seen.shape)
    return kipx.convert(kipx.gaussian((seen * gain).astype(np.float32), 1.2) + noise, np.uint8)


back = np.linalg.inv(true_map)
first = view(rows, columns, 1)
second = view(back[0, 0] * (rows - shift[0]) + back[0, 1] * (columns - shift[1]),
              back[1, 0] * (rows - shift[0]) + back[1, 1] * (columns - shift[1]), 0.75)

# %%
# The regions of each view.
options = dict(delta=5, min_area=60, max_area=0.02, min_diversity=0.7, max_variation=0.25)
one, two = kipx.mser(first, **options), kipx.mser(second, **options)
print(f"{len(one)} and {len(two)} regions")

# %%
# Three pairs of points make a map of the plane, and so do three pairs of regions by their centres. Pairs are
# proposed where polarity is the same and area and shade are alike: a plane that is tilted changes all areas by one
# factor, weaker light all shades. Then the map that most other regions agree with is looked for.


def points(found):
    return np.stack([found["centroid-0"], found["centroid-1"]], 1)


a, b = points(one), points(two)
factor = np.median(two["area"]) / np.median(one["area"])
alike = (np.abs(np.log(two["area"][None] / (factor * one["area"][:, None]))) < 0.3)
alike &= two["polarity"][None] == one["polarity"][:, None]
alike &= np.abs(two["level"][None] - 0.75 * one["level"][:, None]) < 12
pairs = np.argwhere(alike)
print(f"{len(pairs)} pairs are possible")


def fitted(chosen):
    """The affine map of the chosen pairs by least squares: three rows, applied to (row, column, 1)."""
    here = np.c_[a[chosen[:, 0]], np.ones(len(chosen))]
    return np.linalg.lstsq(here, b[chosen[:, 1]], rcond=None)[0]


def agreeing(solution):
    """Pairs whose ends lie within 2 pixels of each other under a map."""
    there = np.c_[a[pairs[:, 0]], np.ones(len(pairs))] @ solution
    return pairs[np.hypot(*(there - b[pairs[:, 1]]).T) < 2]


best = pairs[:0]
for _ in range(4000):
    chosen = pairs[random.choice(len(pairs), 3, replace=False)]
    if len(set(chosen[:, 0])) == len(set(chosen[:, 1])) == 3:
        agreed = agreeing(fitted(chosen))
        best = agreed if len(agreed) > len(best) else best
solution = fitted(best)

# %%
# The map that was found, beside the one that the second view was made with.
print("found\n", solution[:2].T.round(3), "\nmade with\n", true_map.round(3))
error = np.abs(solution[:2].T - true_map).max()
print(f"{len(best)} regions tracked; the largest error of an entry is {error:.4f}")
assert len(best) >= 20 and error < 0.02

# %%
figure, axes = plt.subplots(1, 2, figsize=(10.5, 4.2))
for ax, found, picture, title in ((axes[0], one, first, "First view"),
                                  (axes[1], two, second, "Second view")):
    found.plot(ax, picture, linewidths=1.2)
    ax.set_title(title)
    ax.set_axis_off()
for ax, places in ((axes[0], a[best[:, 0]]), (axes[1], b[best[:, 1]])):
    ax.scatter(places[:, 1], places[:, 0], 30, np.arange(len(best)), cmap="hsv", edgecolor="white", zorder=3)
figure.tight_layout()

# %%
# Dots of one colour are one region, seen twice.
