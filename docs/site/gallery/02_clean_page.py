"""
Clean a scanned page
====================

A photographed page is darker on one side, has dust on it and grain in it. What is wanted is black on white, ready
for reading by machine. Each pixel is compared with the mean of its surroundings, and specks that are too small to
be part of a letter are taken away.
"""
import matplotlib.pyplot as plt
import numpy as np

import kipx

# %%
# A page of our own making. Matplotlib writes the text; the shadow of a hand, dust and grain come on top.
words = ("Regions that stay nearly the same\nover many thresholds are stable.\n"
         "They are found in time linear in\nthe number of pixels, and nested\nlike the levels of a map.")
figure = plt.figure(figsize=(4.6, 2.4), dpi=200)
figure.text(0.06, 0.16, words, fontsize=17, family="serif", linespacing=1.35)
figure.canvas.draw()
clean = np.asarray(figure.canvas.buffer_rgba())[..., 0].copy()
plt.close(figure)

random = np.random.default_rng(3)
rows, columns = np.mgrid[:clean.shape[0], :clean.shape[1]].astype(np.float32)
shadow = 0.45 + 0.5 / (1 + np.exp(-(columns - 0.6 * rows - 120) / 80))
page = kipx.gaussian(clean.astype(np.float32), 1) * shadow + random.normal(0, 4, clean.shape)
dust = kipx.dilate((random.random(clean.shape) < 0.001).astype(np.uint8)) > 0
page = kipx.convert(np.where(dust, page * 0.4, page), np.uint8)

# %%
# One threshold for all of the page does not do: what is light in the shadow is darker than ink in the light.
one = kipx.threshold(page, method="otsu")

# %%
# The mean of 61 x 61 pixels around each does. Ink is 38 grey levels darker than that.
local = kipx.threshold(page, method="mean", size=61, offset=-38)

# %%
# What is left of the dust are specks of a few pixels, fewer than the dot of an i has. The tree of dark regions
# tells the size of each; to keep the nodes of 16 pixels or more is an area opening.
tree = kipx.component_tree(local, polarity="dark", connectivity=2)
done = tree.reconstruct(keep=tree.area >= 16)

# %%
# Against the page before it was spoiled:
ink = clean < 128
for name, result in (("one threshold", one), ("local threshold", local), ("without specks", done)):
    print(f"{name}: {((result == 0) != ink).mean():.2%} of the pixels are wrong")
assert ((done == 0) != ink).mean() < 0.02

# %%
figure, axes = plt.subplots(2, 2, figsize=(9, 5.4))
pictures = (("As it was taken", page), ("One threshold for all", one),
            ("Threshold from the surroundings", local), ("Specks removed", done))
for ax, (title, picture) in zip(axes.flat, pictures):
    ax.imshow(picture, cmap="gray", vmin=0, vmax=255)
    ax.set_title(title)
    ax.set_axis_off()
figure.tight_layout()
