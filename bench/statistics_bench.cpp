// Local statistics filters against OpenCV morphology, and their radius sweeps.
#include "bench_util.h"
#include "velomar.h"

namespace {

struct Registrar {
    Registrar() {
        using vbench::Image;
        for (int c : {1, 3}) {
            const std::string layout = vbench::LayoutName(c);
            for (int r : {1, 5, 10, 20, 50}) {
                const std::string suffix = "/" + layout + "/r" + std::to_string(r);
                vbench::Register("MinValue" + suffix, c, [r](Image& s, Image& d) {
                    MinValue(s.data(), d.data(), s.width, s.height, s.stride, r);
                });
                vbench::Register("MaxValue" + suffix, c, [r](Image& s, Image& d) {
                    MaxValue(s.data(), d.data(), s.width, s.height, s.stride, r);
                });
                vbench::Register("RangeFilter" + suffix, c, [r](Image& s, Image& d) {
                    RangeFilter(s.data(), d.data(), s.width, s.height, s.stride, r);
                });
                vbench::Register("StdFilter" + suffix, c, [r](Image& s, Image& d) {
                    StdFilter(s.data(), d.data(), s.width, s.height, s.stride, r, 1);
                });
                vbench::Register("EntropyFilter" + suffix, c, [r](Image& s, Image& d) {
                    EntropyFilter(s.data(), d.data(), s.width, s.height, s.stride, r, 1);
                });
#if VELOMAR_HAVE_OPENCV
                vbench::RegisterPeer("MinValue" + suffix, "cv::erode", c, [r](Image& s, Image& d) {
                    cv::Mat out = vbench::AsMat(d);
                    cv::erode(vbench::AsMat(s), out,
                              cv::getStructuringElement(cv::MORPH_RECT, cv::Size(2 * r + 1, 2 * r + 1)));
                });
                vbench::RegisterPeer("MaxValue" + suffix, "cv::dilate", c, [r](Image& s, Image& d) {
                    cv::Mat out = vbench::AsMat(d);
                    cv::dilate(vbench::AsMat(s), out,
                               cv::getStructuringElement(cv::MORPH_RECT, cv::Size(2 * r + 1, 2 * r + 1)));
                });
#endif
            }
            vbench::Register("Fragment/" + layout, c, [](Image& s, Image& d) {
                Fragment(s.data(), d.data(), s.width, s.height, s.stride, 4, 10, 45.0);
            });
        }
    }
} registrar;

}  // namespace
