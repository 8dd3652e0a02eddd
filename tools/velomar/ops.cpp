// The host's table of exports: one entry per export with its parameters,
// defaults (chosen to show the effect on a photograph) and accepted layouts.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <stdexcept>

#include "host.h"
#include "velomar.h"

namespace host {

namespace {

using Values = std::vector<double>;

// A raw-form call: the body receives Src, Dest, Width, Height, Stride and the
// parameter values.
template <class F>
auto Raw(F body) {
    return [body](const Image& s, Image& d, const Values& v) {
        body(s.data(), d.data(), s.width, s.height, s.stride, v);
        return 0;
    };
}

// A Matrix record over a host image's pixels.
Matrix AsMatrix(const Image& image) {
    return Matrix{image.width, image.height, image.stride, image.channels, DEPTH_8U,
                  const_cast<unsigned char*>(image.data()), 0};
}

// A Matrix-form call taking Src and Dest; returns the export's status.
template <class F>
auto MatrixForm(F body) {
    return [body](const Image& s, Image& d, const Values& v) {
        Matrix src = AsMatrix(s), dst = AsMatrix(d);
        return int(body(&src, &dst, v));
    };
}

int PadImage(const Image& s, Image& d, const Values& v) {
    Matrix src = AsMatrix(s);
    Matrix* out = nullptr;
    int status = GetPadImage(&src, &out, int(v[0]), int(v[1]), int(v[2]), int(v[3]), int(v[4]));
    if (status != STATUS_OK) return status;
    d = Image(out->Width, out->Height, out->Channel);
    for (int y = 0; y < out->Height; ++y)
        std::copy_n(out->Data + size_t(y) * out->WidthStep, size_t(out->Width) * out->Channel,
                    d.data() + size_t(y) * d.stride);
    VL_FreeMatrix(&out);
    return STATUS_OK;
}

// The motion kernel as a grey picture: each weight scaled so that the largest
// is white, every kernel cell an 8 x 8 block. Status 4 when the export refuses
// the parameters.
int MotionKernelPicture(const Image&, Image& d, const Values& v) {
    const int side = GetMotionArray(nullptr, int(v[0]), v[1]);
    if (side == 0) return STATUS_INVALID_PARAMETER;
    std::vector<int32_t> kernel(size_t(side) * side);
    GetMotionArray(kernel.data(), int(v[0]), v[1]);
    const int32_t peak = std::max(1, *std::max_element(kernel.begin(), kernel.end()));
    constexpr int kCell = 8;
    d = Image(side * kCell, side * kCell, 1);
    for (int y = 0; y < d.height; ++y)
        for (int x = 0; x < d.width; ++x)
            d.data()[size_t(y) * d.stride + x] =
                uint8_t(int64_t(kernel[size_t(y / kCell) * side + x / kCell]) * 255 / peak);
    return STATUS_OK;
}

// Runs a raw-form body on a grey image re-packed with Stride equal to Width
// (for exports that need unpadded single-channel rows).
template <class F>
auto Unpadded(F body) {
    return [body](const Image& s, Image& d, const Values& v) {
        if (s.channels != 1 || s.stride == s.width) {
            body(s.data(), d.data(), s.width, s.height, s.stride, v);
            return 0;
        }
        std::vector<uint8_t> in(size_t(s.width) * s.height), out(in.size());
        for (int y = 0; y < s.height; ++y)
            std::copy_n(s.data() + size_t(y) * s.stride, s.width, in.data() + size_t(y) * s.width);
        out = in;
        body(in.data(), out.data(), s.width, s.height, s.width, v);
        for (int y = 0; y < s.height; ++y)
            std::copy_n(out.data() + size_t(y) * s.width, s.width, d.data() + size_t(y) * d.stride);
        return 0;
    };
}

// The kernels the convolution exports can be shown with: box 5x5, binomial
// 9x9, 3x3 sharpen and emboss (symmetric ones give the same picture through
// correlation and convolution).
constexpr const char* kNamedKernels = "0 box5, 1 gauss9, 2 sharpen3, 3 emboss3";
const Range kNamedKernelIds{kNoLimit, kNoLimit, false, {0, 1, 2, 3}};

template <class F>
auto WithNamedKernel(F convolve) {
    return MatrixForm([convolve](Matrix* s, Matrix* d, const Values& v) {
        const int id = int(v[0]), n = id == 0 ? 5 : id == 1 ? 9 : 3;
        if (id < 0 || id > 3) return VL_Status(STATUS_INVALID_PARAMETER);
        std::vector<float> k(size_t(n) * n, 1.0f);
        const float binomial[9] = {1, 8, 28, 56, 70, 56, 28, 8, 1};
        if (id == 1) for (int i = 0; i < 81; ++i) k[i] = binomial[i / 9] * binomial[i % 9];
        if (id == 2) k = {0, -1, 0, -1, 5, -1, 0, -1, 0};
        if (id == 3) k = {-2, -1, 0, -1, 1, 1, 0, 1, 2};
        Matrix kernel{n, n, 4 * n, 1, DEPTH_32F, reinterpret_cast<unsigned char*>(k.data()), 0};
        return convolve(s, &kernel, d, int(v[1]));
    });
}

// The reference picture for ColorTransfer: warm sunset tones.
const Image& SunsetReference() {
    static const Image reference = [] {
        Image r(64, 64, 3);
        for (int y = 0; y < 64; ++y)
            for (int x = 0; x < 64; ++x) {
                uint8_t* p = r.data() + size_t(y) * r.stride + size_t(x) * 3;
                p[0] = uint8_t(40 + y / 2);            // blue
                p[1] = uint8_t(60 + (x + y) / 2);      // green
                p[2] = uint8_t(150 + x + (y % 8) * 2); // red
            }
        return r;
    }();
    return reference;
}

// The entries of each family in order, the family set on each.
struct FamilyOps {
    const char* family;
    std::vector<Op> ops;
};

std::vector<Op> Grouped(std::vector<FamilyOps> families) {
    std::vector<Op> ops;
    for (FamilyOps& f : families)
        for (Op& op : f.ops) {
            op.family = f.family;
            ops.push_back(std::move(op));
        }
    return ops;
}

// A gamma-corrected copy: the exposures exposure blending is shown with.
Image Exposure(const Image& s, double gamma) {
    Image e = s;
    GammaCorrection(s.data(), e.data(), s.width, s.height, s.stride, gamma);
    return e;
}

// The pictures the exports that take more than one are called with.
void AddReferences(std::vector<Op>& ops) {
    for (Op& op : ops) {
        if (op.name == "ColorTransfer")
            op.references = [](const Image&, const Values&) {
                return std::vector<std::pair<std::string, Image>>{{"reference", SunsetReference()}};
            };
        if (op.name == "HdrBasedOnExposureBlending")
            op.references = [](const Image& s, const Values& v) {
                return std::vector<std::pair<std::string, Image>>{{"for shadows", Exposure(s, v[1])},
                                                                  {"for highlights", Exposure(s, v[2])}};
            };
    }
}

std::vector<Op> BuildOps() {
    const std::string edge = "0 replicate, 1 reflect";
    return Grouped({
        {"Matrix core", {
        {"GetPadImage", "adds borders filled by the edge rule",
         {{"Left", "columns added left"}, {"Right", "columns added right"},
          {"Top", "rows added above"}, {"Bottom", "rows added below"},
          {"EdgeMode", edge}},
         PadImage},
        }},
        {"Point operations", {
        {"Invert", "complements every byte", {},
         MatrixForm([](Matrix* s, Matrix* d, const Values&) { return Invert(s, d); })},
        {"Desaturate", "grey = (max + min) / 2 of the colour bytes", {},
         MatrixForm([](Matrix* s, Matrix* d, const Values&) {
             int r = Desaturate(s, d);  // the last grey level on success
             return (r == 3 || r == 4 || r == 5 || r == 8) ? r : 0;
         })},
        {"GammaCorrection", "power curve 255 (i/255)^Gamma",
         {{"Gamma", "exponent; below 1 brightens"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             GammaCorrection(s, d, w, h, st, v[0]);
         })},
        {"GammaCorrection1", "power curve on Matrix records",
         {{"Gamma", "exponent; above 1 darkens"}},
         MatrixForm([](Matrix* s, Matrix* d, const Values& v) { return GammaCorrection1(s, d, v[0]); })},
        {"Level", "input/output levels with a midtone gamma",
         {{"InputLow", "input black point"},
          {"Gamma", "midtone gamma"},
          {"InputHigh", "input white point"},
          {"OutputLow", "output black"}, {"OutputHigh", "output white"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             Level(s, d, w, h, st, int(v[0]), v[1], int(v[2]), int(v[3]), int(v[4]));
         })},
        {"Posterize", "reduces each channel to a few levels",
         {{"Levels", "levels per channel"}},
         MatrixForm([](Matrix* s, Matrix* d, const Values& v) { return Posterize(s, d, int(v[0])); })},
        {"Threshold", "255 above the threshold, else 0",
         {{"Threshold", "level (colour: against the mean of B, G, R)"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             Threshold(s, d, w, h, st, int(v[0]));
         })},
        {"AdjustBrightnessAndContrast", "brightness offset and contrast stretch",
         {{"Brightness", "offset"}, {"Contrast", "stretch in percent (100: threshold)"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             AdjustBrightnessAndContrast(s, d, w, h, st, int(v[0]), int(v[1]));
         })},
        }},
        {"Histogram auto adjustments, glow, colour transfer", {
        {"AutoLevel", "per-channel stretch between the clipped extremes",
         {{"ClipFraction", "fraction clipped at each end"},
          {"AutoGamma", "1: map the mean to mid-grey"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             AutoLevel(s, d, w, h, st, v[0], uint8_t(v[1]));
         })},
        {"AutoContrast", "one stretch for all channels",
         {{"ClipFraction", "fraction clipped at each end"},
          {"AutoGamma", "1: map the mean to mid-grey"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             AutoContrast(s, d, w, h, st, v[0], uint8_t(v[1]));
         })},
        {"AutoColor", "one stretch from the luminance histogram",
         {{"ClipFraction", "fraction clipped at each end"},
          {"AutoGamma", "1: map the mean to mid-grey"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             AutoColor(s, d, w, h, st, v[0], uint8_t(v[1]));
         })},
        {"HistEqualize", "histogram equalisation", {},
         Raw([](auto s, auto d, int w, int h, int st, const Values&) { HistEqualize(s, d, w, h, st); })},
        {"SoftGlow", "screen-blends a blurred, brightened copy",
         {{"Sigma", "blur radius"}, {"Brightness", "glow brightness"},
          {"Contrast", "glow contrast"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             SoftGlow(s, d, w, h, st, int(v[0]), int(v[1]), int(v[2]));
         })},
        {"Exposal", "solarise: inverts the bright half", {},
         Raw([](auto s, auto d, int w, int h, int st, const Values&) { Exposal(s, d, w, h, st); })},
        {"ColorTransfer", "takes the colour statistics of a warm sunset picture", {},
         Raw([](auto s, auto d, int w, int h, int st, const Values&) {
             const Image& r = SunsetReference();
             ColorTransfer(r.data(), s, d, r.width, r.height, r.stride, w, h, st);
         })},
        }},
        {"Blurs", {
        {"BoxBlur", "truncated mean of the square box",
         {{"Radius", "half-size of the box"}, {"EdgeMode", edge}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             BoxBlur(s, d, w, h, st, int(v[0]), int(v[1]));
         })},
        {"GuassBlur", "recursive Gaussian", {{"Sigma", "standard deviation"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) { GuassBlur(s, d, w, h, st, v[0]); })},
        {"MedianBlur", "percentile of the square box (50: median)",
         {{"Radius", "half-size of the box"}, {"Percent", "rank in percent"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             MedianBlur(s, d, w, h, st, int(v[0]), int(v[1]));
         })},
        {"MotionBlur", "streak along an angle, centred on each pixel",
         {{"Distance", "streak length in pixels"},
          {"Angle", "degrees counter-clockwise"},
          {"EdgeMode", edge}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             MotionBlur(s, d, w, h, st, int(v[0]), v[1], int(v[2]));
         })},
        {"LinearBlur", "one-sided trail: smears the picture toward the angle",
         {{"Distance", "trail length in pixels"},
          {"Angle", "direction in degrees counter-clockwise"},
          {"EdgeMode", edge}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             LinearBlur(s, d, w, h, st, int(v[0]), v[1], int(v[2]));
         })},
        {"GetMotionArray", "the motion blur's line kernel, enlarged (white is the largest weight)",
         {{"Distance", "streak length in pixels"},
          {"Angle", "degrees counter-clockwise"}},
         MotionKernelPicture},
        {"SurfaceBlur", "reserved entry point: leaves the picture as it is",
         {{"Radius", "unused"}, {"Threshold", "unused"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             SurfaceBlur(s, d, w, h, st, int(v[0]), int(v[1]));
         })},
        }},
        {"Edge-preserving smoothing and denoising", {
        {"BilateralFilter", "edge-preserving smoothing by range levels",
         {{"Downsample", "levels at 1/2^k size"},
          {"SigmaSpatial", "spatial extent in 1/255 of the shorter side"},
          {"SigmaRange", "range deviation in grey levels"},
          {"UseGaussian", "1 Gaussian, else box"}},
         Unpadded([](auto s, auto d, int w, int h, int st, const Values& v) {
             BilateralFilter(s, s, d, w, h, st, int(v[0]), v[1], v[2], int(v[3]));
         })},
        {"GuidedFilter", "guided filter with the image as its own guide",
         {{"Radius", "half-size of the box"}, {"Epsilon", "regularisation"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             GuidedFilter(s, s, d, w, h, st, int(v[0]), v[1]);
         })},
        {"BiExponentialEPF", "bi-exponential edge-preserving smoothing",
         {{"Lambda", "reach of the recursion (0 passes the image through)"},
          {"SigmaRange", "range deviation in grey levels"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) { BiExponentialEPF(s, d, w, h, st, v[0], v[1]); })},
        {"RecursiveDomainTransformFilter", "domain-transform smoothing guided by the image itself",
         {{"SigmaS", "spatial scale in pixels"}, {"SigmaR", "range scale in grey levels"},
          {"Iterations", "pass pairs"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             RecursiveDomainTransformFilter(s, s, d, w, h, st, v[0], v[1], int(v[2]));
         })},
        {"SpeckleReducingAnisotropicDiffusion", "speckle-reducing anisotropic diffusion",
         {{"Iterations", "diffusion steps"}, {"Lambda", "time step"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             SpeckleReducingAnisotropicDiffusion(s, d, w, h, st, int(v[0]), v[1]);
         })},
        {"LeeAdditvieNoiseFilter", "Lee filter for additive noise (grey: Dest primed with the box mean)", {{"Radius", "half-size of the box"}, {"NoiseVariance", "0 estimates it"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             // On grey images the filter reads the local mean from Dest.
             if (st / w == 1) BoxBlur(s, d, w, h, st, int(v[0]), EDGE_REFLECT);
             LeeAdditvieNoiseFilter(s, d, w, h, st, int(v[0]), int(v[1]));
         })},
        {"Wiener2", "adaptive Wiener filter",
         {{"Radius", "half-size of the box"}, {"Noise", "noise variance, 0 estimates it"},
          {"EdgeMode", edge}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             Wiener2(s, d, w, h, st, int(v[0]), int(v[1]), int(v[2]));
         })},
        {"ReduceNoise", "steps against the local equalisation",
         {{"Radius", "half-size of the box"}, {"Amount", "strength in percent"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             ReduceNoise(s, d, w, h, st, int(v[0]), int(v[1]));
         })},
        }},
        {"Enhancement", {
        {"AdaptEqualize", "contrast-limited equalisation per tile, blended between tiles",
         {{"TilesX", "tiles across"}, {"TilesY", "tiles down (at least 1)"},
          {"CutLimit", "clip strength 0..1 (0 clips hardest, 1 not at all)"},
          {"Separate", "1: a curve per channel, 0: one joint curve"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             AdaptEqualize(s, d, w, h, st, int(v[0]), int(v[1]), v[2], int(v[3]));
         })},
        {"AdaptAutoLevel", "per-tile, per-channel percentile stretch",
         {{"TilesX", "tiles across"}, {"TilesY", "tiles down (at least 1)"},
          {"CutOff", "fraction discarded at each end"},
          {"Expand", "widens the output range by this share of it"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             AdaptAutoLevel(s, d, w, h, st, int(v[0]), int(v[1]), v[2], v[3]);
         })},
        {"AdaptAutoContrast", "per-tile percentile stretch shared by all channels",
         {{"TilesX", "tiles across"}, {"TilesY", "tiles down (at least 1)"},
          {"CutOff", "fraction discarded at each end"},
          {"Expand", "widens the output range by this share of it"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             AdaptAutoContrast(s, d, w, h, st, int(v[0]), int(v[1]), v[2], v[3]);
         })},
        {"AutoWhiteBalanceUseDynamicThreshold", "white balance from near-white pixels block by block",
         {{"BlockSize", "side of the statistics blocks"},
          {"Global", "1: one test for the whole image from the averaged blocks"},
          {"Squared", "1: squared chroma spread, else absolute"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             AutoWhiteBalanceUseDynamicThreshold(s, d, w, h, st, int(v[0]), uint8_t(v[1]), uint8_t(v[2]));
         })},
        {"AutoWhiteBalanceUseReflectorTheory", "white balance from the brightest pixels",
         {{"Ratio", "percent of the pixels taken as white"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             AutoWhiteBalanceUseReflectorTheory(s, d, w, h, st, int(v[0]));
         })},
        {"AutoWhiteBalanceUseStandardGrayWorldModel", "grey-world white balance (means of the first column)", {},
         Raw([](auto s, auto d, int w, int h, int st, const Values&) {
             AutoWhiteBalanceUseStandardGrayWorldModel(s, d, w, h, st);
         })},
        {"MSRCRGIMP", "multi-scale Retinex per channel",
         {{"Sigma", "largest Gaussian scale"}, {"NScales", "number of scales"},
          {"Dynamic", "deviations mapped onto 0..255"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             MSRCRGIMP(s, d, w, h, st, v[0], int(v[1]), v[2]);
         })},
        {"MSRHSV", "multi-scale Retinex on the HSV value",
         {{"Sigma", "largest Gaussian scale"}, {"NScales", "number of scales"},
          {"Dynamic", "deviations mapped onto 0..255"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             MSRHSV(s, d, w, h, st, v[0], int(v[1]), v[2]);
         })},
        {"HazeRemovalBasedOnDarkChannelPrior", "dark channel prior dehazing with sky detection",
         {{"Scale", "working resolution of the transmission (1 = full size)"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             HazeRemovalBasedOnDarkChannelPrior(s, d, w, h, st, v[0]);
         })},
        {"HazeRemovalBasedOnBoxBlur", "fast dehazing with a box-blurred dark channel",
         {{"Radius", "half-size of the veil's box"}, {"Strength", "veil strength"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             HazeRemovalBasedOnBoxBlur(s, d, w, h, st, int(v[0]), v[1]);
         })},
        {"HazeRemovalBasedonContrastEnhancement", "dehazing by block-wise contrast maximisation",
         {{"BlockSize", "side of the transmission blocks"},
          {"LossWeight", "penalty on values pushed out of 0..255"},
          {"Radius", "guided refinement radius"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             HazeRemovalBasedonContrastEnhancement(s, d, w, h, st, int(v[0]), v[1], int(v[2]));
         })},
        {"HdrBasedOnExposureBlending", "blends gamma-brightened and -darkened copies by exposure",
         {{"Radius", "guided smoothing radius"},
          {"ShadowGamma", kDouble, 0.5, {0, kNoLimit, true, {}}, "gamma of the copy used in the shadows"},
          {"HighlightGamma", kDouble, 1.6, {0, kNoLimit, true, {}}, "gamma of the copy used in the highlights"}},
         [](const Image& s, Image& d, const Values& v) {
             const Image shadows = Exposure(s, v[1]), highlights = Exposure(s, v[2]);
             HdrBasedOnExposureBlending(s.data(), shadows.data(), highlights.data(), d.data(), s.width, s.height,
                                        s.stride, int(v[0]));
             return 0;
         }},
        {"HdrBasedOnGuiderFilter", "compresses the log base layer of a guided filter",
         {{"Radius", "guided filter radius"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             HdrBasedOnGuiderFilter(s, d, w, h, st, int(v[0]));
         })},
        {"LeeContrastEnhancement", "amplifies the difference from the stretched box mean",
         {{"Radius", "half-size of the box"}, {"Amount", "percent of the difference"},
          {"InputLow", "mean stretched from here"}, {"InputHigh", "... to here"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             LeeContrastEnhancement(s, d, w, h, st, int(v[0]), int(v[1]), int(v[2]), int(v[3]));
         })},
        {"DetailEnhanceByEdgePreseveingFilter", "amplifies the detail over a guided-filter base",
         {{"Radius", "guided filter radius"}, {"Amount", "percent of the detail"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             DetailEnhanceByEdgePreseveingFilter(s, d, w, h, st, int(v[0]), int(v[1]));
         })},
        {"LSDContrastEnhancement", "gain set by the local standard deviation",
         {{"Radius", "half-size of the box"}, {"Amount", "percent of the global deviation"},
          {"MaxGain", "largest gain"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             LSDContrastEnhancement(s, d, w, h, st, int(v[0]), int(v[1]), int(v[2]));
         })},
        {"AdaptiveGammaCorrection", "gamma curve from the weighted histogram",
         {{"Alpha", "weighting exponent"}, {"UseHsv", "1: on the HSV value"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             AdaptiveGammaCorrection(s, d, w, h, st, v[0], uint8_t(v[1]));
         })},
        {"DermabrasionFilter", "skin smoothing",
         {{"FilterType", "0 bi-exponential, 1 guided, 2 bilateral, 3 domain transform, 4 Lee"},
          {"ToneMode", "0 logarithmic, 1 parabolic lift"}, {"Level", "strength 0..10"},
          {"ToneAmount", "strength of the lift"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             DermabrasionFilter(s, d, w, h, st, int(v[0]), int(v[1]), int(v[2]), int(v[3]));
         })},
        }},
        {"Frequency domain", {
        {"ShowFFT", "amplitude spectrum, zero frequency at the centre",
         {{"CopyToReal", "1: pixels in the real part too"},
          {"Direction", "0 unscaled, shown / 255; 1 scaled, shown x 255"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             ShowFFT(s, d, w, h, st, uint8_t(v[0]), int(v[1]));
         })},
        {"ShowDCT", "DCT coefficients x 10", {{"Direction", "0 forward, 1 inverse"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) { ShowDCT(s, d, w, h, st, int(v[0])); })},
        {"ShowWALSH", "Walsh-Hadamard coefficients x 2000", {},
         Raw([](auto s, auto d, int w, int h, int st, const Values&) { ShowWALSH(s, d, w, h, st); })},
        {"Conv2", "correlates with a named kernel",
         {{"Kernel", kInt, 2, kNamedKernelIds, kNamedKernels}, {"EdgeMode", edge}}, WithNamedKernel(Conv2)},
        {"FFTConv2", "convolves with a named kernel through the FFT",
         {{"Kernel", kInt, 1, kNamedKernelIds, kNamedKernels}, {"EdgeMode", edge}}, WithNamedKernel(FFTConv2)},
        }},
        {"Local statistics", {
        {"MinValue", "minimum of the box", {{"Radius", "half-size of the box"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) { MinValue(s, d, w, h, st, int(v[0])); })},
        {"MaxValue", "maximum of the box", {{"Radius", "half-size of the box"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) { MaxValue(s, d, w, h, st, int(v[0])); })},
        {"RangeFilter", "maximum minus minimum of the box",
         {{"Radius", "half-size of the box"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) { RangeFilter(s, d, w, h, st, int(v[0])); })},
        {"StdFilter", "standard deviation of the box",
         {{"Radius", "half-size of the box"}, {"EdgeMode", edge}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             StdFilter(s, d, w, h, st, int(v[0]), int(v[1]));
         })},
        {"EntropyFilter", "local entropy stretched to 0..255",
         {{"Radius", "half-size of the box"}, {"EdgeMode", edge}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             EntropyFilter(s, d, w, h, st, int(v[0]), int(v[1]));
         })},
        {"Fragment", "average of displaced copies",
         {{"Count", "copies"}, {"Distance", "displacement in pixels"},
          {"Angle", "rotation in degrees"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             Fragment(s, d, w, h, st, int(v[0]), int(v[1]), v[2]);
         })},
        }},
        {"Sharpening and edges", {
        {"UnsharpMask", "adds back the difference from a Gaussian blur",
         {{"Sigma", "blur deviation"}, {"Amount", "percent"},
          {"Threshold", "smallest difference sharpened"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             UnsharpMask(s, d, w, h, st, v[0], int(v[1]), int(v[2]));
         })},
        {"HighPass", "difference from a Gaussian blur around 128",
         {{"Sigma", "blur deviation"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) { HighPass(s, d, w, h, st, v[0]); })},
        {"SharpenByHistgram", "pushes pixels away from a local rank",
         {{"Radius", "half-size of the box"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             SharpenByHistgram(s, d, w, h, st, int(v[0]));
         })},
        {"FindEdges", "dark Sobel edges on white", {},
         Raw([](auto s, auto d, int w, int h, int st, const Values&) { FindEdges(s, d, w, h, st); })},
        }},
    });
}


// The generated table: every export's parameters, defaults, ranges and
// layouts.
struct TableOp {
    const char* name;
    int layouts;
    std::vector<Param> params;
};

const std::vector<TableOp>& Table() {
    static const std::vector<TableOp> table = {
#include "param_table.inc"
    };
    return table;
}

// The host's entries completed from the generated table: each export's
// layouts, and the type, default and range of each of its parameters, which
// must be all of the export's parameters in the export's order.
std::vector<Op> Complete(std::vector<Op> ops) {
    for (Op& op : ops) {
        const auto entry = std::find_if(Table().begin(), Table().end(),
                                        [&](const TableOp& t) { return op.name == t.name; });
        if (entry == Table().end()) throw std::logic_error("no parameter table entry for " + op.name);
        if (entry->layouts) op.layouts = entry->layouts;  // none: the image is not read
        size_t next = 0;
        for (Param& p : op.params) {
            if (!p.fromTable) continue;
            if (next == entry->params.size() || entry->params[next].name != p.name)
                throw std::logic_error(op.name + ": --" + p.name + " out of the table's order");
            const Param& t = entry->params[next++];
            p.type = t.type, p.value = t.value, p.range = t.range;
        }
        if (next != entry->params.size())
            throw std::logic_error(op.name + ": --" + entry->params[next].name + " missing");
    }
    return ops;
}

}  // namespace

std::string Describe(const Param& p) {
    auto number = [](double v) {
        char text[32];
        std::snprintf(text, sizeof text, "%g", v);
        return std::string(text);
    };
    std::string text;
    if (!p.range.choices.empty()) {
        const bool two = p.range.choices.size() < 3;
        for (double c : p.range.choices) text += (text.empty() ? "" : two ? " or " : ", ") + number(c);
        return two ? text : "one of " + text;
    }
    const bool lo = !std::isnan(p.range.lo), hi = !std::isnan(p.range.hi);
    if (lo && hi) return (p.range.openLo ? "> " + number(p.range.lo) + " and <= " : number(p.range.lo) + "..") +
                         number(p.range.hi);
    if (lo) return (p.range.openLo ? "> " : ">= ") + number(p.range.lo);
    if (hi) return "<= " + number(p.range.hi);
    return p.type == kDouble ? "any finite number" : p.type == kByte ? "0..255" : "any 32-bit integer";
}

bool InRange(const Param& p, double v) {
    if (!p.range.choices.empty())
        return std::find(p.range.choices.begin(), p.range.choices.end(), v) != p.range.choices.end();
    if (!std::isnan(p.range.lo) && (p.range.openLo ? v <= p.range.lo : v < p.range.lo)) return false;
    return std::isnan(p.range.hi) || v <= p.range.hi;
}

std::vector<std::vector<double>> ParameterSets(const Op& op) {
    std::vector<std::vector<double>> sets(1);
    for (const Param& p : op.params) sets[0].push_back(p.value);
    for (size_t k = 0; k < op.params.size(); ++k) {
        const Param& p = op.params[k];
        std::vector<double> others = p.range.choices;
        if (others.empty()) {
            const double v = p.value;
            others = p.type == kDouble ? std::vector<double>{v * 0.37 - 0.5, v * 2.3 + 1.25}
                                       : std::vector<double>{double(int(v) / 3), double(int(v) * 2 + 3)};
        }
        for (double other : others)
            if (other != p.value && InRange(p, other)) {
                sets.push_back(sets[0]);
                sets.back()[k] = other;
            }
    }
    return sets;
}

const std::vector<Op>& Ops() {
    static const std::vector<Op> ops = [] {
        std::vector<Op> all = Complete(BuildOps());
        AddReferences(all);
        return all;
    }();
    return ops;
}

const Op* FindOp(const std::string& name) {
    for (const Op& op : Ops())
        if (op.name == name) return &op;
    return nullptr;
}

int Apply(const Op& op, const Image& src, const std::vector<double>& values, Image& out,
          double& milliseconds) {
    // Alpha the export does not take is set aside and put back unchanged.
    const bool keepAlpha = src.channels == 4 && !(op.layouts & kAlpha);
    Image input = keepAlpha ? ToColour(src) : src;
    if (input.channels == 1 && !(op.layouts & kGrey)) input = ToColour(input);
    if (input.channels == 3 && !(op.layouts & kColour)) input = ToGrey(input);
    out = input;  // unwritten pixels show the source
    const auto start = std::chrono::steady_clock::now();
    int status = op.run(input, out, values);
    milliseconds = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    if (keepAlpha && status == 0 && out.width == src.width && out.height == src.height)
        out = WithAlpha(out, AlphaOf(src));
    return status;
}

}  // namespace host
