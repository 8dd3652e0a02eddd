// CPU and OS feature detection for the wider code paths.
#include "core/cpu.h"

#include <cpuid.h>

#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace velomar {

namespace {

// XCR0: the register state the OS saves on a context switch.
uint64_t ReadXcr0() {
    uint32_t lo, hi;
    __asm__ volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
    return (uint64_t(hi) << 32) | lo;
}

Isa ProbeCpu() {
    unsigned a, b, c, d;
    if (!__get_cpuid(1, &a, &b, &c, &d)) return Isa::Sse2;
    const bool osxsave = c & (1u << 27), avx = c & (1u << 28);
    if (!osxsave || !avx) return Isa::Sse2;
    const uint64_t xcr0 = ReadXcr0();
    if ((xcr0 & 0x6) != 0x6) return Isa::Sse2;  // XMM and YMM state
    if (!__get_cpuid_count(7, 0, &a, &b, &c, &d)) return Isa::Sse2;
    const bool avx2 = b & (1u << 5);
    if (!avx2) return Isa::Sse2;
    // AVX-512 foundation and byte/word instructions, with the opmask and
    // upper ZMM state saved by the OS.
    const bool avx512 = (b & (1u << 16)) && (b & (1u << 30)) && (xcr0 & 0xE0) == 0xE0;
    return avx512 ? Isa::Avx512 : Isa::Avx2;
}

// The override from VELOMAR_ISA, or the widest set when it is absent or not
// understood.
Isa EnvironmentLimit() {
    const char* value = std::getenv("VELOMAR_ISA");
    if (!value) return Isa::Avx512;
    char name[8] = {};
    for (size_t i = 0; i + 1 < sizeof name && value[i]; ++i)
        name[i] = static_cast<char>(std::tolower(static_cast<unsigned char>(value[i])));
    if (!std::strcmp(name, "sse2")) return Isa::Sse2;
    if (!std::strcmp(name, "avx2")) return Isa::Avx2;
    return Isa::Avx512;
}

Isa Narrower(Isa a, Isa b) { return static_cast<int>(a) < static_cast<int>(b) ? a : b; }

// Per-thread test limit; Avx512 means none.
thread_local Isa threadLimit = Isa::Avx512;

}  // namespace

Isa DetectedIsa() {
    // Computed once; the initialisation of a function-local static is
    // thread-safe.
    static const Isa detected = Narrower(ProbeCpu(), EnvironmentLimit());
    return detected;
}

Isa ActiveIsa() { return Narrower(DetectedIsa(), threadLimit); }

ScopedIsaLimit::ScopedIsaLimit(Isa limit) : saved_(threadLimit) { threadLimit = Narrower(limit, saved_); }
ScopedIsaLimit::~ScopedIsaLimit() { threadLimit = saved_; }

const char* IsaName(Isa isa) {
    switch (isa) {
        case Isa::Sse2: return "sse2";
        case Isa::Avx2: return "avx2";
        case Isa::Avx512: return "avx512";
    }
    return "sse2";
}

}  // namespace velomar
