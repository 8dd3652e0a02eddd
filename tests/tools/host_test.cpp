// The velomar host: argument errors, and end-to-end runs through files.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <fstream>
#include <sstream>

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

    // A small colour test picture written to disk.
    std::string WriteInput(host::Image& image) {
        image = host::Image(23, 17, 3);
        for (int y = 0; y < 17; ++y)
            for (int x = 0; x < 69; ++x) image.pixels[y * image.stride + x] = uint8_t(x * 11 + y * 7);
        std::string error, path = Path("in.png");
        EXPECT_TRUE(host::SavePng(path, image, error)) << error;
        return path;
    }

    std::filesystem::path dir_;
};

TEST_F(HostTest, ArgumentErrorsAreReportedWithNonZeroExit) {
    host::Image image;
    const std::string in = WriteInput(image);
    struct Case { std::vector<std::string> args; std::string message; } cases[] = {
        {{}, "usage"},
        {{"frobnicate"}, "unknown command"},
        {{"run"}, "name an export"},
        {{"run", "NoSuchExport", in, Path("o.png")}, "unknown export 'NoSuchExport'"},
        {{"run", "Level", "--Shade", "3", in, Path("o.png")}, "no parameter --Shade"},
        {{"run", "Level", "--InputLow", "dark", in, Path("o.png")}, "bad value 'dark' for --InputLow"},
        {{"run", "Level", "--InputLow", "2.5", in, Path("o.png")}, "expected int"},
        {{"run", "Level", "--Gamma"}, "needs a value"},
        {{"run", "Level", in}, "one input and one output"},
        {{"run", "Level", Path("missing.png"), Path("o.png")}, "cannot read image"},
        {{"gallery", "--out"}, "needs a folder"},
    };
    for (const auto& c : cases) {
        Result r = Cli(c.args);
        EXPECT_NE(r.code, 0) << c.message;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << "stderr was: " << r.err;
    }
    EXPECT_FALSE(std::filesystem::exists(Path("o.png")));
}

TEST_F(HostTest, RunWritesWhatTheExportComputes) {
    host::Image image;
    const std::string in = WriteInput(image), out = Path("out.png");
    Result r = Cli({"run", "Threshold", "--Threshold", "90", in, out});
    ASSERT_EQ(r.code, 0) << r.err;

    host::Image expected = image, written;
    Threshold(image.data(), expected.data(), image.width, image.height, image.stride, 90);
    std::string error;
    ASSERT_TRUE(host::LoadImage(out, written, error)) << error;
    ASSERT_EQ(written.width, 23);
    ASSERT_EQ(written.channels, 3);
    EXPECT_EQ(written.pixels, expected.pixels);
}

TEST_F(HostTest, ListShowsEveryExportWithItsDefaults) {
    Result r = Cli({"list"});
    ASSERT_EQ(r.code, 0);
    for (const host::Op& op : host::Ops()) {
        EXPECT_NE(r.out.find(op.name + "  ("), std::string::npos) << op.name;
        for (const host::Param& p : op.params) EXPECT_NE(r.out.find("--" + p.name), std::string::npos);
    }
    EXPECT_NE(r.out.find("--Gamma <float> = 0.6"), std::string::npos);
}

TEST_F(HostTest, GalleryRunsEveryExportOnEveryImage) {
    host::Image image;
    const std::string in = WriteInput(image);
    Result r = Cli({"gallery", "--out", Path("g"), in});
    ASSERT_EQ(r.code, 0) << r.err;
    std::ifstream html(Path("g/index.html"));
    std::stringstream page;
    page << html.rdbuf();
    for (const host::Op& op : host::Ops()) {
        EXPECT_TRUE(std::filesystem::exists(Path("g/in-" + op.name + ".png"))) << op.name;
        EXPECT_NE(page.str().find("<b>" + op.name + "</b>"), std::string::npos) << op.name;
    }
}

// The header is the one list of exports (the Windows export table is made
// from it): the host's table and the README must name exactly those exports.
TEST(Registration, HostTableAndReadmeNameEveryDeclaredExport) {
    std::set<std::string> declared;
    std::stringstream list(VELOMAR_DECLARED_EXPORTS);
    for (std::string name; std::getline(list, name, ',');) declared.insert(name);
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
    for (const host::Op& op : host::Ops()) EXPECT_TRUE(declared.count(op.name)) << op.name << " is not declared";
}

}  // namespace

