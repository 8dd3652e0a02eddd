// Median blur across radii against cv::medianBlur (ksize = 2 * radius + 1).
#include <string>

#include "bench_util.h"
#include "velomar.h"

namespace {

struct Registrar {
    Registrar() {
        using vbench::Image;
        for (int c : {1, 3})
            for (int r : {1, 2, 3, 5, 10, 20, 50}) {
                const std::string key =
                    std::string("MedianBlur/") + vbench::LayoutName(c) + "/r" + std::to_string(r);
                vbench::Register(key, c, [r](Image& s, Image& d) {
                    MedianBlur(s.data(), d.data(), s.width, s.height, s.stride, r, 50);
                });
#if VELOMAR_HAVE_OPENCV
                vbench::RegisterPeer(key, "cv::medianBlur", c, [r](Image& s, Image& d) {
                    cv::Mat out = vbench::AsMat(d);
                    cv::medianBlur(vbench::AsMat(s), out, 2 * r + 1);
                });
#endif
            }
    }
} registrar;

}  // namespace
