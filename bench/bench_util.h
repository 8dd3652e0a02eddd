// Benchmark helpers: 1080p test images, registration of an export with its
// OpenCV peer under one key, so the summary can print both side by side.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#if VELOMAR_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace vbench {

constexpr int kWidth = 1920, kHeight = 1080;

struct Image {
    int width, height, channels, stride;
    std::vector<uint8_t> bytes;
    uint8_t* data() { return bytes.data(); }
};

// A photograph-like test image (smooth gradients, edges and noise), grey or BGR.
Image MakeImage(int channels, int width = kWidth, int height = kHeight);

#if VELOMAR_HAVE_OPENCV
// A cv::Mat header over an Image's bytes (no copy).
inline cv::Mat AsMat(Image& img) {
    return cv::Mat(img.height, img.width, img.channels == 1 ? CV_8UC1 : CV_8UC3, img.data(),
                   size_t(img.stride));
}
#endif

// Registers "key" for the Velomar export; the body runs once per iteration.
void Register(const std::string& key, int channels, std::function<void(Image& src, Image& dst)> body);
// Registers the OpenCV peer of "key" (skipped, with a note, without OpenCV).
void RegisterPeer(const std::string& key, const std::string& peer, int channels,
                  std::function<void(Image& src, Image& dst)> body);

// Registers "key" for the peak-memory table: the body runs once in a child
// process, and the table reports how far its resident memory rose above the
// two images it was given.
void RegisterMemory(const std::string& key, int channels, std::function<void(Image& src, Image& dst)> body);

// Layout name used in keys.
inline const char* LayoutName(int channels) { return channels == 1 ? "grey" : "bgr"; }

}  // namespace vbench
