"""Velomar's 8-bit image filters for numpy arrays.

Every export of the C library is a function of the same name, with keyword
parameters named as in include/velomar.h and the host program's defaults:

    import velomar
    soft = velomar.BoxBlur(image, Radius=4)          # a new array
    velomar.MedianBlur(image, Radius=2, out=image)   # the result written into image

Images are uint8 arrays: grey H×W, colour H×W×3 in blue, green, red order
(rgb=True for red, green, blue data), and H×W×4 (alpha last) where the export
takes alpha. Any numpy layout is accepted (views, negative steps, odd
pitches): pixels are handed to the library in a buffer whose row pitch is
exactly Width × channels, so the library always infers the right layout.
Parameters are checked before the call (ValueError names the allowed range);
a Matrix-form status other than 0 raises VelomarError carrying the status
name. The output starts as a copy of the input, so pixels an export leaves
unwritten show the source. velomar.tiles runs neighbourhood filters over
dask arrays tile by tile.
"""
import ctypes
import inspect
import math

import numpy as np

from ._header import EXPORTS, STATUSES
from ._library import Matrix, library
from ._table import LAYOUT_NAMES, NOT_WRAPPED, OPS

__version__ = "0.1.0"
__all__ = ["VelomarError", "library", "Matrix"] + list(OPS)

DEPTH_8U, DEPTH_32F = 0, 4
_CHANNEL_ORDER = {3: [2, 1, 0], 4: [2, 1, 0, 3]}


class VelomarError(RuntimeError):
    """A Matrix-form export returned a failing status; .status is the code,
    .name its VL_STATUS_ name."""

    def __init__(self, export, status):
        self.export, self.status = export, status
        self.name = STATUSES.get(status, f"status {status}")
        super().__init__(f"{export} returned {self.name} ({status})")


def _pixels(export, channels, array, role, rgb):
    """A C-contiguous uint8 copy (or the array itself when already so) in BGR
    order, and its channel count."""
    a = np.asarray(array)
    if a.dtype != np.uint8:
        raise TypeError(f"{export}: {role} must be a uint8 array, got {a.dtype}")
    if a.ndim == 2:
        c = 1
    elif a.ndim == 3 and a.shape[2] in (3, 4):
        c = a.shape[2]
    else:
        raise ValueError(f"{export}: {role} must be H×W, H×W×3 or H×W×4, got shape {a.shape}")
    if c not in channels:
        raise ValueError(f"{export}: {role} is {LAYOUT_NAMES[c]}; accepted: "
                         + ", ".join(LAYOUT_NAMES[k] for k in channels))
    h, w = a.shape[:2]
    if h < 1 or w < 1 or w * c > 2**31 - 1 or h > 2**31 - 1:
        raise ValueError(f"{export}: {role} of {h}×{w} pixels is outside 1..2^31-1 bytes per side")
    if rgb and c > 1:
        a = a[..., _CHANNEL_ORDER[c]]
    return np.ascontiguousarray(a), c


def _finish(export, dest, c, out, rgb):
    if rgb and c > 1:
        dest = dest[..., _CHANNEL_ORDER[c]]
    if out is None:
        return np.ascontiguousarray(dest)
    if not isinstance(out, np.ndarray) or out.dtype != np.uint8 or out.shape != dest.shape:
        raise ValueError(f"{export}: out must be a uint8 array of shape {dest.shape}")
    out[...] = dest
    return out


def _ptr(a):
    return ctypes.c_void_p(a.ctypes.data)


def _matrix(a, c, depth=DEPTH_8U):
    h, w = a.shape[:2]
    return Matrix(w, h, w * c * a.itemsize, c, depth, a.ctypes.data_as(ctypes.POINTER(ctypes.c_ubyte)), 0)


def _tiles_fit(export, w, h, v):
    for n, count, side in (("TilesX", v["TilesX"], w), ("TilesY", v["TilesY"], h)):
        tile = math.ceil(side / count)
        added = tile * count - side
        if added - added // 2 > side:
            raise ValueError(f"{export}: {n} {count} would mirror a border of {added - added // 2} "
                             f"pixels into a side of {side}; use at most {side} tiles with a border "
                             f"no wider than the image")


def _image_rules(export, w, h, v):
    """Checks that depend on the image size (the library writes nothing when
    they fail)."""
    if export in ("AdaptEqualize", "AdaptAutoLevel", "AdaptAutoContrast"):
        _tiles_fit(export, w, h, v)
    elif export == "HazeRemovalBasedOnDarkChannelPrior" and (int(w * v["Scale"]) < 1 or int(v["Scale"] * h) < 1):
        raise ValueError(f"{export}: Scale {v['Scale']} leaves no pixel of a {h}×{w} image")
    elif export == "BilateralFilter" and min(w, h) >> v["Downsample"] < 1:
        raise ValueError(f"{export}: Downsample must be 0..{min(w, h).bit_length() - 1} "
                         f"for a {h}×{w} image, got {v['Downsample']}")


_SHARPEN3 = [[0, -1, 0], [-1, 5, -1], [0, -1, 0]]
_BINOMIAL9 = np.outer(*[np.array([1, 8, 28, 56, 70, 56, 28, 8, 1], np.float32)] * 2)


def _kernel(export, kernel):
    if kernel is None:
        kernel = _SHARPEN3 if export == "Conv2" else _BINOMIAL9
    k = np.ascontiguousarray(kernel, dtype=np.float32)
    if k.ndim != 2 or k.size == 0 or not np.all(np.isfinite(k)):
        raise ValueError(f"{export}: Kernel must be a non-empty 2-D array of finite weights")
    return k


def _call(export, op, args):
    lib = library()
    fn = getattr(lib, export)
    v = {p.name: p.convert(export, args[p.name]) for p in op.params}
    values = [v[p.name] for p in op.params]
    if op.form == "kernel":
        size = fn(None, *values)
        kernel = np.zeros((size, size), np.int32)
        fn(_ptr(kernel), *values)
        return kernel
    rgb, out = bool(args["rgb"]), args["out"]
    first = "Target" if op.form == "transfer" else "Src"
    src, c = _pixels(export, op.channels, args[first], first, rgb)
    h, w = src.shape[:2]
    _image_rules(export, w, h, v)
    if op.form == "pad":
        return _finish(export, _pad(fn, lib, src, c, values), c, out, rgb)
    dest = src.copy()
    if op.form in ("matrix", "conv"):
        sm, dm = _matrix(src, c), _matrix(dest, c)
        if op.form == "conv":
            k = _kernel(export, args["Kernel"])
            km = _matrix(k, 1, DEPTH_32F)
            status = fn(ctypes.byref(sm), ctypes.byref(km), ctypes.byref(dm), *values)
        else:
            status = fn(ctypes.byref(sm), ctypes.byref(dm), *values)
        # Desaturate returns its last grey level on success.
        if status != 0 and not (export == "Desaturate" and status not in (3, 4, 5, 8)):
            raise VelomarError(export, status)
        return _finish(export, dest, c, out, rgb)
    if op.form == "transfer":
        ref, _ = _pixels(export, op.channels, args["Reference"], "Reference", rgb)
        fn(_ptr(ref), _ptr(src), _ptr(dest), ref.shape[1], ref.shape[0], ref.shape[1] * 3, w, h, w * c)
        return _finish(export, dest, c, out, rgb)
    extra = []
    for role in op.images:
        if args[role] is None:
            if role == "Guide":
                extra.append(src)
                continue
            image = np.empty_like(src)
            lib.GammaCorrection(_ptr(src), _ptr(image), w, h, w * c, 0.5 if role == "ForShadows" else 1.6)
        else:
            image, _ = _pixels(export, op.channels, args[role], role, rgb)
            if image.shape != src.shape:
                raise ValueError(f"{export}: {role} must have Src's shape {src.shape}, got {image.shape}")
        extra.append(image)
    if c == 1 and export in ("LeeAdditvieNoiseFilter", "LSDContrastEnhancement"):
        lib.BoxBlur(_ptr(src), _ptr(dest), w, h, w, v["Radius"], 1)
    fn(_ptr(src), *[_ptr(e) for e in extra], _ptr(dest), w, h, w * c, *values)
    return _finish(export, dest, c, out, rgb)


def _pad(fn, lib, src, c, values):
    sm, result = _matrix(src, c), ctypes.POINTER(Matrix)()
    status = fn(ctypes.byref(sm), ctypes.byref(result), *values)
    if status != 0:
        raise VelomarError("GetPadImage", status)
    try:
        m = result.contents
        h, w = m.Height, m.Width
        rows = np.ctypeslib.as_array(m.Data, shape=(h, m.WidthStep))
        padded = rows[:, :w * c].copy()
    finally:
        lib.VL_FreeMatrix(ctypes.byref(result))
    return padded.reshape((h, w) + ((c,) if c > 1 else ()))


def _docstring(export, op):
    restype, params, comment = EXPORTS[export]
    proto = f"{restype} {export}({', '.join(f'{t} {n}' for t, n in params)});"
    lines = [comment, "", "C: " + proto, "", "Layouts: " + ", ".join(LAYOUT_NAMES[k] for k in op.channels)
             if op.channels else "Layouts: none (no image)"]
    if op.note:
        lines += ["", op.note]
    if op.params:
        lines += ["", "Parameters (default; allowed):"]
        lines += [f"  {p.name}: {p.default!r}; {p.describe()}" for p in op.params]
    if op.form != "kernel":
        lines += ["", "out: an array of the result's shape to write into (may be the input);",
                  "rgb: True when colour arrays are in red, green, blue order."]
    return "\n".join(lines)


def _make(export, op):
    P = inspect.Parameter
    sig = []
    if op.form == "transfer":
        sig += [P("Reference", P.POSITIONAL_OR_KEYWORD), P("Target", P.POSITIONAL_OR_KEYWORD)]
    elif op.form != "kernel":
        sig.append(P("Src", P.POSITIONAL_OR_KEYWORD))
    if op.form == "conv":
        sig.append(P("Kernel", P.POSITIONAL_OR_KEYWORD, default=None))
    sig += [P(i, P.POSITIONAL_OR_KEYWORD, default=None) for i in op.images]
    sig += [P(p.name, P.POSITIONAL_OR_KEYWORD, default=p.default) for p in op.params]
    if op.form != "kernel":
        sig += [P("out", P.KEYWORD_ONLY, default=None), P("rgb", P.KEYWORD_ONLY, default=False)]
    signature = inspect.Signature(sig)

    def wrapper(*args, **kwargs):
        bound = signature.bind(*args, **kwargs)
        bound.apply_defaults()
        return _call(export, op, bound.arguments)

    wrapper.__name__ = wrapper.__qualname__ = export
    wrapper.__signature__ = signature
    wrapper.__doc__ = _docstring(export, op)
    return wrapper


for _name, _op in OPS.items():
    globals()[_name] = _make(_name, _op)
del _name, _op
