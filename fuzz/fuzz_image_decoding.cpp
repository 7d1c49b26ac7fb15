// Feeds arbitrary bytes to the image decoders. The first two bytes choose the JPEG scale
// hint (so that reduced decodes are explored too); the rest is the encoded image. Besides
// memory and UB faults it checks what the thumbnail code relies on: a decoded bitmap has
// the layout it announces, stays within the size limits, agrees with the header, and a
// reduced decode is never smaller than the hint asked for.
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <span>

#include <tessel/platform/ImageDecoding.h>

namespace {

void Check(bool condition) {
    if (!condition)
        std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2)
        return 0;
    // 0 (no hint) or 8..2040 pixels a side.
    const std::uint32_t hintWidth = std::uint32_t{data[0]} * 8;
    const std::uint32_t hintHeight = std::uint32_t{data[1]} * 8;
    const std::span<const std::uint8_t> bytes(data + 2, size - 2);

    namespace P = Tessel::Platform;
    const std::optional<P::ImageInfo> info = P::ReadImageInfo(bytes);
    const std::optional<P::DecodedBitmap> bitmap = P::DecodeImage(bytes, hintWidth, hintHeight);
    if (!bitmap)
        return 0;
    Check(info.has_value());
    Check(bitmap->planes == 1);
    Check(bitmap->bitsPerPixel == 24 || bitmap->bitsPerPixel == 32);
    Check(bitmap->width > 0 && bitmap->height > 0);
    Check(bitmap->width <= P::kMaximumDecodedSide && bitmap->height <= P::kMaximumDecodedSide);
    Check(std::uint64_t{bitmap->width} * bitmap->height <= P::kMaximumDecodedPixels);
    Check(bitmap->rowBytes >= std::size_t{bitmap->width} * (bitmap->bitsPerPixel / 8));
    Check(bitmap->pixels.size() == bitmap->rowBytes * bitmap->height);
    Check(bitmap->sourceWidth == info->width && bitmap->sourceHeight == info->height);
    Check(bitmap->width <= bitmap->sourceWidth && bitmap->height <= bitmap->sourceHeight);
    if (bitmap->width < bitmap->sourceWidth || bitmap->height < bitmap->sourceHeight) {
        Check(info->format == P::ImageFormat::Jpeg && (hintWidth != 0 || hintHeight != 0));
        Check(bitmap->width >= hintWidth && bitmap->height >= hintHeight);
    }
    // Every byte is readable (ASan reports it otherwise) and defined.
    std::uint32_t sum = 0;
    for (std::uint8_t byte : bitmap->pixels)
        sum += byte;
    volatile std::uint32_t sink = sum;
    (void)sink;
    return 0;
}
