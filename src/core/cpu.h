// The one CPU dispatcher: which instruction set the wider code paths may use.
#pragma once

// 64-bit MinGW GCC cannot align its stack for spilled 256- and 512-bit
// registers (it emits aligned moves into a 16-byte aligned frame), so the
// wider paths that may spill are compiled only where this is 1; elsewhere
// they hand their work back to the SSE2 path.
#if defined(_WIN64) && defined(__GNUC__) && !defined(__clang__)
#define VELOMAR_WIDE_PATHS 0
#else
#define VELOMAR_WIDE_PATHS 1
#endif

// Code between VELOMAR_TARGET_BEGIN("avx2") (or another instruction set) and
// VELOMAR_TARGET_END is compiled for that set; the dispatcher decides whether
// it runs.
#define VELOMAR_PRAGMA(text) _Pragma(#text)
#if defined(__clang__)
#define VELOMAR_TARGET_BEGIN(isa) VELOMAR_PRAGMA(clang attribute push(__attribute__((target(isa))), apply_to = function))
#define VELOMAR_TARGET_END VELOMAR_PRAGMA(clang attribute pop)
#else
#define VELOMAR_TARGET_BEGIN(isa) VELOMAR_PRAGMA(GCC push_options) VELOMAR_PRAGMA(GCC target(isa))
#define VELOMAR_TARGET_END VELOMAR_PRAGMA(GCC pop_options)
#endif

namespace velomar {

// Instruction sets in order of width. SSE2 is the baseline every build has.
enum class Isa : int { Sse2 = 0, Avx2 = 1, Avx512 = 2 };

// The widest instruction set that both the CPU and the operating system
// support (the OS must save the wider registers), found once per process.
// The environment variable VELOMAR_ISA (sse2, avx2 or avx512) can only
// narrow it, for A/B checks; the narrowest of the two wins.
Isa DetectedIsa();

// The instruction set a call may use: DetectedIsa(), narrowed further on this
// thread while a ScopedIsaLimit exists. Paths must give identical results
// under every instruction set; this only chooses speed.
Isa ActiveIsa();

// Test hook: narrows ActiveIsa() on the calling thread for its lifetime.
// Nothing in the library creates one.
class ScopedIsaLimit {
public:
    explicit ScopedIsaLimit(Isa limit);
    ~ScopedIsaLimit();
    ScopedIsaLimit(const ScopedIsaLimit&) = delete;
    ScopedIsaLimit& operator=(const ScopedIsaLimit&) = delete;

private:
    Isa saved_;
};

// Name of an instruction set as the override spells it.
const char* IsaName(Isa isa);

}  // namespace velomar
