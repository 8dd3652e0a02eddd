// The CPU dispatcher against the compiler's own feature checks, the
// environment override and the per-thread test limit.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <thread>

#include "core/cpu.h"

namespace {

using velomar::Isa;

Isa CompilerIsa() {
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw")) return Isa::Avx512;
    if (__builtin_cpu_supports("avx2")) return Isa::Avx2;
    return Isa::Sse2;
}

// CI runs this test a second time with VELOMAR_ISA=sse2.
TEST(Cpu, DetectsWhatTheCompilerSeesNarrowedByTheEnvironment) {
    Isa expected = CompilerIsa();
    if (const char* env = std::getenv("VELOMAR_ISA")) {
        const std::string v = env;
        if (v == "sse2") expected = Isa::Sse2;
        if (v == "avx2" && expected == Isa::Avx512) expected = Isa::Avx2;
    }
    EXPECT_EQ(velomar::DetectedIsa(), expected);
    EXPECT_EQ(velomar::ActiveIsa(), expected);
}

TEST(Cpu, ScopedLimitNarrowsOnlyItsThreadAndRestores) {
    const Isa detected = velomar::DetectedIsa();
    {
        const velomar::ScopedIsaLimit sse2(Isa::Sse2);
        EXPECT_EQ(velomar::ActiveIsa(), Isa::Sse2);
        {
            const velomar::ScopedIsaLimit wider(Isa::Avx512);  // cannot widen again
            EXPECT_EQ(velomar::ActiveIsa(), Isa::Sse2);
        }
#ifdef _GLIBCXX_HAS_GTHREADS  // (not in every Windows cross toolchain)
        Isa other = Isa::Sse2;
        std::thread([&] { other = velomar::ActiveIsa(); }).join();
        EXPECT_EQ(other, detected);
#endif
    }
    EXPECT_EQ(velomar::ActiveIsa(), detected);
}

}  // namespace
