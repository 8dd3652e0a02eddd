// Render draws into a memory device context holding a 32-bit DIB section; the
// pixels are read back and compared with the picture (Windows only).
#ifdef _WIN32
#include <windows.h>

#include "common/test_util.h"
#include "velomar.h"

namespace {

constexpr int kW = 5, kH = 4, kStride = 16;  // rows padded to 4 bytes
constexpr int kCanvasW = 16, kCanvasH = 12;
constexpr uint32_t kMarker = 0x00123456;

class Canvas {
public:
    Canvas() {
        BITMAPINFO info{};
        info.bmiHeader.biSize = sizeof(BITMAPINFOHEADER);
        info.bmiHeader.biWidth = kCanvasW;
        info.bmiHeader.biHeight = -kCanvasH;
        info.bmiHeader.biPlanes = 1;
        info.bmiHeader.biBitCount = 32;
        info.bmiHeader.biCompression = BI_RGB;
        dc_ = CreateCompatibleDC(nullptr);
        bitmap_ = CreateDIBSection(dc_, &info, DIB_RGB_COLORS, reinterpret_cast<void**>(&bits_), nullptr, 0);
        old_ = SelectObject(dc_, bitmap_);
        std::fill(bits_, bits_ + kCanvasW * kCanvasH, kMarker);
    }
    ~Canvas() {
        SelectObject(dc_, old_);
        DeleteObject(bitmap_);
        DeleteDC(dc_);
    }
    HDC dc() const { return dc_; }
    bool ok() const { return dc_ && bitmap_ && bits_; }
    uint32_t at(int x, int y) const {
        GdiFlush();
        return bits_[y * kCanvasW + x] & 0xFFFFFF;
    }

private:
    HDC dc_ = nullptr;
    HBITMAP bitmap_ = nullptr;
    HGDIOBJ old_ = nullptr;
    uint32_t* bits_ = nullptr;
};

// Every canvas pixel: inside the kW*sx by kH*sy rectangle at (x0, y0) it must
// be the picture pixel source(x, y) names; outside, the marker.
::testing::AssertionResult Drawn(const Canvas& canvas, const vtest::Image& picture, int x0, int y0, int sx, int sy,
                                 const std::function<std::pair<int, int>(int, int)>& source) {
    for (int y = 0; y < kCanvasH; ++y)
        for (int x = 0; x < kCanvasW; ++x) {
            const bool inside = x >= x0 && x < x0 + kW * sx && y >= y0 && y < y0 + kH * sy;
            uint32_t expected = kMarker;
            if (inside) {
                const auto [px, py] = source((x - x0) / sx, (y - y0) / sy);
                expected = picture.at(px, py) | picture.at(px, py, 1) << 8 | picture.at(px, py, 2) << 16;
            }
            if (canvas.at(x, y) != expected)
                return ::testing::AssertionFailure() << "canvas pixel " << x << "," << y << " is " << std::hex
                                                     << canvas.at(x, y) << ", expected " << expected;
        }
    return ::testing::AssertionSuccess();
}

TEST(Render, DrawsOneToOneStretchedAndMirroredHalftoneOnlyForOne) {
    // Random three-byte pixels in rows padded to kStride.
    const vtest::Image picture = vtest::RandomImage(kW, kH, 3, kStride - 3 * kW);
    const auto same = [](int x, int y) { return std::pair{x, y}; };
    struct Case {
        int destW, destH, srcX, srcY, srcW, srcH, sx, sy;
        bool flipX, flipY;
        std::function<std::pair<int, int>(int, int)> source;
    } cases[] = {
        {0, 0, 0, 0, 0, 0, 1, 1, false, false, same},             // every size from the picture
        {kW, kH, -3, -9, kW, kH, 1, 1, false, false, same},       // negative source corner taken as 0
        {2 * kW, 3 * kH, 0, 0, 0, 0, 2, 3, false, false, same},   // whole-number stretch repeats pixels
        // A mirrored side has a negative destination size: the picture ends at
        // the destination corner, whose pixel shows the first column (or row).
        {0, 0, 0, 0, -kW, 0, 1, 1, true, false, [](int x, int y) { return std::pair{kW - 1 - x, y}; }},
        {0, 0, 0, 0, 0, -kH, 1, 1, false, true, [](int x, int y) { return std::pair{x, kH - 1 - y}; }},
        {0, 0, 0, 0, -kW, -kH, 1, 1, true, true, [](int x, int y) { return std::pair{kW - 1 - x, kH - 1 - y}; }},
    };
    int index = 0;
    for (const Case& c : cases) {
        Canvas canvas;
        ASSERT_TRUE(canvas.ok());
        const int x0 = 3, y0 = 2, cornerX = c.flipX ? x0 + kW - 1 : x0,
                  cornerY = c.flipY ? y0 + kH - 1 : y0;
        const int32_t mode = Render(picture.data(), kW, kH, canvas.dc(), cornerX, cornerY, c.destW, c.destH,
                                    c.srcX, c.srcY, c.srcW, c.srcH, 0);
        EXPECT_EQ(mode, COLORONCOLOR);
        EXPECT_TRUE(Drawn(canvas, picture, x0, y0, c.sx, c.sy, c.source)) << "case " << index;
        ++index;
    }
    // Halftone is used for 1 alone, and the device's mode is restored.
    for (int before : {BLACKONWHITE, COLORONCOLOR, HALFTONE})
        for (uint8_t halftone : {0, 1, 2}) {
            Canvas canvas;
            ASSERT_TRUE(canvas.ok());
            SetStretchBltMode(canvas.dc(), before);
            const int32_t used = Render(picture.data(), kW, kH, canvas.dc(), 0, 0, 0, 0, 0, 0, 0, 0, halftone);
            EXPECT_EQ(used, halftone == 1 ? HALFTONE : COLORONCOLOR) << int(halftone);
            EXPECT_EQ(GetStretchBltMode(canvas.dc()), before) << int(halftone);
            // Drawn 1:1, either mode copies the picture exactly.
            EXPECT_TRUE(Drawn(canvas, picture, 0, 0, 1, 1, same)) << "halftone " << int(halftone);
        }
}

}  // namespace
#endif
