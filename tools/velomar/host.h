// The velomar test-bench host: image files in, exports applied, PNGs and a
// gallery page out.
#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace host {

// An 8-bit image in the library's layout: grey, or blue-green-red bytes;
// rows padded to a multiple of 4 bytes.
struct Image {
    int width = 0, height = 0, channels = 0, stride = 0;
    std::vector<uint8_t> pixels;

    Image() = default;
    Image(int w, int h, int c);
    // Rows `stride` bytes apart (at least w * c).
    Image(int w, int h, int c, int stride);
    // A view of stride * h bytes the caller owns (the robustness tests place
    // them between inaccessible pages); a copy of a view owns its bytes.
    static Image View(uint8_t* bytes, int w, int h, int c, int stride);
    Image(const Image& other);
    Image& operator=(const Image& other);
    Image(Image&&) = default;
    Image& operator=(Image&&) = default;

    uint8_t* data() { return view_ ? view_ : pixels.data(); }
    const uint8_t* data() const { return view_ ? view_ : pixels.data(); }

private:
    uint8_t* view_ = nullptr;
};

// Reads PNG, JPEG, BMP, TGA or PNM: grey files stay grey, files with alpha become
// blue-green-red-alpha, everything else blue-green-red. Returns false with a
// reason in `error`; `warning`, when given, is set for 16-bit files (reduced
// to 8 bits).
bool LoadImage(const std::string& path, Image& image, std::string& error, std::string* warning = nullptr);
// Whether SaveImage knows the format `path` names.
bool KnownFormat(const std::string& path);
// Writes the format the extension names (png, jpg/jpeg at `quality`, bmp,
// tga); "-" writes PNG to `stdoutStream`.
bool SaveImage(const std::string& path, const Image& image, std::string& error, int quality = 90,
               std::ostream* stdoutStream = nullptr);
bool SavePng(const std::string& path, const Image& image, std::string& error);
Image ToGrey(const Image& image);
Image ToColour(const Image& image);
// The alpha channel as a grey image (255 where there is none), and a colour
// (or grey) image with alpha added back.
Image AlphaOf(const Image& image);
Image WithAlpha(const Image& image, const Image& alpha);
// A picture with smooth structure and noise from a fixed generator seeded by
// its size (no library random numbers: the same bytes on every platform).
Image Pattern(int w, int h, int c);

enum class ParamType { Int, Double, Byte };
constexpr ParamType kInt = ParamType::Int, kDouble = ParamType::Double, kByte = ParamType::Byte;

// A bound a parameter does not have.
inline constexpr double kNoLimit = std::numeric_limits<double>::quiet_NaN();

// The values a parameter may take: lo .. hi (lo itself excluded when openLo),
// or, when `choices` is not empty, one of them.
struct Range {
    double lo = kNoLimit, hi = kNoLimit;
    bool openLo = false;
    std::vector<double> choices;
};

// One parameter: the host's table names it with its help text, and the
// generated table of every export's parameters (param_table.inc) gives its
// type, default and range; the host's own parameters (ones the export does
// not have) give all of them.
struct Param {
    std::string name;
    ParamType type = kInt;
    double value = 0;  // the default
    Range range;
    std::string help;
    bool fromTable = false;

    Param(std::string name, std::string help) : name(std::move(name)), help(std::move(help)), fromTable(true) {}
    Param(std::string name, ParamType type, double value, Range range, std::string help = "")
        : name(std::move(name)), type(type), value(value), range(std::move(range)), help(std::move(help)) {}
};

// "2..255", "> 0", "0 or 1", ...: the range as the messages name it.
std::string Describe(const Param& param);
// Whether `value` (already of the parameter's type) is in its range.
bool InRange(const Param& param, double value);

enum Layout : int { kGrey = 1, kColour = 2, kAlpha = 4 };

// One export the host knows: its parameters with defaults, the layouts it
// accepts (from the generated table; kAlpha: four bytes per pixel, the
// fourth as alpha), and how to call it. `run` fills `dst` (already a copy of
// `src`, which it may resize) and returns a non-zero status on failure.
struct Op {
    using Run = std::function<int(const Image& src, Image& dst, const std::vector<double>& values)>;
    Op(std::string name, std::string summary, std::vector<Param> params, Run run)
        : name(std::move(name)), summary(std::move(summary)), params(std::move(params)), run(std::move(run)) {}

    std::string name;
    std::string summary;
    std::vector<Param> params;
    Run run;
    int layouts = kGrey | kColour;
    // Whether it takes pictures of `channels` (1, 3 or 4) bytes per pixel.
    bool Takes(int channels) const { return layouts & (channels == 1 ? kGrey : channels == 3 ? kColour : kAlpha); }
    std::string family;
    // The extra pictures the call is made with (a reference, exposures), by
    // name, for showing beside the result.
    std::function<std::vector<std::pair<std::string, Image>>(const Image& src, const std::vector<double>& values)>
        references;
};

const std::vector<Op>& Ops();
// The defaults, then one parameter at a time moved: to each other choice, or
// to a smaller and a larger value within its range.
std::vector<std::vector<double>> ParameterSets(const Op& op);
const Op* FindOp(const std::string& name);

// Applies `op` with `values` (one per parameter, in order) to `src`,
// converting the layout first when the op does not take it. Returns the
// library's status (0 on success) and the milliseconds it took.
int Apply(const Op& op, const Image& src, const std::vector<double>& values, Image& out,
          double& milliseconds);

// The command line: velomar list | run | gallery. Returns the exit code.
int RunCli(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

// Writes DIR/index.html with every op applied to every image.
int WriteGallery(const std::string& dir, const std::vector<std::string>& images, std::ostream& out,
                 std::ostream& err);

// Where the bundled sample images live.
std::string SamplesDir();

}  // namespace host
