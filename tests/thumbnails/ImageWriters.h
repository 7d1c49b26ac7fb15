// Test images written byte by byte from each format's public layout (PNG through zlib, JPEG
// through TurboJPEG), so that tests control every header field; readers of buffers.
#pragma once

#include <tessel/media/PelPix.h>
#include <zlib.h>
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>
#if !defined(_WIN32)
#include <turbojpeg.h>
#endif

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
    bool operator==(const Picture&) const = default;
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
// Little-endian fields of SIZE bytes, one for each value.
inline void PutLe(Bytes& out, int size, std::initializer_list<std::uint32_t> values) {
    for (const std::uint32_t value : values)
        for (int i = 0; i < size; ++i)
            out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}
inline void Put32Be(Bytes& out, std::uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8)
        out.push_back(static_cast<std::uint8_t>(value >> shift));
}
inline void PutPngChunk(Bytes& out, std::string_view type, const Bytes& data) {
    Put32Be(out, static_cast<std::uint32_t>(data.size()));
    const std::size_t start = out.size();
    out.insert(out.end(), type.begin(), type.end());
    out.insert(out.end(), data.begin(), data.end());
    Put32Be(out, static_cast<std::uint32_t>(
                     crc32(0, out.data() + start, static_cast<uInt>(out.size() - start))));
}
// PNG of raw ROWS (no filter bytes, rows.size() / height bytes each) with these header
// fields; PALETTE holds RGB triples, TRANSPARENCY becomes a tRNS chunk.
inline Bytes WritePng(std::uint32_t width, std::uint32_t height, std::uint8_t bitDepth,
                      std::uint8_t colorType, const Bytes& rows, const Bytes& palette = {},
                      const Bytes& transparency = {}) {
    const std::size_t rowBytes = rows.size() / height;
    Bytes filtered;
    for (std::uint32_t y = 0; y < height; ++y) {
        filtered.push_back(0);  // filter type None
        filtered.insert(filtered.end(), rows.begin() + y * rowBytes,
                        rows.begin() + (y + 1) * rowBytes);
    }
    uLongf size = compressBound(static_cast<uLong>(filtered.size()));
    Bytes compressed(size);
    if (compress2(compressed.data(), &size, filtered.data(), uLong(filtered.size()), 9) != Z_OK)
        throw std::runtime_error("zlib failed");
    compressed.resize(size);
    Bytes out = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'}, header;
    Put32Be(header, width);
    Put32Be(header, height);
    header.insert(header.end(), {bitDepth, colorType, 0, 0, 0});
    PutPngChunk(out, "IHDR", header);
    if (!palette.empty())
        PutPngChunk(out, "PLTE", palette);
    if (!transparency.empty())
        PutPngChunk(out, "tRNS", transparency);
    PutPngChunk(out, "IDAT", compressed);
    PutPngChunk(out, "IEND", {});
    return out;
}
// 8-bit RGB or RGBA.
inline Bytes WritePng(const Picture& picture, bool alpha) {
    Bytes rows;
    for (const Rgba& p : picture.pixels) {
        rows.insert(rows.end(), {p.r, p.g, p.b});
        if (alpha)
            rows.push_back(p.a);
    }
    return WritePng(picture.width, picture.height, 8, alpha ? 6 : 2, rows);
}
// PICTURE's pixels as stored: BGRA cut to BITS, rows bottom-up unless TOP_DOWN.
inline Bytes Stored(const Picture& picture, int bits, bool topDown) {
    Bytes out;
    for (std::uint32_t row = 0; row < picture.height; ++row)
        for (std::uint32_t x = 0; x < picture.width; ++x) {
            const Rgba& p = picture.at(x, topDown ? row : picture.height - 1 - row);
            const std::uint8_t channels[] = {p.b, p.g, p.r, p.a};
            out.insert(out.end(), channels, channels + bits / 8);
        }
    return out;
}
// BMP of stored, unpadded PIXELS (a negative HEIGHT is top-down); 32 bits get a 108-byte
// header with alpha in the bit fields, 8 bits a PALETTE.
inline Bytes WriteBmp(std::uint32_t width, std::int32_t height, int bits, const Bytes& pixels,
                      const std::vector<Rgba>& palette = {}) {
    const std::uint32_t rows = std::uint32_t(std::abs(height)), rowBytes = width * bits / 8,
                        stride = (rowBytes + 3) / 4 * 4, headerSize = bits == 32 ? 108 : 40,
                        offset = 14 + headerSize + std::uint32_t(palette.size()) * 4;
    Bytes out = {'B', 'M'};
    PutLe(out, 4, {offset + stride * rows, 0, offset, headerSize, width, std::uint32_t(height)});
    PutLe(out, 2, {1, std::uint32_t(bits)});
    PutLe(out, 4,  // 72 dpi
          {bits == 32 ? 3u : 0u, stride * rows, 2835, 2835, std::uint32_t(palette.size()), 0});
    if (bits == 32) {
        // Red, green, blue and alpha bit fields, 'sRGB', then end points and gamma.
        PutLe(out, 4, {0x00FF0000, 0x0000FF00, 0x000000FF, 0xFF000000, 0x73524742});
        out.resize(out.size() + 48, 0);
    }
    for (const Rgba& p : palette)
        out.insert(out.end(), {p.b, p.g, p.r, 0});
    for (std::uint32_t row = 0; row < rows; ++row) {
        out.insert(out.end(), pixels.begin() + row * rowBytes,
                   pixels.begin() + (row + 1) * rowBytes);
        out.resize(out.size() + stride - rowBytes, 0);
    }
    return out;
}
inline Bytes WriteBmp(const Picture& picture, int bits = 24, bool topDown = false) {
    const auto height = static_cast<std::int32_t>(picture.height);
    return WriteBmp(picture.width, topDown ? -height : height, bits,
                    Stored(picture, bits, topDown));
}
// Bottom-up 8 bits of INDICES given top-down.
inline Bytes WriteBmp8(std::uint32_t width, std::uint32_t height, const Bytes& indices,
                       const std::vector<Rgba>& palette) {
    Bytes rows;
    for (std::uint32_t y = height; y-- > 0;)
        rows.insert(rows.end(), indices.begin() + y * width, indices.begin() + (y + 1) * width);
    return WriteBmp(width, std::int32_t(height), 8, rows, palette);
}
// Run-length: runs of equal pixels become repeat packets, anything else single raw packets.
inline Bytes WriteTga(const Picture& picture, int bits, bool topDown, bool runLength) {
    Bytes out = {0, 0, static_cast<std::uint8_t>(runLength ? 10 : 2), 0, 0, 0, 0, 0};
    PutLe(out, 2, {0, 0, picture.width, picture.height});  // origin and size
    out.insert(out.end(),
               {std::uint8_t(bits), std::uint8_t((bits / 4 & 8) | (topDown ? 0x20 : 0))});
    const Bytes pixels = Stored(picture, bits, topDown);
    const std::size_t size = bits / 8, count = picture.pixels.size();
    const auto pixel = [&](std::size_t i) { return pixels.begin() + std::ptrdiff_t(i * size); };
    for (std::size_t i = 0, run = 1; i < count; i += run, run = 1) {
        while (runLength && i + run < count && run < 128 &&
               std::equal(pixel(i), pixel(i + 1), pixel(i + run)))
            ++run;
        if (runLength)
            out.push_back(static_cast<std::uint8_t>(run > 1 ? 0x80 | (run - 1) : 0));
        out.insert(out.end(), pixel(i), pixel(i + 1));
    }
    return out;
}
// GIF89a, one image of INDICES; TRANSPARENT_INDEX adds a graphic control extension.
inline Bytes WriteGif(std::uint32_t width, std::uint32_t height, const Bytes& indices,
                      const std::vector<Rgba>& palette,
                      std::optional<std::uint8_t> transparentIndex = std::nullopt) {
    unsigned tableBits = 1;
    while ((1u << tableBits) < palette.size())
        ++tableBits;
    Bytes out = {'G', 'I', 'F', '8', '9', 'a'};
    PutLe(out, 2, {width, height});
    // Global table, background index 0, square pixels.
    out.insert(out.end(), {static_cast<std::uint8_t>(0x80 | (tableBits - 1)), 0, 0});
    for (unsigned i = 0; i < (1u << tableBits); ++i) {
        const Rgba p = i < palette.size() ? palette[i] : Rgba{};
        out.insert(out.end(), {p.r, p.g, p.b});
    }
    if (transparentIndex)
        out.insert(out.end(), {0x21, 0xF9, 4, 0x01, 0, 0, *transparentIndex, 0});
    out.push_back(0x2C);
    PutLe(out, 2, {0, 0, width, height});
    out.push_back(0);  // no local table, not interlaced
    // LZW without compression: every index a literal code, and a clear code before the
    // table would grow past the starting code size.
    const unsigned minimumCodeSize = std::max(2u, tableBits), clear = 1u << minimumCodeSize;
    Bytes data;
    std::uint32_t bitBuffer = 0, bitCount = 0;
    auto emit = [&](unsigned code) {
        bitBuffer |= code << bitCount;
        for (bitCount += minimumCodeSize + 1; bitCount >= 8; bitCount -= 8, bitBuffer >>= 8)
            data.push_back(static_cast<std::uint8_t>(bitBuffer));
    };
    for (std::size_t i = 0; i < indices.size(); ++i) {
        if (i % (clear - 2) == 0)
            emit(clear);
        emit(indices[i]);
    }
    emit(clear + 1);  // end of information
    if (bitCount > 0)
        data.push_back(static_cast<std::uint8_t>(bitBuffer));
    out.push_back(static_cast<std::uint8_t>(minimumCodeSize));
    for (std::size_t i = 0; i < data.size(); i += 255) {
        const std::size_t length = std::min<std::size_t>(255, data.size() - i);
        out.push_back(static_cast<std::uint8_t>(length));
        out.insert(out.end(), data.begin() + i, data.begin() + i + length);
    }
    out.insert(out.end(), {0, 0x3B});
    return out;
}
#if !defined(_WIN32)
// 4:2:0 colour, baseline or progressive; one gray component (the red channel); or CMYK
// 4:4:4 (R, G, B, A taken as C, M, Y, K).
enum class JpegKind { Colour, Progressive, Gray, Cmyk };
inline Bytes WriteJpeg(const Picture& picture, int quality, JpegKind kind = JpegKind::Colour) {
    const auto k = static_cast<int>(kind);
    constexpr int kChannels[] = {3, 3, 1, 4},
                  kFormats[] = {TJPF_RGB, TJPF_RGB, TJPF_GRAY, TJPF_CMYK},
                  kSampling[] = {TJSAMP_420, TJSAMP_420, TJSAMP_GRAY, TJSAMP_444};
    Bytes pixels;
    for (const Rgba& p : picture.pixels) {
        const std::uint8_t channels[] = {p.r, p.g, p.b, p.a};
        pixels.insert(pixels.end(), channels, channels + kChannels[k]);
    }
    tjhandle handle = tjInitCompress();
    unsigned char* jpeg = nullptr;
    unsigned long size = 0;
    const int result =
        tjCompress2(handle, pixels.data(), static_cast<int>(picture.width), 0,
                    static_cast<int>(picture.height), kFormats[k], &jpeg, &size, kSampling[k],
                    quality, kind == JpegKind::Progressive ? TJFLAG_PROGRESSIVE : 0);
    const Bytes out = result == 0 ? Bytes(jpeg, jpeg + size) : Bytes();
    tjFree(jpeg);
    tjDestroy(handle);
    if (out.empty())
        throw std::runtime_error("TurboJPEG failed");
    return out;
}
#endif
// WITH written at AT.
inline Bytes Patch(Bytes bytes, std::size_t at, const Bytes& with) {
    std::copy(with.begin(), with.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
    return bytes;
}
inline Bytes FromBase64(std::string_view text) {
    constexpr std::string_view kDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    Bytes out;
    std::uint32_t bits = 0;
    int count = 0;
    for (const char c : text) {
        if (kDigits.find(c) == std::string_view::npos)
            continue;  // padding
        bits = bits << 6 | static_cast<std::uint32_t>(kDigits.find(c));
        if ((count += 6) >= 8)
            out.push_back(static_cast<std::uint8_t>(bits >> (count -= 8)));
    }
    return out;
}
inline std::string AsString(const Bytes& bytes) {
    return std::string(bytes.begin(), bytes.end());
}
// The pixel at column X of stored row ROW (0 = bottom) of BUFFER.
inline Rgba PixelAt(PelPixHandle buffer, std::uint32_t x, std::uint32_t row) {
    PelPixLock lock(buffer);
    const std::uint8_t* p = lock.Row(row) + x * 4;
    return Rgba{p[2], p[1], p[0], p[3]};
}

}  // namespace Tessel::Test
