#include <tessel/media/VideoFrame.h>

#include <cstring>

namespace Tessel::MF {

IVideoFrame::~IVideoFrame() = default;

std::uint32_t IVideoFrame::GetPixelBGRA(std::uint32_t x, std::uint32_t yFromTop) const {
    if (x >= GetWidth() || yFromTop >= GetHeight())
        return 0;
    const std::size_t storedRow = GetHeight() - 1 - yFromTop;
    const std::uint8_t* p = GetPixels() + storedRow * GetRowBytes() + x * 4;
    return static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8) |
           (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}

namespace {

class BufferFrame final : public IVideoFrame {
public:
    BufferFrame(std::uint32_t width, std::uint32_t height, std::size_t rowBytes, double aspect,
                std::vector<std::uint8_t> pixels)
        : mWidth(width),
          mHeight(height),
          mRowBytes(rowBytes),
          mAspect(aspect),
          mPixels(std::move(pixels)) {}
    std::uint32_t GetWidth() const override { return mWidth; }
    std::uint32_t GetHeight() const override { return mHeight; }
    std::size_t GetRowBytes() const override { return mRowBytes; }
    PixelFormat GetPixelFormat() const override { return PixelFormat::BGRA8BottomUp; }
    double GetPixelAspectRatio() const override { return mAspect; }
    const std::uint8_t* GetPixels() const override { return mPixels.data(); }

private:
    std::uint32_t mWidth, mHeight;
    std::size_t mRowBytes;
    double mAspect;
    std::vector<std::uint8_t> mPixels;
};

}  // namespace

IVideoFrameRef CreateVideoFrameFromPelPix(PelPixHandle handle) {
    if (!handle || !*handle)
        return nullptr;
    PelPixLock lock(handle);
    const std::size_t rowBytes = pelpixGetRowbytes(handle);
    const std::uint32_t height = pelpixGetHeight(handle);
    const std::uint8_t* pixels = lock.Pixels();
    if (!pixels)
        return nullptr;
    std::vector<std::uint8_t> copy(pixels, pixels + rowBytes * height);
    return std::make_shared<BufferFrame>(pelpixGetWidth(handle), height, rowBytes,
                                         pelpixGetPixelAspectRatio(handle), std::move(copy));
}

}  // namespace Tessel::MF
