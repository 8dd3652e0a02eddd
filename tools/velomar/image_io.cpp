// Image files through stb: decode to grey, BGR or BGRA; encode PNG, JPEG, BMP
// or TGA.
#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STBI_ONLY_PNG
#define STBI_ONLY_JPEG
#define STBI_ONLY_BMP
#define STBI_ONLY_TGA
#define STBI_ONLY_PNM
#include <stb_image.h>
#include <stb_image_write.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <memory>
#include <ostream>

#include "host.h"

namespace host {

bool LoadImage(const std::string& path, Image& image, std::string& error, std::string* warning) {
    int w = 0, h = 0, n = 0;
    if (!stbi_info(path.c_str(), &w, &h, &n)) {
        const char* reason = stbi_failure_reason();
        error = "cannot read image '" + path + "': " + (reason ? reason : "unknown format");
        return false;
    }
    if (warning && stbi_is_16_bit(path.c_str())) *warning = "'" + path + "' has 16 bits per sample: reduced to 8";
    // Grey stays grey, anything with alpha becomes blue-green-red-alpha.
    const int want = n == 1 ? 1 : n == 3 ? 3 : 4;
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
            std::copy_n(s, want, d);
            if (want > 1) std::swap(d[0], d[2]);  // RGB on disk, BGR in memory
        }
    }
    return true;
}

namespace {

// The pixels tightly packed in the file's channel order (RGB, RGBA or grey).
std::vector<uint8_t> FileOrder(const Image& image) {
    const int c = image.channels;
    std::vector<uint8_t> bytes(size_t(image.width) * image.height * c);
    for (int y = 0; y < image.height; ++y)
        for (int x = 0; x < image.width; ++x) {
            const uint8_t* s = image.data() + size_t(y) * image.stride + size_t(x) * c;
            uint8_t* d = bytes.data() + (size_t(y) * image.width + x) * c;
            std::copy_n(s, c, d);
            if (c > 1) std::swap(d[0], d[2]);
        }
    return bytes;
}

void ToStream(void* context, void* data, int size) {
    static_cast<std::ostream*>(context)->write(static_cast<const char*>(data), size);
}

std::string Lower(std::string text) {
    for (char& ch : text) ch = char(std::tolower(static_cast<unsigned char>(ch)));
    return text;
}

}  // namespace

bool KnownFormat(const std::string& path) {
    const std::string ext = Lower(std::filesystem::path(path).extension().string());
    return path == "-" || ext == ".png" || ext == ".jpg" || ext == ".jpeg" || ext == ".bmp" || ext == ".tga";
}

bool SaveImage(const std::string& path, const Image& image, std::string& error, int quality, std::ostream* stdoutStream) {
    const std::string ext = Lower(std::filesystem::path(path).extension().string());
    const std::vector<uint8_t> bytes = FileOrder(image);
    const int w = image.width, h = image.height, c = image.channels;
    int ok = 0;
    if (path == "-") {
        if (stdoutStream) ok = stbi_write_png_to_func(ToStream, stdoutStream, w, h, c, bytes.data(), w * c);
    } else if (ext == ".png") {
        ok = stbi_write_png(path.c_str(), w, h, c, bytes.data(), w * c);
    } else if (ext == ".jpg" || ext == ".jpeg") {
        ok = stbi_write_jpg(path.c_str(), w, h, c, bytes.data(), quality);  // alpha is not kept
    } else if (ext == ".bmp") {
        ok = stbi_write_bmp(path.c_str(), w, h, c, bytes.data());
    } else if (ext == ".tga") {
        ok = stbi_write_tga(path.c_str(), w, h, c, bytes.data());
    } else {
        error = "cannot write '" + path + "': the extension names no format (png, jpg, bmp, tga, or - for PNG "
                "on standard output)";
        return false;
    }
    if (!ok) {
        error = "cannot write '" + path + "'";
        return false;
    }
    return true;
}

bool SavePng(const std::string& path, const Image& image, std::string& error) {
    return SaveImage(path, image, error, 90, nullptr);
}

}  // namespace host
