// The heaviest exports by scratch memory, for the peak-memory table.
#include "bench_util.h"
#include "velomar.h"

namespace {

struct Registrar {
    Registrar() {
        using vbench::Image;
        vbench::RegisterMemory("SpeckleReducingAnisotropicDiffusion/bgr", 3, [](Image& s, Image& d) {
            SpeckleReducingAnisotropicDiffusion(s.data(), d.data(), s.width, s.height, s.stride, 10, 0.5);
        });
        vbench::RegisterMemory("BiExponentialEPF/bgr", 3, [](Image& s, Image& d) {
            BiExponentialEPF(s.data(), d.data(), s.width, s.height, s.stride, 50, 20);
        });
        vbench::RegisterMemory("HdrBasedOnGuiderFilter/bgr", 3, [](Image& s, Image& d) {
            HdrBasedOnGuiderFilter(s.data(), d.data(), s.width, s.height, s.stride, 16);
        });
        vbench::RegisterMemory("HazeRemovalBasedonContrastEnhancement/bgr", 3, [](Image& s, Image& d) {
            HazeRemovalBasedonContrastEnhancement(s.data(), d.data(), s.width, s.height, s.stride, 32, 5.0, 40);
        });
        vbench::RegisterMemory("ShowFFT/bgr", 3, [](Image& s, Image& d) {
            ShowFFT(s.data(), d.data(), s.width, s.height, s.stride, 1, 0);
        });
        vbench::RegisterMemory("EntropyFilter/bgr/r20", 3, [](Image& s, Image& d) {
            EntropyFilter(s.data(), d.data(), s.width, s.height, s.stride, 20, EDGE_REFLECT);
        });
    }
} registrar;

}  // namespace
