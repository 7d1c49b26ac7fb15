#include <tessel/thumbnails/RenderThumbnail.h>

#include <algorithm>
#include <optional>
#include <span>

#include <tessel/foundation/Path.h>
#include <tessel/thumbnails/Resample.h>
#include <tessel/thumbnails/ThumbnailFit.h>

namespace Tessel {

namespace {

bool IsReasonableBox(const ThumbnailFit& fit) {
    return fit.boxWidth > 0 && fit.boxHeight > 0 &&
           std::uint64_t{fit.boxWidth} * fit.boxHeight <= kMaximumThumbnailPixels;
}

// FILE, when given, is where BYTES were read from, for the system's bitmap loader.
OwnedPelPix RenderEncoded(std::span<const std::uint8_t> bytes, std::uint32_t width,
                          std::uint32_t height, const Platform::NativeString* file = nullptr) {
    const std::optional<Platform::ImageInfo> info = Platform::ReadImageInfo(bytes);
    if (!info)
        return nullptr;
    const ThumbnailFit fit = FitThumbnail(info->width, info->height, width, height);
    if (!IsReasonableBox(fit))
        return nullptr;
    // The drawn size, not the box, so that a reduced decode is never smaller than what is
    // drawn. Nothing drawn still decodes (at the smallest scale), so that a corrupt image
    // gives no thumbnail whatever the box.
    std::optional<Platform::DecodedBitmap> bitmap =
        Platform::DecodeImage(bytes, std::max(fit.drawnWidth, 1u), std::max(fit.drawnHeight, 1u));
    if (!bitmap && file && info->format == Platform::ImageFormat::Bmp)
        bitmap = Platform::LoadBitmapFileWithSystem(*file);
    if (!bitmap)
        return nullptr;
    return RenderDecodedBitmap(*bitmap, width, height);
}

}  // namespace

PelPixHandle RenderThumbnail(const std::string& utf8Path, std::uint32_t width,
                             std::uint32_t height) {
    const Platform::NativeString path = Path::ToNative(utf8Path);
    const std::optional<std::vector<std::uint8_t>> bytes = Platform::ReadImageFile(path);
    if (!bytes)
        return nullptr;
    return RenderEncoded(*bytes, width, height, &path).release();  // the caller's from here
}

PelPixHandle RenderThumbnail(const std::vector<std::uint8_t>& bytes, std::uint32_t width,
                             std::uint32_t height) {
    return RenderEncoded(bytes, width, height).release();  // the caller's from here
}

OwnedPelPix RenderDecodedBitmap(const Platform::DecodedBitmap& bitmap, std::uint32_t width,
                                std::uint32_t height) {
    if (bitmap.planes != 1 || (bitmap.bitsPerPixel != 24 && bitmap.bitsPerPixel != 32))
        return nullptr;
    const std::size_t pixelBytes = bitmap.bitsPerPixel / 8;
    if (bitmap.width == 0 || bitmap.height == 0 || bitmap.rowBytes / pixelBytes < bitmap.width)
        return nullptr;
    // Every row must be inside the pixels (the last one need not be padded).
    const std::size_t lastRow = bitmap.height - std::size_t{1};
    if (bitmap.pixels.size() < bitmap.width * pixelBytes ||
        lastRow > (bitmap.pixels.size() - bitmap.width * pixelBytes) / bitmap.rowBytes)
        return nullptr;

    const std::uint32_t sourceWidth = bitmap.sourceWidth != 0 ? bitmap.sourceWidth : bitmap.width;
    const std::uint32_t sourceHeight =
        bitmap.sourceHeight != 0 ? bitmap.sourceHeight : bitmap.height;
    const ThumbnailFit fit = FitThumbnail(sourceWidth, sourceHeight, width, height);
    if (!IsReasonableBox(fit))
        return nullptr;
    OwnedPelPix buffer(pelpixNew(fit.boxWidth, fit.boxHeight));
    if (!buffer)
        return nullptr;
    // The fit never exceeds the box; the bounds are kept against the buffer all the same.
    PelPixRectangle rectangle;
    rectangle.x = std::min(fit.offsetX, fit.boxWidth);
    rectangle.firstRow = std::min(fit.offsetRows, fit.boxHeight);
    rectangle.width = std::min(fit.drawnWidth, fit.boxWidth - rectangle.x);
    rectangle.height = std::min(fit.drawnHeight, fit.boxHeight - rectangle.firstRow);
    {
        PelPixLock lock(buffer.get());
        if (!ResampleIntoPelPix(bitmap, lock, pelpixGetRowbytes(buffer.get()), rectangle))
            return nullptr;
    }
    return buffer;
}

}  // namespace Tessel
