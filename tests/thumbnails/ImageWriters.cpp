#include "ImageWriters.h"

#include <zlib.h>

#include <algorithm>
#include <initializer_list>
#include <stdexcept>

#if !defined(_WIN32)
#include <turbojpeg.h>
#endif

namespace Tessel::Test {

namespace {

// Little-endian fields of SIZE bytes, one for each value.
void PutLe(Bytes& out, int size, std::initializer_list<std::uint32_t> values) {
    for (const std::uint32_t value : values)
        for (int i = 0; i < size; ++i)
            out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}
void Put32Be(Bytes& out, std::uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8)
        out.push_back(static_cast<std::uint8_t>(value >> shift));
}

void PutPngChunk(Bytes& out, std::string_view type, const Bytes& data) {
    Put32Be(out, static_cast<std::uint32_t>(data.size()));
    const std::size_t start = out.size();
    out.insert(out.end(), type.begin(), type.end());
    out.insert(out.end(), data.begin(), data.end());
    const uLong crc = crc32(0, out.data() + start, static_cast<uInt>(out.size() - start));
    Put32Be(out, static_cast<std::uint32_t>(crc));
}

Bytes BmpHeaders(std::uint32_t width, std::int32_t height, std::uint32_t headerSize,
                 std::uint16_t bitCount, std::uint32_t compression, std::uint32_t paletteBytes,
                 std::uint32_t pixelBytes) {
    Bytes out = {'B', 'M'};
    const std::uint32_t offset = 14 + headerSize + paletteBytes;
    PutLe(out, 4,
          {offset + pixelBytes, 0, offset, headerSize, width, static_cast<std::uint32_t>(height)});
    PutLe(out, 2, {1, bitCount});
    PutLe(out, 4, {compression, pixelBytes, 2835, 2835, paletteBytes / 4, 0});  // 72 dpi
    return out;
}

}  // namespace

Bytes WritePng(std::uint32_t width, std::uint32_t height, std::uint8_t bitDepth,
               std::uint8_t colorType, const Bytes& rows, const Bytes& palette,
               const Bytes& transparency) {
    const std::size_t rowBytes = rows.size() / height;
    Bytes filtered;
    for (std::uint32_t y = 0; y < height; ++y) {
        filtered.push_back(0);  // filter type None
        filtered.insert(filtered.end(), rows.begin() + y * rowBytes,
                        rows.begin() + (y + 1) * rowBytes);
    }
    uLongf compressedSize = compressBound(static_cast<uLong>(filtered.size()));
    Bytes compressed(compressedSize);
    if (compress2(compressed.data(), &compressedSize, filtered.data(),
                  static_cast<uLong>(filtered.size()), 9) != Z_OK)
        throw std::runtime_error("zlib failed");
    compressed.resize(compressedSize);

    Bytes out = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    Bytes header;
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

Bytes WritePng(const Picture& picture, bool alpha) {
    Bytes rows;
    for (const Rgba& p : picture.pixels) {
        rows.insert(rows.end(), {p.r, p.g, p.b});
        if (alpha)
            rows.push_back(p.a);
    }
    return WritePng(picture.width, picture.height, 8, alpha ? 6 : 2, rows);
}

Bytes WriteBmp(const Picture& picture, int bits, bool topDown) {
    const std::uint32_t bytes = bits / 8, stride = (picture.width * bytes + 3) / 4 * 4;
    const auto height = static_cast<std::int32_t>(picture.height);
    Bytes out = BmpHeaders(picture.width, topDown ? -height : height, bits == 32 ? 108 : 40,
                           static_cast<std::uint16_t>(bits), bits == 32 ? 3 : 0, 0,
                           stride * picture.height);
    if (bits == 32) {
        // Red, green, blue and alpha bit fields, 'sRGB', then end points and gamma.
        PutLe(out, 4, {0x00FF0000, 0x0000FF00, 0x000000FF, 0xFF000000, 0x73524742});
        out.resize(out.size() + 48, 0);
    }
    for (std::uint32_t row = 0; row < picture.height; ++row) {
        for (std::uint32_t x = 0; x < picture.width; ++x) {
            const Rgba& p = picture.at(x, topDown ? row : picture.height - 1 - row);
            out.insert(out.end(), {p.b, p.g, p.r, p.a});
            out.resize(out.size() + bytes - 4);
        }
        out.resize(out.size() + stride - picture.width * bytes, 0);
    }
    return out;
}

Bytes WriteBmp8(std::uint32_t width, std::uint32_t height, const Bytes& indices,
                const std::vector<Rgba>& palette) {
    const std::uint32_t stride = (width + 3) / 4 * 4;
    Bytes out = BmpHeaders(width, static_cast<std::int32_t>(height), 40, 8, 0,
                           static_cast<std::uint32_t>(palette.size() * 4), stride * height);
    for (const Rgba& p : palette)
        out.insert(out.end(), {p.b, p.g, p.r, 0});
    for (std::uint32_t row = 0; row < height; ++row) {
        const std::uint32_t y = height - 1 - row;
        out.insert(out.end(), indices.begin() + y * width, indices.begin() + (y + 1) * width);
        out.resize(out.size() + stride - width, 0);
    }
    return out;
}

Bytes WriteTga(const Picture& picture, int bits, bool topDown, bool runLength) {
    Bytes out = {0, 0, static_cast<std::uint8_t>(runLength ? 10 : 2), 0, 0, 0, 0, 0};
    PutLe(out, 2, {0, 0, picture.width, picture.height});  // origin and size
    out.insert(out.end(),
               {std::uint8_t(bits), std::uint8_t((bits / 4 & 8) | (topDown ? 0x20 : 0))});
    const auto pixel = [&](std::uint32_t i) {
        const std::uint32_t row = i / picture.width;
        const Rgba& p = picture.at(i % picture.width, topDown ? row : picture.height - 1 - row);
        Bytes bytes{p.b, p.g, p.r, p.a};
        bytes.resize(bits / 8);
        return bytes;
    };
    // Runs of equal pixels become repeat packets, anything else single raw packets.
    for (std::uint32_t i = 0, run = 1; i < picture.pixels.size(); i += run, run = 1) {
        while (runLength && i + run < picture.pixels.size() && run < 128 &&
               pixel(i + run) == pixel(i))
            ++run;
        if (runLength)
            out.push_back(static_cast<std::uint8_t>(run > 1 ? 0x80 | (run - 1) : 0));
        const Bytes p = pixel(i);
        out.insert(out.end(), p.begin(), p.end());
    }
    return out;
}

Bytes WriteGif(std::uint32_t width, std::uint32_t height, const Bytes& indices,
               const std::vector<Rgba>& palette, std::optional<std::uint8_t> transparentIndex) {
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
Bytes WriteJpeg(const Picture& picture, int quality, JpegKind kind) {
    const auto k = static_cast<int>(kind);
    constexpr int kChannels[] = {3, 3, 1, 4},
                  kFormats[] = {TJPF_RGB, TJPF_RGB, TJPF_GRAY, TJPF_CMYK},
                  kSampling[] = {TJSAMP_420, TJSAMP_420, TJSAMP_GRAY, TJSAMP_444};
    Bytes pixels;
    for (const Rgba& p : picture.pixels) {
        pixels.insert(pixels.end(), {p.r, p.g, p.b, p.a});
        pixels.resize(pixels.size() - 4 + kChannels[k]);
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

Bytes Patch(Bytes bytes, std::size_t at, const Bytes& with) {
    std::copy(with.begin(), with.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
    return bytes;
}

Bytes FromBase64(std::string_view text) {
    constexpr std::string_view kDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    Bytes out;
    std::uint32_t bits = 0;
    int count = 0;
    for (const char c : text) {
        const std::size_t digit = kDigits.find(c);
        if (digit == std::string_view::npos)
            continue;
        bits = bits << 6 | static_cast<std::uint32_t>(digit);
        if ((count += 6) >= 8)
            out.push_back(static_cast<std::uint8_t>(bits >> (count -= 8)));
    }
    return out;
}

Rgba PixelAt(PelPixHandle buffer, std::uint32_t x, std::uint32_t row) {
    PelPixLock lock(buffer);
    const std::uint8_t* p = lock.Row(row) + x * 4;
    return Rgba{p[2], p[1], p[0], p[3]};
}

Bytes PixelsOf(PelPixHandle buffer) {
    const std::uint32_t width = pelpixGetWidth(buffer), height = pelpixGetHeight(buffer);
    Bytes pixels = {std::uint8_t(width), std::uint8_t(width >> 8), std::uint8_t(height),
                    std::uint8_t(height >> 8)};
    PelPixLock lock(buffer);
    for (std::uint32_t row = 0; row < height; ++row)
        pixels.insert(pixels.end(), lock.Row(row), lock.Row(row) + width * 4);
    return pixels;
}

}  // namespace Tessel::Test
