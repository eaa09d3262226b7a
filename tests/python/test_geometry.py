"""Planar figures against SciPy, and against what they must have to do with each other."""
import numpy as np
import pytest
from hypothesis import given, strategies as st
from kipx import geometry
from scipy.spatial import ConvexHull, QhullError
from skimage.measure import EllipseModel, points_in_poly

COORDINATES = st.lists(st.tuples(st.integers(-50, 50), st.integers(-50, 50)), min_size=3, max_size=12)


@given(COORDINATES, st.sampled_from(("i2", "i8", "f4", "f8")))
def test_points(points, dtype):
    array = np.array(points, dtype)
    hull = geometry.convex_hull(array)
    try:
        peer = ConvexHull(array)
    except QhullError:  # all on a line
        assert geometry.area(hull) == 0
        return
    assert {tuple(p) for p in hull.tolist()} <= {tuple(p) for p in array[peer.vertices].tolist()}
    assert geometry.is_convex(hull) and geometry.area(hull) == pytest.approx(peer.volume)
    assert geometry.perimeter(hull) == pytest.approx(peer.area, rel=1e-6)
    assert geometry.points_in_poly(array, hull).all() and not geometry.distance(array, hull).any()
    y, x, radius = geometry.minimum_circle(array)
    away = np.hypot(array[:, 0] - y, array[:, 1] - x)
    assert (away <= radius * (1 + 1e-6)).all() and (away > radius * (1 - 1e-5)).sum() >= 2
    corners = geometry.minimum_rectangle(array)
    turned = [np.ptp(array @ side / np.hypot(*side)) for side in (corners[1] - corners[0], corners[2] - corners[1])]
    assert geometry.area(corners) == pytest.approx(np.prod(turned), rel=1e-5)
    top, left, bottom, right = geometry.bounding_box(array)
    assert [top, left] == array.min(0).tolist() and [bottom, right] == array.max(0).tolist()
    moved = geometry.transform(hull, [[0, 2, 5], [-1, 0, 3]])
    np.testing.assert_allclose(moved, np.c_[2 * hull[:, 1] + 5.0, 3.0 - hull[:, 0]])
    halves = [geometry.clip(hull, box) for box in ((-99, -99, 99, 3), (-99, 3, 99, 99))]
    assert sum(map(geometry.area, halves)) == pytest.approx(peer.volume, rel=1e-5)
    weights = [geometry.area(half) * np.array(geometry.centroid(half)) for half in halves if len(half)]
    whole = peer.volume * np.array(geometry.centroid(hull))
    np.testing.assert_allclose(np.sum(weights, 0), whole, rtol=1e-4, atol=1e-3)


def test_containment_and_ellipses():
    star = np.array([(0, 10), (60, 5), (30, 35), (65, 70), (10, 60)])
    grid = np.argwhere(np.ones((70, 80), bool))
    inside, peer = geometry.points_in_poly(grid, star), points_in_poly(grid, star)
    assert (peer <= inside).all() and (peer != inside).sum() < 20  # the border, which is inside here
    np.testing.assert_array_equal(inside, geometry.distance(grid, star) == 0)
    disc = EllipseModel().predict_xy(np.linspace(0, 2 * np.pi, 400)[:-1], (30, 40, 20, 8, 0.4))
    found = geometry.ellipse(disc)  # on a ring the second moments are twice those of the area
    np.testing.assert_allclose(found, (30, 40, 40 * 2**0.5, 16 * 2**0.5, 0.4), rtol=1e-9)


@pytest.mark.parametrize("function", [getattr(geometry, name) for name in geometry.__all__[:8]])
def test_refused(function):
    for points, kind in (([(1, 2, 3)], ValueError), ("x", TypeError), ([(1, 2), (3,)], TypeError),
                         ([(np.nan, 1)], ValueError), (np.zeros((2, 2), "c8"), TypeError)):
        with pytest.raises(kind, match="kipx.geometry." + function.__name__):
            function(points)
    for call in (lambda: geometry.clip([(0, 0)], [(1,), 2]), lambda: geometry.transform([(0, 0)], "ab")):
        with pytest.raises(TypeError, match="kipx.geometry"):  # what stands beside the points
            call()
