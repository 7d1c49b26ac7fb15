// The parts of image decoding that every backend shares: recognition from the bytes and
// reading image files.
#include <tessel/platform/ImageDecoding.h>

#include <new>
#include <string>

#include <tessel/platform/AtomicFile.h>
#include <tessel/platform/ImageRecognition.h>

namespace Tessel::Platform {

std::optional<ImageInfo> ReadImageInfo(std::span<const std::uint8_t> bytes) {
    const std::optional<ImageRecognition> recognition = RecogniseImage(bytes);
    if (!recognition)
        return std::nullopt;
    return ImageInfo{recognition->format, recognition->width, recognition->height};
}

std::optional<std::vector<std::uint8_t>> ReadImageFile(const NativeString& path) {
    std::string bytes;
    std::string error;
    if (path.empty() || path.find(NativeString::value_type{0}) != NativeString::npos ||
        ReadWholeFile(path, bytes, error, kMaximumImageFileBytes) != ReadFileStatus::Ok ||
        bytes.empty()) {
        return std::nullopt;
    }
    return std::vector<std::uint8_t>(bytes.begin(), bytes.end());
}

std::optional<DecodedBitmap> DecodeImageFile(const NativeString& path, std::uint32_t hintWidth,
                                             std::uint32_t hintHeight) {
    const std::optional<std::vector<std::uint8_t>> bytes = ReadImageFile(path);
    if (!bytes)
        return std::nullopt;
    if (std::optional<DecodedBitmap> bitmap = DecodeImage(*bytes, hintWidth, hintHeight))
        return bitmap;
    const std::optional<ImageRecognition> recognition = RecogniseImage(*bytes);
    if (recognition && recognition->format == ImageFormat::Bmp)
        return LoadBitmapFileWithSystem(path);
    return std::nullopt;
}

std::optional<DecodedBitmap> NewDecodedBitmap(std::uint32_t width, std::uint32_t height,
                                              std::uint32_t sourceWidth, std::uint32_t sourceHeight,
                                              unsigned bytesPerPixel) {
    DecodedBitmap bitmap;
    bitmap.width = width;
    bitmap.height = height;
    bitmap.sourceWidth = sourceWidth;
    bitmap.sourceHeight = sourceHeight;
    bitmap.bitsPerPixel = static_cast<std::uint16_t>(bytesPerPixel * 8);
    bitmap.rowBytes = std::size_t{width} * bytesPerPixel;
    try {
        bitmap.pixels.resize(bitmap.rowBytes * height);
    } catch (const std::bad_alloc&) {
        return std::nullopt;
    }
    return bitmap;
}

}  // namespace Tessel::Platform
