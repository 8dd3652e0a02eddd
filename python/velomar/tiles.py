"""Neighbourhood filters over dask arrays, tile by tile.

map_tiled(export, image, **parameters) runs a Velomar export on every chunk of
a dask array with dask.array.map_overlap: each chunk is extended by the
export's reach (the farthest input pixel an output pixel depends on) from its
neighbours, and not extended at the true image edges, where the library's own
border rule (replicate, reflect or clipping) acts exactly as on the whole
image. The extension is trimmed afterwards, so the tiled result equals the
whole-image call byte for byte.

Tile-exact exports (finite neighbourhoods), with their reach:
  reach 0 (per pixel): Invert, Desaturate, GammaCorrection, GammaCorrection1,
      Level, Posterize, Threshold, Exposal
  Radius: BoxBlur, MedianBlur, MinValue, MaxValue, RangeFilter, StdFilter,
      SharpenByHistgram, ReduceNoise, LeeContrastEnhancement;
      Wiener2 and LeeAdditvieNoiseFilter only with a given noise variance
      (Noise / NoiseVariance above 0; 0 estimates it from the whole image)
  2 × Radius (box means of box means): GuidedFilter,
      DetailEnhanceByEdgePreseveingFilter
  Distance: Fragment; Distance + 2: MotionBlur, LinearBlur
  1: FindEdges
  the kernel's larger side: Conv2

Global exports are refused (ValueError), since every output pixel depends on
the whole image or on a grid fixed to the image: histogram and statistics
stretches (AutoLevel, AutoContrast, AutoColor, HistEqualize,
AdjustBrightnessAndContrast, EntropyFilter, AdaptiveGammaCorrection,
LSDContrastEnhancement, ColorTransfer, the white balances, MSRCRGIMP, MSRHSV,
the haze removals, HdrBasedOnGuiderFilter), recursive blurs and everything
built on them (GuassBlur, UnsharpMask, HighPass, SoftGlow, BiExponentialEPF,
RecursiveDomainTransformFilter, DermabrasionFilter), the bilateral filter's
levels, diffusion (SpeckleReducingAnisotropicDiffusion), tile grids
(AdaptEqualize, AdaptAutoLevel, AdaptAutoContrast), transforms (ShowFFT,
ShowDCT, ShowWALSH, FFTConv2), HdrBasedOnExposureBlending (three images), and
those that are not filters (GetPadImage, GetMotionArray, SurfaceBlur).
"""
import inspect

import velomar

_radius = lambda a: a["Radius"]
REACH = {
    **{name: (lambda a: 0) for name in ("Invert", "Desaturate", "GammaCorrection", "GammaCorrection1", "Level",
                                        "Posterize", "Threshold", "Exposal")},
    **{name: _radius for name in ("BoxBlur", "MedianBlur", "MinValue", "MaxValue", "RangeFilter", "StdFilter",
                                  "SharpenByHistgram", "ReduceNoise", "LeeContrastEnhancement")},
    "Wiener2": lambda a: a["Radius"] if a["Noise"] > 0 else None,
    "LeeAdditvieNoiseFilter": lambda a: a["Radius"] if a["NoiseVariance"] > 0 else None,
    "GuidedFilter": lambda a: 2 * a["Radius"],
    "DetailEnhanceByEdgePreseveingFilter": lambda a: 2 * a["Radius"],
    "Fragment": lambda a: a["Distance"],
    "MotionBlur": lambda a: a["Distance"] + 2,
    "LinearBlur": lambda a: a["Distance"] + 2,
    "FindEdges": lambda a: 1,
    "Conv2": lambda a: max(velomar._kernel("Conv2", a["Kernel"]).shape),
}


def reach(export, **parameters):
    """The overlap map_tiled gives the export with these parameters, or
    ValueError for a global export."""
    fn = getattr(velomar, export, None)
    if fn is None or export not in velomar.OPS:
        raise ValueError(f"{export} is not a Velomar export")
    try:
        bound = inspect.signature(fn).bind_partial(**parameters)
    except TypeError as e:
        raise ValueError(f"{export}: {e}") from None
    bound.apply_defaults()
    a = bound.arguments
    r = REACH[export](a) if export in REACH else None
    if r is None:
        raise ValueError(f"{export} is global with these parameters (its result depends on the whole "
                         f"image), so tiles cannot reproduce the whole-image result; run it on the whole "
                         f"image. Tile-exact exports: {', '.join(sorted(REACH))}")
    return r


def _at_least(sizes, r):
    merged = []
    for size in sizes:
        if merged and (merged[-1] < r or size < r):
            merged[-1] += size
        else:
            merged.append(size)
    return tuple(merged)


def map_tiled(export, image, **parameters):
    """Runs export over the dask array image (H×W, or H×W×C with the channels
    in one chunk) chunk by chunk; the result equals the whole-image call."""
    import dask.array as da

    if "out" in parameters:
        raise ValueError("map_tiled returns a new dask array; out= is not accepted")
    for p in ("Guide",):
        if parameters.get(p) is not None:
            raise ValueError(f"{export}: map_tiled supports the default {p} (Src) only")
    r = reach(export, **parameters)
    image = da.asarray(image)
    if image.ndim == 3:
        image = image.rechunk({2: -1})
    # Every chunk must hold at least the reach, or its neighbours' extension
    # would have to come from beyond the next chunk: merge smaller ones.
    image = image.rechunk({axis: _at_least(image.chunks[axis], r) for axis in (0, 1)})
    fn = getattr(velomar, export)
    depth = {axis: (r if axis < 2 else 0) for axis in range(image.ndim)}
    return image.map_overlap(lambda block: fn(block, **parameters), depth=depth, boundary="none",
                             trim=True, dtype=image.dtype, meta=image._meta)
