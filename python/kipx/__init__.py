"""Kipx for Python: NumPy arrays in, NumPy arrays out, nothing copied on the way.

>>> import numpy as np, kipx
>>> kipx.add(np.array([[10, 100, 200]], np.uint8), 100)
array([[110, 200,  44]], dtype=uint8)

Arrays have rows and columns, and channels in their last axis, or where `channel_axis` says. Sources may be
read-only and have any strides; `out=` writes into an array of yours. Errors are ValueError, TypeError and
MemoryError, each one sentence. The interpreter's lock is released during calls; threads may work at once,
on images that no other call writes meanwhile. `kipx.raw` has every C function by its own name.
"""
from kipx._library import __version__ as __version__, set_simd as set_simd
from kipx import geometry as geometry, raw as raw
from kipx.arithmetic import *  # noqa: F403
from kipx.filters import *  # noqa: F403
from kipx.stable import *  # noqa: F403
from kipx.statistics import *  # noqa: F403
from kipx.trees import *  # noqa: F403
from kipx.values import *  # noqa: F403
