// Enhancement: adaptive equalisation on 8 x 8 tiles against OpenCV's CLAHE
// (grey; 1080p is not a whole number of 8 tiles down, so both extend the
// image), and the adaptive stretches on their own.
#include "bench_util.h"
#include "velomar.h"

#if VELOMAR_HAVE_XPHOTO
#include <opencv2/xphoto/white_balance.hpp>
#endif

namespace {

struct Registrar {
    Registrar() {
        using vbench::Image;
        for (int c : {1, 3}) {
            const std::string layout = vbench::LayoutName(c);
            vbench::Register("AdaptEqualize/" + layout + "/8x8", c, [](Image& s, Image& d) {
                AdaptEqualize(s.data(), d.data(), s.width, s.height, s.stride, 8, 8, 0.02, 1);
            });
            vbench::Register("AdaptAutoLevel/" + layout + "/8x8", c, [](Image& s, Image& d) {
                AdaptAutoLevel(s.data(), d.data(), s.width, s.height, s.stride, 8, 8, 0.01, 0.5);
            });
        }
        vbench::Register("AutoWhiteBalanceUseStandardGrayWorldModel/bgr", 3, [](Image& s, Image& d) {
            AutoWhiteBalanceUseStandardGrayWorldModel(s.data(), d.data(), s.width, s.height, s.stride);
        });
        vbench::Register("AutoWhiteBalanceUseReflectorTheory/bgr", 3, [](Image& s, Image& d) {
            AutoWhiteBalanceUseReflectorTheory(s.data(), d.data(), s.width, s.height, s.stride, 5);
        });
        vbench::Register("AutoWhiteBalanceUseDynamicThreshold/bgr", 3, [](Image& s, Image& d) {
            AutoWhiteBalanceUseDynamicThreshold(s.data(), d.data(), s.width, s.height, s.stride, 64, 0, 0);
        });
        // Retinex with three scales, against three Gaussian blurs of the same
        // scales on the same image (its floor).
        for (int c : {1, 3}) {
            const std::string key = std::string("MSRCRGIMP/") + vbench::LayoutName(c) + "/3 scales";
            vbench::Register(key, c, [](Image& s, Image& d) {
                MSRCRGIMP(s.data(), d.data(), s.width, s.height, s.stride, 90, 3, 2);
            });
            vbench::Register(key + " (3 GuassBlur)", c, [](Image& s, Image& d) {
                for (double sigma : {2.0, 32.0, 62.0}) GuassBlur(s.data(), d.data(), s.width, s.height, s.stride, sigma);
            });
        }
        vbench::Register("MSRHSV/bgr/3 scales", 3, [](Image& s, Image& d) {
            MSRHSV(s.data(), d.data(), s.width, s.height, s.stride, 90, 3, 2);
        });
#if VELOMAR_HAVE_XPHOTO
        vbench::RegisterPeer("AutoWhiteBalanceUseStandardGrayWorldModel/bgr", "cv::xphoto grey world", 3,
                             [](Image& s, Image& d) {
                                 static cv::Ptr<cv::xphoto::GrayworldWB> wb = cv::xphoto::createGrayworldWB();
                                 cv::Mat out = vbench::AsMat(d);
                                 wb->balanceWhite(vbench::AsMat(s), out);
                             });
#endif
#if VELOMAR_HAVE_OPENCV
        vbench::RegisterPeer("AdaptEqualize/grey/8x8", "cv::createCLAHE 8x8", 1, [](Image& s, Image& d) {
            static cv::Ptr<cv::CLAHE> clahe = cv::createCLAHE(2.0, cv::Size(8, 8));
            cv::Mat out = vbench::AsMat(d);
            clahe->apply(vbench::AsMat(s), out);
        });
#endif
    }
} registrar;

}  // namespace
