// Sharpening and edges against OpenCV: Gaussian blur plus weighted sum for the
// unsharp mask, Sobel plus magnitude for the edges, the median filter as a
// reference for the sliding-histogram rank sharpening.
#include "bench_util.h"
#include "velomar.h"

namespace {

struct Registrar {
    Registrar() {
        using vbench::Image;
        for (int c : {1, 3}) {
            const std::string layout = vbench::LayoutName(c);
            vbench::Register("UnsharpMask/" + layout, c, [](Image& s, Image& d) {
                UnsharpMask(s.data(), d.data(), s.width, s.height, s.stride, 3.0, 50, 0);
            });
            vbench::Register("HighPass/" + layout, c, [](Image& s, Image& d) {
                HighPass(s.data(), d.data(), s.width, s.height, s.stride, 3.0);
            });
            vbench::Register("FindEdges/" + layout, c, [](Image& s, Image& d) {
                FindEdges(s.data(), d.data(), s.width, s.height, s.stride);
            });
            const std::vector<int> radii =
                c == 1 ? std::vector<int>{1, 5, 10, 25, 50} : std::vector<int>{10};
            for (int r : radii)
                vbench::Register("SharpenByHistgram/" + layout + "/r" + std::to_string(r), c,
                                 [r](Image& s, Image& d) {
                                     SharpenByHistgram(s.data(), d.data(), s.width, s.height,
                                                       s.stride, r);
                                 });
#if VELOMAR_HAVE_OPENCV
            vbench::RegisterPeer("UnsharpMask/" + layout, "cv::GaussianBlur+addWeighted", c,
                                 [](Image& s, Image& d) {
                                     cv::Mat src = vbench::AsMat(s), out = vbench::AsMat(d), blur;
                                     cv::GaussianBlur(src, blur, cv::Size(0, 0), 3.0);
                                     cv::addWeighted(src, 1.5, blur, -0.5, 0, out);
                                 });
            vbench::RegisterPeer("HighPass/" + layout, "cv::GaussianBlur+subtract", c,
                                 [](Image& s, Image& d) {
                                     cv::Mat src = vbench::AsMat(s), out = vbench::AsMat(d), blur;
                                     cv::GaussianBlur(src, blur, cv::Size(0, 0), 3.0);
                                     cv::addWeighted(src, 1.0, blur, -1.0, 128, out);
                                 });
            vbench::RegisterPeer("FindEdges/" + layout, "cv::Sobel x2+magnitude", c,
                                 [c](Image& s, Image& d) {
                                     cv::Mat src = vbench::AsMat(s), out = vbench::AsMat(d);
                                     cv::Mat gx, gy, mag;
                                     cv::Sobel(src, gx, CV_32F, 1, 0);
                                     cv::Sobel(src, gy, CV_32F, 0, 1);
                                     cv::magnitude(gx.reshape(1), gy.reshape(1), mag);
                                     mag.reshape(c).convertTo(out, CV_8U, -1.0, 255.0);
                                 });
            // The same window, the same rank: the median.
            for (int r : radii)
                if (r == 5 || r == 10)
                    vbench::RegisterPeer("SharpenByHistgram/" + layout + "/r" + std::to_string(r),
                                         "cv::medianBlur(" + std::to_string(2 * r + 1) + ")", c,
                                         [r](Image& s, Image& d) {
                                             cv::Mat out = vbench::AsMat(d);
                                             cv::medianBlur(vbench::AsMat(s), out, 2 * r + 1);
                                         });
#endif
        }
    }
} registrar;

}  // namespace
