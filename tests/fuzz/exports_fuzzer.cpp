// libFuzzer harness over every export the host's table knows: a random
// shape (Width and Height 1..300, rows padded by 0..7 bytes, 1, 3 or 4 bytes
// per pixel, whatever the export expects), in place or not, and each
// parameter at its default, within its range, at an edge value (zero,
// negative, huge, NaN, infinite) or at raw random bits. Built with address
// and undefined-behaviour sanitizers; Src must come back unchanged.
#include <fuzzer/FuzzedDataProvider.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "host.h"

namespace {

// Executions per export, printed when the fuzzer exits (kept apart from the
// host's table, which static destruction may already have released).
using Tally = std::vector<std::pair<std::string, unsigned long long>>;

Tally& Counts() {
    static Tally* tally = [] {
        auto* t = new Tally;
        for (const host::Op& op : host::Ops()) t->emplace_back(op.name, 0);
        return t;
    }();
    return *tally;
}

void Report() {
    std::fprintf(stderr, "executions per export:");
    for (const auto& [name, count] : Counts()) std::fprintf(stderr, " %s=%llu", name.c_str(), count);
    std::fprintf(stderr, "\n");
}

// Parameters that multiply the work (passes, copies, scales) are kept small
// when positive, and the bilateral filter's range deviation (its level count
// grows as 1 / SigmaRange) is kept at half a grey level or more, so that one
// input runs in milliseconds; every other value reaches the export as drawn.
bool ScalesTheWork(const std::string& name) { return name == "Iterations" || name == "Count" || name == "NScales"; }
bool LevelsGrowAsItShrinks(const host::Op& op, const host::Param& p) {
    return op.name == "BilateralFilter" && p.name == "SigmaRange";
}

double Draw(FuzzedDataProvider& in, const host::Param& p) {
    double v = p.value;
    switch (in.ConsumeIntegralInRange(0, 3)) {
        case 0:
            break;
        case 1:  // within the range
            if (!p.range.choices.empty()) {
                v = p.range.choices[in.ConsumeIntegralInRange<size_t>(0, p.range.choices.size() - 1)];
            } else {
                const double lo = std::isnan(p.range.lo) ? -1000 : p.range.lo;
                const double hi = std::isnan(p.range.hi) ? lo + 1000 : p.range.hi;
                v = lo + (hi - lo) * in.ConsumeProbability<double>();
                if (p.type != host::kDouble) v = std::floor(v);
            }
            break;
        case 2:  // an edge
            if (p.type == host::kDouble) {
                const double edges[] = {0.0, -0.0, -1.0, 0.5, 1e-300, 4.9e-324, 1e300, -1e300,
                                        std::numeric_limits<double>::infinity(),
                                        -std::numeric_limits<double>::infinity(),
                                        std::numeric_limits<double>::quiet_NaN()};
                v = in.PickValueInArray(edges);
            } else {
                const double edges[] = {0, -1, 1, 2, 255, 256, 65536, 1 << 20, INT32_MIN, INT32_MAX};
                v = in.PickValueInArray(edges);
            }
            break;
        default:  // raw bits
            if (p.type == host::kDouble) v = std::bit_cast<double>(in.ConsumeIntegral<uint64_t>());
            else if (p.type == host::kByte) v = in.ConsumeIntegral<uint8_t>();
            else v = in.ConsumeIntegral<int32_t>();
    }
    if (p.type == host::kByte) v = double(uint8_t(int64_t(std::isfinite(v) ? std::fmod(v, 256.0) : 0)));
    if (ScalesTheWork(p.name) && v > 8) v = 8;
    return v;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    const std::vector<host::Op>& ops = host::Ops();
    [[maybe_unused]] static const bool reporting = std::atexit(Report) == 0;
    const size_t index = in.ConsumeIntegralInRange<size_t>(0, ops.size() - 1);
    const host::Op& op = ops[index];
    ++Counts()[index].second;
    const int c = in.PickValueInArray({1, 3, 4});
    // Mostly small pictures (fast runs), now and then up to 300 x 300.
    const int most = in.ConsumeIntegralInRange(0, 255) == 0 ? 300 : 16;
    const int w = in.ConsumeIntegralInRange(1, most), h = in.ConsumeIntegralInRange(1, most);
    const int stride = w * c + in.ConsumeIntegralInRange(0, 7);
    const bool inPlace = in.ConsumeBool();
    std::vector<double> values;
    for (const host::Param& p : op.params) {
        values.push_back(Draw(in, p));
        if (LevelsGrowAsItShrinks(op, p) && values.back() > 0 && values.back() < 0.5) values.back() = 0.5;
    }
    // Exactly the rows' bytes, so that the address sanitizer sees one byte more.
    std::vector<uint8_t> src(size_t(stride) * h), dst(src.size(), 0x5A);
    const std::vector<uint8_t> bytes = in.ConsumeRemainingBytes<uint8_t>();
    for (size_t i = 0; i < src.size(); ++i) src[i] = bytes.empty() ? uint8_t(i * 31) : uint8_t(bytes[i % bytes.size()] + i / bytes.size());
    const std::vector<uint8_t> before = src;
    const host::Image s = host::Image::View(src.data(), w, h, c, stride);
    host::Image d = host::Image::View(inPlace ? src.data() : dst.data(), w, h, c, stride);
    static const bool show = std::getenv("VELOMAR_FUZZ_SHOW") != nullptr;  // for replaying a finding
    if (show) {
        std::fprintf(stderr, "%s %dx%dx%d stride %d%s:", op.name.c_str(), w, h, c, stride, inPlace ? " in place" : "");
        for (double v : values) std::fprintf(stderr, " %.17g", v);
        std::fprintf(stderr, "\n");
    }
    op.run(s, d, values);
    if (!inPlace && src != before) __builtin_trap();  // Src changed
    return 0;
}
