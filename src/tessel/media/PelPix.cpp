#include <tessel/media/PelPix.h>
#include <tessel/media/PelPixCount.h>

#include <atomic>
#include <new>
#include <vector>

namespace Tessel {

struct PelPix {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::size_t rowbytes = 0;
    double pixelAspectRatio = 1.0;
    int locks = 0;
    std::vector<std::uint8_t> pixels;
};

namespace {

constexpr std::uint32_t kMaximumSide = 32768;
std::atomic<std::int64_t> gLive{0};

PelPix* BufferOf(PelPixHandle handle) {
    return handle ? *handle : nullptr;
}

}  // namespace

PelPixHandle pelpixNew(std::uint32_t width, std::uint32_t height) {
    if (width == 0 || height == 0 || width > kMaximumSide || height > kMaximumSide)
        return nullptr;
    auto* buffer = new (std::nothrow) PelPix();
    if (!buffer)
        return nullptr;
    buffer->width = width;
    buffer->height = height;
    buffer->rowbytes = (static_cast<std::size_t>(width) * kPelPixBytesPerPixel + 15) / 16 * 16;
    try {
        buffer->pixels.assign(buffer->rowbytes * height, 0);
    } catch (const std::bad_alloc&) {
        delete buffer;
        return nullptr;
    }
    auto* cell = new (std::nothrow) PelPix*(buffer);
    if (!cell) {
        delete buffer;
        return nullptr;
    }
    gLive.fetch_add(1);
    return cell;
}

void pelpixDispose(PelPixHandle handle) {
    if (!handle)
        return;
    if (*handle) {
        delete *handle;
        gLive.fetch_sub(1);
    }
    delete handle;
}

std::uint32_t pelpixGetWidth(PelPixHandle handle) {
    const PelPix* p = BufferOf(handle);
    return p ? p->width : 0;
}

std::uint32_t pelpixGetHeight(PelPixHandle handle) {
    const PelPix* p = BufferOf(handle);
    return p ? p->height : 0;
}

std::size_t pelpixGetRowbytes(PelPixHandle handle) {
    const PelPix* p = BufferOf(handle);
    return p ? p->rowbytes : 0;
}

void pelpixLockPixels(PelPixHandle handle) {
    if (PelPix* p = BufferOf(handle))
        ++p->locks;
}

std::uint8_t* pelpixGetPixels(PelPixHandle handle) {
    PelPix* p = BufferOf(handle);
    return (p && p->locks > 0) ? p->pixels.data() : nullptr;
}

void pelpixUnlockPixels(PelPixHandle handle) {
    PelPix* p = BufferOf(handle);
    if (p && p->locks > 0)
        --p->locks;
}

bool pelpixIsLocked(PelPixHandle handle) {
    const PelPix* p = BufferOf(handle);
    return p && p->locks > 0;
}

double pelpixGetPixelAspectRatio(PelPixHandle handle) {
    const PelPix* p = BufferOf(handle);
    return p ? p->pixelAspectRatio : 1.0;
}

void pelpixSetPixelAspectRatio(PelPixHandle handle, double ratio) {
    if (PelPix* p = BufferOf(handle); p && ratio > 0)
        p->pixelAspectRatio = ratio;
}

std::int64_t pelpixLiveCount() {
    return gLive.load();
}

}  // namespace Tessel
