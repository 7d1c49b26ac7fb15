// PelPix: the host's pixel buffer. Pixels are 8-bit BGRA, rows stored bottom-up (the first
// stored row is the bottom row of the picture), as Windows device-independent bitmaps are,
// so placement rules counted in stored rows mean the same on every platform.
//
// A buffer is reached through a handle: a pointer to a cell that points to the buffer.
// pelpixNew makes both; pelpixDispose frees both. A handle whose cell holds null is a
// handle to no buffer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include <tessel/platform/Export.h>

namespace Tessel {

struct PelPix;
using PelPixHandle = PelPix**;

inline constexpr std::uint32_t kPelPixBytesPerPixel = 4;  // B, G, R, A

// A new buffer of WIDTH x HEIGHT pixels, cleared to zero, with square pixels. Null when a
// side is 0, the size is absurd (over 32,768 pixels a side) or memory is short.
TESSEL_API PelPixHandle pelpixNew(std::uint32_t width, std::uint32_t height);
// Frees the buffer and the handle; null is ignored.
TESSEL_API void pelpixDispose(PelPixHandle handle);

TESSEL_API std::uint32_t pelpixGetWidth(PelPixHandle handle);
TESSEL_API std::uint32_t pelpixGetHeight(PelPixHandle handle);
// Bytes from one stored row to the next (width * 4, rounded up to a multiple of 16).
TESSEL_API std::size_t pelpixGetRowbytes(PelPixHandle handle);

// Pixel access is bracketed by lock and unlock; locks nest. pelpixGetPixels answers the
// first stored row (the bottom row), or null when the buffer is not locked.
TESSEL_API void pelpixLockPixels(PelPixHandle handle);
TESSEL_API std::uint8_t* pelpixGetPixels(PelPixHandle handle);
TESSEL_API void pelpixUnlockPixels(PelPixHandle handle);
TESSEL_API bool pelpixIsLocked(PelPixHandle handle);

// Width of a pixel divided by its height (1.0 for square pixels).
TESSEL_API double pelpixGetPixelAspectRatio(PelPixHandle handle);
TESSEL_API void pelpixSetPixelAspectRatio(PelPixHandle handle, double ratio);

// The owner of a buffer inside the library: disposes of it (handle and cell) when it goes.
// Raw handles appear only where the API hands a buffer over.
struct PelPixDisposer {
    void operator()(PelPixHandle handle) const { pelpixDispose(handle); }
};
using OwnedPelPix = std::unique_ptr<PelPix*, PelPixDisposer>;

// Locks a buffer for the life of the object.
class PelPixLock {
public:
    explicit PelPixLock(PelPixHandle handle) : mHandle(handle) { pelpixLockPixels(mHandle); }
    ~PelPixLock() { pelpixUnlockPixels(mHandle); }
    PelPixLock(const PelPixLock&) = delete;
    PelPixLock& operator=(const PelPixLock&) = delete;
    std::uint8_t* Pixels() const { return pelpixGetPixels(mHandle); }
    // The stored row ROW (0 = bottom row of the picture).
    std::uint8_t* Row(std::uint32_t row) const {
        return Pixels() + static_cast<std::size_t>(row) * pelpixGetRowbytes(mHandle);
    }

private:
    PelPixHandle mHandle;
};

}  // namespace Tessel
