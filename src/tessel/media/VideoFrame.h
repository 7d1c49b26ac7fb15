// Video frames as the media platform hands them to hosts. A frame made from a PelPix owns
// a copy of the pixels, so the buffer can be disposed at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <tessel/media/PelPix.h>
#include <tessel/platform/Export.h>

namespace Tessel::MF {

enum class PixelFormat {
    BGRA8BottomUp,  // 8-bit B, G, R, A; first stored row is the bottom row
};

class TESSEL_API IVideoFrame {
public:
    virtual ~IVideoFrame();
    virtual std::uint32_t GetWidth() const = 0;
    virtual std::uint32_t GetHeight() const = 0;
    virtual std::size_t GetRowBytes() const = 0;
    virtual PixelFormat GetPixelFormat() const = 0;
    virtual double GetPixelAspectRatio() const = 0;
    virtual const std::uint8_t* GetPixels() const = 0;
    // The pixel at (X, Y) with Y counted from the top of the picture, as B, G, R, A.
    std::uint32_t GetPixelBGRA(std::uint32_t x, std::uint32_t yFromTop) const;
};

using IVideoFrameRef = std::shared_ptr<const IVideoFrame>;

// A frame holding a copy of the buffer's pixels; empty for a null handle or buffer.
TESSEL_API IVideoFrameRef CreateVideoFrameFromPelPix(PelPixHandle handle);

}  // namespace Tessel::MF
