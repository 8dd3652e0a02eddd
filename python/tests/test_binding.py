"""The binding against direct ctypes calls, its argument checks and its
handling of numpy layouts."""
import ctypes
import os
import subprocess
import sys

import numpy as np
import pytest

import velomar
from velomar._header import EXPORTS
from velomar._table import OPS

RNG = np.random.default_rng(7)
H, W = 37, 53


def picture(channels, h=H, w=W):
    """Smooth gradients plus noise, so every filter has something to do."""
    y, x = np.mgrid[0:h, 0:w]
    planes = [(x * 5 + y * 3 + 40 * k) % 256 for k in range(channels)]
    noisy = np.stack(planes, axis=-1) + RNG.integers(-20, 21, (h, w, channels))
    a = np.clip(noisy, 0, 255).astype(np.uint8)
    if channels == 4:
        a[..., 3] = RNG.choice([0, 90, 255], (h, w))
    return a[..., 0] if channels == 1 else a


def direct(export, src, images=()):
    """The export called straight through ctypes on a buffer whose rows are
    padded (for colour, so Stride / Width still gives the layout), with the
    header's argument order and the table's defaults."""
    lib = velomar.library()
    c = 1 if src.ndim == 2 else src.shape[2]
    pad = 0 if c == 1 else c - 1  # keeps Stride / Width == c
    stride = W * c + pad

    def padded(a):
        buf = np.zeros((H, stride), np.uint8)
        buf[:, :W * c] = a.reshape(H, W * c)
        return buf

    s = padded(src)
    d = s.copy()
    args = {"Src": s.ctypes.data, "Dest": d.ctypes.data, "Width": W, "Height": H, "Stride": stride}
    args.update({p.name: p.default for p in OPS[export].params})
    keep = [padded(image) if image is not None else s for _, image in images]
    args.update({role: buf.ctypes.data for (role, _), buf in zip(images, keep)})
    if c == 1 and export in ("LeeAdditvieNoiseFilter", "LSDContrastEnhancement"):
        lib.BoxBlur(s.ctypes.data, d.ctypes.data, W, H, stride, args["Radius"], 1)
    getattr(lib, export)(*[args[name] for _, name in EXPORTS[export][1]])
    return d[:, :W * c].reshape(src.shape)


RAW = [(name, c) for name, op in OPS.items() if op.form == "raw" for c in op.channels]


@pytest.mark.parametrize("export,channels", RAW, ids=[f"{n}-{c}" for n, c in RAW])
def test_raw_exports_match_direct_calls(export, channels):
    src = picture(channels)
    images = [(role, None) for role in OPS[export].images]
    if export == "HdrBasedOnExposureBlending":
        images = [("ForShadows", picture(channels)), ("ForHighlights", picture(channels))]
    got = getattr(velomar, export)(src, **{role: image for role, image in images})
    assert got.shape == src.shape and got.dtype == np.uint8
    np.testing.assert_array_equal(got, direct(export, src, images))


def matrix_call(export, src, *extra):
    lib = velomar.library()
    c = 1 if src.ndim == 2 else src.shape[2]
    s = np.ascontiguousarray(src)
    d = s.copy()
    status = getattr(lib, export)(ctypes.byref(velomar._matrix(s, c)), *extra, ctypes.byref(velomar._matrix(d, c)),
                                  *[p.default for p in OPS[export].params])
    return d, status


@pytest.mark.parametrize("export", [n for n, op in OPS.items() if op.form == "matrix"])
def test_matrix_exports_match_direct_calls(export):
    for c in OPS[export].channels:
        src = picture(c)
        want, _ = matrix_call(export, src)
        np.testing.assert_array_equal(getattr(velomar, export)(src), want)


def test_convolutions_pad_and_kernel_match_direct_calls():
    src = picture(3)
    kernel = np.array([[1, 2, 1], [0, 3, 0], [-1, 0, 2], [1, 1, 1]], np.float32)
    for export in ("Conv2", "FFTConv2"):
        km = velomar._matrix(kernel, 1, velomar.DEPTH_32F)
        want, status = matrix_call(export, src, ctypes.byref(km))
        assert status == 0
        np.testing.assert_array_equal(getattr(velomar, export)(src, kernel), want)
    padded = velomar.GetPadImage(src, Left=2, Right=3, Top=1, Bottom=0, EdgeMode=0)
    assert padded.shape == (H + 1, W + 5, 3)
    np.testing.assert_array_equal(padded[1:, 2:-3], src)
    np.testing.assert_array_equal(padded[1:, 0], src[:, 0])  # replicated
    k = velomar.GetMotionArray(Distance=6, Angle=90)
    assert k.shape == (7, 7) and k.sum() == 65536


def test_color_transfer_takes_the_reference_statistics():
    target, reference = picture(3), picture(3, 20, 30)[..., ::-1]
    got = velomar.ColorTransfer(reference, target)
    lib, ref = velomar.library(), np.ascontiguousarray(reference)
    want = target.copy()
    lib.ColorTransfer(ref.ctypes.data, target.ctypes.data, want.ctypes.data, 30, 20, 90, W, H, W * 3)
    np.testing.assert_array_equal(got, want)


BOUNDS = []
for _name, _op in OPS.items():
    for _p in _op.params:
        if _p.choices is not None:
            BOUNDS.append((_name, _p.name, max(_p.choices) + 1))
        elif _p.lo is not None:
            BOUNDS.append((_name, _p.name, _p.lo if _p.open_lo else _p.lo - (1 if _p.ctype != "double" else 0.001)))
        if _p.hi is not None:
            BOUNDS.append((_name, _p.name, _p.hi + (1 if _p.ctype != "double" else 0.001)))


@pytest.mark.parametrize("export,param,value", BOUNDS, ids=[f"{e}.{p}={v}" for e, p, v in BOUNDS])
def test_out_of_range_parameters_raise_before_the_call(export, param, value):
    op = OPS[export]
    args = () if op.form == "kernel" else ((picture(3),) * 2 if op.form == "transfer" else (picture(op.channels[-1]),))
    with pytest.raises(ValueError, match=param):
        getattr(velomar, export)(*args, **{param: value})


@pytest.mark.parametrize("call,error", [
    (lambda: velomar.BoxBlur(picture(1), Radius=2.5), "integer"),
    (lambda: velomar.GuassBlur(picture(1), Sigma=float("nan")), "Sigma"),
    (lambda: velomar.MotionBlur(picture(1), Angle=float("inf")), "Angle"),
    (lambda: velomar.BoxBlur(picture(1), Radius=2**31), "Radius"),
    (lambda: velomar.GuassBlur(picture(4)), "accepted"),  # four bytes into a three-byte filter
    (lambda: velomar.SoftGlow(picture(1)), "accepted"),
    (lambda: velomar.BoxBlur(np.zeros((4, 5, 2), np.uint8)), "H×W"),
    (lambda: velomar.BoxBlur(np.zeros((0, 5), np.uint8)), "pixels"),
    (lambda: velomar.AdaptEqualize(picture(1, 3, 40), TilesY=12), "TilesY"),
    (lambda: velomar.HazeRemovalBasedOnDarkChannelPrior(picture(3, 3, 40), Scale=0.2), "Scale"),
    (lambda: velomar.GuidedFilter(picture(3), Guide=picture(3, 5, 5)), "Guide"),
    (lambda: velomar.BoxBlur(picture(3), out=np.zeros((H, W), np.uint8)), "out"),
])
def test_bad_arguments_raise_value_error(call, error):
    with pytest.raises(ValueError, match=error):
        call()


def test_a_failing_status_raises_with_its_name():
    with pytest.raises(velomar.VelomarError) as e:
        velomar.GetPadImage(picture(1), Left=2**31 - 1)
    assert e.value.name.startswith("VL_STATUS_") and e.value.status != 0 and e.value.name in str(e.value)


@pytest.mark.parametrize("export,params", [("BoxBlur", {"Radius": 2}), ("MedianBlur", {"Radius": 1}),
                                           ("FindEdges", {}), ("Threshold", {})])
def test_views_and_pitches_give_the_contiguous_result(export, params):
    fn = getattr(velomar, export)
    wide = picture(1, H, 4 * W)
    view = wide[:, W:2 * W]  # row pitch 4 W: Stride / Width would say four channels
    before = wide.copy()
    np.testing.assert_array_equal(fn(view, **params), fn(view.copy(), **params))
    fn(view, **params, out=view)  # in place through the view
    np.testing.assert_array_equal(view, fn(before[:, W:2 * W], **params))
    np.testing.assert_array_equal(np.delete(wide, np.s_[W:2 * W], axis=1), np.delete(before, np.s_[W:2 * W], axis=1))
    colour = picture(4)
    for v in (colour[..., :3], colour[::-1, ::2, :3], np.asfortranarray(colour[..., :3])):
        np.testing.assert_array_equal(fn(v, **params), fn(np.ascontiguousarray(v), **params))


def test_rgb_reverses_the_colour_order_and_keeps_alpha_last():
    bgr = picture(3)
    rgb = bgr[..., ::-1]
    for export in ("AutoColor", "HdrBasedOnGuiderFilter", "Desaturate"):
        fn = getattr(velomar, export)
        np.testing.assert_array_equal(fn(rgb, rgb=True), fn(bgr)[..., ::-1])
    bgra = picture(4)
    rgba = bgra[..., [2, 1, 0, 3]]
    np.testing.assert_array_equal(velomar.BoxBlur(rgba, rgb=True), velomar.BoxBlur(bgra)[..., [2, 1, 0, 3]])
    # the order matters to the tone mapping (its intensity weighs green and blue)
    assert not np.array_equal(velomar.HdrBasedOnGuiderFilter(bgr), velomar.HdrBasedOnGuiderFilter(bgr, rgb=True))


def test_help_shows_the_header_comment():
    doc = velomar.GuassBlur.__doc__
    assert EXPORTS["GuassBlur"][2] in doc and "Sigma: 4; > 0" in doc
    assert str(__import__("inspect").signature(velomar.MedianBlur)) == \
        "(Src, Radius=5, Percent=50, *, out=None, rgb=False)"


def test_library_lookup_honours_velomar_library():
    env = dict(os.environ, VELOMAR_LIBRARY="/nonexistent/libvelomar.so.0")
    code = "import numpy, velomar; velomar.BoxBlur(numpy.zeros((2, 2), numpy.uint8))"
    run = subprocess.run([sys.executable, "-c", code], env=env, capture_output=True, text=True)
    assert run.returncode != 0 and "VELOMAR_LIBRARY" in run.stderr and "/nonexistent/" in run.stderr
