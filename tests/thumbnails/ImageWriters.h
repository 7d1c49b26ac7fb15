// Small encoders for test images: each format written byte by byte from its public layout
// (PNG through zlib, JPEG through TurboJPEG), so tests control every header field.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

namespace Tessel::Test {

using Bytes = std::vector<std::uint8_t>;

struct Rgba {
    std::uint8_t r = 0, g = 0, b = 0, a = 255;
    bool operator==(const Rgba&) const = default;
};

// A picture in rows top-down, for the writers below.
struct Picture {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
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

// PNG from raw rows (no filter bytes) with the given header fields. PALETTE holds RGB
// triples for colour type 3; TRANSPARENCY becomes a tRNS chunk when not empty.
Bytes WritePng(std::uint32_t width, std::uint32_t height, std::uint8_t bitDepth,
               std::uint8_t colorType, const Bytes& rows, const Bytes& palette = {},
               const Bytes& transparency = {});
// 8-bit RGB (colour type 2) or RGBA (colour type 6) PNG of PICTURE.
Bytes WritePng(const Picture& picture, bool alpha);

// BMP with a 40-byte header: 24 bits, rows bottom-up (or top-down with a negative height).
Bytes WriteBmp24(const Picture& picture, bool topDown = false);
// 32-bit BMP with a 108-byte header whose bit fields include alpha.
Bytes WriteBmp32(const Picture& picture);
// 8-bit paletted BMP; INDICES top-down, PALETTE of RGB colours.
Bytes WriteBmp8(std::uint32_t width, std::uint32_t height, const Bytes& indices,
                const std::vector<Rgba>& palette);

// TGA, 24 or 32 bits (32 announces 8 alpha bits), bottom-up unless TOP_DOWN, raw or
// run-length packets.
Bytes WriteTga(const Picture& picture, int bits, bool topDown, bool runLength);

// GIF89a with a global palette (2 to 256 colours) and one image of INDICES (top-down);
// TRANSPARENT_INDEX adds a graphic control extension naming it.
Bytes WriteGif(std::uint32_t width, std::uint32_t height, const Bytes& indices,
               const std::vector<Rgba>& palette,
               std::optional<std::uint8_t> transparentIndex = std::nullopt);

#if !defined(_WIN32)
// JPEG (4:2:0) of PICTURE through TurboJPEG; GRAY writes one component.
Bytes WriteJpeg(const Picture& picture, int quality, bool gray = false, bool progressive = false);
// A JPEG of WIDTH x HEIGHT holding the same CMYK value everywhere.
Bytes WriteCmykJpeg(std::uint32_t width, std::uint32_t height, std::array<std::uint8_t, 4> cmyk);
#endif

}  // namespace Tessel::Test
