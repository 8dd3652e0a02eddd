// Haze removal, HDR, contrast enhancement and skin smoothing at their
// suggested settings, each beside the building block that bounds it from
// below (the box blur of the fast dehazing, the guided refinement of the dark
// channel prior, the guided filter, mask blur and sharpening of the skin
// smoothing).
#include <vector>

#include "bench_util.h"
#include "smooth/smooth.h"
#include "velomar.h"

namespace {

struct Registrar {
    Registrar() {
        using vbench::Image;
        vbench::Register("HazeRemovalBasedOnBoxBlur/bgr/r20", 3, [](Image& s, Image& d) {
            HazeRemovalBasedOnBoxBlur(s.data(), d.data(), s.width, s.height, s.stride, 20, 1.5);
        });
        vbench::Register("HazeRemovalBasedOnBoxBlur/bgr/r20 (one BoxBlur)", 3, [](Image& s, Image& d) {
            BoxBlur(s.data(), d.data(), s.width, s.height, s.stride, 20, 1);
        });
        for (double scale : {1.0, 0.5, 0.25})
            vbench::Register("HazeRemovalBasedOnDarkChannelPrior/bgr/scale " + std::to_string(scale).substr(0, 4), 3,
                             [scale](Image& s, Image& d) {
                                 HazeRemovalBasedOnDarkChannelPrior(s.data(), d.data(), s.width, s.height, s.stride,
                                                                    scale);
                             });
        // The dark channel prior's refinement at full size: a guided filter of
        // radius 6 x 19 on two double planes.
        vbench::Register("HazeRemovalBasedOnDarkChannelPrior/bgr/scale 1.00 (GuidedFilterCore r114)", 3,
                         [](Image& s, Image&) {
                             static std::vector<double> p, g;
                             p.assign(size_t(s.width) * s.height, 0.5);
                             g.assign(p.size(), 0.25);
                             velomar::GuidedFilterCore(p.data(), g.data(), p.data(), s.width, s.height, 114, 0.01);
                         });
        vbench::Register("HazeRemovalBasedonContrastEnhancement/bgr/32 5 40", 3, [](Image& s, Image& d) {
            HazeRemovalBasedonContrastEnhancement(s.data(), d.data(), s.width, s.height, s.stride, 32, 5.0, 40);
        });
        vbench::Register("HdrBasedOnExposureBlending/bgr/r8", 3, [](Image& s, Image& d) {
            HdrBasedOnExposureBlending(s.data(), s.data(), s.data(), d.data(), s.width, s.height, s.stride, 8);
        });
        vbench::Register("HdrBasedOnGuiderFilter/bgr/r16", 3, [](Image& s, Image& d) {
            HdrBasedOnGuiderFilter(s.data(), d.data(), s.width, s.height, s.stride, 16);
        });
        vbench::Register("LeeContrastEnhancement/bgr/r10", 3, [](Image& s, Image& d) {
            LeeContrastEnhancement(s.data(), d.data(), s.width, s.height, s.stride, 10, 200, 0, 255);
        });
        vbench::Register("DetailEnhanceByEdgePreseveingFilter/bgr/r8", 3, [](Image& s, Image& d) {
            DetailEnhanceByEdgePreseveingFilter(s.data(), d.data(), s.width, s.height, s.stride, 8, 300);
        });
        vbench::Register("LSDContrastEnhancement/bgr/r10", 3, [](Image& s, Image& d) {
            LSDContrastEnhancement(s.data(), d.data(), s.width, s.height, s.stride, 10, 100, 3);
        });
        for (unsigned char hsv : {0, 1})
            vbench::Register(std::string("AdaptiveGammaCorrection/bgr/") + (hsv ? "hsv" : "planes"), 3,
                             [hsv](Image& s, Image& d) {
                                 AdaptiveGammaCorrection(s.data(), d.data(), s.width, s.height, s.stride, 0.5, hsv);
                             });
        for (int type = 0; type < 5; ++type)
            vbench::Register("DermabrasionFilter/bgr/type " + std::to_string(type) + " level 5", 3,
                             [type](Image& s, Image& d) {
                                 DermabrasionFilter(s.data(), d.data(), s.width, s.height, s.stride, type, 0, 5, 3);
                             });
        // What the guided skin smoothing cannot avoid at 1080p: its guided
        // filter (radius 10 x 6 + 5), the mask's Gaussian and the unsharp mask
        // (both sigma 0.02 x 1920).
        vbench::Register("DermabrasionFilter/bgr/type 1 level 5 (guided + GuassBlur + UnsharpMask)", 3,
                         [](Image& s, Image& d) {
                             static std::vector<unsigned char> mask;
                             mask.assign(size_t(s.width) * s.height, 255);
                             const double sigma = 0.02 * std::max(s.width, s.height);
                             GuidedFilter(s.data(), s.data(), d.data(), s.width, s.height, s.stride, 65, 0.01);
                             GuassBlur(mask.data(), mask.data(), s.width, s.height, s.width, sigma);
                             UnsharpMask(d.data(), d.data(), s.width, s.height, s.stride, sigma, 20, 0);
                         });
    }
} registrar;

}  // namespace
