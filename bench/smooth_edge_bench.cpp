// Edge-preserving smoothing: the guided filter against cv::ximgproc::guidedFilter
// (when OpenCV's contrib modules are present) over a radius sweep, and the
// bilateral filter against cv::bilateralFilter at a spatial extent of about 10
// pixels.
#include "bench_util.h"
#include "velomar.h"

#if VELOMAR_HAVE_OPENCV && defined(VELOMAR_HAVE_XIMGPROC) && __has_include(<opencv2/ximgproc.hpp>)
#include <opencv2/ximgproc.hpp>
#define VELOMAR_BENCH_XIMGPROC 1
#endif

namespace {

// Epsilon in (intensity / 255)^2; OpenCV takes it in intensity^2 on 8-bit input.
constexpr double kEpsilon = 0.01;
// A spatial sigma of 10 pixels on the 1080-row image: SigmaSpatial is in
// 1/255 of the shorter side (at reduced resolution too, so the extent in full
// pixels stays the same).
constexpr double kSigmaSpatial = 10.0 * 255 / vbench::kHeight;
constexpr double kSigmaRange = 30;

struct Registrar {
    Registrar() {
        using vbench::Image;
        for (int c : {1, 3}) {
            const std::string layout = vbench::LayoutName(c);
            for (int r : {2, 8, 32}) {
                const std::string key = "GuidedFilter/" + layout + "/r" + std::to_string(r);
                vbench::Register(key, c, [r](Image& s, Image& d) {
                    GuidedFilter(s.data(), s.data(), d.data(), s.width, s.height, s.stride, r,
                                 kEpsilon);
                });
#if VELOMAR_BENCH_XIMGPROC
                // With a three-channel guide OpenCV fits the colour model, which
                // is more work than three grey fits.
                vbench::RegisterPeer(key, "cv::ximgproc::guidedFilter", c, [r](Image& s, Image& d) {
                    cv::Mat out = vbench::AsMat(d);
                    cv::Mat src = vbench::AsMat(s);
                    cv::ximgproc::guidedFilter(src, src, out, r, kEpsilon * 255 * 255);
                });
#endif
            }
            for (int ds : {0, 1, 2}) {
                for (int gaussian : {1, 0}) {
                    const std::string key = "BilateralFilter/" + layout + "/ds" + std::to_string(ds) +
                                            (gaussian ? "" : "-box");
                    vbench::Register(key, c, [ds, gaussian](Image& s, Image& d) {
                        BilateralFilter(s.data(), s.data(), d.data(), s.width, s.height, s.stride, ds,
                                        kSigmaSpatial, kSigmaRange, gaussian);
                    });
#if VELOMAR_HAVE_OPENCV
                    vbench::RegisterPeer(key, "cv::bilateralFilter d21", c, [](Image& s, Image& d) {
                        cv::Mat out = vbench::AsMat(d);
                        cv::bilateralFilter(vbench::AsMat(s), out, 21, kSigmaRange, 10);
                    });
#endif
                }
            }
        }
    }
} registrar;

}  // namespace
