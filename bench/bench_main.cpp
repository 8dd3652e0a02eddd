// Benchmark driver: runs every registered benchmark single-threaded and
// prints a summary of each export beside its OpenCV peer.
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <string>

#include "bench_util.h"

namespace vbench {

Image MakeImage(int channels, int width, int height) {
    Image img{width, height, channels, (width * channels + 3) & ~3, {}};
    img.bytes.resize(size_t(img.stride) * height);
    uint32_t seed = 12345;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width * channels; ++x) {
            seed = seed * 1664525u + 1013904223u;
            int base = ((x / channels) * 255 / width + y * 255 / height) / 2;
            if (((x / channels) / 97 + y / 89) % 3 == 0) base = 255 - base;  // edges
            int v = base + int(seed >> 28) - 8;
            img.bytes[size_t(y) * img.stride + x] = uint8_t(v < 0 ? 0 : v > 255 ? 255 : v);
        }
    return img;
}

namespace {

const char kPeerMark[] = " vs ";

void RegisterBody(const std::string& name, int channels, std::function<void(Image&, Image&)> body) {
    benchmark::RegisterBenchmark(name.c_str(), [channels, body](benchmark::State& state) {
        Image src = MakeImage(channels);
        Image dst = src;
        for (auto _ : state) {
            body(src, dst);
            benchmark::DoNotOptimize(dst.bytes.data());
            benchmark::ClobberMemory();
        }
        state.counters["MP/s"] = benchmark::Counter(double(src.width) * src.height / 1e6,
                                                    benchmark::Counter::kIsIterationInvariantRate,
                                                    benchmark::Counter::kIs1000);
    })->Unit(benchmark::kMillisecond)->MinTime(0.2);
}

// Collects per-run times, then prints "export, ms, MP/s, peer, peer ms, ratio".
class SummaryReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& r : runs) {
            // With repetitions, the median stands for the benchmark.
            if (r.error_occurred || (!r.aggregate_name.empty() && r.aggregate_name != "median")) continue;
            std::string name = r.benchmark_name();
            name = name.substr(0, name.find("/min_time:"));
            ms_[name] = r.GetAdjustedRealTime();
        }
    }
    void Finalize() override {
        ConsoleReporter::Finalize();
        std::printf("\n%-34s %10s %9s   %-26s %10s %8s\n", "velomar", "ms", "MP/s", "peer", "peer ms",
                    "ratio");
        for (const auto& [name, ms] : ms_) {
            if (name.find(kPeerMark) != std::string::npos) continue;
            double mp = double(kWidth) * kHeight / 1e6 / (ms / 1e3);
            std::printf("%-34s %10.3f %9.1f", name.c_str(), ms, mp);
            bool any = false;
            for (const auto& [peer, pms] : ms_) {
                if (peer.rfind(name + kPeerMark, 0) != 0) continue;
                if (any) std::printf("%-55s", "");
                std::printf("   %-26s %10.3f %7.2fx\n",
                            peer.substr(name.size() + sizeof(kPeerMark) - 1).c_str(), pms, pms / ms);
                any = true;
            }
            if (!any) std::printf("   %-26s\n", "-");
        }
        std::printf("(ratio = peer time / velomar time; above 1 means velomar is faster)\n");
#if !VELOMAR_HAVE_OPENCV
        std::printf("OpenCV was not found at build time: the peers were skipped.\n");
#endif
    }

private:
    std::map<std::string, double> ms_;
};

struct MemoryCase {
    std::string key;
    int channels;
    std::function<void(Image&, Image&)> body;
};

std::vector<MemoryCase>& MemoryCases() {
    static std::vector<MemoryCase> cases;
    return cases;
}

// A "Name:   1234 kB" line of /proc/self/status, in kB (-1 if absent).
long StatusKb(const char* name) {
    std::ifstream status("/proc/self/status");
    std::string line;
    const size_t n = std::strlen(name);
    while (std::getline(status, line))
        if (line.compare(0, n, name) == 0 && line.size() > n && line[n] == ':') return std::stol(line.substr(n + 1));
    return -1;
}

// Runs the case once in a child process: resets the peak-RSS mark once the
// images exist, calls, and reports the peak's rise in kB (-1 on failure).
long PeakRiseKb(const MemoryCase& c) {
    int fds[2];
    if (pipe(fds) != 0) return -1;
    const pid_t pid = fork();
    if (pid == 0) {
        close(fds[0]);
        Image src = MakeImage(c.channels), dst = src;
        // The same allocator state whatever ran before: heap pages the parent
        // freed (resident in the child already, and staying so when written)
        // are handed back, and large blocks are mapped afresh and returned when
        // freed, so the peak counts the scratch that is live at once.
        mallopt(M_MMAP_THRESHOLD, 128 * 1024);
        mallopt(M_TRIM_THRESHOLD, 128 * 1024);
        malloc_trim(0);
        long rise = -1;
        if (std::ofstream("/proc/self/clear_refs") << "5" << std::flush) {
            const long before = StatusKb("VmRSS");
            c.body(src, dst);
            rise = StatusKb("VmHWM") - before;
        }
        (void)!write(fds[1], &rise, sizeof rise);
        _exit(0);
    }
    close(fds[1]);
    long rise = -1;
    if (pid < 0 || read(fds[0], &rise, sizeof rise) != sizeof rise) rise = -1;
    close(fds[0]);
    if (pid > 0) waitpid(pid, nullptr, 0);
    return rise;
}

void PrintMemoryTable() {
    std::printf("\n%-48s %12s %14s\n", "peak memory of one call at 1920x1080", "MB", "x image size");
    for (const MemoryCase& c : MemoryCases()) {
        const long kb = PeakRiseKb(c);
        const double image = double(kWidth) * kHeight * c.channels / 1e6;
        if (kb < 0) std::printf("%-48s %12s\n", c.key.c_str(), "n/a");
        else std::printf("%-48s %12.1f %14.1f\n", c.key.c_str(), kb * 1024 / 1e6, kb * 1024 / 1e6 / image);
    }
    std::printf("(resident memory above the source and destination images)\n");
}

}  // namespace

void RegisterMemory(const std::string& key, int channels, std::function<void(Image&, Image&)> body) {
    MemoryCases().push_back({key, channels, std::move(body)});
}

void Register(const std::string& key, int channels, std::function<void(Image&, Image&)> body) {
    RegisterBody(key, channels, std::move(body));
}

void RegisterPeer(const std::string& key, const std::string& peer, int channels,
                  std::function<void(Image&, Image&)> body) {
#if VELOMAR_HAVE_OPENCV
    RegisterBody(key + kPeerMark + peer, channels, std::move(body));
#else
    (void)key, (void)peer, (void)channels, (void)body;
#endif
}

}  // namespace vbench

int main(int argc, char** argv) {
#if VELOMAR_HAVE_OPENCV
    cv::setNumThreads(1);
#endif
    // The memory table is printed for whole runs, not for filtered ones;
    // --memory prints it alone.
    bool filtered = false;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--memory") == 0) {
            vbench::PrintMemoryTable();
            return 0;
        }
        filtered |= std::strncmp(argv[i], "--benchmark_filter", 18) == 0;
    }
    benchmark::Initialize(&argc, argv);
    vbench::SummaryReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    if (!filtered) vbench::PrintMemoryTable();
    return 0;
}
