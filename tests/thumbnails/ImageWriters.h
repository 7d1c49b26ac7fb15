// Small encoders for test images, each format written byte by byte from its public layout
// (PNG through zlib, JPEG through TurboJPEG) so that tests control every header field, and
// readers of the buffers the library makes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <tessel/media/PelPix.h>

namespace Tessel::Test {

using Bytes = std::vector<std::uint8_t>;

struct Rgba {
    std::uint8_t r = 0, g = 0, b = 0, a = 255;
    bool operator==(const Rgba&) const = default;
};

// A picture in rows top-down.
struct Picture {
    std::uint32_t width = 0, height = 0;
    std::vector<Rgba> pixels;  // width * height
    const Rgba& at(std::uint32_t x, std::uint32_t y) const { return pixels[y * width + x]; }
};

// A picture of WIDTH x HEIGHT whose pixel (x, y) is COLOUR(x, y).
template <typename Function>
Picture MakePicture(std::uint32_t width, std::uint32_t height, Function colour) {
    Picture picture{width, height, {}};
    for (std::uint32_t y = 0; y < height; ++y)
        for (std::uint32_t x = 0; x < width; ++x)
            picture.pixels.push_back(colour(x, y));
    return picture;
}

// PNG from raw rows (no filter bytes; rows.size() / height bytes a row) with the given
// header fields. PALETTE holds RGB triples; TRANSPARENCY becomes a tRNS chunk.
Bytes WritePng(std::uint32_t width, std::uint32_t height, std::uint8_t bitDepth,
               std::uint8_t colorType, const Bytes& rows, const Bytes& palette = {},
               const Bytes& transparency = {});
// 8-bit RGB or RGBA PNG of PICTURE.
Bytes WritePng(const Picture& picture, bool alpha);
// BMP of 24 bits (a 40-byte header) or 32 bits (a 108-byte one whose bit fields include
// alpha), rows bottom-up or top-down (a negative height).
Bytes WriteBmp(const Picture& picture, int bits = 24, bool topDown = false);
// BMP, 8 bits paletted; INDICES top-down.
Bytes WriteBmp8(std::uint32_t width, std::uint32_t height, const Bytes& indices,
                const std::vector<Rgba>& palette);
// TGA of 24 or 32 bits, bottom-up unless TOP_DOWN, raw or run-length packets.
Bytes WriteTga(const Picture& picture, int bits, bool topDown, bool runLength);
// GIF89a with a global palette and one image of INDICES (top-down); TRANSPARENT_INDEX adds
// a graphic control extension naming it.
Bytes WriteGif(std::uint32_t width, std::uint32_t height, const Bytes& indices,
               const std::vector<Rgba>& palette,
               std::optional<std::uint8_t> transparentIndex = std::nullopt);
#if !defined(_WIN32)
// JPEG of PICTURE through TurboJPEG: 4:2:0 colour, baseline or progressive; one gray
// component (the red channel); or CMYK 4:4:4 (R, G, B, A taken as C, M, Y, K).
enum class JpegKind { Colour, Progressive, Gray, Cmyk };
Bytes WriteJpeg(const Picture& picture, int quality, JpegKind kind = JpegKind::Colour);
#endif

// BYTES with WITH written at offset AT.
Bytes Patch(Bytes bytes, std::size_t at, const Bytes& with);
Bytes FromBase64(std::string_view text);
inline std::string AsString(const Bytes& bytes) {
    return std::string(bytes.begin(), bytes.end());
}

// The pixel at column X of stored row ROW (0 = bottom) of BUFFER.
Rgba PixelAt(PelPixHandle buffer, std::uint32_t x, std::uint32_t row);
// FNV-1a over the size and every pixel byte of BUFFER.
std::uint64_t Fingerprint(PelPixHandle buffer);

}  // namespace Tessel::Test
