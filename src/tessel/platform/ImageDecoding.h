// Image decoding: encoded image bytes or files to device-independent bitmaps. One decoder
// per OS: platform/posix/ImageDecoding.cpp uses TurboJPEG, libpng and stb_image,
// platform/win32/ImageDecoding.cpp GDI+; recognition (ImageRecognition.h) and file reading
// are shared.
//
// Only JPEG, PNG, BMP, GIF (first frame) and TGA are recognised (GDI+ has no TGA decoder,
// so Windows refuses TGA). A file is recognised by its signature or, for TGA, which has
// none, by a header that makes sense; anything else is refused before any decoder sees it.
// Sizes are checked from the header before anything is allocated, and truncated or corrupt
// data is refused rather than drawn half-way (except JPEG scan data that is corrupt but
// complete, which GDI+ draws as best it can).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include <tessel/platform/Export.h>
#include <tessel/platform/FileSystem.h>

namespace Tessel::Platform {

// The most pixels a decode may hold, and the longest side. Images beyond them are refused
// from their header. They bound the pixels actually decoded: a JPEG larger than this can
// still be decoded at a reduced scale that fits (not on Windows, where GDI+ decodes at full
// size). (A GIF canvas may hold a quarter of the pixels, as decoding it takes nine bytes a
// pixel.) Headers that announce more pixels than their data could encode are refused too.
inline constexpr std::uint64_t kMaximumDecodedPixels = 100'000'000;
inline constexpr std::uint32_t kMaximumDecodedSide = 32767;
// Image files and encoded images larger than this are refused.
inline constexpr std::uint64_t kMaximumImageFileBytes = 256ull * 1024 * 1024;

enum class ImageFormat { Jpeg, Png, Bmp, Gif, Tga };

// What the header of a recognised image says.
struct ImageInfo {
    ImageFormat format = ImageFormat::Jpeg;
    std::uint32_t width = 0;  // the image's own size
    std::uint32_t height = 0;
};

// A device-independent bitmap. Rows are stored top-down (the first row is the top of the
// picture), each rowBytes long.
struct DecodedBitmap {
    std::uint32_t width = 0;  // the pixels held
    std::uint32_t height = 0;
    // The image's own size; larger than width and height after a reduced-scale decode.
    std::uint32_t sourceWidth = 0;
    std::uint32_t sourceHeight = 0;
    // 24: B, G, R with no alpha; 32: B, G, R, A with straight (not premultiplied) alpha.
    std::uint16_t bitsPerPixel = 0;
    std::uint16_t planes = 1;
    std::size_t rowBytes = 0;
    std::vector<std::uint8_t> pixels;
};

// Recognises the format and reads the image's size from its header, checking the
// structure as far as a header allows (truncation included) without decoding pixels.
TESSEL_API std::optional<ImageInfo> ReadImageInfo(std::span<const std::uint8_t> bytes);

// Decodes a recognised image (the first frame of a GIF). Sources without alpha (JPEG, gray,
// RGB) give 24 bits per pixel; sources with alpha give 32: RGBA and gray-alpha PNG, PNG
// with a transparency chunk, BMP with an alpha channel (not on Windows, where GDI+ reads
// none), GIF whose first frame leaves pixels transparent, TGA with alpha bits. Gray and
// paletted images are expanded; 16-bit samples are reduced to 8.
//
// HINT_WIDTH and HINT_HEIGHT (0: no wish) let a JPEG decode at the smallest reduced DCT
// scale that is still at least that large in both directions, which is much faster (POSIX;
// GDI+ always decodes at full size).
TESSEL_API std::optional<DecodedBitmap> DecodeImage(std::span<const std::uint8_t> bytes,
                                                    std::uint32_t hintWidth = 0,
                                                    std::uint32_t hintHeight = 0);

// Reads a whole image file. Only regular files are read (a FIFO or device is refused
// without blocking), and only up to kMaximumImageFileBytes; empty files are refused.
TESSEL_API std::optional<std::vector<std::uint8_t>> ReadImageFile(const NativeString& path);

// ReadImageFile, then DecodeImage; a BMP file DecodeImage refuses goes on to
// LoadBitmapFileWithSystem.
TESSEL_API std::optional<DecodedBitmap> DecodeImageFile(const NativeString& path,
                                                        std::uint32_t hintWidth = 0,
                                                        std::uint32_t hintHeight = 0);

// The system's own loader of bitmap files, the last resort for a BMP file that passed
// recognition but that DecodeImage refused: on Windows LoadImageW (as a DIB section), which
// takes some variants GDI+ does not; only 24- and 32-bit results count, and they give 24
// bits (no alpha, as GDI+ reads BMP files). None elsewhere.
TESSEL_API std::optional<DecodedBitmap> LoadBitmapFileWithSystem(const NativeString& path);

}  // namespace Tessel::Platform
