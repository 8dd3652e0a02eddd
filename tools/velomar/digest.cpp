// velomar-digest: runs every export the host knows on fixed pictures, in
// every layout it takes, with its defaults and with each other value of its
// choice parameters, and prints one line per case with a digest of the
// bytes it wrote. The committed table (tools/velomar/digests.txt) is what
// every platform and instruction set must print.
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "host.h"

namespace {

using host::Image;

// 64-bit FNV-1a over the size and the bytes.
uint64_t Digest(const Image& img) {
    uint64_t h = 14695981039346656037ull;
    auto add = [&](uint8_t b) { h = (h ^ b) * 1099511628211ull; };
    for (int v : {img.width, img.height, img.channels})
        for (int s = 0; s < 32; s += 8) add(uint8_t(v >> s));
    for (uint8_t b : img.pixels) add(b);
    return h;
}

std::string Number(double v) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", v);
    return text;
}

}  // namespace

int main() {
    // Odd sizes, one wide enough for every vector path and block size.
    const std::pair<int, int> sizes[] = {{67, 45}, {9, 131}, {203, 97}};
    int cases = 0;
    for (const host::Op& op : host::Ops()) {
        const std::vector<std::vector<double>> sets = host::ParameterSets(op);
        for (int channels : {1, 3, 4}) {
            if (!op.Takes(channels)) continue;
            for (auto [w, h] : sizes)
                for (const std::vector<double>& values : sets) {
                    const Image src = host::Pattern(w, h, channels);
                    Image out = src;
                    const int status = op.run(src, out, values);
                    std::string params;
                    for (size_t k = 0; k < values.size(); ++k) params += " " + op.params[k].name + "=" + Number(values[k]);
                    std::printf("%s %dx%dx%d%s: ", op.name.c_str(), w, h, channels, params.c_str());
                    if (status != 0) std::printf("status %d\n", status);
                    else std::printf("%016llx\n", static_cast<unsigned long long>(Digest(out)));
                    ++cases;
                }
        }
    }
    std::fprintf(stderr, "%d cases\n", cases);
    return 0;
}
