// The velomar test-bench host: image files in, exports applied, PNGs and a
// gallery page out.
#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

namespace host {

// An 8-bit image in the library's layout: grey, or blue-green-red bytes;
// rows padded to a multiple of 4 bytes.
struct Image {
    int width = 0, height = 0, channels = 0, stride = 0;
    std::vector<uint8_t> pixels;

    Image() = default;
    Image(int w, int h, int c);
    uint8_t* data() { return pixels.data(); }
    const uint8_t* data() const { return pixels.data(); }
};

// Reads PNG, JPEG or BMP; grey files stay grey, everything else becomes BGR.
// Returns false with a reason in `error`.
bool LoadImage(const std::string& path, Image& image, std::string& error);
bool SavePng(const std::string& path, const Image& image, std::string& error);
Image ToGrey(const Image& image);
Image ToColour(const Image& image);

enum class ParamType { Int, Double, Byte };

struct Param {
    std::string name;
    ParamType type;
    double value;  // the default
    std::string help;
};

enum Layout : int { kGrey = 1, kColour = 2, kAnyLayout = kGrey | kColour };

// One export the host knows: its parameters with defaults, the layouts it
// accepts, and how to call it. `run` fills `dst` (already a copy of `src`,
// which it may resize) and returns a non-zero status on failure.
struct Op {
    std::string name;
    std::string summary;
    int layouts;
    std::vector<Param> params;
    std::function<int(const Image& src, Image& dst, const std::vector<double>& values)> run;
};

const std::vector<Op>& Ops();
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
