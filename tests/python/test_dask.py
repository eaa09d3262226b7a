"""Every chunking gives the bits of the whole array; the batch gives the program's files."""
import os
import subprocess

import dask
import dask.array as da
import kipx
import kipx.dask
import numpy as np
import pytest
from hypothesis import given, settings, strategies as st

import layouts

dask.config.set(scheduler="synchronous")


def chunked(draw, image):
    """The image in chunks of any sizes."""
    chunks = []
    for n in image.shape:
        cuts = sorted({draw(st.integers(1, n)), draw(st.integers(1, n)), n})
        chunks.append(tuple(high - low for low, high in zip([0, *cuts], cuts)))
    return da.from_array(image, chunks)


NEEDED = {"muladd": (2.0, 1.0), "mulsub": (2.0, 1.0), "mulrsub": (2.0, 1.0), "convert": ("i2",)}


@pytest.mark.parametrize("name", kipx.dask.POINTWISE)
@given(st.data())
@settings(max_examples=3)
def test_pointwise(name, data):
    image = layouts.numbers(data.draw, "u1", (5, 6, 3)) // 2 + 1
    one = name in ("bitwise_not", "negate", "negateq", "exp", "ln", "sigmoid")
    for rest in ([NEEDED[name]] if name in NEEDED else [()] if one else [(3,), ([3, 4, 5],), "image"]):
        blocks = chunked(data.draw, image)
        others = (chunked(data.draw, image[::-1]),) if rest == "image" else rest
        plain = (image[::-1],) if rest == "image" else rest
        found = getattr(kipx.dask, name)(blocks, *others)
        whole = getattr(kipx, name)(image, *plain)
        assert found.dtype == whole.dtype
        np.testing.assert_array_equal(found.compute(), whole)


FILTERS = [("erode", {}), ("dilate", {"footprint": np.array([[1, 0], [0, 1], [1, 1]])}),
           ("opening", {"footprint": np.ones((2, 4))}), ("closing", {"footprint": np.eye(3), "anchor": (0, 2)}),
           ("white_tophat", {"footprint": np.ones((3, 2))}), ("black_tophat", {}),
           ("morphological_gradient", {}), ("minimum_filter", {"size": (4, 3)}),
           ("maximum_filter", {"size": (1, 5), "anchor": (0, 4)}), ("uniform_filter", {"size": (3, 4)}),
           ("uniform_filter", {"size": 3, "mode": "wrap"}), ("uniform_filter", {"size": 5, "mode": "reflect"}),
           ("gaussian", {"sigma": (0.8, 1.3)}), ("gaussian", {"sigma": 1, "mode": "constant"}),
           ("sepfilter", {"rows": [1, -2, 1], "columns": [1, 3], "mode": "wrap"}), ("firefly", {"size": (3, 5)})]


@pytest.mark.parametrize("name, options", FILTERS)
@given(st.data())
@settings(max_examples=8)
def test_neighbourhoods(name, options, data):
    dtype = "f4" if name in ("gaussian", "sepfilter", "dilate") else "u1"
    image = layouts.numbers(data.draw, dtype, (11, 13, data.draw(st.sampled_from((None, 3)))))
    found = getattr(kipx.dask, name)(chunked(data.draw, image), **options)
    np.testing.assert_array_equal(found.compute(), getattr(kipx, name)(image, **options))


@pytest.mark.parametrize("options", [{"value": 90.5}, {"method": "otsu"}, {"method": "usto"},
                                     {"method": "mean", "size": (5, 4), "offset": -2}], ids=str)
@given(st.data())
@settings(max_examples=6)
def test_thresholds(options, data):
    image = layouts.numbers(data.draw, "u1", (9, 12, data.draw(st.sampled_from((None, 3)))))
    blocks = chunked(data.draw, image)
    np.testing.assert_array_equal(kipx.dask.threshold(blocks, **options).compute(),
                                  kipx.threshold(image, **options))
    np.testing.assert_array_equal(np.ravel(kipx.dask.threshold_otsu(blocks).compute()),
                                  np.ravel(kipx.threshold_otsu(image)))


def test_refused():
    blocks = da.ones((6, 7), dtype="f4", chunks=3)
    for call, kind, words in (
            (lambda: kipx.dask.add(np.ones((2, 2)), 1), TypeError, "expected a dask.array"),
            (lambda: kipx.dask.erode(blocks, roi=np.s_[:2, :2]), TypeError, "roi is given"),
            (lambda: kipx.dask.uniform_filter(blocks, 3), TypeError, "expected integers"),
            (lambda: kipx.dask.add(blocks, da.ones((2, 7), dtype="f4")), ValueError, "expected"),
            (lambda: kipx.dask.erode(blocks.astype("c8")), TypeError, "complex64"),
            (lambda: kipx.dask.mser_files([], "x"), ValueError, "expected one or more"),
            (lambda: kipx.dask.mser_files(["a/x.png", "b/x.tif"], "x"), ValueError, "several are named x")):
        with pytest.raises(kind, match=words):
            call()


def test_a_cluster_writes_the_files_of_the_program(tmp_path):
    """Two worker processes; stopped half-way; then the same bytes as one run of the program."""
    try:
        program = kipx.dask._program()
    except FileNotFoundError:
        pytest.skip("the program is not built")
    from distributed import Client, LocalCluster
    random, paths = np.random.default_rng(8), []
    for k in range(6):
        image = kipx.gaussian(random.integers(0, 256, (60, 70), np.uint8), 3)
        paths.append(tmp_path / f"image{k}.npy")
        np.save(paths[-1], kipx.convert(image, "u1", scale=5, shift=-500))
    (tmp_path / "broken.png").write_bytes(b"no image")
    options = ("--polarity", "dark", "--min-area-px", "20")
    ran = subprocess.run([program, "mser", *map(str, paths), str(tmp_path / "broken.png"), "-o",
                          str(tmp_path / "one"), *options], capture_output=True, text=True)
    assert ran.returncode == 2
    subprocess.run([program, "mser", *map(str, paths[:2]), "-o", str(tmp_path / "two"), *options], check=True,
                   capture_output=True)
    kept = os.stat(tmp_path / "two" / "image1.done").st_mtime_ns
    with LocalCluster(n_workers=2, threads_per_worker=1, processes=True, dashboard_address=None) as cluster:
        with Client(cluster) as client:
            assert len({worker["id"] for worker in client.scheduler_info()["workers"].values()}) == 2
            done = kipx.dask.mser_files([*paths, tmp_path / "broken.png"], tmp_path / "two", client=client,
                                        options=options)
    assert [bool(one.message) for one in done] == [False] * 6 + [True] and "broken.png" in done[-1].message
    assert os.stat(tmp_path / "two" / "image1.done").st_mtime_ns == kept
    one, two = ({path.name: path.read_bytes() for path in (tmp_path / folder).iterdir()} for folder in ("one", "two"))
    assert one == two and len(one) > 20
