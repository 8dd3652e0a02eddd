"""The binding's table of exports: parameters with the host program's defaults
and their allowed ranges, and the pixel layouts each export accepts. Plain
Python (no numpy), also read by scripts/gen-api.py for the API reference."""
import math

INT32 = (-2**31, 2**31 - 1)
LAYOUT_NAMES = {1: "grey H×W", 3: "colour H×W×3 (BGR)", 4: "H×W×4 (BGR + alpha)"}


class Param:
    """One numeric parameter: ctype 'int32_t', 'double' or 'unsigned char';
    lo/hi bound it (inclusive unless open), choices lists allowed values."""

    def __init__(self, name, ctype, default, lo=None, hi=None, open_lo=False, choices=None):
        self.name, self.ctype, self.default = name, ctype, default
        self.lo, self.hi, self.open_lo, self.choices = lo, hi, open_lo, choices

    def describe(self):
        if self.choices is not None:
            names = [str(c) for c in self.choices]
            return " or ".join(names) if len(names) < 3 else "one of " + ", ".join(names)
        if self.lo is None and self.hi is None:
            return "any finite value" if self.ctype == "double" else "any 32-bit integer"
        if self.hi is None:
            return f"> {self.lo}" if self.open_lo else f">= {self.lo}"
        if self.open_lo:
            return f"> {self.lo} and <= {self.hi}"
        return f"{self.lo}..{self.hi}"

    def convert(self, export, value):
        """The value as the C type wants it, or ValueError naming the range."""
        if isinstance(value, bool) or value is None:
            bad = True
        elif self.ctype == "double":
            try:
                value = float(value)
            except (TypeError, ValueError):
                raise ValueError(f"{export}: {self.name} must be a number, got {value!r}") from None
            bad = not math.isfinite(value)
        else:
            try:
                value = int(value.__index__())
            except (AttributeError, TypeError):
                raise ValueError(f"{export}: {self.name} must be an integer, got {value!r}") from None
            lo, hi = (0, 255) if self.ctype == "unsigned char" else INT32
            bad = not lo <= value <= hi
        if not bad:
            if self.choices is not None:
                bad = value not in self.choices
            else:
                bad = ((self.lo is not None and (value <= self.lo if self.open_lo else value < self.lo))
                       or (self.hi is not None and value > self.hi))
        if bad:
            raise ValueError(f"{export}: {self.name} must be {self.describe()}, got {value!r}")
        return value


class Op:
    """form: 'raw' (Src, Dest, Width, Height, Stride, params), 'matrix'
    (Matrix records, a status), or a special form handled by name. images:
    further image arguments before Dest (Guide, ...); optional ones default to
    the value the host passes."""

    def __init__(self, params=(), channels=(1, 3), form="raw", images=(), note=""):
        self.params, self.channels, self.form = list(params), tuple(channels), form
        self.images, self.note = tuple(images), note

    def signature(self):
        first = {"ColorTransfer": "Reference, Target", "GetMotionArray": ""}
        args = [first.get(self.name, "Src")] if first.get(self.name, "Src") else []
        args += ["Kernel=None"] if self.form == "conv" else []
        args += [f"{i}=None" for i in self.images]
        args += [f"{p.name}={p.default!r}" for p in self.params]
        if self.name != "GetMotionArray":
            args += ["*", "out=None", "rgb=False"]
        return ", ".join(args)


def I(name, default, lo=None, hi=None, **kw):
    return Param(name, "int32_t", default, lo, hi, **kw)


def D(name, default, lo=None, hi=None, **kw):
    return Param(name, "double", default, lo, hi, **kw)


def B(name, default, choices=(0, 1)):
    return Param(name, "unsigned char", default, choices=choices)


def EDGE():
    return I("EdgeMode", 1, choices=(0, 1))


# The recursive Gaussian's largest useful deviation: far beyond it the
# recursion's starting value (the first pixel of each line) fills the picture.
SIGMA_MAX = 1000

GREY_MEAN = ("Grey images: Dest is first filled with the box mean (BoxBlur of Radius, "
             "EDGE_REFLECT), the local mean the export reads from Dest, as the host does.")
TILES = "TilesX and TilesY must also leave a mirrored border no wider than the image."

OPS = {
    # Matrix core
    "GetPadImage": Op([I("Left", 40, 0), I("Right", 40, 0), I("Top", 40, 0), I("Bottom", 40, 0), EDGE()],
                      (1, 3, 4), form="pad", note="Returns a new, larger array."),
    # Point operations
    "Invert": Op([], (1, 3, 4), form="matrix"),
    "Desaturate": Op([], (3, 4), form="matrix"),
    "GammaCorrection": Op([D("Gamma", 0.6, 0, open_lo=True)]),
    "GammaCorrection1": Op([D("Gamma", 1.6, 0, open_lo=True)], form="matrix"),
    "Level": Op([I("InputLow", 30, 0, 253), D("Gamma", 1.3, 0.01, 9.99), I("InputHigh", 220, 2, 255),
                 I("OutputLow", 0, 0, 255), I("OutputHigh", 255, 0, 255)]),
    "Posterize": Op([I("Levels", 4, 2, 255)], form="matrix"),
    "Threshold": Op([I("Threshold", 110, 0, 255)]),
    "AdjustBrightnessAndContrast": Op([I("Brightness", 15, -255, 255), I("Contrast", 30, -100, 100)]),
    # Histogram auto adjustments, glow, colour transfer
    "AutoLevel": Op([D("ClipFraction", 0.005, 0, 0.5), B("AutoGamma", 1)]),
    "AutoContrast": Op([D("ClipFraction", 0.005, 0, 0.5), B("AutoGamma", 1)]),
    "AutoColor": Op([D("ClipFraction", 0.005, 0, 0.5), B("AutoGamma", 1)]),
    "HistEqualize": Op([]),
    "SoftGlow": Op([I("Sigma", 10, 0, SIGMA_MAX), I("Brightness", 20, -255, 255), I("Contrast", 20, -100, 100)], (3,)),
    "Exposal": Op([]),
    "ColorTransfer": Op([], (3,), form="transfer",
                        note="Reference and Target are colour arrays; they may differ in size."),
    # Blurs
    "BoxBlur": Op([I("Radius", 8, 0), EDGE()], (1, 3, 4)),
    "GuassBlur": Op([D("Sigma", 4, 0, SIGMA_MAX, open_lo=True)]),
    "MedianBlur": Op([I("Radius", 5, 1, 127), I("Percent", 50, 0, 100)]),
    "MotionBlur": Op([I("Distance", 24, 0, 1000), D("Angle", 30), EDGE()], (1, 3, 4)),
    "LinearBlur": Op([I("Distance", 24, 0, 1000), D("Angle", 0), EDGE()], (1, 3, 4)),
    "GetMotionArray": Op([I("Distance", 15, 0, 1000), D("Angle", 30)], (), form="kernel",
                         note="Returns the kernel as a Size×Size int32 array."),
    "SurfaceBlur": Op([I("Radius", 5), I("Threshold", 20)], (1, 3, 4),
                      note="Reserved: returns a copy of Src."),
    # Edge-preserving smoothing and denoising
    "BilateralFilter": Op([I("Downsample", 1, 0, 16), D("SigmaSpatial", 4, 0, open_lo=True),
                           D("SigmaRange", 30, 0.5), I("UseGaussian", 1, choices=(0, 1))],
                          images=("Guide",), note="Guide defaults to Src (the plain bilateral filter). "
                          "SigmaRange below 0.5 would make the range levels finer than the grey levels, at a "
                          "cost growing as 1 / SigmaRange."),
    "GuidedFilter": Op([I("Radius", 8, 0), D("Epsilon", 0.01, 0, open_lo=True)], images=("Guide",),
                       note="Guide defaults to Src."),
    "BiExponentialEPF": Op([D("Lambda", 50, 0), D("SigmaRange", 20, 0, open_lo=True)]),
    "LeeAdditvieNoiseFilter": Op([I("Radius", 3, 0, 90), I("NoiseVariance", 0, 0)], note=GREY_MEAN),
    "RecursiveDomainTransformFilter": Op([D("SigmaS", 20, 0, open_lo=True), D("SigmaR", 30, 0, open_lo=True),
                                          I("Iterations", 3, 0, 100)], images=("Guide",),
                                         note="Guide defaults to Src."),
    "SpeckleReducingAnisotropicDiffusion": Op([I("Iterations", 20, 0, 100000), D("Lambda", 0.5, 0, 1)]),
    "Wiener2": Op([I("Radius", 3, 0, 90), I("Noise", 0, 0), EDGE()]),
    "ReduceNoise": Op([I("Radius", 3, 0, 127), I("Amount", 60, 0)]),
    # Enhancement
    "AdaptEqualize": Op([I("TilesX", 8, 1), I("TilesY", 8, 1), D("CutLimit", 0.02, 0, 1),
                         I("Separate", 1, choices=(0, 1))], note=TILES),
    "AdaptAutoLevel": Op([I("TilesX", 8, 1), I("TilesY", 8, 1), D("CutOff", 0.01, 0, 1), D("Expand", 0.5, 0)],
                         note=TILES),
    "AdaptAutoContrast": Op([I("TilesX", 8, 1), I("TilesY", 8, 1), D("CutOff", 0.01, 0, 1),
                             D("Expand", 0.5, 0)], note=TILES),
    "AutoWhiteBalanceUseDynamicThreshold": Op([I("BlockSize", 64, 1), B("Global", 0), B("Squared", 0)], (3,)),
    "AutoWhiteBalanceUseReflectorTheory": Op([I("Ratio", 5, 0, 100)], (3,)),
    "AutoWhiteBalanceUseStandardGrayWorldModel": Op([], (3,)),
    "HazeRemovalBasedOnDarkChannelPrior": Op([D("Scale", 0.5, 0, 1, open_lo=True)], (3,),
                                             note="Scale must also leave at least one pixel each way."),
    "HazeRemovalBasedOnBoxBlur": Op([I("Radius", 20, 0), D("Strength", 1.5, 0)], (3,)),
    "HazeRemovalBasedonContrastEnhancement": Op([I("BlockSize", 32, 1), D("LossWeight", 5, 0), I("Radius", 40, 0)],
                                                (3,)),
    "MSRCRGIMP": Op([D("Sigma", 90, 0, SIGMA_MAX, open_lo=True), I("NScales", 3, 1, 64), D("Dynamic", 2, 0, open_lo=True)]),
    "MSRHSV": Op([D("Sigma", 90, 0, SIGMA_MAX, open_lo=True), I("NScales", 3, 1, 64), D("Dynamic", 2, 0, open_lo=True)], (3,)),
    "HdrBasedOnExposureBlending": Op([I("Radius", 8, 0)], images=("ForShadows", "ForHighlights"),
                                     note="ForShadows and ForHighlights default to GammaCorrection of Src "
                                          "with Gamma 0.5 and 1.6, as the host makes them."),
    "HdrBasedOnGuiderFilter": Op([I("Radius", 16, 0)], (3,)),
    "AdaptiveGammaCorrection": Op([D("Alpha", 0.5, 0), B("UseHsv", 1)]),
    "LeeContrastEnhancement": Op([I("Radius", 10, 0, 90), I("Amount", 200, 0), I("InputLow", 0, 0, 255),
                                  I("InputHigh", 255, 0, 255)]),
    "LSDContrastEnhancement": Op([I("Radius", 10, 0, 90), I("Amount", 100, 0), I("MaxGain", 3, 0)],
                                 note=GREY_MEAN),
    "DetailEnhanceByEdgePreseveingFilter": Op([I("Radius", 8, 0), I("Amount", 300, 0)]),
    "DermabrasionFilter": Op([I("FilterType", 1, 0, 4), I("ToneMode", 0, choices=(0, 1)), I("Level", 5, 0, 10),
                              I("ToneAmount", 3, 0, 255)]),
    # Frequency domain
    "ShowFFT": Op([B("CopyToReal", 1), I("Direction", 0, choices=(0, 1))]),
    "ShowDCT": Op([I("Direction", 0, choices=(0, 1))]),
    "ShowWALSH": Op([]),
    "Conv2": Op([EDGE()], form="conv",
                note="Kernel: a 2-D array of weights (default the host's 3×3 sharpen kernel)."),
    "FFTConv2": Op([EDGE()], form="conv",
                   note="Kernel: a 2-D array of weights (default the host's 9×9 binomial kernel)."),
    # Local statistics
    "MinValue": Op([I("Radius", 3, 0)]),
    "MaxValue": Op([I("Radius", 3, 0)]),
    "RangeFilter": Op([I("Radius", 2, 0)]),
    "StdFilter": Op([I("Radius", 3, 0, 90), EDGE()]),
    "EntropyFilter": Op([I("Radius", 4, 0, 127), EDGE()]),
    "Fragment": Op([I("Count", 4, 1, 1000), I("Distance", 8, 0), D("Angle", 45)], (1, 3, 4)),
    # Sharpening and edges
    "UnsharpMask": Op([D("Sigma", 2, 0, SIGMA_MAX, open_lo=True), I("Amount", 80, 0), I("Threshold", 3, 0, 255)]),
    "HighPass": Op([D("Sigma", 6, 0, SIGMA_MAX, open_lo=True)]),
    "SharpenByHistgram": Op([I("Radius", 3, 0, 127)]),
    "FindEdges": Op([], (1, 3, 4)),
}
for _name, _op in OPS.items():
    _op.name = _name

NOT_WRAPPED = {
    "VL_CreateMatrix": "not wrapped: numpy arrays hold the pixels (the binding builds Matrix records over "
                       "them); reach it through `velomar.library()` if needed.",
    "VL_FreeMatrix": "not wrapped: `GetPadImage` releases the record it receives; reach it through "
                     "`velomar.library()` if needed.",
}
