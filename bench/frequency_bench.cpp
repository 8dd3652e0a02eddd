// Frequency domain against OpenCV: the FFT spectrum picture against cv::dft
// with the same centring and |re| + |im| display (1024 x 1024 corner of the
// test image), the convolutions against cv::filter2D (whole 1080p image).
#include <cmath>

#include "bench_util.h"
#include "velomar.h"

namespace {

constexpr int kSpectrum = 1024;

// A smooth, positive kernel of k x k floats (a separable tent).
std::vector<float> TentKernel(int k) {
    std::vector<float> w(size_t(k) * k);
    for (int r = 0; r < k; ++r)
        for (int c = 0; c < k; ++c)
            w[size_t(r) * k + c] = float((k / 2 + 1 - std::abs(r - k / 2)) * (k / 2 + 1 - std::abs(c - k / 2)));
    return w;
}

Matrix AsRecord(vbench::Image& img) {
    return Matrix{img.width, img.height, img.stride, img.channels, DEPTH_8U, img.data(), 0};
}

#if VELOMAR_HAVE_OPENCV
// One channel: complex DFT of (pixels + i pixels), quadrants exchanged,
// (|re| + |im|) / 255 saturated to bytes.
void SpectrumPeer(const cv::Mat& src8, cv::Mat out8) {
    cv::Mat f, complex, planes[2];
    src8.convertTo(f, CV_32F);
    cv::Mat both[] = {f, f};
    cv::merge(both, 2, complex);
    cv::dft(complex, complex);
    const int hw = complex.cols / 2, hh = complex.rows / 2;
    cv::Mat q0(complex, cv::Rect(0, 0, hw, hh)), q1(complex, cv::Rect(hw, 0, hw, hh));
    cv::Mat q2(complex, cv::Rect(0, hh, hw, hh)), q3(complex, cv::Rect(hw, hh, hw, hh)), t;
    q0.copyTo(t), q3.copyTo(q0), t.copyTo(q3);
    q1.copyTo(t), q2.copyTo(q1), t.copyTo(q2);
    cv::split(complex, planes);
    cv::Mat amplitude = cv::abs(planes[0]) + cv::abs(planes[1]);
    amplitude.convertTo(out8, CV_8U, 1.0 / 255.0);
}
#endif

struct Registrar {
    Registrar() {
        using vbench::Image;
        for (int c : {1, 3}) {
            const std::string layout = vbench::LayoutName(c);
            const std::string key = "ShowFFT/" + layout + "/1024";
            vbench::Register(key, c, [](Image& s, Image& d) {
                ShowFFT(s.data(), d.data(), kSpectrum, kSpectrum, s.stride, 1, 0);
            });
#if VELOMAR_HAVE_OPENCV
            vbench::RegisterPeer(key, "cv::dft", c, [](Image& s, Image& d) {
                const cv::Rect corner(0, 0, kSpectrum, kSpectrum);
                if (s.channels == 1) return SpectrumPeer(vbench::AsMat(s)(corner), vbench::AsMat(d)(corner));
                cv::Mat in[3], out[3];
                cv::split(vbench::AsMat(s)(corner), in);
                for (int k = 0; k < 3; ++k) {
                    out[k].create(kSpectrum, kSpectrum, CV_8U);
                    SpectrumPeer(in[k], out[k]);
                }
                cv::Mat merged = vbench::AsMat(d)(corner);
                cv::merge(out, 3, merged);
            });
#endif
        }
        vbench::Register("ShowDCT/grey/1024", 1, [](Image& s, Image& d) {
            ShowDCT(s.data(), d.data(), kSpectrum, kSpectrum, s.stride, 0);
        });
        vbench::Register("ShowWALSH/grey/1024", 1, [](Image& s, Image& d) {
            ShowWALSH(s.data(), d.data(), kSpectrum, kSpectrum, s.stride);
        });

        struct Run { const char* name; int channels, size; bool fft; };
        const Run runs[] = {{"Conv2", 1, 3, false},    {"Conv2", 1, 5, false},    {"Conv2", 1, 7, false},
                            {"Conv2", 1, 15, false},   {"Conv2", 3, 5, false},    {"FFTConv2", 1, 15, true},
                            {"FFTConv2", 1, 31, true}, {"FFTConv2", 3, 31, true}, {"Conv2", 1, 31, false}};
        for (const Run& r : runs) {
            const std::string key = std::string(r.name) + "/" + vbench::LayoutName(r.channels) + "/k" +
                                    std::to_string(r.size);
            const int size = r.size;
            const bool fft = r.fft;
            vbench::Register(key, r.channels, [size, fft](Image& s, Image& d) {
                std::vector<float> k = TentKernel(size);
                Matrix src = AsRecord(s), dst = AsRecord(d);
                Matrix kernel{size, size, size * 4, 1, DEPTH_32F, reinterpret_cast<unsigned char*>(k.data()), 0};
                if (fft)
                    FFTConv2(&src, &kernel, &dst, EDGE_REFLECT);
                else
                    Conv2(&src, &kernel, &dst, EDGE_REFLECT);
            });
#if VELOMAR_HAVE_OPENCV
            vbench::RegisterPeer(key, "cv::filter2D", r.channels, [size](Image& s, Image& d) {
                std::vector<float> k = TentKernel(size);
                float sum = 0;
                for (float v : k) sum += v;
                cv::Mat kernel(size, size, CV_32F, k.data());
                kernel /= sum;
                cv::Mat out = vbench::AsMat(d);
                cv::filter2D(vbench::AsMat(s), out, -1, kernel, cv::Point(-1, -1), 0, cv::BORDER_REFLECT_101);
            });
#endif
        }
    }
} registrar;

}  // namespace
