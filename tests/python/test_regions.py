"""Component trees and stable regions against scikit-image; lifetimes and leaks."""
import gc
import resource

import kipx
import matplotlib
import numpy as np
import pytest
from hypothesis import given, strategies as st
from kipx import raw
from skimage.measure import regionprops
from skimage.morphology import area_closing, area_opening

matplotlib.use("agg")


def smooth(seed, shape=(40, 50)):
    """Hills and valleys of a few tens of pixels."""
    random = np.random.default_rng(seed)
    coarse = random.normal(0, 1, (shape[0] // 4 + 2, shape[1] // 4 + 2))
    fine = np.kron(coarse, np.ones((4, 4)))[:shape[0], :shape[1]]
    return kipx.convert(kipx.gaussian(fine.astype("f4"), 1.5), "u1", scale=60, shift=128)


@given(st.integers(0, 2**31), st.sampled_from((1, 2)), st.booleans())
def test_tree(seed, connectivity, bright):
    image = smooth(seed)
    tree = kipx.component_tree(image, polarity="bright" if bright else "dark", connectivity=connectivity)
    assert (tree.parent[1:] < np.arange(1, len(tree))).all() and tree.parent[0] == 0
    assert tree.area[0] == image.size and (tree.area[1:] < tree.area[tree.parent[1:]]).all()
    for least in (16, 25, 90):
        peer = area_opening if bright else area_closing
        np.testing.assert_array_equal(tree.reconstruct(keep=tree.area >= least),
                                      peer(image, least, connectivity=connectivity))
    nodes = tree.nodes()
    for node in range(0, len(tree), 7):
        rows, columns = tree.pixels(node).T
        inside = image[rows, columns]
        assert (inside.min() if bright else inside.max()) == tree.level[node]
        assert set(np.unique(nodes[rows, columns])) <= {k for k in range(len(tree)) if k >= node}


@given(st.integers(0, 2**31), st.sampled_from(("dark", "bright", "both")), st.booleans())
def test_stable_regions(seed, polarity, part):
    image = smooth(seed, (60, 70))
    roi = np.s_[7:55, 9:66] if part else None
    found = kipx.mser(image, polarity=polarity, min_area=20, max_area=0.5, roi=roi)
    trees, boxes, paint = found.trees, found.boxes(), np.zeros(image.shape, int)
    assert set(trees) == ({polarity} if polarity != "both" else {"dark", "bright"})
    for i, row in enumerate(found):
        mask = np.zeros(image.shape, np.uint8)
        mask[tuple(found.pixels(i).T)] = 1
        peer, = regionprops(mask)
        for name in found.regions.dtype.names[3:]:
            wanted = peer[name.partition("-")[0]]
            wanted = wanted[int(name[-1])] if name[:-1] == "centroid-" else wanted
            if name == "orientation":  # of a line, so modulo pi; the peer has one for both diagonals
                assert (abs(np.sin(row[name] - wanted)) < 1e-5 or abs(abs(row[name]) - np.pi / 4) < 1e-9
                        or peer.eccentricity < 1e-6)
                continue
            assert row[name] == pytest.approx(wanted, rel=1e-6, abs=2e-6), name
        assert tuple(boxes[i]) == peer.bbox
        tree = trees[row["polarity"]]
        node = np.flatnonzero((tree.area == row["area"]) & (tree.level == row["level"]))
        assert any(np.array_equal(np.sort(found.indices(i)), np.sort(np.ravel_multi_index(
            tree.pixels(k).T, image.shape))) for k in node)
        if roi is not None:
            assert mask[roi].sum() == row["area"]
        np.testing.assert_array_equal(filled(found.polygons(i), image.shape), mask)
    for i in np.argsort(-found["area"], kind="stable"):
        paint[tuple(found.pixels(i).T)] = i + 1
    np.testing.assert_array_equal(found.labels(), paint)


def filled(rings, shape):
    """Pixels inside rings, by the sides that lie to the left of each; every ring is closed."""
    winding = np.zeros((shape[0], shape[1] + 1), int)
    for ring in rings:
        assert (ring[0] == ring[-1]).all()
        for (row, column), (to, _) in zip(ring, ring[1:]):
            winding[int(min(row, to) + 0.5):int(max(row, to) + 0.5), int(column + 0.5)] += 1 if to < row else -1
    return winding.cumsum(1)[:, :-1]


def test_tables_and_drawings():
    found = kipx.mser(smooth(3, (60, 70)))
    frame = found.to_pandas()
    assert len(frame) == len(found) > 3 and list(frame.index) == list(range(1, len(found) + 1))
    np.testing.assert_array_equal(frame[[f"bbox-{k}" for k in range(4)]], found.boxes())
    axes = found.plot(image=smooth(3, (60, 70)))
    assert len(axes.collections[0].get_paths()) == sum(map(len, found.polygons()))


def test_masks_and_bad_input():
    image, mask = smooth(4), np.zeros((40, 50), bool)
    mask[5:30, 6:20] = mask[10:35, 30:45] = True
    tree = kipx.component_tree(image, mask=mask, connectivity=2)
    np.testing.assert_array_equal(tree.nodes() >= 0, mask)
    np.testing.assert_array_equal(kipx.component_tree(image, mask=mask, roi=np.s_[2:33, 3:]).nodes() >= 0,
                                  mask & (np.arange(40) < 33)[:, None])
    for call, kind, words in (
            (lambda: kipx.mser(image.astype("i4")), TypeError, "expected uint8"),
            (lambda: kipx.mser(image[..., None]), ValueError, "rows and columns"),
            (lambda: kipx.mser(image, polarity="grey"), ValueError, "both"),
            (lambda: kipx.mser(image, delta=-1), ValueError, "0 to 255"),
            (lambda: kipx.mser(image, max_area=np.nan), ValueError, "max_area"),
            (lambda: kipx.mser(image, connectivity=8), ValueError, "connectivity"),
            (lambda: kipx.mser(image, mask=mask[1:]), ValueError, "mask"),
            (lambda: kipx.component_tree(image, mask=mask & False), ValueError, "region of interest is empty"),
            (lambda: kipx.component_tree(np.zeros((0, 4), "u1")), ValueError, "at least one"),
            (lambda: tree.reconstruct(keep=[True]), ValueError, "a truth for each"),
            (lambda: kipx.mser(image).tree, ValueError, "trees")):
        with pytest.raises(kind, match=words):
            call()


def test_closing_and_keeping():
    image = smooth(5)
    found = kipx.mser(image, polarity="dark", max_area=1)
    pixels = found.pixels(0)
    held = pixels.copy()
    with found:
        tree = found.tree
    found.close()
    with pytest.raises(ValueError, match="closed"):
        found.trees
    np.testing.assert_array_equal(found.pixels(0), held)  # read before, so it stays
    orphan = kipx.mser(image, max_area=1).trees["bright"]
    gc.collect()
    np.testing.assert_array_equal(orphan.reconstruct(), kipx.component_tree(image, connectivity=2).reconstruct())
    assert len(tree) and (pixels == held).all()


def test_nothing_leaks():
    """Memory of the process, of the thread's environment, and objects stand still over many calls."""
    image = smooth(6)

    def work():
        for _ in range(150):
            kipx.add(image, 3, out=image)
            kipx.gaussian(image, 2)
            kipx.histogram(image)
            kipx.mser(image).trees
            kipx.component_tree(image)
            try:
                kipx.add(image, image[1:])
            except ValueError:
                pass
        gc.collect()
        stack = raw.KipxXEmmstack(raw.environment())
        return (raw.ZuSMEMSTGdrawn(stack), len(gc.get_objects())), resource.getrusage(
            resource.RUSAGE_SELF).ru_maxrss

    work()
    (before, peak), (after, later) = work(), work()
    assert after[0] == before[0] and abs(after[1] - before[1]) < 50
    assert later - peak < 2000  # KiB; 150 trees of this image would be more than that
