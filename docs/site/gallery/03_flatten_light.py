"""
Flatten uneven light
====================

A lamp beside the object makes one side of a picture brighter than the other. Where the objects are small against
the changes of the light, the light can be read from the picture itself, and divided away.
"""
import matplotlib.pyplot as plt
import numpy as np

import kipx

# %%
# Dark grains of one shade on a bright ground, under a lamp at the upper left; 16 bits as from a camera.
random = np.random.default_rng(11)
rows, columns = np.mgrid[:300, :420].astype(np.float32)
scene = np.full(rows.shape, 1, np.float32)
for _ in range(90):
    y, x = random.uniform(0, 300), random.uniform(0, 420)
    turn, long, wide = random.uniform(0, np.pi), random.uniform(5, 9), random.uniform(3, 5)
    u = (columns - x) * np.cos(turn) + (rows - y) * np.sin(turn)
    v = (rows - y) * np.cos(turn) - (columns - x) * np.sin(turn)
    scene[(u / long) ** 2 + (v / wide) ** 2 < 1] = 0.6
light = 9000 / (1 + ((columns - 60) ** 2 + (rows - 40) ** 2) / 300 ** 2)
image = kipx.convert(kipx.gaussian(scene, 1) * light + random.normal(0, 40, scene.shape), np.int16)

# %%
# A closing with an element larger than any grain fills them: what is left is the ground. A wide Gaussian takes the
# corners of the element out of it.
ground = kipx.gaussian(kipx.closing(image, np.ones((25, 25))), 12)

# %%
# The quotient of picture and ground is the same everywhere for the same shade. ``convert`` makes floats of the
# integers, since a quotient of integers would be one; the result is scaled to bytes on the way back.
flat = kipx.div(kipx.convert(image, np.float32), kipx.convert(ground, np.float32))
flat = kipx.convert(flat, np.uint8, scale=200)

# %%
# Now one threshold finds all grains.
level = kipx.threshold_otsu(flat)
grains = kipx.threshold(flat, method="otsu", op="<")
truth = scene < 1
before = kipx.threshold(image, method="otsu", op="<") != 0
print(f"threshold {level:.0f} of 200")
wrong = ((grains > 0) != truth).mean()
print(f"wrong pixels: {(before != truth).mean():.1%} before, {wrong:.1%} after")
assert wrong < 0.03

# %%
figure, axes = plt.subplots(2, 2, figsize=(9, 6.6))
pictures = (("As it was taken", image), ("The light, read from it", ground), ("Flattened", flat),
            ("Grains", grains))
for ax, (title, picture) in zip(axes.flat, pictures):
    ax.imshow(picture, cmap="gray")
    ax.set_title(title)
    ax.set_axis_off()
figure.tight_layout()

# %%
# A row through the middle of both, each as a part of its largest value:
figure, ax = plt.subplots(figsize=(9, 2.6))
ax.plot(image[150] / image.max(), color="tab:gray", label="as it was taken")
ax.plot(flat[150] / flat.max(), color="tab:orange", label="flattened")
ax.set(xlabel="column", xlim=(0, 419), ylim=(0, 1.05))
ax.legend(loc="lower left", ncol=2)
figure.tight_layout()
