// The velomar host: argument errors, and end-to-end runs through files.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <fstream>
#include <sstream>
#include <tuple>

#include "host.h"
#include "velomar.h"

namespace {

struct Result {
    int code;
    std::string out, err;
};

Result Cli(std::vector<std::string> args) {
    std::ostringstream out, err;
    int code = host::RunCli(args, out, err);
    return {code, out.str(), err.str()};
}

class HostTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = std::filesystem::temp_directory_path() /
               ("velomar-host-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) + "-" +
                ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::create_directories(dir_);
    }
    void TearDown() override { std::filesystem::remove_all(dir_); }
    std::string Path(const std::string& name) const { return (dir_ / name).string(); }

    // The host's fixed picture, 23 x 17, in colour (or with alpha), written to disk.
    std::string WriteInput(host::Image& image, int channels = 3) {
        image = host::Pattern(23, 17, channels);
        std::string error, path = Path("in.png");
        EXPECT_TRUE(host::SavePng(path, image, error)) << error;
        return path;
    }

    std::filesystem::path dir_;
};

TEST_F(HostTest, ArgumentErrorsAreReportedWithNonZeroExit) {
    host::Image image;
    const std::string in = WriteInput(image), o = Path("o.png");
    struct Case { std::vector<std::string> args; std::string message; } cases[] = {
        {{}, "usage"},
        {{"rn"}, "unknown command 'rn' (did you mean 'run'?)"},
        {{"run"}, "name an export"},
        {{"run", "NoSuchExport", in, o}, "unknown export 'NoSuchExport'"},
        {{"help", "medianblr"}, "unknown export 'medianblr' (did you mean 'MedianBlur'?)"},
        {{"run", "MedianBlur", "--Radus", "3", in, o}, "no parameter --Radus (did you mean 'Radius'?)"},
        {{"run", "Level", "--InputLow", "dark", in, o}, "bad value 'dark' for --InputLow (expected int, 0..253)"},
        {{"run", "Level", "--InputLow=2.5", in, o}, "expected int"},
        {{"run", "Level", "--Gamma"}, "needs a value"},
        // Ranges are checked before the call, and the message names them.
        {{"run", "Posterize", "--levels=257", in, o}, "Posterize: --Levels must be 2..255, got 257"},
        {{"run", "GuassBlur", "--Sigma", "0", in, o}, "--Sigma must be > 0 and <= 1000, got 0"},
        {{"run", "Conv2", "--Kernel", "7", in, o}, "--Kernel must be one of 0, 1, 2, 3, got 7"},
        {{"run", "BoxBlur", "--EdgeMode", "2", in, o}, "--EdgeMode must be 0 or 1, got 2"},
        {{"run", "Level", "--quality", "0", in, Path("o.jpg")}, "--quality must be 1..100"},
        {{"run", "Level", in}, "one input and one output"},
        {{"run", "Level", in, Path("o.gif")}, "use .png, .jpg"},
        {{"run", "Level", Path("missing.png"), o}, "cannot read image"},
        {{"run", "Level", "--out-dir", Path("d")}, "needs input files"},
        {{"gallery", "--out"}, "needs a folder"},
    };
    for (const auto& c : cases) {
        Result r = Cli(c.args);
        EXPECT_NE(r.code, 0) << c.message;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << "stderr was: " << r.err;
    }
    EXPECT_FALSE(std::filesystem::exists(o));
    // The library's status is named when a call fails.
    Result r = Cli({"run", "GetPadImage", "--Left", "2147483647", in, o});
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("status 4 (invalid parameter)"), std::string::npos) << r.err;
}

TEST_F(HostTest, VersionAndHelpNameRangesAndDefaults) {
    Result v = Cli({"--version"});
    EXPECT_EQ(v.code, 0);
    EXPECT_EQ(v.out, std::string("velomar ") + VELOMAR_VERSION_STRING + "\n");
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{"help", "medianBLUR"}, {"run", "MedianBlur", "--help"}}) {
        Result r = Cli(args);
        EXPECT_EQ(r.code, 0);
        EXPECT_NE(r.out.find("--Radius <int> = 5  [1..127]"), std::string::npos) << r.out;
        EXPECT_NE(r.out.find("--Percent <int> = 50  [0..100]"), std::string::npos) << r.out;
    }
}

// Names and values in either spelling, formats chosen by the extension, PNG
// on standard output. Many files at once: each written under its own name,
// failures counted and reported, the exit code non-zero when any failed.
TEST_F(HostTest, RunAndBatchWriteEveryFormatAndStandardOutput) {
    host::Image image;
    const std::string in = WriteInput(image);
    host::Image expected = image;
    Threshold(image.data(), expected.data(), image.width, image.height, image.stride, 90);
    std::vector<std::string> batch = {"run", "Threshold", "--Threshold", "90", "--out-dir", Path("out")};
    for (const std::string ext : {".png", ".bmp", ".tga", ".jpg"}) {
        std::filesystem::copy_file(in, Path("a" + ext));
        batch.push_back(Path("a" + ext));
    }
    batch.push_back(Path("missing.png"));
    Result many = Cli(batch);
    EXPECT_EQ(many.code, 1);
    EXPECT_NE(many.out.find("Threshold: 5 files, 1 failed"), std::string::npos) << many.out;
    EXPECT_NE(many.err.find("missing.png"), std::string::npos) << many.err;
    for (const std::string ext : {".png", ".bmp", ".tga", ".jpg"}) {
        Result r = Cli({"run", "threshold", "--THRESHOLD=90", "--quality", "95", in, Path("o" + ext)});
        ASSERT_EQ(r.code, 0) << r.err;
        for (const std::string& name : {"o" + ext, "out/a" + ext}) {
            host::Image written;
            std::string error;
            ASSERT_TRUE(host::LoadImage(Path(name), written, error)) << error;
            ASSERT_EQ(std::make_tuple(written.width, written.height, written.channels), std::make_tuple(23, 17, 3));
            if (ext != ".jpg") {
                EXPECT_EQ(written.pixels, expected.pixels) << name;
            }
        }
    }
    batch.pop_back();
    EXPECT_EQ(Cli(batch).code, 0);
    Result piped = Cli({"run", "Threshold", "--Threshold", "90", in, "-"});
    ASSERT_EQ(piped.code, 0) << piped.err;
    std::ifstream file(Path("o.png"), std::ios::binary);
    EXPECT_EQ(piped.out, std::string(std::istreambuf_iterator<char>(file), {}));
}

// Exports that take four bytes per pixel get the alpha; the others filter
// the colour and carry the alpha through. 16-bit files are reduced, with a
// warning.
TEST_F(HostTest, AlphaIsKeptAndSixteenBitInputWarned) {
    host::Image bgra;
    const std::string in = WriteInput(bgra, 4);
    std::string error;
    for (const std::string op : {"BoxBlur", "GuassBlur"}) {
        ASSERT_EQ(Cli({"run", op, in, Path("b.png")}).code, 0);
        host::Image written, expected = bgra;
        ASSERT_TRUE(host::LoadImage(Path("b.png"), written, error)) << error;
        ASSERT_EQ(written.channels, 4);
        if (op == "BoxBlur") {
            BoxBlur(bgra.data(), expected.data(), bgra.width, bgra.height, bgra.stride, 8, EDGE_REFLECT);
        } else {
            host::Image colour = host::ToColour(bgra), blurred = colour;
            GuassBlur(colour.data(), blurred.data(), colour.width, colour.height, colour.stride, 4);
            expected = host::WithAlpha(blurred, host::AlphaOf(bgra));
            for (size_t i = 3; i < bgra.pixels.size(); i += 4) ASSERT_EQ(written.pixels[i], bgra.pixels[i]) << i;
        }
        EXPECT_EQ(written.pixels, expected.pixels) << op;
    }
    std::ofstream(Path("deep.pgm"), std::ios::binary) << "P5\n2 1\n65535\n" << std::string("\x12\x34\xAB\xCD", 4);
    Result r = Cli({"run", "Invert", Path("deep.pgm"), Path("deep.png")});
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.err.find("16 bits per sample: reduced to 8"), std::string::npos) << r.err;
}

// The header is the one list of exports (the Windows export table is made
// from it): the host's table, its list and the README must name exactly those
// exports. The gallery shows every export in its family's section, on every
// image that could be read; every picture the page shows exists.
TEST_F(HostTest, EveryDeclaredExportIsListedShownAndInTheReadme) {
    std::set<std::string> declared;
    std::stringstream names(VELOMAR_DECLARED_EXPORTS);
    for (std::string name; std::getline(names, name, ',');) declared.insert(name);
    ASSERT_GT(declared.size(), 30u);
    std::ifstream file(VELOMAR_README);
    const std::string readme((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    // Record management has no picture to show; Render draws on a Windows device.
    const std::set<std::string> notInHost = {"VL_CreateMatrix", "VL_FreeMatrix", "Render"};
    for (const std::string& name : declared) {
        EXPECT_NE(readme.find("`" + name + "`"), std::string::npos) << name << " is not in the README";
        if (!notInHost.count(name)) {
            EXPECT_NE(host::FindOp(name), nullptr) << name << " is not in the host table";
        }
    }
    Result list = Cli({"list"});
    ASSERT_EQ(list.code, 0);
    EXPECT_NE(list.out.find("--Gamma <float> = 0.6"), std::string::npos);
    host::Image image;
    const std::string in = WriteInput(image);
    // An input that cannot be read fails the run and is not counted.
    Result r = Cli({"gallery", "--out", Path("g"), in, Path("missing.png")});
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.out.find(" exports on 1 of 2 images (1 failed)"), std::string::npos) << r.out;
    std::ifstream html(Path("g/index.html"));
    const std::string page((std::istreambuf_iterator<char>(html)), std::istreambuf_iterator<char>());
    for (const host::Op& op : host::Ops()) {
        EXPECT_TRUE(declared.count(op.name)) << op.name << " is not declared";
        EXPECT_NE(list.out.find(op.name + "  ("), std::string::npos) << op.name;
        for (const host::Param& p : op.params) EXPECT_NE(list.out.find("--" + p.name), std::string::npos);
        EXPECT_TRUE(std::filesystem::exists(Path("g/in-" + op.name + ".png"))) << op.name;
        EXPECT_NE(page.find("<h3>" + op.name + "</h3>"), std::string::npos) << op.name;
        EXPECT_NE(page.find("<a href=\"#" + op.name + "\">"), std::string::npos) << op.name << " not in the contents";
    }
    int shown = 0;
    for (size_t at = page.find("src=\""); at != std::string::npos; at = page.find("src=\"", at + 1), ++shown) {
        const std::string file = page.substr(at + 5, page.find('"', at + 5) - at - 5);
        EXPECT_TRUE(std::filesystem::exists(Path("g/" + file))) << file;
    }
    EXPECT_GT(shown, 2 * int(host::Ops().size()));
}

}  // namespace

