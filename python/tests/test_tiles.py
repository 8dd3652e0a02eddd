"""Tiled dask runs equal the whole-image call byte for byte."""
import numpy as np
import pytest

da = pytest.importorskip("dask.array")

import velomar
from velomar import tiles

from test_binding import picture


def tiled(export, image, chunks, **params):
    d = da.from_array(image, chunks=chunks + ((-1,) if image.ndim == 3 else ()))
    return tiles.map_tiled(export, d, **params).compute(scheduler="synchronous")


CASES = [(name, c) for name in sorted(tiles.REACH) for c in velomar.OPS[name].channels]
PARAMS = {"Wiener2": {"Noise": 40}, "LeeAdditvieNoiseFilter": {"NoiseVariance": 40},
          "MotionBlur": {"Distance": 13, "Angle": 117}, "LinearBlur": {"Distance": 9, "Angle": 250},
          "Conv2": {"Kernel": np.arange(15, dtype=np.float32).reshape(3, 5) - 6}}


@pytest.mark.parametrize("export,channels", CASES, ids=[f"{n}-{c}" for n, c in CASES])
def test_every_tile_exact_export_on_uneven_tiles(export, channels):
    # chunks of 23 and 31 leave small edge tiles; the reach exceeds some of them
    image = picture(channels, 101, 127)
    params = PARAMS.get(export, {})
    want = getattr(velomar, export)(image, **params)
    np.testing.assert_array_equal(tiled(export, image, (23, 31), **params), want)


def test_a_large_image_in_tiles():
    y, x = np.mgrid[0:2000, 0:3000]
    noise = np.random.default_rng(3).integers(0, 256, x.shape)
    image = np.stack([(x * 7 + y * 3) % 256, (x ^ y) % 256, noise], axis=-1).astype(np.uint8)
    for export, params in [("MedianBlur", {"Radius": 6}), ("BoxBlur", {"Radius": 9, "EdgeMode": 0}),
                           ("GuidedFilter", {}), ("MotionBlur", {})]:
        want = getattr(velomar, export)(image, **params)
        np.testing.assert_array_equal(tiled(export, image, (512, 700), **params), want, err_msg=export)


@pytest.mark.parametrize("export,params", [("GuassBlur", {}), ("AutoLevel", {}), ("Wiener2", {}),
                                           ("LeeAdditvieNoiseFilter", {}), ("AdaptEqualize", {}),
                                           ("ShowFFT", {})])
def test_global_exports_are_refused(export, params):
    with pytest.raises(ValueError, match="global"):
        tiles.map_tiled(export, da.zeros((64, 64), np.uint8, chunks=32), **params)
