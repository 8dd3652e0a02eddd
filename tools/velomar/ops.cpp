// The host's table of exports: one entry per export with its parameters,
// defaults (chosen to show the effect on a photograph) and accepted layouts.
#include <chrono>

#include "host.h"
#include "velomar.h"

namespace host {

namespace {

using Values = std::vector<double>;
constexpr ParamType kInt = ParamType::Int, kDouble = ParamType::Double, kByte = ParamType::Byte;

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

std::vector<Op> BuildOps() {
    const std::string edge = "0 replicate, 1 reflect";
    return {
        // ---- Matrix core
        {"GetPadImage", "adds borders filled by the edge rule", kAnyLayout,
         {{"Left", kInt, 40, "columns added left"}, {"Right", kInt, 40, "columns added right"},
          {"Top", kInt, 40, "rows added above"}, {"Bottom", kInt, 40, "rows added below"},
          {"EdgeMode", kInt, 1, edge}},
         PadImage},
        // ---- Point operations
        {"Invert", "complements every byte", kAnyLayout, {},
         MatrixForm([](Matrix* s, Matrix* d, const Values&) { return Invert(s, d); })},
        {"Desaturate", "grey = (max + min) / 2 of the colour bytes", kColour, {},
         MatrixForm([](Matrix* s, Matrix* d, const Values&) {
             int r = Desaturate(s, d);  // the last grey level on success
             return (r == 3 || r == 4 || r == 5 || r == 8) ? r : 0;
         })},
        {"GammaCorrection", "power curve 255 (i/255)^Gamma", kAnyLayout,
         {{"Gamma", kDouble, 0.6, "exponent; below 1 brightens"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             GammaCorrection(s, d, w, h, st, v[0]);
         })},
        {"GammaCorrection1", "power curve on Matrix records", kAnyLayout,
         {{"Gamma", kDouble, 1.6, "exponent; above 1 darkens"}},
         MatrixForm([](Matrix* s, Matrix* d, const Values& v) { return GammaCorrection1(s, d, v[0]); })},
        {"Level", "input/output levels with a midtone gamma", kAnyLayout,
         {{"InputLow", kInt, 30, "input black point (0..253)"},
          {"Gamma", kDouble, 1.3, "midtone gamma (0.01..9.99)"},
          {"InputHigh", kInt, 220, "input white point (2..255)"},
          {"OutputLow", kInt, 0, "output black"}, {"OutputHigh", kInt, 255, "output white"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             Level(s, d, w, h, st, int(v[0]), v[1], int(v[2]), int(v[3]), int(v[4]));
         })},
        {"Posterize", "reduces each channel to a few levels", kAnyLayout,
         {{"Levels", kInt, 4, "levels per channel (2..255)"}},
         MatrixForm([](Matrix* s, Matrix* d, const Values& v) { return Posterize(s, d, int(v[0])); })},
        {"Threshold", "255 above the threshold, else 0", kAnyLayout,
         {{"Threshold", kInt, 110, "level (colour: against the mean of B, G, R)"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             Threshold(s, d, w, h, st, int(v[0]));
         })},
        {"AdjustBrightnessAndContrast", "brightness offset and contrast stretch", kAnyLayout,
         {{"Brightness", kInt, 15, "offset"}, {"Contrast", kInt, 30, "stretch in percent (100: threshold)"}},
         Raw([](auto s, auto d, int w, int h, int st, const Values& v) {
             AdjustBrightnessAndContrast(s, d, w, h, st, int(v[0]), int(v[1]));
         })},
    };
}

}  // namespace

const std::vector<Op>& Ops() {
    static const std::vector<Op> ops = BuildOps();
    return ops;
}

const Op* FindOp(const std::string& name) {
    for (const Op& op : Ops())
        if (op.name == name) return &op;
    return nullptr;
}

int Apply(const Op& op, const Image& src, const std::vector<double>& values, Image& out,
          double& milliseconds) {
    Image input = src;
    if (input.channels == 1 && !(op.layouts & kGrey)) input = ToColour(input);
    if (input.channels != 1 && !(op.layouts & kColour)) input = ToGrey(input);
    out = input;  // unwritten pixels show the source
    const auto start = std::chrono::steady_clock::now();
    int status = op.run(input, out, values);
    milliseconds = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    return status;
}

}  // namespace host
