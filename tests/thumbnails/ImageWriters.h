// Test images written byte by byte from each format's public layout (PNG through zlib, JPEG
// through TurboJPEG), so that tests control every header field; readers of buffers.
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
    std::vector<Rgba> pixels;
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

// PNG of raw ROWS (no filter bytes, rows.size() / height bytes each) with these header
// fields; PALETTE holds RGB triples, TRANSPARENCY becomes a tRNS chunk.
Bytes WritePng(std::uint32_t width, std::uint32_t height, std::uint8_t bitDepth,
               std::uint8_t colorType, const Bytes& rows, const Bytes& palette = {},
               const Bytes& transparency = {});
Bytes WritePng(const Picture& picture, bool alpha);  // 8-bit RGB or RGBA
// BMP of 24 bits (40-byte header) or 32 bits (108-byte header, alpha in the bit fields).
Bytes WriteBmp(const Picture& picture, int bits = 24, bool topDown = false);
Bytes WriteBmp8(std::uint32_t width, std::uint32_t height, const Bytes& indices,
                const std::vector<Rgba>& palette);
Bytes WriteTga(const Picture& picture, int bits, bool topDown, bool runLength);
// GIF89a, one image of INDICES; TRANSPARENT_INDEX adds a graphic control extension.
Bytes WriteGif(std::uint32_t width, std::uint32_t height, const Bytes& indices,
               const std::vector<Rgba>& palette,
               std::optional<std::uint8_t> transparentIndex = std::nullopt);
#if !defined(_WIN32)
// 4:2:0 colour, baseline or progressive; one gray component (the red channel); or CMYK
// 4:4:4 (R, G, B, A taken as C, M, Y, K).
enum class JpegKind { Colour, Progressive, Gray, Cmyk };
Bytes WriteJpeg(const Picture& picture, int quality, JpegKind kind = JpegKind::Colour);
#endif

Bytes Patch(Bytes bytes, std::size_t at, const Bytes& with);  // WITH written at AT
Bytes FromBase64(std::string_view text);
inline std::string AsString(const Bytes& bytes) {
    return std::string(bytes.begin(), bytes.end());
}

// The pixel at column X of stored row ROW (0 = bottom) of BUFFER.
Rgba PixelAt(PelPixHandle buffer, std::uint32_t x, std::uint32_t row);
// The size and the pixel bytes of BUFFER, row by row.
Bytes PixelsOf(PelPixHandle buffer);

}  // namespace Tessel::Test
