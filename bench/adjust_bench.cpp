// Point operations against cv::LUT, cv::threshold and cv::bitwise_not.
#include "bench_util.h"
#include "velomar.h"

namespace {

struct Registrar {
    Registrar() {
        using vbench::Image;
        for (int c : {1, 3}) {
            std::string layout = vbench::LayoutName(c);
            vbench::Register("GammaCorrection/" + layout, c, [](Image& s, Image& d) {
                GammaCorrection(s.data(), d.data(), s.width, s.height, s.stride, 0.6);
            });
            vbench::Register("Invert/" + layout, c, [c](Image& s, Image& d) {
                Matrix src{s.width, s.height, s.stride, c, DEPTH_8U, s.data(), 0};
                Matrix dst{d.width, d.height, d.stride, c, DEPTH_8U, d.data(), 0};
                Invert(&src, &dst);
            });
            vbench::Register("Threshold/" + layout, c, [](Image& s, Image& d) {
                Threshold(s.data(), d.data(), s.width, s.height, s.stride, 100);
            });
#if VELOMAR_HAVE_OPENCV
            vbench::RegisterPeer("GammaCorrection/" + layout, "cv::LUT", c, [](Image& s, Image& d) {
                static cv::Mat lut = [] {
                    cv::Mat t(1, 256, CV_8U);
                    for (int i = 0; i < 256; ++i) t.at<uint8_t>(i) = uint8_t(255 - i);
                    return t;
                }();
                cv::Mat out = vbench::AsMat(d);
                cv::LUT(vbench::AsMat(s), lut, out);
            });
            vbench::RegisterPeer("Invert/" + layout, "cv::bitwise_not", c, [](Image& s, Image& d) {
                cv::Mat out = vbench::AsMat(d);
                cv::bitwise_not(vbench::AsMat(s), out);
            });
            vbench::RegisterPeer("Threshold/" + layout, "cv::threshold", c, [](Image& s, Image& d) {
                cv::Mat out = vbench::AsMat(d);
                cv::threshold(vbench::AsMat(s), out, 100, 255, cv::THRESH_BINARY);
            });
#endif
        }
    }
} registrar;

}  // namespace
