// The recursive edge-preserving filters at 1080p: the domain transform beside
// cv::ximgproc::dtFilter in recursive mode with the same settings, and each
// filter swept over its strength parameters (the cost should not follow them).
#include "bench_util.h"
#include "velomar.h"

#if VELOMAR_HAVE_OPENCV && defined(VELOMAR_HAVE_XIMGPROC) && __has_include(<opencv2/ximgproc.hpp>)
#include <opencv2/ximgproc.hpp>
#define VELOMAR_BENCH_XIMGPROC 1
#endif

namespace {

struct Registrar {
    Registrar() {
        using vbench::Image;
        for (double ss : {5.0, 20.0, 80.0}) {
            const std::string key = "RecursiveDomainTransformFilter/bgr/ss" + std::to_string(int(ss));
            vbench::Register(key, 3, [ss](Image& s, Image& d) {
                RecursiveDomainTransformFilter(s.data(), s.data(), d.data(), s.width, s.height, s.stride, ss, 30, 3);
            });
#if VELOMAR_BENCH_XIMGPROC
            vbench::RegisterPeer(key, "cv::ximgproc::dtFilter RF", 3, [ss](Image& s, Image& d) {
                cv::Mat src = vbench::AsMat(s), out = vbench::AsMat(d);
                cv::ximgproc::dtFilter(src, src, out, ss, 30, cv::ximgproc::DTF_RF, 3);
            });
#endif
        }
        for (double lambda : {2.0, 50.0, 500.0})
            vbench::Register("BiExponentialEPF/bgr/lambda" + std::to_string(int(lambda)), 3, [lambda](Image& s, Image& d) {
                BiExponentialEPF(s.data(), d.data(), s.width, s.height, s.stride, lambda, 20);
            });
        for (double lambda : {0.1, 0.5, 2.0})
            vbench::Register("SpeckleReducingAnisotropicDiffusion/bgr/lambda" + std::to_string(lambda).substr(0, 3), 3,
                             [lambda](Image& s, Image& d) {
                                 SpeckleReducingAnisotropicDiffusion(s.data(), d.data(), s.width, s.height, s.stride,
                                                                     10, lambda);
                             });
    }
} registrar;

}  // namespace
