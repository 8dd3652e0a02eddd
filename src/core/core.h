// Matrix core: shared internal helpers used by every subsystem.
#pragma once

#include <emmintrin.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "velomar.h"

namespace velomar {

// ---- numbers -----------------------------------------------------------------

// Float to int conversion as the x86 truncating conversion does it: toward
// zero, and the most negative integer for NaN or anything out of range (never
// undefined behaviour).
inline int32_t TruncToInt(double v) { return _mm_cvttsd_si32(_mm_set_sd(v)); }
inline int32_t TruncToInt(float v) { return _mm_cvttss_si32(_mm_set_ss(v)); }

inline uint8_t ClampByte(int32_t v) {
    return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
}

// Truncates toward zero, then clamps to 0..255.
inline uint8_t TruncClampByte(double v) { return ClampByte(TruncToInt(v)); }

// ---- borders -----------------------------------------------------------------

// Source index for position p of an axis of size n. Replicate (EdgeMode 0)
// clamps to the edge; reflect (any other value) mirrors about the edge pixel
// without repeating it. For pads wider than the image the two sides fold
// differently: below 0 the mirrored index is reduced by whole sizes, past the
// end it is lifted by whole sizes.
inline int32_t MapEdgeIndex(int64_t p, int32_t n, int32_t EdgeMode) {
    if (p >= 0 && p < n) return static_cast<int32_t>(p);
    if (EdgeMode == EDGE_REPLICATE) return p < 0 ? 0 : n - 1;
    if (p < 0) return static_cast<int32_t>((-p) % n);
    int64_t r = 2 * static_cast<int64_t>(n) - p - 2;
    if (r < 0) r = ((r % n) + n) % n;
    return static_cast<int32_t>(r);
}

// Fills ColumnTable (Left + Width + Right entries) and RowTable (Top + Height +
// Bottom entries); entry k holds the source index of position k - Left (or
// k - Top). Returns STATUS_INVALID_PARAMETER for a negative pad.
Status BuildPadIndexTable(int32_t Left, int32_t Width, int32_t Height, int32_t Right, int32_t Top,
                          int32_t Bottom, int32_t EdgeMode, int32_t* ColumnTable,
                          int32_t* RowTable);

// ---- floating-point environment ----------------------------------------------------

// Flushes subnormal results to zero for the scope's lifetime and restores the
// caller's control word afterwards. Recursive filters whose state decays into
// the subnormal range behind a bright edge run many times slower there; use
// it only where it provably cannot change a result.
class FlushSubnormals {
public:
    FlushSubnormals() : saved_(_mm_getcsr()) { _mm_setcsr(saved_ | 0x8000u); }
    ~FlushSubnormals() { _mm_setcsr(saved_); }
    FlushSubnormals(const FlushSubnormals&) = delete;
    FlushSubnormals& operator=(const FlushSubnormals&) = delete;

private:
    unsigned saved_;
};

// ---- scratch memory ------------------------------------------------------------

// Heap array owned for the duration of a call, 32-byte aligned (enough for any
// vector width used here). Allocation failure throws std::bad_alloc, which the
// export wrappers turn into an early return.
template <class T>
class Buffer {
public:
    Buffer() = default;
    explicit Buffer(size_t count, bool zeroed = false) { Reset(count, zeroed); }
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;
    Buffer(Buffer&& o) noexcept : data_(std::exchange(o.data_, nullptr)), size_(o.size_) {}
    Buffer& operator=(Buffer&& o) noexcept {
        std::swap(data_, o.data_);
        std::swap(size_, o.size_);
        return *this;
    }
    ~Buffer() { Release(); }

    void Reset(size_t count, bool zeroed = false) {
        Release();
        if (count == 0) count = 1;
        if (count > (SIZE_MAX - 64) / sizeof(T)) throw std::bad_alloc();
        size_t bytes = (count * sizeof(T) + 31) & ~size_t(31);
        data_ = static_cast<T*>(::operator new(bytes, std::align_val_t(32), std::nothrow));
        if (!data_) throw std::bad_alloc();
        size_ = count;
        if (zeroed) std::memset(static_cast<void*>(data_), 0, bytes);
    }
    T* data() { return data_; }
    const T* data() const { return data_; }
    size_t size() const { return size_; }
    T& operator[](size_t i) { return data_[i]; }
    const T& operator[](size_t i) const { return data_[i]; }

private:
    void Release() {
        if (data_) ::operator delete(static_cast<void*>(data_), std::align_val_t(32));
        data_ = nullptr;
        size_ = 0;
    }
    T* data_ = nullptr;
    size_t size_ = 0;
};

// ---- raw-form arguments --------------------------------------------------------

// Bytes of a raw buffer: Height rows of Stride bytes.
inline size_t ImageBytes(int32_t Height, int32_t Stride) {
    return static_cast<size_t>(Height) * static_cast<size_t>(Stride);
}

// The raw form leaves null pointers and empty images undefined; the library
// answers them by returning without touching memory. Stride must also hold at
// least one byte per pixel, so that Stride / Width is a usable layout.
inline bool RawArgsValid(const void* Src, const void* Dest, int32_t Width, int32_t Height,
                         int32_t Stride) {
    return Src && Dest && Width > 0 && Height > 0 && Stride >= Width;
}

// Bytes per pixel as the raw form derives it.
inline int32_t BytesPerPixel(int32_t Width, int32_t Stride) { return Stride / Width; }

// Layouts other than grey are walked three bytes per pixel; a row must then
// hold 3 * Width bytes or the walk would leave the buffer (a two-byte layout
// is answered by returning without writing).
inline bool ThreeBytesFit(int32_t Width, int32_t Stride) {
    return static_cast<int64_t>(Stride) >= 3 * static_cast<int64_t>(Width);
}

// Copy of a source that is also the destination, so that an operation can run
// from the copy into the caller's buffer.
class InPlaceCopy {
public:
    InPlaceCopy(const uint8_t* src, const uint8_t* dest, size_t bytes) : src_(src) {
        if (src == dest) {
            copy_.Reset(bytes);
            std::memcpy(copy_.data(), src, bytes);
            src_ = copy_.data();
        }
    }
    const uint8_t* get() const { return src_; }

private:
    Buffer<uint8_t> copy_;
    const uint8_t* src_;
};

// ---- export boundary -----------------------------------------------------------

// Runs the body of a raw-form export; nothing escapes (an allocation failure
// ends the call early).
template <class F>
inline void Guarded(F&& body) noexcept {
    try {
        body();
    } catch (...) {
    }
}

// Runs the body of a Matrix-form export; an allocation failure reports
// STATUS_OUT_OF_MEMORY.
template <class F>
inline int32_t GuardedStatus(F&& body) noexcept {
    try {
        return body();
    } catch (...) {
        return STATUS_OUT_OF_MEMORY;
    }
}

// ---- Matrix form -----------------------------------------------------------------

// Element size in bytes of a depth code, 0 for an unknown code.
int32_t DepthElementSize(int32_t Depth);

// Whether a record can describe its own 8-bit pixels: Width and Height at
// least 1, Channel 1..4, and WidthStep at least Width * Channel bytes. (Other
// depths are refused later by their own check and never read, so their rows
// are measured in bytes too.)
bool RecordDescribesPixels(const Matrix* m);

// The validation every Matrix-form operation runs first, returning at the
// first failure: null records or Data (and extra required pointers) -> 3,
// a shape difference (Width, Height, Channel, Depth, WidthStep) -> 5, a
// record that cannot describe its pixels or the operation's own parameter
// check -> 4, a non-8-bit depth -> 8.
using MatrixParamCheck = bool (*)(const Matrix* Src, const void* Context);
Status MatrixPreamble(const Matrix* Src, const Matrix* Dest, bool ExtraPointersPresent = true,
                      MatrixParamCheck ParamsOk = nullptr, const void* Context = nullptr);

}  // namespace velomar
