// Denoising filters (Lee, Wiener, noise reduction) over a radius sweep; their
// cost should not grow with the radius. Noise reduction ranks each pixel in
// its window, so the median over the same window is its peer.
#include "bench_util.h"
#include "velomar.h"

namespace {

struct Registrar {
    Registrar() {
        using vbench::Image;
        for (int c : {1, 3}) {
            const std::string layout = vbench::LayoutName(c);
            for (int r : {1, 5, 20}) {
                const std::string suffix = "/" + layout + "/r" + std::to_string(r);
                vbench::Register("LeeAdditvieNoiseFilter" + suffix, c, [r](Image& s, Image& d) {
                    LeeAdditvieNoiseFilter(s.data(), d.data(), s.width, s.height, s.stride, r, 0);
                });
                vbench::Register("Wiener2" + suffix, c, [r](Image& s, Image& d) {
                    Wiener2(s.data(), d.data(), s.width, s.height, s.stride, r, 0, EDGE_REFLECT);
                });
                vbench::Register("ReduceNoise" + suffix, c, [r](Image& s, Image& d) {
                    ReduceNoise(s.data(), d.data(), s.width, s.height, s.stride, r, 60);
                });
#if VELOMAR_HAVE_OPENCV
                // A rank filter over the same window.
                if (r == 5)
                    vbench::RegisterPeer("ReduceNoise" + suffix, "cv::medianBlur(11)", c, [](Image& s, Image& d) {
                        cv::Mat out = vbench::AsMat(d);
                        cv::medianBlur(vbench::AsMat(s), out, 11);
                    });
#endif
            }
        }
    }
} registrar;

}  // namespace
