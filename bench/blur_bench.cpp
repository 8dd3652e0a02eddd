// Box and recursive Gaussian blurs against cv::blur and cv::GaussianBlur.
#include "bench_util.h"
#include "velomar.h"

namespace {

struct Registrar {
    Registrar() {
        using vbench::Image;
        for (int c : {1, 3}) {
            const std::string layout = vbench::LayoutName(c);
            for (int r : {1, 5, 10, 50, 100}) {
                const std::string key = "BoxBlur/" + layout + "/r" + std::to_string(r);
                vbench::Register(key, c, [r](Image& s, Image& d) {
                    BoxBlur(s.data(), d.data(), s.width, s.height, s.stride, r, EDGE_REFLECT);
                });
#if VELOMAR_HAVE_OPENCV
                vbench::RegisterPeer(key, "cv::blur", c, [r](Image& s, Image& d) {
                    cv::Mat out = vbench::AsMat(d);
                    cv::blur(vbench::AsMat(s), out, cv::Size(2 * r + 1, 2 * r + 1), cv::Point(-1, -1),
                             cv::BORDER_REFLECT_101);
                });
#endif
            }
            for (double sigma : {0.5, 2.0, 10.0, 50.0}) {
                const std::string key =
                    "GuassBlur/" + layout + "/s" + (sigma == 0.5 ? std::string("0.5") : std::to_string(int(sigma)));
                vbench::Register(key, c, [sigma](Image& s, Image& d) {
                    GuassBlur(s.data(), d.data(), s.width, s.height, s.stride, sigma);
                });
#if VELOMAR_HAVE_OPENCV
                vbench::RegisterPeer(key, "cv::GaussianBlur", c, [sigma](Image& s, Image& d) {
                    const int k = (int(6 * sigma + 1)) | 1;
                    cv::Mat out = vbench::AsMat(d);
                    cv::GaussianBlur(vbench::AsMat(s), out, cv::Size(k, k), sigma, sigma);
                });
#endif
            }
        }
    }
} registrar;

}  // namespace
