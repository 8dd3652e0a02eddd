// Host images: the layout the library takes, and conversions between grey,
// colour and colour with alpha.
#include <algorithm>

#include "host.h"

namespace host {

Image::Image(int w, int h, int c) : Image(w, h, c, (w * c + 3) & ~3) {}

Image::Image(int w, int h, int c, int stride)
    : width(w), height(h), channels(c), stride(stride), pixels(size_t(stride) * h, 0) {}

Image Image::View(uint8_t* bytes, int w, int h, int c, int stride) {
    Image view;
    view.width = w, view.height = h, view.channels = c, view.stride = stride;
    view.view_ = bytes;
    return view;
}

Image::Image(const Image& other)
    : width(other.width), height(other.height), channels(other.channels), stride(other.stride),
      pixels(other.data(), other.data() + size_t(other.stride) * other.height) {}

Image& Image::operator=(const Image& other) {
    if (this != &other) *this = Image(other);
    return *this;
}

namespace {

// Calls f(source pixel, destination pixel) for every pixel of `from`, into a
// new image of `channels` channels.
template <class F>
Image Convert(const Image& from, int channels, F f) {
    Image to(from.width, from.height, channels);
    for (int y = 0; y < from.height; ++y)
        for (int x = 0; x < from.width; ++x)
            f(from.data() + size_t(y) * from.stride + size_t(x) * from.channels,
              to.data() + size_t(y) * to.stride + size_t(x) * channels);
    return to;
}

}  // namespace

Image Pattern(int w, int h, int c) {
    Image img(w, h, c);
    uint32_t state = 0x9E3779B9u ^ uint32_t(w * 131 + h * 7 + c);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int k = 0; k < c; ++k) {
                state = state * 1664525u + 1013904223u;
                const int noise = int(state >> 27) - 16;  // -16 .. 15
                const int base = k == 3 ? (x * 9 + y * 5) % 256 : (x * 5 + y * 3 + k * 60) % 200 + 20;
                img.pixels[size_t(y) * img.stride + size_t(x) * c + k] = uint8_t(std::min(255, std::max(0, base + noise)));
            }
    return img;
}

Image ToGrey(const Image& image) {
    if (image.channels == 1) return image;
    return Convert(image, 1, [](const uint8_t* s, uint8_t* d) { d[0] = uint8_t((s[0] * 29 + s[1] * 150 + s[2] * 77) >> 8); });
}

Image ToColour(const Image& image) {
    if (image.channels == 3) return image;
    return Convert(image, 3, [&](const uint8_t* s, uint8_t* d) {
        for (int k = 0; k < 3; ++k) d[k] = s[image.channels == 1 ? 0 : k];
    });
}

Image AlphaOf(const Image& image) {
    return Convert(image, 1, [&](const uint8_t* s, uint8_t* d) { d[0] = image.channels == 4 ? s[3] : 255; });
}

Image WithAlpha(const Image& image, const Image& alpha) {
    const Image colour = ToColour(image);
    Image out = Convert(colour, 4, [](const uint8_t* s, uint8_t* d) { std::copy_n(s, 3, d); });
    for (int y = 0; y < out.height; ++y)
        for (int x = 0; x < out.width; ++x)
            out.pixels[size_t(y) * out.stride + size_t(x) * 4 + 3] = alpha.pixels[size_t(y) * alpha.stride + x];
    return out;
}

}  // namespace host
