// Recognising an image from its bytes: the format, the size, and a check of the structure
// as deep as a header allows (truncation included), before any decoder sees the data.
// Pure byte parsing, shared by every decoding backend, so that all platforms accept the
// same files and announce the same sizes.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include <tessel/platform/ImageDecoding.h>

namespace Tessel::Platform {

struct ImageRecognition {
    ImageFormat format = ImageFormat::Jpeg;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    // Whether the pixels carry alpha: PNG with an alpha channel or a transparency chunk, BMP
    // with 32-bit plain pixels or an alpha mask, TGA with alpha bits, GIF always (its first
    // frame may leave pixels transparent, which only the pixels tell).
    bool alpha = false;
};

// A bitmap of WIDTH x HEIGHT with tightly packed rows, for a picture of SOURCE_WIDTH x
// SOURCE_HEIGHT; nullopt when memory is short. Every decoding backend fills one.
std::optional<DecodedBitmap> NewDecodedBitmap(std::uint32_t width, std::uint32_t height,
                                              std::uint32_t sourceWidth, std::uint32_t sourceHeight,
                                              unsigned bytesPerPixel);

// Whether a decode of WIDTH x HEIGHT stays within kMaximumDecodedSide and
// kMaximumDecodedPixels.
bool WithinDecodeLimits(std::uint64_t width, std::uint64_t height);

// Null for anything but JPEG (8-bit Huffman-coded), PNG, BMP (plain or bit fields), GIF and
// TGA, for sizes beyond the limits of ImageDecoding.h, and for data too short for what the
// header announces.
std::optional<ImageRecognition> RecogniseImage(std::span<const std::uint8_t> bytes);

}  // namespace Tessel::Platform
