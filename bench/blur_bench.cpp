// Box and recursive Gaussian blurs against cv::blur and cv::GaussianBlur; the
// motion and linear blurs against cv::filter2D with the same line kernel.
#include <vector>

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
            for (double sigma : {0.5, 1.0, 2.0, 5.0, 10.0, 50.0}) {
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
            for (int distance : {10, 40}) {
                const std::string key = "MotionBlur/" + layout + "/d" + std::to_string(distance);
                vbench::Register(key, c, [distance](Image& s, Image& d) {
                    MotionBlur(s.data(), d.data(), s.width, s.height, s.stride, distance, 30, EDGE_REFLECT);
                });
                vbench::Register("LinearBlur/" + layout + "/d" + std::to_string(distance), c,
                                 [distance](Image& s, Image& d) {
                                     LinearBlur(s.data(), d.data(), s.width, s.height, s.stride, distance, 30,
                                                EDGE_REFLECT);
                                 });
#if VELOMAR_HAVE_OPENCV
                const int side = GetMotionArray(nullptr, distance, 30);
                cv::Mat kernel(side, side, CV_32F);
                std::vector<int32_t> weights(size_t(side) * side);
                GetMotionArray(weights.data(), distance, 30);
                for (int i = 0; i < side * side; ++i) kernel.at<float>(i / side, i % side) = weights[i] / 65536.0f;
                vbench::RegisterPeer(key, "cv::filter2D", c, [kernel](Image& s, Image& d) {
                    cv::Mat out = vbench::AsMat(d);
                    cv::filter2D(vbench::AsMat(s), out, -1, kernel, cv::Point(-1, -1), 0, cv::BORDER_REFLECT_101);
                });
#endif
            }
        }
    }
} registrar;

}  // namespace
