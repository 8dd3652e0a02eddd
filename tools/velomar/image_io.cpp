// Image files through stb: decode to grey or BGR, encode PNG.
#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STBI_ONLY_PNG
#define STBI_ONLY_JPEG
#define STBI_ONLY_BMP
#include <stb_image.h>
#include <stb_image_write.h>

#include <memory>

#include "host.h"

namespace host {

Image::Image(int w, int h, int c)
    : width(w), height(h), channels(c), stride((w * c + 3) & ~3), pixels(size_t(stride) * h, 0) {}

bool LoadImage(const std::string& path, Image& image, std::string& error) {
    int w = 0, h = 0, n = 0;
    if (!stbi_info(path.c_str(), &w, &h, &n)) {
        const char* reason = stbi_failure_reason();
        error = "cannot read image '" + path + "': " + (reason ? reason : "unknown format");
        return false;
    }
    const int want = (n == 1 || n == 2) ? 1 : 3;
    std::unique_ptr<stbi_uc, void (*)(void*)> data(stbi_load(path.c_str(), &w, &h, &n, want),
                                                  stbi_image_free);
    if (!data) {
        error = "cannot decode image '" + path + "': " + stbi_failure_reason();
        return false;
    }
    image = Image(w, h, want);
    for (int y = 0; y < h; ++y) {
        const stbi_uc* s = data.get() + size_t(y) * w * want;
        uint8_t* d = image.data() + size_t(y) * image.stride;
        for (int x = 0; x < w; ++x, s += want, d += want) {
            if (want == 1) {
                d[0] = s[0];
            } else {  // RGB on disk, BGR in memory
                d[0] = s[2], d[1] = s[1], d[2] = s[0];
            }
        }
    }
    return true;
}

bool SavePng(const std::string& path, const Image& image, std::string& error) {
    const int c = image.channels == 1 ? 1 : 3;
    std::vector<uint8_t> rgb(size_t(image.width) * image.height * c);
    for (int y = 0; y < image.height; ++y)
        for (int x = 0; x < image.width; ++x) {
            const uint8_t* s = image.data() + size_t(y) * image.stride + size_t(x) * image.channels;
            uint8_t* d = rgb.data() + (size_t(y) * image.width + x) * c;
            if (c == 1) {
                d[0] = s[0];
            } else {
                d[0] = s[2], d[1] = s[1], d[2] = s[0];
            }
        }
    if (!stbi_write_png(path.c_str(), image.width, image.height, c, rgb.data(), image.width * c)) {
        error = "cannot write '" + path + "'";
        return false;
    }
    return true;
}

Image ToGrey(const Image& image) {
    if (image.channels == 1) return image;
    Image grey(image.width, image.height, 1);
    for (int y = 0; y < image.height; ++y)
        for (int x = 0; x < image.width; ++x) {
            const uint8_t* s = image.data() + size_t(y) * image.stride + size_t(x) * image.channels;
            grey.pixels[size_t(y) * grey.stride + x] = uint8_t((s[0] * 29 + s[1] * 150 + s[2] * 77) >> 8);
        }
    return grey;
}

Image ToColour(const Image& image) {
    if (image.channels == 3) return image;
    Image colour(image.width, image.height, 3);
    for (int y = 0; y < image.height; ++y)
        for (int x = 0; x < image.width; ++x) {
            const uint8_t v = image.pixels[size_t(y) * image.stride + size_t(x) * image.channels];
            uint8_t* d = colour.data() + size_t(y) * colour.stride + size_t(x) * 3;
            d[0] = d[1] = d[2] = v;
        }
    return colour;
}

}  // namespace host
