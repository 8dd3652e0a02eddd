// Every export, every layout, between inaccessible pages: the source and the
// destination each start right after one and, in a second run, end exactly at
// one, and the source is mapped read-only, so a single byte read or written
// outside the rows, or a write to Src, is a crash (named by the handler).
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>

#include "host.h"

namespace {

using host::Image;

// `size` bytes with an inaccessible page on either side, placed right after
// the first or ending exactly at the second.
class Guarded {
public:
    Guarded(size_t size, bool atEnd) : page_(size_t(sysconf(_SC_PAGESIZE))) {
        span_ = (size + page_ - 1) / page_ * page_;
        void* base = mmap(nullptr, span_ + 2 * page_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        base_ = base == MAP_FAILED ? nullptr : static_cast<uint8_t*>(base);
        if (!base_) return;
        mprotect(base_, page_, PROT_NONE);
        mprotect(base_ + page_ + span_, page_, PROT_NONE);
        data_ = atEnd ? base_ + page_ + span_ - size : base_ + page_;
    }
    ~Guarded() {
        if (base_) munmap(base_, span_ + 2 * page_);
    }
    Guarded(const Guarded&) = delete;
    Guarded& operator=(const Guarded&) = delete;
    uint8_t* data() const { return data_; }
    void ReadOnly() const { mprotect(base_ + page_, span_, PROT_READ); }

private:
    size_t page_, span_ = 0;
    uint8_t* base_ = nullptr;
    uint8_t* data_ = nullptr;
};

// The case under way, for the crash handler to name.
char current[256];

void NameTheCase(int sig) {
    const char prefix[] = "\nout-of-bounds access in: ";
    (void)!write(STDERR_FILENO, prefix, sizeof prefix - 1);
    (void)!write(STDERR_FILENO, current, strnlen(current, sizeof current));
    (void)!write(STDERR_FILENO, "\n", 1);
    signal(sig, SIG_DFL);
    raise(sig);
}

TEST(GuardPages, NoExportTouchesBytesOutsideItsBuffers) {
    signal(SIGSEGV, NameTheCase);
    signal(SIGBUS, NameTheCase);
    const std::pair<int, int> shapes[] = {{1, 1}, {1, 6}, {6, 1}, {13, 9}, {70, 3}};
    int calls = 0;
    for (const host::Op& op : host::Ops()) {
        const std::vector<std::vector<double>> sets = host::ParameterSets(op);
        for (size_t set = 0; set < sets.size(); ++set)
            for (int c : {1, 3, 4}) {
                const std::vector<double>& values = sets[set];
                if (!op.Takes(c)) continue;
                for (auto [w, h] : shapes)
                    for (int pad : {0, 3, 7})
                        for (bool atEnd : {false, true}) {
                            const int stride = w * c + pad;
                            const size_t size = size_t(stride) * h;
                            std::snprintf(current, sizeof current, "%s on %dx%dx%d stride %d, %s, set %d", op.name.c_str(),
                                          w, h, c, stride, atEnd ? "ending at a guard" : "after a guard",
                                          int(set));
                            Guarded src(size, atEnd), dst(size, atEnd), both(size, atEnd);
                            ASSERT_TRUE(src.data() && dst.data() && both.data());
                            std::generate_n(src.data(), size, std::mt19937(uint32_t(size)));
                            std::memcpy(dst.data(), src.data(), size);
                            std::memcpy(both.data(), src.data(), size);
                            src.ReadOnly();
                            const Image in = Image::View(src.data(), w, h, c, stride);
                            Image out = Image::View(dst.data(), w, h, c, stride), same = Image::View(both.data(), w, h, c, stride);
                            op.run(in, out, values);
                            op.run(same, same, values);
                            calls += 2;
                        }
            }
    }
    EXPECT_GT(calls, 10000);
}

}  // namespace
