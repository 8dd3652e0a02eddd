// Histogram auto adjustments, soft glow, exposal and colour transfer. The
// table-driven operations are set against cv::LUT on the same image (a floor:
// the look-up alone, without the histogram), HistEqualize on grey against
// cv::equalizeHist.
#include "bench_util.h"
#include "velomar.h"

namespace {

#if VELOMAR_HAVE_OPENCV
void Lut(vbench::Image& s, vbench::Image& d) {
    static cv::Mat lut = [] {
        cv::Mat t(1, 256, CV_8U);
        for (int i = 0; i < 256; ++i) t.at<uint8_t>(i) = uint8_t(255 - i);
        return t;
    }();
    cv::Mat out = vbench::AsMat(d);
    cv::LUT(vbench::AsMat(s), lut, out);
}
#endif

struct Registrar {
    Registrar() {
        using vbench::Image;
        for (int c : {1, 3}) {
            const std::string layout = vbench::LayoutName(c);
            vbench::Register("AutoLevel/" + layout, c, [](Image& s, Image& d) {
                AutoLevel(s.data(), d.data(), s.width, s.height, s.stride, 0.001, 1);
            });
            vbench::Register("HistEqualize/" + layout, c, [](Image& s, Image& d) {
                HistEqualize(s.data(), d.data(), s.width, s.height, s.stride);
            });
            vbench::Register("Exposal/" + layout, c, [](Image& s, Image& d) {
                Exposal(s.data(), d.data(), s.width, s.height, s.stride);
            });
#if VELOMAR_HAVE_OPENCV
            vbench::RegisterPeer("AutoLevel/" + layout, "cv::LUT", c, Lut);
            vbench::RegisterPeer("Exposal/" + layout, "cv::LUT", c, Lut);
            if (c == 3) vbench::RegisterPeer("HistEqualize/" + layout, "cv::LUT", c, Lut);
#endif
        }
        vbench::Register("AutoContrast/bgr", 3, [](Image& s, Image& d) {
            AutoContrast(s.data(), d.data(), s.width, s.height, s.stride, 0.001, 1);
        });
        vbench::Register("AutoColor/bgr", 3, [](Image& s, Image& d) {
            AutoColor(s.data(), d.data(), s.width, s.height, s.stride, 0.001, 1);
        });
        vbench::Register("SoftGlow/bgr", 3, [](Image& s, Image& d) {
            SoftGlow(s.data(), d.data(), s.width, s.height, s.stride, 10, 10, 20);
        });
        vbench::Register("ColorTransfer/bgr", 3, [](Image& s, Image& d) {
            static Image reference = vbench::MakeImage(3, 640, 480);
            ColorTransfer(reference.data(), s.data(), d.data(), reference.width, reference.height,
                          reference.stride, s.width, s.height, s.stride);
        });
#if VELOMAR_HAVE_OPENCV
        vbench::RegisterPeer("HistEqualize/grey", "cv::equalizeHist", 1, [](Image& s, Image& d) {
            cv::Mat out = vbench::AsMat(d);
            cv::equalizeHist(vbench::AsMat(s), out);
        });
        vbench::RegisterPeer("AutoContrast/bgr", "cv::LUT", 3, Lut);
        vbench::RegisterPeer("AutoColor/bgr", "cv::LUT", 3, Lut);
        // Blur, then a screen blend as two saturating operations.
        vbench::RegisterPeer("SoftGlow/bgr", "cv::GaussianBlur+screen", 3, [](Image& s, Image& d) {
            cv::Mat src = vbench::AsMat(s), out = vbench::AsMat(d), glow, product;
            cv::GaussianBlur(src, glow, cv::Size(), 10);
            cv::multiply(src, glow, product, 1.0 / 255);
            cv::add(src, glow, out);
            cv::subtract(out, product, out);
        });
#endif
    }
} registrar;

}  // namespace
